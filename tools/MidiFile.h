#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The channel messages of a Standard MIDI File (format 0 or 1), merged over its tracks in time order and
// timed in seconds through the file's tempo map. Meta events other than tempo and all system exclusive
// messages are skipped. Every length and running status is checked; a hostile file is refused, never read
// past its end.
class MidiFile {
public:
    struct Event {
        double seconds;
        uint8_t data[3];
        uint8_t size; // 2 or 3
    };

    // Main thread. `hostTempo` (BPM) times a file that has no tempo event of its own. False with one line in
    // error for a file that is not a format 0 or 1 SMF or is cut short.
    bool parse(const std::vector<uint8_t>& bytes, double hostTempo, std::string& error);
    // Main thread: the same for a file by name.
    bool load(const std::string& path, double hostTempo, std::string& error);

    const std::vector<Event>& events() const { return timed; }
    bool hasTempoMap() const { return tempoGiven; }

private:
    std::vector<Event> timed;
    bool tempoGiven = false;
};
