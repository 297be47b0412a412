#include "tools/RenderOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

RenderOptions parsed(const std::vector<std::string>& args) {
    RenderOptions o;
    std::string error;
    EXPECT_TRUE(RenderOptions::parse(args, o, error)) << error;
    return o;
}

std::string failure(const std::vector<std::string>& args) {
    RenderOptions o;
    std::string error;
    EXPECT_FALSE(RenderOptions::parse(args, o, error));
    return error;
}

} // namespace

TEST(RenderOptions, DefaultsWithoutInput) {
    const auto o = parsed({"-o", "out.wav"});
    EXPECT_EQ(o.output, "out.wav");
    EXPECT_TRUE(o.input.empty());
    EXPECT_EQ(o.rate, 48000);
    EXPECT_EQ(o.seconds, 8.0);
    EXPECT_EQ(o.block, 512);
    EXPECT_EQ(o.tempo, 120.0);
    EXPECT_FALSE(o.stopped);
    EXPECT_FALSE(o.loop.has_value());
    EXPECT_FALSE(o.seed.has_value());
    EXPECT_TRUE(o.effects.empty() && o.options.empty() && o.values.empty() && o.ramps.empty());
    EXPECT_FALSE(o.quiet || o.listEffects || o.listParameters || o.help);
}

TEST(RenderOptions, EveryOptionIsTaken) {
    const auto o = parsed({"--rate",
                           "44100",
                           "--seconds",
                           "2.5",
                           "--block",
                           "100",
                           "--tempo",
                           "97.5",
                           "--stopped",
                           "--loop",
                           "4:8.5",
                           "--effect",
                           "1=Stutter",
                           "--effect",
                           "8=27",
                           "--effect",
                           "3=vowel filter",
                           "--set",
                           "Control 1=0.25",
                           "--set",
                           "Dry/Wet=1",
                           "--set",
                           "276=0.75",
                           "--ramp",
                           "FX1 Parameter 1=0:1@0.5:2",
                           "--option",
                           "1:0=2",
                           "--option",
                           "8:3=Sync X",
                           "--seed",
                           "-42",
                           "--plot",
                           "p.PNG",
                           "--quiet",
                           "--output",
                           "o.FLAC"});
    EXPECT_EQ(o.rate, 44100);
    EXPECT_EQ(o.seconds, 2.5);
    EXPECT_EQ(o.block, 100);
    EXPECT_EQ(o.tempo, 97.5);
    EXPECT_TRUE(o.stopped);
    ASSERT_TRUE(o.loop.has_value());
    EXPECT_EQ(o.loop->start, 4.0);
    EXPECT_EQ(o.loop->end, 8.5);
    ASSERT_EQ(o.effects.size(), 3u);
    EXPECT_EQ(o.effects[0].slot, 0);
    EXPECT_EQ(o.effects[0].typeId, 9);
    EXPECT_EQ(o.effects[1].slot, 7);
    EXPECT_EQ(o.effects[1].typeId, 27);
    EXPECT_EQ(o.effects[2].typeId, 18);
    ASSERT_EQ(o.values.size(), 3u);
    EXPECT_EQ(o.values[0].parameter, "Control 1");
    EXPECT_EQ(o.values[0].value, 0.25f);
    EXPECT_EQ(o.values[1].parameter, "Dry/Wet");
    EXPECT_EQ(o.values[2].parameter, "276");
    ASSERT_EQ(o.ramps.size(), 1u);
    EXPECT_EQ(o.ramps[0].parameter, "FX1 Parameter 1");
    EXPECT_EQ(o.ramps[0].from, 0.0f);
    EXPECT_EQ(o.ramps[0].to, 1.0f);
    EXPECT_EQ(o.ramps[0].start, 0.5);
    EXPECT_EQ(o.ramps[0].end, 2.0);
    ASSERT_EQ(o.options.size(), 2u);
    EXPECT_EQ(o.options[0].slot, 0);
    EXPECT_EQ(o.options[0].option, 0);
    EXPECT_EQ(o.options[0].value, "2");
    EXPECT_EQ(o.options[1].slot, 7);
    EXPECT_EQ(o.options[1].option, 3);
    EXPECT_EQ(o.options[1].value, "Sync X");
    EXPECT_EQ(o.seed, -42);
    EXPECT_EQ(o.plot, "p.PNG");
    EXPECT_TRUE(o.quiet);
    EXPECT_EQ(o.output, "o.FLAC");
}

TEST(RenderOptions, InputFormsAndTail) {
    auto o = parsed({"in.wav", "-o", "out.wav"});
    EXPECT_EQ(o.input, "in.wav");
    EXPECT_EQ(o.seconds, 0.0); // with an input, seconds is a tail and defaults to none
    o = parsed({"-o", "out.wav", "in.aiff", "--seconds", "1.5"});
    EXPECT_EQ(o.input, "in.aiff");
    EXPECT_EQ(o.seconds, 1.5);
    o = parsed({"--output=out.wav", "--tempo=90", "--", "-odd name.wav"});
    EXPECT_EQ(o.output, "out.wav");
    EXPECT_EQ(o.tempo, 90.0);
    EXPECT_EQ(o.input, "-odd name.wav");
    o = parsed({"--ramp", "Control 2=0.5:0.5@3:3", "-o", "x.wav"}); // a step
    EXPECT_EQ(o.ramps[0].start, o.ramps[0].end);
}

