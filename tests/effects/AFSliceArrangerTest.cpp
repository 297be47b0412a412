#include "LoopTestSupport.h"
#include "SlotDriver.h"

#include "effects/loop/AFSliceArranger.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

int64_t boundary(const AFSystemInfo& system, int step) {
    return std::llround(static_cast<double>(system.samplesPerBeat) * 0.25 * step);
}

slot::Stereo run(AFSliceArranger& fx, const slot::Stereo& input, uint32_t pieces = 0) {
    fx.activate();
    return slot::drive(
        fx, input, [](int, std::array<float, 4>&) {}, pieces);
}

} // namespace

// The first bar is the input itself up to the first moved step; from the second bar each step starts on the
// sixteenth grid and replays the slice the first pattern names, at every rate and tempo.
TEST(AFSliceArranger, SlicesFallOnTheSixteenthGridToTheSample) {
    constexpr int kPattern0[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 12, 13};
    for (const auto& s : kSetups) {
        slot::Rig rig(s.rate, s.bpm);
        AFSliceArranger fx(17, &rig.system, 0);
        const int64_t bar = boundary(rig.system, 16);
        const auto input = indexRamp(static_cast<int>(2 * bar + 100));
        const auto out = run(fx, input, 7);
        // Step 13 fades out over its last 44 samples into the moved step 14.
        for (int64_t i = 0; i < boundary(rig.system, 14) - 44; ++i)
            ASSERT_EQ(out.left[static_cast<std::size_t>(i)], input.left[static_cast<std::size_t>(i)]) << i;
        for (int k = 0; k < 16; ++k) {
            const auto at = static_cast<std::size_t>(boundary(rig.system, 16 + k) + 50);
            EXPECT_EQ(out.left[at], static_cast<float>(boundary(rig.system, kPattern0[k]) + 50))
                << s.rate << " Hz " << s.bpm << " BPM step " << k;
        }
        // "2 Bars" captures twice as long before the second cycle starts.
        fx.setOption(3, 1);
        const auto twoBars = indexRamp(static_cast<int>(3 * bar));
        const auto out2 = run(fx, twoBars);
        const auto wrap = static_cast<std::size_t>(boundary(rig.system, 32) + 50);
        EXPECT_EQ(out2.left[wrap], 50.0f);
        EXPECT_EQ(out2.left[static_cast<std::size_t>(boundary(rig.system, 30) + 50)],
                  static_cast<float>(boundary(rig.system, 28) + 50));
    }
}

// Started 0.4 of a sixteenth past the ninth sixteenth of the bar, the capture takes the rest of that
// sixteenth, the remaining steps of the bar and, from the bar line, the first half of the next, then the
// ninth step whole.
TEST(AFSliceArranger, AMidBarStartKeepsToTheSongsBar) {
    slot::Rig rig(48000.0f, 120.0);
    rig.system.ppqPosition = 2.1f;
    AFSliceArranger fx(17, &rig.system, 0);
    const auto out = run(fx, indexRamp(240000));
    const int64_t barLine = 3600 + 7 * 6000;
    EXPECT_EQ(out.left[static_cast<std::size_t>(barLine + 96000 + 8 * 6000 + 50)], 93650.0f);
    EXPECT_EQ(out.left[static_cast<std::size_t>(barLine + 96000 + 14 * 6000 + 50)], 3600.0f + 3 * 6000 + 50);
    EXPECT_EQ(fx.currentStep(), static_cast<int>((240000 - barLine) / 6000 % 16));
}

