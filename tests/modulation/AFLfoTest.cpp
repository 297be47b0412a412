#include "modulation/AFLfo.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

enum Wave {
    kSine = 0,
    kTriangle,
    kTriangleSloped,
    kPulse,
    kPulse75,
    kSawUp,
    kSawUpSlopedUp,
    kSawUpSlopedDown,
    kSawDown,
    kSawDownSlopedUp,
    kSawDownSlopedDown,
    kRandomStep,
    kRandomGlide,
    kStepsequencer
};

// Rate values that pick one entry of the ten-entry tempo list: index = trunc(9 v + 0.5).
constexpr float kRateOff = 0.0f;
constexpr float kRateBar = 2.0f / 9.0f;
constexpr float kRateQuarter = 4.0f / 9.0f;
constexpr float kRate128th = 1.0f;

struct AFLfoTest : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    AFLfoTest() {
        system.setControlInterval(64);
        system.setSampleRate(48000.0f);
        system.setTempo(120.0);
    }

    // 240 BPM at 32768 Hz gives 8192 samples per beat, so a 1/128 note is 256 samples and the increment an
    // exact 1/8: eight ticks reach a phase of exactly 1.
    void useDyadicTiming() {
        system.setSampleRate(32768.0f);
        system.setTempo(240.0);
        ASSERT_EQ(system.samplesPerBeat, 8192.0f);
    }

    // The value at x, read with a frozen phase so that x is exactly the phase offset.
    static float valueAt(AFLfo& lfo, int wave, float x) {
        lfo.setParameter(1, kRateOff);
        lfo.setWaveform(wave);
        lfo.setParameter(0, x);
        return lfo.restart();
    }
};

float sineReference(float x) {
    // Table of six-decimal sines, linear in between, started a quarter cycle early.
    auto entry = [](int k) {
        return static_cast<float>(std::round(std::sin(2.0 * M_PI * k / 1024.0) * 1e6) / 1e6);
    };
    const float scaled = 1024.0f * x;
    const int i = static_cast<int>(std::floor(scaled));
    const float d = scaled - static_cast<float>(i);
    const int k = ((i - 256) % 1024 + 1024) % 1024;
    return 0.5f + 0.5f * (entry(k) + d * (entry(k + 1) - entry(k)));
}

// The generator as the text states it: a 32-bit product, then the sign-keeping remainder, scaled by 2^-31.
struct ReferenceRandom {
    int64_t seed = 19169;
    float next() {
        int64_t p = (seed * 16807) % 4294967296LL;
        if (p < 0) p += 4294967296LL;
        if (p >= 2147483648LL) p -= 4294967296LL;
        p -= (p / 2147483647LL) * 2147483647LL;
        seed = p;
        return static_cast<float>(static_cast<double>(p) / 2147483648.0);
    }
};

} // namespace

TEST_F(AFLfoTest, ConstructionDefaultsAndTempoRegistration) {
    {
        AFLfo lfo(&system);
        EXPECT_EQ(listeners.size(), 1u);
        EXPECT_EQ(lfo.getParameterCount(), 2);
        EXPECT_EQ(lfo.getEffectType(), 0u);
        for (int i = 0; i < AFLfo::kStepCount; ++i)
            EXPECT_EQ(lfo.getStep(i), i == 2 ? 0.5f : 0.0f) << i;
        EXPECT_EQ(lfo.getSeed(), 19169);
        EXPECT_EQ(lfo.getWaveform(), 0);
        EXPECT_EQ(lfo.getQuantizeSteps(), 0);
        EXPECT_EQ(lfo.getTriggerMode(), 0);
        EXPECT_EQ(lfo.getRateDivide(), 0.0f);
        EXPECT_EQ(lfo.getParameterMode(0), 0);
        EXPECT_EQ(lfo.getOption(0), 0);
    }
    EXPECT_EQ(listeners.size(), 0u);
    AFSystemInfo noList{64.0f, nullptr};
    AFLfo orphan(&noList);
    EXPECT_EQ(orphan.tick(), 0.0f);
}

