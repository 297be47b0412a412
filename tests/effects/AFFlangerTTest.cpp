#include "effects/filter/AFFlangerT.h"

#include "FilterTestSupport.h"
#include "effects/framework/AFDirectFilter.h"

#include <gtest/gtest.h>

using namespace filtertest;

namespace {

// The filter stage alone at "Filter" 0.5 and "Low Q": the signal the delay lines see.
std::vector<float> filteredImpulse(AFSystemInfo* system, int n) {
    AFDirectFilter filter(system);
    filter.reset(AFDirectFilter::Lowpass, 1.0f, 0.02f);
    filter.reset(AFDirectFilter::Highpass, 0.0f, 0.02f);
    std::vector<float> l(static_cast<std::size_t>(n), 0.0f), r(l.size(), 0.0f);
    l[0] = r[0] = 1.0f;
    for (int i = 0; i < n; i += 64) {
        const int count = std::min(64, n - i);
        filter.processStereo(AFDirectFilter::Lowpass, l.data() + i, r.data() + i, count);
        filter.processStereo(AFDirectFilter::Highpass, l.data() + i, r.data() + i, count);
    }
    return l;
}

} // namespace

TEST(AFFlangerTTest, EchoesAtTheDelayInSamplesWithLinearInterpolation) {
    for (float rate : {44100.0f, 48000.0f}) {
        Rig rig{rate};
        for (const auto& [voice, knob] : {std::pair{0, 0.5f}, std::pair{0, 0.9f}, std::pair{1, 0.37f}}) {
            AFFlangerT f(27, &rig.system, 0);
            f.setOption(0, voice);
            f.setOption(1, 1 - voice);
            const auto h = impulseResponse(f, {knob, 0.2f, 0.58f, 0.5f}, 4096, 64 * 40, 1.0f);
            const float delay = AFFlangerT::delayMs(voice, knob) * rig.system.samplesPerMillisecond;
            const int whole = static_cast<int>(delay);
            const float frac = delay - static_cast<float>(whole);
            const auto g = filteredImpulse(&rig.system, 4096);
            for (int n = 0; n < static_cast<int>(2.0f * delay) - 2; ++n) {
                const float a = n - whole >= 0 ? g[static_cast<std::size_t>(n - whole)] : 0.0f;
                const float b = n - whole - 1 >= 0 ? g[static_cast<std::size_t>(n - whole - 1)] : 0.0f;
                ASSERT_NEAR(h.left[static_cast<std::size_t>(n)], (1.0f - frac) * a + frac * b, 1e-5f)
                    << rate << " voice " << voice << " sample " << n << " delay " << delay;
            }
        }
    }
}

TEST(AFFlangerTTest, FeedbackRepeatsTheEchoWithItsSign) {
    Rig rig{48000.0f};
    for (int mode : {0, 1}) {
        AFFlangerT f(27, &rig.system, 0);
        f.setOption(0, AFFlangerT::Chorus);
        f.setOption(1, AFFlangerT::Chorus);
        f.setOption(2, mode);
        // Chorus at 0.5: 20 ms, exactly 960 samples.
        const auto h = impulseResponse(f, {0.5f, 0.5f, 0.58f, 0.5f}, 3000, 64 * 40, 1.0f);
        const float factor = 0.58f * (mode == 0 ? 0.9f : -0.9f);
        const auto g = filteredImpulse(&rig.system, 3000);
        EXPECT_GT(std::fabs(h.left[960]), 0.5f);
        for (std::size_t n = 0; n < 960; ++n)
            ASSERT_EQ(h.left[n], 0.0f) << n;
        // Each pass round the loop: the filtered input plus the last echo times the signed factor.
        for (std::size_t n = 960; n < 1920; ++n)
            ASSERT_NEAR(h.left[n + 960], factor * h.left[n] + g[n], 1e-6f) << mode << " " << n;
        EXPECT_EQ(h.left, h.right);
    }
}

