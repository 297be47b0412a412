#include "effects/filter/AFVocodil.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace {

constexpr double kChords[8][10] = {
    {0, 4, 7, 12, 16, 19, 24, 28, 31, 36},    {0, 3, 7, 12, 15, 19, 24, 27, 31, 36},
    {0, 2, 4, 6, 8, 10, 12, 14, 16, 18},      {0, 3, 6, 9, 12, 15, 18, 21, 24, 27},
    {0, 4, 8, 12, 16, 20, 24, 28, 32, 36},    {0, 5, 10, 15, 20, 25, 30, 35, 40, 45},
    {-12, 0, 12, 24, 0, -12, 12, 24, 0, -12}, {0, .1, .2, .3, .4, .5, .6, .7, .8, .9}};

// Frequency of a MIDI note (fractional) on the effect's tuning: row 69 of the note table is 55 Hz.
double midiFrequency(double note) {
    return 1.02197504 * std::pow(2.0, (note + 36.0) / 12.0);
}

struct VocodilFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override {
        system.setControlInterval(64);
        system.setSampleRate(48000.0f);
        system.setTempo(120.0);
    }

    std::unique_ptr<AFVocodil> make(float sound, float note, float spread, float arp, int wave = 0,
                                    int octave = 0, int chord = 0, int mode = 0) {
        auto fx = std::make_unique<AFVocodil>(19, &system, 0);
        fx->setOption(0, wave);
        fx->setOption(1, octave);
        fx->setOption(2, chord);
        fx->setOption(3, mode);
        const float values[4] = {sound, note, spread, arp};
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, values[i]);
        fx->activate();
        return fx;
    }

    // As the slot drives it: parameters and a tick every 64 samples, pieces never straddling a tick.
    static void drive(AFVocodil& fx, std::vector<float>& left, std::vector<float>& right, int piece = 64) {
        float values[4];
        for (int i = 0; i < 4; ++i)
            values[i] = fx.getParameterValue(i);
        for (std::size_t start = 0; start < left.size(); start += 64) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, values[i]);
            fx.controlTick();
            const int block = static_cast<int>(std::min<std::size_t>(64, left.size() - start));
            for (int done = 0; done < block; done += piece)
                fx.process(left.data() + start + done, right.data() + start + done,
                           std::min(piece, block - done));
        }
    }

    static void noise(std::vector<float>& left, std::vector<float>& right, std::size_t n, float level) {
        left.assign(n, 0.0f);
        right.assign(n, 0.0f);
        uint32_t seed = 777;
        for (std::size_t i = 0; i < n; ++i) {
            seed = seed * 1664525u + 1013904223u;
            left[i] = (static_cast<float>(seed >> 8) / 16777216.0f - 0.5f) * 2.0f * level;
            right[i] = left[i] * 0.8f;
        }
    }

    // Arpeggio steps in the order they happen, with the control tick at which each happened.
    static std::vector<std::pair<int, int>> steps(AFVocodil& fx, int ticks, int wanted) {
        std::vector<std::pair<int, int>> seen;
        std::vector<float> left(64, 0.0f), right(64, 0.0f);
        int last = -1000;
        for (int t = 0; t < ticks && static_cast<int>(seen.size()) < wanted; ++t) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, fx.getParameterValue(i));
            fx.controlTick();
            if (fx.getArpStep() != last) seen.emplace_back(fx.getArpStep(), t);
            last = fx.getArpStep();
            fx.process(left.data(), right.data(), 64);
        }
        return seen;
    }

    static std::vector<int> order(const std::vector<std::pair<int, int>>& seen) {
        std::vector<int> out;
        for (const auto& s : seen)
            out.push_back(s.first);
        return out;
    }
};

} // namespace

TEST_F(VocodilFixture, ChordNotesPerWordAndOctave) {
    const int bases[4] = {54, 60, 48, 42}; // "Note" 0.5 in "1 Hi", "2 Hi", "2 Low", "1 Low"
    for (int octave = 0; octave < 4; ++octave) {
        for (int chord = 0; chord < 8; ++chord) {
            auto fx = make(0.5f, 0.5f, 1.0f, 0.0f, 0, octave, chord);
            for (int j = 0; j < 32; ++j) {
                const double expected = j < 10 ? midiFrequency(bases[octave] + kChords[chord][j]) : 0.0;
                ASSERT_NEAR(fx->notes()[j], expected, 1e-3 * expected) << octave << " " << chord << " " << j;
            }
        }
    }
}