TEST_F(AFLfoTest, WaveformMenuWords) {
    const std::vector<std::string> words = {
        "Sine",        "Triangle",        "TriangleSloped",    "Pulse",
        "Pulse75%",    "SawUp",           "SawUpSlopedUp",     "SawUpSlopedDown",
        "SawDown",     "SawDownSlopedUp", "SawDownSlopedDown", "RandomStep",
        "RandomGlide", "Stepsequencer"};
    ASSERT_EQ(static_cast<int>(words.size()), AFLfo::kWaveformCount);
    for (int i = 0; i < AFLfo::kWaveformCount; ++i)
        EXPECT_EQ(words[i], AFLfo::waveformName(i));
    EXPECT_STREQ(AFLfo::waveformName(-1), "");
    EXPECT_STREQ(AFLfo::waveformName(14), "");
}

TEST_F(AFLfoTest, DeterministicWaveformsFollowTheirFormulas) {
    AFLfo lfo(&system);
    for (float x : {0.0f, 0.1f, 0.25f, 0.3f, 0.4999f, 0.5f, 0.5001f, 0.6f, 0.75f, 0.8f, 0.9f, 0.999f, 1.0f}) {
        const float tri = static_cast<int>(1.999999 * x) == 0 ? 2.0f * x : 2.0f - 2.0f * x;
        EXPECT_EQ(valueAt(lfo, kTriangle, x), tri) << x;
        EXPECT_EQ(valueAt(lfo, kTriangleSloped, x), tri * tri) << x;
        EXPECT_EQ(valueAt(lfo, kPulse, x), x <= 0.5f ? 1.0f : 0.0f) << x;
        EXPECT_EQ(valueAt(lfo, kPulse75, x), x <= 0.75f ? 1.0f : 0.0f) << x;
        EXPECT_EQ(valueAt(lfo, kSawUp, x), x) << x;
        EXPECT_EQ(valueAt(lfo, kSawUpSlopedUp, x), x * x) << x;
        EXPECT_EQ(valueAt(lfo, kSawUpSlopedDown, x), 1.0f - (1.0f - x) * (1.0f - x)) << x;
        EXPECT_EQ(valueAt(lfo, kSawDown, x), 1.0f - x) << x;
        EXPECT_EQ(valueAt(lfo, kSawDownSlopedUp, x), (1.0f - x) * (1.0f - x)) << x;
        EXPECT_EQ(valueAt(lfo, kSawDownSlopedDown, x), 1.0f - x * x) << x;
        EXPECT_NEAR(valueAt(lfo, kSine, x), sineReference(x), 1e-6f) << x;
        EXPECT_NEAR(valueAt(lfo, kSine, x), 0.5 + 0.5 * std::sin(2.0 * M_PI * (x - 0.25)), 2e-5) << x;
    }
    // The sine starts low, is at its top half a cycle in, and lands on table entries exactly.
    EXPECT_EQ(valueAt(lfo, kSine, 0.0f), 0.0f);
    EXPECT_EQ(valueAt(lfo, kSine, 0.5f), 1.0f);
    EXPECT_EQ(valueAt(lfo, kSine, 0.25f), 0.5f);
    // Just past the half the pulse drops, while the triangle folds only at 1 / 1.999999 and so peaks a hair
    // above 1.
    const float aboveHalf = std::nextafter(0.5f, 1.0f);
    EXPECT_EQ(valueAt(lfo, kPulse, aboveHalf), 0.0f);
    EXPECT_EQ(valueAt(lfo, kTriangle, aboveHalf), 2.0f * aboveHalf);
    EXPECT_GT(valueAt(lfo, kTriangle, aboveHalf), 1.0f);
    EXPECT_EQ(valueAt(lfo, kTriangle, 0.5000003f), 2.0f - 2.0f * 0.5000003f);
    // Outside the menu the output is 0.
    EXPECT_EQ(valueAt(lfo, 14, 0.3f), 0.0f);
    EXPECT_EQ(valueAt(lfo, -3, 0.3f), 0.0f);
}

