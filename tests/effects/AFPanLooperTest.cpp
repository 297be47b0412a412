#include "LoopTestSupport.h"
#include "SlotDriver.h"

#include "effects/loop/AFPanLooper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

slot::Stereo run(AFPanLooper& fx, const slot::Stereo& input, uint32_t pieces = 0) {
    fx.activate();
    return slot::drive(
        fx, input, [](int, std::array<float, 4>&) {}, pieces);
}

} // namespace

// Repeat n starts at the whole sample nearest n loop lengths, straight or swung, and replays the loop's
// start; the first pass is the input itself.
TEST(AFPanLooper, RepeatsStartOnTheirSamplesAtEveryRateTempoAndSwing) {
    for (const auto& s : kSetups) {
        slot::Rig rig(s.rate, s.bpm);
        AFPanLooper fx(12, &rig.system, 0);
        fx.setParameter(1, 0.0f);
        fx.setParameter(0, 0.5f); // "1\16"
        const double loop = static_cast<double>(rig.system.samplesPerBeat) * 0.25;
        const auto input = indexRamp(static_cast<int>(loop * 12));
        const auto out = run(fx, input, 5);
        for (int i = 0; i < static_cast<int>(loop) - 44; ++i)
            ASSERT_EQ(out.left[static_cast<std::size_t>(i)], input.left[static_cast<std::size_t>(i)]);
        for (int n = 1; n < 11; ++n)
            EXPECT_EQ(out.right[static_cast<std::size_t>(std::llround(n * loop) + 50)], 50.0f)
                << s.rate << " Hz " << s.bpm << " BPM repeat " << n;

        fx.setOption(3, 5); // "Shuffle": half a loop, then one and a half
        fx.setOption(0, 1);
        fx.setParameter(0, 0.35f); // "1\8" of the dotted table, in whole samples
        const double dotted = std::trunc(static_cast<double>(rig.system.samplesPerBeat) * 0.5);
        const auto swung = run(fx, indexRamp(static_cast<int>(dotted * 9)));
        const double starts[] = {0.5, 2.0, 2.5, 4.0, 4.5, 6.0};
        for (double start : starts)
            EXPECT_EQ(swung.left[static_cast<std::size_t>(std::llround(start * dotted) + 50)], 50.0f)
                << start;
    }
}

// "Pan" 1 throws the first repeat hard left, folding half the right channel in; "Pitch" in "Tone" transposes
// the outer places by its interval, down on the left and up on the right.
TEST(AFPanLooper, RepeatsWalkAcrossTheFieldAndPitchByTheirPlace) {
    slot::Rig rig(48000.0f, 120.0);
    AFPanLooper fx(12, &rig.system, 0);
    const int loop = 6000;
    auto input = indexRamp(loop * 8);
    for (auto& v : input.right)
        v *= 2.0f;
    fx.setParameter(1, 1.0f);
    auto out = run(fx, input);
    EXPECT_EQ(out.left[loop + 50], 50.0f + 0.5f * 100.0f);
    EXPECT_EQ(out.right[loop + 50], 0.0f);
    EXPECT_EQ(out.left[4 * loop + 50], 0.0f);
    EXPECT_EQ(out.right[4 * loop + 50], 100.0f + 0.5f * 50.0f);

    fx.setParameter(1, 0.0f);
    fx.setOption(2, 1);
    fx.setParameter(2, 1.0f); // an octave
    out = run(fx, input);
    EXPECT_EQ(out.left[loop + 50], 25.0f);
    EXPECT_EQ(out.left[2 * loop + 50], 50.0f);
    EXPECT_EQ(out.left[4 * loop + 50], 100.0f);

    fx.setOption(3, 2); // "3rd Off": every third repeat is left out
    out = run(fx, input);
    EXPECT_EQ(out.left[3 * loop + 50], 0.0f);
    EXPECT_EQ(out.left[5 * loop + 50], 50.0f);
    fx.setOption(3, 3); // "3rd On": only every third repeat moves, the first of them to the far left
    out = run(fx, input);
    EXPECT_EQ(out.left[loop + 50], 50.0f);
    EXPECT_EQ(out.left[3 * loop + 50], 25.0f);
}

// At every repeat boundary in every rhythm, pitch and size mode the output never steps further than twice
// the input does around it; pieces of any size give the same result.
TEST(AFPanLooper, RepeatBoundariesNeverClick) {
    slot::Rig rig(44100.0f, 133.0);
    const auto input = slot::testSignal(200000);
    for (int rhythm = 0; rhythm < 8; ++rhythm) {
        AFPanLooper fx(12, &rig.system, 0);
        fx.setOption(0, rhythm % 4);
        fx.setOption(2, rhythm & 1);
        fx.setOption(3, rhythm);
        fx.setParameter(1, 1.0f);
        fx.setParameter(2, static_cast<float>(rhythm) / 7.0f);
        fx.activate();
        const auto out = slot::drive(fx, input, [&](int tick, std::array<float, 4>& p) {
            p[0] = tick < 1500 ? 0.66f : 0.4f;
            if (tick == 2000) {
                rig.system.setTempo(151.0);
                fx.bpmChanged();
            }
        });
        int64_t where = 0;
        EXPECT_TRUE(slot::stepsStayWithinInput(input, out, where)) << "rhythm " << rhythm << " at " << where;
        rig.system.setTempo(133.0);
        fx.bpmChanged();
        AFPanLooper other(12, &rig.system, 0);
        for (int i = 0; i < 4; ++i)
            other.setOption(i, fx.getOption(i));
        for (int i = 0; i < 4; ++i)
            other.setParameter(i, 0.66f);
        other.setParameter(1, 1.0f);
        other.setParameter(2, static_cast<float>(rhythm) / 7.0f);
        other.setParameter(3, 1.0f);
        fx.setParameter(0, 0.66f);
        EXPECT_EQ(slot::maxDifference(run(other, input, 9), run(fx, input, 0)), 0.0) << rhythm;
    }
}

TEST(AFPanLooper, DisplaysLengthsSemitonesAndPercent) {
    slot::Rig rig(48000.0f, 120.0);
    AFPanLooper fx(12, &rig.system, 0);
    char text[kEffectTextSize];
    const auto shown = [&](int index, float value) {
        fx.formatParameter(index, value, text);
        return std::string(text);
    };
    EXPECT_EQ(shown(0, 0.5f), "1\\16");
    EXPECT_EQ(shown(1, 0.5f), "50.00");
    EXPECT_EQ(shown(2, 0.5f), "0.0");
    EXPECT_EQ(shown(2, 1.0f), "12.0");
    EXPECT_EQ(shown(3, 1.0f), "100.00");
    fx.setOption(0, 2);
    EXPECT_EQ(shown(0, 1.0f), "500 ms");
    fx.setOption(0, 1);
    EXPECT_EQ(shown(0, 0.0f), "1\\2P");
    fx.setOption(2, 1);
    EXPECT_EQ(shown(2, 0.875f), "7");
    EXPECT_EQ(shown(2, 0.0f), "-12");
}
