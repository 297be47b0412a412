#include "modulation/AFGlideTable.h"
#include "state/AFChunk.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <vector>

namespace {

// A chunk holding the header and the given body words, ready to read from word 5.
void loadWords(AFChunk& chunk, const std::vector<uint32_t>& body) {
    std::vector<uint32_t> image = {static_cast<uint32_t>(5 + body.size()), 0, 0, 0, AFChunk::kMagic};
    image.insert(image.end(), body.begin(), body.end());
    std::vector<uint8_t> bytes;
    for (uint32_t w : image)
        for (int b = 0; b < 4; ++b)
            bytes.push_back(static_cast<uint8_t>(w >> (8 * b)));
    ASSERT_TRUE(chunk.loadBytes(bytes.data(), bytes.size(), true));
}

uint32_t bits(float v) {
    return std::bit_cast<uint32_t>(v);
}

} // namespace

TEST(AFGlideTableTest, LookupHoldsOrGlidesToTheNextCellAndWraps) {
    AFGlideTable table;
    for (uint32_t c = 0; c < 16; ++c)
        table.setValue(0, c, 0.05f * static_cast<float>(c + 1));
    EXPECT_FLOAT_EQ(table.valueAt(3.75f), 0.2f);
    table.setGlide(0, 3, 1);
    EXPECT_FLOAT_EQ(table.valueAt(3.75f), 0.2f + (0.25f - 0.2f) * 0.75f);
    table.setGlide(0, 15, 1);
    EXPECT_FLOAT_EQ(table.valueAt(15.5f), 0.8f + (0.05f - 0.8f) * 0.5f);
    // Positions past the pattern wrap, never leave the grid.
    EXPECT_FLOAT_EQ(table.valueAt(16.0f + 3.75f), table.valueAt(3.75f));
    EXPECT_FLOAT_EQ(table.valueAt(-12.25f), table.valueAt(3.75f));

    AFGlideTable single(1, 1);
    single.setValue(0, 0, 0.6f);
    single.setGlide(0, 0, 1);
    EXPECT_FLOAT_EQ(single.valueAt(0.9f), 0.6f);
}

TEST(AFGlideTableTest, ChunkWordsAndRoundTrip) {
    AFGlideTable table(2, 2);
    table.setValue(0, 0, 0.5f);
    table.setValue(1, 1, -0.25f);
    table.setGlide(1, 0, 1);
    table.setGlideRow(1);
    AFChunk chunk;
    chunk.rewindToWrite();
    chunk.writeHeader();
    table.write(chunk);
    chunk.allocateCounted();
    chunk.writeHeader();
    table.write(chunk);
    const std::vector<uint32_t> expected = {
        0x36BAF2DD, 1, 2, 2, 1, 1, bits(0.5f), 0, bits(0.0f), 0, bits(0.0f), 1, bits(-0.25f), 0};
    ASSERT_EQ(chunk.wordCount(), 5u + expected.size());
    EXPECT_EQ(chunk.word(0), 19u);
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(chunk.word(5 + i), expected[i]) << "word " << i;

    AFChunk in;
    loadWords(in, expected);
    AFGlideTable back;
    ASSERT_TRUE(back.read(in, false));
    EXPECT_EQ(back.getColumnCount(), 2u);
    EXPECT_EQ(back.getRowCount(), 2u);
    EXPECT_EQ(back.getGlideRow(), 1);
    EXPECT_FLOAT_EQ(back.getValue(1, 1), -0.25f);
    EXPECT_EQ(back.getGlide(1, 0), 1);
    EXPECT_EQ(back.clone()->getGlideRow(), 1);
    EXPECT_FLOAT_EQ(back.clone()->getValue(0, 0), 0.5f);
}

TEST(AFGlideTableTest, SilentReadSkipsTheSameWordsAndKeepsTheTable) {
    const std::vector<uint32_t> body = {0, 0, 1, 3, 0, 1, bits(0.1f), 0, bits(0.2f), 0, bits(0.3f), 0, 77};
    AFGlideTable table;
    table.setValue(0, 4, 0.9f);
    AFChunk silent;
    loadWords(silent, body);
    ASSERT_TRUE(table.read(silent, true));
    EXPECT_EQ(table.getColumnCount(), 16u);
    EXPECT_FLOAT_EQ(table.getValue(0, 4), 0.9f);
    EXPECT_EQ(silent.readInt(), 77);

    AFChunk loud;
    loadWords(loud, body);
    ASSERT_TRUE(table.read(loud, false));
    EXPECT_EQ(table.getColumnCount(), 3u);
    EXPECT_FLOAT_EQ(table.getValue(0, 2), 0.3f);
    EXPECT_EQ(loud.readInt(), 77);
}

TEST(AFGlideTableTest, HostileSizesLeaveTheTableAlone) {
    for (const auto& head : std::vector<std::vector<uint32_t>>{{0, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0, 1},
                                                               {0, 0, 0, 16, 0, 1},
                                                               {0, 0, 1, 0x80000000, 0, 1},
                                                               {0, 0, 1, 16}}) {
        AFGlideTable table;
        table.setValue(0, 0, 0.4f);
        AFChunk chunk;
        loadWords(chunk, head);
        EXPECT_FALSE(table.read(chunk, false));
        EXPECT_EQ(table.getColumnCount(), 16u);
        EXPECT_FLOAT_EQ(table.getValue(0, 0), 0.4f);
        EXPECT_FLOAT_EQ(table.valueAt(0.0f), 0.4f);
    }
}
