#pragma once

#include <cstdint>

// The song position of each block in quarter notes, from what the plug-in format reports.
//
// An LV2 host such as Ardour sends its position only when the transport jumps, starts, stops or changes
// tempo, and DPF moves it on by itself in between: by a bar-beat kept in single precision, which drifts, and
// with bars counted from the block before, so that the block holding a bar line reads a whole bar ahead (and,
// with block sizes that vary, a bar may even be counted twice). Where the format is so moved on, the position
// is taken from the sample frame, which moves on exactly, for as long as the frames run on unbroken at one
// tempo and each reading differs from the last by the time between them and whole bars only. Anything else
// is the host's own word and is followed at once. Other formats hand over the host's position each block,
// and it is passed through unchanged.
class AFSongPosition {
public:
    struct Reading {
        bool playing = false;
        int64_t frame = 0;             // transport sample frame at the block start
        double quarters = 0.0;         // the song position the format reports at the block start
        double quartersPerFrame = 0.0; // tempo, in quarter notes per sample
        double barQuarters = 4.0;      // the bar's length in quarter notes
    };

    // Host thread, at construction: whether the format moves the position on between host messages.
    explicit AFSongPosition(bool movedOnByFormat = false) noexcept : repair(movedOnByFormat) {}

    // Audio thread, once per block of `frames` samples: the position to give the engine for its start.
    double follow(const Reading& reading, uint32_t frames) noexcept;
    // Audio thread or at activation: forget the blocks before.
    void reset() noexcept { anchored = false; }

private:
    void anchor(const Reading& reading) noexcept;

    bool repair;
    bool anchored = false;
    int64_t anchorFrame = 0;
    double anchorQuarters = 0.0;
    double quartersPerFrame = 0.0;
    int64_t expectedFrame = 0;
    double lastReported = 0.0; // the format's own reading last block, drift and all
    double lastStep = 0.0;
};
