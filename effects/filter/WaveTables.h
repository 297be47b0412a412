#pragma once

#include <array>

// The four oscillator shapes (Saw, Tri, Square, Sine), 1024 points each, with the difference from every point
// to the next so a read is one multiply-add. Built once, shared by every instance, read-only afterwards.
class WaveTables {
public:
    static constexpr int kSize = 1024;
    static constexpr int kMask = kSize - 1;
    static constexpr int kCount = 4;

    // Any thread; the first call builds the tables (thread-safe static initialisation).
    static const WaveTables& instance();

    // Any thread. index: 0 Saw, 1 Tri, 2 Square, 3 Sine; out-of-range values are folded into 0..3.
    const float* wave(int index) const noexcept { return waves[fold(index)].data(); }
    // Any thread. Same index as wave(); delta[i] = wave[i + 1] - wave[i], wrapping at the end.
    const float* delta(int index) const noexcept { return deltas[fold(index)].data(); }
    // Any thread. Same index as wave(); point i and its delta side by side at [2i] and [2i + 1], so one
    // 8-byte read fetches both.
    const float* pairs(int index) const noexcept { return pairTables[fold(index)].data(); }

private:
    WaveTables();
    static int fold(int index) noexcept { return index & (kCount - 1); }

    alignas(32) std::array<std::array<float, kSize>, kCount> waves{};
    alignas(32) std::array<std::array<float, kSize>, kCount> deltas{};
    alignas(32) std::array<std::array<float, 2 * kSize>, kCount> pairTables{};
};
