#include "effects/filter/AFMultiModeFilter.h"

#include "FilterTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

using namespace filtertest;

namespace {

struct FilterFixture : ::testing::Test {
    Rig rig{48000.0f};
    static constexpr double kRate = 48000.0;

    std::unique_ptr<AFMultiModeFilter> make(int mode, int link = 0) {
        auto f = std::make_unique<AFMultiModeFilter>(24, &rig.system, 0);
        f->setOption(0, mode);
        f->setOption(2, link);
        return f;
    }
};

double directHz(float v) {
    const double c = v * 0.9 + 0.1;
    return c * c * c * 20000.0;
}

} // namespace

TEST_F(FilterFixture, BiquadModesMatchTheCookbookAtSeveralCutoffs) {
    struct Row {
        int mode, shape, stages;
        double gain;
    };
    const Row rows[] = {{4, 0, 1, 1.0}, {5, 1, 1, 1.0}, {6, 2, 1, 1.0},  {7, 3, 2, 2.4},
                        {8, 0, 2, 1.0}, {9, 1, 2, 1.0}, {10, 2, 2, 1.0}, {11, 3, 2, 2.4}};
    for (const Row& row : rows) {
        for (float cut : {0.0f, 0.35f, 0.7f}) {
            const float res = 0.3f;
            const float cutR = 1.0f - cut;
            auto f = make(row.mode);
            const auto h = impulseResponse(*f, {cut, res, cutR, 0.6f}, 12000);
            const double hzL = cut * cut * cut * 18000.0 + 30.0;
            const double hzR = cutR * cutR * cutR * 18000.0 + 30.0;
            const auto refL = cookbook(row.shape, hzL, res * 2.5 + 0.1, kRate);
            const auto refR = cookbook(row.shape, hzR, 0.6 * 2.5 + 0.1, kRate);
            for (double hz : {25.0, 30.0, 100.0, 700.0, 1500.0, 3000.0, 6000.0, 12000.0, 18000.0}) {
                const double wantL = row.gain * std::pow(biquadMagnitude(refL, hz, kRate), row.stages);
                const double wantR = row.gain * std::pow(biquadMagnitude(refR, hz, kRate), row.stages);
                // Float coefficients limit how deep a notch near 30 Hz can go.
                const double floor = hz <= 30.0 ? 1e-2 : 3e-4;
                EXPECT_NEAR(magnitudeAt(h.left, hz, kRate), wantL, wantL * 0.015 + floor)
                    << "mode " << row.mode << " cutoff " << cut << " at " << hz;
                EXPECT_NEAR(magnitudeAt(h.right, hz, kRate), wantR, wantR * 0.015 + floor)
                    << "mode " << row.mode << " right cutoff " << cutR << " at " << hz;
            }
        }
    }
}

TEST_F(FilterFixture, DirectModesFollowTheCutoffCurveWithUnitPassBand) {
    for (float cut : {0.0f, 0.3f, 0.6f}) {
        const double fc = directHz(cut);
        // No resonance: the corner sits 6 dB down, the pass band at 1.
        const auto lp = impulseResponse(*make(2), {cut, 0.0f, cut, 0.0f}, 24000);
        EXPECT_NEAR(magnitudeAt(lp.left, fc, kRate), 0.5, 0.01) << cut;
        EXPECT_NEAR(magnitudeAt(lp.left, fc / 16.0, kRate), 1.0, 0.01) << cut;
        const auto hp = impulseResponse(*make(0), {cut, 0.0f, cut, 0.0f}, 24000);
        EXPECT_NEAR(magnitudeAt(hp.left, fc, kRate), 0.5, 0.01) << cut;
        EXPECT_NEAR(magnitudeAt(hp.left, 23000.0, kRate), 1.0, 0.01) << cut;
        // Band-pass: unit peak at the cutoff, lifted by the band boost.
        const auto bp = impulseResponse(*make(1), {cut, 0.5f, cut, 0.5f}, 24000);
        EXPECT_NEAR(magnitudeAt(bp.left, fc, kRate), 2.4, 0.03) << cut;
        EXPECT_LT(magnitudeAt(bp.left, fc * 4.0, kRate), 1.2) << cut;
    }
    // Full resonance is scaled down more for the low-pass than for the high-pass.
    const double fc = directHz(0.4f);
    const double lpPeak =
        magnitudeAt(impulseResponse(*make(2), {0.4f, 1.0f, 0.4f, 1.0f}, 24000).left, fc, kRate);
    const double hpPeak =
        magnitudeAt(impulseResponse(*make(0), {0.4f, 1.0f, 0.4f, 1.0f}, 24000).left, fc, kRate);
    EXPECT_GT(lpPeak, 1.5);
    EXPECT_GT(hpPeak, lpPeak * 1.8);
}

TEST_F(FilterFixture, CombPeaksSitOnMultiplesOfTheCutoff) {
    const float cut = 0.2f;
    const double fc = directHz(cut);
    const auto h = impulseResponse(*make(3), {cut, 0.8f, cut, 0.8f}, 24000);
    for (int k = 1; k <= 4; ++k) {
        const double peak = magnitudeAt(h.left, fc * k, kRate);
        const double valley = magnitudeAt(h.left, fc * (k + 0.5), kRate);
        EXPECT_GT(peak, valley * 4.0) << k;
        EXPECT_NEAR(peakIn(h.left, kRate, fc * (k - 0.25), fc * (k + 0.25), 0.5), fc * k, fc * 0.01) << k;
    }
}

