#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <array>
#include <cstdint>

// "Phaser": 3 to 8 first-order allpass stages per channel with feedback. The sweep position is the "Phase"
// knob itself; the slot's modulators move it. The dry share is mixed in here at a fixed 0.75.
class AFKnobixPhaser : public AFEffect, public AFBPMChangeInterface {
public:
    AFKnobixPhaser(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    ~AFKnobixPhaser() override;

    // Audio thread in place; count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Called from activate: clears the stages, recomputes the sweep and jumps every ramp.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged.
    void tempoChanged(int32_t) override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Audio thread, from the block loop.
    void bpmChanged() override { tempoChanged(0); }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Nobody calls it.
    bool hasFlag() override { return true; }

    static constexpr int kMaxStages = 8;
    static constexpr float kDryShare = 0.75f;

private:
    void mute() noexcept;
    void sweep() noexcept;
    void deriveRates() noexcept;
    template <int Stages>
    void run(float* left, float* right, int count) noexcept;

    std::array<float, kMaxStages> stateL{};
    std::array<float, kMaxStages> stateR{};
    float lastL = 0.0f;
    float lastR = 0.0f;
    // All lanes of a channel carry one value, so each channel's lane ramp is held as one coefficient.
    float coefL = 0.0f;
    float coefR = 0.0f;
    float coefTargetL = 0.0f;
    float coefTargetR = 0.0f;
    float coefDeltaL = 0.0f;
    float coefDeltaR = 0.0f;
    ParamRamp feedback;
    int32_t stageCount = 3;
    int32_t invert = 0;
    float depth = 0.0f;
    float width = 0.0f;
    float freqLow = 0.0f;
    float freqHigh = 0.0f;
    float rate = 0.0f;
};
