#pragma once

// Drives an effect the way a slot does: every 64 samples the four parameters are pushed and controlTick runs,
// then process is called on pieces of at most 64 samples that never straddle a tick.

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace slot {

struct Rig {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
    Rig(float rate, double bpm) {
        system.setControlInterval(64);
        system.setSampleRate(rate);
        system.setTempo(bpm);
    }
};

struct Stereo {
    std::vector<float> left, right;
    explicit Stereo(int n) : left(static_cast<std::size_t>(n)), right(static_cast<std::size_t>(n)) {}
};

// Deterministic test music: two tones and a little noise, different per channel.
inline Stereo testSignal(int n) {
    Stereo s(n);
    uint32_t seed = 12345;
    for (int i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const float noise = static_cast<float>(seed >> 8) / 16777216.0f - 0.5f;
        s.left[static_cast<std::size_t>(i)] = 0.5f * std::sin(0.013f * static_cast<float>(i)) + 0.1f * noise;
        s.right[static_cast<std::size_t>(i)] =
            0.4f * std::sin(0.007f * static_cast<float>(i) + 1.0f) - 0.1f * noise;
    }
    return s;
}

// Runs `input` through `effect`. `onTick(tick, params)` may change the four parameter values (and the tempo)
// before they are pushed. Piece lengths vary pseudo-randomly with `pieceSeed`; 0 gives whole ticks.
template <class Effect, class OnTick>
Stereo drive(Effect& effect, const Stereo& input, OnTick onTick, uint32_t pieceSeed = 0) {
    const int total = static_cast<int>(input.left.size());
    Stereo out = input;
    std::array<float, 4> params{};
    for (int i = 0; i < 4; ++i)
        params[static_cast<std::size_t>(i)] = effect.getParameterValue(i);
    uint32_t seed = pieceSeed;
    for (int start = 0, tick = 0; start < total; start += 64, ++tick) {
        onTick(tick, params);
        for (int i = 0; i < 4; ++i)
            effect.setParameter(i, params[static_cast<std::size_t>(i)]);
        effect.controlTick();
        const int end = start + 64 < total ? start + 64 : total;
        for (int pos = start; pos < end;) {
            int piece = end - pos;
            if (pieceSeed != 0) {
                seed = seed * 1664525u + 1013904223u;
                const int cut = 1 + static_cast<int>((seed >> 16) % 64u);
                piece = cut < piece ? cut : piece;
            }
            effect.process(out.left.data() + pos, out.right.data() + pos, piece);
            pos += piece;
        }
    }
    return out;
}

inline double maxDifference(const Stereo& a, const Stereo& b) {
    double worst = 0.0;
    for (std::size_t i = 0; i < a.left.size(); ++i) {
        worst = std::fmax(worst, std::fabs(static_cast<double>(a.left[i]) - b.left[i]));
        worst = std::fmax(worst, std::fabs(static_cast<double>(a.right[i]) - b.right[i]));
    }
    return worst;
}

} // namespace slot
