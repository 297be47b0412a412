#include "modulation/AFStepSequencer.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

struct AFStepSequencerTest : ::testing::Test {
    AFSystemInfo system{64.0f, nullptr};
    const TimeValueTable& list = TimeValueTables::instance().lfoSyncTable;

    void SetUp() override {
        system.setControlInterval(64);
        system.setSampleRate(48000.0f);
        system.setTempo(120.0);
    }

    std::string text(AFStepSequencer& seq, int index, float value) {
        char buffer[kEffectTextSize];
        seq.formatParameter(index, value, buffer);
        return buffer;
    }

    // A ramp pattern 1/16 .. 16/16, so every step is recognisable.
    static void fillRamp(AFStepSequencer& seq) {
        for (uint32_t c = 0; c < 16; ++c)
            seq.getTable().setValue(0, c, static_cast<float>(c + 1) / 16.0f);
    }
};

} // namespace

TEST_F(AFStepSequencerTest, StartValuesAndDisplays) {
    AFStepSequencer seq(&system, list);
    EXPECT_STREQ(seq.getName(), "AFStepSequencer");
    EXPECT_FLOAT_EQ(seq.getRate(), 0.1f);
    EXPECT_FLOAT_EQ(seq.getOffset(), 0.0f);
    EXPECT_EQ(seq.getPosition(), 0.0);
    EXPECT_EQ(seq.getTable().getColumnCount(), 16u);
    EXPECT_EQ(seq.getTable().getRowCount(), 1u);
    EXPECT_EQ(text(seq, 0, 2.0f / 9.0f), list.valueName(2.0f / 9.0f));
    EXPECT_EQ(text(seq, 1, 0.125f), "12.50 %");
    EXPECT_EQ(text(seq, 1, 0.0f), "0.00 %");
    EXPECT_EQ(text(seq, 1, 1.0f), "100.00 %");
}

TEST_F(AFStepSequencerTest, RateFollowsTheListAndOffsetIsScaled) {
    AFStepSequencer seq(&system, list);
    for (int i = 1; i < list.count(); ++i) {
        const float v = static_cast<float>(i) / static_cast<float>(list.count() - 1);
        seq.setParameter(0, v);
        const auto samples = static_cast<uint32_t>(system.samplesPerBeat * list.at(i).length);
        EXPECT_FLOAT_EQ(seq.getRate(), 48000.0f / (2.0f * static_cast<float>(samples))) << list.at(i).text;
    }
    // "Off" has no length: the pattern stands.
    seq.setParameter(0, 0.0f);
    EXPECT_EQ(seq.getRate(), 0.0f);
    seq.setParameter(1, 0.5f);
    EXPECT_FLOAT_EQ(seq.getOffset(), 3.0f);
    seq.setParameter(1, 0.0f);
    EXPECT_FLOAT_EQ(seq.getOffset(), 0.5f);
}

TEST_F(AFStepSequencerTest, TicksWalkThePatternAgainstAReference) {
    AFStepSequencer seq(&system, list);
    fillRamp(seq);
    seq.getTable().setGlide(0, 6, 1);
    const float v = 8.0f / static_cast<float>(list.count() - 1);
    seq.setParameter(0, v);
    seq.setParameter(1, 0.3f);
    const double rate = seq.getRate();
    const double offset = 0.3f * 5.0f + 0.5f;
    double position = 0.0;
    for (int t = 0; t < 3000; ++t) {
        position += 64.0 / 48000.0 * rate;
        while (position > 16.0)
            position -= 16.0;
        double p = offset + position;
        if (p >= 16.0) p -= 16.0;
        // The lookup takes its position in single precision.
        const auto pf = static_cast<float>(p);
        const int i = static_cast<int>(pf);
        double expected = (i + 1) / 16.0;
        if (i == 6) expected += (1.0 / 16.0) * (pf - 6.0);
        ASSERT_NEAR(seq.tick(), expected, 1e-5) << "tick " << t;
    }
    seq.reset();
    EXPECT_EQ(seq.getPosition(), 0.0);
}

TEST_F(AFStepSequencerTest, ExactlySixteenIsNotWrappedAndLastStepGlidesToFirst) {
    // 65536 Hz at 120 BPM: "2 bars" is 2^18 samples, the rate 1/8 step per second, a tick 2^-13 of a step,
    // so the position lands on whole steps exactly.
    ASSERT_TRUE(system.setSampleRate(65536.0f));
    system.setTempo(120.0);
    AFStepSequencer seq(&system, list);
    fillRamp(seq);
    seq.getTable().setGlide(0, 15, 1);
    seq.setParameter(0, 1.0f / static_cast<float>(list.count() - 1));
    ASSERT_EQ(seq.getRate(), 0.125f);
    seq.setParameter(1, 0.0f);
    float value = 0.0f;
    for (int t = 0; t < 15 * 8192; ++t)
        value = seq.tick();
    // p = 0.5 + 15: halfway from the last step to the first.
    EXPECT_EQ(seq.getPosition(), 15.0);
    EXPECT_FLOAT_EQ(value, (1.0f + 1.0f / 16.0f) / 2.0f);
    for (int t = 0; t < 8192; ++t)
        value = seq.tick();
    EXPECT_EQ(seq.getPosition(), 16.0);
    EXPECT_FLOAT_EQ(value, 1.0f / 16.0f);
    seq.tick();
    EXPECT_EQ(seq.getPosition(), 1.0 / 8192.0);
}

TEST_F(AFStepSequencerTest, QuantizeUsesWholeNumberDivision) {
    AFStepSequencer seq(&system, list);
    seq.setParameter(0, 0.0f);
    const auto valueWith = [&](float cell, int32_t q) {
        for (uint32_t c = 0; c < 16; ++c)
            seq.getTable().setValue(0, c, cell);
        seq.setQuantizeSteps(q);
        return seq.tick();
    };
    EXPECT_EQ(valueWith(0.6f, 4), 0.0f);
    EXPECT_EQ(valueWith(0.9f, 4), 1.0f);
    EXPECT_EQ(valueWith(1.0f, 4), 1.0f);
    EXPECT_EQ(valueWith(0.7f, 1), 1.0f);
    EXPECT_EQ(valueWith(0.6f, 1), 0.0f);
    EXPECT_EQ(valueWith(2.0f, 1), 3.0f);
    EXPECT_EQ(valueWith(-0.5f, 3), 0.0f);
    EXPECT_FLOAT_EQ(valueWith(0.6f, 0), 0.6f);
    seq.setQuantizeSteps(-3);
    EXPECT_EQ(seq.getQuantizeSteps(), 0);
    seq.setQuantizeSteps(100000);
    EXPECT_EQ(seq.getQuantizeSteps(), AFStepSequencer::kMaxQuantizeSteps);
}

TEST_F(AFStepSequencerTest, HostileParameterValuesStayInsideThePattern) {
    AFStepSequencer seq(&system, list);
    fillRamp(seq);
    for (float v : {-1e30f, -3.0f, 1e30f, NAN, INFINITY}) {
        seq.setParameter(0, v);
        seq.setParameter(1, v);
        for (int t = 0; t < 40; ++t) {
            const float out = seq.tick();
            ASSERT_TRUE(out >= 1.0f / 16.0f && out <= 1.0f) << v;
        }
        seq.controlTick();
        EXPECT_TRUE(std::isfinite(seq.getOutput()));
    }
}
