#pragma once

#include <cstdint>
#include <cstdio>

// The progress bar of a render, redrawn in place on stderr when the percentage changes.
class RenderProgress {
public:
    // Main thread. Draws nothing unless `shown`.
    RenderProgress(bool shown, int64_t totalFrames, int sampleRate, std::FILE* stream = stderr);

    // Main thread: `done` frames of the total are rendered.
    void update(int64_t done);

private:
    bool shown;
    int64_t total;
    int rate;
    std::FILE* stream;
    int last = -1;
};
