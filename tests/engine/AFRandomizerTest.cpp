// Randomize against a generated content tree: which effect and which preset each slot gets under a fixed
// seed, and what it leaves alone.

#include "engine/AFRandomizer.h"
#include "TestHost.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFRandom.h"
#include "state/AFChunk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kMenu[24] = {20, 21, 11, 27, 14, 7, 13, 26, 8,  19, 22, 23,
                           1,  2,  12, 3,  17, 4, 9,  16, 24, 25, 18, 5};

int row(int slot, int r) {
    return 12 + 29 * slot + r;
}

// The value of Parameter 2 that identifies preset `file` (0..2) of `type`.
float mark(int type, int file) {
    return static_cast<float>(type * 4 + file + 1) / 256.0f;
}

std::vector<uint8_t> dictatorImage(AFUniClient& client) {
    AFChunk chunk;
    client.writeDictator(chunk);
    return chunk.toBytes();
}

class AFRandomizerTest : public ::testing::Test {
protected:
    void SetUp() override {
        content = fs::path(std::getenv("HOME")) / "content";
        fs::remove_all(content);
        TestHost maker;
        AFUniClient& c = maker.client();
        c.setParameter(AFUniClient::kFxGainStart, 0.9f); // presets carry a gain Randomize must not take
        for (int type : kMenu) {
            const fs::path folder = content / "Effect Presets" / EffectFactory::effectName(type);
            fs::create_directories(folder);
            c.setSlotEffect(0, type);
            // "1.afo", a broken "2 broken.afo", "3.afo", and a file of another kind.
            for (int file : {0, 2}) {
                c.setParameter(row(0, 1), mark(type, file));
                ASSERT_TRUE(c.savePreset((folder / (std::to_string(file + 1) + ".afo")).string(), 0));
            }
            std::ofstream(folder / "2 broken.afo") << "not a preset";
            c.setParameter(row(0, 1), 0.999f);
            ASSERT_TRUE(c.savePreset((folder / "readme.txt").string(), 0));
        }
    }

    void TearDown() override { fs::remove_all(content); }

    fs::path content;
};

TEST_F(AFRandomizerTest, SlotsGetTheDrawnEffectAndTheFirstLoadablePresetFromTheDrawnStart) {
    // One effect without a folder and one with only a broken preset.
    fs::remove_all(content / "Effect Presets" / EffectFactory::effectName(kMenu[0]));
    fs::remove(content / "Effect Presets" / EffectFactory::effectName(kMenu[1]) / "1.afo");
    fs::remove(content / "Effect Presets" / EffectFactory::effectName(kMenu[1]) / "3.afo");

    for (int32_t seed : {1, 77, 4242, 99991}) {
        TestHost host, reference;
        AFUniClient& c = host.client();
        for (int s = 0; s < 8; ++s) {
            c.setParameter(row(s, 1), 0.5f);
            reference.client().setParameter(row(s, 1), 0.5f);
        }
        AFRandom::seed(seed);

        // The reference: the same draws, read off the tree as a user would.
        struct Expected {
            int type;
            float parameter2;
        };
        std::vector<Expected> expected;
        for (int s = 0; s < 8; ++s) {
            const int index = static_cast<int>(std::lround(AFRandom::next() * 23.5f));
            ASSERT_LT(index, 24) << "a top draw; pick another seed";
            const int type = kMenu[index];
            float p2 = 0.0f;
            bool found = false;
            if (type == kMenu[0]) {
                found = false; // no folder: no start is drawn
            } else if (type == kMenu[1]) {
                AFRandom::next(); // one broken file
            } else {
                const auto start = static_cast<std::size_t>(AFRandom::next() * 3.0f);
                found = true;
                p2 = mark(type, start == 0 ? 0 : 2); // the broken second file passes to the third
            }
            expected.push_back({type, found ? p2 : -1.0f});
        }

        AFRandom::seed(seed);
        c.randomize(content.string());
        for (int s = 0; s < 8; ++s) {
            const auto& e = expected[static_cast<std::size_t>(s)];
            EXPECT_EQ(c.getSlot(s).getEffectType(), e.type) << "seed " << seed << " slot " << s;
            if (e.parameter2 < 0.0f) {
                // The effect swap alone, as on a client that never saw a preset.
                reference.client().setSlotEffect(s, e.type);
                EXPECT_EQ(c.getParameter(row(s, 1)), reference.client().getParameter(row(s, 1)))
                    << "seed " << seed << " slot " << s;
            } else {
                EXPECT_EQ(c.getParameter(row(s, 1)), e.parameter2) << "seed " << seed << " slot " << s;
            }
        }
    }
}

TEST_F(AFRandomizerTest, SparesControlsDictatorMasterMixAndGains) {
    TestHost host;
    AFUniClient& c = host.client();
    for (int s = 0; s < 8; ++s) {
        c.setParameter(s, 0.05f * static_cast<float>(s));
        c.setParameter(AFUniClient::kFxGainStart + s, 0.2f + 0.05f * static_cast<float>(s));
    }
    c.setParameter(AFUniClient::kDryWet, 0.3f);
    for (int trigger = 2000000; trigger < 2000008; trigger += 3) {
        c.setParameter(trigger, 0.0f);
        c.setParameter(trigger, 1.0f);
    }
    const std::vector<uint8_t> rows = dictatorImage(c);
    const float dictator = c.getParameter(AFUniClient::kDictator);
    AFRandom::seed(31337);
    c.randomize(content.string());
    for (int s = 0; s < 8; ++s) {
        EXPECT_EQ(c.getParameter(s), 0.05f * static_cast<float>(s)) << s;
        EXPECT_EQ(c.getParameter(AFUniClient::kFxGainStart + s), 0.2f + 0.05f * static_cast<float>(s)) << s;
    }
    EXPECT_EQ(c.getParameter(AFUniClient::kDryWet), 0.3f);
    EXPECT_EQ(c.getParameter(AFUniClient::kDictator), dictator);
    EXPECT_EQ(dictatorImage(c), rows);
}

TEST_F(AFRandomizerTest, WithoutPresetFoldersEachSlotTakesOneDraw) {
    TestHost host;
    AFUniClient& c = host.client();
    AFRandom::seed(5);
    c.randomize((content / "nowhere").string());
    AFRandom::seed(5);
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(c.getSlot(s).getEffectType(), kMenu[std::lround(AFRandom::next() * 23.5f)]) << s;
    EXPECT_EQ(AFRandomizer::presetFiles((content / "nowhere").string()).size(), 0u);
    EXPECT_EQ(
        AFRandomizer::presetFiles((content / "Effect Presets" / EffectFactory::effectName(17)).string()),
        (std::vector<std::string>{"1.afo", "2 broken.afo", "3.afo"}));
}

} // namespace
