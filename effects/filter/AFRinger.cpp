#include "effects/filter/AFRinger.h"

#include "effects/filter/LaneFilter.h"
#include "effects/filter/WaveTables.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Any value but 0 selects "Lo", so the stored option is always one of the two words.
constexpr const char* kRangeWords[] = {"Hi", "Lo"};

// Keeps the filter states clear of denormals.
constexpr double kAntiDenormal = 1.000000013351432e-10;

// Upper bound of the carrier's fundamental: "Lo" reaches 303 Hz, "Hi" 262 Hz. A ramp run past its tick is
// held here so the phases always wrap with one subtraction.
constexpr double kMaxFrequency = 320.0;

enum Shape { kSaw = 0, kTri = 1, kSquare = 2, kSine = 3 };

// The three partials' phases in the first three lanes of one vector, each lane stepped and wrapped as a
// scalar phase would be.
using Partials = float __attribute__((vector_size(16)));
using PartialRows = int32_t __attribute__((vector_size(16)));

// Left and right travel together through the ring stage and the limiter.
using Stereo = float __attribute__((vector_size(16)));

// Below full scale the division is by 1 and leaves y exact.
Stereo limit(Stereo y, Stereo& envelope, Stereo release) noexcept {
    const Stereo a = y < 0.0f ? -y : y;
    const Stereo k = a > envelope ? Stereo{} + AFRinger::kLimiterAttack : release;
    envelope = (envelope - a) * k + a;
    return y / (envelope > 1.0f ? envelope : Stereo{} + 1.0f);
}

constexpr AFParameterInfo kParameters[] = {{"Pitch", 0.5f}, {"VCA", 0.5f}, {"Amt", 0.5f}, {"Waveform", 0.5f}};
constexpr AFWords kOptions[] = {kRangeWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param1 Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFRinger::descriptor{.typeId = 8,
                                              .displayName = "Ringmodulator",
                                              .className = "Ringmodulator",
                                              .create = makeEffect<AFRinger>,
                                              .parameters = kParameters,
                                              .options = kOptions,
                                              .menuPosition = 8,
                                              .slotDefaults = kSlotDefaults};

AFRinger::AFRinger(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), frequency(system), partialLevel(system), cutoff(system),
      rectify(system), resonance(system), filter(1.0, kFilterDamping, StateVariableHP::Output::Low) {

    const WaveTables& tables = WaveTables::instance();
    constexpr Shape order[kShapeCount] = {kSine, kTri, kSquare, kSaw, kSaw};
    for (int s = 0; s < kShapeCount; ++s) {
        shapes[static_cast<std::size_t>(s)] = tables.wave(order[s]);
        shapeDeltas[static_cast<std::size_t>(s)] = tables.delta(order[s]);
    }
    for (int i = 0; i < 4; ++i)
        apply(i, parameterValues[static_cast<std::size_t>(i)]);
    updateRate();
    updateMorph();
    reset();
    partialLevel.jump();
}

void AFRinger::apply(int index, float value) noexcept {
    const float v = clampUnit(value);
    switch (index) {
    case 0:
        if (lowRange) {
            frequency.setTarget(v * 300.0 + 3.0);
        } else {
            const float n = v * 84.0f + 12.0f;
            const int row = static_cast<int>(n);
            const AFSystemInfo::Pair& entry = systemInfo->noteLadder[static_cast<std::size_t>(row)];
            frequency.setTarget(entry.value + (n - static_cast<float>(row)) * entry.delta);
        }
        break;
    case 1:
        rectify.setTarget(v);
        break;
    case 2:
        partialLevel.setTarget(v);
        break;
    case 3: {
        const float w2 = v * v;
        resonance.setTarget(w2);
        cutoff.setTarget((1.0f - w2 * w2) * 0.92f + 0.08f);
        float m = v * 5.0f;
        if (m > 3.0f) m = 3.0f;
        shapeIndex = static_cast<int>(m);
        shapeFraction = m - static_cast<float>(shapeIndex);
        break;
    }
    default:
        break;
    }
}

void AFRinger::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    apply(index, value);
}

void AFRinger::setOption(int index, int32_t value) {
    if (index != 0) return;
    lowRange = value != 0;
    rangeOption = lowRange ? 1 : 0;
    apply(0, parameterValues[0]);
}

int32_t AFRinger::getOption(int index) {
    return index == 0 ? rangeOption : 0;
}

void AFRinger::updateRate() noexcept {
    if (systemInfo->sampleRate == limiterRate) return;
    limiterRate = systemInfo->sampleRate;
    inverseRate = 1.0 / static_cast<double>(limiterRate);
    releaseCoefficient =
        static_cast<float>(std::exp(-1.0 / (kLimiterReleaseSeconds * static_cast<double>(limiterRate))));
}

void AFRinger::reset() {
    phase1 = 0.0f;
    phase2 = 0.0f;
    phase3 = 0.0f;
    filter.reset();
    envelopeL = 0.0f;
    envelopeR = 0.0f;
    cutoff.jump();
    resonance.jump();
    frequency.jump();
    rectify.jump();
    filter.f = cutoff.getCurrent();
}

