#include "effects/filter/CountRamp.h"

#include <gtest/gtest.h>

TEST(CountRampTest, GlidesInWholeBlocksAndLandsExactly) {
    CountRamp ramp;
    ramp.setBlocksPerMs(0.75f); // 48 kHz, 64-sample blocks
    ramp.jump(0.0f);
    // 100 ms at 0.75 blocks/ms: 75 blocks of 1/75 each.
    for (int b = 1; b < 75; ++b)
        ASSERT_NEAR(ramp.next(1.0f, 100.0f), b / 75.0f, 1e-5f) << b;
    EXPECT_EQ(ramp.next(1.0f, 100.0f), 1.0f);
    EXPECT_EQ(ramp.next(1.0f, 100.0f), 1.0f);
}

TEST(CountRampTest, ZeroTimeTakesOneBlockAndRetargetsFromWhereItIs) {
    CountRamp ramp;
    ramp.setBlocksPerMs(0.75f);
    EXPECT_EQ(ramp.next(0.5f, 0.0f), 0.5f);
    ramp.next(1.0f, 4.0f); // 3 blocks
    const float mid = ramp.getCurrent();
    EXPECT_NEAR(mid, 0.5f + 0.5f / 3.0f, 1e-6f);
    EXPECT_NEAR(ramp.next(0.0f, 4.0f), mid - mid / 3.0f, 1e-6f);
}