TEST(AFFlangerTTest, ActivateEmptiesTheLines) {
    for (double bpm : {45.0, 120.0}) {
        Rig rig{196000.0f, bpm};
        AFFlangerT f(27, &rig.system, 0);
        f.setOption(0, AFFlangerT::Chorus);
        f.setOption(1, AFFlangerT::Chorus);
        const std::array<float, 4> knobs = {1.0f, 0.7f, 0.9f, 0.5f};
        // Fill well past one line length so stale audio sits everywhere.
        auto l = noise(static_cast<std::size_t>(rig.system.samplesPerBeat * 4.0f) + 20000, 1);
        auto r = l;
        runStereo(f, knobs, l, r);
        std::vector<float> quietL(64 * 200, 0.0f), quietR(quietL.size(), 0.0f);
        runStereo(f, knobs, quietL, quietR);
        EXPECT_TRUE(std::all_of(quietL.begin(), quietL.end(), [](float v) { return v == 0.0f; })) << bpm;
        EXPECT_TRUE(std::all_of(quietR.begin(), quietR.end(), [](float v) { return v == 0.0f; })) << bpm;
    }
}

TEST(AFFlangerTTest, OptionsDisplaysAndHostileInput) {
    Rig rig{48000.0f};
    AFFlangerT f(27, &rig.system, 0);
    EXPECT_STREQ(f.getName(), "test");
    EXPECT_EQ(f.getParameterValue(1), 0.01f);
    EXPECT_EQ(f.getParameterValue(2), 0.58f);
    EXPECT_EQ(rig.listeners.size(), 1u);
    AFWordList words;
    f.getOptionList(1, words);
    EXPECT_EQ(words, (AFWordList{"Flanger", "Chorus"}));
    words.clear();
    f.getOptionList(3, words);
    EXPECT_EQ(words, (AFWordList{"Low Q", "Mid Q", "High Q"}));
    f.setOption(3, 9);
    EXPECT_EQ(f.getOption(3), 2);
    f.setOption(2, -9);
    EXPECT_EQ(f.getOption(2), 0);
    f.setOption(7, 1);
    EXPECT_EQ(f.getOption(7), 0);

    char text[kEffectTextSize];
    f.formatParameter(0, 1.0f, text);
    EXPECT_STREQ(text, "10.00 ms");
    f.setOption(1, 1);
    f.formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "20.00 ms");
    f.formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "0.10 ms");
    f.formatParameter(2, 0.58f, text);
    EXPECT_STREQ(text, "58.00");
    EXPECT_FLOAT_EQ(AFFlangerT::lowpassCutoff(0.25f), 0.25f);
    EXPECT_FLOAT_EQ(AFFlangerT::lowpassCutoff(0.7f), 1.0f);
    EXPECT_FLOAT_EQ(AFFlangerT::highpassCutoff(0.75f), 0.25f);
    EXPECT_FLOAT_EQ(AFFlangerT::highpassCutoff(0.3f), 0.0f);
}

TEST(AFFlangerTTest, StaysBoundedThroughHostileKnobsAndTempoAndRateChanges) {
    Rig rig{44100.0f};
    AFFlangerT f(27, &rig.system, 0);
    for (int q = 0; q < 3; ++q) {
        f.setOption(3, q);
        f.setOption(2, q % 2);
        f.activate();
        auto l = noise(64 * 400, 1);
        auto r = noise(64 * 400, 2);
        for (std::size_t b = 0; b < 400; ++b) {
            if (b == 100) {
                rig.system.setTempo(45.0);
                rig.listeners.notifyAll();
            }
            if (b == 200) rig.system.setSampleRate(196000.0f);
            if (b == 300) {
                rig.system.setTempo(499.0);
                rig.listeners.notifyAll();
            }
            f.setParameter(
                0, b % 5 == 0 ? -3.0f : (b % 11 == 0 ? std::nanf("") : static_cast<float>(b % 17) / 16.0f));
            f.setParameter(1, b % 7 == 0 ? 8.0f : 0.3f);
            f.setParameter(2, b % 2 == 0 ? 5.0f : 1.0f);
            f.setParameter(3, b % 3 == 0 ? -2.0f : 0.9f);
            f.controlTick();
            f.process(l.data() + b * 64, r.data() + b * 64, 64);
        }
        EXPECT_TRUE(allFinite(l, 50.0f)) << q;
        EXPECT_TRUE(allFinite(r, 50.0f)) << q;
        rig.system.setSampleRate(44100.0f);
    }
}
