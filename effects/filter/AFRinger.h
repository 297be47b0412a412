#pragma once

#include "effects/delay/StateVariableHP.h"
#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <array>

// Ring modulator: a three-partial oscillator that morphs through five wave shapes is smoothed by a low-pass
// per channel and multiplies the input. "VCA" crossfades the ring product into amplitude modulation by the
// carrier's magnitude; a peak limiter per channel keeps the result under full scale.
class AFRinger : public AFEffect, public AFBPMChangeInterface {
public:
    AFRinger(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread: "Hi"/"Lo" range; re-applies "Pitch".
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, from activate; also the constructor.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    // Morph order: sine, triangle, square, then saw twice so the top of the range holds a pure saw.
    static constexpr int kShapeCount = 5;
    // Damping of the carrier low-pass: Butterworth, so the carrier keeps its level up to the corner.
    static constexpr double kFilterDamping = 1.4142135623730951;
    // Peak limiter: instant attack (no overshoot above full scale), 60 ms release.
    static constexpr float kLimiterAttack = 0.0f;
    static constexpr double kLimiterReleaseSeconds = 0.06;
    // Longest piece the slot hands to process; longer calls are worked through in pieces of this size.
    static constexpr int kMaxBlock = 64;

private:
    void apply(int index, float value) noexcept;
    void updateRate() noexcept;
    void updateMorph() noexcept;
    // At most kMaxBlock samples, the size of the carrier scratch.
    void processPiece(float* left, float* right, int count) noexcept;

    ParamRamp frequency;
    ParamRamp partialLevel;
    ParamRamp cutoff;
    ParamRamp rectify;
    // Holds the squared "Waveform"; kept with the ramps but moves no filter in this effect.
    ParamRamp resonance;
    float phase1 = 0.0f;
    float phase2 = 0.0f;
    float phase3 = 0.0f;
    std::array<const float*, kShapeCount> shapes{};
    std::array<const float*, kShapeCount> shapeDeltas{};
    // The two neighbouring shapes crossfaded once per change of "Waveform", so a partial costs one read; the
    // crossfade runs on the widest lanes the processor offers, as "Waveform" may move at every tick.
    alignas(16) std::array<float, 1024> morphWave{};
    alignas(16) std::array<float, 1024> morphDelta{};
    int morphIndex = -1;
    float morphFraction = -1.0f;
    // Both channels' filters would see the same carrier with the same coefficients and so always hold equal
    // states: one filter serves both channels.
    StateVariableHP filter;
    float envelopeL = 0.0f;
    float envelopeR = 0.0f;
    bool lowRange = false;
    int32_t rangeOption = 0;
    int shapeIndex = 0;
    float shapeFraction = 0.0f;
    float limiterRate = 0.0f;
    double inverseRate = 0.0;
    float releaseCoefficient = 0.0f;
};
