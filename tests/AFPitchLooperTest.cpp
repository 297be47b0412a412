#include "PitchMeasure.h"
#include "SlotDriver.h"
#include "effects/framework/EffectFactory.h"
#include "effects/framework/TimeValueTables.h"
#include "effects/loop/AFPitchLooper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace {

constexpr int kType = 2;

float pitchValue(int semitones) {
    return 0.5f + static_cast<float>(semitones) / 24.0f;
}

struct Looper {
    slot::Rig rig;
    AFPitchLooper looper{kType, &rig.system, 0};
    Looper(float rate, double bpm) : rig(rate, bpm) {}
    slot::Stereo run(const std::vector<float>& input, float size, int semitones, float decay = 1.0f) {
        slot::Stereo in(static_cast<int>(input.size()));
        in.left = input;
        in.right = input;
        looper.setParameter(0, size);
        looper.setParameter(1, pitchValue(semitones));
        looper.setParameter(3, decay);
        looper.controlTick();
        looper.activate();
        return slot::drive(looper, in, [](int, std::array<float, 4>&) {});
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
            std::printf("%d %d %.3f %.1f\n", interval, repeat, pitchmeasure::cents(tone.hz, want), tone.spuriousDb);
            EXPECT_GT(tone.spuriousDb, 40.0) << interval << " repeat " << repeat;
        }
    }
}
