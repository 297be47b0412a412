#pragma once

#include <cstdint>
#include <vector>

class AFSystemInfo;

// One note-value table: lengths in quarter notes, each with the text its knob shows.
class TimeValueTable {
public:
    struct Entry {
        double length; // quarter notes
        char text[16];
    };

    TimeValueTable() = default;
    explicit TimeValueTable(std::vector<Entry> rows);

    // index = trunc((count - 1) * v + 0.5), kept inside the table. Any thread.
    int indexFor(float v) const noexcept;
    const Entry& entryFor(float v) const noexcept { return entries[static_cast<std::size_t>(indexFor(v))]; }
    // Whole samples: trunc(samplesPerBeat * length); negative results read as unsigned.
    uint32_t intervalSamples(const AFSystemInfo& system, float v) const noexcept;
    // samplesPerBeat * length, unrounded.
    double intervalSamplesExact(const AFSystemInfo& system, float v) const noexcept;
    const char* valueName(float v) const noexcept { return entryFor(v).text; }

    int count() const noexcept { return countInt; }
    const Entry& at(int i) const noexcept { return entries[static_cast<std::size_t>(i)]; }

private:
    std::vector<Entry> entries;
    int countInt = 0;
    float countFloat = 0.0f;
    float inverseCount = 0.0f;
};