// Which captured sample step 14 of the second bar starts with, for each character.
TEST(AFSliceArranger, CharactersChooseTransposeAndReverseTheMovedSlices) {
    slot::Rig rig(48000.0f, 120.0);
    const int64_t slice = boundary(rig.system, 1); // 6000 samples
    const int64_t bar = 16 * slice;
    const int64_t at = bar + 14 * slice + 50;

    auto input = indexRamp(static_cast<int>(2 * bar));
    AFSliceArranger fx(17, &rig.system, 0);
    fx.setOption(0, 3); // "Pitch Down": half speed
    EXPECT_EQ(run(fx, input).left[static_cast<std::size_t>(at)], static_cast<float>(12 * slice + 25));
    fx.setOption(0, 4); // "Pitch Up": double speed
    EXPECT_EQ(run(fx, input).left[static_cast<std::size_t>(at)], static_cast<float>(12 * slice + 100));
    fx.setOption(0, 6); // "Reverse": from the slice's last sample down
    EXPECT_EQ(run(fx, input).left[static_cast<std::size_t>(at)], static_cast<float>(13 * slice - 1 - 50));

    // A deep 50 Hz tone in slice 5 and a mid-band tone in slice 9 over quiet high noise elsewhere: "More
    // Bass" moves the bass slice to step 14, "More Snare" the mid one.
    slot::Stereo tones(static_cast<int>(2 * bar));
    uint32_t seed = 7;
    for (int64_t i = 0; i < 2 * bar; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const auto k = static_cast<std::size_t>(i);
        const int64_t sliceIndex = (i % bar) / slice;
        float v = 0.02f * (static_cast<float>(seed >> 8) / 16777216.0f - 0.5f);
        if (sliceIndex == 5) v += 0.8f * std::sin(0.0065449847f * static_cast<float>(i));
        if (sliceIndex == 9) v += 0.5f * std::sin(0.2617994f * static_cast<float>(i));
        tones.left[k] = tones.right[k] = v;
    }
    fx.setOption(0, 1);
    EXPECT_EQ(run(fx, tones).left[static_cast<std::size_t>(at)],
              tones.left[static_cast<std::size_t>(5 * slice + 50)]);
    fx.setOption(0, 2);
    EXPECT_EQ(run(fx, tones).left[static_cast<std::size_t>(at)],
              tones.left[static_cast<std::size_t>(9 * slice + 50)]);
}

// At every slice edge, loop wrap and gate of every character, fill style and decay, the output never steps
// further than twice the input does around it; pieces of any size give the same result.
TEST(AFSliceArranger, SliceEdgesNeverClick) {
    slot::Rig rig(44100.0f, 133.0);
    const int64_t bars = boundary(rig.system, 16);
    const auto input = slot::testSignal(static_cast<int>(5 * bars));
    for (int character = 0; character < 8; ++character) {
        for (int style = 0; style < 6; ++style) {
            AFSliceArranger fx(17, &rig.system, 0);
            fx.setOption(0, character);
            fx.setOption(1, style);
            fx.setOption(2, (style + 3) % 6);
            fx.setOption(3, style & 1);
            fx.setParameter(0, static_cast<float>(style) / 5.0f);
            fx.setParameter(1, 1.0f);
            fx.setParameter(2, 0.7f);
            fx.setParameter(3, character % 2 == 0 ? 1.0f : 0.4f);
            const auto out = run(fx, input);
            int64_t where = 0;
            ASSERT_TRUE(slot::stepsStayWithinInput(input, out, where))
                << "character " << character << " style " << style << " at " << where;
            if (style == 0) {
                AFSliceArranger other(17, &rig.system, 0);
                for (int i = 0; i < 4; ++i)
                    other.setOption(i, fx.getOption(i));
                for (int i = 0; i < 4; ++i)
                    other.setParameter(i, fx.getParameterValue(i));
                EXPECT_EQ(slot::maxDifference(run(other, input, 11), out), 0.0) << character;
            }
        }
    }
}

TEST(AFSliceArranger, DisplaysPatternNumbersFillsAndPercent) {
    slot::Rig rig(48000.0f, 120.0);
    AFSliceArranger fx(17, &rig.system, 0);
    char text[kEffectTextSize];
    const auto shown = [&](int index, float value) {
        fx.formatParameter(index, value, text);
        return std::string(text);
    };
    EXPECT_EQ(shown(0, 0.0f), "1");
    EXPECT_EQ(shown(0, 0.5f), "7");
    EXPECT_EQ(shown(0, 1.0f), "13");
    EXPECT_EQ(shown(1, 0.0f), "Off");
    EXPECT_EQ(shown(2, 0.25f), "25.00");
    EXPECT_EQ(shown(3, 1.0f), "100.00");
}
