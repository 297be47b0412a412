#include "DelaySlotDriver.h"

#include "effects/delay/AFAmper.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

struct AFAmperFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
    std::unique_ptr<AFAmper> fx;

    void SetUp() override {
        system.setControlInterval(64);
        system.setSampleRate(44100.0f);
        fx = std::make_unique<AFAmper>(22, &system, 0);
    }

    // Starts the effect as a slot does: parameters first, then activate.
    DelaySlotDriver start(float volume, float pan, float crush, float rate) {
        DelaySlotDriver driver(*fx);
        driver.values = {volume, pan, crush, rate};
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, driver.values[static_cast<std::size_t>(i)]);
        fx->activate();
        return driver;
    }
};

std::vector<float> ramp(int count, float step, float offset = 0.0f) {
    std::vector<float> v(static_cast<std::size_t>(count));
    for (int n = 0; n < count; ++n)
        v[static_cast<std::size_t>(n)] = offset + step * static_cast<float>(n);
    return v;
}

TEST_F(AFAmperFixture, VolumeHalfIsUnityAndPassesTheSignalBitExact) {
    auto driver = start(0.5f, 0.5f, 0.0f, 0.0f);
    auto left = ramp(1000, 0.0019f, -0.95f);
    auto right = ramp(1000, -0.0013f, 0.6f);
    const auto inL = left;
    const auto inR = right;
    driver.run(left, right);
    EXPECT_EQ(left, inL);
    EXPECT_EQ(right, inR);
}

TEST_F(AFAmperFixture, PanLawAttenuatesOnlyTheFarSide) {
    struct Case {
        float volume, pan, gainL, gainR;
    };
    for (const Case c :
         {Case{0.5f, 0.75f, 0.5f, 1.0f}, Case{0.5f, 0.25f, 1.0f, 0.5f}, Case{0.5f, 1.0f, 0.0f, 1.0f},
          Case{0.5f, 0.0f, 1.0f, 0.0f}, Case{1.0f, 0.5f, 2.0f, 2.0f}, Case{0.25f, 0.6f, 0.4f, 0.5f}}) {
        auto driver = start(c.volume, c.pan, 0.0f, 0.0f);
        std::vector<float> left(200, 0.4f);
        std::vector<float> right(200, -0.3f);
        driver.run(left, right);
        EXPECT_NEAR(left[150], 0.4f * c.gainL, 1e-6f) << c.volume << " " << c.pan;
        EXPECT_NEAR(right[150], -0.3f * c.gainR, 1e-6f) << c.volume << " " << c.pan;
    }
}

TEST_F(AFAmperFixture, VolumeChangeRampsAcrossOneTick) {
    auto driver = start(0.5f, 0.5f, 0.0f, 0.0f);
    std::vector<float> left(64, 1.0f);
    std::vector<float> right(64, 1.0f);
    driver.run(left, right);
    driver.values[0] = 1.0f;
    std::fill(left.begin(), left.end(), 1.0f);
    driver.run(left, right);
    for (int k = 0; k < 64; ++k)
        EXPECT_NEAR(left[static_cast<std::size_t>(k)], 1.0 + (k + 1) / 64.0, 1e-6) << k;
}

TEST_F(AFAmperFixture, CrushModesQuantiseToTheirGrids) {
    // "Crush" 1 gives a step of 0.4.
    struct Case {
        int32_t mode;
        float in, out;
    };
    const Case cases[] = {
        {0, 0.5f, 0.4f},      {0, -0.5f, -0.4f},      {0, 0.3f, 0.0f},        {0, 0.95f, 0.8f},
        {1, 0.5f, 0.16f},     {1, -0.5f, -0.16f},     {1, 0.1f, 0.0f},        {2, 0.5f, 0.0f},
        {2, 0.9f, 0.894427f}, {2, -0.9f, -0.894427f}, {3, 0.5f, 1.0f / 9.0f}, {3, -0.02f, 0.0f},
    };
    for (const Case& c : cases) {
        fx->setOption(2, c.mode);
        auto driver = start(0.5f, 0.5f, 1.0f, 0.0f);
        std::vector<float> left(10, c.in);
        std::vector<float> right(10, c.in);
        driver.run(left, right);
        EXPECT_NEAR(left[5], c.out, 1e-5f) << c.mode << " " << c.in;
        EXPECT_NEAR(right[5], c.out, 1e-5f) << c.mode << " " << c.in;
    }
}

TEST_F(AFAmperFixture, NormalCrushLandsOnMultiplesOfTheStepAndNeverGrows) {
    auto driver = start(0.5f, 0.5f, 0.6f, 0.0f);
    const double step = 0.6 * 0.6 * 0.6 * 0.4;
    auto left = ramp(512, 0.0039f, -1.0f);
    auto right = ramp(512, -0.0021f, 0.7f);
    const auto inL = left;
    driver.run(left, right);
    for (std::size_t n = 0; n < left.size(); ++n) {
        const double units = left[n] / step;
        EXPECT_NEAR(units, std::round(units), 1e-4) << n;
        EXPECT_LE(std::fabs(left[n]), std::fabs(inL[n]) + 1e-6f) << n;
    }
}

TEST_F(AFAmperFixture, SampleRateReductionHoldsEveryNthSample) {
    // "Samplerate" 0.5 holds 100 samples at 44.1 kHz and proportionally more at higher rates, less its slow
    // error.
    for (const auto& [rate, period] :
         {std::pair{44100.0f, 100}, std::pair{48000.0f, 109}, std::pair{96000.0f, 218}}) {
        system.setSampleRate(rate);
        auto driver = start(0.5f, 0.5f, 0.0f, 0.5f);
        auto left = ramp(1000, 0.001f, 0.001f);
        auto right = ramp(1000, -0.001f, -0.001f);
        const auto inL = left;
        driver.run(left, right);
        const auto p = static_cast<std::size_t>(period);
        EXPECT_EQ(left[0], inL[0]) << rate;
        for (std::size_t n = 1; n < left.size(); ++n) {
            if (n % p != 0)
                ASSERT_EQ(left[n], left[n - 1]) << rate << " " << n;
            else
                ASSERT_NEAR(left[n], inL[n], 0.001 * static_cast<double>(p)) << rate << " " << n;
        }
    }
}

