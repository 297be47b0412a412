#pragma once

#include "tools/RealFft.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// What a plot needs of one stereo signal, gathered while it streams past: the extremes of each channel per
// pixel column, and one spectrum (dB, Hann window) per column of the mono sum. Memory stays bounded whatever
// the length.
class SignalSketch {
public:
    static constexpr int kFftSize = 2048;
    static constexpr float kFloorDb = -120.0f;

    struct Extremes {
        float minLeft = 0.0f, maxLeft = 0.0f, minRight = 0.0f, maxRight = 0.0f;
        bool empty = true;
    };

    // Main thread. `frames` is the full length the signal will have.
    SignalSketch(int64_t frames, int columns);

    // Main thread, in order: the next `count` samples of the signal.
    void add(const float* left, const float* right, std::size_t count);
    // Main thread, once after the last add: completes the columns whose analysis window reaches past the end.
    void finish();

    int columns() const { return columnCount; }
    int bins() const { return kFftSize / 2 + 1; }
    const Extremes& extremes(int column) const { return waveform[static_cast<std::size_t>(column)]; }
    // dB relative to a full-scale sine, at least kFloorDb.
    const float* spectrum(int column) const { return &spectra[static_cast<std::size_t>(column * bins())]; }

private:
    void push(float mono);
    // Sample count after which the window of `column` is complete.
    int64_t windowEnd(int column) const;

    int64_t total;
    int columnCount;
    int64_t received = 0;
    int nextSpectrum = 0;
    std::vector<Extremes> waveform;
    std::vector<float> spectra;
    std::vector<float> history; // the last kFftSize mono samples, a ring
    std::size_t historyAt = 0;
    std::vector<float> window;
    std::vector<float> frame;
    std::vector<float> magnitudes;
    RealFft fft{kFftSize};
};
