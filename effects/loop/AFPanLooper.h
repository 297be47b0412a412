#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/SampleBlock.h"

#include <array>
#include <cstdint>

// Pan Looper: records up to one bar from the start, as the Looper does, and repeats a loop of chosen length
// from its start. Each repeat takes the next place of a walk across the stereo field, its depth set by "Pan",
// and is transposed by "Pitch" in proportion to that place: repeats low on one side, high on the other. The
// rhythm option groups, drops or swings the repeats. Every repeat is faded in and out over 44 samples.
class AFPanLooper : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the buffers for the slowest tempo at the highest rate.
    AFPanLooper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFPanLooper() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: the capture keeps to one bar of the new tempo.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }
    // Audio thread when the slot starts: a fresh capture begins on this sample.
    int32_t activate() noexcept override;
    // Audio thread.
    void deactivate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    // Any thread; for inspection.
    double getLength() const noexcept { return length; }
    int64_t getRepeatSamples() const noexcept { return repeatSamples; }
    uint32_t getRepeat() const noexcept { return repeat; }

    // One bar at 45 BPM and 196 kHz, plus the sample linear interpolation reads past the end.
    static const uint32_t kMaxCapacity;

private:
    double lengthFor(float value) const noexcept;
    double semitonesFor(float value) const noexcept;
    void beginRepeat(double grid32) noexcept;

    std::array<int32_t, 4> options{};

    SampleBlock leftBuffer;
    SampleBlock rightBuffer;
    uint32_t capacity = 0;
    uint32_t writePosition = 0;
    bool recording = false;
    bool running = false;

    double length = 400.0;
    double nextLength = 400.0;
    // Exact start of the running repeat less its first whole sample, so lengths add up to the sample.
    double carry = 0.0;
    int64_t repeatSamples = 0;
    int64_t elapsed = 0;
    int64_t sampleCount = 0;
    uint32_t repeat = 0;
    int32_t swingStep = 1;

    double readPhase = 0.0;
    double readRate = 1.0;
    float directLeft = 1.0f;
    float crossLeft = 0.0f;
    float directRight = 1.0f;
    float crossRight = 0.0f;
    float repeatGain = 1.0f;
    ParamRamp ampRamp;
};
