#pragma once

#include "effects/delay/DriveStage.h"
#include "effects/framework/AFEffect.h"

#include <array>

// Guitar Amp: a tightening high-pass, an oversampled two-stage valve-like drive (DriveStage) whose decimator
// is the cabinet's top, a three-band tone stack (low shelf, mid peak, high shelf), the cabinet's low
// resonance, and an output limiter. "Mono" sums the input and runs one amp; "Stereo" runs two.
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
    // One second-order section, direct form I, which takes coefficient changes without a burst.
    struct Section {
        float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;
        float x1 = 0.0f, x2 = 0.0f, y1 = 0.0f, y2 = 0.0f;
        float run(float x) noexcept {
            const float y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            return y;
        }
        // Silence never decays into denormals.
        void flush() noexcept;
    };
    static constexpr int kSections = 4; // low shelf, mid peak, high shelf, cabinet resonance

    struct Channel {
        DriveStage drive;
        std::array<Section, kSections> sections;
        float tightIn = 0.0f; // high-pass state: last input and output
        float tightOut = 0.0f;
    };

    void derive(bool jump) noexcept;
    void drive(Channel& channel, float* data, int count) noexcept;
    // Tone stack and cabinet resonance over one channel, or over two at once so their recursions overlap.
    void shape(Channel& channel, float* data, int count) noexcept;
    void shapePair(float* left, float* right, int count) noexcept;
    void limit(float* left, float* right, int count) noexcept;

    std::array<int32_t, 4> options{};
    std::array<Channel, 2> channels;
    std::array<std::array<float, 5>, kSections> design{};
    std::array<float, 4> designedFor{-1.0f, -1.0f, -1.0f, -1.0f}; // low, mid, high, rate
    float firstGain = 1.0f;
    float firstStep = 0.0f;
    float secondGain = 1.0f;
    float secondStep = 0.0f;
    float tightCoefficient = 0.99f;
    float appliedRate = 0.0f;
    float envelope = 0.0f; // the limiter's peak follower
};
