#include "DelaySlotDriver.h"

#include "effects/delay/AFTest.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct AFTestFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
    AFTest fx{28, &system, 0};

    void SetUp() override { system.setControlInterval(64); }
};

TEST_F(AFTestFixture, PassesAudioUnchangedThroughTicksAndTempoChanges) {
    DelaySlotDriver driver(fx);
    driver.values = {0.3f, 0.9f, 0.1f, 1.0f};
    fx.activate();
    std::vector<float> left(700);
    std::vector<float> right(700);
    for (std::size_t n = 0; n < left.size(); ++n) {
        left[n] = static_cast<float>(n) * 0.001f - 0.3f;
        right[n] = -left[n];
    }
    const auto inL = left;
    const auto inR = right;
    driver.run(left.data(), right.data(), 300);
    system.setTempo(173.0);
    listeners.notifyAll();
    fx.bpmChanged();
    driver.run(left.data() + 300, right.data() + 300, 400);
    fx.deactivate();
    EXPECT_EQ(left, inL);
    EXPECT_EQ(right, inR);
}

TEST_F(AFTestFixture, NamesDefaultsAndTheDefaultDisplay) {
    EXPECT_STREQ(fx.getName(), "test");
    EXPECT_FALSE(fx.hasFlag());
    const char* names[] = {"Delay", "Pattern", "Amount", "Decay"};
    const float defaults[] = {0.75f, 0.5f, 0.5f, 0.0f};
    char text[kEffectTextSize];
    for (int i = 0; i < 4; ++i) {
        fx.getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fx.getParameterValue(i), defaults[i]);
    }
    fx.formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "0.500000");
}

TEST_F(AFTestFixture, StoresTimeModeAndTwoFlagsClampedToTheirMenus) {
    AFWordList words;
    for (int i = 0; i < 5; ++i)
        fx.getOptionList(i, words);
    EXPECT_EQ(words,
              (AFWordList{"Sync", "SyncT", "Free", "Off", "Fade", "Off", "NullDelay", "Off", "2nd", "3rd"}));
    fx.setOption(0, 2);
    fx.setOption(1, 1);
    fx.setOption(2, 1);
    EXPECT_EQ(fx.getOption(0), 2);
    EXPECT_EQ(fx.getOption(1), 1);
    EXPECT_EQ(fx.getOption(2), 1);
    fx.setOption(0, 1000);
    fx.setOption(1, -1000);
    fx.setOption(2, 7);
    fx.setOption(3, 2);
    fx.setOption(-1, 2);
    EXPECT_EQ(fx.getOption(0), 2);
    EXPECT_EQ(fx.getOption(1), 0);
    EXPECT_EQ(fx.getOption(2), 1);
    EXPECT_EQ(fx.getOption(3), 0);
    EXPECT_EQ(fx.getOption(9), 0);
}

} // namespace
