#include "effects/filter/AFVowelFilter.h"

#include "FilterTestSupport.h"

#include <gtest/gtest.h>

#include <complex>

using namespace filtertest;

namespace {

struct VowelFixture : ::testing::Test {
    Rig rig{48000.0f};
    static constexpr double kRate = 48000.0;
};

// Local maximum of the response nearest to hz, searched within a band around it.
double peakNear(const std::vector<float>& h, double hz, double band) {
    return peakIn(h, VowelFixture::kRate, hz * (1.0 - band), hz * (1.0 + band), hz * 0.001);
}

// The "Comp" model worked out from its equations for a small signal: a comb of delay N behind a bilinear
// low-pass, fed back one sample late through -r'.
std::complex<double> compResponse(double formant, double rate, double hz) {
    const double d = 500.0 / std::max(formant, 45.0) * rate * 0.001;
    const int n = static_cast<int>(std::ceil(d));
    const double w = 3.14159 / rate * std::min(rate, 6000.0);
    const double t = w + 0.333333 * w * w * w + 1.333333 * std::pow(w, 5.0);
    const std::complex<double> z1 = std::polar(1.0, -2.0 * kPi * hz / rate);
    const std::complex<double> lp = t * (1.0 + z1) / ((t + 1.0) + (t - 1.0) * z1);
    return lp * std::pow(z1, n) / (1.0 + lp * std::pow(z1, n + 1));
}

} // namespace

TEST_F(VowelFixture, FormantPeaksSitOnTheTableForEveryVowelAndModel) {
    // Option value, allowed deviation: the band-pass model's broader sections pull close formants together.
    const std::pair<int, double> models[] = {{0, 0.015}, {1, 0.005}, {2, 0.05}};
    for (const auto& [option, tolerance] : models) {
        for (int v = 0; v < AFVowelFilter::kVowels; ++v) {
            AFVowelFilter f(18, &rig.system, 0);
            f.setOption(0, option);
            const float knob = static_cast<float>(v) / 8.0f;
            const auto h = impulseResponse(f, {knob, knob, 0.0f, 1.0f}, 8192, 64 * 40, 1.0f);
            const auto& row = AFVowelFilter::vowels()[static_cast<std::size_t>(v)];
            EXPECT_NEAR(peakNear(h.left, row.f1, 0.1), row.f1, row.f1 * tolerance)
                << option << " " << row.word;
            EXPECT_NEAR(peakNear(h.left, row.f2, 0.1), row.f2, row.f2 * tolerance)
                << option << " " << row.word;
            EXPECT_EQ(h.left, h.right);
        }
    }
}

TEST_F(VowelFixture, CompModelMatchesItsCombEquations) {
    for (int v : {0, 3, 5, 8}) {
        AFVowelFilter f(18, &rig.system, 0);
        f.setOption(0, 3);
        const float knob = static_cast<float>(v) / 8.0f;
        const auto h = impulseResponse(f, {knob, knob, 0.0f, 0.9f}, 8192, 64 * 40, 1e-3f);
        const auto& row = AFVowelFilter::vowels()[static_cast<std::size_t>(v)];
        for (double formant : {static_cast<double>(row.f1), static_cast<double>(row.f2)}) {
            // The reference peak: below the formant, since the loop is longer than half a period.
            double best = 0.0;
            double bestMag = -1.0;
            for (double hz = formant * 0.7; hz <= formant * 1.05; hz += 1.0) {
                const double m = std::abs(compResponse(formant, kRate, hz));
                if (m > bestMag) {
                    bestMag = m;
                    best = hz;
                }
            }
            EXPECT_NEAR(peakIn(h.left, kRate, best * 0.95, best * 1.05, best * 0.002), best, best * 0.01)
                << row.word << " " << formant;
            EXPECT_GT(best, formant * 0.7) << row.word;
        }
    }
}

