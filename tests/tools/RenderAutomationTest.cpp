#include "tools/RenderAutomation.h"

#include "host/AFPluginBase.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <utility>
#include <vector>

namespace {

// A plug-in that names its parameters like the real one where the test needs it and records every write.
class Recorder : public AFPluginBase {
public:
    Recorder() : AFPluginBase(nullptr, nullptr, 1, 252) {}
    void processReplacing(float**, float**, int32_t) override {}
    void setParameter(int32_t index, float value) override { writes.emplace_back(index, value); }
    float getParameter(int32_t) override { return 0.0f; }
    void getParameterLabel(int32_t, char* text) override { text[0] = '\0'; }
    void getParameterDisplay(int32_t, char* text) override { text[0] = '\0'; }
    void getParameterName(int32_t index, char* text) override {
        if (index < 8)
            std::snprintf(text, kHostTextSize, "Control %d", index + 1);
        else if (index == 9)
            std::snprintf(text, kHostTextSize, "Dry/Wet");
        else
            std::snprintf(text, kHostTextSize, "Other %d", index);
    }
    int32_t getChunk(void**, bool) override { return 0; }
    int32_t setChunk(void*, int32_t, bool) override { return 0; }

    std::vector<std::pair<int, float>> take() { return std::exchange(writes, {}); }

private:
    std::vector<std::pair<int, float>> writes;
};

RenderOptions options(const std::vector<std::string>& args) {
    RenderOptions o;
    std::string error;
    std::vector<std::string> all{"-o", "x.wav"};
    all.insert(all.end(), args.begin(), args.end());
    EXPECT_TRUE(RenderOptions::parse(all, o, error)) << error;
    return o;
}

using Writes = std::vector<std::pair<int, float>>;

} // namespace

TEST(RenderAutomation, ValuesGoOnceAtTheFirstBlock) {
    Recorder plugin;
    RenderAutomation automation;
    std::string error;
    ASSERT_TRUE(automation.resolve(
        options({"--set", "Dry/Wet=0.5", "--set", "control 2=1", "--set", "261=0.25"}), plugin, error))
        << error;
    automation.apply(plugin, 0.0);
    EXPECT_EQ(plugin.take(), (Writes{{9, 0.5f}, {1, 1.0f}, {261, 0.25f}}));
    automation.apply(plugin, 0.01);
    EXPECT_TRUE(plugin.take().empty());
}

TEST(RenderAutomation, RampsMoveLinearlyBetweenTheirTimes) {
    Recorder plugin;
    RenderAutomation automation;
    std::string error;
    ASSERT_TRUE(automation.resolve(options({"--ramp", "Control 1=0.2:1@1:3"}), plugin, error)) << error;
    for (double t : {0.0, 0.5, 0.999}) {
        automation.apply(plugin, t);
        EXPECT_TRUE(plugin.take().empty()) << t; // left alone before the start
    }
    automation.apply(plugin, 1.0);
    EXPECT_EQ(plugin.take(), (Writes{{0, 0.2f}}));
    automation.apply(plugin, 2.0);
    EXPECT_EQ(plugin.take(), (Writes{{0, 0.6f}}));
    automation.apply(plugin, 2.5);
    EXPECT_EQ(plugin.take(), (Writes{{0, 0.8f}}));
    automation.apply(plugin, 3.2); // past the end: the end value, once
    EXPECT_EQ(plugin.take(), (Writes{{0, 1.0f}}));
    automation.apply(plugin, 9.0);
    EXPECT_TRUE(plugin.take().empty());
}

TEST(RenderAutomation, StepsAndChainedLanes) {
    Recorder plugin;
    RenderAutomation automation;
    std::string error;
    ASSERT_TRUE(automation.resolve(options({"--ramp", "Control 3=0.7:0.7@2:2", "--ramp", "Control 1=0:1@0:1",
                                            "--ramp", "Control 1=1:0@2:3"}),
                                   plugin, error))
        << error;
    Writes all;
    for (double t = 0.0; t < 4.0; t += 0.5) {
        automation.apply(plugin, t);
        for (const auto& w : plugin.take())
            all.push_back(w);
    }
    EXPECT_EQ(all, (Writes{{0, 0.0f}, {0, 0.5f}, {0, 1.0f}, {2, 0.7f}, {0, 1.0f}, {0, 0.5f}, {0, 0.0f}}));
}

TEST(RenderAutomation, UnknownNamesAreRefused) {
    Recorder plugin;
    RenderAutomation automation;
    std::string error;
    EXPECT_FALSE(automation.resolve(options({"--set", "Control 9=0.5"}), plugin, error));
    EXPECT_NE(error.find("'Control 9'"), std::string::npos) << error;
    EXPECT_FALSE(automation.resolve(options({"--ramp", "Wet=0:1@0:1"}), plugin, error));
    EXPECT_NE(error.find("'Wet'"), std::string::npos) << error;
}
