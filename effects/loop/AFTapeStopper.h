#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"

#include <cstdint>
#include <memory>

// Vinylizer: records the running input and plays it back through a read head whose speed falls and rises as
// on a stopping tape or a scratched record. Each cycle restarts the recording and the head. No dry path: the
// slot mixes the dry signal.
class AFTapeStopper : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the buffers for the slowest tempo at the highest rate.
    AFTapeStopper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFTapeStopper() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, through bpmChanged: only the length in use changes.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread or with the audio held off.
    int32_t activate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }

    // Samples in one cycle for a "Size" value in the current sync mode; 0 for "Off". Any thread.
    uint32_t cycleLengthFor(float value) const noexcept;

    // Any thread; for inspection.
    uint32_t getCapacity() const noexcept { return capacity; }
    double getReadPosition() const noexcept { return readPosition; }
    double getSpeed() const noexcept { return speed; }
    bool isRising() const noexcept { return rising != 0; }

    // A bar at 45 BPM and 196 kHz, plus the guard sample: the largest buffer the engine can ask for.
    static const uint32_t kMaxBufferLength;

private:
    std::unique_ptr<float[]> leftBuffer;
    std::unique_ptr<float[]> rightBuffer;
    uint32_t capacity = 0;
    // Samples below this index hold recorded audio; above it the buffer reads as freshly cleared.
    uint32_t validEnd = 0;
    uint32_t writePosition = 0;
    uint32_t cycleLength = 0;
    uint32_t cycleCount = 0;
    double readPosition = 0.0;
    double speed = 1.0;
    uint8_t rising = 0;
    uint8_t firstCycle = 1;
    float dcInLeft = 0.0f;
    float dcInRight = 0.0f;
    float dcOutLeft = 0.0f;
    float dcOutRight = 0.0f;
    int32_t syncMode = 0;
    int32_t playMode = 0;
    // "Slow Down", "Down Slope" and "Up Slope" kept inside 0..1.
    double slowDown = 0.0;
    double downSlope = 0.23;
    double upSlope = 0.0;
};
