#pragma once

#include "tools/DemoLoop.h"

#include <sndfile.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the render feeds the plug-in: an audio file (mono duplicated to both channels) followed by silence for
// the tail, or the endless demo loop.
class RenderSource {
public:
    // Main thread.
    RenderSource() = default;
    RenderSource(const RenderSource&) = delete;
    RenderSource& operator=(const RenderSource&) = delete;
    ~RenderSource();

    // Main thread. False with a one-line reason when the file cannot be read or cannot be played.
    bool openFile(const std::string& path, std::string& error);
    // Main thread.
    void useDemo(int sampleRate, double tempo);

    int sampleRate() const { return rate; }
    // Frames of the file; 0 for the demo loop.
    int64_t inputFrames() const { return fileFrames; }

    // Main thread: fills `count` frames of both channels from position `frame`; reads must come in order.
    void read(int64_t frame, float* left, float* right, int count);

private:
    SNDFILE* file = nullptr;
    int channels = 2;
    int rate = 0;
    int64_t fileFrames = 0;
    std::optional<DemoLoop> demo;
    std::vector<float> interleaved;
};
