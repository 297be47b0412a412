#include "modulation/AFLfo.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/TimeValueTables.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kWaveformNames[AFLfo::kWaveformCount] = {
    "Sine",        "Triangle",        "TriangleSloped",    "Pulse",
    "Pulse75%",    "SawUp",           "SawUpSlopedUp",     "SawUpSlopedDown",
    "SawDown",     "SawDownSlopedUp", "SawDownSlopedDown", "RandomStep",
    "RandomGlide", "Stepsequencer"};

constexpr int kSineSize = 1024;

// sin(2 pi k / 1024) for k = 0..1024 with six decimal digits, and the difference to the next entry, so that a
// waveform lookup is one multiply-add.
struct SineTables {
    std::array<float, kSineSize + 1> sine{};
    std::array<float, kSineSize + 1> delta{};

    SineTables() {
        const double twoPi = 6.283185307179586;
        for (int k = 0; k <= kSineSize; ++k)
            sine[k] = static_cast<float>(std::round(std::sin(twoPi * k / kSineSize) * 1e6) / 1e6);
        for (int k = 0; k < kSineSize; ++k)
            delta[k] = sine[k + 1] - sine[k];
    }
};

const SineTables& sineTables() {
    static const SineTables tables;
    return tables;
}

} // namespace

AFLfo::AFLfo(AFSystemInfo* system)
    : AFEffect(0, 2, system, 0), sineTable(sineTables().sine.data()),
      sineDeltaTable(sineTables().delta.data()) {
    setName("AFLfo");
    defineParameter(0, "Phase", 0.0f);
    defineParameter(1, "Rate", 0.0f);
    for (auto& s : steps)
        s.store(0.0f, std::memory_order_relaxed);
    steps[2].store(0.5f, std::memory_order_relaxed);
    if (systemInfo != nullptr && systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFLfo::~AFLfo() {
    if (systemInfo != nullptr && systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

float AFLfo::restart() noexcept {
    applyPendingRateDivide();
    phase = 0.0;
    stepPosition = 0.0f;
    randomPrevious = 0.0f;
    stopped = false;
    // One tick without advance shows the value at phase 0; the saved increment comes back narrowed to float.
    const float saved = static_cast<float>(increment);
    increment = 0.0;
    const float value = tickValue();
    increment = saved;
    return value;
}

float AFLfo::tick() noexcept {
    applyPendingRateDivide();
    return tickValue();
}

float AFLfo::tickValue() noexcept {
    const int32_t trigger = triggerMode.load(std::memory_order_relaxed);
    if (!stopped) {
        phase += increment;
        if (phase > 1.0) {
            if (trigger == 1) {
                phase = 1.0;
                stopped = true;
            } else {
                phase -= 1.0;
            }
        }
    }
    if (trigger == 2) {
        if (systemInfo->transportRunning == 0.0f) {
            phase = 0.0;
        } else {
            const double t = static_cast<double>(systemInfo->ticksPerBeat) * increment *
                             static_cast<double>(systemInfo->ppqPosition);
            phase = t - std::trunc(t);
        }
    }
    float x = static_cast<float>(static_cast<double>(phaseOffset) + phase);
    if (x > 1.0f) x -= 1.0f;

    float v = waveValue(waveform.load(std::memory_order_relaxed), x);

    const int32_t q = quantizeSteps.load(std::memory_order_relaxed);
    if (q != 0) {
        v = std::trunc(v * static_cast<float>(q + 1)) / static_cast<float>(q);
        if (v > 1.0f) v = 1.0f;
    }
    return v;
}

float AFLfo::waveValue(int32_t wave, float x) noexcept {
    switch (wave) {
    case 0: {
        const float scaled = 1024.0f * x;
        const int i = static_cast<int>(scaled);
        const float d = scaled - static_cast<float>(i);
        const int k = (i - 256) & (kSineSize - 1);
        return 0.5f + 0.5f * (sineTable[k] + d * sineDeltaTable[k]);
    }
    case 1:
    case 2: {
        const int c = static_cast<int>(1.999999 * static_cast<double>(x));
        const float tri = c == 0 ? 2.0f * x : 2.0f - 2.0f * x;
        return wave == 1 ? tri : tri * tri;
    }
    case 3:
        return x <= 0.5f ? 1.0f : 0.0f;
    case 4:
        return x <= 0.75f ? 1.0f : 0.0f;
    case 5:
        return x;
    case 6:
        return x * x;
    case 7:
        return 1.0f - (1.0f - x) * (1.0f - x);
    case 8:
        return 1.0f - x;
    case 9:
        return (1.0f - x) * (1.0f - x);
    case 10:
        return 1.0f - x * x;
    case 11:
    case 12: {
        const int cell = static_cast<int>(2.0f * x);
        if (cell != randomCell) {
            randomCell = cell;
            if (wave == 12) randomPrevious = randomCurrent;
            drawRandom();
        }
        if (wave == 11) return 0.5f + 0.5f * randomCurrent;
        // The blend follows x, not the position in the half cycle: each cell ramps part of the way and the
        // output jumps at the half and at the wrap. That is the sound of this waveform.
        return 0.5f + 0.5f * (randomPrevious + (randomCurrent - randomPrevious) * x);
    }
    case 13:
        return stepValue();
    default:
        return 0.0f;
    }
}

float AFLfo::stepValue() noexcept {
    if (!stopped) stepPosition = static_cast<float>(static_cast<double>(stepPosition) + increment);
    if (triggerMode.load(std::memory_order_relaxed) == 2) {
        if (systemInfo->transportRunning == 0.0f) {
            stepPosition = 0.0f;
        } else {
            const double t = static_cast<double>(systemInfo->ticksPerBeat) * increment * 0.0625 *
                             static_cast<double>(systemInfo->ppqPosition);
            stepPosition = static_cast<float>(16.0 * (t - std::trunc(t)));
        }
    }
    if (stepPosition >= 16.0f) stepPosition -= 16.0f;
    // The offset moves the pattern in whole steps.
    float p = std::trunc(15.0f * phaseOffset) + stepPosition;
    if (p >= 16.0f) {
        p -= 16.0f;
        if (triggerMode.load(std::memory_order_relaxed) == 1) stopped = true;
    }
    // A negative song position (pre-roll) wraps into the pattern instead of reading before it.
    return steps[static_cast<std::size_t>(static_cast<int>(p) & (kStepCount - 1))].load(
        std::memory_order_relaxed);
}

void AFLfo::drawRandom() noexcept {
    seed = static_cast<int32_t>(static_cast<uint32_t>(seed) * 16807u);
    seed = seed - (seed / 2147483647) * 2147483647;
    randomCurrent = static_cast<float>(static_cast<double>(seed) * 4.6566128730773926e-10);
}

void AFLfo::calculateRate(float value) noexcept {
    const int32_t mode = rateMode.load(std::memory_order_relaxed);
    int64_t samples = 0;
    if (mode == 2) {
        const double v = static_cast<double>(clampUnit(value)) * 0.98;
        const double f = 1.0 - 0.999 * v;
        samples = static_cast<int64_t>(static_cast<double>(systemInfo->sampleRate) * f * f * f * 4.0 + 32.0);
    } else {
        const auto& tables = TimeValueTables::instance();
        const TimeValueTable& table = mode == 1 ? tables.lfoTripletTable : tables.lfoSyncTable;
        samples = table.intervalSamples(*systemInfo, value);
    }
    if (samples == 0) {
        increment = 0.0;
        return;
    }
    // One cycle lasts twice `samples`.
    const float base = systemInfo->controlRate / (2.0f * static_cast<float>(samples));
    const int shift =
        static_cast<int>(3.99 * static_cast<double>(rateDivide.load(std::memory_order_relaxed)));
    increment = std::ldexp(static_cast<double>(base), -shift);
}

void AFLfo::applyPendingRateDivide() noexcept {
    // A plain load keeps the common tick free of a read-modify-write; the flag is released after the store of
    // the new divide, so the recalculation sees it.
    if (!rateDividePending.load(std::memory_order_relaxed)) return;
    if (!rateDividePending.exchange(false, std::memory_order_acquire)) return;
    if (lastRateMode >= 0) calculateRate(lastRateValue);
}

void AFLfo::setParameter(int index, float value) {
    if (index == 0) {
        AFEffect::setParameter(0, value);
        phaseOffset = clampUnit(value);
    } else if (index == 1) {
        AFEffect::setParameter(1, value);
        const int32_t mode = rateMode.load(std::memory_order_relaxed);
        if (value == lastRateValue && mode == lastRateMode) return;
        calculateRate(value);
        lastRateValue = value;
        lastRateMode = mode;
    }
}

void AFLfo::setParameterMode(int index, int32_t mode) {
    if (index == 0)
        rateMode.store(mode < 0 ? 0 : (mode >= kRateModeCount ? kRateModeCount - 1 : mode),
                       std::memory_order_relaxed);
    // Re-applies the parameter of the same index, so a new rate mode alone leaves the increment until the
    // next rate value arrives.
    if (index == 0 || index == 1) setParameter(index, getParameterValue(index));
}

int32_t AFLfo::getParameterMode(int index) const noexcept {
    return index == 0 ? rateMode.load(std::memory_order_relaxed) : 0;
}

void AFLfo::setOption(int index, int32_t value) {
    if (index == 0) setParameterMode(0, value);
}

int32_t AFLfo::getOption(int index) {
    return getParameterMode(index);
}

void AFLfo::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0:
        std::snprintf(text, kEffectTextSize, "%3.0f", static_cast<double>(value * 360.0f));
        return;
    case 1: {
        const int32_t mode = rateMode.load(std::memory_order_relaxed);
        if (mode == 2) {
            // Shown without the 0.98 scaling of the real rate, as the knob has always read.
            const double f = 1.0 - 0.999 * static_cast<double>(value);
            std::snprintf(text, kEffectTextSize, "%3.2f hz", 2000.0 / (4000.0 * f * f * f + 32.0));
            return;
        }
        const auto& tables = TimeValueTables::instance();
        const TimeValueTable& table = mode == 1 ? tables.lfoTripletTable : tables.lfoSyncTable;
        std::snprintf(text, kEffectTextSize, "%s", table.valueName(value));
        return;
    }
    case 2:
        std::snprintf(text, kEffectTextSize, "%3.2f %%", static_cast<double>(value * 100.0f));
        return;
    default:
        AFEffect::formatParameter(index, value, text);
    }
}

void AFLfo::bpmChanged() {
    if (lastRateMode >= 0) calculateRate(lastRateValue);
}

void AFLfo::setQuantizeSteps(int32_t value) noexcept {
    quantizeSteps.store(value < 0 ? 0 : (value > kMaxQuantizeSteps ? kMaxQuantizeSteps : value),
                        std::memory_order_relaxed);
}

void AFLfo::setTriggerMode(int32_t mode) noexcept {
    triggerMode.store(mode < 0 ? 0 : (mode >= kTriggerModeCount ? kTriggerModeCount - 1 : mode),
                      std::memory_order_relaxed);
}

void AFLfo::setRateDivide(float value) noexcept {
    rateDivide.store(clampUnit(value), std::memory_order_relaxed);
    rateDividePending.store(true, std::memory_order_release);
}

void AFLfo::setStep(int index, float value) noexcept {
    if (index < 0 || index >= kStepCount) return;
    steps[static_cast<std::size_t>(index)].store(clampUnit(value), std::memory_order_relaxed);
}

float AFLfo::getStep(int index) const noexcept {
    if (index < 0 || index >= kStepCount) return 0.0f;
    return steps[static_cast<std::size_t>(index)].load(std::memory_order_relaxed);
}

const char* AFLfo::waveformName(int index) noexcept {
    return index >= 0 && index < kWaveformCount ? kWaveformNames[index] : "";
}

void AFLfo::apply(AFStateRecord::Lfo& record) {
    setParameterMode(0, record.rateMode);
    setTriggerMode(record.triggerMode);
    setQuantizeSteps(record.quantizeSteps);
    const int32_t wave = record.waveform;
    setWaveform(wave < 0 ? 0 : (wave >= kWaveformCount ? kWaveformCount - 1 : wave));
    if (record.hasRateDivide) setRateDivide(record.rateDivide);
    if (record.hasSteps) {
        for (int i = 0; i < kStepCount; ++i)
            setStep(i, record.steps[static_cast<std::size_t>(i)]);
    } else if (record.hasGlideTable) {
        glideTable.take(record.glideTable);
    }
}

void AFLfo::capture(AFStateRecord::Lfo& record) const {
    record.rateMode = getParameterMode(0);
    record.triggerMode = getTriggerMode();
    record.quantizeSteps = getQuantizeSteps();
    record.waveform = getWaveform();
    record.hasRateDivide = true;
    record.rateDivide = getRateDivide();
    record.hasSteps = true;
    record.hasGlideTable = false;
    for (int i = 0; i < kStepCount; ++i)
        record.steps[static_cast<std::size_t>(i)] = getStep(i);
}
