#include "BenchRig.h"
#include "effects/framework/PitchShifter.h"

#include <benchmark/benchmark.h>

#include <vector>

// The shared pitch shifter alone on a recording of noise, in the pieces its owners call it with: ns per
// sample (stereo or mono), grain searches included.
namespace {

template <int Channels>
void runShifter(benchmark::State& state, double ratio) {
    constexpr int kLength = 1 << 18;
    std::vector<float> left(kLength), right(kLength);
    uint32_t seed = 1;
    for (int i = 0; i < kLength; ++i) {
        seed = seed * 1664525u + 1013904223u;
        left[static_cast<std::size_t>(i)] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
        right[static_cast<std::size_t>(i)] = 0.5f * left[static_cast<std::size_t>(i)];
    }
    const PitchShifter::LinearSource sourceLeft{left.data(), kLength};
    const PitchShifter::LinearSource sourceRight{right.data(), kLength};
    PitchShifter shifter;
    shifter.configure(bench::kRate, PitchShifter::kGrainMs * 48.0);
    shifter.setRatio(ratio);
    shifter.setCentre(4096.0, 0.0);
    std::vector<float> outLeft(PitchShifter::kMaxRun), outRight(PitchShifter::kMaxRun);
    // Runs through the middle of the recording, far from either end, and starts again.
    constexpr int kBlock = 512;
    constexpr int64_t kStart = 8192;
    int64_t now = kStart;
    for (auto _ : state) {
        if (now == kStart) shifter.reset();
        for (int i = 0; i < kBlock; i += PitchShifter::kMaxRun) {
            if constexpr (Channels == 2) {
                shifter.processStereo(sourceLeft, sourceRight, static_cast<double>(now), outLeft.data(),
                                      outRight.data(), PitchShifter::kMaxRun);
            } else {
                shifter.process(sourceLeft, static_cast<double>(now), outLeft.data(), PitchShifter::kMaxRun);
            }
            now += PitchShifter::kMaxRun;
        }
        benchmark::DoNotOptimize(outLeft.data());
        benchmark::DoNotOptimize(outRight.data());
        if (now > kLength / 2) now = kStart;
    }
    bench::report(state, kBlock);
}

void PitchShifterStereo(benchmark::State& state, double ratio) {
    runShifter<2>(state, ratio);
}

// One channel, as each side of an echo runs it.
void PitchShifterMono(benchmark::State& state, double ratio) {
    runShifter<1>(state, ratio);
}

} // namespace

BENCHMARK_CAPTURE(PitchShifterStereo, OctaveUp, 2.0);
BENCHMARK_CAPTURE(PitchShifterStereo, FifthUp, 1.5);
BENCHMARK_CAPTURE(PitchShifterStereo, OctaveDown, 0.5);
BENCHMARK_CAPTURE(PitchShifterMono, FifthUp, 1.5);
