// A Standard MIDI File as orvanto-render --midi reads it, then scheduled at a sample rate.
#include "tools/MidiFile.h"
#include "tools/MidiSchedule.h"

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    MidiFile file;
    std::string error;
    if (!file.parse(std::vector<uint8_t>(data, data + size), 120.0, error)) return 0;
    MidiSchedule schedule(file, 48000);
    return 0;
}