TEST(RenderOptions, ListsNeedNoOutput) {
    EXPECT_TRUE(parsed({"--list-effects"}).listEffects);
    const auto o = parsed({"--list-parameters", "--effect", "2=Flanger", "--set", "Control 2=1"});
    EXPECT_TRUE(o.listParameters);
    EXPECT_EQ(o.effects.size(), 1u);
    EXPECT_TRUE(parsed({"-h"}).help);
}

TEST(RenderOptions, BadInputGivesOneLine) {
    const std::vector<std::vector<std::string>> cases = {
        {"--bogus", "-o", "a.wav"},
        {"-x", "-o", "a.wav"},
        {},
        {"-o"},
        {"-o", "a.mp3"},
        {"-o", "a.wav", "--plot", "a.svg"},
        {"-o", "a.wav", "--plot", "a.wav"},
        {"-o", "a.wav", "--rate", "8000"},
        {"-o", "a.wav", "--rate", "48000.5"},
        {"-o", "a.wav", "--rate", "196001"},
        {"in.wav", "-o", "a.wav", "--rate", "48000"},
        {"-o", "a.wav", "--seconds", "0"},
        {"-o", "a.wav", "--seconds", "-1"},
        {"-o", "a.wav", "--seconds", "inf"},
        {"-o", "a.wav", "--seconds", "3601"},
        {"-o", "a.wav", "--block", "0"},
        {"-o", "a.wav", "--block", "16385"},
        {"-o", "a.wav", "--block", " 64"},
        {"-o", "a.wav", "--tempo", "19"},
        {"-o", "a.wav", "--tempo", "120bpm"},
        {"-o", "a.wav", "--loop", "4"},
        {"-o", "a.wav", "--loop", "4:4"},
        {"-o", "a.wav", "--loop", "-1:4"},
        {"-o", "a.wav", "--effect", "0=Stutter"},
        {"-o", "a.wav", "--effect", "9=Stutter"},
        {"-o", "a.wav", "--effect", "Stutter"},
        {"-o", "a.wav", "--effect", "1=Nope"},
        {"-o", "a.wav", "--effect", "1=SpectralLooper"},
        {"-o", "a.wav", "--effect", "1=15"},
        {"-o", "a.wav", "--effect", "1=29"},
        {"-o", "a.wav", "--set", "Control 1"},
        {"-o", "a.wav", "--set", "Control 1=1.01"},
        {"-o", "a.wav", "--set", "Control 1=nan"},
        {"-o", "a.wav", "--set", "381=0.5"},
        {"-o", "a.wav", "--set", "-1=0.5"},
        {"-o", "a.wav", "--set", "2000008=1"},
        {"-o", "a.wav", "--ramp", "Control 1=0:1"},
        {"-o", "a.wav", "--ramp", "Control 1=0:2@0:1"},
        {"-o", "a.wav", "--ramp", "Control 1=0:1@2:1"},
        {"-o", "a.wav", "--ramp", "Control 1=0:1@-1:1"},
        {"-o", "a.wav", "--option", "1:4=0"},
        {"-o", "a.wav", "--option", "0:0=0"},
        {"-o", "a.wav", "--option", "1=0"},
        {"-o", "a.wav", "--seed", "2147483648"},
        {"-o", "a.wav", "--seed", "x"},
        {"-o", "a.wav", "--quiet=yes"},
        {"a.wav", "b.wav", "-o", "c.wav"},
    };
    for (const auto& args : cases) {
        std::string joined;
        for (const auto& a : args)
            joined += a + " ";
        const std::string error = failure(args);
        EXPECT_FALSE(error.empty()) << joined;
        EXPECT_EQ(error.find('\n'), std::string::npos) << joined;
    }
}

TEST(RenderOptions, ParametersResolveByNameOrIndex) {
    const std::vector<std::string> names{"Control 1", "Dry/Wet", "FX1 Lfo Amount", "fx1 lfo amount"};
    EXPECT_EQ(RenderOptions::resolveParameter("Control 1", names), 0);
    EXPECT_EQ(RenderOptions::resolveParameter("control 1", names), 0);
    EXPECT_EQ(RenderOptions::resolveParameter("Dry/Wet", names), 1);
    EXPECT_EQ(RenderOptions::resolveParameter("fx1 lfo amount", names), 3); // the exact spelling wins
    EXPECT_EQ(RenderOptions::resolveParameter("FX1 LFO AMOUNT", names), 2);
    EXPECT_EQ(RenderOptions::resolveParameter("Control 2", names), -1);
    EXPECT_EQ(RenderOptions::resolveParameter("251", names), 251);
    EXPECT_EQ(RenderOptions::resolveParameter("261", names), 261);
    EXPECT_EQ(RenderOptions::resolveParameter("380", names), 380);
    EXPECT_EQ(RenderOptions::resolveParameter("381", names), -1);
    EXPECT_EQ(RenderOptions::resolveParameter("2000003", names), 2000003);
    EXPECT_EQ(RenderOptions::resolveParameter("-3", names), -1);
}
