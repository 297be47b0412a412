// Reading Standard MIDI Files built byte by byte here, and placing their events on the sample grid.

#include "tools/MidiFile.h"
#include "tools/MidiSchedule.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

void append(Bytes& to, std::initializer_list<int> bytes) {
    for (int b : bytes)
        to.push_back(static_cast<uint8_t>(b));
}

void append32(Bytes& to, uint32_t v) {
    append(to, {static_cast<int>(v >> 24), static_cast<int>((v >> 16) & 0xFF),
                static_cast<int>((v >> 8) & 0xFF), static_cast<int>(v & 0xFF)});
}

Bytes header(int format, int tracks, int division) {
    Bytes b{'M', 'T', 'h', 'd'};
    append32(b, 6);
    append(b, {0, format, 0, tracks, (division >> 8) & 0xFF, division & 0xFF});
    return b;
}

void track(Bytes& file, const Bytes& body) {
    append(file, {'M', 'T', 'r', 'k'});
    append32(file, static_cast<uint32_t>(body.size()));
    file.insert(file.end(), body.begin(), body.end());
}

MidiFile parsed(const Bytes& bytes, double hostTempo = 120.0) {
    MidiFile f;
    std::string error;
    EXPECT_TRUE(f.parse(bytes, hostTempo, error)) << error;
    return f;
}

TEST(MidiFile, RunningStatusAndVariableLengthDeltas) {
    Bytes file = header(0, 1, 480);
    // Note on at 0, a second note on by running status 480 ticks later, a CC, a program change (one data
    // byte) then by running status another, a two-byte delta (0x83 0x60 = 480), then the end.
    track(file, {0x00, 0x90, 60,   100, 0x83, 0x60, 64,   90, 0x00, 0xB0, 1,    127,  0x00,
                 0xC2, 5,    0x10, 6,   0x83, 0x60, 0x80, 60, 0,    0x00, 0xFF, 0x2F, 0x00});
    const MidiFile f = parsed(file);
    EXPECT_FALSE(f.hasTempoMap());
    const auto& e = f.events();
    ASSERT_EQ(e.size(), 6u);
    EXPECT_EQ(e[0].data[0], 0x90);
    EXPECT_DOUBLE_EQ(e[0].seconds, 0.0);
    EXPECT_EQ(e[1].data[0], 0x90);
    EXPECT_EQ(e[1].data[1], 64);
    EXPECT_EQ(e[1].data[2], 90);
    EXPECT_DOUBLE_EQ(e[1].seconds, 0.5); // one quarter at 120 BPM
    EXPECT_EQ(e[2].data[0], 0xB0);
    EXPECT_EQ(e[3].size, 2);
    EXPECT_EQ(e[3].data[1], 5);
    EXPECT_EQ(e[4].data[0], 0xC2);
    EXPECT_EQ(e[4].data[1], 6);
    EXPECT_NEAR(e[4].seconds, 0.5 + 16.0 / 480 * 0.5, 1e-12);
    EXPECT_EQ(e[5].data[0], 0x80);
    EXPECT_NEAR(e[5].seconds, 1.0 + 16.0 / 480 * 0.5, 1e-12);
}

TEST(MidiFile, TwoTracksMergeUnderTheTempoMapOfTheFirst) {
    Bytes file = header(1, 2, 96);
    // Tempo track: 120 BPM, then 60 BPM from tick 192, sysex and a text event skipped.
    track(file,
          {0x00, 0xFF, 0x51, 0x03, 0x07, 0xA1, 0x20, 0x00, 0xF0, 0x03, 1,    2,    0xF7, 0x00, 0xFF, 0x01,
           0x02, 'h',  'i',  0x81, 0x40, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, 0x00, 0xFF, 0x2F, 0x00});
    // Music track: CC at tick 96 (0.5 s), CC at tick 288 (1 s + one quarter at 60 BPM = 2 s).
    track(file, {0x60, 0xB0, 7, 10, 0x81, 0x40, 0xB0, 7, 20, 0x00, 0xFF, 0x2F, 0x00});
    const MidiFile f = parsed(file, 90.0);
    EXPECT_TRUE(f.hasTempoMap());
    ASSERT_EQ(f.events().size(), 2u);
    EXPECT_NEAR(f.events()[0].seconds, 0.5, 1e-12);
    EXPECT_NEAR(f.events()[1].seconds, 2.0, 1e-12);
    EXPECT_EQ(f.events()[1].data[2], 20);
}

TEST(MidiFile, WithoutTempoEventsTheHostTempoTimesTheFile) {
    Bytes file = header(0, 1, 100);
    track(file, {0x64, 0x90, 60, 1, 0x00, 0xFF, 0x2F, 0x00});
    EXPECT_NEAR(parsed(file, 90.0).events()[0].seconds, 60.0 / 90.0, 1e-12);
}

