#include "effects/filter/AFKnobixPhaser.h"

#include "FilterTestSupport.h"

#include <gtest/gtest.h>

using namespace filtertest;

namespace {

// The sweep worked out from its equations: angle, fast sine, corner frequencies, allpass coefficient.
double coefficientFor(double phase, double widthKnob, bool right, double rate) {
    double x = phase * 6.2831855 - 3.1415927;
    if (right) {
        x += widthKnob * 0.5 * 3.1415927;
        if (x >= 3.1415927) x -= 6.2831855;
    }
    double y = (1.2732395 - std::fabs(x) * 0.4052847) * x;
    y = (std::fabs(y) * y - y) * 0.225 + y;
    const double low = 440.0 / (rate * 0.5);
    const double high = 1600.0 / (rate * 0.5);
    const double c = (high - low) * (y + 1.0) * 0.5 + low;
    return (1.0 - c) / (c + 1.0);
}

// 0.75 dry plus depth times the allpass chain inside its feedback loop, which takes the last sample's output.
double phaserMagnitude(double a, int stages, double depth, double fb, double hz, double rate) {
    const std::complex<double> z1 = std::polar(1.0, -2.0 * kPi * hz / rate);
    const std::complex<double> chain = std::pow((z1 - a) / (1.0 - a * z1), stages);
    return std::abs(0.75 + depth * chain / (1.0 - fb * z1 * chain));
}

// The lowest deep notch of a response on a fine logarithmic grid.
template <typename Magnitude>
double lowestNotch(Magnitude magnitude) {
    double before = magnitude(30.0);
    double here = magnitude(30.0 * 1.002);
    for (double f = 30.0 * 1.002; f < 20000.0; f *= 1.002) {
        const double after = magnitude(f * 1.002);
        if (here < before && here <= after && here < 0.2) return f;
        before = here;
        here = after;
    }
    return 0.0;
}

} // namespace

TEST(AFKnobixPhaserTest, ResponseMatchesTheAllpassChainPerChannel) {
    for (float rate : {44100.0f, 96000.0f}) {
        Rig rig{rate};
        for (int option : {0, 1, 5}) {
            for (float feedback : {0.0f, 0.6f}) {
                for (int invert : {0, 1}) {
                    AFKnobixPhaser p(14, &rig.system, 0);
                    p.setOption(0, option);
                    p.setOption(1, invert);
                    const std::array<float, 4> knobs = {0.3f, feedback, 0.6f, 0.8f};
                    const auto h = impulseResponse(p, knobs, 16384);
                    const double fb = feedback * 0.9 * (invert != 0 ? -1.0 : 1.0);
                    const double aL = coefficientFor(0.3, 0.8, false, rate);
                    const double aR = coefficientFor(0.3, 0.8, true, rate);
                    for (double hz : {60.0, 300.0, 700.0, 1500.0, 4000.0, 12000.0}) {
                        const double wantL = phaserMagnitude(aL, option + 3, 0.6, fb, hz, rate);
                        const double wantR = phaserMagnitude(aR, option + 3, 0.6, fb, hz, rate);
                        EXPECT_NEAR(magnitudeAt(h.left, hz, rate), wantL, wantL * 0.005 + 1e-3)
                            << rate << " stages " << option + 3 << " fb " << fb << " at " << hz;
                        EXPECT_NEAR(magnitudeAt(h.right, hz, rate), wantR, wantR * 0.005 + 1e-3)
                            << rate << " stages " << option + 3 << " fb " << fb << " at " << hz;
                    }
                }
            }
        }
    }
}

TEST(AFKnobixPhaserTest, NotchesMoveWithPhaseAndWidthOffsetsTheRightChannel) {
    Rig rig{48000.0f};
    const double rate = 48000.0;
    double previous = 0.0;
    for (float phase : {0.25f, 0.5f, 0.75f}) {
        AFKnobixPhaser p(14, &rig.system, 0);
        p.setOption(0, 1);
        const auto h = impulseResponse(p, {phase, 0.0f, 0.75f, 0.0f}, 8192);
        const double notch = lowestNotch([&](double f) { return magnitudeAt(h.left, f, rate); });
        const double a = coefficientFor(phase, 0.0, false, rate);
        const double want = lowestNotch([&](double f) { return phaserMagnitude(a, 4, 0.75, 0.0, f, rate); });
        EXPECT_NEAR(notch, want, want * 0.01) << phase;
        EXPECT_GT(notch, previous * 1.3) << phase;
        previous = notch;
        // "Width" 0: both channels alike.
        EXPECT_EQ(h.left, h.right);
    }
    // "Width" 1: the right channel runs a quarter cycle ahead.
    AFKnobixPhaser wide(14, &rig.system, 0);
    AFKnobixPhaser ahead(14, &rig.system, 0);
    const auto w = impulseResponse(wide, {0.3f, 0.5f, 0.7f, 1.0f}, 4096);
    const auto q = impulseResponse(ahead, {0.55f, 0.5f, 0.7f, 0.0f}, 4096);
    for (std::size_t i = 0; i < w.right.size(); ++i)
        ASSERT_NEAR(w.right[i], q.left[i], 1e-5f) << i;
}

TEST(AFKnobixPhaserTest, OptionsDisplaysAndHostileInput) {
    Rig rig;
    AFKnobixPhaser p(14, &rig.system, 0);
    EXPECT_STREQ(p.getName(), "Phaser");
    EXPECT_EQ(p.getParameterValue(0), 0.2f);
    AFWordList words;
    p.getOptionList(0, words);
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(words.front(), "3 Stages");
    EXPECT_EQ(words.back(), "8 Stages");
    p.setOption(0, 40);
    EXPECT_EQ(p.getOption(0), 5);
    p.setOption(0, -1);
    EXPECT_EQ(p.getOption(0), 0);
    p.setOption(1, 9);
    EXPECT_EQ(p.getOption(1), 1);
    p.setOption(3, 1);
    EXPECT_EQ(p.getOption(3), 0);
    char text[kEffectTextSize];
    p.formatParameter(1, 0.7f, text);
    EXPECT_STREQ(text, "70.00");
    EXPECT_EQ(rig.listeners.size(), 1u);

    for (int option = 0; option < 6; ++option) {
        p.setOption(0, option);
        p.setOption(1, option % 2);
        auto l = noise(64 * 200, 9);
        auto r = noise(64 * 200, 10);
        p.activate();
        for (std::size_t b = 0; b < 200; ++b) {
            p.setParameter(0, b % 2 == 0 ? -7.0f : 9.0f);
            p.setParameter(1, 1.0f);
            p.setParameter(2, b % 3 == 0 ? 1.0f : 0.0f);
            p.setParameter(3, 5.0f);
            p.controlTick();
            p.process(l.data() + b * 64, r.data() + b * 64, 64);
        }
        EXPECT_TRUE(allFinite(l, 50.0f)) << option;
        EXPECT_TRUE(allFinite(r, 50.0f)) << option;
    }
}
