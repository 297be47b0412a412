#include "effects/filter/LaneFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// The Chamberlin recurrence with its anti-denormal offsets, in double, one lane.
struct ReferenceLane {
    double low = 0, high = 0, band = 0;
    double step(double in, double f, double damp) {
        const double e = 1e-10;
        const double t = in - damp * band;
        high = t - (low + e);
        band = band + (high * f + e);
        low = low + (band * f - e);
        return band;
    }
};

} // namespace

TEST(LaneFilterTest, EveryLaneFollowsItsOwnRecurrence) {
    LaneFilter filter;
    float f[32];
    for (int i = 0; i < 32; ++i)
        f[i] = 0.01f + 0.019f * static_cast<float>(i);
    filter.setF(f);
    filter.setDamp(0.3f);
    std::vector<ReferenceLane> ref(32);
    float in[32];
    for (int n = 0; n < 2000; ++n) {
        for (int i = 0; i < 32; ++i)
            in[i] = std::sin(0.001f * static_cast<float>(n * (i + 1))) + (n == 0 ? 1.0f : 0.0f);
        filter.step(in);
        for (int i = 0; i < 32; ++i) {
            const double expected = ref[static_cast<std::size_t>(i)].step(in[i], f[i], 0.3f);
            ASSERT_NEAR(filter.output()[i], expected, 1e-4 * (1.0 + std::fabs(expected)))
                << "lane " << i << " @" << n;
        }
    }
}

TEST(LaneFilterTest, BandPassPeaksAtItsCentreWithGainOfOneOverDamp) {
    // Centre of a Chamberlin band-pass: f = 2 sin(pi fc / fs); its peak gain is about 1 / damp.
    LaneFilter filter;
    const double f = 0.1;
    const double damp = 0.25;
    const double centre = std::asin(f / 2.0) / M_PI; // cycles per sample
    float fs[32];
    for (float& v : fs)
        v = static_cast<float>(f);
    filter.setF(fs);
    filter.setDamp(static_cast<float>(damp));
    double peak = 0.0;
    for (int n = 0; n < 20000; ++n) {
        filter.step(static_cast<float>(std::sin(2.0 * M_PI * centre * n)));
        if (n > 10000) peak = std::max(peak, static_cast<double>(std::fabs(filter.output()[7])));
    }
    EXPECT_NEAR(peak, 1.0 / damp, 0.1 / damp);
}

TEST(LaneFilterTest, ClearSilencesAndFixedOrderSumsMatch) {
    LaneFilter filter;
    float ones[32];
    for (float& v : ones)
        v = 1.0f;
    filter.setF(ones);
    filter.setDamp(0.5f);
    filter.step(ones);
    filter.clear();
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(filter.output()[i], 0.0f);
    float a[32];
    float b[32];
    double dot = 0.0;
    double sum = 0.0;
    for (int i = 0; i < 32; ++i) {
        a[i] = 0.5f + static_cast<float>(i);
        b[i] = 0.25f * static_cast<float>(i % 5);
        dot += static_cast<double>(a[i]) * b[i];
        sum += a[i];
    }
    EXPECT_FLOAT_EQ(LaneFilter::dot(a, b), static_cast<float>(dot));
    EXPECT_FLOAT_EQ(LaneFilter::sum(a), static_cast<float>(sum));
}
