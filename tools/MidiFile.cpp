#include "tools/MidiFile.h"

#include "tools/BoundedFile.h"

#include <algorithm>

namespace {

constexpr uint32_t kDefaultTempo = 500000; // microseconds per quarter note, the SMF default

struct Tick {
    uint64_t tick;
    uint32_t order; // file order breaks ties, so equal ticks keep their sequence
    bool tempo;
    uint32_t microsPerQuarter;
    uint8_t data[3];
    uint8_t size;
};

class Reader {
public:
    Reader(const uint8_t* begin, std::size_t size) : at(begin), end(begin + size) {}

    bool byte(uint8_t& value) {
        if (at >= end) return false;
        value = *at++;
        return true;
    }
    bool peek(uint8_t& value) const {
        if (at >= end) return false;
        value = *at;
        return true;
    }
    bool word(uint32_t& value, int bytes) {
        value = 0;
        for (int i = 0; i < bytes; ++i) {
            uint8_t b = 0;
            if (!byte(b)) return false;
            value = (value << 8) | b;
        }
        return true;
    }
    // A variable-length quantity: at most four bytes.
    bool quantity(uint32_t& value) {
        value = 0;
        for (int i = 0; i < 4; ++i) {
            uint8_t b = 0;
            if (!byte(b)) return false;
            value = (value << 7) | (b & 0x7Fu);
            if ((b & 0x80u) == 0) return true;
        }
        return false;
    }
    bool skip(uint32_t count) {
        if (count > static_cast<std::size_t>(end - at)) return false;
        at += count;
        return true;
    }
    const uint8_t* position() const { return at; }
    bool done() const { return at >= end; }

private:
    const uint8_t* at;
    const uint8_t* end;
};

int dataBytes(uint8_t status) {
    const uint8_t kind = status & 0xF0u;
    return kind == 0xC0u || kind == 0xD0u ? 1 : 2;
}

bool readTrack(Reader track, uint32_t& order, std::vector<Tick>& ticks, std::string& error) {
    uint64_t tick = 0;
    uint8_t running = 0;
    while (!track.done()) {
        uint32_t delta = 0;
        uint8_t status = 0;
        if (!track.quantity(delta) || !track.peek(status)) return error = "a track event is cut short", false;
        tick += delta;
        if (status == 0xFFu) {
            uint8_t type = 0;
            uint32_t length = 0;
            track.byte(status);
            if (!track.byte(type) || !track.quantity(length))
                return error = "a meta event is cut short", false;
            if (type == 0x2Fu) return true;
            if (type == 0x51u && length == 3) {
                uint32_t micros = 0;
                track.word(micros, 3);
                if (micros > 0) ticks.push_back({tick, order++, true, micros, {0, 0, 0}, 0});
            } else if (!track.skip(length)) {
                return error = "a meta event runs past its track", false;
            }
            continue;
        }
        if (status == 0xF0u || status == 0xF7u) {
            uint32_t length = 0;
            track.byte(status);
            if (!track.quantity(length) || !track.skip(length))
                return error = "a system exclusive message runs past its track", false;
            running = 0; // system messages cancel running status
            continue;
        }
        if ((status & 0x80u) != 0) {
            track.byte(status);
            if (status > 0xEFu) return error = "a system common message inside a track", false;
            running = status;
        } else if (running == 0) {
            return error = "a data byte without a status", false;
        }
        Tick event{tick, order++, false, 0, {running, 0, 0}, 1};
        for (int i = 0; i < dataBytes(running); ++i) {
            uint8_t value = 0;
            if (!track.byte(value) || (value & 0x80u) != 0)
                return error = "a channel message is cut short", false;
            event.data[event.size++] = value;
        }
        ticks.push_back(event);
    }
    return true; // a track without its end event is accepted as far as it goes
}

} // namespace

bool MidiFile::parse(const std::vector<uint8_t>& bytes, double hostTempo, std::string& error) {
    timed.clear();
    tempoGiven = false;
    Reader file(bytes.data(), bytes.size());
    uint32_t id = 0, length = 0, format = 0, tracks = 0, division = 0;
    if (!file.word(id, 4) || id != 0x4D546864u || !file.word(length, 4) || length < 6)
        return error = "not a Standard MIDI File", false;
    if (!file.word(format, 2) || !file.word(tracks, 2) || !file.word(division, 2) || !file.skip(length - 6))
        return error = "the MIDI file header is cut short", false;
    if (format > 1)
        return error = "MIDI file format " + std::to_string(format) + " is not supported (0 or 1)", false;
    if (division == 0) return error = "the MIDI file has a time division of 0", false;

    std::vector<Tick> ticks;
    uint32_t order = 0;
    uint32_t found = 0;
    while (found < tracks && !file.done()) {
        uint32_t chunk = 0;
        if (!file.word(chunk, 4) || !file.word(length, 4))
            return error = "a track header is cut short", false;
        const uint8_t* body = file.position();
        if (!file.skip(length)) return error = "a track runs past the end of the file", false;
        if (chunk != 0x4D54726Bu) continue; // unknown chunks are skipped
        if (!readTrack(Reader(body, length), order, ticks, error)) return false;
        ++found;
    }
    if (found < tracks) return error = "the MIDI file holds fewer tracks than its header announces", false;
    std::sort(ticks.begin(), ticks.end(), [](const Tick& a, const Tick& b) {
        return a.tick != b.tick ? a.tick < b.tick : a.order < b.order;
    });

    // SMPTE division: frames per second times ticks per frame, independent of the tempo.
    const bool smpte = (division & 0x8000u) != 0;
    const double fps = smpte ? -static_cast<int8_t>(division >> 8) : 0.0;
    const double secondsPerTickSmpte = smpte ? 1.0 / (fps == 29.0 ? 29.97 : fps) / (division & 0xFFu) : 0.0;
    if (smpte && (fps <= 0.0 || (division & 0xFFu) == 0))
        return error = "the MIDI file has a bad SMPTE division", false;

    tempoGiven = std::any_of(ticks.begin(), ticks.end(), [](const Tick& t) { return t.tempo; });
    double secondsPerTick = tempoGiven ? kDefaultTempo * 1e-6 / division : 60.0 / hostTempo / division;
    uint64_t lastTick = 0;
    double seconds = 0.0;
    for (const Tick& t : ticks) {
        seconds += static_cast<double>(t.tick - lastTick) * (smpte ? secondsPerTickSmpte : secondsPerTick);
        lastTick = t.tick;
        if (t.tempo) {
            secondsPerTick = t.microsPerQuarter * 1e-6 / division;
            continue;
        }
        timed.push_back({seconds, {t.data[0], t.data[1], t.data[2]}, t.size});
    }
    return true;
}

bool MidiFile::load(const std::string& path, double hostTempo, std::string& error) {
    std::vector<uint8_t> bytes;
    std::string reason;
    if (!BoundedFile::read(path, bytes, reason)) return error = "--midi '" + path + "': " + reason, false;
    if (!parse(bytes, hostTempo, reason)) return error = "--midi '" + path + "': " + reason, false;
    return true;
}
