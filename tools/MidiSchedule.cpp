#include "tools/MidiSchedule.h"

#include <cmath>

MidiSchedule::MidiSchedule(const MidiFile& file, int sampleRate) {
    events.reserve(file.events().size());
    samples.reserve(file.events().size());
    for (const auto& e : file.events()) {
        AFMidiEvent event;
        for (int i = 0; i < e.size; ++i)
            event.midiData[i] = e.data[i];
        events.push_back(event);
        samples.push_back(std::llround(e.seconds * sampleRate));
    }
}

AFEvents MidiSchedule::eventsFor(int64_t start, int32_t frames) noexcept {
    while (next < samples.size() && samples[next] < start)
        ++next;
    const std::size_t first = next;
    while (next < samples.size() && samples[next] < start + frames) {
        events[next].deltaFrames = static_cast<int32_t>(samples[next] - start);
        ++next;
    }
    AFEvents block;
    block.numEvents = static_cast<int32_t>(next - first);
    block.events = block.numEvents > 0 ? events.data() + first : nullptr;
    return block;
}
