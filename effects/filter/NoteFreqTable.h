#pragma once

#include <array>

// Note-number to frequency table: 164 semitone rows of 1.02197504 * 2^(n/12) Hz, each with the difference to
// the next row, so a fractional note costs one multiply-add. Row 69 is 55 Hz (MIDI note plus 36).
class NoteFreqTable {
public:
    static constexpr int kRows = 164;
    static constexpr int kMidiOffset = 36;

    // Any thread; the first call builds the table.
    static const NoteFreqTable& instance();

    // Any thread: frequency in Hz at a fractional row, kept inside the table.
    float frequency(float note) const noexcept;

private:
    NoteFreqTable();

    struct Row {
        float freq;
        float delta;
    };
    std::array<Row, kRows> rows{};
};
