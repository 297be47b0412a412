// Runs the plug-in's threads against each other as a host and an open editor do: the audio thread processes
// all eight slots, a host thread loads and saves states, sets parameters and changes programs, and an editor
// thread swaps effects, sets options, edits MIDI bindings and learns. Built with ThreadSanitizer and with
// AddressSanitizer; any report fails the run. Usage: orvanto-thread-stress [SECONDS] (default 3).
#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFAudioGate.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"
#include "tools/RenderHost.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int kBlock = 256;
constexpr int kControls = 8;
constexpr long kMinRounds = 10;

RenderHost::Transport transport() {
    RenderHost::Transport t;
    t.sampleRate = 48000.0;
    t.tempo = 128.0;
    return t;
}

std::vector<uint8_t> saveState(AFUniClient& client) {
    void* data = nullptr;
    const int32_t size = client.getChunk(&data, false);
    const auto* bytes = static_cast<const uint8_t*>(data);
    return size > 0 ? std::vector<uint8_t>(bytes, bytes + size) : std::vector<uint8_t>{};
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    RenderHost host(transport());
    AFUniClient client(&RenderHost::callback, &host);
    client.setSampleRate(48000.0f);
    client.setBlockSize(kBlock);
    client.resume();

    // Two states with different effects in every slot, so each load swaps all eight.
    std::vector<std::vector<uint8_t>> states;
    for (int variant = 0; variant < 2; ++variant) {
        for (int slot = 0; slot < kControls; ++slot)
            client.setSlotEffect(
                slot, EffectFactory::menuTypeId((slot * 3 + variant * 11) % EffectFactory::kMenuCount));
        states.push_back(saveState(client));
    }
    for (int c = 0; c < kControls; ++c)
        client.setParameter(c, 1.0f);

    std::atomic<bool> running{true};
    std::atomic<long> blocks{0}, hostRounds{0}, editorRounds{0};
    std::atomic<long> hostProgress{0}, editorProgress{0};

    std::thread audio([&] {
        std::vector<float> left(kBlock), right(kBlock);
        float* io[2] = {left.data(), right.data()};
        long n = 0;
        while (running.load()) {
            for (int i = 0; i < kBlock; ++i) {
                const float t = static_cast<float>(n * kBlock + i);
                left[static_cast<std::size_t>(i)] = 0.4f * std::sin(0.031f * t) + (i == 0 ? 0.5f : 0.0f);
                right[static_cast<std::size_t>(i)] = 0.4f * std::sin(0.017f * t);
            }
            AFMidiEvent cc{};
            cc.midiData[0] = 0xB0;
            cc.midiData[1] = static_cast<uint8_t>(20 + n % 8);
            cc.midiData[2] = static_cast<uint8_t>(n % 128);
            AFEvents events{1, &cc};
            client.processEvents(&events);
            client.processReplacing(io, io, kBlock);
            host.advance(kBlock);
            ++n;
        }
        blocks.store(n);
    });

    std::thread hostThread([&] {
        std::mt19937 random(1);
        long n = 0;
        while (running.load()) {
            std::vector<uint8_t> state = states[static_cast<std::size_t>(n % 2)];
            client.setChunk(state.data(), static_cast<int32_t>(state.size()), false);
            const std::vector<uint8_t> saved = saveState(client);
            if (saved.empty()) std::abort();
            client.setParameter(static_cast<int32_t>(random() % 252),
                                static_cast<float>(random() % 1000) / 999.0f);
            for (int c = 0; c < kControls; ++c)
                client.setParameter(c, 1.0f);
            client.setProgram(static_cast<int32_t>(random() % 4));
            hostProgress.store(++n);
        }
        hostRounds.store(n);
    });

    std::thread editor([&] {
        std::mt19937 random(2);
        AFMidiBindings& bindings = client.getMidiBindings();
        long n = 0;
        while (running.load()) {
            const int slot = static_cast<int>(random() % kControls);
            client.setSlotEffect(
                slot, EffectFactory::menuTypeId(static_cast<int>(random() % EffectFactory::kMenuCount)));
            client.setSlotOption(slot, static_cast<int>(random() % 4), static_cast<int>(random() % 3));
            {
                // Reading the slot's effect off the audio thread takes the writers' turn, as drawing does.
                const AFAudioGate::Reader turn(client.getAudioGate());
                if (AFEffect* effect = client.slotEffect(slot)) {
                    char text[kEffectTextSize];
                    effect->formatParameter(0, 0.5f, text);
                }
            }
            bindings.addControllerBinding(static_cast<int>(random() % 128),
                                          static_cast<int32_t>(random() % 252));
            bindings.addNoteBinding(static_cast<int>(random() % 128), static_cast<int32_t>(random() % 252));
            bindings.removeParameter(static_cast<int32_t>(random() % 252));
            client.setLearnTarget(static_cast<int>(random() % 252));
            editorProgress.store(++n);
        }
        editorRounds.store(n);
    });

    // The time asked for, and then until every writer has had a few rounds (a sanitized state load takes
    // long), within twenty times that time.
    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    while (elapsed() < seconds || ((hostProgress.load() < kMinRounds || editorProgress.load() < kMinRounds) &&
                                   elapsed() < 20.0 * seconds))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    running.store(false);
    audio.join();
    hostThread.join();
    editor.join();
    std::printf("%ld audio blocks, %ld host rounds, %ld editor rounds in %.1f s\n", blocks.load(),
                hostRounds.load(), editorRounds.load(), seconds);
    // Each thread must have got through: a gate that never opens again would show as no audio.
    const bool moved = blocks.load() > 0 && hostRounds.load() > 0 && editorRounds.load() > 0;
    std::printf("%d passed, %d failed\n", moved ? 1 : 0, moved ? 0 : 1);
    return moved ? 0 : 1;
}
