#include "effects/loop/AFStutter.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr const char* kSyncWords[] = {"Sync", "SyncT", "Free", "Sync X", "Sync TP", "Sync PPQ"};
constexpr const char* kSwingWords[] = {"Normal", "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"};

// Below this many samples the gate length no longer follows "Decay".
constexpr float kGatePivot = 128.0f;
// The smoothing of the musical-position gains.
constexpr double kPpqSmoothNew = 0.1;
constexpr double kPpqSmoothOld = 0.8999999761581421;
// The slot never hands over more; longer calls are worked through in pieces of this size.
constexpr int kMaxBlock = 64;

// A knob value kept inside 0..1; NaN reads as 0. Modulation may push the slot's values past the ends.
double unit(float value) {
    if (!(value > 0.0f)) return 0.0;
    return value < 1.0f ? static_cast<double>(value) : 1.0;
}

// "Free" period in whole samples: 500 ms at 0 down to 3 ms at 1.
float freeSamples(float value, float samplesPerMillisecond) {
    const auto v = static_cast<float>(unit(value));
    return std::trunc(((1.0f - v) * 497.0f + 3.0f) * samplesPerMillisecond);
}

// Four samples per operation. The envelope is written once as a template over float and FloatQuad: a lane
// of a quad computes exactly what the single-sample form computes, so the block path and the per-sample path
// agree to the bit.
using FloatQuad = float __attribute__((vector_size(16)));
using IntQuad = int32_t __attribute__((vector_size(16)));
constexpr int kQuadLanes = 4;

// sin(pi x) for x in 0..1, as the cosine series around the midpoint. Its error stays below a float's
// resolution, and it costs a few multiply-adds instead of a library call per sample.
template <typename T>
T halfSine(T x) {
    const T u = (x - 0.5f) * 3.14159265f;
    const T u2 = u * u;
    return 1.0f +
           u2 * (-1.0f / 2.0f +
                 u2 * (1.0f / 24.0f +
                       u2 * (-1.0f / 720.0f + u2 * (1.0f / 40320.0f + u2 * (-1.0f / 3628800.0f +
                                                                            u2 * (1.0f / 479001600.0f))))));
}

// Compared in float these thresholds split the float shape values exactly where the decimal values do.
// They differ slightly from the offsets inside each blend, and both are kept.
constexpr float kSineShape = 0.33333333333f;
constexpr float kFlatShape = 0.6666666666f;
constexpr float kSineOffset = 0.33329999446868896f;
constexpr float kFlatOffset = 0.6665999889373779f;

// Which pair of shapes a shape value blends. A settled shape keeps one pair for a whole block, so the block
// computes only the pieces of that pair; a ramping shape picks the pair per sample.
enum class Blend { kFallToSine, kSineToFlat, kFlatToRise, kPerSample };

// Gain over one gate, x the position 0..1 in it. The shape s blends four shapes: at 0 a falling ramp with a
// 5% fade-in, at 1/3 a half sine, at 2/3 a flat top with 5% edges, at 1 a rising ramp with a 5% fade-out.
// Every blend is from + (to - from) x weight, with the same pieces whichever way the pair is chosen, so the
// per-pair forms give exactly what the per-sample form gives.
template <Blend B, typename T>
[[gnu::always_inline]] inline T shapeEnvelope(T x, T s) {
    if constexpr (B == Blend::kFallToSine) {
        const T m = 1.0f - x;
        const T fall = m <= 0.95f ? m * 1.05263f : 1.0f - (m - 0.95f) * 20.0f;
        return fall + (halfSine(x) - fall) * s * 3.0f;
    } else {
        const T fadeOut = 1.0f - (x - 0.95f) * 20.0f;
        const T one = T{} + 1.0f;
        const T edges = x < 0.05f ? x * 20.0f : (x <= 0.95f ? one : fadeOut);
        if constexpr (B == Blend::kSineToFlat) {
            const T sine = halfSine(x);
            return sine + (edges - sine) * (s - kSineOffset) * 3.0f;
        } else if constexpr (B == Blend::kFlatToRise) {
            const T rise = x <= 0.95f ? x * 1.05263f : fadeOut;
            return edges + (rise - edges) * (s - kFlatOffset) * 3.0f;
        } else {
            const T sine = halfSine(x);
            const T m = 1.0f - x;
            const T fall = m <= 0.95f ? m * 1.05263f : 1.0f - (m - 0.95f) * 20.0f;
            const T rise = x <= 0.95f ? x * 1.05263f : fadeOut;
            const auto low = s < kSineShape;
            const auto high = s >= kFlatShape;
            const T from = low ? fall : (high ? edges : sine);
            const T to = low ? sine : (high ? rise : edges);
            const T weight = low ? s : (high ? s - kFlatOffset : s - kSineOffset);
            return from + (to - from) * weight * 3.0f;
        }
    }
}

