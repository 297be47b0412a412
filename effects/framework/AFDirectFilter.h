#pragma once

#include <array>
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
    // Audio thread (activate): jumps the mode to the setting and clears every mode's state.
    void reset(int mode, float cutoff, float resonance) noexcept;
    // Audio thread: in place, mono, on the first channel's state.
    void process(int mode, float* data, int count) noexcept;
    // Audio thread: in place, both channels with the same coefficients and their own state.
    void processStereo(int mode, float* left, float* right, int count) noexcept;
    // Audio thread: the same as processStereo(Lowpass) and then processStereo(Highpass), in one pass so that
    // the two filters' recursions overlap.
    void processStereoBand(float* left, float* right, int count) noexcept;
    // Audio thread: in place, each channel through its own filter's mono path, interleaved so that the two
    // recursions overlap.
    static void processPair(int mode, AFDirectFilter& leftFilter, float* left, AFDirectFilter& rightFilter,
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

    void design(int mode, float cutoff, float resonance, float& first, float& second) const noexcept;
    static void run(int mode, const Side& a, const Side& b, bool pair, int count) noexcept;
    template <int Mode, bool Glide>
    static void runCores(Core& ca, Core& cb, int chA, int chB, float* left, float* right, bool pair,
                         int count) noexcept;
    template <bool Glide>
    static void runCombs(AFDirectFilter& fa, AFDirectFilter& fb, float* lineA, float* lineB, float* left,
                         float* right, bool pair, int count) noexcept;
    template <bool Glide>
    void runBand(float* left, float* right, int count) noexcept;
    static void finishGlide(Core& core, int samples) noexcept;
    static void finishGlide(CombLine& line, int samples) noexcept;

    AFSystemInfo* systemInfo;
    std::vector<float> lineL;
    std::vector<float> lineR;
    int lineSize;
    std::array<Core, 3> cores{};
    CombLine comb;
};
