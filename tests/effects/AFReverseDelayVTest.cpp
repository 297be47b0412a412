#include "DelaySlotDriver.h"

#include "effects/delay/AFReverseDelayV.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

// Note lengths in beats, longest first, as the knob runs from 0 to 1.
const std::vector<double> kSyncBeats = {2, 1, 0.5, 0.25, 0.125, 0.0625, 0.03125};
const std::vector<double> kDottedBeats = {3,        2,       1.33333332,    1.5,     1,      0.66666664,
                                          0.75,     0.5,     0.33333333332, 0.375,   0.25,   0.16666666664,
                                          0.1875,   0.125,   0.083333332,   0.09375, 0.0625, 0.04166664,
                                          0.046875, 0.03125, 0.02083333332};

uint32_t expectedLength(int mode, float v, const AFSystemInfo& system) {
    if (mode == 2) {
        const float floor = system.rateRatio * 88.0f;
        return static_cast<uint32_t>((system.samplesPerBeat - floor) * v + floor);
    }
    const auto& beats = mode == 0 ? kSyncBeats : kDottedBeats;
    const auto index = static_cast<std::size_t>(static_cast<double>(beats.size() - 1) * v + 0.5);
    return static_cast<uint32_t>(static_cast<double>(system.samplesPerBeat) * beats[index]);
}

int32_t expectedFade(int32_t stretch, float fade) {
    return static_cast<int32_t>(static_cast<float>(stretch / 2 - 128) * fade + 64.0f);
}

// Gain of the k-th sample of a stretch of length L with the given fade.
double fadeGain(int32_t k, int32_t length, int32_t fade) {
    if (fade <= 0) return 1.0;
    if (k < fade) return static_cast<double>(k) / fade;
    if (length - k < fade) return static_cast<double>(length - k) / fade;
    return 1.0;
}

struct AFReverseDelayVFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override {
        system.setControlInterval(64);
        setTiming(48000.0f, 120.0);
    }

    void setTiming(float rate, double bpm) {
        system.setSampleRate(rate);
        system.setTempo(bpm);
        listeners.notifyAll();
    }

    std::unique_ptr<AFReverseDelayV> make(int mode, float time, float feedback, float fade) {
        auto fx = std::make_unique<AFReverseDelayV>(21, &system, 0);
        fx->setOption(0, mode);
        fx->setOption(1, mode);
        const float values[] = {time, time, feedback, fade};
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, values[i]);
        fx->activate();
        return fx;
    }

    static DelaySlotDriver driverFor(AFReverseDelayV& fx, float time, float feedback, float fade) {
        DelaySlotDriver driver(fx);
        driver.values = {time, time, feedback, fade};
        return driver;
    }
};

TEST_F(AFReverseDelayVFixture, StretchAndFadeLengthsToTheSampleForEveryModeTempoAndRate) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f, 196000.0f}) {
        for (double bpm : {45.0, 120.0, 333.3}) {
            setTiming(rate, bpm);
            for (int mode = 0; mode < 3; ++mode) {
                for (float v : {0.0f, 0.37f, 1.0f}) {
                    const float fade = mode == 1 ? 0.9f : 0.25f;
                    auto fx = make(mode, v, 0.0f, fade);
                    const uint32_t length = expectedLength(mode, v, system);
                    ASSERT_EQ(fx->getLengthLeft(), length) << rate << " " << bpm << " " << mode << " " << v;
                    ASSERT_EQ(fx->getCapacity(), static_cast<uint32_t>(system.samplesPerBeat * 6.0f));

                    // Constant input: the first stretch plays the empty ring, the second shows the fade
                    // shape.
                    const auto L = static_cast<int32_t>(length);
                    if (L > 100000) continue; // the length alone is enough for the longest stretches
                    std::vector<float> left(static_cast<std::size_t>(2 * L + 2), 0.5f);
                    std::vector<float> right = left;
                    auto driver = driverFor(*fx, v, 0.0f, fade);
                    driver.run(left, right);
                    const int32_t fadeLength = expectedFade(L, fade);
                    for (int32_t n = 0; n <= L; ++n)
                        ASSERT_EQ(left[static_cast<std::size_t>(n)], 0.0f) << n;
                    for (int32_t k = 1; k <= L; ++k) {
                        const double want = 0.5 * fadeGain(k, L, fadeLength);
                        ASSERT_NEAR(left[static_cast<std::size_t>(L + 1 + k)], want, 1e-6)
                            << rate << " " << bpm << " " << mode << " " << v << " k " << k;
                        ASSERT_EQ(right[static_cast<std::size_t>(L + 1 + k)],
                                  left[static_cast<std::size_t>(L + 1 + k)]);
                    }
                }
            }
        }
    }
}

