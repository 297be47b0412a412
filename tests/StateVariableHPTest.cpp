#include "effects/delay/StateVariableHP.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

constexpr double kOffset = 1.000000013351432e-10;

std::vector<double> testSignal(int count) {
    std::vector<double> x(static_cast<std::size_t>(count));
    for (int n = 0; n < count; ++n)
        x[static_cast<std::size_t>(n)] = std::sin(n * 0.37) * 0.8 + (n % 17 == 0 ? 0.5 : 0.0);
    return x;
}

TEST(StateVariableHPTest, FollowsItsThreeEquationsSampleBySample) {
    StateVariableHP filter(0.1, 1.0 - 0.11, StateVariableHP::Output::High);
    double low = 0.0;
    double band = 0.0;
    for (double x : testSignal(500)) {
        const double high = x - 0.89 * band - low + kOffset;
        band = high * 0.1 + band + kOffset;
        low = band * 0.1 - kOffset + low;
        ASSERT_EQ(filter.process(x, kOffset), high);
    }
    EXPECT_EQ(filter.band, band);
    EXPECT_EQ(filter.low, low);
    filter.reset();
    EXPECT_EQ(filter.low + filter.band + filter.high, 0.0);
    EXPECT_EQ(filter.f, 0.1);
}

TEST(StateVariableHPTest, BlockFormMatchesTheSampleFormForEveryOutput) {
    const auto x = testSignal(3000);
    for (auto output :
         {StateVariableHP::Output::High, StateVariableHP::Output::Band, StateVariableHP::Output::Low}) {
        for (double f : {0.1, 0.0081, 0.6}) {
            StateVariableHP single(f, 0.89, output);
            StateVariableHP block(f, 0.89, output);
            StateVariableHP pairA(f, 0.89, output);
            StateVariableHP pairB(f, 0.89, output);
            std::vector<double> y(x.size());
            std::vector<double> ya(x.size());
            std::vector<double> yb(x.size());
            // Uneven runs, and one in place, as a caller would hand them over.
            block.processBlock(x.data(), y.data(), 37, kOffset);
            block.processBlock(x.data() + 37, y.data() + 37, static_cast<int>(x.size()) - 37, kOffset);
            StateVariableHP::processBlockPair(pairA, x.data(), ya.data(), pairB, x.data(), yb.data(),
                                              static_cast<int>(x.size()), kOffset);
            for (std::size_t n = 0; n < x.size(); ++n) {
                const double want = single.process(x[n], kOffset);
                const double tolerance = 1e-12 * (1.0 + std::fabs(want));
                ASSERT_NEAR(y[n], want, tolerance) << n << " f " << f;
                ASSERT_EQ(ya[n], y[n]);
                ASSERT_EQ(yb[n], y[n]);
            }
            EXPECT_NEAR(block.low, single.low, 1e-12 * (1.0 + std::fabs(single.low)));
            EXPECT_NEAR(block.band, single.band, 1e-12 * (1.0 + std::fabs(single.band)));
            EXPECT_NEAR(block.high, single.high, 1e-12 * (1.0 + std::fabs(single.high)));
        }
    }
}

} // namespace