// The pair a shape ramp blends until its next step: one fixed pair while it is settled.
Blend blendFor(const ParamRamp& shape) {
    if (shape.getIncrement() != 0.0) return Blend::kPerSample;
    const auto s = static_cast<float>(shape.getCurrent());
    return s < kSineShape ? Blend::kFallToSine : (s >= kFlatShape ? Blend::kFlatToRise : Blend::kSineToFlat);
}

// One sample's envelope with the pair chosen for the whole call.
inline float shapeEnvelope(Blend blend, float x, float s) {
    switch (blend) {
    case Blend::kFallToSine:
        return shapeEnvelope<Blend::kFallToSine>(x, s);
    case Blend::kSineToFlat:
        return shapeEnvelope<Blend::kSineToFlat>(x, s);
    case Blend::kFlatToRise:
        return shapeEnvelope<Blend::kFlatToRise>(x, s);
    default:
        return shapeEnvelope<Blend::kPerSample>(x, s);
    }
}

// Envelope of n in-gate samples from gate position start, four at a time.
template <Blend B>
void envelopeRun(float* envelopes, const float* shapes, int32_t start, float inverse, int n) {
    for (int i = 0; i < n; i += kQuadLanes) {
        const IntQuad position = IntQuad{0, 1, 2, 3} + (start + i);
        const FloatQuad x = __builtin_convertvector(position, FloatQuad) * inverse;
        FloatQuad shape;
        std::memcpy(&shape, shapes + i, sizeof shape);
        const FloatQuad e = shapeEnvelope<B>(x, shape);
        std::memcpy(envelopes + i, &e, sizeof e);
    }
}

// The ramp's next n values, one step per sample. A settled ramp repeats its value without the add chain.
// The spare lanes of the last quad get copies, so the ramp advances exactly n steps.
void rampValues(ParamRamp& ramp, float* values, int n) {
    if (ramp.getIncrement() == 0.0) {
        const auto value = static_cast<float>(ramp.getCurrent());
        for (int i = 0; i < n; ++i)
            values[i] = value;
    } else {
        for (int i = 0; i < n; ++i)
            values[i] = static_cast<float>(ramp.advance());
    }
    for (int i = n; i % kQuadLanes != 0; ++i)
        values[i] = values[n - 1];
}

constexpr AFParameterInfo kParameters[] = {{"Size", 0.5f}, {"Decay", 1.0f}, {"Shape", 0.0f}, {"Pan", 0.3f}};
constexpr AFWords kOptions[] = {kSyncWords, kSwingWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param3 Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFStutter::descriptor{.typeId = 9,
                                               .displayName = "Stutter",
                                               .className = "AFStutter",
                                               .create = makeEffect<AFStutter>,
                                               .parameters = kParameters,
                                               .options = kOptions,
                                               .menuPosition = 18,
                                               .quantise = 2,
                                               .slotDefaults = kSlotDefaults};

AFStutter::AFStutter(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), shapeRamp(system), balanceRamp(system) {
    gateFraction = static_cast<float>(unit(parameterValues[1]) * 0.85 + 0.15);
    shapeRamp.setTarget(0.0);
    balanceRamp.setTarget(0.699999988079071);
    // The note tables are built on first use; make sure that is not on the audio thread.
    TimeValueTables::instance();
}

float AFStutter::periodFor(int32_t mode) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float v = parameterValues[0];
    switch (mode) {
    case kSync:
    case kSyncX:
        return static_cast<float>(tables.syncTable.intervalSamplesExact(*systemInfo, v));
    case kSyncTriplet:
        return static_cast<float>(tables.syncTripletTable.intervalSamplesExact(*systemInfo, v));
    case kFree:
        return freeSamples(v, systemInfo->samplesPerMillisecond);
    case kSyncDotted:
        return static_cast<float>(tables.syncDottedTable.intervalSamples(*systemInfo, v));
    default:
        return 0.0f;
    }
}