TEST_F(AFLfoTest, OffsetAddsToPhaseAndWrapsOnce) {
    useDyadicTiming();
    AFLfo lfo(&system);
    lfo.setWaveform(kSawUp);
    lfo.setParameter(1, kRate128th);
    lfo.setParameter(0, 0.75f);
    EXPECT_EQ(lfo.restart(), 0.75f);
    EXPECT_EQ(lfo.tick(), 0.875f);
    EXPECT_EQ(lfo.tick(), 1.0f); // not above 1, so not wrapped
    EXPECT_EQ(lfo.tick(), 0.125f);
    // A changed offset takes effect at the next tick.
    lfo.setParameter(0, 0.0f);
    EXPECT_EQ(lfo.tick(), 0.5f);
}

TEST_F(AFLfoTest, PhaseOfExactlyOneIsNotWrapped) {
    useDyadicTiming();
    AFLfo lfo(&system);
    lfo.setWaveform(kSawUp);
    lfo.setParameter(1, kRate128th);
    ASSERT_EQ(lfo.getIncrement(), 0.125);
    EXPECT_EQ(lfo.restart(), 0.0f);
    for (int k = 1; k <= 8; ++k)
        EXPECT_EQ(lfo.tick(), 0.125f * static_cast<float>(k)) << k;
    EXPECT_EQ(lfo.getPhase(), 1.0);
    EXPECT_EQ(lfo.tick(), 0.125f);
}

TEST_F(AFLfoTest, QuantizeGivesStepsPlusOneLevels) {
    AFLfo lfo(&system);
    lfo.setQuantizeSteps(1);
    EXPECT_EQ(valueAt(lfo, kSawUp, 0.49f), 0.0f);
    EXPECT_EQ(valueAt(lfo, kSawUp, 0.5f), 1.0f);
    EXPECT_EQ(valueAt(lfo, kSawUp, 1.0f), 1.0f); // trunc(2) / 1 = 2, limited to 1
    lfo.setQuantizeSteps(3);
    for (float x : {0.0f, 0.2f, 0.25f, 0.3f, 0.5f, 0.6f, 0.74f, 0.75f, 0.9f, 1.0f}) {
        const float expected = std::min(1.0f, std::trunc(x * 4.0f) / 3.0f);
        EXPECT_EQ(valueAt(lfo, kSawUp, x), expected) << x;
    }
    lfo.setQuantizeSteps(-4);
    EXPECT_EQ(lfo.getQuantizeSteps(), 0);
    lfo.setQuantizeSteps(1 << 30);
    EXPECT_EQ(lfo.getQuantizeSteps(), AFLfo::kMaxQuantizeSteps);
}

TEST_F(AFLfoTest, TempoRatesFollowTheirTables) {
    AFLfo lfo(&system);
    struct Case {
        int mode;
        float value;
        double beats;
    };
    // Ten-entry list: Off, 2 bars, bar, 1/2 .. 1/128. Nineteen-entry list adds 1.5 bars, 0.75 bar and
    // triplets.
    const Case cases[] = {{0, kRateBar, 4.0},
                          {0, 0.5f, 0.5},
                          {0, kRate128th, 0.03125},
                          {0, 1.0f / 9.0f, 8.0},
                          {1, 2.0f / 18.0f, 6.0},
                          {1, 4.0f / 18.0f, 3.0},
                          {1, 6.0f / 18.0f, 4.0 * 0.33333333},
                          {1, 1.0f, 4.0 * 0.00520833333}};
    for (const Case& c : cases) {
        lfo.setParameterMode(0, c.mode);
        lfo.setParameter(1, c.value);
        const auto samples = static_cast<int64_t>(static_cast<double>(system.samplesPerBeat) * c.beats);
        const float expected = 64.0f / (2.0f * static_cast<float>(samples));
        EXPECT_EQ(lfo.getIncrement(), static_cast<double>(expected)) << c.mode << " " << c.value;
    }
}

