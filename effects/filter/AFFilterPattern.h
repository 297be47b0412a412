#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>

// Filter Pattern: a tempo-locked filter sequencer. Each pattern is sixteen steps of cutoff, one sixteenth
// note each (or two, three, four with the length option), run free from the slot's start or locked to the
// host's position. "Pattern" lifts the cutoffs, "Resonance" sharpens them, and a triangle sweep of
// "SweepSpeed" and "SweepRange" moves the whole pattern. "Smart" turns bright steps into a high-pass.
class AFFilterPattern : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off.
    AFFilterPattern(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFFilterPattern() override;

    // Audio thread: in place, at most 64 samples; a step starts at its own sample.
    void process(float* left, float* right, int count) noexcept override;
    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    // Audio thread, once per control tick: sweep and knobs reach the filters.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: free-running steps keep their place and take the new length.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread when the slot starts: the first step, filters settled on it.
    int32_t activate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }

    // Any thread, for inspection: the step count since the start (free) or on the host's grid (synced), and
    // the step length in samples.
    int64_t getStepIndex() const noexcept { return stepIndex; }
    double getStepLength() const noexcept { return stepLength; }
    static constexpr int kSteps = 16;

private:
    double stepLengthFor() const noexcept;
    bool synced() const noexcept;
    // The step index and the samples until the next step, for the sample `offset` into this call.
    void locate(int offset) noexcept;
    // Cutoff of the step the channel plays, before the filter's own mapping.
    float cutoffFor(int channel) const noexcept;
    void applyFilters(bool settle) noexcept;

    std::array<int32_t, 4> options{};
    AFDirectFilter leftFilter;
    AFDirectFilter rightFilter;
    double stepLength = 0.0;
    int64_t stepIndex = 0;
    // Free running: the step the length was last taken at and the samples since its start.
    int64_t originStep = 0;
    int64_t sinceOrigin = 0;
    int32_t untilNext = 0;
    double sweepPhase = 0.0; // 0..1 of the sweep's period
    float sweep = 0.0f;      // triangle, 0..1
};