float AFStutter::swung(float base, int32_t mode, int32_t step) noexcept {
    const bool first = step == 0;
    switch (mode) {
    case kRhythm1:
        return first ? base : static_cast<float>(base * 0.5);
    case kShuffle:
        return static_cast<float>(first ? base - base * 0.5 : base * 1.5);
    case kSwingSoft:
        return static_cast<float>(first ? base * 0.8 : base * 1.2);
    case kSwingHard:
        return static_cast<float>(first ? base * 0.66666666 : base * 1.33333333);
    default:
        return base;
    }
}

void AFStutter::advanceSwing(int32_t mode) noexcept {
    switch (mode) {
    case kRhythm1:
        // Two halves, then one whole.
        if (++swingStep >= 3) swingStep = 0;
        break;
    case kShuffle:
    case kSwingSoft:
    case kSwingHard:
        // A plain toggle, so that a step left at 2 by "Rhythm 1" still alternates after a mode change.
        swingStep = swingStep == 0 ? 1 : 0;
        break;
    default:
        break;
    }
    period = swung(basePeriod, mode, swingStep);
}

void AFStutter::updateGateLength() noexcept {
    // Pivots at 128 samples: shorter periods get a gate longer than themselves and never close.
    const float length = (period - kGatePivot) * gateFraction + kGatePivot;
    gateLength = length >= 1.0f ? static_cast<uint32_t>(length) : 0u;
    gateLengthInverse = 1.0f / static_cast<float>(gateLength);
}

void AFStutter::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 1:
        gateFraction = static_cast<float>(unit(value) * 0.85 + 0.15);
        break;
    case 2:
        shapeRamp.setTarget(unit(value));
        break;
    case 3:
        balanceRamp.setTarget(1.0 - unit(value));
        break;
    default:
        break;
    }
}

void AFStutter::setOption(int index, int32_t value) {
    switch (index) {
    case 0:
        syncMode = clampOption(value, kSyncWords);
        setParameter(0, parameterValues[0]);
        break;
    case 1:
        swingMode = clampOption(value, kSwingWords);
        break;
    default:
        break;
    }
}

int32_t AFStutter::getOption(int index) {
    switch (index) {
    case 0:
        return syncMode;
    case 1:
        return swingMode;
    default:
        return 0;
    }
}

void AFStutter::controlTick() noexcept {
    shapeRamp.controlTick();
    balanceRamp.controlTick();
}

int32_t AFStutter::activate() {
    periodPosition = 0.0f;
    gatePosition = 0;
    sideFlag = false;
    swingStep = 1;
    basePeriod = periodFor(syncMode);
    period = swung(basePeriod, swingMode, swingStep);
    updateGateLength();
    shapeRamp.jump();
    balanceRamp.jump();
    gridTicks = 0;
    gridAccumulator = 0.0;
    smoothedLeft = 1.0;
    smoothedRight = 1.0;
    return 1;
}

void AFStutter::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    const int32_t mode = syncMode;
    if (mode == kSyncPpq)
        processPpq(left, right, count);
    else
        processGate(left, right, count, mode);
}