TEST_F(AFLfoTest, FreeRateUsesScaledValueAndCubicLength) {
    for (float sr : {44100.0f, 48000.0f, 96000.0f}) {
        system.setSampleRate(sr);
        AFLfo lfo(&system);
        lfo.setParameterMode(0, 2);
        for (float v : {0.0f, 0.1f, 0.5f, 0.9f, 1.0f}) {
            lfo.setParameter(1, v);
            const double f = 1.0 - 0.999 * (static_cast<double>(v) * 0.98);
            const auto samples = static_cast<int64_t>(static_cast<double>(sr) * f * f * f * 4.0 + 32.0);
            const float expected = 64.0f / (2.0f * static_cast<float>(samples));
            EXPECT_EQ(lfo.getIncrement(), static_cast<double>(expected)) << sr << " " << v;
        }
    }
}

TEST_F(AFLfoTest, PeriodInTicksFollowsTempo) {
    for (double bpm : {60.0, 120.0, 174.0}) {
        system.setTempo(bpm);
        AFLfo lfo(&system);
        lfo.setWaveform(kSawUp);
        lfo.setParameter(1, kRateQuarter);
        lfo.restart();
        // A quarter-note rate value means one cycle over two quarter notes.
        const double expectedTicks = 2.0 * std::trunc(system.samplesPerBeat) / 64.0;
        float previous = 0.0f;
        int wrapAt = -1;
        for (int k = 1; k < 4000 && wrapAt < 0; ++k) {
            const float v = lfo.tick();
            if (v < previous) wrapAt = k;
            previous = v;
        }
        EXPECT_NEAR(wrapAt, expectedTicks, 1.0) << bpm;
    }
}

TEST_F(AFLfoTest, RateDivideHalvesDownToAnEighth) {
    AFLfo lfo(&system);
    lfo.setParameter(1, kRateQuarter);
    const double full = lfo.getIncrement();
    const std::pair<float, double> cases[] = {{0.0f, 1.0},   {0.25f, 1.0},   {0.26f, 0.5},  {0.5f, 0.5},
                                              {0.75f, 0.25}, {0.99f, 0.125}, {1.0f, 0.125}, {7.0f, 0.125}};
    for (const auto& [divide, factor] : cases) {
        lfo.setRateDivide(divide);
        lfo.tick(); // the audio thread picks the change up at its next tick
        EXPECT_EQ(lfo.getIncrement(), full * factor) << divide;
    }
}

TEST_F(AFLfoTest, RateOfZeroSamplesFreezesThePhase) {
    AFLfo lfo(&system);
    lfo.setParameter(1, kRateQuarter);
    lfo.setWaveform(kSawUp);
    lfo.restart();
    for (int k = 0; k < 10; ++k)
        lfo.tick();
    const double held = lfo.getPhase();
    ASSERT_GT(held, 0.0);
    for (int mode : {0, 1}) {
        lfo.setParameterMode(0, mode);
        lfo.setParameter(1, kRateOff);
        EXPECT_EQ(lfo.getIncrement(), 0.0);
        for (int k = 0; k < 10; ++k)
            EXPECT_EQ(lfo.tick(), static_cast<float>(held));
    }
}

