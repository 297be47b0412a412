#include "tools/SignalSketch.h"

#include <algorithm>
#include <cmath>
#include <numbers>

SignalSketch::SignalSketch(int64_t frames, int columns)
    : total(std::max<int64_t>(frames, 1)), columnCount(columns), waveform(static_cast<std::size_t>(columns)),
      spectra(static_cast<std::size_t>(columns) * (kFftSize / 2 + 1), kFloorDb), history(kFftSize, 0.0f),
      window(kFftSize), frame(kFftSize), magnitudes(kFftSize / 2 + 1) {
    for (int i = 0; i < kFftSize; ++i)
        window[static_cast<std::size_t>(i)] =
            static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / kFftSize));
}

int64_t SignalSketch::windowEnd(int column) const {
    const int64_t centre = (2 * static_cast<int64_t>(column) + 1) * total / (2 * columnCount);
    return centre + kFftSize / 2;
}

void SignalSketch::add(const float* left, const float* right, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (received < total) {
            auto& e = waveform[static_cast<std::size_t>(received * columnCount / total)];
            if (e.empty) {
                e = {left[i], left[i], right[i], right[i], false};
            } else {
                e.minLeft = std::min(e.minLeft, left[i]);
                e.maxLeft = std::max(e.maxLeft, left[i]);
                e.minRight = std::min(e.minRight, right[i]);
                e.maxRight = std::max(e.maxRight, right[i]);
            }
        }
        push(0.5f * (left[i] + right[i]));
    }
}

void SignalSketch::finish() {
    while (nextSpectrum < columnCount)
        push(0.0f);
}

void SignalSketch::push(float mono) {
    history[historyAt] = mono;
    historyAt = (historyAt + 1) % history.size();
    ++received;
    while (nextSpectrum < columnCount && windowEnd(nextSpectrum) <= received) {
        for (std::size_t i = 0; i < history.size(); ++i)
            frame[i] = history[(historyAt + i) % history.size()] * window[i];
        fft.magnitudes(frame.data(), magnitudes.data());
        // A full-scale sine through the Hann window peaks at kFftSize / 4.
        constexpr float kReference = kFftSize / 4.0f;
        float* out = &spectra[static_cast<std::size_t>(nextSpectrum * bins())];
        for (int k = 0; k < bins(); ++k)
            out[k] = std::max(
                kFloorDb, 20.0f * std::log10(magnitudes[static_cast<std::size_t>(k)] / kReference + 1e-12f));
        ++nextSpectrum;
    }
}
