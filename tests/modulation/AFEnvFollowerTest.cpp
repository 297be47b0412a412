#include "modulation/AFEnvFollower.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace {

struct AFEnvFollowerTest : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    AFEnvFollowerTest() { system.setControlInterval(64); }
};

// 0.01 to the power 1/n, n the samples to 1% at the whole-number sample rate, with the float 0.01 widened.
double coefficientFor(float sampleRate, float v) {
    const double n =
        std::trunc(static_cast<double>(sampleRate)) * static_cast<double>(v * v * 400.0f) * 0.001;
    return std::pow(static_cast<double>(0.01f), 1.0 / n);
}

} // namespace

TEST_F(AFEnvFollowerTest, NameAndDefaults) {
    AFEnvFollower env(&system);
    EXPECT_STREQ(env.getName(), "Envelope Follower");
    EXPECT_EQ(env.getParameterCount(), 2);
    EXPECT_EQ(env.getParameterValue(0), 0.25f);
    EXPECT_EQ(env.getParameterValue(1), 0.5f);
    EXPECT_EQ(env.getAttackCoefficient(), coefficientFor(44100.0f, 0.25f));
    EXPECT_EQ(env.getReleaseCoefficient(), coefficientFor(44100.0f, 0.5f));
    EXPECT_EQ(env.value(), 0.0);
    EXPECT_TRUE(env.restart());
}

TEST_F(AFEnvFollowerTest, CoefficientsFollowTheSampleRate) {
    for (float sr : {44100.0f, 48000.0f, 96000.0f}) {
        system.setSampleRate(sr);
        AFEnvFollower env(&system);
        for (float v : {0.01f, 0.1f, 0.25f, 0.5f, 0.77f, 1.0f}) {
            env.setParameter(0, v);
            env.setParameter(1, v * 0.5f);
            EXPECT_EQ(env.getAttackCoefficient(), coefficientFor(sr, v)) << sr << " " << v;
            EXPECT_EQ(env.getReleaseCoefficient(), coefficientFor(sr, v * 0.5f)) << sr << " " << v;
        }
    }
}

TEST_F(AFEnvFollowerTest, NewSampleRateTakesEffectAtTheNextSetParameter) {
    AFEnvFollower env(&system);
    system.setSampleRate(96000.0f);
    EXPECT_EQ(env.getAttackCoefficient(), coefficientFor(44100.0f, 0.25f));
    env.setParameter(0, 0.25f); // same value, new rate
    EXPECT_EQ(env.getAttackCoefficient(), coefficientFor(96000.0f, 0.25f));
}

TEST_F(AFEnvFollowerTest, ZeroTimeJumpsStraightToTheInput) {
    AFEnvFollower env(&system);
    env.setParameter(0, 0.0f);
    EXPECT_EQ(env.getAttackCoefficient(), 0.0);
    std::array<float, 4> in{0.7f, 0.0f, 0.0f, 0.0f};
    env.analyze(in.data(), in.data(), 1);
    EXPECT_EQ(env.value(), static_cast<double>(0.7f));
    env.setParameter(1, std::nanf(""));
    EXPECT_EQ(env.getReleaseCoefficient(), 0.0);
    env.analyze(in.data() + 1, in.data() + 1, 1);
    EXPECT_EQ(env.value(), 0.0);
}

TEST_F(AFEnvFollowerTest, DetectorReadsEveryFourthLeftSample) {
    AFEnvFollower env(&system);
    std::array<float, 64> left{};
    std::array<float, 64> right{};
    right.fill(1.0f);
    // Samples between the fourths and the whole right channel are never seen.
    for (int i = 0; i < 64; ++i)
        if (i % 4 != 0) left[i] = 0.9f;
    env.analyze(left.data(), right.data(), 64);
    EXPECT_EQ(env.value(), 0.0);

    left.fill(0.0f);
    left[4] = -0.5f;
    env.analyze(left.data(), right.data(), 64);
    const double a = env.getAttackCoefficient();
    const double r = env.getReleaseCoefficient();
    double expected = (0.0 - 0.5) * a + 0.5;
    for (int k = 2; k < 16; ++k)
        expected = expected * r; // the zeros after it release
    EXPECT_DOUBLE_EQ(env.value(), expected);
    EXPECT_GT(env.value(), 0.0);

    // Count 0 changes nothing; a count of 3 still reads index 0, and each call restarts at index 0.
    const double before = env.value();
    env.analyze(left.data(), right.data(), 0);
    EXPECT_EQ(env.value(), before);
    std::array<float, 3> block{0.8f, 0.8f, 0.8f};
    env.analyze(block.data(), block.data(), 3);
    const double x = 0.8f;
    const double once = (before - x) * a + x;
    EXPECT_DOUBLE_EQ(env.value(), once);
    env.analyze(block.data(), block.data(), 3);
    EXPECT_DOUBLE_EQ(env.value(), (once - x) * a + x);
}

