#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "modulation/AFGlideTable.h"
#include "state/AFStateRecord.h"

#include <array>
#include <atomic>
#include <cstdint>

// Control-rate LFO of a slot: one value from 0 to 1 per control tick, never touching audio. The editor writes
// the waveform, quantize, trigger, rate-divide and step fields from the GUI thread while the audio thread
// ticks, so those are relaxed atomics; everything else belongs to the audio thread.
class AFLfo : public AFEffect, public AFBPMChangeInterface {
public:
    static constexpr int kWaveformCount = 14;
    static constexpr int kStepCount = 16;
    static constexpr int kRateModeCount = 3;
    static constexpr int kTriggerModeCount = 3;
    static constexpr int32_t kMaxQuantizeSteps = 256;

    // Any thread with the audio held off.
    explicit AFLfo(AFSystemInfo* systemInfo);
    // Any thread with the audio held off.
    ~AFLfo() override;

    // Audio thread: starts the LFO over at phase 0 and returns that tick's value.
    float restart() noexcept;
    // Audio thread: the same restart, for callers that go through the effect interface.
    void reset() override { restart(); }
    // Audio thread: one control tick; returns 0..1.
    float tick() noexcept;

    // Audio thread at a control tick, or with the audio held off. 0 = phase offset, 1 = rate.
    void setParameter(int index, float value) override;
    // Audio thread, or with the audio held off. Mode of index 0 is the rate mode.
    void setParameterMode(int index, int32_t mode);
    // Any thread.
    int32_t getParameterMode(int index) const noexcept;
    // Audio thread, or with the audio held off. Option 0 is the rate mode.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // GUI thread: 0 phase in degrees, 1 rate text, 2 percentage.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop after a tempo change.
    void bpmChanged() override;

    // GUI thread writes, audio thread reads. An index outside the menu makes the LFO output 0.
    void setWaveform(int32_t index) noexcept { waveform.store(index, std::memory_order_relaxed); }
    // Any thread.
    int32_t getWaveform() const noexcept { return waveform.load(std::memory_order_relaxed); }
    // GUI thread; 0 = no quantizing, else q + 1 levels.
    void setQuantizeSteps(int32_t steps) noexcept;
    // Any thread.
    int32_t getQuantizeSteps() const noexcept { return quantizeSteps.load(std::memory_order_relaxed); }
    // GUI thread; 0 free running, 1 one shot, 2 locked to the transport.
    void setTriggerMode(int32_t mode) noexcept;
    // Any thread.
    int32_t getTriggerMode() const noexcept { return triggerMode.load(std::memory_order_relaxed); }
    // GUI thread; the audio thread recomputes the rate at its next tick.
    void setRateDivide(float value) noexcept;
    // Any thread.
    float getRateDivide() const noexcept { return rateDivide.load(std::memory_order_relaxed); }
    // GUI thread; indices outside 0..15 are ignored.
    void setStep(int index, float value) noexcept;
    // Any thread; 0 for an index outside 0..15.
    float getStep(int index) const noexcept;

    // Any thread but the audio thread, with the audio held off: the LFO's own fields of a slot record (rate
    // mode, trigger mode, quantize steps, waveform, rate divide, steps), as far as the record has them. A
    // record with a grid in place of the steps moves its cells into the LFO's table.
    void apply(AFStateRecord::Lfo& record);
    // Any thread but the audio thread: every field, for a record of the current version.
    void capture(AFStateRecord::Lfo& record) const;
    // Any thread: the table that old state loads into; the LFO itself never reads it.
    const AFGlideTable& getGlideTable() const noexcept { return glideTable; }

    // Any thread: the waveform menu word, "" outside the menu.
    static const char* waveformName(int index) noexcept;

    // Audio thread; read-outs of the running state.
    double getIncrement() const noexcept { return increment; }
    double getPhase() const noexcept { return phase; }
    float getStepPosition() const noexcept { return stepPosition; }
    bool isStopped() const noexcept { return stopped; }
    int32_t getSeed() const noexcept { return seed; }

private:
    float tickValue() noexcept;
    float waveValue(int32_t wave, float x) noexcept;
    float stepValue() noexcept;
    void drawRandom() noexcept;
    void calculateRate(float value) noexcept;
    void applyPendingRateDivide() noexcept;

    std::array<std::atomic<float>, kStepCount> steps;
    int32_t randomCell = 0;
    double increment = 0.0;
    std::atomic<int32_t> waveform{0};
    int32_t seed = 19169;
    float phaseOffset = 0.0f;
    const float* sineTable;
    const float* sineDeltaTable;
    std::atomic<float> rateDivide{0.0f};
    double phase = 0.0;
    float randomCurrent = 0.0f;
    float randomPrevious = 0.0f;
    float stepPosition = 0.0f;
    std::atomic<int32_t> quantizeSteps{0};
    std::atomic<int32_t> triggerMode{0};
    std::atomic<int32_t> rateMode{0};
    float lastRateValue = -1.0f;
    int32_t lastRateMode = -1; // no rate calculated yet
    bool stopped = false;
    std::atomic<bool> rateDividePending{false};
    AFGlideTable glideTable{static_cast<uint32_t>(kStepCount), 1u};
};
