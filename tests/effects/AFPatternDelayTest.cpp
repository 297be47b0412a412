#include "DelaySlotDriver.h"

#include "effects/delay/AFPatternDelay.h"

#include "EffectTimingFixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

struct AFPatternDelayFixture : EffectTimingFixture<AFPatternDelay, 20> {
    // Impulse response of one side, an impulse on the left only.
    static void impulse(AFPatternDelay& fx, std::array<float, 4> values, std::vector<float>& left,
                        std::vector<float>& right) {
        std::fill(left.begin(), left.end(), 0.0f);
        std::fill(right.begin(), right.end(), 0.0f);
        left[0] = 1.0f;
        DelaySlotDriver driver(fx);
        driver.values = values;
        driver.run(left, right);
    }

    double patternValue(int index) const {
        return static_cast<double>(index) / (AFPatternDelay::patternCount() - 1);
    }
};

TEST_F(AFPatternDelayFixture, EchoesFallOnTheStepGridToTheSampleAtEveryTempoAndRate) {
    // Pattern 9 is ". . x . . x . x": echoes on steps 3, 6 and 8, then the pass repeats.
    const auto pattern = static_cast<float>(patternValue(8));
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (double bpm : {45.0, 133.0, 333.3}) {
            setTiming(rate, bpm);
            for (int mode = 0; mode < 3; ++mode) {
                const float time = mode == 2 ? 0.3f : 0.6f;
                const std::array<float, 4> values{time, pattern, 1.0f, 0.8f};
                auto fx = make(values, {mode, 0, 0, 0});
                double step = 0.0;
                if (mode == 0) step = system.samplesPerBeat * kSyncBeats[4];
                if (mode == 1) step = std::trunc(static_cast<double>(system.samplesPerBeat) * 0.1875);
                if (mode == 2) step = (static_cast<double>(system.samplesPerBeat) - 88.0) * time + 88.0;
                ASSERT_EQ(fx->getStep(), step) << rate << " " << bpm << " " << mode;
                const auto pass = static_cast<std::size_t>(8.0 * step);
                std::vector<std::size_t> want;
                for (std::size_t m = 0; m < 2; ++m)
                    for (int s : {3, 6, 8})
                        want.push_back(m * pass + static_cast<std::size_t>(s * step));
                std::vector<float> left(2 * pass + 10), right(left.size());
                impulse(*fx, values, left, right);
                std::vector<std::size_t> got;
                for (std::size_t n = 0; n < left.size(); ++n)
                    if (left[n] != 0.0f) got.push_back(n);
                ASSERT_EQ(got, want) << rate << " " << bpm << " " << mode;
                // "Off": the taps of a pass are level, the next pass lower by the decay of eight steps.
                const float ratio = 0.2f + 0.75f * 0.8f;
                EXPECT_EQ(left[want[0]], 1.0f);
                EXPECT_EQ(left[want[2]], 1.0f);
                EXPECT_NEAR(left[want[3]], std::pow(ratio, 8.0f), 1e-6f);
            }
        }
    }
}

TEST_F(AFPatternDelayFixture, FadeDecaysEachStepAndSecondEchoesCrossToTheOtherSide) {
    setTiming(48000.0f, 120.0);
    const float ratio = 0.2f + 0.75f * 0.5f;
    // Plain echo at a 1\16 step: every echo one step after the last, each lower by the ratio.
    std::array<float, 4> values{0.5f, 0.0f, 1.0f, 0.5f};
    auto fx = make(values, {0, 1, 0, 1});
    std::vector<float> left(24001), right(24001);
    impulse(*fx, values, left, right);
    for (int s = 1; s <= 4; ++s) {
        const auto n = static_cast<std::size_t>(s * 6000);
        const float want = std::pow(ratio, static_cast<float>(s - 1));
        EXPECT_NEAR(s % 2 == 0 ? right[n] : left[n], want, 1e-6f) << s;
        EXPECT_EQ(s % 2 == 0 ? left[n] : right[n], 0.0f) << s;
    }

    // Pattern 4, ". . x", at 1\2 steps: six steps do not fit the ring, so the loop itself crosses and the
    // count of echoes still alternates.
    values = {0.0f, static_cast<float>(patternValue(3)), 1.0f, 0.9f};
    fx = make(values, {0, 0, 0, 1});
    const std::size_t pass = 3 * 48000;
    left.assign(3 * pass + 1, 0.0f);
    right.assign(left.size(), 0.0f);
    impulse(*fx, values, left, right);
    EXPECT_NE(left[pass], 0.0f);
    EXPECT_EQ(right[pass], 0.0f);
    EXPECT_NE(right[2 * pass], 0.0f);
    EXPECT_EQ(left[2 * pass], 0.0f);
    EXPECT_NE(left[3 * pass], 0.0f);
}

TEST_F(AFPatternDelayFixture, SettingChangesCrossfadeAndTempoChangesStayInsideTheRing) {
    std::array<float, 4> values{0.3f, 0.27f, 1.0f, 0.8f};
    auto fx = make(values, {0, 0, 0, 0});
    DelaySlotDriver driver(*fx);
    driver.values = values;
    std::vector<float> left(48000), right(48000);
    for (std::size_t n = 0; n < left.size(); ++n) {
        left[n] = 0.5f * std::sin(0.01f * static_cast<float>(n));
        right[n] = left[n];
    }
    driver.run(left.data(), right.data(), 24000);
    // A new step length mid-run: the output moves on without a jump larger than the signal's own.
    driver.values[0] = 0.6f;
    driver.run(left.data() + 24000, right.data() + 24000, 24000);
    float steepest = 0.0f;
    for (std::size_t n = 24001; n < 26000; ++n)
        steepest = std::max(steepest, std::fabs(left[n] - left[n - 1]));
    EXPECT_LT(steepest, 0.05f);

    for (double bpm : {499.0, 45.0, 120.0}) {
        setTiming(48000.0f, bpm);
        driver.run(left, right);
        for (float v : left)
            ASSERT_TRUE(std::isfinite(v) && std::fabs(v) <= 4.0f);
    }
}

TEST_F(AFPatternDelayFixture, DisplaysFollowTheSyncWordsAndShowThePattern) {
    auto fx = make({0.3f, 0.27f, 1.0f, 0.8f}, {0, 0, 0, 0});
    char text[kEffectTextSize];
    fx->formatParameter(0, 0.3f, text);
    EXPECT_STREQ(text, "1\\8");
    fx->formatParameter(1, 0.27f, text);
    EXPECT_STREQ(text, "5 x.o");
    fx->formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "16 x.xx.xxx");
    fx->formatParameter(2, 1.0f, text);
    EXPECT_STREQ(text, "100.00");
    fx->formatParameter(3, 0.8f, text);
    EXPECT_STREQ(text, "80.00");
    fx->setOption(0, 1);
    fx->formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "1\\2P");
    fx->setOption(0, 2);
    fx->formatParameter(0, 1.0f, text);
    EXPECT_STREQ(text, "500 ms");
    fx->setOption(0, 99);
    EXPECT_EQ(fx->getOption(0), 2);
}

} // namespace
