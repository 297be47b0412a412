#pragma once

#include "engine/AFUniClient.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

// The engine driven as a host would, at 48 kHz: ns per stereo sample and the realtime factor of one core.
namespace bench {

inline constexpr float kRate = 48000.0f;

struct BenchHost {
    AFTimeInfo time{};
    static intptr_t callback(AFPluginBase* plugin, int32_t opcode, int32_t, intptr_t, void*, float) {
        auto* host = static_cast<BenchHost*>(plugin->getHostUser());
        if (opcode == audioMasterVersion) return 2;
        if (opcode == audioMasterGetTime && host != nullptr) return reinterpret_cast<intptr_t>(&host->time);
        return 0;
    }
};

struct Rig {
    BenchHost host;
    std::unique_ptr<AFUniClient> client;
    std::vector<float> left, right;
    int block;

    explicit Rig(int blockSize) : block(blockSize) {
        host.time.tempo = 120.0;
        host.time.flags = kVstTransportPlaying | kVstPpqPosValid | kVstTempoValid;
        client = std::make_unique<AFUniClient>(&BenchHost::callback, &host);
        client->setSampleRate(kRate);
        client->setBlockSize(block);
        left.resize(static_cast<std::size_t>(block));
        right.resize(static_cast<std::size_t>(block));
        // A steady noise-like test signal; the slots keep it busy the whole run.
        uint32_t seed = 1;
        for (int i = 0; i < block; ++i) {
            seed = seed * 1664525u + 1013904223u;
            left[static_cast<std::size_t>(i)] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
            right[static_cast<std::size_t>(i)] = -left[static_cast<std::size_t>(i)];
        }
    }

    void runSlot(int slot, int type, bool modulated) {
        client->setSlotEffect(slot, type);
        client->getSlot(slot).setQuantiseMode(0);
        if (modulated) {
            client->setParameter(261 + 15 * slot, 0.5f);      // LFO 1 on Parameter 1
            client->setParameter(261 + 15 * slot + 5, 0.4f);  // envelope on Parameter 1
            client->setParameter(261 + 15 * slot + 12, 0.3f); // LFO 2 on Parameter 3
        }
        client->setParameter(slot, 0.7f);
    }

    void step() {
        float* io[2] = {left.data(), right.data()};
        client->processReplacing(io, io, block);
        host.time.ppqPos += block / (kRate * 60.0 / host.time.tempo);
    }
};

inline void report(benchmark::State& state, int block) {
    const double samples = static_cast<double>(state.iterations()) * block;
    state.SetItemsProcessed(static_cast<int64_t>(samples));
    state.counters["ns_per_sample"] =
        benchmark::Counter(samples, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["realtime_x"] = benchmark::Counter(samples / kRate, benchmark::Counter::kIsRate);
}

inline void runRig(benchmark::State& state, Rig& rig) {
    for (int i = 0; i < 64; ++i)
        rig.step(); // past the fades
    for (auto _ : state) {
        rig.step();
        benchmark::DoNotOptimize(rig.left.data());
    }
    report(state, rig.block);
}

} // namespace bench
