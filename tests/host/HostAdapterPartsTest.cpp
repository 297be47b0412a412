#include "engine/AFUniClient.h"
#include "host/AFBase64.h"
#include "host/AFMasterBypass.h"
#include "host/AFParameterSymbols.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

} // namespace

TEST(AFBase64Test, KnownVectorsBothWays) {
    // The standard test vectors: every tail length, padding included.
    const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, coded] : vectors) {
        const auto bytes = bytesOf(plain);
        EXPECT_EQ(AFBase64::encode(bytes.data(), bytes.size()), coded);
        const auto back = AFBase64::decode(coded);
        ASSERT_TRUE(back.has_value()) << coded;
        EXPECT_EQ(*back, bytes) << coded;
    }
}

TEST(AFBase64Test, EveryByteValueSurvivesAndWrappedTextDecodes) {
    std::vector<uint8_t> all(1000);
    std::mt19937 random(7);
    for (auto& b : all)
        b = static_cast<uint8_t>(random());
    for (std::size_t size : {0u, 1u, 2u, 3u, 998u, 999u, 1000u}) {
        const std::string text = AFBase64::encode(all.data(), size);
        EXPECT_EQ(text.size() % 4, 0u);
        std::string wrapped;
        for (std::size_t i = 0; i < text.size(); ++i)
            wrapped += (i % 76 == 75) ? std::string(1, text[i]) + "\r\n" : std::string(1, text[i]);
        const auto back = AFBase64::decode(wrapped);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, std::vector<uint8_t>(all.begin(), all.begin() + static_cast<long>(size)));
    }
}

TEST(AFBase64Test, TextThatIsNoBase64IsRefused) {
    for (const char* bad : {"Zm9v!", "Z", "Zm9vY", "Zg=x", "Zg===", "=Zg=", "Zm9v\x80", "Zg=\0"})
        EXPECT_FALSE(AFBase64::decode(bad).has_value()) << bad;
    // Unpadded tails are what some hosts keep; they still decode.
    EXPECT_EQ(*AFBase64::decode("Zm8"), bytesOf("fo"));
}

TEST(AFParameterSymbolsTest, EveryHostParameterHasAUniqueStableSymbol) {
    AFUniClient client(nullptr, nullptr);
    std::set<std::string> symbols;
    char name[kHostTextSize];
    for (int i = 0; i < AFUniClient::kHostParameters; ++i) {
        client.getParameterName(i, name);
        const std::string symbol = AFParameterSymbols::fromName(name);
        EXPECT_TRUE(symbols.insert(symbol).second) << "duplicate " << symbol;
        ASSERT_FALSE(symbol.empty());
        EXPECT_FALSE(symbol[0] >= '0' && symbol[0] <= '9') << symbol;
        for (const char c : symbol)
            EXPECT_TRUE((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_') << symbol;
    }
    // Released symbols: sessions saved by hosts find their automation by these.
    EXPECT_EQ(AFParameterSymbols::fromName("Control 1"), "control_1");
    EXPECT_EQ(AFParameterSymbols::fromName("Dry/Wet"), "dry_wet");
    EXPECT_EQ(AFParameterSymbols::fromName("FX1 Parameter 1"), "fx1_parameter_1");
    EXPECT_EQ(AFParameterSymbols::fromName("FX3 EF Relese"), "fx3_ef_relese");
    EXPECT_EQ(AFParameterSymbols::fromName("FX8 FX Gain"), "fx8_fx_gain");
    EXPECT_EQ(AFParameterSymbols::fromName("  9 lives!"), "_9_lives");
    EXPECT_EQ(AFParameterSymbols::fromName("///"), "_");
}

class AFMasterBypassTest : public ::testing::Test {
protected:
    static constexpr uint32_t kFrames = 1024;
    // Processed signal 1.0, dry signal 0.0: the output is then exactly 1 - the dry share.
    std::vector<float> run(AFMasterBypass& bypass, uint32_t frames) {
        std::vector<float> dry(frames, 0.0f), left(frames, 1.0f), right(frames, 1.0f);
        bypass.process(dry.data(), dry.data(), left.data(), right.data(), frames);
        EXPECT_EQ(left, right);
        return left;
    }
};

TEST_F(AFMasterBypassTest, FadesOverTenMillisecondsToTheSample) {
    for (const double rate : {44100.0, 48000.0, 96000.0}) {
        AFMasterBypass bypass;
        bypass.setSampleRate(rate);
        const auto length = static_cast<uint32_t>(std::lround(rate * 0.01));
        EXPECT_EQ(run(bypass, 64), std::vector<float>(64, 1.0f)) << "off stays the processed signal";
        EXPECT_TRUE(bypass.isIdle());

        bypass.setValue(1.0f);
        const auto down = run(bypass, length + 10);
        for (uint32_t i = 0; i < length; ++i)
            EXPECT_NEAR(down[i], 1.0f - static_cast<float>(i + 1) / static_cast<float>(length), 1e-6f) << i;
        for (uint32_t i = length; i < length + 10; ++i)
            EXPECT_EQ(down[i], 0.0f) << "fully dry after the fade";
        EXPECT_FALSE(bypass.isIdle());

        bypass.setValue(0.2f);
        const auto up = run(bypass, length);
        EXPECT_EQ(up[length - 1], 1.0f);
        EXPECT_TRUE(bypass.isIdle());
    }
}

TEST_F(AFMasterBypassTest, SwitchingBackMidFadeTurnsWithoutAJump) {
    AFMasterBypass bypass;
    bypass.setSampleRate(48000.0);
    bypass.setValue(1.0f);
    const auto half = run(bypass, 240); // 480 samples make the fade
    EXPECT_NEAR(half.back(), 0.5f, 1e-6f);
    bypass.setValue(0.0f);
    const auto back = run(bypass, 300);
    EXPECT_NEAR(back[0], 0.5f + 1.0f / 480.0f, 1e-6f);
    EXPECT_EQ(back[239], 1.0f);
    EXPECT_TRUE(bypass.isIdle());
}

TEST_F(AFMasterBypassTest, ActivationStartsAtTheSwitchAndRateChangesKeepTheShare) {
    AFMasterBypass bypass;
    bypass.setSampleRate(48000.0);
    bypass.setValue(1.0f);
    bypass.reset();
    EXPECT_EQ(run(bypass, 16), std::vector<float>(16, 0.0f)) << "no fade after activation";

    bypass.setValue(0.0f);
    run(bypass, 120); // a quarter of the way back
    bypass.setSampleRate(96000.0);
    const auto after = run(bypass, 1);
    EXPECT_NEAR(after[0], 0.25f + 1.0f / 960.0f, 1e-6f);
}
