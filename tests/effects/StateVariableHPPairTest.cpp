#include "effects/delay/StateVariableHPPair.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(StateVariableHPPairTest, SingleFilterFollowsItsThreeEquationsSampleBySample) {
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

TEST(StateVariableHPPairTest, MatchesTheSampleFormForEveryOutput) {
    using Output = StateVariableHP::Output;
    const auto x = testSignal(3000);
    const Output outputs[] = {Output::High, Output::Band, Output::Low};
    for (int i = 0; i < 3; ++i) {
        const Output firstOutput = outputs[i];
        const Output secondOutput = outputs[(i + 1) % 3];
        StateVariableHP singleA(0.1, 0.89, firstOutput);
        StateVariableHP singleB(0.0081, 0.5, secondOutput);
        StateVariableHP pairA(0.1, 0.89, firstOutput);
        StateVariableHP pairB(0.0081, 0.5, secondOutput);
        // Uneven runs, each handing its states back before the next starts.
        for (std::size_t from = 0; from < x.size(); from += 37) {
            StateVariableHPPair run(pairA, pairB, kOffset);
            for (std::size_t n = from; n < std::min(x.size(), from + 37); ++n) {
                const double wantA = singleA.process(x[n], kOffset);
                const double wantB = singleB.process(-x[n], kOffset);
                const auto y = run.step(StateVariableHPPair::Pair{x[n], -x[n]});
                ASSERT_NEAR(y[0], wantA, 1e-12 * (1.0 + std::fabs(wantA))) << n << " output " << i;
                ASSERT_NEAR(y[1], wantB, 1e-12 * (1.0 + std::fabs(wantB))) << n << " output " << i;
            }
            run.finish();
        }
        for (const auto& [got, want] : {std::pair{&pairA, &singleA}, std::pair{&pairB, &singleB}}) {
            EXPECT_NEAR(got->low, want->low, 1e-12 * (1.0 + std::fabs(want->low)));
            EXPECT_NEAR(got->band, want->band, 1e-12 * (1.0 + std::fabs(want->band)));
            EXPECT_NEAR(got->high, want->high, 1e-12 * (1.0 + std::fabs(want->high)));
        }
    }
}

} // namespace
