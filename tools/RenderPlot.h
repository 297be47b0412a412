#pragma once

#include "tools/SignalSketch.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The picture of a render: waveforms and spectrograms of input and output on one shared time axis, drawn with
// Cairo into a PNG in a dark style.
class RenderPlot {
public:
    static constexpr int kWidth = 1600;
    static constexpr int kHeight = 1040;

    // Main thread. `frames` is the length of both signals.
    RenderPlot(int64_t frames, double sampleRate);

    // Main thread, block by block in order.
    void addInput(const float* left, const float* right, std::size_t count) { input.add(left, right, count); }
    void addOutput(const float* left, const float* right, std::size_t count) {
        output.add(left, right, count);
    }

    // Main thread, once after the last block. False with a reason when the file cannot be written.
    bool write(const std::string& path, const std::string& title, std::string& error);

private:
    int64_t frames;
    double rate;
    SignalSketch input;
    SignalSketch output;
};