TEST_F(VocodilFixture, DetunedWavesFillAllVoicesWithAGrowingDetune) {
    auto fx = make(0.5f, 0.0f, 0.25f, 0.0f, 4, 0, 1); // "Saw2", three voices, "Min"
    ASSERT_EQ(fx->getVoiceCount(), 3);
    for (int j = 0; j < 32; ++j) {
        const double note = 48.0 + kChords[1][j % 3] + 0.5 + 0.01 * (j / 3);
        ASSERT_NEAR(fx->notes()[j], midiFrequency(note), 1e-3 * midiFrequency(note)) << j;
    }
}

TEST_F(VocodilFixture, VoiceGainsFollowSpreadWaveAndArpeggio) {
    const auto gains = [&](float spread, int wave, float arp, int mode) {
        auto fx = make(0.5f, 0.0f, spread, arp, wave, 0, 0, mode);
        return std::vector<float>(fx->voices().target, fx->voices().target + 32);
    };
    std::vector<float> one(32, 0.0f);
    one[0] = 1.0f;
    EXPECT_EQ(gains(0.0f, 0, 0.0f, 0), one);
    const std::vector<float> ten = gains(1.0f, 0, 0.0f, 0);
    for (int i = 0; i < 32; ++i)
        EXPECT_FLOAT_EQ(ten[i], i <= 5 ? 1.0f : (i < 10 ? 1.0f - (i - 5) * 0.02f : 0.0f)) << i;
    const std::vector<float> all = gains(0.0f, 5, 0.0f, 0);
    EXPECT_FLOAT_EQ(all[31], 1.0f - 26 * 0.02f);
    const auto voices = [](const std::vector<float>& g) {
        return std::count_if(g.begin(), g.end(), [](float v) { return v > 0; });
    };
    EXPECT_EQ(voices(gains(1.0f, 0, 0.5f, 0)), 1);
    EXPECT_EQ(voices(gains(1.0f, 0, 0.5f, 3)), 2);
    EXPECT_EQ(voices(gains(1.0f, 4, 0.5f, 1)), 3);
    EXPECT_EQ(voices(gains(1.0f, 4, 0.5f, 5)), 6);
}

TEST_F(VocodilFixture, ArpeggioStepsPerModeOnTheSixteenthClock) {
    // Four voices; "1\16" at 120 BPM and 48 kHz is 6000 samples: the first step at once, then every 6000
    // samples counted in the 64-sample blocks that have passed.
    const auto run = [&](int mode, int wanted) {
        auto fx = make(0.5f, 0.0f, 0.35f, 0.5f, 0, 0, 0, mode);
        EXPECT_EQ(fx->getArpLength(), 6000u);
        return steps(*fx, 20000, wanted);
    };
    const auto up = run(0, 6);
    EXPECT_EQ(order(up), (std::vector<int>{0, 1, 2, 3, 0, 1}));
    EXPECT_EQ(up[0].second, 0);
    EXPECT_EQ(up[1].second, 94);  // 94 * 64 = 6016 >= 6000
    EXPECT_EQ(up[2].second, 188); // 16 samples carried over
    EXPECT_EQ(order(run(1, 6)), (std::vector<int>{3, 2, 1, 0, 3, 2}));
    EXPECT_EQ(order(run(2, 18)), (std::vector<int>{0, 1, 2, 3, 2, 1, 0, 1, 2, 3, 2, 1, 0, 1, 2, 0, 1, 2}));
    EXPECT_EQ(order(run(3, 5)), (std::vector<int>{0, 1, 2, 3, 0}));
    EXPECT_EQ(order(run(4, 5)), (std::vector<int>{3, 2, 1, 0, 3}));
    EXPECT_EQ(order(run(5, 9)), (std::vector<int>{0, 1, 2, 1, 0, 1, 2, 1, 0}));
}

TEST_F(VocodilFixture, TwoNoteModesSoundTheNextStepToo) {
    auto fx = make(0.5f, 0.0f, 0.35f, 0.5f, 0, 0, 0, 3);
    const auto seen = steps(*fx, 20000, 4);
    ASSERT_EQ(order(seen), (std::vector<int>{0, 1, 2, 3}));
    // At the last step the second note is the one below it.
    EXPECT_EQ(fx->arpeggio()[0], fx->notes()[3]);
    EXPECT_EQ(fx->arpeggio()[1], fx->notes()[2]);
    auto detuned = make(0.5f, 0.0f, 0.35f, 0.5f, 4, 0, 0, 3);
    steps(*detuned, 1, 1);
    const float* arp = detuned->arpeggio();
    const float* notes = detuned->notes();
    EXPECT_EQ(arp[0], notes[0]);
    EXPECT_EQ(arp[1], notes[4]);
    EXPECT_EQ(arp[2], notes[8]);
    EXPECT_EQ(arp[3], notes[1]);
    EXPECT_EQ(arp[4], notes[5]);
    EXPECT_EQ(arp[5], notes[9]);
}