TEST_F(AFLfoTest, UnchangedRateLeavesIncrementUntilTempoNotification) {
    AFLfo lfo(&system);
    lfo.setParameter(1, kRateQuarter);
    const double at120 = lfo.getIncrement();
    system.setTempo(90.0);
    lfo.setParameter(1, kRateQuarter);
    EXPECT_EQ(lfo.getIncrement(), at120);
    listeners.notifyAll();
    const double at90 = lfo.getIncrement();
    const auto samples = static_cast<int64_t>(static_cast<double>(system.samplesPerBeat));
    EXPECT_EQ(at90, static_cast<double>(64.0f / (2.0f * static_cast<float>(samples))));
    EXPECT_LT(at90, at120);
}

TEST_F(AFLfoTest, RateModeAloneWaitsForTheNextRateValue) {
    AFLfo lfo(&system);
    lfo.setParameter(1, 0.5f);
    const double synced = lfo.getIncrement();
    lfo.setParameterMode(0, 2);
    EXPECT_EQ(lfo.getParameterMode(0), 2);
    EXPECT_EQ(lfo.getParameterMode(1), 0);
    EXPECT_EQ(lfo.getIncrement(), synced);
    lfo.setParameter(1, 0.5f); // same value, new mode
    EXPECT_NE(lfo.getIncrement(), synced);
    // Option 0 is the rate mode, kept inside its three entries.
    lfo.setOption(0, 99);
    EXPECT_EQ(lfo.getOption(0), 2);
    lfo.setOption(0, -7);
    EXPECT_EQ(lfo.getOption(0), 0);
    lfo.setOption(3, 1);
    EXPECT_EQ(lfo.getOption(3), 0);
    EXPECT_EQ(lfo.getOption(0), 0);
}

TEST_F(AFLfoTest, TransportLockFollowsSongPosition) {
    AFLfo lfo(&system);
    lfo.setWaveform(kSawUp);
    lfo.setTriggerMode(2);
    lfo.setParameter(1, kRateQuarter);
    lfo.setParameter(0, 0.2f);
    lfo.restart();
    system.transportRunning = 0.0f;
    system.ppqPosition = 3.7f;
    for (int k = 0; k < 5; ++k)
        EXPECT_EQ(lfo.tick(), 0.2f);
    system.transportRunning = 1.0f;
    for (float ppq : {0.0f, 0.5f, 1.25f, 3.7f, 17.0f}) {
        system.ppqPosition = ppq;
        const double t = static_cast<double>(system.ticksPerBeat) * lfo.getIncrement() * ppq;
        const double phase = t - std::trunc(t);
        float x = static_cast<float>(static_cast<double>(0.2f) + phase);
        if (x > 1.0f) x -= 1.0f;
        EXPECT_EQ(lfo.tick(), x) << ppq;
    }
    // A locked step sequencer stands on step 0 plus the offset's whole steps while the transport is stopped.
    system.transportRunning = 0.0f;
    lfo.setWaveform(kStepsequencer);
    lfo.setStep(3, 0.9f);
    EXPECT_EQ(lfo.tick(), 0.9f); // trunc(15 * 0.2) = 3
    // A negative position (pre-roll) stays inside the pattern.
    system.transportRunning = 1.0f;
    system.ppqPosition = -13.3f;
    const float v = lfo.tick();
    EXPECT_TRUE(v == 0.0f || v == 0.5f || v == 0.9f);
}

TEST_F(AFLfoTest, OneShotStopsAtTheEndAndHoldsUntilRestart) {
    useDyadicTiming();
    AFLfo lfo(&system);
    lfo.setWaveform(kSawDown);
    lfo.setTriggerMode(1);
    lfo.setParameter(1, kRate128th);
    EXPECT_EQ(lfo.restart(), 1.0f);
    for (int k = 0; k < 8; ++k)
        lfo.tick();
    EXPECT_FALSE(lfo.isStopped());
    EXPECT_EQ(lfo.tick(), 0.0f); // phase set to exactly 1
    EXPECT_TRUE(lfo.isStopped());
    for (int k = 0; k < 20; ++k)
        EXPECT_EQ(lfo.tick(), 0.0f);
    EXPECT_EQ(lfo.restart(), 1.0f);
    EXPECT_FALSE(lfo.isStopped());
    EXPECT_EQ(lfo.tick(), 0.875f);
}

