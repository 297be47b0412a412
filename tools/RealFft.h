#pragma once

#include <complex>
#include <vector>

// A radix-2 Fourier transform of real frames, enough for drawing spectrograms.
class RealFft {
public:
    // Main thread. `size` must be a power of two, at least 2.
    explicit RealFft(int size);

    // Any thread, one call at a time: magnitudes of bins 0..size/2 of `frame` (size samples), unscaled, so a
    // full-scale sine of bin k gives size/2 at k.
    void magnitudes(const float* frame, float* out);

    int size() const { return n; }
    int bins() const { return n / 2 + 1; }

private:
    int n;
    std::vector<int> reversed;
    std::vector<std::complex<double>> twiddles;
    std::vector<std::complex<double>> work;
};
