#include "tools/RealFft.h"

#include <cmath>
#include <numbers>
#include <stdexcept>

RealFft::RealFft(int size)
    : n(size), reversed(static_cast<std::size_t>(size)), work(static_cast<std::size_t>(size)) {
    if (size < 2 || (size & (size - 1)) != 0)
        throw std::invalid_argument("transform size must be a power of two");
    int bits = 0;
    while ((1 << bits) < n)
        ++bits;
    for (int i = 0; i < n; ++i) {
        int r = 0;
        for (int b = 0; b < bits; ++b)
            r |= ((i >> b) & 1) << (bits - 1 - b);
        reversed[static_cast<std::size_t>(i)] = r;
    }
    twiddles.resize(static_cast<std::size_t>(n / 2));
    for (int k = 0; k < n / 2; ++k)
        twiddles[static_cast<std::size_t>(k)] = std::polar(1.0, -2.0 * std::numbers::pi * k / n);
}

void RealFft::magnitudes(const float* frame, float* out) {
    for (int i = 0; i < n; ++i)
        work[static_cast<std::size_t>(reversed[static_cast<std::size_t>(i)])] = frame[i];
    for (int span = 2; span <= n; span <<= 1) {
        const int half = span / 2;
        const int stride = n / span;
        for (int start = 0; start < n; start += span) {
            for (int k = 0; k < half; ++k) {
                auto& a = work[static_cast<std::size_t>(start + k)];
                auto& b = work[static_cast<std::size_t>(start + k + half)];
                const auto t = twiddles[static_cast<std::size_t>(k * stride)] * b;
                b = a - t;
                a += t;
            }
        }
    }
    for (int k = 0; k <= n / 2; ++k)
        out[k] = static_cast<float>(std::abs(work[static_cast<std::size_t>(k)]));
}
