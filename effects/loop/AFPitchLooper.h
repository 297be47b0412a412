#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/PitchShifter.h"
#include "effects/framework/SampleBlock.h"

#include <array>

// Pitch Looper: records up to one bar as the Looper does and repeats a loop of the chosen length from its
// start, each repeat transposed one "Pitch" interval further than the last, in steps or glides, until the
// stack would pass an octave and starts again from the original. Option 3 swings the repeat lengths in pairs
// or triplets that add up to whole loops, "Decay" fades each repeat against the one before, and every repeat
// boundary is faded over 44 samples.
class AFPitchLooper : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the buffers for the slowest tempo at the highest rate.
    AFPitchLooper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFPitchLooper() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: only the capacity in use changes.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread or with the audio held off.
    int32_t activate() noexcept override;
    // Audio thread.
    void deactivate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }

    // Any thread; for inspection.
    double getLength() const noexcept { return length; }
    int getTransposition() const noexcept { return transposition; }

    // One bar at 45 BPM and 196 kHz.
    static const uint32_t kMaxCapacity;

private:
    double lengthFor(float value) const noexcept;
    double segmentFor(int step) const noexcept;
    void record(const float* left, const float* right, int count) noexcept;
    void crossBoundary(const float* restLeft, const float* restRight, int restCount) noexcept;
    void startRepeat() noexcept;
    // The repeat's level and the boundary fades over n output samples.
    void fade(float* outLeft, float* outRight, int n, double fadeStart) noexcept;
    void applyRatio(double semitones) noexcept;

    std::array<int32_t, 4> options{};
    SampleBlock leftBuffer;
    SampleBlock rightBuffer;
    PitchShifter shifter;
    double length = 400.0;
    double nextLength = 400.0;
    double segment = 400.0;
    double cycleClock = 0.0;
    uint32_t capacity = 0;
    uint32_t writePosition = 0;
    uint32_t validEnd = 0;
    int64_t readPosition = 0;
    int swingStep = 0;
    // Repeats since the recording: each one "Decay" quieter. The stack counts intervals and restarts past an
    // octave.
    int repeats = 0;
    int stack = 0;
    int transposition = 0;
    int previousTransposition = 0;
    float repeatGain = 1.0f;
    float fadeGain = 1.0f;
    float lastTrigger = 0.0f;
    bool running = false;
    bool recording = false;
    bool fadingOut = false;
    bool retriggerPending = false;
};
