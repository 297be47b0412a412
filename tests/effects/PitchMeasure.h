#pragma once

// Frequency and purity of a steady tone in a stretch of a signal, by a windowed FFT with the peak
// interpolated between bins.

#include "tools/RealFft.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace pitchmeasure {

constexpr int kSize = 16384;

struct Tone {
    double hz = 0.0;
    // Everything but the tone (its main lobe), in dB below it.
    double spuriousDb = 0.0;
};

inline Tone measure(const std::vector<float>& signal, int start, double rate) {
    // Four-term Blackman-Harris: side lobes under -92 dB, so leakage never counts as spurious energy.
    std::vector<float> frame(kSize);
    for (int i = 0; i < kSize; ++i) {
        const double x = 2.0 * 3.141592653589793 * i / kSize;
        const double w =
            0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x);
        frame[static_cast<std::size_t>(i)] =
            static_cast<float>(w * signal[static_cast<std::size_t>(start + i)]);
    }
    RealFft fft(kSize);
    std::vector<float> mag(static_cast<std::size_t>(fft.bins()));
    fft.magnitudes(frame.data(), mag.data());
    const auto peak = static_cast<int>(std::max_element(mag.begin() + 2, mag.end() - 2) - mag.begin());
    const auto at = [&](int k) {
        return std::log(std::max(1e-30, static_cast<double>(mag[static_cast<std::size_t>(k)])));
    };
    const double a = at(peak - 1), b = at(peak), c = at(peak + 1);
    const double offset = 0.5 * (a - c) / (a - 2.0 * b + c);
    Tone tone;
    tone.hz = (peak + offset) * rate / kSize;
    double inTone = 0.0, rest = 0.0;
    for (int k = 1; k < fft.bins(); ++k) {
        const double e =
            static_cast<double>(mag[static_cast<std::size_t>(k)]) * mag[static_cast<std::size_t>(k)];
        (std::abs(k - peak) <= 5 ? inTone : rest) += e;
    }
    tone.spuriousDb = 10.0 * std::log10(inTone / std::max(rest, 1e-30));
    return tone;
}

inline double cents(double hz, double reference) {
    return 1200.0 * std::log2(hz / reference);
}

inline std::vector<float> sine(int n, double hz, double rate, float amplitude) {
    std::vector<float> s(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        s[static_cast<std::size_t>(i)] =
            amplitude * static_cast<float>(std::sin(2.0 * 3.141592653589793 * hz * i / rate));
    return s;
}

} // namespace pitchmeasure