TEST_F(VocodilFixture, TriggerModesAdvanceOncePerRise) {
    auto fx = make(0.5f, 0.0f, 0.35f, 0.0f, 0, 0, 0, 6); // "TrigUp"
    char name[kEffectTextSize];
    fx->getParameterName(3, name);
    EXPECT_STREQ(name, "Active");
    const auto hold = [&](float trigger, int ticks) {
        fx->setParameter(3, trigger);
        steps(*fx, ticks, 1000);
        return fx->getArpStep();
    };
    EXPECT_EQ(hold(0.0f, 10), 3);
    EXPECT_EQ(hold(0.8f, 1), 0);
    EXPECT_EQ(hold(0.8f, 200), 0); // held: no further step
    EXPECT_EQ(hold(0.2f, 5), 0);   // re-armed, nothing else
    EXPECT_EQ(hold(0.9f, 50), 1);
    fx->setOption(3, 7); // "TrigDown"
    fx->activate();
    EXPECT_EQ(hold(0.2f, 2), 0);
    EXPECT_EQ(hold(0.9f, 2), 3);
    fx->setOption(3, 0);
    fx->getParameterName(3, name);
    EXPECT_STREQ(name, "Arp");
}

TEST_F(VocodilFixture, DisplayTexts) {
    auto fx = make(0.4197960f, 0.0f, 0.8f, 0.0f);
    char text[kEffectTextSize];
    fx->formatParameter(0, fx->getParameterValue(0), text);
    EXPECT_STREQ(text, " 42");
    fx->formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "C2");
    fx->formatParameter(2, 0.8f, text);
    EXPECT_STREQ(text, "8 ");
    fx->formatParameter(2, 0.0f, text);
    EXPECT_STREQ(text, "1 ");
    fx->formatParameter(3, 0.0f, text);
    EXPECT_STREQ(text, "Off");
    fx->formatParameter(3, 0.5f, text);
    EXPECT_STREQ(text, "1\\16");
    fx->setOption(1, 1);
    fx->formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "C4");
    fx->setOption(3, 9);
    fx->formatParameter(3, 0.6f, text);
    EXPECT_STREQ(text, "On");
    fx->formatParameter(3, 0.5f, text);
    EXPECT_STREQ(text, "Off");
    AFVocodil fresh(19, &system, 0);
    EXPECT_FLOAT_EQ(fresh.getParameterValue(0), 0.4197960f);
    EXPECT_FLOAT_EQ(fresh.getParameterValue(2), 0.8f);
    EXPECT_EQ(fresh.getParameterValue(1), 0.0f);
    EXPECT_EQ(fresh.getParameterValue(3), 0.0f);
    EXPECT_TRUE(fresh.hasFlag());
}

TEST_F(VocodilFixture, SilenceInSilenceOutWhileTheOscillatorsRun) {
    auto fx = make(0.5f, 0.3f, 0.8f, 0.0f);
    std::vector<float> left(4800, 0.0f), right(4800, 0.0f);
    drive(*fx, left, right);
    for (std::size_t i = 0; i < left.size(); ++i)
        ASSERT_EQ(left[i], 0.0f) << i;
    noise(left, right, 4800, 0.5f);
    drive(*fx, left, right);
    double energy = 0.0;
    for (float v : left)
        energy += v * v;
    EXPECT_GT(energy, 1e-3);
    // Envelopes fall to zero within their release and the output is silent again.
    std::vector<float> quiet(9600, 0.0f), quietR(9600, 0.0f);
    drive(*fx, quiet, quietR);
    for (std::size_t i = 4800; i < quiet.size(); ++i)
        ASSERT_EQ(quiet[i], 0.0f) << i;
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(fx->envelope(0)[i], 0.0f);
}

