#pragma once

#include <array>

// One second-order section whose coefficients glide to a new design across a control block, so that cutoff
// moves never step. Designs are at unit gain: low-pass, high-pass, band-reject and band-pass.
class BiquadStage {
public:
    enum Shape { LowPass = 0, HighPass = 1, BandReject = 2, BandPass = 3 };

    // Audio thread at a control tick. A design equal to the last one only stops the glide; otherwise the
    // coefficients glide to the new design over blockLength samples. snap jumps there and clears the history.
    void set(int shape, float frequency, float q, float sampleRate, int blockLength, bool snap) noexcept;
    // Audio thread: in place, mono.
    void process(float* data, int count) noexcept;
    // Audio thread: two independent stages over two buffers, interleaved so that their recursions overlap.
    static void processPair(BiquadStage& a, float* first, BiquadStage& b, float* second, int count) noexcept;

    // Applied coefficients b0, b1, b2, a1, a2 (a0 normalised to 1).
    const std::array<float, 5>& coefficients() const noexcept { return current; }

private:
    template <bool Glide>
    void run(float* data, int count) noexcept;
    template <bool Glide>
    static void runPair(BiquadStage& a, float* first, BiquadStage& b, float* second, int count) noexcept;
    void finishGlide(int samples) noexcept;

    std::array<float, 5> current{1.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    std::array<float, 5> target{1.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    std::array<float, 5> delta{};
    int glideLeft = 0;
    int lastShape = -1;
    float lastFrequency = -1.0f;
    float lastQ = -1.0f;
    float x1 = 0.0f;
    float x2 = 0.0f;
    float y1 = 0.0f;
    float y2 = 0.0f;
};