void AFStutter::processGate(float* left, float* right, int count, int32_t mode) noexcept {
    const double grid = static_cast<double>(systemInfo->samplesPerBeat) * 0.03125;

    if (gatePosition + static_cast<uint32_t>(count) < gateLength) {
        // The whole call stays inside the gate: no period or gate tests per sample.
        float* plain = sideFlag ? right : left;
        float* balanced = sideFlag ? left : right;
        const float inverse = gateLengthInverse;
        float shapes[kMaxBlock];
        float balances[kMaxBlock];
        float envelopes[kMaxBlock];
        for (int done = 0; done < count; done += kMaxBlock) {
            const int n = count - done < kMaxBlock ? count - done : kMaxBlock;
            rampValues(shapeRamp, shapes, n);
            rampValues(balanceRamp, balances, n);
            const auto start = static_cast<int32_t>(gatePosition) + done;
            switch (blendFor(shapeRamp)) {
            case Blend::kFallToSine:
                envelopeRun<Blend::kFallToSine>(envelopes, shapes, start, inverse, n);
                break;
            case Blend::kSineToFlat:
                envelopeRun<Blend::kSineToFlat>(envelopes, shapes, start, inverse, n);
                break;
            case Blend::kFlatToRise:
                envelopeRun<Blend::kFlatToRise>(envelopes, shapes, start, inverse, n);
                break;
            default:
                envelopeRun<Blend::kPerSample>(envelopes, shapes, start, inverse, n);
                break;
            }
            for (int i = 0; i < n; ++i) {
                plain[done + i] *= envelopes[i];
                balanced[done + i] *= balances[i] * envelopes[i];
            }
        }
        gatePosition += static_cast<uint32_t>(count);
        periodPosition += static_cast<float>(count);
        gridAccumulator += count;
        while (gridAccumulator >= grid) {
            ++gridTicks;
            gridAccumulator -= grid;
        }
        return;
    }

    // Size and tempo only change between calls, so one lookup serves the whole call. The running counters
    // live in locals so the loop keeps them in registers; they go back to the members around a period start.
    const float lookup = periodFor(mode);
    const int32_t swing = swingMode;
    Blend blend = blendFor(shapeRamp);
    float closedPeriod = swung(lookup, swing, swingStep);
    uint32_t gate = gatePosition;
    float position = periodPosition;
    double accumulator = gridAccumulator;
    uint32_t ticks = gridTicks;
    float current = period;
    for (int i = 0; i < count; ++i) {
        ++gate;
        if (gate < gateLength) {
            const float x = static_cast<float>(gate) * gateLengthInverse;
            const float e = shapeEnvelope(blend, x, static_cast<float>(shapeRamp.advance()));
            const float gained = static_cast<float>(balanceRamp.advance()) * e;
            left[i] *= sideFlag ? gained : e;
            right[i] *= sideFlag ? e : gained;
        } else {
            left[i] = 0.0f;
            right[i] = 0.0f;
            // A "Size" move is heard at once while the gate is closed; "Sync X" keeps to its grid instead.
            if (mode != kSyncX) current = closedPeriod;
        }
        accumulator += 1.0;
        if (accumulator >= grid) {
            ++ticks;
            accumulator -= grid;
        }
        position += 1.0f;
        if (current <= position) {
            periodPosition = position;
            period = current;
            gridAccumulator = accumulator;
            gridTicks = ticks;
            startPeriod(lookup, mode, swing, grid);
            gate = gatePosition;
            position = periodPosition;
            current = period;
            closedPeriod = swung(lookup, swing, swingStep);
            blend = blendFor(shapeRamp);
        }
    }
    gatePosition = gate;
    periodPosition = position;
    period = current;
    gridAccumulator = accumulator;
    gridTicks = ticks;
}

void AFStutter::startPeriod(float lookup, int32_t mode, int32_t swing, double grid) noexcept {
    periodPosition -= period;
    sideFlag = !sideFlag;
    gatePosition = 0;
    if (lookup != basePeriod && adopts(lookup, mode, swing, grid)) {
        basePeriod = lookup;
        period = lookup;
        periodPosition = static_cast<float>(gridAccumulator);
        swingStep = swing == kRhythm1 ? 2 : 0;
    }
    period = basePeriod;
    advanceSwing(swing);
    updateGateLength();
    shapeRamp.jump();
}

