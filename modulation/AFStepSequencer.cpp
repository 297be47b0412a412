#include "modulation/AFStepSequencer.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTable.h"

#include <cmath>
#include <cstdio>

AFStepSequencer::AFStepSequencer(AFSystemInfo* system, const TimeValueTable& list)
    : AFEffect(0, 2, system, 0), rateList(list) {
    setName("AFStepSequencer");
    defineParameter(0, "Rate", 0.0f);
    defineParameter(1, "Offset", 0.0f);
}

void AFStepSequencer::setParameter(int index, float value) {
    if (index == 0) {
        AFEffect::setParameter(0, value);
        const uint32_t samples = systemInfo != nullptr ? rateList.intervalSamples(*systemInfo, value) : 0u;
        // One step lasts twice the list's length, as on the LFO.
        rate = samples == 0 ? 0.0f : systemInfo->sampleRate / (2.0f * static_cast<float>(samples));
    } else if (index == 1) {
        AFEffect::setParameter(1, value);
        offset = std::isfinite(value) ? value * 5.0f + 0.5f : 0.5f;
    }
}

void AFStepSequencer::formatParameter(int index, float value, char* text) {
    if (index == 0)
        std::snprintf(text, kEffectTextSize, "%s", rateList.valueName(value));
    else if (index == 1)
        std::snprintf(text, kEffectTextSize, "%3.2f %%", static_cast<double>(value * 100.0f));
    else
        AFEffect::formatParameter(index, value, text);
}

void AFStepSequencer::reset() {
    position = 0.0;
}

void AFStepSequencer::controlTick() noexcept {
    output = tick();
}

float AFStepSequencer::tick() noexcept {
    const float sampleRate = systemInfo != nullptr ? systemInfo->sampleRate : 0.0f;
    const double tickSeconds =
        sampleRate > 0.0f ? static_cast<double>(systemInfo->controlRate) / static_cast<double>(sampleRate)
                          : 0.0;
    position += tickSeconds * static_cast<double>(rate);
    if (!std::isfinite(position)) position = 0.0;
    // As many whole patterns as lie above 16; exactly 16 stays.
    if (position > 16.0) position -= 16.0 * std::ceil((position - 16.0) / 16.0);
    double p = static_cast<double>(offset) + position;
    if (p >= 16.0) p -= 16.0;
    float v = table.valueAt(static_cast<float>(p));
    if (quantizeSteps != 0) {
        // Whole-number division: every level below the top falls to 0, kept as the modulator always did.
        const double scaled = (static_cast<double>(quantizeSteps) + 0.5) * static_cast<double>(v);
        const auto level =
            scaled <= 0.0 ? 0u : (scaled >= 4294967295.0 ? 4294967295u : static_cast<uint32_t>(scaled));
        // NOLINTNEXTLINE(bugprone-integer-division)
        v = static_cast<float>(level / static_cast<uint32_t>(quantizeSteps));
    }
    return v;
}

void AFStepSequencer::setQuantizeSteps(int32_t steps) noexcept {
    quantizeSteps = steps < 0 ? 0 : (steps > kMaxQuantizeSteps ? kMaxQuantizeSteps : steps);
}