TEST_F(VowelFixture, TableCoordinatesTruncateAndExtrapolate) {
    float f = 0.0f;
    float q = 0.0f;
    // x = 2.3: column 1 with fraction 1.3, reaching past column 2.
    AFVowelFilter::svfCoefficients(2.3f * 48000.0f / 20.0f, 0.0f, 0.96f, 48000.0f, f, q);
    EXPECT_NEAR(f, 0.28179f + 1.3f * (0.50392f - 0.28179f), 1e-5f);
    EXPECT_NEAR(q, 1.71821f + 1.3f * (1.49608f - 1.71821f), 1e-5f);
    // Row 5.5 halfway between rows 5 and 6, x = 0.25 in column 0.
    AFVowelFilter::svfCoefficients(0.25f * 48000.0f / 20.0f, 0.55f, 0.96f, 48000.0f, f, q);
    EXPECT_NEAR(f, 0.5f * 0.25f * (0.29479f + 0.30096f), 1e-5f);
    EXPECT_NEAR(q,
                0.5f * (0.75f * 0.99227f + 0.25f * 0.95591f) + 0.5f * (0.75f * 0.78587f + 0.25f * 0.77299f),
                1e-5f);
    // Above the top column: column 10, fraction 0.
    AFVowelFilter::svfCoefficients(3200.0f, 0.3f, 0.96f, 6000.0f, f, q);
    EXPECT_FLOAT_EQ(f, 1.0f);
    EXPECT_FLOAT_EQ(q, 1.0f);
    // The band-pass model's row cap.
    float fCap = 0.0f, qCap = 0.0f;
    AFVowelFilter::svfCoefficients(1000.0f, 1.0f, 0.8f, 48000.0f, f, q);
    AFVowelFilter::svfCoefficients(1000.0f, 0.8f, 1.0f, 48000.0f, fCap, qCap);
    EXPECT_EQ(f, fCap);
    EXPECT_EQ(q, qCap);
}

TEST_F(VowelFixture, VowelPositionsInterpolateAndTheMixGlidesOver24Ms) {
    float f1 = 0.0f, f2 = 0.0f;
    AFVowelFilter::vowelFrequencies(2.5f / 8.0f, f1, f2);
    EXPECT_FLOAT_EQ(f1, 850.0f);
    EXPECT_FLOAT_EQ(f2, 1275.0f);
    AFVowelFilter::vowelFrequencies(1.0f, f1, f2);
    EXPECT_FLOAT_EQ(f1, 3200.0f);
    AFVowelFilter::vowelFrequencies(7.0f, f1, f2);
    EXPECT_FLOAT_EQ(f1, 3200.0f);
    AFVowelFilter::vowelFrequencies(-2.0f, f1, f2);
    EXPECT_FLOAT_EQ(f1, 320.0f);

    AFVowelFilter f(18, &rig.system, 0);
    const std::array<float, 4> start = {0.0f, 1.0f, 0.0f, 1.0f};
    std::vector<float> l(64 * 30, 0.0f), r(l.size(), 0.0f);
    runStereo(f, start, l, r);
    EXPECT_EQ(f.currentMix(), 0.0f);
    // 48 kHz, 64-sample ticks: 0.75 ticks per ms, 18 ticks for 24 ms.
    f.setParameter(2, 1.0f);
    for (int tick = 1; tick <= 18; ++tick) {
        f.controlTick();
        if (tick < 18) {
            EXPECT_NEAR(f.currentMix(), tick / 18.0f, 1e-5f) << tick;
        }
        EXPECT_NEAR(f.formant(0), 320.0f + (3200.0f - 320.0f) * f.currentMix(), 0.01f);
    }
    // The float count lands a hair above 0 after 18 ticks, so the snap comes one tick later.
    EXPECT_NEAR(f.currentMix(), 1.0f, 1e-5f);
    f.controlTick();
    EXPECT_EQ(f.currentMix(), 1.0f);

    // With both vowels equal the mix changes nothing.
    AFVowelFilter a(18, &rig.system, 0), b(18, &rig.system, 0);
    EXPECT_EQ(impulseResponse(a, {0.4f, 0.4f, 0.0f, 0.7f}, 2048).left,
              impulseResponse(b, {0.4f, 0.4f, 1.0f, 0.7f}, 2048).left);
}

