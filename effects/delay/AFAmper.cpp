#include "effects/delay/AFAmper.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace {

constexpr const char* kCrushWords[] = {"Normal", "Hi", "Low", "Clip"};
constexpr const char* kHoldWords[] = {"Normal", "Dynamic", "Absurd"};
enum CrushMode : int32_t { kNormal, kHi, kLow, kClip };
enum HoldMode : int32_t { kHoldNormal, kHoldDynamic, kHoldAbsurd };

constexpr int kBlock = 64;

// Four samples at a time; every lane does exactly what a single sample would.
using Lanes = float __attribute__((vector_size(16)));
using LaneMask = int32_t __attribute__((vector_size(16)));

Lanes splat(float v) noexcept {
    return Lanes{v, v, v, v};
}

Lanes magnitude(Lanes v) noexcept {
    LaneMask bits;
    std::memcpy(&bits, &v, sizeof(bits));
    bits &= 0x7fffffff;
    std::memcpy(&v, &bits, sizeof(v));
    return v;
}

Lanes squareRoot(Lanes v) noexcept {
#if defined(__SSE__)
    return reinterpret_cast<Lanes>(_mm_sqrt_ps(reinterpret_cast<__m128>(v)));
#else
    for (int i = 0; i < 4; ++i)
        v[i] = std::sqrt(v[i]);
    return v;
#endif
}

// Truncation toward zero to a multiple of step. A quotient of 2^23 or more has no fraction left to cut; the
// clamp only keeps the conversion in range.
Lanes quantise(Lanes x, Lanes step, Lanes inverse) noexcept {
    const Lanes whole = splat(8388608.0f);
    const Lanes q = x * inverse;
    const Lanes bounded = q < -whole ? -whole : (q > whole ? whole : q);
    const Lanes cut = __builtin_convertvector(__builtin_convertvector(bounded, LaneMask), Lanes) * step;
    return magnitude(q) < whole ? cut : x;
}

template <int32_t Mode>
Lanes crushLanes(Lanes x, Lanes step, Lanes inverse) noexcept {
    if constexpr (Mode == kHi) {
        // Quantised in the square-root domain: fine steps near silence, coarse ones near full scale.
        const Lanes sign = x > splat(0.0f) ? splat(1.0f) : splat(-1.0f);
        const Lanes q = quantise(squareRoot(magnitude(x)), step, inverse);
        return sign * q * q;
    } else if constexpr (Mode == kLow) {
        // Quantised in the squared domain: coarse steps near silence, fine ones near full scale.
        const Lanes sign = x > splat(0.0f) ? splat(1.0f) : splat(-1.0f);
        return sign * squareRoot(quantise(x * x, step, inverse));
    } else if constexpr (Mode == kClip) {
        const Lanes gain = splat(20.0f) * step + splat(1.0f);
        const Lanes q = quantise(x * gain, step, inverse);
        return (q < splat(-1.0f) ? splat(-1.0f) : (q > splat(1.0f) ? splat(1.0f) : q)) / gain;
    } else {
        return quantise(x, step, inverse);
    }
}

// Crushes four samples of both channels wherever the step is above zero.
template <int32_t Mode>
void crushGroup(float* left, float* right, const float* steps, const float* inverses) noexcept {
    Lanes l;
    Lanes r;
    Lanes step;
    Lanes inverse;
    std::memcpy(&l, left, sizeof(l));
    std::memcpy(&r, right, sizeof(r));
    std::memcpy(&step, steps, sizeof(step));
    std::memcpy(&inverse, inverses, sizeof(inverse));
    const LaneMask active = step > splat(0.0f);
    l = active ? crushLanes<Mode>(l, step, inverse) : l;
    r = active ? crushLanes<Mode>(r, step, inverse) : r;
    std::memcpy(left, &l, sizeof(l));
    std::memcpy(right, &r, sizeof(r));
}

