// A MIDI map (.afm), then controllers, notes and aftertouch on every channel through whatever it bound.
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"

#include <array>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    AFUniClient& client = rig.client();
    client.getMidiBindings().loadMidiMap(rig.scratch(data, size, ".afm"), true);
    std::array<AFMidiEvent, 48> events{};
    int n = 0;
    for (int channel = 0; channel < 16; ++channel)
        for (uint8_t status : {0xB0, 0x90, 0xD0}) {
            AFMidiEvent& e = events[static_cast<std::size_t>(n)];
            e.midiData[0] = static_cast<uint8_t>(status | channel);
            e.midiData[1] = static_cast<uint8_t>((channel * 8 + 20) & 0x7F);
            e.midiData[2] = 100;
            ++n;
        }
    AFEvents list{n, events.data()};
    client.processEvents(&list);
    rig.play(1);
    return 0;
}
