#include "modulation/AFEnvFollower.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <cmath>
#include <cstdio>

AFEnvFollower::AFEnvFollower(AFSystemInfo* system) : AFEffect(0, 2, system, 0) {
    setName("Envelope Follower");
    defineParameter(0, "Attack");
    defineParameter(1, "Release");
    setParameter(0, 0.25f);
    setParameter(1, 0.5f);
}

void AFEnvFollower::analyze(float* left, float*, int count) noexcept {
    detect(left, count);
}

void AFEnvFollower::process(float* left, float*, int count) noexcept {
    detect(left, count);
}

void AFEnvFollower::detect(const float* left, int count) noexcept {
    const double attack = coefficients[0];
    const double release = coefficients[1];
    double held = level;
    // Every fourth sample only, from index 0 of each call.
    for (int i = 0; i < count; i += 4) {
        const double x = std::fabs(static_cast<double>(left[i]));
        const double c = x > held ? attack : release;
        held = (held - x) * c + x;
    }
    level = held;
}

void AFEnvFollower::setParameter(int index, float value) {
    if (index != 0 && index != 1) return;
    AFEffect::setParameter(index, value);
    const float v = std::isnan(value) ? 0.0f : value;
    const int rate = static_cast<int>(systemInfo->sampleRate);
    const auto i = static_cast<std::size_t>(index);
    if (v == coefficientValues[i] && rate == coefficientRates[i]) return;
    coefficientValues[i] = v;
    coefficientRates[i] = rate;
    // Samples to fall to 1%; at 0 the exponent is infinite and the coefficient 0, so the level jumps.
    const double n = static_cast<double>(rate) * static_cast<double>(v * v * 400.0f) * 0.001;
    coefficients[i] = n == 0.0 ? 0.0 : std::pow(static_cast<double>(0.01f), 1.0 / n);
}

void AFEnvFollower::formatParameter(int index, float value, char* text) {
    if (index == 0 || index == 1) {
        TimeValueTables::formatTime(text, kEffectTextSize, value * value * 400.0f);
    } else if (index == 2) {
        if (value > 0.99999f)
            std::snprintf(text, kEffectTextSize, "%s", "100%");
        else
            std::snprintf(text, kEffectTextSize, "%3.1f%%", static_cast<double>(value * 100.0f));
    } else {
        AFEffect::formatParameter(index, value, text);
    }
}
