#include "modulation/AFStepPatternFile.h"
#include "effects/framework/AFSystemInfo.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<std::string> messages;
void capture(void*, const char* text) {
    messages.emplace_back(text);
}

uint32_t bits(float v) {
    return std::bit_cast<uint32_t>(v);
}

// Remembers what the loader hands to the name hook.
class NamedTable : public AFGlideTable {
public:
    void chunkName(const char* text) override { name = text; }
    std::string name;
};

struct AFStepPatternFileTest : ::testing::Test {
    std::filesystem::path folder;
    AFMessageSink sink;

    void SetUp() override {
        messages.clear();
        sink.setHandler(&capture, nullptr);
        folder = std::filesystem::temp_directory_path() /
                 ("orvanto-afs-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(folder);
    }
    void TearDown() override {
        AFChunk::setContentVersion(0);
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string path(const char* name) const { return (folder / name).string(); }

    static void writeWords(const std::string& file, const std::vector<uint32_t>& words,
                           std::size_t byteCount) {
        std::vector<uint8_t> bytes;
        for (uint32_t w : words)
            for (int b = 0; b < 4; ++b)
                bytes.push_back(static_cast<uint8_t>(w >> (8 * b)));
        bytes.resize(std::min(byteCount, bytes.size()));
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    static std::vector<uint32_t> readWords(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::vector<uint32_t> words(bytes.size() / 4);
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = bytes[4 * i] | bytes[4 * i + 1] << 8 | bytes[4 * i + 2] << 16 |
                       static_cast<uint32_t>(bytes[4 * i + 3]) << 24;
        return words;
    }

    // The 16-step pattern used throughout, and its file image written out word by word.
    static void fillPattern(AFGlideTable& table) {
        for (uint32_t c = 0; c < 16; ++c) {
            table.setValue(0, c, static_cast<float>(c) * 0.0625f);
            table.setGlide(0, c, c % 4 == 3 ? 1 : 0);
        }
    }
    static std::vector<uint32_t> patternImage(float tempo, float rate) {
        std::vector<uint32_t> words = {43, 0, bits(tempo), bits(rate), 0x018E48D9, 0x36BAF2DD,
                                       1,  1, 16,          0,          1};
        for (uint32_t c = 0; c < 16; ++c) {
            words.push_back(bits(static_cast<float>(c) * 0.0625f));
            words.push_back(c % 4 == 3 ? 1u : 0u);
        }
        return words;
    }
};

} // namespace

TEST_F(AFStepPatternFileTest, SavedFileIsTheExactWordImage) {
    AFSystemInfo system{64.0f, nullptr};
    system.setSampleRate(48000.0f);
    system.setTempo(97.0);
    AFGlideTable table;
    fillPattern(table);
    ASSERT_TRUE(AFStepPatternFile::save(path("Ramp.AFS"), table, &system, &sink));
    EXPECT_EQ(readWords(path("Ramp.AFS")), patternImage(97.0f, 48000.0f));
    EXPECT_TRUE(messages.empty());
    // Without a timing record the header carries the chunk's own defaults.
    ASSERT_TRUE(AFStepPatternFile::save(path("Plain.AFS"), table, nullptr, &sink));
    EXPECT_EQ(readWords(path("Plain.AFS")), patternImage(120.0f, 44100.0f));
}

TEST_F(AFStepPatternFileTest, HandWrittenFileLoadsAndRoundTrips) {
    writeWords(path("Hand Made.AFS"), patternImage(140.0f, 96000.0f), 43 * 4);
    NamedTable table;
    ASSERT_TRUE(AFStepPatternFile::load(path("Hand Made.AFS"), table, &sink));
    EXPECT_EQ(table.name, "Hand Made");
    for (uint32_t c = 0; c < 16; ++c) {
        EXPECT_EQ(table.getValue(0, c), static_cast<float>(c) * 0.0625f);
        EXPECT_EQ(table.getGlide(0, c), c % 4 == 3 ? 1 : 0);
    }
    // Step 3 glides into step 4.
    EXPECT_FLOAT_EQ(table.valueAt(3.5f), 0.21875f);

    table.setGlideRow(0);
    ASSERT_TRUE(AFStepPatternFile::save(path("Again.AFS"), table, nullptr, &sink));
    NamedTable again;
    ASSERT_TRUE(AFStepPatternFile::load(path("Again.AFS"), again, &sink));
    EXPECT_EQ(again.name, "Again");
    EXPECT_EQ(readWords(path("Again.AFS")), patternImage(120.0f, 44100.0f));
    EXPECT_TRUE(messages.empty());
}

TEST_F(AFStepPatternFileTest, MessagesAndThePatternThatStays) {
    NamedTable table;
    fillPattern(table);
    auto image = patternImage(120.0f, 44100.0f);
    image[4] = 0x018E48DA;
    writeWords(path("Bad.AFS"), image, image.size() * 4);
    EXPECT_FALSE(AFStepPatternFile::load(path("Bad.AFS"), table, &sink));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "\t This is no valid Orvanto format!");

    image = patternImage(120.0f, 44100.0f);
    image[1] = 7;
    image[7] = 2;
    image[8] = 8;
    writeWords(path("Newer.AFS"), image, image.size() * 4);
    messages.clear();
    EXPECT_FALSE(AFStepPatternFile::load(path("Newer.AFS"), table, &sink));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "preset was written with a newer version of Orvanto");
    AFChunk::setContentVersion(7);
    messages.clear();
    EXPECT_TRUE(AFStepPatternFile::load(path("Newer.AFS"), table, &sink));
    EXPECT_EQ(table.getRowCount(), 2u);
    EXPECT_TRUE(messages.empty());

