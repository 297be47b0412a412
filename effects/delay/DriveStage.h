#pragma once

#include <array>

// One channel of an oversampled two-stage clipper: the input is raised to four times the rate through a
// windowed-sinc interpolator, clipped, smoothed as the treble loss between two valve stages, clipped again
// and brought back through a decimator whose low-pass doubles as the top of a speaker cabinet. Every filter
// is a finite response run over the whole block in vector lanes; nothing in it is recursive.
class DriveStage {
public:
    static constexpr int kFactor = 4;
    static constexpr int kMaxBlock = 64;
    static constexpr int kUpTaps = 32;
    static constexpr int kDownTaps = 48;
    static constexpr int kSmoothTaps = 31;

    // Audio thread on a rate change, or any thread with the audio held off: designs both sinc filters. The
    // decimator's corner is `cabinetHz`, kept under a fifth of the rate.
    void design(float sampleRate, float cabinetHz) noexcept;
    // Audio thread: clears every history.
    void reset() noexcept;
    // Audio thread: `count` (at most kMaxBlock) samples, already scaled by the first stage's gain, into
    // `out`. The second stage's gain goes from `secondGain` by `secondStep` per oversampled sample; `bias`
    // shifts the first stage off centre for even harmonics.
    void process(const float* in, float* out, int count, float secondGain, float secondStep,
                 float bias) noexcept;

private:
    static constexpr int kUpHistory = kUpTaps / kFactor - 1;
    static constexpr int kSmoothHistory = 32; // the smoothing's reach, to whole vectors
    static constexpr int kDownHistory = kDownTaps - 1;

    alignas(32) std::array<float, kUpTaps> upPhases{}; // tap k of phase p at 4k + p, scaled by the factor
    alignas(32) std::array<float, kDownTaps> downReversed{}; // the decimator's taps, last first
    alignas(32) std::array<float, kUpHistory + kMaxBlock> input{};
    alignas(32) std::array<float, kSmoothHistory + kFactor * kMaxBlock> firstOut{};
    alignas(32) std::array<float, kDownHistory + kFactor * kMaxBlock> secondOut{};
};
