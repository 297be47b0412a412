#pragma once

#include "effects/filter/BiquadStage.h"
#include "effects/framework/AFAligned.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/SampleBlock.h"

#include <array>

// Reverb: a sixteen-line feedback delay network behind an eight-stage allpass diffuser per channel. The lines
// are mixed by a scaled Hadamard matrix (lossless, every line feeds every other), half the lines drift slowly
// so that no mode rings, and a three-tap low-pass in every line sets its loss for its length, so the
// full-band decay time is the one shown and the treble dies sooner as "Reflectivity" falls. Left and right
// leave through two orthogonal rows of the mix, so the tails are decorrelated. Every line is longer than a
// block, so a block runs line by line with no recursion inside it. Wet only; the slot adds the dry path.
class AFReverbHQ : public AFEffect, public AFAligned {
public:
    static constexpr int kLines = 16;
    static constexpr int kDiffusers = 8;
    // Shortest and longest decay shown by "Reverb Time", in seconds.
    static constexpr float kShortestTime = 0.25f;
    static constexpr float kLongestTime = 16.0f;

    // Any thread with the audio held off: sizes every line for the highest sample rate.
    AFReverbHQ(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread; read by the audio thread at the next tick.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, from activate and deactivate: empties every line and filter.
    void reset() override;
    // Audio thread, once per tick before process: delays, decay gains, send and input filter.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Audio thread when the slot's fade-out ends: the tail is dropped.
    void deactivate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }

    // Any thread: the decay time in seconds that "Reverb Time" shows for a knob value.
    static float reverbTimeSeconds(float value) noexcept;

private:
    using Lanes = float __attribute__((vector_size(32)));

    struct Diffuser {
        int offset; // into diffuserStore
        int delay;  // samples at the current rate
        float gain;
    };

    void derive(bool jump) noexcept;
    void filterInput(float* left, float* right, int count) noexcept;
    void diffuse(int channel, float* data, int count) noexcept;
    void runNetwork(float* left, float* right, const float* inLeft, const float* inRight, int count) noexcept;

    std::array<int32_t, 4> options{};
    SampleBlock lineStore;     // kLines rings of kLineSize
    SampleBlock diffuserStore; // 2 x kDiffusers rings of kDiffuserSize, spaced apart
    std::array<std::array<Diffuser, kDiffusers>, 2> diffusers{};
    int diffuserWrite = 0;
    int lineWrite = 0;
    int lineMask = 1; // the length of the rings in use, less one; set from the rate

    alignas(32) std::array<Lanes, 2> delay{};     // current read delay per line, samples
    alignas(32) std::array<Lanes, 2> delayStep{}; // per sample, towards the next tick's delay
    std::array<float, kLines> edgeTap{}; // outer taps of each line's loss filter, the mix's 1/4 included
    std::array<float, kLines> centreTap{};
    std::array<std::array<float, 2>, kLines> lossHistory{}; // the last two line outputs of the previous block
    alignas(32) std::array<Lanes, 2> wobbleCos{};           // each line's drift as a turning phasor
    alignas(32) std::array<Lanes, 2> wobbleSin{};
    alignas(32) std::array<Lanes, 2> turnCos{}; // its turn per control tick
    alignas(32) std::array<Lanes, 2> turnSin{};
    float referenceCos = 1.0f; // cos of the reference frequency, where the loss filter is exact
    int longestRun = 1;        // samples a block may run: less than the shortest line
    float send = 0.0f;
    float sendStep = 0.0f;
    float appliedRate = 0.0f;
    int appliedInterval = 0;
    std::array<float, 3> gainKey{-1.0f, -1.0f, -1.0f}; // size, time and reflectivity the gains were made for

    BiquadStage highPassLeft;
    BiquadStage highPassRight;
    AFDirectFilter colourFilter;
};