TEST(MidiFile, SmpteDivisionIgnoresTempo) {
    Bytes file = header(0, 1, 0xE728); // -25 frames per second, 40 ticks per frame: 1 ms per tick
    track(file, {0x00, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, 0x8F, 0x50, 0x90, 60, 1});
    EXPECT_NEAR(parsed(file).events()[0].seconds, 2.0, 1e-12);
}

TEST(MidiFile, HostileFilesAreRefused) {
    const Bytes good = [] {
        Bytes f = header(0, 1, 96);
        track(f, {0x00, 0x90, 60, 100, 0x60, 0x80, 60, 0, 0x00, 0xFF, 0x2F, 0x00});
        return f;
    }();
    std::vector<Bytes> bad;
    bad.push_back({});
    bad.push_back({'R', 'I', 'F', 'F', 0, 0, 0, 6, 0, 0, 0, 1, 0, 96});
    bad.push_back(header(2, 1, 96));
    bad.push_back(header(0, 1, 0));
    for (std::size_t cut = 1; cut < good.size(); ++cut)
        if (cut < 22 || cut == good.size() - 2)
            bad.emplace_back(good.begin(), good.begin() + static_cast<long>(cut));
    Bytes dataFirst = header(0, 1, 96);
    track(dataFirst, {0x00, 60, 100});
    bad.push_back(dataFirst);
    Bytes longMeta = header(0, 1, 96);
    track(longMeta, {0x00, 0xFF, 0x01, 0x7F, 'x'});
    bad.push_back(longMeta);
    Bytes longQuantity = header(0, 1, 96);
    track(longQuantity, {0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 0x90, 60, 1});
    bad.push_back(longQuantity);
    Bytes overLong = header(0, 1, 96);
    append(overLong, {'M', 'T', 'r', 'k', 0x7F, 0xFF, 0xFF, 0xFF, 0x00});
    bad.push_back(overLong);
    for (std::size_t i = 0; i < bad.size(); ++i) {
        MidiFile f;
        std::string error;
        EXPECT_FALSE(f.parse(bad[i], 120.0, error)) << i;
        EXPECT_FALSE(error.empty()) << i;
    }
    MidiFile f;
    std::string error;
    EXPECT_FALSE(f.load("/nonexistent/file.mid", 120.0, error));
    EXPECT_EQ(error, "--midi '/nonexistent/file.mid': cannot open the file: No such file or directory");
}

TEST(MidiSchedule, EventsLandOnTheirSampleInTheirBlock) {
    Bytes file = header(0, 1, 480);
    // At 120 BPM and 48 kHz one tick is 50 samples: ticks 0, 10 (500), 11 (550), 21 (1050), 21 again.
    track(file, {0x00, 0xB0, 1, 0, 0x0A, 0xB0, 1, 64, 0x01, 0xE0, 0, 64, 0x0A, 0xB0, 1, 127, 0x00, 0xC0, 3});
    MidiSchedule schedule(parsed(file), 48000);
    ASSERT_EQ(schedule.size(), 5u);
    std::vector<std::pair<int64_t, std::vector<int>>> seen; // absolute sample, bytes
    int64_t start = 0;
    for (int32_t frames : {500, 37, 463, 64, 64, 1000}) {
        const AFEvents block = schedule.eventsFor(start, frames);
        for (int i = 0; i < block.numEvents; ++i) {
            const AFMidiEvent& e = block.events[i];
            ASSERT_GE(e.deltaFrames, 0);
            ASSERT_LT(e.deltaFrames, frames);
            seen.push_back({start + e.deltaFrames, {e.midiData[0], e.midiData[1], e.midiData[2]}});
        }
        start += frames;
    }
    const std::vector<std::pair<int64_t, std::vector<int>>> expected{{0, {0xB0, 1, 0}},
                                                                     {500, {0xB0, 1, 64}},
                                                                     {550, {0xE0, 0, 64}},
                                                                     {1050, {0xB0, 1, 127}},
                                                                     {1050, {0xC0, 3, 0}}};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(schedule.eventsFor(start, 512).numEvents, 0);
}

TEST(MidiSchedule, RoundsToTheNearestSampleAtOddRates) {
    Bytes file = header(0, 1, 3);
    track(file, {0x01, 0x90, 60, 1}); // a third of a half second
    MidiSchedule schedule(parsed(file), 44100);
    const AFEvents block = schedule.eventsFor(0, 8192);
    ASSERT_EQ(block.numEvents, 1);
    EXPECT_EQ(block.events[0].deltaFrames, static_cast<int32_t>(std::llround(44100.0 / 6.0)));
}

} // namespace
