#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/SampleBlock.h"

#include <cstdint>

// "Flanger": two short delay lines with separately set times and a feedback path, behind a low-pass and a
// high-pass stage that treat each input block first. Each side's voice sets its delay range: "Flanger" sweeps
// 0.1 to 10 ms, "Chorus" 5 to 35 ms.
class AFFlangerT : public AFEffect, public AFBPMChangeInterface {
public:
    AFFlangerT(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    ~AFFlangerT() override;

    // Audio thread in place; count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Called from activate: empties the lines, jumps the delay times and the filter to their settings.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: re-derives the line length in use.
    void tempoChanged(int32_t) override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Audio thread, from the block loop.
    void bpmChanged() override { tempoChanged(0); }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Nobody calls it.
    bool hasFlag() override { return true; }

    enum Voice { Flanger = 0, Chorus = 1 };
    static constexpr float kFilterQ[3] = {0.02f, 0.45f, 0.83f};
    // Per control tick the smoothed "Filter" value covers this share of the way to the knob.
    static constexpr float kFilterGlide = 0.3f;

    // Any thread: delay in milliseconds that a knob value gives in a voice.
    static float delayMs(int voice, float value) noexcept;
    // Any thread: low-pass and high-pass cutoffs of the filter stage for a "Filter" value.
    static float lowpassCutoff(float value) noexcept;
    static float highpassCutoff(float value) noexcept;

private:
    void deriveLength() noexcept;
    void restartLines() noexcept;
    float delaySamples(int voice, float value) const noexcept;

    SampleBlock delayL;
    SampleBlock delayR;
    int lineLength = 1;
    int write = 0;
    ParamRamp timeL;
    ParamRamp timeR;
    int32_t timeModeL = Flanger;
    int32_t timeModeR = Flanger;
    int32_t feedbackMode = 0;
    int32_t filterQ = 0;
    float filterValue = 0.5f;
    AFDirectFilter filter;
    float samplesPerBeat = 0.0f;
};
