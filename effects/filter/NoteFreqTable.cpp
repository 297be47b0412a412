#include "effects/filter/NoteFreqTable.h"

#include <cmath>

const NoteFreqTable& NoteFreqTable::instance() {
    static const NoteFreqTable table;
    return table;
}

NoteFreqTable::NoteFreqTable() {
    for (int n = 0; n < kRows; ++n) {
        const double freq = 1.02197504 * std::pow(2.0, n / 12.0);
        const double next = 1.02197504 * std::pow(2.0, (n + 1) / 12.0);
        rows[static_cast<std::size_t>(n)] = {static_cast<float>(freq), static_cast<float>(next - freq)};
    }
}

float NoteFreqTable::frequency(float note) const noexcept {
    // NaN and out-of-range notes land on the table's ends.
    const float n = note >= 0.0f ? (note <= kRows - 1 ? note : static_cast<float>(kRows - 1)) : 0.0f;
    const int index = static_cast<int>(n);
    const Row& row = rows[static_cast<std::size_t>(index)];
    return row.freq + (n - static_cast<float>(index)) * row.delta;
}
