#pragma once

#include "effects/filter/CountRamp.h"
#include "effects/filter/LaneFilter.h"
#include "effects/filter/LaneRamp.h"
#include "effects/framework/AFAligned.h"
#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/SampleBlock.h"

#include <array>
#include <cstdint>

// Spectralizer: 32 taps on a stereo delay line, each through its own resonant band-pass lane, summed. A
// single hit smears into a pitched or rhythmic cluster of filtered echoes. Wet only; the slot mixes the dry
// signal.
class AFFilterBank : public AFEffect, public AFBPMChangeInterface, public AFAligned {
public:
    static constexpr int kLanes = 32;

    AFFilterBank(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // With the audio held off.
    ~AFFilterBank() override;

    // Audio thread: in place, count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or with the audio held off.
    void setParameter(int index, float value) override;
    // Audio thread or with the audio held off.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // From activate.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread: follows the tempo by changing the delay length in use; the lines are sized for 45 BPM.
    void tempoChanged(int32_t) override;
    // Audio thread or with the audio held off.
    int32_t activate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() override { tempoChanged(0); }

    // Any thread, read-only: views for tests and the editor.
    const LaneRamp& frequencyRamp() const noexcept { return freq; }
    const LaneRamp& gateRamp() const noexcept { return gate; }
    double tapTarget(int tap) const noexcept {
        return tapTargets[static_cast<std::size_t>(tap & (kLanes - 1))];
    }
    float getBufferLength() const noexcept { return bufferLength; }
    uint32_t getBandCount() const noexcept { return bandCount; }

private:
    // The per-sample work of process, built for the widest lane instructions the processor offers.
    void render(float* left, float* right, int count) noexcept;
    void frequencyCurve() noexcept;
    void placeTaps() noexcept;
    void setLength() noexcept;
    // Advances the taps one sample and finds each tap's two read indices and blend.
    [[gnu::always_inline]] inline void locateRestingTaps(int32_t here, int32_t lastIndex) noexcept;
    // Precomputes locateRestingTaps' offsets when no tap moves in this block and all lie within the line.
    void prepareRestingTaps() noexcept;
    [[gnu::always_inline]] inline void locateTaps(double here, double length, uint32_t lastIndex) noexcept;

    LaneRamp freq;
    LaneRamp gate;
    LaneFilter filterL;
    LaneFilter filterR;
    // Per-tap delay in samples, smoothed like a ParamRamp (double, one control interval per move) but laid
    // out lane by lane so the per-sample advance is one vector add.
    alignas(32) std::array<double, kLanes> tapTargets{};
    alignas(32) std::array<double, kLanes> tapCurrent{};
    alignas(32) std::array<double, kLanes> tapIncrement{};
    alignas(32) std::array<float, kLanes> panLeft{};
    alignas(32) std::array<float, kLanes> panRight{};
    alignas(32) std::array<int32_t, kLanes> restOffsetDirect{};
    alignas(32) std::array<int32_t, kLanes> restOffsetWrapped{};
    alignas(32) std::array<int32_t, kLanes> restEdgeDirect{};
    alignas(32) std::array<int32_t, kLanes> restEdgeWrapped{};
    alignas(32) std::array<float, kLanes> restFracDirect{};
    alignas(32) std::array<float, kLanes> restFracWrapped{};
    alignas(32) std::array<int32_t, kLanes> readA{};
    alignas(32) std::array<int32_t, kLanes> readB{};
    alignas(32) std::array<float, kLanes> readFrac{};
    alignas(32) std::array<float, kLanes> tapL{};
    alignas(32) std::array<float, kLanes> tapR{};

    uint32_t bandCount = 4;
    CountRamp delayRamp;
    float delayValue = 0.5f;
    uint32_t writePos = 0;
    ParamRamp resonance;
    float bufferLength = 1.0f;
    float frequencyValue = -1.0f;
    float bandsValue = 0.5f;
    SampleBlock delayL;
    SampleBlock delayR;
    // Samples of the lines ever in use; a reset clears this much.
    std::size_t usedLength = 0;

    int32_t timeMode = 0;
    int32_t bandSkip = 0;
    int32_t spacing = 0;
    int32_t panMode = 0;
    int32_t gateSkipApplied = 0;
    int32_t curveSpacing = 0;
    bool registered = false;
    bool tapsResting = false;
};
