#pragma once

#include "host/AFPluginTypes.h"
#include "tools/MidiFile.h"

#include <cstdint>
#include <vector>

// The events of a MIDI file placed on the render's sample grid, handed out block by block with each event's
// offset inside its block. Built once before the render; handing out allocates nothing.
class MidiSchedule {
public:
    // Main thread: each event lands on the sample nearest its time at `sampleRate`.
    MidiSchedule(const MidiFile& file, int sampleRate);
    MidiSchedule() = default;

    // Render thread: the events of the block from sample `start` on, `frames` long. Blocks must come in
    // order; events of skipped samples are dropped. The record stays valid until the next call.
    AFEvents eventsFor(int64_t start, int32_t frames) noexcept;

    std::size_t size() const { return events.size(); }

private:
    std::vector<AFMidiEvent> events;
    std::vector<int64_t> samples;
    std::size_t next = 0;
};