TEST_F(AFReverseDelayVFixture, FadeIsSixtyFourAtTwoHundredFiftySixWhateverFadeSays) {
    setTiming(48000.0f, 351.5625);
    std::vector<std::vector<float>> outputs;
    for (float fade : {0.0f, 0.5f, 1.0f}) {
        auto fx = make(0, 1.0f, 0.0f, fade);
        ASSERT_EQ(fx->getLengthLeft(), 256u);
        std::vector<float> left(600, 0.5f);
        std::vector<float> right(600, 0.5f);
        auto driver = driverFor(*fx, 1.0f, 0.0f, fade);
        driver.run(left, right);
        EXPECT_NEAR(left[257 + 32], 0.25f, 1e-7f);
        EXPECT_EQ(left[257 + 64], 0.5f);
        outputs.push_back(left);
    }
    EXPECT_EQ(outputs[0], outputs[1]);
    EXPECT_EQ(outputs[0], outputs[2]);
    EXPECT_EQ(expectedFade(100, 0.5f), 25);
    EXPECT_LT(expectedFade(100, 1.0f), 0);
}

TEST_F(AFReverseDelayVFixture, SecondStretchPlaysTheFirstBackwards) {
    setTiming(48000.0f, 480.0);
    auto fx = make(0, 1.0f, 0.0f, 0.0f);
    const auto L = static_cast<int32_t>(fx->getLengthLeft());
    ASSERT_EQ(L, 187);
    std::vector<float> left(static_cast<std::size_t>(3 * L));
    for (std::size_t m = 0; m < left.size(); ++m)
        left[m] = static_cast<float>(m + 1) * 1e-4f;
    const auto input = left;
    std::vector<float> right(left.size(), 0.0f);
    auto driver = driverFor(*fx, 1.0f, 0.0f, 0.0f);
    driver.run(left, right);
    const int32_t fade = expectedFade(L, 0.0f);
    for (int32_t k = 1; k <= L; ++k) {
        const double want = fadeGain(k, L, fade) * input[static_cast<std::size_t>(L + 1 - k)];
        EXPECT_NEAR(left[static_cast<std::size_t>(L + 1 + k)], want, 1e-7) << k;
    }
}

TEST_F(AFReverseDelayVFixture, FeedbackIsInvertedAndHardLimited) {
    setTiming(48000.0f, 480.0);
    auto fx = make(0, 1.0f, 1.0f, 0.0f);
    const auto L = static_cast<int32_t>(fx->getLengthLeft());
    std::vector<float> left(static_cast<std::size_t>(3 * L + 3), -0.9f);
    std::fill(left.begin(), left.begin() + L + 1, 0.9f);
    std::vector<float> right = left;
    auto driver = driverFor(*fx, 1.0f, 1.0f, 0.0f);
    driver.run(left, right);
    // Second stretch replays +0.9; the ring takes -0.9 - 0.9, limited to -1, which the third replays.
    EXPECT_NEAR(left[static_cast<std::size_t>(L + 1 + L / 2)], 0.9f, 1e-6f);
    EXPECT_EQ(left[static_cast<std::size_t>(2 * L + 2 + L / 2)], -1.0f);
}

TEST_F(AFReverseDelayVFixture, TempoChangeWhileRunningRestartsAndGrowsWithSilence) {
    setTiming(48000.0f, 120.0);
    auto fx = make(0, 0.0f, 0.0f, 0.25f);
    auto driver = driverFor(*fx, 0.0f, 0.0f, 0.25f);
    std::vector<float> left(288000, 0.5f);
    std::vector<float> right(288000, 0.5f);
    driver.run(left, right); // two full turns: the whole ring holds 0.5 and writing is back at 0

    setTiming(48000.0f, 400.0);
    EXPECT_EQ(fx->getCapacity(), 43200u);
    EXPECT_EQ(fx->getLengthLeft(), 14400u);
    left.assign(100, 0.5f);
    right.assign(100, 0.5f);
    driver.run(left, right);

    setTiming(48000.0f, 120.0);
    EXPECT_EQ(fx->getCapacity(), 144000u);
    EXPECT_EQ(fx->getLengthLeft(), 48000u);
    left.assign(2000, 0.5f);
    right.assign(2000, 0.5f);
    driver.run(left, right);
    // The new stretch starts at once; reading back past the start of the ring it meets the grown, silent
    // part.
    EXPECT_EQ(left[0], 0.0f);
    EXPECT_GT(left[40], 0.0f);
    for (std::size_t n = 140; n < left.size(); ++n)
        ASSERT_EQ(left[n], 0.0f) << n;
}

