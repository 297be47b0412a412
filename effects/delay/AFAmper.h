#pragma once

#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <array>
#include <cstdint>

// Levelizer: a bit crusher and a sample-rate reducer in front of a gain and pan stage.
class AFAmper : public AFEffect {
public:
    // Any thread with the audio held off.
    AFAmper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread; a single word read by the audio thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per tick before process.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    // Longest hold at 44.1 kHz, in samples, at "Samplerate" 1.
    static constexpr double kHoldFactor = 200.0;
    // With "Dynamic" a full-scale sample shortens the hold to this fraction.
    static constexpr double kDynamicFloor = 0.25;
    // Per-sample decay of the held values with "Absurd".
    static constexpr float kAbsurdDecay = 0.95f;
    // Below this the hold's error is taken out of the held values.
    static constexpr float kDriftHz = 20.0f;

private:
    void processBlock(float* left, float* right, int count) noexcept;
    // Samples until the next reload, from the hold length the rate asks for and the louder channel.
    int32_t holdLength(double length, double peak) const noexcept;

    ParamRamp volume;
    ParamRamp pan;
    ParamRamp crush;
    ParamRamp rate;
    float holdL = 0.0f;
    float holdR = 0.0f;
    // The input samples the hold took, before the correction.
    float rawL = 0.0f;
    float rawR = 0.0f;
    // Two one-poles per channel over the hold's error: left first, left second, right first, right second.
    std::array<float, 4> drift{};
    float driftCoefficient = 0.0f;
    int32_t holdCount = 0;
    int32_t crushMode = 0;
    int32_t holdMode = 0;
};