TEST_F(AFLfoTest, RandomDrawsFollowTheSeededGenerator) {
    useDyadicTiming();
    AFLfo step(&system);
    AFLfo glide(&system);
    step.setWaveform(kRandomStep);
    glide.setWaveform(kRandomGlide);
    for (AFLfo* lfo : {&step, &glide})
        lfo->setParameter(1, kRate128th);
    ReferenceRandom stepRandom;
    ReferenceRandom glideRandom;
    int cell = 0;
    float current = 0.0f;
    float glideCurrent = 0.0f;
    float glidePrevious = 0.0f;
    EXPECT_EQ(step.restart(), 0.5f);
    EXPECT_EQ(glide.restart(), 0.5f);
    double phase = 0.0;
    for (int k = 1; k <= 40; ++k) {
        phase += 0.125;
        if (phase > 1.0) phase -= 1.0;
        const auto x = static_cast<float>(phase);
        const int c = static_cast<int>(2.0f * x);
        if (c != cell) {
            cell = c;
            current = stepRandom.next();
            glidePrevious = glideCurrent;
            glideCurrent = glideRandom.next();
        }
        EXPECT_EQ(step.tick(), 0.5f + 0.5f * current) << k;
        EXPECT_EQ(glide.tick(), 0.5f + 0.5f * (glidePrevious + (glideCurrent - glidePrevious) * x)) << k;
    }
    // A restart does not reseed: its tick lands in a new cell and the sequence goes on.
    EXPECT_EQ(static_cast<int64_t>(step.getSeed()), stepRandom.seed);
    EXPECT_EQ(step.restart(), 0.5f + 0.5f * stepRandom.next());
    EXPECT_EQ(static_cast<int64_t>(step.getSeed()), stepRandom.seed);
}

TEST_F(AFLfoTest, StepSequencerAdvancesOneStepPerCycle) {
    useDyadicTiming();
    AFLfo lfo(&system);
    lfo.setWaveform(kStepsequencer);
    for (int i = 0; i < AFLfo::kStepCount; ++i)
        lfo.setStep(i, static_cast<float>(i) / 16.0f);
    lfo.setParameter(1, kRate128th); // 8 ticks per step
    EXPECT_EQ(lfo.restart(), 0.0f);
    for (int k = 1; k <= 200; ++k) {
        const int expectedStep = (k / 8) % 16;
        EXPECT_EQ(lfo.tick(), static_cast<float>(expectedStep) / 16.0f) << k;
    }
    // The offset shifts by whole steps: trunc(15 * 0.5) = 7.
    lfo.setParameter(0, 0.5f);
    EXPECT_EQ(lfo.restart(), 7.0f / 16.0f);
    lfo.setStep(-1, 1.0f);
    lfo.setStep(16, 1.0f);
    EXPECT_EQ(lfo.getStep(16), 0.0f);
    lfo.setStep(4, 3.0f);
    EXPECT_EQ(lfo.getStep(4), 1.0f);
}

TEST_F(AFLfoTest, OneShotStepSequencerHoldsItsStep) {
    useDyadicTiming();
    AFLfo lfo(&system);
    lfo.setWaveform(kStepsequencer);
    lfo.setTriggerMode(1);
    lfo.setStep(0, 0.25f);
    lfo.setStep(1, 0.75f);
    lfo.setParameter(1, kRate128th);
    lfo.restart();
    // The phase ends its one cycle on the step boundary and the position stands still from then on.
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(lfo.tick(), k < 7 ? 0.25f : 0.75f) << k;
    EXPECT_EQ(lfo.tick(), 0.75f);
    EXPECT_TRUE(lfo.isStopped());
    const float position = lfo.getStepPosition();
    for (int k = 0; k < 30; ++k)
        EXPECT_EQ(lfo.tick(), 0.75f);
    EXPECT_EQ(lfo.getStepPosition(), position);
}

