#include "BenchRig.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

// A global preset load while the audio runs. An audio thread keeps asking for one-sample blocks; a block the
// gate holds off leaves its output as it found it, so the thread sees exactly when it is kept out. Reported:
// the longest time the audio was held off in a load (mean, median, 90th percentile and worst over the loads),
// the gate's own timing of it, the CPU time the loading thread spent holding it, and the time of the load.
namespace {

using Clock = std::chrono::steady_clock;
constexpr float kUntouched = 12345.0f;
constexpr auto kAudioPause = std::chrono::microseconds(2);

std::vector<uint8_t> stateImage(AFUniClient& client) {
    void* data = nullptr;
    const int32_t size = client.getChunk(&data, false);
    const auto* bytes = static_cast<const uint8_t*>(data);
    return {bytes, bytes + size};
}

void GlobalPresetLoadWhileAudioRuns(benchmark::State& state) {
    bench::Rig rig(64);
    // Two states with a different effect in every slot, so that each load replaces all eight.
    constexpr int kTypesA[8] = {9, 7, 14, 27, 24, 26, 19, 22};
    constexpr int kTypesB[8] = {21, 8, 5, 4, 16, 18, 1, 28};
    std::vector<uint8_t> images[2];
    for (int k = 0; k < 2; ++k) {
        for (int s = 0; s < 8; ++s)
            rig.runSlot(s, k == 0 ? kTypesA[s] : kTypesB[s], true);
        images[k] = stateImage(*rig.client);
    }

    std::atomic<bool> stop{false};
    std::atomic<int64_t> longestHold{0};
    std::thread audio([&] {
        std::vector<float> inL(rig.left), inR(rig.right), outL(1), outR(1);
        float* in[2] = {inL.data(), inR.data()};
        float* out[2] = {outL.data(), outR.data()};
        bool held = false;
        Clock::time_point heldSince{};
        while (!stop.load(std::memory_order_relaxed)) {
            outL[0] = kUntouched;
            const auto before = Clock::now();
            rig.client->processReplacing(in, out, 1);
            const bool keptOut = outL[0] == kUntouched;
            if (keptOut && !held) heldSince = before;
            if (!keptOut && held) {
                const auto ns =
                    std::chrono::duration_cast<std::chrono::nanoseconds>(before - heldSince).count();
                longestHold.store(std::max<int64_t>(longestHold.load(), ns));
            }
            held = keptOut;
            const auto until = Clock::now() + kAudioPause;
            while (Clock::now() < until) {
            }
        }
    });

    std::vector<double> holds;
    std::vector<double> closed;
    std::vector<double> cpu;
    for (auto _ : state) {
        longestHold.store(0);
        rig.client->getAudioGate().takeLongestHold();
        rig.client->getAudioGate().takeLongestHoldCpu();
        std::vector<uint8_t>& image = images[holds.size() % 2];
        rig.client->setChunk(image.data(), static_cast<int32_t>(image.size()), false);
        // Let the audio thread run a block again so that the hold is closed and counted.
        state.PauseTiming();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        holds.push_back(static_cast<double>(longestHold.load()) / 1000.0);
        closed.push_back(static_cast<double>(rig.client->getAudioGate().takeLongestHold()) / 1000.0);
        cpu.push_back(static_cast<double>(rig.client->getAudioGate().takeLongestHoldCpu()) / 1000.0);
        state.ResumeTiming();
    }
    stop.store(true);
    audio.join();
    // The mean, the 90th percentile and the worst: on a busy machine a thread may lose its core while it
    // holds the gate.
    const auto summary = [&](std::vector<double>& v, const std::string& name) {
        if (v.empty()) return;
        std::sort(v.begin(), v.end());
        double sum = 0.0;
        for (const double x : v)
            sum += x;
        state.counters[name + "_us"] = sum / static_cast<double>(v.size());
        state.counters[name + "_med_us"] = v[v.size() / 2];
        state.counters[name + "_p90_us"] = v[v.size() * 9 / 10];
        state.counters[name + "_max_us"] = v.back();
    };
    // As the audio thread saw it, and as the gate itself timed it (from closing to opening).
    summary(holds, "audio_held");
    summary(closed, "gate_closed");
    summary(cpu, "hold_cpu");
}

} // namespace

BENCHMARK(GlobalPresetLoadWhileAudioRuns)->Unit(benchmark::kMicrosecond)->Iterations(200)->UseRealTime();
