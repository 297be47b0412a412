#include "tools/DemoLoop.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

struct Rendered {
    std::vector<float> left, right;
};

Rendered take(const DemoLoop& loop, int64_t from, std::size_t frames) {
    Rendered r{std::vector<float>(frames), std::vector<float>(frames)};
    loop.render(from, r.left.data(), r.right.data(), frames);
    return r;
}

double rmsDb(const std::vector<float>& s, std::size_t from, std::size_t count) {
    double sum = 0.0;
    for (std::size_t i = from; i < from + count; ++i)
        sum += static_cast<double>(s[i]) * s[i];
    return 10.0 * std::log10(sum / static_cast<double>(count) + 1e-30);
}

} // namespace

TEST(DemoLoop, TwoBarsAtTheTempo) {
    EXPECT_EQ(DemoLoop(44100.0, 120.0).length(), 176400u);
    EXPECT_EQ(DemoLoop(48000.0, 97.0).length(), 237526u); // 8 * 60 / 97 * 48000 = 237525.77
    EXPECT_EQ(DemoLoop(96000.0, 174.0).length(), 264828u);
}

TEST(DemoLoop, SameSamplesEveryTime) {
    const DemoLoop a(48000.0, 128.0), b(48000.0, 128.0);
    ASSERT_EQ(a.length(), b.length());
    const auto ra = take(a, 0, a.length());
    const auto rb = take(b, 0, b.length());
    EXPECT_EQ(ra.left, rb.left);
    EXPECT_EQ(ra.right, rb.right);
    const auto other = take(DemoLoop(48000.0, 140.0), 0, 1000);
    EXPECT_NE(std::vector<float>(ra.left.begin(), ra.left.begin() + 2000), other.left); // the tempo matters
}

TEST(DemoLoop, RepeatsSeamlessly) {
    const DemoLoop loop(44100.0, 120.0);
    const auto n = static_cast<int64_t>(loop.length());
    const auto whole = take(loop, 0, loop.length());
    const auto across = take(loop, n - 10, 30);
    for (int i = 0; i < 30; ++i) {
        const auto at = static_cast<std::size_t>((n - 10 + i) % n);
        EXPECT_EQ(across.left[static_cast<std::size_t>(i)], whole.left[at]) << i;
        EXPECT_EQ(across.right[static_cast<std::size_t>(i)], whole.right[at]) << i;
    }
    EXPECT_EQ(take(loop, 5 * n + 1234, 64).left, take(loop, 1234, 64).left);
}

TEST(DemoLoop, PeakIsMinusSixDecibelsAndEveryBeatSounds) {
    const DemoLoop loop(48000.0, 120.0);
    EXPECT_NEAR(loop.peak(), DemoLoop::kPeak, 1e-6f);
    const auto r = take(loop, 0, loop.length());
    const std::size_t beat = loop.length() / DemoLoop::kBeats;
    for (int b = 0; b < DemoLoop::kBeats; ++b) {
        const double db = rmsDb(r.left, static_cast<std::size_t>(b) * beat, beat);
        EXPECT_GT(db, -30.0) << b;
        EXPECT_LT(db, -8.0) << b;
    }
    // The hats sit apart from the kick and bass: the two channels differ.
    EXPECT_NE(r.left, r.right);
}