    // A missing file and a table that cannot be there report nothing.
    messages.clear();
    EXPECT_FALSE(AFStepPatternFile::load(path("Missing.AFS"), table, &sink));
    image = patternImage(120.0f, 44100.0f);
    image[8] = 0x7FFFFFFF;
    writeWords(path("Huge.AFS"), image, image.size() * 4);
    EXPECT_FALSE(AFStepPatternFile::load(path("Huge.AFS"), table, &sink));
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(table.getRowCount(), 2u);
    EXPECT_EQ(table.name, "Newer");

    const std::string blocked = path("no-such-folder/Pattern.AFS");
    EXPECT_FALSE(AFStepPatternFile::save(blocked, table, nullptr, &sink));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "saving preset to " + blocked + " failed");
}

TEST_F(AFStepPatternFileTest, HostileFilesNeverCrashOrLeaveTheGrid) {
    const auto good = patternImage(120.0f, 44100.0f);
    const auto check = [](AFGlideTable& table) {
        ASSERT_GE(table.getColumnCount(), 1u);
        ASSERT_GE(table.getRowCount(), 1u);
        for (float p : {0.0f, 0.5f, 7.25f, 15.99f, 100.0f, -3.0f})
            EXPECT_TRUE(std::isfinite(table.valueAt(p)));
    };
    // Truncated at every word, with the size word kept: the tail reads as zeros.
    for (std::size_t words = 0; words <= good.size(); ++words) {
        writeWords(path("Cut.AFS"), good, words * 4);
        AFGlideTable table;
        AFStepPatternFile::load(path("Cut.AFS"), table, &sink);
        check(table);
    }
    // The size word shrunk to every length: the table refuses what is not there.
    for (uint32_t size = 0; size < good.size(); ++size) {
        auto image = good;
        image[0] = size;
        writeWords(path("Short.AFS"), image, image.size() * 4);
        AFGlideTable table;
        table.setValue(0, 1, 0.75f);
        const bool loaded = AFStepPatternFile::load(path("Short.AFS"), table, &sink);
        EXPECT_FALSE(loaded) << size;
        EXPECT_EQ(table.getValue(0, 1), 0.75f);
        check(table);
    }
    // Huge words in every position of the table head.
    for (std::size_t at = 0; at < 11; ++at)
        for (uint32_t word : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, 0x00100000u}) {
            auto image = good;
            image[at] = word;
            writeWords(path("Huge.AFS"), image, image.size() * 4);
            AFGlideTable table;
            AFStepPatternFile::load(path("Huge.AFS"), table, &sink);
            check(table);
        }
    // Random bodies behind a valid header, and random words throughout.
    std::mt19937 random(1977);
    for (int round = 0; round < 120; ++round) {
        auto image = good;
        for (std::size_t i = round % 2 == 0 ? 5 : 0; i < image.size(); ++i)
            image[i] = round % 3 == 0 ? random() % 40 : random();
        writeWords(path("Noise.AFS"), image, image.size() * 4);
        AFGlideTable table;
        AFStepPatternFile::load(path("Noise.AFS"), table, &sink);
        check(table);
    }
}

