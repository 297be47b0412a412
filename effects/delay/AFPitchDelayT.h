#pragma once

#include "effects/filter/BiquadStage.h"
#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/PitchShifter.h"
#include "effects/framework/SampleBlock.h"

#include <array>

// Pitch Delay: a stereo delay, each side its own time, whose feedback passes a pitch shifter, so every echo
// sounds one "Pitch" interval above (or below) the echo before it. Option 2 gates what enters the delay in a
// rhythm, option 3 puts a filter in the loop that follows or opposes the pitch, replaces the shifter by a
// filter swept from "Pitch", or band-limits the input. Wet output only: the slot adds the dry path.
class AFPitchDelayT : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the lines for the slowest tempo at the highest rate.
    AFPitchDelayT(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFPitchDelayT() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread or with the audio held off.
    int32_t activate() noexcept override;
    // Audio thread, through bpmChanged: the lengths are read afresh at the next tick anyway.
    void bpmChanged() noexcept override {}

    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    void formatParameter(int index, float value, char* text) override;

    // Any thread: a side's delay in samples for its option and value.
    uint32_t delayFor(int side, float value) const noexcept;
    // Any thread: the interval of "Pitch" in semitones.
    static int semitonesFor(float value) noexcept;

    // A power of two above three beats at 45 BPM and 196 kHz plus the shifter's reach.
    static constexpr uint32_t kLineSize = 1u << 20;

private:
    void updateFilters(bool snap) noexcept;
    void configureShifters() noexcept;
    float gateTarget() const noexcept;

    std::array<int32_t, 4> options{};
    SampleBlock leftLine;
    SampleBlock rightLine;
    PitchShifter leftShifter;
    PitchShifter rightShifter;
    AFDirectFilter loopFilter;
    BiquadStage leftInput;
    BiquadStage rightInput;
    ParamRamp feedbackRamp;
    std::array<float, 64> wetLeft{};
    std::array<float, 64> wetRight{};
    uint32_t writePosition = 0;
    // How far from 0 the lines hold sound since they were last cleared.
    uint32_t dirtySamples = 0;
    // Beats since activation: the rhythm of option 2 counts from there.
    double beatClock = 0.0;
    float gate = 1.0f;
    // What the shifters were last configured for: three knobs, the tempo, the rate and three options.
    std::array<float, 8> shifterKey{};
    // The filter setting last given: option 3's word and "Pitch".
    int filterWord = -1;
    float filterPitch = -1.0f;
};
