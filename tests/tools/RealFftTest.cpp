#include "tools/RealFft.h"
#include "tools/SignalSketch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <stdexcept>
#include <vector>

TEST(RealFft, MatchesADirectTransform) {
    constexpr int n = 64;
    RealFft fft(n);
    std::vector<float> frame(n), out(n / 2 + 1);
    uint32_t x = 12345;
    for (float& v : frame) {
        x = x * 1664525u + 1013904223u;
        v = static_cast<float>(x >> 8) / 16777216.0f - 0.5f;
    }
    fft.magnitudes(frame.data(), out.data());
    for (int k = 0; k <= n / 2; ++k) {
        std::complex<double> sum;
        for (int i = 0; i < n; ++i)
            sum += static_cast<double>(frame[static_cast<std::size_t>(i)]) *
                   std::polar(1.0, -2.0 * std::numbers::pi * k * i / n);
        EXPECT_NEAR(out[static_cast<std::size_t>(k)], std::abs(sum), 1e-4) << k;
    }
}

TEST(RealFft, SineLandsInItsBin) {
    constexpr int n = 1024;
    RealFft fft(n);
    std::vector<float> frame(n), out(n / 2 + 1);
    for (int i = 0; i < n; ++i)
        frame[static_cast<std::size_t>(i)] =
            static_cast<float>(std::sin(2.0 * std::numbers::pi * 37 * i / n));
    fft.magnitudes(frame.data(), out.data());
    EXPECT_NEAR(out[37], n / 2.0, 1e-2);
    EXPECT_NEAR(out[36], 0.0, 1e-2);
    EXPECT_NEAR(out[0], 0.0, 1e-2);
    EXPECT_THROW(RealFft(1000), std::invalid_argument);
    EXPECT_THROW(RealFft(1), std::invalid_argument);
}

TEST(SignalSketch, ColumnsHoldExtremesAndSpectra) {
    constexpr int frames = 48000;
    constexpr int columns = 100;
    SignalSketch sketch(frames, columns);
    // Left: a full-scale sine centred on bin 100; right: a slow ramp from -1 to 1.
    std::vector<float> left(frames), right(frames);
    for (int i = 0; i < frames; ++i) {
        left[static_cast<std::size_t>(i)] =
            static_cast<float>(std::sin(2.0 * std::numbers::pi * 100.0 * i / SignalSketch::kFftSize));
        right[static_cast<std::size_t>(i)] = -1.0f + 2.0f * static_cast<float>(i) / frames;
    }
    for (int at = 0; at < frames; at += 777) {
        const int n = std::min(777, frames - at);
        sketch.add(&left[static_cast<std::size_t>(at)], &right[static_cast<std::size_t>(at)],
                   static_cast<std::size_t>(n));
    }
    sketch.finish();
    for (int c = 0; c < columns; ++c) {
        const auto& e = sketch.extremes(c);
        ASSERT_FALSE(e.empty);
        EXPECT_NEAR(e.maxLeft, 1.0f, 1e-3f);
        EXPECT_NEAR(e.minLeft, -1.0f, 1e-3f);
        EXPECT_FLOAT_EQ(e.minRight, right[static_cast<std::size_t>(c * frames / columns)]);
    }
    // Mid-signal columns: the mono sum holds the sine at half level (-6 dB) in bin 100, far above its
    // neighbours.
    const float* s = sketch.spectrum(50);
    EXPECT_NEAR(s[100], -6.02f, 0.1f);
    EXPECT_LT(s[110], -60.0f);
    // The last column's window runs past the end and is completed with silence: still computed.
    EXPECT_GT(sketch.spectrum(columns - 1)[100], -20.0f);
}

TEST(SignalSketch, ShorterThanTheColumnsLeavesGaps) {
    SignalSketch sketch(10, 40);
    std::vector<float> ones(10, 0.5f);
    sketch.add(ones.data(), ones.data(), ones.size());
    sketch.finish();
    int filled = 0;
    for (int c = 0; c < 40; ++c)
        filled += sketch.extremes(c).empty ? 0 : 1;
    EXPECT_EQ(filled, 10);
}
