#include "effects/delay/AFPitchDelayT.h"
#include "PitchMeasure.h"
#include "SlotDriver.h"
#include "effects/framework/TimeValueTables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kType = 11;

struct Delay {
    slot::Rig rig;
    AFPitchDelayT delay{kType, &rig.system, 0};
    Delay(float rate, double bpm) : rig(rate, bpm) {}
    slot::Stereo run(const slot::Stereo& in, std::array<float, 4> p) {
        for (int i = 0; i < 4; ++i)
            delay.setParameter(i, p[static_cast<std::size_t>(i)]);
        delay.controlTick();
        delay.activate();
        return slot::drive(
            delay, in, [](int, std::array<float, 4>&) {}, 7);
    }
};

float pitchValue(int semitones) {
    return 0.5f + static_cast<float>(semitones) / 24.0f;
}

} // namespace

// A burst of sine comes back once per delay time, each echo one interval further, within a cent per echo,
// through the shifter alone, with a filter following or opposing it, and with the input filtered.
TEST(AFPitchDelayT, EachEchoStacksTheInterval) {
    const double rate = 48000.0;
    const int beat = 48000;
    for (const int word : {0, 1, 10, 20, 25}) {
        for (const int interval : {-5, 3, 7}) {
            Delay d(48000.0f, 60.0);
            d.delay.setOption(3, word);
            slot::Stereo in(beat * 4);
            const double hz = 1000.0;
            const auto burst = pitchmeasure::sine(beat / 2, hz, rate, 0.5f);
            std::copy(burst.begin(), burst.end(), in.left.begin());
            std::copy(burst.begin(), burst.end(), in.right.begin());
            // "1\4" on both sides: one beat.
            const auto out = d.run(in, {1.0f / 6.0f, 1.0f / 6.0f, 1.0f, pitchValue(interval)});
            for (int echo = 1; echo <= 3; ++echo) {
                const double want = hz * std::exp2(echo * interval / 12.0);
                const auto tone = pitchmeasure::measure(out.left, echo * beat + 4000, rate);
                EXPECT_NEAR(pitchmeasure::cents(tone.hz, want), 0.0, 1.0 * echo) << word << " " << interval;
                // The shifter adds next to nothing; only the resonant comb colours the tone.
                if (word != 10) {
                    EXPECT_GT(tone.spuriousDb, 60.0) << word << " " << interval << " " << echo;
                }
            }
        }
    }
}

// At the centre of "Pitch" an impulse comes back after exactly the time of every sync word, on each side.
TEST(AFPitchDelayT, DelayTimesToTheSample) {
    for (const auto& [rate, bpm] : {std::pair{44100.0f, 133.0}, std::pair{96000.0f, 90.0}}) {
        {
            for (int mode = 0; mode < 3; ++mode) {
                const int rows = mode == 0 ? 7 : mode == 1 ? 21 : 5;
                for (int row = 0; row < rows; ++row) {
                    const float value = static_cast<float>(row) / static_cast<float>(rows - 1);
                    Delay d(rate, bpm);
                    d.delay.setOption(0, mode);
                    d.delay.setOption(1, mode);
                    const uint32_t left = d.delay.delayFor(0, value);
                    const uint32_t right = d.delay.delayFor(1, 1.0f - value);
                    slot::Stereo in(static_cast<int>(std::max(left, right)) + 200);
                    in.left[3] = 1.0f;
                    in.right[3] = 1.0f;
                    const auto out = d.run(in, {value, 1.0f - value, 0.0f, 0.5f});
                    const auto peak = [](const std::vector<float>& s) {
                        return std::max_element(s.begin(), s.end()) - s.begin();
                    };
                    EXPECT_EQ(peak(out.left), 3 + left) << rate << " " << bpm << " " << mode << " " << row;
                    EXPECT_EQ(peak(out.right), 3 + right) << rate << " " << bpm << " " << mode << " " << row;
                    EXPECT_NEAR(out.left[3 + left], 1.0f, 1e-6f);
                }
            }
        }
    }
}

// The rhythm words open and close the way into the delay without a click: no output step is more than twice
// the largest step of the input.
TEST(AFPitchDelayT, RhythmGateNeverClicks) {
    const double rate = 48000.0;
    const auto sine = pitchmeasure::sine(48000 * 2, 440.0, rate, 0.5f);
    double inputStep = 0.0;
    for (std::size_t i = 1; i < sine.size(); ++i)
        inputStep = std::max(inputStep, std::fabs(static_cast<double>(sine[i]) - sine[i - 1]));
    for (int word = 1; word < 10; ++word) {
        Delay d(48000.0f, 120.0);
        d.delay.setOption(2, word);
        slot::Stereo in(static_cast<int>(sine.size()));
        in.left = sine;
        in.right = sine;
        const auto out = d.run(in, {0.5f, 0.6f, 0.0f, 0.5f});
        double worst = 0.0;
        for (std::size_t i = 1; i < out.left.size(); ++i)
            worst = std::max(worst, std::fabs(static_cast<double>(out.left[i]) - out.left[i - 1]));
        EXPECT_LE(worst, 2.0 * inputStep) << word;
        EXPECT_GT(worst, 0.5 * inputStep) << word;
    }
}

// A restart forgets what the lines held, and so does the next Pitch Delay built on the lines this one leaves,
// whether the run before stayed short of the line's end or wrapped round it: at the slowest tempo and the
// longest time, silence in gives exact silence out.
TEST(AFPitchDelayT, RestartForgetsTheOldAudio) {
    const std::array<float, 4> longest{1.0f, 1.0f, 1.0f, 0.75f};
    const int heard = 48000 * 5;
    const auto silent = [&](const slot::Stereo& out) {
        return std::count(out.left.begin(), out.left.end(), 0.0f) == heard &&
               std::count(out.right.begin(), out.right.end(), 0.0f) == heard;
    };
    for (const int played : {48000 * 3, static_cast<int>(AFPitchDelayT::kLineSize) + 48000}) {
        {
            Delay d(48000.0f, 45.0);
            d.run(slot::testSignal(played), longest);
            EXPECT_TRUE(silent(d.run(slot::Stereo(heard), longest))) << played;
            d.run(slot::testSignal(played), longest);
        }
        Delay next(48000.0f, 45.0);
        EXPECT_TRUE(silent(next.run(slot::Stereo(heard), longest))) << played;
    }
}

TEST(AFPitchDelayT, Displays) {
    slot::Rig rig(48000.0f, 120.0);
    AFPitchDelayT delay(kType, &rig.system, 0);
    char text[kEffectTextSize];
    delay.formatParameter(0, 1.0f / 6.0f, text);
    EXPECT_STREQ(text, "1\\4");
    delay.setOption(1, 1);
    delay.formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "1\\2P");
    delay.setOption(1, 2);
    delay.formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "500 ms");
    delay.formatParameter(2, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    delay.formatParameter(3, 0.75f, text);
    EXPECT_STREQ(text, "6");
    delay.setOption(3, 13); // "LP": the knob sweeps the loop filter instead
    delay.formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "17420 Hz");
}
