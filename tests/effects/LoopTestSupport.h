#pragma once

// What the looping effects' tests share: the rates and tempos they run at, a signal whose samples name
// themselves, and the click measure (an output step may be at most twice the input's steps around it).

#include "SlotDriver.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

struct Setup {
    float rate;
    double bpm;
};
inline constexpr Setup kSetups[] = {{44100.0f, 120.0}, {48000.0f, 97.0}, {96000.0f, 133.0}, {22050.0f, 45.0}};

// Each sample holds its own index, so an output sample says which captured sample it replays.
inline slot::Stereo indexRamp(int n) {
    slot::Stereo s(n);
    for (int i = 0; i < n; ++i)
        s.left[static_cast<std::size_t>(i)] = s.right[static_cast<std::size_t>(i)] = static_cast<float>(i);
    return s;
}

namespace slot {

// True when no output sample steps further from the one before than twice the largest input step within
// about 64 samples of it.
inline bool stepsStayWithinInput(const slot::Stereo& in, const slot::Stereo& out, int64_t& where) {
    const auto n = static_cast<int64_t>(in.left.size());
    std::vector<double> inputBlocks(static_cast<std::size_t>(n / 64 + 1), 0.0);
    const auto step = [](const slot::Stereo& s, int64_t i) {
        const auto k = static_cast<std::size_t>(i);
        return std::fmax(std::fabs(static_cast<double>(s.left[k]) - s.left[k - 1]),
                         std::fabs(static_cast<double>(s.right[k]) - s.right[k - 1]));
    };
    for (int64_t i = 1; i < n; ++i) {
        auto& b = inputBlocks[static_cast<std::size_t>(i / 64)];
        b = std::fmax(b, step(in, i));
    }
    const auto last = static_cast<int64_t>(inputBlocks.size()) - 1;
    for (int64_t i = 1; i < n; ++i) {
        const int64_t b = i / 64;
        const double around =
            std::fmax(inputBlocks[static_cast<std::size_t>(std::max<int64_t>(b - 1, 0))],
                      std::fmax(inputBlocks[static_cast<std::size_t>(b)],
                                inputBlocks[static_cast<std::size_t>(std::min(b + 1, last))]));
        if (step(out, i) > 2.0 * around) {
            where = i;
            return false;
        }
    }
    return true;
}

} // namespace slot
