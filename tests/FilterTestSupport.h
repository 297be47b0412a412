#pragma once

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <vector>

// Drives effects the way a slot does and measures what comes out.
namespace filtertest {

constexpr double kPi = 3.141592653589793;

struct Rig {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
    explicit Rig(float rate = 48000.0f, double bpm = 120.0) {
        system.setControlInterval(64);
        system.setSampleRate(rate);
        system.setTempo(bpm);
    }
};

// Slot order: parameters, activate; then per 64-sample tick the four parameters and controlTick, and process
// on pieces (here 23 + 41) that never straddle a tick.
inline void runStereo(AFEffect& effect, const std::array<float, 4>& params, std::vector<float>& left,
                      std::vector<float>& right, bool activate = true) {
    if (activate) {
        for (int i = 0; i < 4; ++i)
            effect.setParameter(i, params[static_cast<std::size_t>(i)]);
        effect.activate();
    }
    const int n = static_cast<int>(left.size());
    for (int start = 0; start < n; start += 64) {
        for (int i = 0; i < 4; ++i)
            effect.setParameter(i, params[static_cast<std::size_t>(i)]);
        effect.controlTick();
        const int block = std::min(64, n - start);
        const int first = std::min(23, block);
        effect.process(left.data() + start, right.data() + start, first);
        effect.process(left.data() + start + first, right.data() + start + first, block - first);
    }
}

// Impulse responses of both channels after a settling stretch of silence.
struct Response {
    std::vector<float> left;
    std::vector<float> right;
};

// The impulse is tall so that stages which zero tiny outputs keep the tail, and the response is scaled back.
inline Response impulseResponse(AFEffect& effect, const std::array<float, 4>& params, int length,
                                int settle = 64 * 40, float height = 1e6f) {
    std::vector<float> l(static_cast<std::size_t>(settle + length), 0.0f);
    std::vector<float> r(l.size(), 0.0f);
    l[static_cast<std::size_t>(settle)] = height;
    r[static_cast<std::size_t>(settle)] = height;
    runStereo(effect, params, l, r);
    Response out;
    for (std::size_t i = static_cast<std::size_t>(settle); i < l.size(); ++i) {
        out.left.push_back(l[i] / height);
        out.right.push_back(r[i] / height);
    }
    return out;
}

// Magnitude of one DFT bin at frequency hz.
inline double magnitudeAt(const std::vector<float>& h, double hz, double rate) {
    // A rotating phasor, re-anchored every 1024 samples to keep rounding out of deep notches.
    std::complex<double> sum = 0.0;
    const double w = 2.0 * kPi * hz / rate;
    const std::complex<double> step = std::polar(1.0, -w);
    std::complex<double> phasor = 1.0;
    for (std::size_t n = 0; n < h.size(); ++n) {
        if (n % 1024 == 0) phasor = std::polar(1.0, -w * static_cast<double>(n));
        sum += static_cast<double>(h[n]) * phasor;
        phasor *= step;
    }
    return std::abs(sum);
}

// Response of b0 + b1 z^-1 + b2 z^-2 over 1 + a1 z^-1 + a2 z^-2.
inline double biquadMagnitude(const std::array<double, 5>& c, double hz, double rate) {
    const std::complex<double> z1 = std::polar(1.0, -2.0 * kPi * hz / rate);
    const std::complex<double> z2 = z1 * z1;
    return std::abs((c[0] + c[1] * z1 + c[2] * z2) / (1.0 + c[3] * z1 + c[4] * z2));
}

// The audio-EQ-cookbook designs: 0 low-pass, 1 high-pass, 2 notch, 3 band-pass with 0 dB peak.
inline std::array<double, 5> cookbook(int shape, double hz, double q, double rate) {
    const double w0 = 2.0 * kPi * hz / rate;
    const double cw = std::cos(w0);
    const double alpha = std::sin(w0) / (2.0 * q);
    const double a0 = 1.0 + alpha;
    std::array<double, 5> c{};
    switch (shape) {
    case 0:
        c = {(1.0 - cw) / 2.0, 1.0 - cw, (1.0 - cw) / 2.0, -2.0 * cw, 1.0 - alpha};
        break;
    case 1:
        c = {(1.0 + cw) / 2.0, -(1.0 + cw), (1.0 + cw) / 2.0, -2.0 * cw, 1.0 - alpha};
        break;
    case 2:
        c = {1.0, -2.0 * cw, 1.0, -2.0 * cw, 1.0 - alpha};
        break;
    default:
        c = {alpha, 0.0, -alpha, -2.0 * cw, 1.0 - alpha};
        break;
    }
    for (double& v : c)
        v /= a0;
    return c;
}

inline bool allFinite(const std::vector<float>& v, float bound) {
    return std::all_of(v.begin(), v.end(),
                       [bound](float x) { return std::isfinite(x) && std::fabs(x) <= bound; });
}

// Deterministic white noise in -1..1.
inline std::vector<float> noise(std::size_t n, uint32_t seed) {
    std::vector<float> out(n);
    for (float& v : out) {
        seed = seed * 1664525u + 1013904223u;
        v = static_cast<float>(seed >> 8) / 8388608.0f - 1.0f;
    }
    return out;
}

// Frequency of the largest magnitude in a band, on a fine grid.
inline double peakIn(const std::vector<float>& h, double rate, double from, double to, double step) {
    double best = from;
    double bestMag = -1.0;
    for (double f = from; f <= to; f += step) {
        const double m = magnitudeAt(h, f, rate);
        if (m > bestMag) {
            bestMag = m;
            best = f;
        }
    }
    return best;
}

} // namespace filtertest