TEST_F(AFAmperFixture, AHoldInProgressRunsOutAfterTheRateDrops) {
    auto driver = start(0.5f, 0.5f, 0.0f, 1.0f);
    auto left = ramp(4000, 0.0001f, 0.1f);
    auto right = left;
    const auto in = left;
    driver.run(left.data(), right.data(), 64);
    driver.values[3] = 0.0f;
    driver.run(left.data() + 64, right.data() + 64, 3936);
    for (std::size_t n = 0; n < 200; ++n)
        ASSERT_EQ(left[n], in[0]) << n;
    // Then the signal passes, with what is left of the hold's slow correction fading out smoothly.
    for (std::size_t n = 201; n < left.size(); ++n)
        ASSERT_NEAR(left[n] - left[n - 1], in[n] - in[n - 1], 1e-4f) << n;
    EXPECT_NEAR(left.back(), in.back(), 1e-5f);
}

TEST_F(AFAmperFixture, TheHoldAddsNoWanderingOffsetAndStartsWithTheMusic) {
    // An A major chord held every 100 samples (441 Hz): A's second partial would fold to 1 Hz and move the
    // output's mean by a tenth of its level. A host may run the slot in silence for any time before it.
    std::vector<std::vector<float>> outputs;
    for (const std::size_t silence : {640u, 1000u}) {
        auto driver = start(0.5f, 0.5f, 0.0f, 0.5f);
        std::vector<float> left(silence + 88200, 0.0f);
        for (std::size_t n = silence; n < left.size(); ++n) {
            const double t = static_cast<double>(n - silence) / 44100.0;
            for (const double f : {220.0, 277.18, 329.63})
                left[n] += static_cast<float>(
                    0.08 * (std::sin(2 * M_PI * f * t) + 0.5 * std::sin(4 * M_PI * f * t)));
        }
        auto right = left;
        driver.run(left, right);
        outputs.emplace_back(left.begin() + static_cast<std::ptrdiff_t>(silence), left.end());
    }
    EXPECT_EQ(outputs[0], outputs[1]);
    for (auto from = outputs[0].begin() + 11025; from < outputs[0].end(); from += 11025)
        EXPECT_LT(std::fabs(std::accumulate(from, from + 11025, 0.0) / 11025.0), 0.004);
}

TEST_F(AFAmperFixture, DynamicShortensTheHoldOnLoudSamplesAndAbsurdDecaysIt) {
    fx->setOption(3, 1);
    auto driver = start(0.5f, 0.5f, 0.0f, 0.5f);
    auto left = ramp(200, 0.0f, 1.0f);
    left[25] = 0.5f;
    auto right = left;
    driver.run(left, right);
    EXPECT_EQ(left[24], 1.0f);
    EXPECT_EQ(left[25], 0.5f); // full scale holds a quarter of 100 samples

    fx->setOption(3, 2);
    auto absurd = start(0.5f, 0.5f, 0.0f, 0.5f);
    std::vector<float> l(100, 0.8f);
    std::vector<float> r(100, -0.8f);
    absurd.run(l, r);
    for (int k = 0; k < 100; ++k) {
        EXPECT_NEAR(l[static_cast<std::size_t>(k)], 0.8 * std::pow(0.95, k), 1e-6) << k;
        EXPECT_NEAR(r[static_cast<std::size_t>(k)], -0.8 * std::pow(0.95, k), 1e-6) << k;
    }
}

TEST_F(AFAmperFixture, OptionsAndHostileValuesStayInRange) {
    AFWordList words;
    fx->getOptionList(2, words);
    fx->getOptionList(3, words);
    fx->getOptionList(0, words);
    EXPECT_EQ(words, (AFWordList{"Normal", "Hi", "Low", "Clip", "Normal", "Dynamic", "Absurd"}));
    fx->setOption(2, 99);
    fx->setOption(3, -4);
    fx->setOption(0, 2);
    fx->setOption(-1, 2);
    EXPECT_EQ(fx->getOption(2), 3);
    EXPECT_EQ(fx->getOption(3), 0);
    EXPECT_EQ(fx->getOption(0), 0);

    auto driver = start(1e30f, -7.0f, std::nanf(""), 1e9f);
    fx->setParameter(9, 1.0f);
    std::vector<float> left(500, 0.5f);
    std::vector<float> right(500, 0.5f);
    driver.run(left, right);
    for (float v : left)
        EXPECT_TRUE(std::isfinite(v) && std::fabs(v) <= 2.0f);
}

TEST_F(AFAmperFixture, NamesAndDisplays) {
    EXPECT_STREQ(fx->getName(), "Amper");
    EXPECT_TRUE(fx->hasFlag());
    const char* names[] = {"Volume", "Pan", "Crush", "Samplerate"};
    const float defaults[] = {0.5f, 0.5f, 0.0f, 0.0f};
    char text[kEffectTextSize];
    for (int i = 0; i < 4; ++i) {
        fx->getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fx->getParameterValue(i), defaults[i]);
    }
    fx->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "100.00");
    fx->formatParameter(1, 0.25f, text);
    EXPECT_STREQ(text, "25.00");
    fx->formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "100.00");
}

} // namespace
