#pragma once

#include <array>
#include <cmath>
#include <vector>

class AFSystemInfo;

// A resonant filter driven directly by a normalised cutoff: high-pass, band-pass, low-pass (a zero-delay
// state-variable core) and a comb. Each mode keeps its own coefficients and state, so one object can run two
// modes over the same block; coefficients glide across the control block. Mono or stereo with shared
// settings.
class AFDirectFilter {
public:
    enum Mode { Highpass = 0, Bandpass = 1, Lowpass = 2, Comb = 3 };
    static constexpr int kModeCount = 4;
    // The comb's lowest frequency; its lines are sized for it at the highest rate.
    static constexpr float kCombFloorHz = 45.0f;

    // Any thread, before the audio runs: sizes the comb lines for the highest sample rate.
    explicit AFDirectFilter(AFSystemInfo* systemInfo);

    // Audio thread at a control tick: cutoff 0..1 maps to 20 Hz..20 kHz on a cubic curve, resonance 0..1.
    // The mode's coefficients glide there over the next control interval.
    void set(int mode, float cutoff, float resonance) noexcept;
    // Audio thread at a control tick: as set() for a core mode, with the setting `other` last took there,
    // reusing its design.
    void setAs(int mode, const AFDirectFilter& other) noexcept;
    // Audio thread (activate): jumps the mode to the setting and clears every mode's state.
    void reset(int mode, float cutoff, float resonance) noexcept;
    // Audio thread: in place, mono, on the first channel's state.
    void process(int mode, float* data, int count) noexcept;
    // Audio thread: in place, both channels with the same coefficients and their own state.
    void processStereo(int mode, float* left, float* right, int count) noexcept;
    // Audio thread: as processStereo, a standing core moving two samples a step, so that its recursion is
    // half as long: the same response, rounded differently.
    void processStereoTwoStep(int mode, float* left, float* right, int count) noexcept;
    // Audio thread: the same as processStereo(Lowpass) and then processStereo(Highpass), in one pass so that
    // the two filters' recursions overlap.
    void processStereoBand(float* left, float* right, int count) noexcept;
    // Audio thread: as processStereoBand, handing each filtered pair to next(i, left, right) instead of
    // storing it, so that the caller's own per-sample work overlaps the recursions.
    template <class Next>
    void processStereoBand(const float* left, const float* right, int count, Next&& next) noexcept;
    // Audio thread: in place, each channel through its own filter's mono path, interleaved so that the two
    // recursions overlap.
    static void processPair(int mode, AFDirectFilter& leftFilter, float* left, AFDirectFilter& rightFilter,
                            float* right, int count) noexcept;
    // Audio thread: the same as processPair(Lowpass) and then processPair(Highpass), in one pass so that the
    // four recursions overlap.
    static void processPairBand(AFDirectFilter& leftFilter, float* left, AFDirectFilter& rightFilter,
                                float* right, int count) noexcept;

    // Any thread: cutoff in Hz for a normalised value, before the Nyquist guard.
    static float cutoffHz(float cutoff) noexcept;
    // Any thread: resonance after the mode's scaling.
    static float scaledResonance(int mode, float resonance) noexcept;

private:
    struct Core {
        float g = 0.01f; // tan(pi * f / rate)
        float k = 2.0f;  // damping, 1 / Q
        float gStep = 0.0f;
        float kStep = 0.0f;
        float gTarget = 0.01f;
        float kTarget = 2.0f;
        int glideLeft = 0;
        // The setting and rate the targets were designed for, so that a repeated setting skips the design.
        float cutoff = -1.0f;
        float resonance = -1.0f;
        float rate = 0.0f;
        std::array<float, 2> s1{};
        std::array<float, 2> s2{};
    };
    struct CombLine {
        float delay = 100.0f; // samples
        float feedback = 0.0f;
        float delayStep = 0.0f;
        float feedbackStep = 0.0f;
        float delayTarget = 100.0f;
        float feedbackTarget = 0.0f;
        int glideLeft = 0;
        int write = 0;
    };

    // One side of a two-channel run: whose coefficients, which state, which comb line.
    struct Side {
        AFDirectFilter* filter;
        int channel;
        float* data;
    };