// The last partial group runs padded with a zero step, which leaves its lanes as they were.
template <int32_t Mode>
void crushBlock(float* left, float* right, const float* steps, const float* inverses, int count) noexcept {
    int n = 0;
    for (; n + 4 <= count; n += 4)
        crushGroup<Mode>(left + n, right + n, steps + n, inverses + n);
    if (n == count) return;
    float l[4] = {};
    float r[4] = {};
    float step[4] = {};
    constexpr float kNone = std::numeric_limits<float>::infinity();
    float inverse[4] = {kNone, kNone, kNone, kNone};
    for (int i = 0; n + i < count; ++i) {
        l[i] = left[n + i];
        r[i] = right[n + i];
        step[i] = steps[n + i];
        inverse[i] = inverses[n + i];
    }
    crushGroup<Mode>(l, r, step, inverse);
    for (int i = 0; n + i < count; ++i) {
        left[n + i] = l[i];
        right[n + i] = r[i];
    }
}

constexpr AFParameterInfo kParameters[] = {
    {"Volume", 0.5f}, {"Pan", 0.5f}, {"Crush", 0.0f}, {"Samplerate", 0.0f}};
constexpr AFWords kOptions[] = {AFWords{}, AFWords{}, kCrushWords, kHoldWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.75f}};

} // namespace

const AFEffectDescriptor AFAmper::descriptor{.typeId = 22,
                                             .displayName = "Levelizer",
                                             .className = "Amper",
                                             .create = makeEffect<AFAmper>,
                                             .parameters = kParameters,
                                             .options = kOptions,
                                             .menuPosition = 10,
                                             .slotDefaults = kSlotDefaults};

AFAmper::AFAmper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), volume(system), pan(system), crush(system), rate(system) {
    for (int i = 0; i < 4; ++i)
        setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
    activate();
}

void AFAmper::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    const double v = clampUnit(value);
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

void AFAmper::controlTick() noexcept {
    driftCoefficient = 1.0f - std::exp(-2.0f * std::numbers::pi_v<float> * kDriftHz / systemInfo->sampleRate);
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
    holdL = 0.0f;
    holdR = 0.0f;
    rawL = 0.0f;
    rawR = 0.0f;
    drift = {};
    holdCount = 0;
    return 1;
}

int32_t AFAmper::holdLength(double length, double peak) const noexcept {
    if (holdMode == kHoldDynamic) length *= 1.0 - (1.0 - kDynamicFloor) * std::min(peak, 1.0);
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the truncating +0.5 the hold lengths are defined by
    return length > 0.0 ? static_cast<int32_t>(std::min(length, 1e6) + 0.5) : 0;
}

void AFAmper::process(float* left, float* right, int count) noexcept {
    for (int done = 0; done < count; done += kBlock) {
        processBlock(left + done, right + done, std::min(kBlock, count - done));
    }
}