TEST_F(AFReverseDelayVFixture, OptionsParametersAndHostileValues) {
    auto fx = make(0, 0.1f, 0.5f, 0.25f);
    AFWordList words;
    fx->getOptionList(0, words);
    fx->getOptionList(1, words);
    fx->getOptionList(2, words);
    EXPECT_EQ(words, (AFWordList{"Sync", "SyncTP", "Free", "Sync", "SyncTP", "Free"}));
    fx->setOption(0, 42);
    fx->setOption(1, -3);
    fx->setOption(3, 1);
    fx->setOption(77, 1);
    EXPECT_EQ(fx->getOption(0), 2);
    EXPECT_EQ(fx->getOption(1), 0);
    EXPECT_EQ(fx->getOption(3), 0);
    EXPECT_EQ(fx->getOption(-1), 0);

    fx->setParameter(0, 1e9f);
    EXPECT_EQ(fx->getLengthLeft(), static_cast<uint32_t>(system.samplesPerBeat));
    fx->setParameter(0, std::nanf(""));
    EXPECT_EQ(fx->getLengthLeft(), static_cast<uint32_t>(system.rateRatio * 88.0f));
    fx->setParameter(1, -5.0f);
    EXPECT_EQ(fx->getLengthRight(), kSyncBeats.front() * system.samplesPerBeat);
    fx->setParameter(-2, 0.5f);
    fx->setParameter(4, 0.5f);

    DelaySlotDriver driver(*fx);
    driver.values = {std::nanf(""), 1e20f, 1e20f, -1e20f};
    std::vector<float> left(20000, 0.7f);
    std::vector<float> right(20000, -0.7f);
    fx->process(left.data(), right.data(), 0);
    EXPECT_EQ(left[0], 0.7f);
    driver.run(left, right);
    for (float v : left)
        ASSERT_TRUE(std::isfinite(v) && std::fabs(v) <= 1.0f);
}

TEST_F(AFReverseDelayVFixture, NamesAndDisplays) {
    auto fx = make(0, 0.1f, 0.5f, 0.25f);
    EXPECT_TRUE(fx->hasFlag());
    const char* names[] = {"Time Left", "Time Right", "Feedback", "Fade"};
    const float defaults[] = {0.1f, 0.2f, 0.5f, 0.25f};
    AFReverseDelayV fresh(21, &system, 0);
    char text[kEffectTextSize];
    for (int i = 0; i < 4; ++i) {
        fresh.getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fresh.getParameterValue(i), defaults[i]);
    }
    fx->formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "1\\2");
    fx->formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "1\\128");
    fx->setOption(0, 1);
    fx->formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "1\\2P");
    fx->setOption(1, 2);
    fx->formatParameter(1, 0.995f, text);
    EXPECT_STREQ(text, "Off");
    fx->formatParameter(1, 0.99f, text);
    EXPECT_STREQ(text, "99.00");
    fx->formatParameter(2, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    fx->setOption(0, 0);
    fx->formatParameter(0, 1e20f, text);
    EXPECT_STREQ(text, "1\\128");
    fx->formatParameter(3, 0.255f, text);
    EXPECT_STREQ(text, "25.50");
}

TEST_F(AFReverseDelayVFixture, RegistersForTempoChangesOnlyWhileItLives) {
    const std::size_t before = listeners.size();
    {
        AFReverseDelayV fx(21, &system, 0);
        EXPECT_EQ(listeners.size(), before + 1);
    }
    EXPECT_EQ(listeners.size(), before);
    AFSystemInfo bare{64.0f, nullptr};
    AFReverseDelayV unlisted(21, &bare, 0);
    EXPECT_EQ(unlisted.getCapacity(), static_cast<uint32_t>(bare.samplesPerBeat * 6.0f));
}

} // namespace
