// The renderer's session loading presets and states before the other options.

#include "tools/RenderSession.h"
#include "TestHost.h"
#include "tools/RenderOptions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string effectPreset() {
    const std::string path = (fs::path(std::getenv("HOME")) / "ringer.afo").string();
    TestHost maker;
    maker.client().setSlotEffect(0, 22);
    maker.client().setParameter(12 + 1, 0.33f);
    EXPECT_TRUE(maker.client().savePreset(path, 0));
    return path;
}

std::vector<std::string> listed(const std::vector<std::string>& args, std::string& error) {
    RenderOptions options;
    EXPECT_TRUE(RenderOptions::parse(args, options, error)) << error;
    RenderSession session(options, 48000);
    if (!session.start(error)) return {};
    ::testing::internal::CaptureStdout();
    session.listParameters();
    std::istringstream out(::testing::internal::GetCapturedStdout());
    std::vector<std::string> rows;
    for (std::string line; std::getline(out, line);)
        rows.push_back(line);
    return rows;
}

TEST(RenderSession, EffectPresetGoesIntoItsSlotBeforeTheOptions) {
    const std::string preset = effectPreset();
    std::string error;
    const auto rows =
        listed({"--list-parameters", "--preset", preset + "@4", "--set", "FX4 Parameter 3=0.75"}, error);
    ASSERT_EQ(rows.size(), 252u) << error;
    EXPECT_EQ(rows[12 + 29 * 3 + 1], "100\tFX4 Parameter 2\t0.330000");
    EXPECT_EQ(rows[12 + 29 * 3 + 2], "101\tFX4 Parameter 3\t0.750000");
    EXPECT_NE(rows[12 + 1], "13\tFX1 Parameter 2\t0.330000"); // the other slots keep theirs
    fs::remove(preset);
}

TEST(RenderSession, EffectPresetNeedsASlotAndIsNoState) {
    const std::string preset = effectPreset();
    std::string error;
    EXPECT_TRUE(listed({"--list-parameters", "--preset", preset}, error).empty());
    EXPECT_EQ(error, "--preset '" + preset + "': an effect preset; give its slot as FILE@SLOT");
    EXPECT_TRUE(listed({"--list-parameters", "--state", preset}, error).empty());
    EXPECT_EQ(error,
              "--state '" + preset + "': an effect preset, not a state image (use --preset FILE@SLOT)");
    fs::remove(preset);
}

} // namespace