void AFAmper::processBlock(float* left, float* right, int count) noexcept {
    float gainL[kBlock];
    float gainR[kBlock];
    float steps[kBlock];
    double rates[kBlock];
    bool crushing = false;
    double longestRate = 0.0;
    const bool resting = volume.getIncrement() == 0.0 && pan.getIncrement() == 0.0 &&
                         crush.getIncrement() == 0.0 && rate.getIncrement() == 0.0;
    // Resting ramps give the same values at every sample; only moving ones need the sample loop.
    for (int n = 0; n < (resting ? 1 : count); ++n) {
        const double gain = volume.advance();
        const double p = pan.advance();
        const double c = crush.advance();
        rates[n] = rate.advance();
        longestRate = std::max(longestRate, rates[n]);
        // Full level on the near side; the far side falls linearly to silence at the end of the travel.
        gainL[n] = static_cast<float>(gain * std::min(1.0, 2.0 - 2.0 * p));
        gainR[n] = static_cast<float>(gain * std::min(1.0, p + p));
        steps[n] = static_cast<float>(c);
        crushing |= c > 0.0;
    }
    if (resting) {
        std::fill(gainL + 1, gainL + count, gainL[0]);
        std::fill(gainR + 1, gainR + count, gainR[0]);
        std::fill(steps + 1, steps + count, steps[0]);
        std::fill(rates + 1, rates + count, rates[0]);
    }
    if (crushing) {
        // The reciprocals of the steps, once for a resting ramp.
        float inverses[kBlock];
        if (resting) {
            std::fill(inverses, inverses + count, 1.0f / steps[0]);
        } else {
            for (int n = 0; n < count; ++n)
                inverses[n] = 1.0f / steps[n];
        }
        switch (crushMode) {
        case kHi:
            crushBlock<kHi>(left, right, steps, inverses, count);
            break;
        case kLow:
            crushBlock<kLow>(left, right, steps, inverses, count);
            break;
        case kClip:
            crushBlock<kClip>(left, right, steps, inverses, count);
            break;
        default:
            crushBlock<kNormal>(left, right, steps, inverses, count);
            break;
        }
    }
    const float decay = holdMode == kHoldAbsurd ? kAbsurdDecay : 1.0f;
    // The factor holds at 44.1 kHz and follows the rate, so a setting sounds alike at any rate.
    const double scale = kHoldFactor * static_cast<double>(systemInfo->rateRatio);
    const bool settled = drift == std::array<float, 4>{};
    if (holdCount <= 1 && longestRate * scale < 0.5 && settled) {
        // Every sample would reload the hold and no correction is left over: it passes the signal as it is.
        holdL = left[count - 1] * decay;
        holdR = right[count - 1] * decay;
        rawL = left[count - 1];
        rawR = right[count - 1];
        holdCount = 0;
        for (int n = 0; n < count; ++n) {
            left[n] *= gainL[n];
            right[n] *= gainR[n];
        }
        return;
    }
    // A fixed hold folds the input's partials near multiples of its rate down to a few hertz: a wandering
    // offset. Each reload subtracts the part of the hold's error below kDriftHz, taken as 2 x first - second
    // of two one-poles in series, which leaves a second-order high-pass of the error. The staircase stays
    // flat.
    const float a = driftCoefficient;
    // Locals, so that the stores to the channels cannot be taken to touch the held values.
    float heldL = holdL;
    float heldR = holdR;
    float sourceL = rawL;
    float sourceR = rawR;
    auto [firstL, secondL, firstR, secondR] = drift;
    int32_t countdown = holdCount;
    for (int n = 0; n < count; ++n) {
        const float inL = left[n];
        const float inR = right[n];
        if (--countdown < 1) {
            // A hold taken on silence lasts one sample, so the staircase starts with the music and not with
            // however long the slot ran before it.
            const bool silent = inL == 0.0f && inR == 0.0f;
            countdown = silent ? 0 : holdLength(rates[n] * scale, std::max(std::fabs(inL), std::fabs(inR)));
            sourceL = inL;
            sourceR = inR;
            heldL = inL - (firstL + firstL - secondL);
            heldR = inR - (firstR + firstR - secondR);
        }
        firstL += a * ((sourceL - inL) - firstL);
        firstR += a * ((sourceR - inR) - firstR);
        secondL += a * (firstL - secondL);
        secondR += a * (firstR - secondR);
        left[n] = gainL[n] * heldL;
        right[n] = gainR[n] * heldR;
        heldL *= decay;
        heldR *= decay;
    }
    constexpr float kQuiet = 1e-9f;
    const bool quiet = std::fabs(firstL) < kQuiet && std::fabs(secondL) < kQuiet &&
                       std::fabs(firstR) < kQuiet && std::fabs(secondR) < kQuiet;
    drift = quiet ? std::array<float, 4>{} : std::array<float, 4>{firstL, secondL, firstR, secondR};
    holdL = heldL;
    holdR = heldR;
    rawL = sourceL;
    rawR = sourceR;
    holdCount = countdown;
}

void AFAmper::formatParameter(int index, float value, char* text) {
    const double scale = index == 0 ? 200.0 : 100.0;
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * scale);
}