bool AFStutter::adopts(float lookup, int32_t mode, int32_t swing, double grid) const noexcept {
    if (mode != kSyncX) return true;
    // "Sync X": a shorter value waits only for the swing pair to finish; a longer one waits for a grid
    // boundary of twice its length, counted from activation.
    if (lookup <= basePeriod) return swing < kShuffle || swingStep != 0;
    const auto ticks = static_cast<uint32_t>((lookup + lookup) / grid);
    return ticks == 0 || gridTicks % ticks == 0;
}

void AFStutter::processPpq(float* left, float* right, int count) noexcept {
    const uint32_t interval =
        TimeValueTables::instance().syncDottedTable.intervalSamples(*systemInfo, parameterValues[0]);
    const double inverse = 1.0 / static_cast<double>(interval > 0 ? interval : 1u);
    const double samplesPerBeat = systemInfo->samplesPerBeat;
    const double step = (static_cast<double>(count) / samplesPerBeat) / static_cast<double>(count);
    double p = systemInfo->ppqPosition;
    // A position no host sends would overflow the period count; read it as the song start.
    if (!(std::fabs(p) < 1.0e9)) p = 0.0;
    const double scale = samplesPerBeat * inverse;
    const double gateScale = (1.0 - static_cast<double>(gateFraction)) * 4.0 + 1.0;
    const int32_t swing = swingMode;
    const Blend blend = blendFor(shapeRamp);

    for (int i = 0; i < count; ++i) {
        const double phase = scale * p;
        // Floor rather than truncation keeps the pattern running through a negative pre-roll position.
        const double whole = std::floor(phase);
        double f = phase - whole;
        bool odd = (static_cast<int64_t>(whole) & 1) != 0;
        switch (swing) {
        case kRhythm1:
            // The 0.2 scale is kept: the gate only ever reaches a fifth of its envelope here.
            if (!odd) f = f < 0.5 ? f * 0.2 : (f - 0.5) * 0.2;
            break;
        case kShuffle:
            if (!odd) {
                f *= 0.666;
            } else if (f < 0.5) {
                f = 0.666 + f * 0.666;
                odd = false;
            } else {
                f = (f - 0.5) * 0.2;
            }
            break;
        case kSwingSoft:
            if (!odd) {
                f *= 0.83;
            } else if (f < 0.2) {
                f = f * 0.8500000000000001 + 0.83;
                odd = false;
            } else {
                f = (f - 0.2) * 1.25;
            }
            break;
        case kSwingHard:
            if (!odd) {
                f *= 0.75;
            } else if (f < 0.33329999446868896) {
                f = 0.75 + f * 0.75;
                odd = false;
            } else {
                f = (f - 0.33333298563957214) * 1.5;
            }
            break;
        default:
            break;
        }
        const double y = gateScale * f;
        const double e =
            y <= 1.0 ? shapeEnvelope(blend, static_cast<float>(y), static_cast<float>(shapeRamp.advance()))
                     : 0.0;
        const double gained = balanceRamp.advance() * e;
        smoothedLeft = (odd ? gained : e) * kPpqSmoothNew + smoothedLeft * kPpqSmoothOld;
        smoothedRight = (odd ? e : gained) * kPpqSmoothNew + smoothedRight * kPpqSmoothOld;
        left[i] = static_cast<float>(left[i] * smoothedLeft);
        right[i] = static_cast<float>(right[i] * smoothedRight);
        p += step;
    }
}

void AFStutter::formatParameter(int index, float value, char* text) {
    if (index == 0) {
        const auto& tables = TimeValueTables::instance();
        switch (syncMode) {
        case kSync:
        case kSyncX:
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(value));
            return;
        case kSyncTriplet:
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTripletTable.valueName(value));
            return;
        case kFree: {
            const float perMs = systemInfo->samplesPerMillisecond;
            TimeValueTables::formatTime(text, kEffectTextSize, freeSamples(value, perMs) / perMs);
            return;
        }
        default:
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(value));
            return;
        }
    }
    if (index >= 1 && index <= 3) {
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        return;
    }
    AFEffect::formatParameter(index, value, text);
}
