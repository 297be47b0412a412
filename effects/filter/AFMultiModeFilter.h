#pragma once

#include "effects/filter/BiquadStage.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>

// "Filter": twelve modes on two filter cores, with cutoff and resonance per channel that a link option ties
// together. Modes 0 to 3 run on direct filters fed by smoothed raw cutoffs; the 12 and 24 dB modes run on
// gliding biquad stages.
class AFMultiModeFilter : public AFEffect {
public:
    AFMultiModeFilter(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread in place; count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread: a word the audio thread picks up at its next tick.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Called from activate: ramps and filters jump to the current settings, histories clear.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Nobody calls it.
    bool hasFlag() override { return true; }

    static constexpr float kCutoffRampMs = 15.0f;
    static constexpr float kBandBoost = 2.4f;

private:
    // Linear ramp counted in control blocks toward the last value given.
    struct CutoffRamp {
        float target = 0.0f;
        float step = 0.0f;
        float current = 0.0f;
        uint32_t count = 0;
        float next(float value, float blocksPerMs, float ms) noexcept;
        void snap(float value) noexcept;
    };

    void deriveRight();
    float blocksPerMs() const noexcept;

    AFDirectFilter directL;
    AFDirectFilter directR;
    std::array<BiquadStage, 4> stages{};
    CutoffRamp rampL;
    CutoffRamp rampR;
    int32_t mode = 0;
    int32_t shape = 0;
    int32_t link = 0;
    bool bandBoost = false;
    // The mode the filters were last set up for; process follows it, not a word changed since.
    int32_t runningMode = 0;
    bool runningBoost = false;
    float cutoffHzL = 30.0f;
    float cutoffHzR = 30.0f;
    float qL = 1.35f;
    float qR = 1.35f;
};