TEST_F(AFLfoTest, RestartShowsPhaseZeroAndKeepsIncrement) {
    AFLfo lfo(&system);
    lfo.setWaveform(kTriangle);
    lfo.setParameter(1, kRateQuarter);
    for (int k = 0; k < 33; ++k)
        lfo.tick();
    const double increment = lfo.getIncrement();
    EXPECT_EQ(lfo.restart(), 0.0f);
    EXPECT_EQ(lfo.getPhase(), 0.0);
    EXPECT_EQ(lfo.getIncrement(), static_cast<double>(static_cast<float>(increment)));
    EXPECT_EQ(lfo.tick(), static_cast<float>(2.0 * increment));
}

TEST_F(AFLfoTest, DisplayTexts) {
    AFLfo lfo(&system);
    char text[kEffectTextSize];
    lfo.formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "180");
    lfo.formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "  0");
    lfo.formatParameter(2, 0.5f, text);
    EXPECT_STREQ(text, "50.00 %");
    const std::pair<float, const char*> synced[] = {
        {0.0f, "Off"}, {1.0f / 9.0f, "2 bars"}, {kRateBar, "bar"}, {0.5f, "1\\8"}, {1.0f, "1\\128"}};
    for (const auto& [v, word] : synced) {
        lfo.formatParameter(1, v, text);
        EXPECT_STREQ(text, word) << v;
    }
    lfo.setParameterMode(0, 1);
    const std::pair<float, const char*> triplets[] = {{0.0f, "Off"},
                                                      {2.0f / 18.0f, "1.5 bars"},
                                                      {4.0f / 18.0f, "0.75 bar"},
                                                      {0.5f, "1\\8"},
                                                      {1.0f, "1\\128T"}};
    for (const auto& [v, word] : triplets) {
        lfo.formatParameter(1, v, text);
        EXPECT_STREQ(text, word) << v;
    }
    lfo.setParameterMode(0, 2);
    for (float v : {0.0f, 0.3f, 0.5f, 0.98f, 1.0f}) {
        const double f = 1.0 - 0.999 * static_cast<double>(v);
        char expected[kEffectTextSize];
        std::snprintf(expected, sizeof(expected), "%3.2f hz", 2000.0 / (4000.0 * f * f * f + 32.0));
        lfo.formatParameter(1, v, text);
        EXPECT_STREQ(text, expected) << v;
    }
    lfo.formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "62.50 hz"); // shown as if reachable; the real top rate is scaled by 0.98
    lfo.formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "0.50 hz");
}

TEST_F(AFLfoTest, HostileValuesStayBounded) {
    AFLfo lfo(&system);
    lfo.setTriggerMode(9);
    EXPECT_EQ(lfo.getTriggerMode(), 2);
    lfo.setTriggerMode(-1);
    EXPECT_EQ(lfo.getTriggerMode(), 0);
    lfo.setParameter(7, 0.5f);
    lfo.setParameterMode(5, 1);
    lfo.setParameter(0, std::nanf(""));
    lfo.setParameterMode(0, 2);
    lfo.setParameter(1, std::nanf(""));
    EXPECT_TRUE(std::isfinite(lfo.getIncrement()));
    lfo.setParameter(1, 1e30f);
    EXPECT_TRUE(std::isfinite(lfo.getIncrement()));
    lfo.setParameter(0, -40.0f);
    for (int wave = 0; wave < AFLfo::kWaveformCount; ++wave) {
        lfo.setWaveform(wave);
        for (int k = 0; k < 50; ++k)
            EXPECT_TRUE(std::isfinite(lfo.tick())) << wave;
    }
    lfo.setRateDivide(std::nanf(""));
    EXPECT_EQ(lfo.getRateDivide(), 0.0f);
}
