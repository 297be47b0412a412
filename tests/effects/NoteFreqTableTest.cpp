#include "effects/filter/NoteFreqTable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

TEST(NoteFreqTableTest, RowsAreSemitonesFromTheLowestNote) {
    const NoteFreqTable& table = NoteFreqTable::instance();
    EXPECT_NEAR(table.frequency(69.0f), 55.0f, 1e-3f);
    EXPECT_NEAR(table.frequency(69.0f + 36.0f), 440.0f, 1e-2f);
    for (int n = 0; n < NoteFreqTable::kRows; ++n)
        ASSERT_NEAR(table.frequency(static_cast<float>(n)), 1.02197504 * std::pow(2.0, n / 12.0),
                    1e-5 * std::pow(2.0, n / 12.0))
            << n;
    // Linear between rows.
    const float a = table.frequency(60.0f);
    const float b = table.frequency(61.0f);
    EXPECT_NEAR(table.frequency(60.25f), a + 0.25f * (b - a), 1e-4f);
}

TEST(NoteFreqTableTest, HostileNotesStayInside) {
    const NoteFreqTable& table = NoteFreqTable::instance();
    EXPECT_EQ(table.frequency(-5.0f), table.frequency(0.0f));
    EXPECT_EQ(table.frequency(1e9f), table.frequency(163.0f));
    EXPECT_EQ(table.frequency(std::numeric_limits<float>::quiet_NaN()), table.frequency(0.0f));
}
