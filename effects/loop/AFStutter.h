#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <cstdint>

// Rhythmic stereo gate: multiplies the input by a repeating gain envelope whose period comes from a note
// value, a free time or the host's musical position. Successive gates swap their stereo balance and a swing
// option changes the lengths of successive periods. Holds no sample buffer. Periods are looked up at every
// period start, so tempo changes are followed without a notification; the tempo interface is carried but
// never registered.
class AFStutter : public AFEffect, public AFBPMChangeInterface {
public:
    enum SyncMode : int32_t { kSync, kSyncTriplet, kFree, kSyncX, kSyncDotted, kSyncPpq };
    enum SwingMode : int32_t { kNormal, kRhythm1, kShuffle, kSwingSoft, kSwingHard };

    // Any thread, before the slot runs it.
    AFStutter(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread; each option is a single word read by the audio thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread when the slot starts: first period, ramps at their targets.
    int32_t activate() override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

private:
    float periodFor(int32_t mode) const noexcept;
    static float swung(float base, int32_t mode, int32_t step) noexcept;
    void advanceSwing(int32_t mode) noexcept;
    void updateGateLength() noexcept;
    void processPpq(float* left, float* right, int count) noexcept;
    void processGate(float* left, float* right, int count, int32_t mode) noexcept;
    void startPeriod(float lookup, int32_t mode, int32_t swing, double grid) noexcept;
    bool adopts(float lookup, int32_t mode, int32_t swing, double grid) const noexcept;

    ParamRamp shapeRamp;
    ParamRamp balanceRamp;
    double gridAccumulator = 0.0;
    uint32_t gridTicks = 0;
    int32_t swingMode = kNormal;
    float periodPosition = 0.0f;
    float period = 0.0f;
    float basePeriod = 0.0f;
    uint32_t gatePosition = 0;
    uint32_t gateLength = 0;
    float gateLengthInverse = 0.0f;
    int32_t syncMode = kSync;
    float gateFraction = 1.0f;
    int32_t swingStep = 1;
    double smoothedLeft = 1.0;
    double smoothedRight = 1.0;
    bool sideFlag = false;
};
