#include "effects/filter/LaneRamp.h"

#include <gtest/gtest.h>

TEST(LaneRampTest, CoversTheDistanceInOneBlockAndSnapsTinySteps) {
    LaneRamp ramp;
    ramp.fill(0.0f);
    for (int i = 0; i < 32; ++i)
        ramp.target[i] = static_cast<float>(i);
    ramp.target[3] = 1e-9f; // moves less than 1e-10 a sample over 64 samples
    ramp.controlTick(1.0f / 64.0f);
    EXPECT_EQ(ramp.current[3], 1e-9f);
    EXPECT_EQ(ramp.delta[3], 0.0f);
    for (int s = 0; s < 64; ++s)
        ramp.advance();
    for (int i = 0; i < 32; ++i) {
        if (i != 3) {
            EXPECT_NEAR(ramp.current[i], static_cast<float>(i), 1e-5f) << i;
        }
    }
    ramp.target[5] = -2.0f;
    ramp.snap();
    EXPECT_EQ(ramp.current[5], -2.0f);
    EXPECT_EQ(ramp.delta[5], 0.0f);
}
