#include "effects/loop/AFPitchLooper.h"
#include "PitchMeasure.h"
#include "SlotDriver.h"
#include "effects/framework/EffectFactory.h"
#include "effects/framework/TimeValueTables.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr int kType = 2;

float pitchValue(int semitones) {
    return 0.5f + static_cast<float>(semitones) / 24.0f;
}

struct Looper {
    slot::Rig rig;
    AFPitchLooper looper{kType, &rig.system, 0};
    Looper(float rate, double bpm) : rig(rate, bpm) {}
    slot::Stereo run(const std::vector<float>& input, float size, int semitones, float decay = 1.0f,
                     uint32_t pieces = 0) {
        slot::Stereo in(static_cast<int>(input.size()));
        in.left = input;
        in.right = input;
        looper.setParameter(0, size);
        looper.setParameter(1, pitchValue(semitones));
        looper.setParameter(3, decay);
        looper.controlTick();
        looper.activate();
        return slot::drive(
            looper, in, [](int, std::array<float, 4>&) {}, pieces);
    }
};

} // namespace

// Each repeat of a steady sine is one interval further than the one before, within a cent, the octave stack
// starting again from the original; the tone stays far above what the shifting adds.
TEST(AFPitchLooper, RepeatsStackTheIntervalWithinACent) {
    const double rate = 48000.0;
    for (const int interval : {-12, -7, -1, 1, 2, 5, 12}) {
        Looper l(48000.0f, 120.0);
        const double hz = 440.0;
        const auto input = pitchmeasure::sine(48000 * 6, hz, rate, 0.5f);
        const auto out = l.run(input, 0.0f, interval); // "1\2": two beats, 48000 samples
        for (int repeat = 1; repeat < 5; ++repeat) {
            int stack = repeat % (12 / std::abs(interval) + 1);
            const double want = hz * std::exp2(stack * interval / 12.0);
            const auto tone = pitchmeasure::measure(out.left, repeat * 48000 + 12000, rate);
            EXPECT_NEAR(pitchmeasure::cents(tone.hz, want), 0.0, 1.0) << interval << " repeat " << repeat;
            EXPECT_GT(tone.spuriousDb, 60.0) << interval << " repeat " << repeat;
        }
    }
}

// Every repeat starts on its grid: the n-th at the sum of the lengths before it, rounded up to the sample,
// for each sync word and swing word at several rates and tempos.
TEST(AFPitchLooper, RepeatsStartToTheSample) {
    const std::array<std::array<double, 3>, 5> shares{{{1.0, 1.0, 1.0},
                                                       {1.5, 0.5, 1.0},
                                                       {2.0 / 3.0, 2.0 / 3.0, 2.0 / 3.0},
                                                       {4.0 / 3.0, 2.0 / 3.0, 1.0},
                                                       {1.2, 0.8, 1.0}}};
    const std::array<int, 5> steps{1, 2, 3, 2, 2};
    for (const float rate : {44100.0f, 96000.0f}) {
        for (const double bpm : {90.0, 133.0}) {
            for (int sync = 0; sync < 3; ++sync) {
                for (int swing = 0; swing < 5; ++swing) {
                    Looper l(rate, bpm);
                    l.looper.setOption(0, sync);
                    l.looper.setOption(3, swing);
                    const float size = 0.6f;
                    l.looper.setParameter(0, size);
                    l.looper.controlTick();
                    l.looper.activate();
                    const double length = l.looper.getLength();
                    std::vector<float> input(static_cast<std::size_t>(length * 7.0), 0.0f);
                    input[100] = 1.0f;
                    const auto out = l.run(input, size, 0, 1.0f, 11);
                    double start = 0.0;
                    for (int repeat = 0; repeat < 6; ++repeat) {
                        const auto at = static_cast<std::size_t>(std::ceil(start)) + 100;
                        EXPECT_FLOAT_EQ(out.left[at], 1.0f)
                            << rate << " " << bpm << " " << sync << " " << swing << " repeat " << repeat;
                        EXPECT_EQ(out.left[at - 1], 0.0f);
                        start += length * shares[static_cast<std::size_t>(swing)][static_cast<std::size_t>(
                                              repeat % steps[static_cast<std::size_t>(swing)])];
                    }
                }
            }
        }
    }
}

// Repeat boundaries are faded: around each, in steps and in glides, no sample step is more than twice the
// largest step of the input.
TEST(AFPitchLooper, BoundariesNeverClick) {
    const double rate = 48000.0;
    for (int glide = 0; glide < 2; ++glide) {
        for (int swing = 0; swing < 5; ++swing) {
            Looper l(48000.0f, 120.0);
            l.looper.setOption(1, glide);
            l.looper.setOption(3, swing);
            const auto input = pitchmeasure::sine(48000 * 4, 440.0, rate, 0.5f);
            double inputStep = 0.0;
            for (std::size_t i = 1; i < input.size(); ++i)
                inputStep = std::max(inputStep, std::fabs(static_cast<double>(input[i]) - input[i - 1]));
            const auto out = l.run(input, 0.5f, 7, 0.8f, 5); // "1\8" loops a fifth apart
            double worst = 0.0;
            for (std::size_t i = 1; i < out.left.size(); ++i)
                worst = std::max(worst, std::fabs(static_cast<double>(out.left[i]) - out.left[i - 1]));
            EXPECT_LE(worst, 2.0 * inputStep) << glide << " " << swing;
        }
    }
}

// Every display through formatParameter.
TEST(AFPitchLooper, Displays) {
    slot::Rig rig(48000.0f, 120.0);
    AFPitchLooper looper(kType, &rig.system, 0);
    char text[kEffectTextSize];
    looper.formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "1\\2");
    looper.setOption(0, 2);
    looper.formatParameter(0, 1.0f, text);
    EXPECT_STREQ(text, "500 ms");
    looper.formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "-12");
    looper.formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "0");
    looper.formatParameter(1, 0.5f + 7.0f / 24.0f, text);
    EXPECT_STREQ(text, "7");
    looper.formatParameter(2, 0.7f, text);
    EXPECT_STREQ(text, "On");
    looper.formatParameter(3, 0.25f, text);
    EXPECT_STREQ(text, "25.00");
}
