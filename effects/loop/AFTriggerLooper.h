#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <cstdint>
#include <memory>

// Looper: records up to one bar and replays a loop of chosen length from its start, forward, backward or
// alternating. Alternate loop ends are shifted by "Swing", "Trigger" re-records, and every loop boundary is
// crossfaded over 44 samples.
class AFTriggerLooper : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the buffers for the slowest tempo at the highest rate.
    AFTriggerLooper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFTriggerLooper() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // The effect's own code.
    void reset() override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: only the length in use changes.
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
    double getNextLength() const noexcept { return nextLength; }
    uint32_t getCapacity() const noexcept { return capacity; }
    bool isRecording() const noexcept { return recording; }

    // One bar at 45 BPM and 196 kHz: the largest capacity the engine can ask for.
    static const uint32_t kMaxCapacity;

private:
    double lengthFor(float value) const noexcept;
    void record(const float* left, const float* right, int count) noexcept;
    void crossBoundary(double boundary, double grid32, float inLeft, float inRight, const float* restLeft,
                       const float* restRight, int restCount) noexcept;

    std::unique_ptr<float[]> leftBuffer;
    std::unique_ptr<float[]> rightBuffer;
    double segmentEnd = 0.0;
    double gridAccumulator = 0.0;
    uint32_t gridTicks = 0;
    int32_t readPosition = 0;
    int32_t readStep = 1;
    uint32_t loopCount = 0;
    double length = 400.0;
    double nextLength = 400.0;
    uint32_t sampleCount = 0;
    uint32_t writePosition = 0;
    int32_t syncMode = 0;
    int32_t direction = 0;
    uint32_t capacity = 0;
    // Samples below this index hold recorded audio; above it the buffer reads as the silence a freshly
    // grown buffer would hold.
    uint32_t validEnd = 0;
    double cycleClock = 0.0;
    float fadeGain = 1.0f;
    float lastTrigger = 0.0f;
    float latchedSwing = 0.5f;
    ParamRamp ampRamp;
    uint32_t sinceChange = 0;
    bool running = false;
    bool secondHalf = false;
    bool recording = false;
    bool fadingOut = false;
    bool fading = false;
    bool retriggerPending = false;
};