TEST_F(AFEnvFollowerTest, SampleEqualToLevelHoldsIt) {
    AFEnvFollower env(&system);
    env.setParameter(0, 0.0f);
    std::array<float, 8> in{};
    in.fill(0.25f);
    env.analyze(in.data(), in.data(), 8);
    EXPECT_EQ(env.value(), 0.25);
}

TEST_F(AFEnvFollowerTest, SilenceDecaysWithoutReachingZero) {
    AFEnvFollower env(&system);
    env.setParameter(0, 0.0f);
    std::array<float, 64> in{};
    in[0] = 1.0f;
    env.analyze(in.data(), in.data(), 1);
    in[0] = 0.0f;
    const double r = env.getReleaseCoefficient();
    double expected = 1.0;
    for (int block = 0; block < 200; ++block) {
        env.analyze(in.data(), in.data(), 64);
        for (int k = 0; k < 16; ++k)
            expected *= r;
        ASSERT_DOUBLE_EQ(env.value(), expected) << block;
    }
    EXPECT_GT(env.value(), 0.0);
}

TEST_F(AFEnvFollowerTest, ProcessDetectsLikeAnalyzeAndLeavesAudio) {
    AFEnvFollower viaAnalyze(&system);
    AFEnvFollower viaProcess(&system);
    std::array<float, 64> left{};
    std::array<float, 64> right{};
    for (int i = 0; i < 64; ++i) {
        left[i] = std::sin(0.3f * static_cast<float>(i));
        right[i] = 0.1f * static_cast<float>(i);
    }
    const auto leftCopy = left;
    const auto rightCopy = right;
    for (int count : {64, 17, 1, 33}) {
        viaAnalyze.analyze(left.data(), right.data(), count);
        viaProcess.process(left.data(), right.data(), count);
        EXPECT_EQ(viaAnalyze.value(), viaProcess.value()) << count;
    }
    EXPECT_EQ(left, leftCopy);
    EXPECT_EQ(right, rightCopy);
}

TEST_F(AFEnvFollowerTest, ResetKeepsLevelAndCoefficients) {
    AFEnvFollower env(&system);
    std::array<float, 4> in{0.6f, 0.0f, 0.0f, 0.0f};
    env.analyze(in.data(), in.data(), 4);
    const double level = env.value();
    const double a = env.getAttackCoefficient();
    env.reset();
    EXPECT_EQ(env.value(), level);
    EXPECT_EQ(env.getAttackCoefficient(), a);
}

TEST_F(AFEnvFollowerTest, DisplayTexts) {
    AFEnvFollower env(&system);
    char text[kEffectTextSize];
    const std::pair<float, const char*> times[] = {
        {0.25f, "25 ms"}, {0.5f, "100 ms"}, {1.0f, "400 ms"}, {0.0f, " 0 ms"}, {2.0f, "1.60 s"}};
    for (const auto& [v, expected] : times) {
        env.formatParameter(0, v, text);
        EXPECT_STREQ(text, expected) << v;
        env.formatParameter(1, v, text);
        EXPECT_STREQ(text, expected) << v;
    }
    const std::pair<float, const char*> percents[] = {
        {1.0f, "100%"}, {0.999995f, "100%"}, {0.99999f, "100.0%"}, {0.5f, "50.0%"}, {0.0f, "0.0%"}};
    for (const auto& [v, expected] : percents) {
        env.formatParameter(2, v, text);
        EXPECT_STREQ(text, expected) << v;
    }
}

TEST_F(AFEnvFollowerTest, ParametersBeyondTwoAreIgnored) {
    AFEnvFollower env(&system);
    env.setParameter(2, 0.9f);
    env.setParameter(-1, 0.9f);
    EXPECT_EQ(env.getParameterValue(0), 0.25f);
    EXPECT_EQ(env.getParameterValue(1), 0.5f);
}
