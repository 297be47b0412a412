#include "effects/filter/BiquadStage.h"

#include "FilterTestSupport.h"

#include <gtest/gtest.h>

using namespace filtertest;

namespace {

std::vector<float> stageImpulse(BiquadStage& stage, int n) {
    std::vector<float> h(static_cast<std::size_t>(n), 0.0f);
    h[0] = 1.0f;
    for (int i = 0; i < n; i += 64)
        stage.process(h.data() + i, std::min(64, n - i));
    return h;
}

} // namespace

TEST(BiquadStageTest, ShapesMatchTheCookbookWithUnitPassBand) {
    const double rate = 44100.0;
    for (int shape = 0; shape < 4; ++shape) {
        for (double hz : {100.0, 1000.0, 8000.0}) {
            for (double q : {0.1, 0.707, 2.6}) {
                BiquadStage stage;
                stage.set(shape, static_cast<float>(hz), static_cast<float>(q), static_cast<float>(rate), 64,
                          true);
                const auto h = stageImpulse(stage, 16384);
                const auto ref = cookbook(shape, hz, q, rate);
                for (double f : {40.0, 300.0, 999.0, 2500.0, 7000.0, 15000.0}) {
                    const double want = biquadMagnitude(ref, f, rate);
                    EXPECT_NEAR(magnitudeAt(h, f, rate), want, want * 0.01 + 2e-4)
                        << "shape " << shape << " at " << hz << " Hz q " << q << " measured at " << f;
                }
            }
        }
    }
    // Pass bands at exactly 1: low-pass at DC, high-pass at Nyquist, band-pass at its centre.
    for (double hz : {200.0, 3000.0}) {
        EXPECT_NEAR(biquadMagnitude(cookbook(0, hz, 2.0, rate), 0.0, rate), 1.0, 1e-9);
        BiquadStage hp;
        hp.set(BiquadStage::HighPass, static_cast<float>(hz), 2.0f, static_cast<float>(rate), 64, true);
        const auto c = hp.coefficients();
        EXPECT_NEAR((c[0] - c[1] + c[2]) / (1.0f - c[3] + c[4]), 1.0f, 1e-4f);
        BiquadStage bp;
        bp.set(BiquadStage::BandPass, static_cast<float>(hz), 2.0f, static_cast<float>(rate), 64, true);
        EXPECT_NEAR(magnitudeAt(stageImpulse(bp, 16384), hz, rate), 1.0, 2e-3);
    }
}

TEST(BiquadStageTest, GlidesToTheNewDesignAcrossOneBlockAndStandsWhenUnchanged) {
    BiquadStage stage;
    stage.set(BiquadStage::LowPass, 500.0f, 1.0f, 48000.0f, 64, true);
    const auto from = stage.coefficients();
    stage.set(BiquadStage::LowPass, 5000.0f, 1.0f, 48000.0f, 64, false);
    const auto ref = cookbook(0, 5000.0, 1.0, 48000.0);
    std::vector<float> buffer(64, 0.0f);
    stage.process(buffer.data(), 32);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_NEAR(stage.coefficients()[i], 0.5 * (from[i] + ref[i]), 1e-5) << "halfway, coefficient " << i;
    stage.process(buffer.data(), 32);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_NEAR(stage.coefficients()[i], ref[i], 1e-6) << i;
    // More samples than the block: no overshoot past the design.
    stage.process(buffer.data(), 64);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_NEAR(stage.coefficients()[i], ref[i], 1e-6) << i;

    // A repeated design after a short block leaves the coefficients where they stood.
    stage.set(BiquadStage::LowPass, 500.0f, 1.0f, 48000.0f, 64, false);
    stage.process(buffer.data(), 10);
    const auto standing = stage.coefficients();
    stage.set(BiquadStage::LowPass, 500.0f, 1.0f, 48000.0f, 64, false);
    stage.process(buffer.data(), 64);
    EXPECT_EQ(stage.coefficients(), standing);
}

// The pair's two-step path is the same filter rounded differently, glides and odd lengths included.
TEST(BiquadStageTest, TwoStepPairFollowsTheOneStepPair) {
    for (int shape = 0; shape < 4; ++shape) {
        BiquadStage a, b, twoA, twoB;
        for (BiquadStage* s : {&a, &twoA})
            s->set(shape, 300.0f, 2.0f, 48000.0f, 64, true);
        for (BiquadStage* s : {&b, &twoB})
            s->set(shape, 4000.0f, 0.7f, 48000.0f, 64, true);
        uint32_t seed = 9;
        double worst = 0.0;
        for (int block = 0; block < 40; ++block) {
            const float hz = block % 10 == 0 ? 350.0f : 300.0f;
            for (BiquadStage* s : {&a, &twoA})
                s->set(shape, hz, 2.0f, 48000.0f, 64, false);
            std::vector<float> l(63), r(63);
            for (std::size_t i = 0; i < l.size(); ++i) {
                seed = seed * 1664525u + 1013904223u;
                l[i] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
                r[i] = -l[i];
            }
            std::vector<float> tl = l, tr = r;
            BiquadStage::processPair(a, l.data(), b, r.data(), 63);
            BiquadStage::processPairTwoStep(twoA, tl.data(), twoB, tr.data(), 63);
            for (std::size_t i = 0; i < l.size(); ++i)
                worst = std::max({worst, std::fabs(static_cast<double>(l[i] - tl[i])),
                                  std::fabs(static_cast<double>(r[i] - tr[i]))});
        }
        EXPECT_LT(worst, 1e-4) << "shape " << shape;
    }
}

TEST(BiquadStageTest, HostileDesignsStayStable) {
    for (float hz : {-100.0f, 0.0f, 30000.0f, 1e9f, std::nanf("")}) {
        for (float q : {-1.0f, 0.0f, 0.1f, 100.0f, std::nanf("")}) {
            BiquadStage stage;
            stage.set(BiquadStage::BandPass, hz, q, 44100.0f, 64, true);
            auto x = noise(8192, 7);
            for (int i = 0; i < 8192; i += 64)
                stage.process(x.data() + i, 64);
            EXPECT_TRUE(allFinite(x, 1e3f)) << hz << " " << q;
        }
    }
}
