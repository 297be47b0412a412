#pragma once

#include "effects/delay/DriveStage.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>

// Guitar Amp: a tightening high-pass, an oversampled two-stage valve-like drive (DriveStage) whose decimator
// is the cabinet's top, a three-band tone stack (low shelf, mid peak, high shelf), the cabinet's low
// resonance, a make-up gain that keeps a nominal input as loud at any drive, and an output limiter. "Mono"
// sums the input and runs one amp; "Stereo" runs two.
class AFMetalAmpT : public AFEffect {
public:
    // Each tone band's reach either way, in dB.
    static constexpr float kToneRangeDb = 15.0f;
    // Highest output of the limiting modes: just under full scale.
    static constexpr float kCeiling = 0.966f;

    // Any thread with the audio held off.
    AFMetalAmpT(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread; read by the audio thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per tick before process: gains and tone designs.
    void controlTick() noexcept override;
    // Audio thread, from activate: clears every filter and the limiter.
    void reset() override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    bool hasFlag() override { return true; }

    // Any thread: the drive's gain in dB for a knob value.
    static float driveDb(float value) noexcept;

private:
    using Lanes = float __attribute__((vector_size(32)));
    static constexpr int kSections = 4; // low shelf, mid peak, high shelf, cabinet resonance
    // The make-up gain's table: one point per dB of drive.
    static constexpr int kMakeUpPoints = 46;

    void derive(bool jump) noexcept;
    // Tightening high-pass and the first stage's gain on both channels at once.
    void tighten(const float* left, const float* right, float* outLeft, float* outRight, int count) noexcept;
    // Tone stack, cabinet resonance and make-up gain on both channels, in place.
    void shape(float* left, float* right, int count) noexcept;
    void limit(float* left, float* right, int count) noexcept;

    // The four sections run as a pipeline in vector lanes: lane k of each half is section k, a sample behind
    // lane k - 1, so the four recursions overlap; left in the low half, right in the high one. Direct form I
    // (the input history with the output's), which takes coefficient changes without a burst.
    alignas(32) Lanes b0{}, b1{}, b2{}, a1{}, a2{};
    alignas(32) Lanes x1{}, x2{}, y1{}, y2{};
    std::array<int32_t, 4> options{};
    std::array<DriveStage, 2> drives;
    std::array<float, 4> designedFor{-1.0f, -1.0f, -1.0f, -1.0f}; // low, mid, high, rate
    std::array<float, kMakeUpPoints> makeUp{};
    std::array<float, 2> tightIn{}; // high-pass state: last input and output per channel
    std::array<float, 2> tightOut{};
    float firstGain = 1.0f;
    float firstStep = 0.0f;
    float secondGain = 1.0f;
    float secondStep = 0.0f;
    float level = 1.0f; // make-up gain, ramped per sample
    float levelStep = 0.0f;
    float tightCoefficient = 0.99f;
    float appliedRate = 0.0f;
    float envelope = 0.0f; // the limiter's peak follower
};