LANE_WIDE_CLONES void AFRinger::updateMorph() noexcept {
    if (shapeIndex == morphIndex && shapeFraction == morphFraction) return;
    morphIndex = shapeIndex;
    morphFraction = shapeFraction;
    const auto lower = static_cast<std::size_t>(shapeIndex);
    const float* waveA = shapes[lower];
    const float* deltaA = shapeDeltas[lower];
    const float* waveB = shapes[lower + 1];
    const float* deltaB = shapeDeltas[lower + 1];
    const float mf = shapeFraction;
    for (std::size_t i = 0; i < morphWave.size(); ++i) {
        morphWave[i] = waveA[i] + (waveB[i] - waveA[i]) * mf;
        morphDelta[i] = deltaA[i] + (deltaB[i] - deltaA[i]) * mf;
    }
}

int32_t AFRinger::activate() {
    updateRate();
    updateMorph();
    reset();
    partialLevel.jump();
    return 1;
}

void AFRinger::controlTick() noexcept {
    updateRate();
    updateMorph();
    frequency.controlTick();
    partialLevel.controlTick();
    cutoff.controlTick();
    rectify.controlTick();
    resonance.controlTick();
}

void AFRinger::process(float* left, float* right, int count) noexcept {
    for (int done = 0; done < count; done += kMaxBlock)
        processPiece(left + done, right + done, std::min(count - done, kMaxBlock));
}

// Cloned for wider processors as well: their three-operand forms and extra registers save the copies the
// passes need to keep their state live.
LANE_WIDE_CLONES void AFRinger::processPiece(float* left, float* right, int count) noexcept {
    const float* wave = morphWave.data();
    const float* delta = morphDelta.data();
    const double rate = inverseRate;

    // Three passes, the oscillator, the carrier filter, then both channels: each keeps its state in registers
    // and is short enough that the processor runs several samples of it at once. They work on local copies,
    // since the output stores could alias members.
    std::array<float, kMaxBlock> signal;
    std::array<float, kMaxBlock> carrierOut;
    ParamRamp freq = frequency;
    ParamRamp level = partialLevel;
    Partials phase = {phase1, phase2, phase3, 0.0f};
    // Times one is exact, so the fundamental steps by the plain step.
    const Partials harmonic = {1.0f, 2.0f, 3.0f, 0.0f};
    // A resting pitch steps every sample by the same amount, worked out once.
    const bool gliding = freq.getIncrement() != 0.0;
    const double resting = std::min(std::max(0.0, freq.getCurrent()), kMaxFrequency);
    const Partials restingStep = static_cast<float>(resting * rate) * harmonic;
    for (int n = 0; n < count; ++n) {
        Partials stepped = restingStep;
        if (gliding) {
            const double f = std::min(std::max(0.0, freq.advance()), kMaxFrequency);
            stepped = static_cast<float>(f * rate) * harmonic;
        }
        phase += stepped;
        phase = phase >= 1.0f ? phase - 1.0f : phase;
        const Partials p = phase * 1023.5f;
        const PartialRows row = __builtin_convertvector(p, PartialRows);
        const Partials frac = p - __builtin_convertvector(row, Partials);
        float read[3];
        for (int k = 0; k < 3; ++k)
            read[k] = wave[row[k]] + frac[k] * delta[row[k]];
        const auto l = static_cast<float>(level.advance());
        signal[static_cast<std::size_t>(n)] = read[0] + l * (read[1] + read[2]);
    }
    frequency = freq;
    partialLevel = level;
    phase1 = phase[0];
    phase2 = phase[1];
    phase3 = phase[2];

    ParamRamp cornerRamp = cutoff;
    double band = filter.band;
    double low = filter.low;
    double corner = filter.f;
    const double damp = filter.damp;
    for (int n = 0; n < count; ++n) {
        // A ramp run past its tick must not push the filter out of its stable range.
        const double c = cornerRamp.advance();
        corner = c <= 1.0 && c > 0.0 ? c : corner;
        // The state-variable step solved for its new states, so only a multiply and two adds lie between one
        // sample's states and the next; the coefficients follow the corner off that path.
        const double x = signal[static_cast<std::size_t>(n)];
        const double bandWeight = 1.0 - corner * damp;
        const double lowFromBand = corner * bandWeight;
        const double lowWeight = 1.0 - corner * corner;
        const double bandInput = corner * x + (corner + 1.0) * kAntiDenormal;
        const double lowInput = corner * bandInput - kAntiDenormal;
        const double nextBand = bandWeight * band - corner * low + bandInput;
        low = lowFromBand * band + lowWeight * low + lowInput;
        band = nextBand;
        carrierOut[static_cast<std::size_t>(n)] = static_cast<float>(low);
    }
    cutoff = cornerRamp;
    filter.band = band;
    filter.low = low;
    filter.f = corner;

    ParamRamp rect = rectify;
    Stereo env{envelopeL, envelopeR, 0.0f, 0.0f};
    const Stereo release = Stereo{} + releaseCoefficient;
    for (int n = 0; n < count; ++n) {
        const float m = carrierOut[static_cast<std::size_t>(n)];
        const auto r = static_cast<float>(rect.advance());
        const Stereo x{left[n], right[n], 0.0f, 0.0f};
        const Stereo ring = x * m;
        const Stereo y = limit(ring + (x * std::fabs(m) - ring) * r, env, release);
        left[n] = y[0];
        right[n] = y[1];
    }
    rectify = rect;
    envelopeL = env[0];
    envelopeR = env[1];
}

void AFRinger::formatParameter(int index, float value, char* text) {
    const double v = static_cast<double>(value);
    const double shown = index == 0 && !lowRange ? v * 84.0 + 12.0 : v * 100.0;
    std::snprintf(text, kEffectTextSize, "%3.2f", shown);
}