TEST_F(VowelFixture, OptionsWordsAndDisplays) {
    AFVowelFilter f(18, &rig.system, 0);
    EXPECT_STREQ(f.getName(), "Vowelfilter");
    EXPECT_EQ(f.getParameterValue(0), 0.1099f);
    EXPECT_EQ(f.getParameterValue(2), 0.7299f);
    f.setOption(0, 3);
    EXPECT_EQ(f.getOption(0), 4);
    f.setOption(0, 2);
    EXPECT_EQ(f.getOption(0), 2);
    f.setOption(0, 77);
    EXPECT_EQ(f.getOption(0), 4);
    f.setOption(0, -77);
    EXPECT_EQ(f.getOption(0), 0);
    f.setOption(1, 2);
    EXPECT_EQ(f.getOption(1), 0);
    EXPECT_EQ(f.getOption(0), 0);

    AFWordList words;
    f.getOptionList(0, words);
    EXPECT_EQ(words, (AFWordList{"Highpass", "Lowpass", "Bandpass", "Comp"}));
    words.clear();
    f.getParameterWords(1, words);
    EXPECT_EQ(words, (AFWordList{"U", "O", "A:", "A", "OE", "UE", "AE", "E", "I"}));
    words.clear();
    f.getParameterWords(2, words);
    EXPECT_TRUE(words.empty());
    EXPECT_EQ(f.getParameterSteps(0), 9.0f);
    EXPECT_EQ(f.getParameterSteps(1), 9.0f);
    EXPECT_EQ(f.getParameterSteps(2), 0.0f);
    EXPECT_TRUE(f.isSpecialParameter(2));
    EXPECT_FALSE(f.isSpecialParameter(0));

    char text[kEffectTextSize];
    f.formatParameter(0, 0.1099f, text);
    EXPECT_STREQ(text, "O");
    f.formatParameter(1, 0.0624f, text);
    EXPECT_STREQ(text, "U");
    f.formatParameter(1, 0.0625f, text);
    EXPECT_STREQ(text, "O");
    f.formatParameter(0, 3.0f, text);
    EXPECT_STREQ(text, "I");
    f.formatParameter(2, 0.7299f, text);
    EXPECT_STREQ(text, "72.99");
}

TEST_F(VowelFixture, StaysBoundedWithJumpingVowelsAtFullResonance) {
    for (float rate : {11050.0f, 44100.0f, 196000.0f}) {
        Rig local{rate};
        for (int option = 0; option < 4; ++option) {
            AFVowelFilter f(18, &local.system, 0);
            f.setOption(0, option);
            f.activate();
            auto l = noise(64 * 300, 5);
            auto r = noise(64 * 300, 6);
            for (std::size_t b = 0; b < 300; ++b) {
                const float a = static_cast<float>((b * 7) % 9) / 8.0f;
                f.setParameter(0, b % 50 == 0 ? -5.0f : (b % 70 == 0 ? std::nanf("") : a));
                f.setParameter(1, b % 40 == 0 ? 9.0f : 1.0f - a);
                f.setParameter(2, b % 45 == 0 ? std::nanf("") : static_cast<float>(b % 3) * 0.5f);
                f.setParameter(3, b % 60 == 0 ? 4.0f : 1.0f);
                f.controlTick();
                f.process(l.data() + b * 64, r.data() + b * 64, 64);
            }
            EXPECT_TRUE(allFinite(l, 100.0f)) << option << " " << rate;
            EXPECT_TRUE(allFinite(r, 100.0f)) << option << " " << rate;
        }
    }
}

// A hot signal (+12 dB over full scale and far beyond) into the "Comp" model at full resonance: the loop's
// shaper would otherwise turn over and run the feedback to infinity, leaving the slot silent with NaN.
TEST_F(VowelFixture, CompModelSurvivesHotInput) {
    for (const float level : {4.0f, 10.0f, 1e5f}) {
        AFVowelFilter f(18, &rig.system, 0);
        f.setOption(0, 3);
        f.activate();
        std::vector<float> l(64), r(64);
        bool finite = true;
        float loudest = 0.0f;
        for (int b = 0; b < 3000; ++b) {
            f.setParameter(0, static_cast<float>(b % 9) / 8.0f);
            f.setParameter(1, 1.0f);
            f.setParameter(2, 0.5f);
            f.setParameter(3, 1.0f);
            f.controlTick();
            for (std::size_t i = 0; i < l.size(); ++i) {
                l[i] = (b / 50) % 2 == 0 ? level : -level;
                r[i] = level;
            }
            f.process(l.data(), r.data(), 64);
            finite = finite && allFinite(l, 1e6f) && allFinite(r, 1e6f);
            for (const float v : l)
                loudest = std::max(loudest, std::fabs(v));
        }
        EXPECT_TRUE(finite) << level;
        EXPECT_LT(loudest, 16.0f)
            << "the shaper holds each comb within one unit of output, whatever comes in";
    }
}
