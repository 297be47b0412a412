#include "effects/filter/WaveTables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

namespace {

struct Point {
    int index;
    float value;
};

void expectPoints(int wave, std::initializer_list<Point> points) {
    const float* table = WaveTables::instance().wave(wave);
    for (const Point& p : points)
        EXPECT_NEAR(table[p.index], p.value, 0.01f) << "wave " << wave << " @" << p.index;
}

} // namespace

TEST(WaveTablesTest, AnalogueShapesPassTheirCharacteristicPoints) {
    expectPoints(0, {{0, 0.981f},
                     {1, 1.0f},
                     {128, 0.714f},
                     {256, 0.433f},
                     {511, -0.054f},
                     {768, -0.463f},
                     {1023, -0.488f}});
    expectPoints(1, {{0, 0.003f}, {64, 0.230f}, {128, 0.448f}, {256, 0.853f}, {511, 0.001f}, {768, -0.853f}});
    expectPoints(
        2, {{0, 0.998f}, {256, 0.832f}, {511, 0.615f}, {512, -0.998f}, {768, -0.832f}, {1023, -0.694f}});
}

TEST(WaveTablesTest, SineStartsAtZeroAndIsPlain) {
    const float* sine = WaveTables::instance().wave(3);
    for (int i = 0; i < WaveTables::kSize; ++i)
        ASSERT_NEAR(sine[i], std::sin(2.0 * M_PI * i / WaveTables::kSize), 1e-6) << i;
}

TEST(WaveTablesTest, DeltasLeadToTheNextPointAndShapesStayBounded) {
    const WaveTables& tables = WaveTables::instance();
    for (int w = 0; w < WaveTables::kCount; ++w) {
        const float* wave = tables.wave(w);
        const float* delta = tables.delta(w);
        for (int i = 0; i < WaveTables::kSize; ++i) {
            ASSERT_NEAR(wave[i] + delta[i], wave[(i + 1) & WaveTables::kMask], 1e-6f) << w << " @" << i;
            ASSERT_LE(std::fabs(wave[i]), 1.0f + 1e-6f) << w << " @" << i;
        }
    }
}

TEST(WaveTablesTest, PairsHoldEachPointBesideItsDeltaBitForBit) {
    const WaveTables& tables = WaveTables::instance();
    for (int w = -1; w <= WaveTables::kCount; ++w) {
        const float* wave = tables.wave(w);
        const float* delta = tables.delta(w);
        const float* pairs = tables.pairs(w);
        for (int i = 0; i < WaveTables::kSize; ++i) {
            ASSERT_EQ(std::bit_cast<uint32_t>(pairs[2 * i]), std::bit_cast<uint32_t>(wave[i]))
                << w << " @" << i;
            ASSERT_EQ(std::bit_cast<uint32_t>(pairs[2 * i + 1]), std::bit_cast<uint32_t>(delta[i]))
                << w << " @" << i;
        }
    }
}

TEST(WaveTablesTest, TablesAreSharedAndIndexFolds) {
    const WaveTables& a = WaveTables::instance();
    EXPECT_EQ(&a, &WaveTables::instance());
    EXPECT_EQ(a.wave(4), a.wave(0));
    EXPECT_EQ(a.wave(7), a.wave(3));
    EXPECT_EQ(a.delta(-1), a.delta(3));
}