TEST_F(AFStepPatternFileTest, PatternsMoveBetweenTableAndLfo) {
    AFSystemInfo system{64.0f, nullptr};
    AFLfo lfo(&system);
    AFGlideTable fresh;
    AFStepPatternFile::takeFromLfo(lfo, fresh);
    EXPECT_EQ(fresh.getColumnCount(), 16u);
    EXPECT_EQ(fresh.getValue(0, 2), 0.5f);
    EXPECT_EQ(fresh.getValue(0, 3), 0.0f);

    AFGlideTable table;
    fillPattern(table);
    table.setValue(0, 15, 1.5f);
    AFStepPatternFile::applyToLfo(table, lfo);
    for (int s = 0; s < 15; ++s)
        EXPECT_EQ(lfo.getStep(s), static_cast<float>(s) * 0.0625f);
    EXPECT_EQ(lfo.getStep(15), 1.0f);

    // A shorter pattern repeats over the 16 steps; the value row decides.
    AFGlideTable three(3, 2);
    for (uint32_t c = 0; c < 3; ++c) {
        three.setValue(0, c, 0.1f);
        three.setValue(1, c, 0.25f * static_cast<float>(c + 1));
    }
    three.setValueRow(1);
    AFStepPatternFile::applyToLfo(three, lfo);
    for (int s = 0; s < 16; ++s)
        EXPECT_EQ(lfo.getStep(s), 0.25f * static_cast<float>(s % 3 + 1));

    AFStepPatternFile::takeFromLfo(lfo, three);
    EXPECT_EQ(three.getColumnCount(), 16u);
    EXPECT_EQ(three.getRowCount(), 1u);
    EXPECT_EQ(three.getValue(0, 4), 0.5f);
    EXPECT_EQ(three.getGlide(0, 4), 0);
}

namespace {

// Just enough of the pattern sources' JSON: the text after `"key": ` up to the closing quote or bracket.
std::string field(const std::string& json, const std::string& key, char open, char close) {
    const auto at = json.find("\"" + key + "\": " + open);
    if (at == std::string::npos) return {};
    const auto from = at + key.size() + 5;
    return json.substr(from, json.find(close, from) - from);
}

std::vector<std::string> items(const std::string& list) {
    std::vector<std::string> out;
    std::size_t from = 0;
    while (from < list.size()) {
        const auto comma = std::min(list.find(',', from), list.size());
        out.push_back(
            list.substr(list.find_first_not_of(' ', from), comma - list.find_first_not_of(' ', from)));
        from = comma + 1;
    }
    return out;
}

} // namespace

TEST_F(AFStepPatternFileTest, FactoryPatternSourcesCompileToPlayablePatterns) {
    const auto sources = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() /
                         "content" / "Stepsequencer";
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(sources)) {
        std::ifstream in(entry.path());
        const std::string json((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const std::string name = field(json, "name", '"', '"');
        EXPECT_EQ(field(json, "format", '"', '"'), "orvanto-step-pattern") << entry.path();
        std::string stem = name;
        std::replace(stem.begin(), stem.end(), ' ', '-');
        EXPECT_EQ(entry.path().filename().string(), stem + ".json");
        const auto values = items(field(json, "values", '[', ']'));
        const auto glides = items(field(json, "glides", '[', ']'));
        ASSERT_EQ(values.size(), 16u) << name;
        ASSERT_EQ(glides.size(), 16u) << name;

        AFGlideTable table;
        for (uint32_t c = 0; c < 16; ++c) {
            const float v = std::stof(values[c]);
            EXPECT_TRUE(v >= 0.0f && v <= 1.0f) << name << " step " << c;
            ASSERT_TRUE(glides[c] == "true" || glides[c] == "false") << name;
            table.setValue(0, c, v);
            table.setGlide(0, c, glides[c] == "true" ? 1 : 0);
        }
        const std::string file = path((name + ".AFS").c_str());
        ASSERT_TRUE(AFStepPatternFile::save(file, table, nullptr, &sink));
        EXPECT_EQ(readWords(file).size(), 43u);
        NamedTable loaded;
        ASSERT_TRUE(AFStepPatternFile::load(file, loaded));
        EXPECT_EQ(loaded.name, name);
        AFSystemInfo system{64.0f, nullptr};
        AFLfo lfo(&system);
        AFStepPatternFile::applyToLfo(loaded, lfo);
        for (int s = 0; s < 16; ++s)
            EXPECT_EQ(lfo.getStep(s), std::stof(values[static_cast<std::size_t>(s)])) << name;
        names.push_back(name);
    }
    EXPECT_GE(names.size(), 4u);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}
