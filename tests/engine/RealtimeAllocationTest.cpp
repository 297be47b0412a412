#include "TestHost.h"

#include "effects/framework/EffectFactory.h"
#include "engine/AFCommandRememberChunk.h"
#include "modulation/AFLfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

// Every heap allocation of the test binary passes through here; while `counting` is set the count grows.
namespace {
std::atomic<bool> counting{false};
std::atomic<long> allocations{0};

void* allocate(std::size_t size) {
    if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void* allocateAligned(std::size_t size, std::align_val_t align) {
    if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
    const auto a = static_cast<std::size_t>(align);
    void* p = std::aligned_alloc(a, (size + a - 1) / a * a);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t a) {
    return allocateAligned(size, a);
}
void* operator new[](std::size_t size, std::align_val_t a) {
    return allocateAligned(size, a);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}

namespace {

// Small deterministic generator for the test's own choices.
struct Dice {
    uint32_t state = 12345;
    uint32_t next(uint32_t range) {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) % range;
    }
    float unit() { return static_cast<float>(next(1000001)) / 1000000.0f; }
};

} // namespace

// After construction and the rate and block size are set, the audio path allocates nothing: not across tempo
// changes, transport starts and stops, loop wraps, MIDI, Controls crossing the threshold, nor with every
// catalogue effect running in the slots.
TEST(RealtimeSafety, TenThousandBlocksAllocateNothing) {
    constexpr int kMaxBlock = 2048;
    TestHost host(48000.0f, kMaxBlock);
    auto& client = host.client();
    std::vector<int> types;
    for (int id = 0; id < EffectFactory::kTypeCount; ++id)
        if (EffectFactory::hasClass(id)) types.push_back(id);
    for (int s = 0; s < 8; ++s) {
        client.setSlotEffect(s, types[static_cast<std::size_t>(s) % types.size()]);
        client.setParameter(261 + 15 * s, 0.5f);      // LFO 1 on Parameter 1
        client.setParameter(261 + 15 * s + 6, 0.3f);  // envelope on Parameter 2
        client.setParameter(261 + 15 * s + 12, 0.4f); // LFO 2 on Parameter 3
    }
    std::vector<float> left(kMaxBlock), right(kMaxBlock);
    std::vector<AFMidiEvent> midi(8);
    Dice dice;
    int typeCursor = 8;

    for (int round = 0; round < 10; ++round) {
        // Effect swaps allocate by design and happen off the audio thread, between rounds.
        for (int s = 0; s < 8; ++s) {
            client.setSlotEffect(s, types[static_cast<std::size_t>(typeCursor++) % types.size()]);
            // Every waveform, rate mode and trigger mode comes round in the LFOs.
            for (int which = 0; which < 2; ++which) {
                AFLfo* lfo = client.getSlot(s).getLfo(which);
                lfo->setWaveform((round * 8 + s + which) % 14);
                lfo->setParameterMode(0, (round + s) % 3);
                lfo->setTriggerMode((round + which) % 3);
                lfo->setQuantizeSteps(static_cast<int32_t>(dice.next(5)));
                lfo->setRateDivide(dice.unit());
            }
        }

        counting.store(true);
        for (int block = 0; block < 1000; ++block) {
            const int n = 1 + static_cast<int>(dice.next(kMaxBlock));
            for (int i = 0; i < n; ++i) {
                left[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
                right[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
            }
            if (dice.next(50) == 0) host.time.tempo = 45.0 + dice.next(200);
            if (dice.next(80) == 0) host.playing = !host.playing;
            if (dice.next(60) == 0) {
                host.cycle = !host.cycle;
                host.time.cycleStartPos = 0.0;
                host.time.cycleEndPos = 1.0 + dice.next(8);
            }
            if (dice.next(40) == 0) host.time.ppqPos = dice.unit() * 64.0;
            const int control = static_cast<int>(dice.next(8));
            client.setParameter(control, dice.next(3) == 0 ? 0.0f : dice.unit());
            client.setParameter(12 + 29 * control + static_cast<int>(dice.next(5)), dice.unit());
            if (dice.next(10) == 0) {
                const int count = 1 + static_cast<int>(dice.next(8));
                for (int e = 0; e < count; ++e) {
                    midi[static_cast<std::size_t>(e)] = AFMidiEvent{};
                    midi[static_cast<std::size_t>(e)].deltaFrames =
                        static_cast<int>(dice.next(static_cast<uint32_t>(n)));
                    midi[static_cast<std::size_t>(e)].midiData[0] =
                        static_cast<uint8_t>(0xB0 + 0x10 * dice.next(4));
                    midi[static_cast<std::size_t>(e)].midiData[1] = static_cast<uint8_t>(dice.next(128));
                    midi[static_cast<std::size_t>(e)].midiData[2] = static_cast<uint8_t>(dice.next(128));
                }
                AFEvents events{count, midi.data()};
                client.processEvents(&events);
            }
            host.processBlock(left.data(), right.data(), n);
        }
        counting.store(false);
        ASSERT_EQ(allocations.load(), 0) << "round " << round;
    }
}

// The history lives on the editor thread: the audio path allocates nothing because of it, neither while a
// gesture is noted nor after undo and redo swapped effects and reloaded slots between the blocks.
TEST(RealtimeSafety, HistoryLeavesTheAudioPathAllocationFree) {
    constexpr int kBlock = 256;
    TestHost host(48000.0f, kBlock);
    auto& client = host.client();
    client.getOptions().syncedHostStop.store(true);
    std::vector<float> left(kBlock, 0.25f), right(kBlock, -0.25f);
    int runningBlocks = 0;

    for (int round = 0; round < 20; ++round) {
        // Editor thread, between blocks: an effect change with its snapshot, then undo or redo of it.
        client.getHistory().add(std::make_unique<AFCommandRememberChunk>(client, round % 8));
        client.setSlotEffect(round % 8, round % 2 == 0 ? 1 : 4);
        if (round % 3 == 0) client.undo();
        if (round % 3 == 1) client.redo();

        counting.store(true);
        // A gesture only notes values; its command is made at endEdit, outside the counted region.
        client.beginEdit(12 + round);
        for (int block = 0; block < 50; ++block) {
            client.setParameterAutomated(12 + round, static_cast<float>(block) / 50.0f);
            if (block % 10 == 0) {
                host.playing = !host.playing; // a stop drives setParameter on the audio thread
                if (host.playing)
                    for (int s = 0; s < 8; ++s)
                        client.setParameter(s, 0.5f);
            }
            host.processBlock(left.data(), right.data(), kBlock);
            for (int s = 0; s < 8; ++s)
                runningBlocks += client.getSlot(s).isRunning() ? 1 : 0;
        }
        counting.store(false);
        client.endEdit(12 + round);
        ASSERT_EQ(allocations.load(), 0) << "round " << round;
    }
    EXPECT_GT(runningBlocks, 1000);
}

// The pitch effects at the highest rate: their lines and capture buffers hold 45 BPM from construction on, so
// neither tempo jumps down to 45 nor every option word nor retriggers make the audio path allocate.
TEST(RealtimeSafety, PitchEffectsAllocateNothingAtTheHighestRate) {
    constexpr int kBlock = 512;
    TestHost host(196000.0f, kBlock);
    auto& client = host.client();
    for (int s = 0; s < 8; ++s) {
        client.setSlotEffect(s, s < 4 ? 2 : 11);
        client.setParameter(s, 1.0f);
    }
    std::vector<float> left(kBlock), right(kBlock);
    Dice dice;
    for (int round = 0; round < 6; ++round) {
        for (int s = 0; s < 8; ++s)
            for (int option = 0; option < 4; ++option)
                client.setSlotOption(s, option, static_cast<int>(dice.next(27)));
        counting.store(true);
        for (int block = 0; block < 300; ++block) {
            for (int i = 0; i < kBlock; ++i) {
                left[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
                right[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
            }
            if (dice.next(20) == 0) host.time.tempo = dice.next(3) == 0 ? 45.0 : 45.0 + dice.next(400);
            client.setParameter(12 + 29 * static_cast<int>(dice.next(8)) + static_cast<int>(dice.next(4)),
                                dice.unit());
            host.processBlock(left.data(), right.data(), kBlock);
        }
        counting.store(false);
        ASSERT_EQ(allocations.load(), 0) << "round " << round;
    }
}

// The slicing and panning loopers keep their captures in buffers sized for the slowest tempo at the highest
// rate: tempo swings from 45 to 300 BPM, option changes and Controls going on and off while they run allocate
// nothing.
TEST(RealtimeSafety, LoopersFollowTempoChangesWithoutAllocating) {
    constexpr int kBlock = 512;
    TestHost host(192000.0f, kBlock);
    auto& client = host.client();
    const int slicer = EffectFactory::typeIdByName("Slicearranger");
    const int panner = EffectFactory::typeIdByName("Pan Looper");
    for (int s = 0; s < 4; ++s)
        client.setSlotEffect(s, s % 2 == 0 ? slicer : panner);
    std::vector<float> left(kBlock), right(kBlock);
    Dice dice;
    counting.store(true);
    for (int block = 0; block < 3000; ++block) {
        for (int i = 0; i < kBlock; ++i) {
            left[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
            right[static_cast<std::size_t>(i)] = dice.unit() * 2.0f - 1.0f;
        }
        if (block % 25 == 0) host.time.tempo = 45.0 + dice.next(256);
        const int s = static_cast<int>(dice.next(4));
        if (block % 40 == 0) client.setParameter(s, block % 80 == 0 ? 0.0f : 1.0f);
        if (block % 7 == 0)
            client.setSlotOption(s, static_cast<int>(dice.next(4)), static_cast<int>(dice.next(8)));
        client.setParameter(12 + 29 * s + static_cast<int>(dice.next(4)), dice.unit());
        host.processBlock(left.data(), right.data(), kBlock);
    }
    counting.store(false);
    EXPECT_EQ(allocations.load(), 0);
}
