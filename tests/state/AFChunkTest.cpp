#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> messages;
void capture(void*, const char* text) {
    messages.emplace_back(text);
}

// Writes a small record through the two passes, as every writer does.
template <class Body>
void twoPass(AFChunk& chunk, Body body) {
    chunk.rewindToWrite();
    chunk.writeHeader();
    body(chunk);
    chunk.allocateCounted();
    chunk.writeHeader();
    body(chunk);
}

struct ChunkTest : ::testing::Test {
    AFMessageSink sink;
    void SetUp() override {
        messages.clear();
        sink.setHandler(&capture, nullptr);
    }
};

} // namespace

TEST_F(ChunkTest, TwoPassWriteGivesTheWordImage) {
    AFChunk chunk;
    chunk.setTempo(133.0f);
    chunk.setSampleRate(48000.0f);
    twoPass(chunk, [](AFChunk& c) {
        c.writeInt(-7);
        c.writeFloat(0.25f);
        c.writeString("abc");
        c.writeString(nullptr);
        c.writeString("abcde");
    });
    const auto bytes = chunk.toBytes();
    // 5 header + 1 + 1 + (1 + 1) + 1 + (1 + 2) words.
    ASSERT_EQ(bytes.size(), 13u * 4u);
    const uint8_t expectedHead[] = {13, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 8),
              std::vector<uint8_t>(std::begin(expectedHead), std::end(expectedHead)));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 16, bytes.begin() + 20),
              (std::vector<uint8_t>{0xD9, 0x48, 0x8E, 0x01}));
    EXPECT_EQ(chunk.word(5), 0xFFFFFFF9u);
    EXPECT_EQ(chunk.word(7), 3u);
    EXPECT_EQ(chunk.word(8), 0x00636261u); // "abc" and a zero pad byte
    EXPECT_EQ(chunk.word(9), 0u);          // absent string

    AFChunk back;
    ASSERT_TRUE(back.loadBytes(bytes.data(), bytes.size(), false));
    EXPECT_EQ(back.getTempo(), 133.0f);
    EXPECT_EQ(back.getSampleRate(), 48000.0f);
    EXPECT_EQ(back.readInt(), -7);
    EXPECT_EQ(back.readFloat(), 0.25f);
    EXPECT_EQ(back.readString(), "abc");
    EXPECT_EQ(back.readString(), "");
    EXPECT_EQ(back.readString(), "abcde");
    EXPECT_FALSE(back.isOverrun());
    EXPECT_EQ(back.readInt(), 0);
    EXPECT_TRUE(back.isOverrun());
}

TEST_F(ChunkTest, CountingNeverTouchesTheBuffer) {
    AFChunk chunk;
    chunk.rewindToWrite();
    chunk.writeHeader();
    chunk.writeString("abcd");
    chunk.writeString("");
    EXPECT_EQ(chunk.getPosition(), 5 + 2 + 1);
    EXPECT_EQ(chunk.wordCount(), 0u);
}

TEST_F(ChunkTest, WrongMagicAndInsaneSizeAreRefusedWithTheMessage) {
    std::vector<uint8_t> bytes(40, 0);
    bytes[0] = 10;
    AFChunk chunk;
    chunk.setMessageSink(&sink);
    EXPECT_FALSE(chunk.loadBytes(bytes.data(), bytes.size(), false));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "\t This is no valid Orvanto format!");

    const uint8_t huge[] = {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0,    0,    0,    0,
                            0xF0, 0x42, 0,    0,    0, 0, 0xD9, 0x48, 0x8E, 0x01};
    EXPECT_FALSE(chunk.loadBytes(huge, sizeof(huge), true));
    EXPECT_EQ(messages.size(), 1u);                // silent
    EXPECT_FALSE(chunk.loadBytes(huge, 7, false)); // truncated header
}

TEST_F(ChunkTest, SizeBeyondTheImageIsZeroFilled) {
    AFChunk chunk;
    twoPass(chunk, [](AFChunk& c) { c.writeInt(5), c.writeInt(6); });
    auto bytes = chunk.toBytes();
    bytes[0] = 20; // claims 20 words
    AFChunk back;
    ASSERT_TRUE(back.loadBytes(bytes.data(), bytes.size(), true));
    EXPECT_EQ(back.getSizeInWords(), 20u);
    EXPECT_EQ(back.readInt(), 5);
    EXPECT_EQ(back.readInt(), 6);
    for (int i = 0; i < 13; ++i)
        EXPECT_EQ(back.readInt(), 0);
    EXPECT_FALSE(back.isOverrun());
}

TEST_F(ChunkTest, HostileStringLengthsStayInsideTheWords) {
    AFChunk chunk;
    twoPass(chunk, [](AFChunk& c) { c.writeInt(0x7FFFFFF0), c.writeInt(0x41414141); });
    const auto bytes = chunk.toBytes();
    AFChunk back;
    ASSERT_TRUE(back.loadBytes(bytes.data(), bytes.size(), true));
    EXPECT_EQ(back.readString(), "AAAA");
    EXPECT_TRUE(back.isOverrun());
}

TEST_F(ChunkTest, TruncatedAtEveryWordNeverCrashes) {
    AFChunk chunk;
    twoPass(chunk, [](AFChunk& c) {
        for (int i = 0; i < 20; ++i)
            c.writeString("preset name");
    });
    const auto bytes = chunk.toBytes();
    for (std::size_t cut = 0; cut <= bytes.size(); cut += 4) {
        AFChunk back;
        if (!back.loadBytes(bytes.data(), cut, true)) continue;
        for (int i = 0; i < 20; ++i) {
            const std::string s = back.readString();
            EXPECT_TRUE(s.empty() || s == "preset name" || std::string("preset name").rfind(s, 0) == 0);
        }
    }
}

TEST_F(ChunkTest, FilesAreWrittenAtomicallyAndReadBack) {
    const auto dir = std::filesystem::path(std::getenv("HOME")) / "chunks";
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "a.afo").string();
    AFChunk chunk;
    twoPass(chunk, [](AFChunk& c) { c.writeString("first"); });
    ASSERT_TRUE(chunk.writeFile(path));
    AFChunk again;
    twoPass(again, [](AFChunk& c) { c.writeString("second"); });
    ASSERT_TRUE(again.writeFile(path));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()),
              1);
    AFChunk back;
    back.setMessageSink(&sink);
    ASSERT_TRUE(back.readFile(path, false));
    EXPECT_EQ(back.readString(), "second");

    EXPECT_FALSE(again.writeFile((dir / "missing" / "x.afo").string()));
    EXPECT_FALSE(again.writeFile("x"));
    EXPECT_FALSE(back.readFile((dir / "none.afo").string(), false));
    EXPECT_TRUE(messages.empty());
}
