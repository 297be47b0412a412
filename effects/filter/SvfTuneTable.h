#pragma once

#include <array>

// Frequency coefficients of a state-variable filter, indexed by resonance row (r/10) and frequency column
// (c/20 of the sample rate), row-major. They keep the filter in tune and stable up to the top of the band,
// where 2*sin(pi*f) alone would drift. Each entry keeps the difference to the next one.
class SvfTuneTable {
public:
    static constexpr int kRows = 11;
    static constexpr int kColumns = 11;
    static constexpr int kSize = kRows * kColumns;

    struct Entry {
        float value;
        float delta;
    };

    // Any thread; index 0..kSize-1.
    static const Entry& at(int index) noexcept { return entries()[static_cast<std::size_t>(index)]; }
    // Any thread; the first call builds the table.
    static const std::array<Entry, kSize>& entries() noexcept;
};
