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
    // As set, with the coefficients already worked out by design, so stages that share a design compute it
    // once.
    void apply(int shape, float frequency, float q, const std::array<float, 5>& designed, int blockLength,
               bool snap) noexcept;
    // Audio thread: whether (shape, frequency, q) is the design last given.
    bool matches(int shape, float frequency, float q) const noexcept {
        return shape == lastShape && frequency == lastFrequency && q == lastQ;
    }
    // Any thread: coefficients b0, b1, b2, a1, a2 of a shape at unit gain, frequency and q kept stable.
    static std::array<float, 5> design(int shape, float frequency, float q, float sampleRate) noexcept;
    // Audio thread: in place, mono.
    void process(float* data, int count) noexcept;
    // Audio thread: two independent stages over two buffers, interleaved so that their recursions overlap.
    static void processPair(BiquadStage& a, float* first, BiquadStage& b, float* second, int count) noexcept;
    // Audio thread: as processPair, a standing stage moving two samples a step, so that its recursion is
    // half as long: the same response, rounded differently.
    static void processPairTwoStep(BiquadStage& a, float* first, BiquadStage& b, float* second,
                                   int count) noexcept;
    // Audio thread: two cascades of two stages (a then a2 over first, b then b2 over second) in one pass, the
    // same as running each stage over its whole buffer in turn.
    static void processCascadePair(BiquadStage& a, BiquadStage& a2, float* first, BiquadStage& b,
                                   BiquadStage& b2, float* second, int count) noexcept;

    // Audio thread: applied coefficients b0, b1, b2, a1, a2 (a0 normalised to 1).
    const std::array<float, 5>& coefficients() const noexcept { return current; }

private:
    template <bool Glide>
    void run(float* data, int count) noexcept;
    template <bool Glide>
    static void runPair(BiquadStage& a, float* first, BiquadStage& b, float* second, int count) noexcept;
    template <bool Glide>
    static void runCascadePair(BiquadStage& a, BiquadStage& a2, float* first, BiquadStage& b, BiquadStage& b2,
                               float* second, int count) noexcept;
    static void runPairTwoStep(BiquadStage& a, float* first, BiquadStage& b, float* second,
                               int count) noexcept;
    void finishGlide(int samples) noexcept;
    // One sample through the stage's registers: glide, filter, flush, shift.
    template <bool Glide>
    static float tick(std::array<float, 5>& c, const std::array<float, 5>& d, float& x1, float& x2, float& y1,
                      float& y2, float x) noexcept;

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