    void glide(Core& core, float g, float k) noexcept;
    void design(int mode, float cutoff, float resonance, float& first, float& second) const noexcept;
    static void run(int mode, const Side& a, const Side& b, bool pair, int count,
                    bool twoStep = false) noexcept;
    template <int Mode, bool Glide>
    static void runCores(Core& ca, Core& cb, int chA, int chB, float* left, float* right, bool pair,
                         int count, bool twoStep) noexcept;
    template <bool Glide>
    static void runCombs(AFDirectFilter& fa, AFDirectFilter& fb, float* lineA, float* lineB, float* left,
                         float* right, bool pair, int count) noexcept;
    template <bool Glide>
    static void runPairBand(AFDirectFilter& fa, AFDirectFilter& fb, float* left, float* right,
                            int count) noexcept;
    template <bool Glide, class Next>
    void runBand(const float* left, const float* right, int offset, int count, Next& next) noexcept;
    static void finishGlide(Core& core, int samples) noexcept;
    static void finishGlide(CombLine& line, int samples) noexcept;
    // State below this is cleared after each block so that silence never decays into denormals.
    static constexpr float kFlush = 1e-20f;
    static float flushed(float v) noexcept { return std::fabs(v) < kFlush ? 0.0f : v; }

    AFSystemInfo* systemInfo;
    std::vector<float> lineL;
    std::vector<float> lineR;
    int lineSize;
    std::array<Core, 3> cores{};
    CombLine comb;
};

template <bool Glide, class Next>
void AFDirectFilter::runBand(const float* left, const float* right, int offset, int count,
                             Next& next) noexcept {
    // Left and right side by side in vector lanes, each lane doing the scalar arithmetic of its channel.
    using Lanes = float __attribute__((vector_size(8)));
    Core& lo = cores[Lowpass];
    Core& hi = cores[Highpass];
    // The two filters' coefficients side by side too: low-pass, then high-pass.
    Lanes g = {lo.g, hi.g}, k = {lo.k, hi.k};
    const Lanes gStep = {lo.gStep, hi.gStep}, kStep = {lo.kStep, hi.kStep};
    Lanes l1 = {lo.s1[0], lo.s1[1]}, l2 = {lo.s2[0], lo.s2[1]};
    Lanes h1 = {hi.s1[0], hi.s1[1]}, h2 = {hi.s2[0], hi.s2[1]};
    const Lanes one = {1.0f, 1.0f};
    Lanes a1 = one / (one + g * (g + k));
    for (int i = offset; i < offset + count; ++i) {
        if constexpr (Glide) {
            g += gStep;
            k += kStep;
            a1 = one / (one + g * (g + k));
        }
        const Lanes a2 = g * a1, a3 = g * a2;
        const float a1l = a1[0], a2l = a2[0], a3l = a3[0];
        const float a1h = a1[1], a2h = a2[1], a3h = a3[1], kh = k[1];
        const Lanes x = {left[i], right[i]};
        const Lanes v3 = x - l2;
        const Lanes v1 = a1l * l1 + a2l * v3;
        const Lanes v2 = l2 + a2l * l1 + a3l * v3;
        l1 = 2.0f * v1 - l1;
        l2 = 2.0f * v2 - l2;
        // High-pass on the low-pass output.
        const Lanes w3 = v2 - h2;
        const Lanes w1 = a1h * h1 + a2h * w3;
        const Lanes w2 = h2 + a2h * h1 + a3h * w3;
        h1 = 2.0f * w1 - h1;
        h2 = 2.0f * w2 - h2;
        const Lanes y = v2 - kh * w1 - w2;
        next(i, y[0], y[1]);
    }
    lo.g = g[0];
    lo.k = k[0];
    hi.g = g[1];
    hi.k = k[1];
    lo.s1 = {flushed(l1[0]), flushed(l1[1])};
    lo.s2 = {flushed(l2[0]), flushed(l2[1])};
    hi.s1 = {flushed(h1[0]), flushed(h1[1])};
    hi.s2 = {flushed(h2[0]), flushed(h2[1])};
}

template <class Next>
void AFDirectFilter::processStereoBand(const float* left, const float* right, int count,
                                       Next&& next) noexcept {
    Core& lo = cores[Lowpass];
    Core& hi = cores[Highpass];
    int done = 0;
    while (done < count) {
        int segment = count - done;
        const bool glide = lo.glideLeft > 0 || hi.glideLeft > 0;
        if (lo.glideLeft > 0) segment = segment < lo.glideLeft ? segment : lo.glideLeft;
        if (hi.glideLeft > 0) segment = segment < hi.glideLeft ? segment : hi.glideLeft;
        if (glide)
            runBand<true>(left, right, done, segment, next);
        else
            runBand<false>(left, right, done, segment, next);
        finishGlide(lo, segment);
        finishGlide(hi, segment);
        done += segment;
    }
}