TEST_F(FilterFixture, LinkTiesTheRightChannelToTheLeft) {
    for (int mode : {2, 3, 4, 9}) {
        const auto linked = impulseResponse(*make(mode, 1), {0.4f, 0.7f, 0.9f, 0.1f}, 4096);
        for (std::size_t i = 0; i < linked.left.size(); ++i)
            ASSERT_EQ(linked.left[i], linked.right[i]) << mode;
        const auto unlinked = impulseResponse(*make(mode, 0), {0.4f, 0.7f, 0.9f, 0.1f}, 4096);
        EXPECT_NE(unlinked.left, unlinked.right) << mode;
    }
    // Linking afterwards re-applies the right-hand knobs at once.
    auto f = make(8, 0);
    f->setParameter(2, 0.9f);
    f->setOption(2, 1);
    f->setParameter(0, 0.2f);
    const auto h = impulseResponse(*f, {0.2f, 0.5f, 0.9f, 0.5f}, 2048);
    EXPECT_EQ(h.left, h.right);
}

TEST_F(FilterFixture, OptionsDisplaysAndHostileInput) {
    auto f = make(0);
    char text[kEffectTextSize];
    f->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    f->formatParameter(3, 0.123f, text);
    EXPECT_STREQ(text, "12.30");
    EXPECT_STREQ(f->getName(), "Multi_Mode_Filter");
    EXPECT_EQ(f->getParameterValue(1), 0.5f);
    EXPECT_EQ(f->getParameterValue(3), 0.5f);

    AFWordList words;
    f->getOptionList(0, words);
    ASSERT_EQ(words.size(), 12u);
    EXPECT_EQ(words[7], "12dB BP");
    words.clear();
    f->getOptionList(1, words);
    EXPECT_TRUE(words.empty());
    f->setOption(0, 99);
    EXPECT_EQ(f->getOption(0), 11);
    f->setOption(0, -4);
    EXPECT_EQ(f->getOption(0), 0);
    f->setOption(2, 7);
    EXPECT_EQ(f->getOption(2), 1);
    f->setOption(1, 3);
    EXPECT_EQ(f->getOption(1), 0);
    f->setOption(5, 3);
    EXPECT_EQ(f->getOption(5), 0);

    std::vector<float> l(10, 0.3f), r(10, 0.3f);
    f->activate();
    f->controlTick();
    f->process(l.data(), r.data(), 0);
    EXPECT_EQ(l[0], 0.3f);
}

TEST_F(FilterFixture, StaysFiniteAtExtremeAndJumpingSettingsAndSettles) {
    const std::array<std::array<float, 4>, 5> settings = {{{0.0f, 0.0f, 0.0f, 0.0f},
                                                           {1.0f, 1.0f, 1.0f, 1.0f},
                                                           {-3.0f, -3.0f, 5.0f, 5.0f},
                                                           {40.0f, 1.0f, -40.0f, 1.0f},
                                                           {0.0f, 1.0f, 1.0f, 1.0f}}};
    for (float rate : {11050.0f, 48000.0f, 196000.0f}) {
        Rig local{rate};
        for (int mode = 0; mode < 12; ++mode) {
            AFMultiModeFilter f(24, &local.system, 0);
            f.setOption(0, mode);
            f.activate();
            auto l = noise(64 * 200, 3);
            auto r = noise(64 * 200, 4);
            for (std::size_t b = 0; b < 200; ++b) {
                const auto& s = settings[(b / 7 + b) % settings.size()];
                for (int i = 0; i < 4; ++i)
                    f.setParameter(i, s[static_cast<std::size_t>(i)]);
                f.controlTick();
                f.process(l.data() + b * 64, r.data() + b * 64, 64);
            }
            // Jumping from the top of the band to 30 Hz in one block rings hard, but never runs away.
            EXPECT_TRUE(allFinite(l, 1e5f)) << "mode " << mode << " rate " << rate;
            EXPECT_TRUE(allFinite(r, 1e5f)) << "mode " << mode << " rate " << rate;
            std::vector<float> tailL(static_cast<std::size_t>(rate), 0.0f), tailR(tailL.size(), 0.0f);
            runStereo(f, {0.5f, 1.0f, 0.5f, 1.0f}, tailL, tailR, false);
            EXPECT_LT(std::fabs(tailL.back()) + std::fabs(tailR.back()), 1e-3f) << mode << " " << rate;
        }
    }
}

TEST_F(FilterFixture, FullResonanceSweepStaysBounded) {
    for (int mode = 0; mode < 12; ++mode) {
        auto f = make(mode);
        f->activate();
        auto l = noise(48000, 11);
        auto r = noise(48000, 12);
        for (std::size_t b = 0; b * 64 < l.size(); ++b) {
            const float v = static_cast<float>(b % 300 < 150 ? b % 150 : 149 - b % 150) / 149.0f;
            for (int i = 0; i < 4; ++i)
                f->setParameter(i, i % 2 == 0 ? v : 1.0f);
            f->controlTick();
            f->process(l.data() + b * 64, r.data() + b * 64, 64);
        }
        EXPECT_TRUE(allFinite(l, 60.0f)) << mode;
        EXPECT_TRUE(allFinite(r, 60.0f)) << mode;
    }
}