TEST_F(VocodilFixture, EnvelopesClimbAndFallInStraightLinesWithTheRightChannelLifted) {
    auto fx = make(0.5f, 0.0f, 0.8f, 0.0f);
    // A tone at the centre of analysis band 5 (f = 0.06): its band output peaks near 0.5 / 0.25 = 2.
    const double centre = std::asin(0.06 / 2.0) / M_PI;
    std::vector<float> left(14400), right(14400);
    for (std::size_t i = 0; i < left.size(); ++i)
        left[i] = right[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * centre * i));
    drive(*fx, left, right);
    EXPECT_GT(fx->envelope(0)[5], 1.2f);
    EXPECT_EQ(fx->bandGains(0)[5], 1.0f);
    EXPECT_GT(fx->bandGains(1)[5], 1.0f);
    EXPECT_LE(fx->bandGains(1)[5], 1.2f);
    // Silence: after the band rings out, the level falls by the same amount every sample.
    std::vector<float> one(1), oneR(1);
    std::vector<float> levels;
    for (int t = 0; t < 20; ++t) {
        fx->controlTick();
        for (int s = 0; s < 64; ++s) {
            one[0] = oneR[0] = 0.0f;
            fx->process(one.data(), oneR.data(), 1);
            if (t >= 6) levels.push_back(fx->envelope(0)[5]);
        }
    }
    ASSERT_GT(levels.back(), 0.0f);
    const float fall = levels[0] - levels[1];
    EXPECT_GT(fall, 0.0f);
    for (std::size_t i = 1; i + 1 < levels.size(); ++i)
        ASSERT_NEAR(levels[i] - levels[i + 1], fall, 1e-6f) << i;
    // "Sound" 0.5: k = 0.25, so the rate is twice the nominal 70 ms one.
    const float rate = 1.0f / (48.0f * 70.0f) * 2.0f;
    EXPECT_GT(fall / rate, levels[0]); // the fall started from the level the climb topped out at
}

TEST_F(VocodilFixture, LoudInputInAllBandsIsTrimmedEqually) {
    auto fx = make(0.5f, 0.0f, 0.8f, 0.0f);
    std::vector<float> left, right;
    noise(left, right, 4800, 4.0f);
    drive(*fx, left, right);
    for (int channel = 0; channel < 2; ++channel) {
        const float* env = fx->envelope(channel);
        double total = 0.0;
        for (int i = 0; i < 32; ++i)
            total += env[i];
        ASSERT_GT(total, 2.0);
        const double excess = (total - 2.0) * -0.03125;
        const double limit = channel == 0 ? 1.0 : 1.2;
        for (int i = 0; i < 32; ++i)
            EXPECT_NEAR(fx->bandGains(channel)[i], std::clamp(env[i] + excess, 0.0, limit), 1e-4)
                << channel << " " << i;
    }
}

TEST_F(VocodilFixture, HostileValuesStayInside) {
    auto fx = make(0.5f, 0.5f, 0.5f, 0.5f);
    fx->setOption(0, 99);
    fx->setOption(1, -1);
    fx->setOption(2, 1000);
    fx->setOption(3, -50);
    fx->setOption(4, 3);
    EXPECT_EQ(fx->getOption(0), 7);
    EXPECT_EQ(fx->getOption(1), 0);
    EXPECT_EQ(fx->getOption(2), 7);
    EXPECT_EQ(fx->getOption(3), 0);
    EXPECT_EQ(fx->getOption(4), 0);
    const float hostile[] = {-1e9f, 1e9f, std::numeric_limits<float>::quiet_NaN(), -0.5f, 3.0f};
    std::vector<float> left, right;
    for (int mode : {0, 2, 5, 8, 11}) {
        fx->setOption(3, mode);
        for (float v : hostile) {
            for (int i = 0; i < 4; ++i)
                fx->setParameter(i, v);
            noise(left, right, 640, 1.0f);
            drive(*fx, left, right);
            for (std::size_t i = 0; i < left.size(); ++i)
                ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i]));
            EXPECT_GE(fx->getArpStep(), -2);
            EXPECT_LT(fx->getArpStep(), 32);
        }
    }
}

TEST_F(VocodilFixture, DeterministicAndIndependentOfPieceSize) {
    std::vector<float> l1, r1;
    noise(l1, r1, 6000, 0.7f);
    std::vector<float> l2 = l1, r2 = r1, l3 = l1, r3 = r1;
    auto a = make(0.6f, 0.2f, 0.7f, 0.45f, 5, 2, 3, 4);
    drive(*a, l1, r1);
    drive(*make(0.6f, 0.2f, 0.7f, 0.45f, 5, 2, 3, 4), l2, r2, 13);
    a->activate();
    drive(*a, l3, r3, 1);
    EXPECT_EQ(l1, l2);
    EXPECT_EQ(r1, r2);
    EXPECT_EQ(l1, l3);
    EXPECT_EQ(r1, r3);
}
