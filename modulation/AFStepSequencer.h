#pragma once

#include "effects/framework/AFEffect.h"
#include "modulation/AFGlideTable.h"

#include <cstdint>

class TimeValueTable;

// Small control-rate modulator that plays a glide table: 16 steps, whose speed comes from a tempo list, with
// an offset into the pattern. No slot builds one; the live step source of a slot is its LFO.
class AFStepSequencer : public AFEffect {
public:
    static constexpr int kStepCount = 16;
    static constexpr int32_t kMaxQuantizeSteps = 256;

    // Any thread with the audio held off. The list stays owned by the caller and must outlive this object.
    AFStepSequencer(AFSystemInfo* systemInfo, const TimeValueTable& rateList);

    // Audio thread at a control tick, or with the audio held off. 0 = rate from the list, 1 = offset.
    void setParameter(int index, float value) override;
    // GUI thread: 0 the list entry's name, 1 a percentage.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread: back to the first step.
    void reset() override;
    // Audio thread: one control tick; the value is kept for getOutput.
    void controlTick() noexcept override;
    // Audio thread: advances one control tick and returns the table's value there.
    float tick() noexcept;

    // GUI thread, or with the audio held off; 0 = no quantizing.
    void setQuantizeSteps(int32_t steps) noexcept;
    int32_t getQuantizeSteps() const noexcept { return quantizeSteps; }
    // Audio thread; the value of the last control tick.
    float getOutput() const noexcept { return output; }
    double getPosition() const noexcept { return position; }
    float getOffset() const noexcept { return offset; }
    float getRate() const noexcept { return rate; }
    // GUI thread, or with the audio held off: the pattern.
    AFGlideTable& getTable() noexcept { return table; }

private:
    AFGlideTable table{kStepCount, 1};
    const TimeValueTable& rateList;
    double position = 0.0;
    float offset = 0.0f;
    float rate = 0.1f; // steps per second
    float output = 0.0f;
    int32_t quantizeSteps = 0;
};
