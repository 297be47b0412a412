#include "effects/delay/AFAmper.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kCrushWords[] = {"Normal", "Hi", "Low", "Clip"};
constexpr const char* kHoldWords[] = {"Normal", "Dynamic", "Absurd"};
enum CrushMode : int32_t { kNormal, kHi, kLow, kClip };
enum HoldMode : int32_t { kHoldNormal, kHoldDynamic, kHoldAbsurd };

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

// Truncation toward zero to a multiple of step. Quotients beyond exact integer range are already on the grid.
double quantise(double x, double step, double inverse) noexcept {
    const double q = x * inverse;
    return std::fabs(q) < 4.5e15 ? static_cast<double>(static_cast<int64_t>(q)) * step : x;
}

} // namespace

AFAmper::AFAmper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag), volume(system), pan(system), crush(system), rate(system) {
    setName("Amper");
    defineParameter(0, "Volume", 0.5f);
    defineParameter(1, "Pan", 0.5f);
    defineParameter(2, "Crush", 0.0f);
    defineParameter(3, "Samplerate", 0.0f);
    for (int i = 0; i < 4; ++i)
        setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
    activate();
}

void AFAmper::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    const double v = unitClamp(value);
    switch (index) {
    case 0:
        volume.setTarget(v + v);
        break;
    case 1:
        pan.setTarget(v);
        break;
    case 2:
        crush.setTarget(v * v * v * 0.4);
        break;
    default:
        rate.setTarget(v);
        break;
    }
}

void AFAmper::setOption(int index, int32_t value) {
    if (index == 2) crushMode = clampOption(value, kCrushWords);
    if (index == 3) holdMode = clampOption(value, kHoldWords);
}

int32_t AFAmper::getOption(int index) {
    if (index == 2) return crushMode;
    if (index == 3) return holdMode;
    return 0;
}

void AFAmper::getOptionList(int index, AFWordList& list) {
    if (index == 2) appendWords(list, kCrushWords);
    if (index == 3) appendWords(list, kHoldWords);
}

void AFAmper::controlTick() noexcept {
    volume.controlTick();
    pan.controlTick();
    crush.controlTick();
    rate.controlTick();
}

int32_t AFAmper::activate() {
    volume.jump();
    pan.jump();
    crush.jump();
    rate.jump();
    holdL = 0.0;
    holdR = 0.0;
    holdCount = 0;
    return 1;
}

double AFAmper::crushSample(double x, double step, double inverse) const noexcept {
    switch (crushMode) {
    case kHi: {
        // Coarse steps near zero, fine ones near full scale: quantised in the square-root domain.
        const double sign = x > 0.0 ? 1.0 : -1.0;
        const double q = quantise(std::sqrt(std::fabs(x)), step, inverse);
        return sign * q * q;
    }
    case kLow: {
        // Fine steps near zero, coarse ones near full scale: quantised in the squared domain.
        const double sign = x > 0.0 ? 1.0 : -1.0;
        return sign * std::sqrt(quantise(x * x, step, inverse));
    }
    case kClip: {
        const double gain = 20.0 * step + 1.0;
        return std::clamp(quantise(x * gain, step, inverse), -1.0, 1.0) / gain;
    }
    default:
        return quantise(x, step, inverse);
    }
}

int32_t AFAmper::holdLength(double rateValue, double peak) const noexcept {
    // The factor holds at 44.1 kHz and follows the rate, so a setting sounds alike at any rate.
    double length = rateValue * kHoldFactor * static_cast<double>(systemInfo->rateRatio);
    if (holdMode == kHoldDynamic) length *= 1.0 - (1.0 - kDynamicFloor) * std::min(peak, 1.0);
    return length > 0.0 ? static_cast<int32_t>(std::min(length, 1e6) + 0.5) : 0;
}

void AFAmper::process(float* left, float* right, int count) noexcept {
    for (int n = 0; n < count; ++n) {
        const double gain = volume.advance();
        const double p = pan.advance();
        const double c = crush.advance();
        const double r = rate.advance();
        double l = left[n];
        double rr = right[n];
        if (c > 0.0) {
            const double inverse = 1.0 / c;
            l = crushSample(l, c, inverse);
            rr = crushSample(rr, c, inverse);
        }
        if (--holdCount < 1) {
            holdCount = holdLength(r, std::max(std::fabs(l), std::fabs(rr)));
            holdL = l;
            holdR = rr;
        }
        const double leftGain = p > 0.5 ? 1.0 - 2.0 * (p - 0.5) : 1.0;
        const double rightGain = p < 0.5 ? 1.0 - 2.0 * (0.5 - p) : 1.0;
        left[n] = static_cast<float>(gain * leftGain * holdL);
        right[n] = static_cast<float>(gain * rightGain * holdR);
        if (holdMode == kHoldAbsurd) {
            holdL *= kAbsurdDecay;
            holdR *= kAbsurdDecay;
        }
    }
}

void AFAmper::formatParameter(int index, float value, char* text) {
    const double scale = index == 0 ? 200.0 : 100.0;
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * scale);
}
