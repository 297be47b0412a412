#include "effects/filter/AFRinger.h"

#include "effects/filter/LaneFilter.h"
#include "effects/filter/WaveTables.h"
#include "effects/framework/AFSystemInfo.h"

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

float unit(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

float readShape(const float* wave, const float* delta, float phase) noexcept {
    const float p = phase * 1023.5f;
    const int i = static_cast<int>(p);
    return wave[i] + (p - static_cast<float>(i)) * delta[i];
}

// Left and right travel together through the ring stage and the limiter.
using Stereo = float __attribute__((vector_size(16)));

// Below full scale the division is by 1 and leaves y exact.
Stereo limit(Stereo y, Stereo& envelope, Stereo release) noexcept {
    const Stereo a = y < 0.0f ? -y : y;
    const Stereo k = a > envelope ? Stereo{} + AFRinger::kLimiterAttack : release;
    envelope = (envelope - a) * k + a;
    return y / (envelope > 1.0f ? envelope : Stereo{} + 1.0f);
}

float wrap(float phase) noexcept {
    return phase >= 1.0f ? phase - 1.0f : phase;
}

} // namespace

AFRinger::AFRinger(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag), frequency(system), partialLevel(system), cutoff(system),
      rectify(system), resonance(system), filter(1.0, kFilterDamping, StateVariableHP::Output::Low) {
    setName("Ringmodulator");
    defineParameter(0, "Pitch", 0.5f);
    defineParameter(1, "VCA", 0.5f);
    defineParameter(2, "Amt", 0.5f);
    defineParameter(3, "Waveform", 0.5f);

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
    const float v = unit(value);
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

void AFRinger::getOptionList(int index, AFWordList& list) {
    if (index == 0) appendWords(list, kRangeWords);
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

void AFRinger::processPiece(float* left, float* right, int count) noexcept {
    const float* wave = morphWave.data();
    const float* delta = morphDelta.data();
    const double rate = inverseRate;

    // Two passes, each light enough to keep its state in registers: the carrier first, then both channels.
    // They work on local copies, since the output stores could alias members.
    std::array<float, kMaxBlock> carrierOut;
    ParamRamp freq = frequency;
    ParamRamp level = partialLevel;
    ParamRamp corner = cutoff;
    StateVariableHP carrier = filter;
    float ph1 = phase1, ph2 = phase2, ph3 = phase3;
    for (int n = 0; n < count; ++n) {
        const double f = std::min(std::max(0.0, freq.advance()), kMaxFrequency);
        const auto step = static_cast<float>(f * rate);
        ph1 = wrap(ph1 + step);
        ph2 = wrap(ph2 + step * 2.0f);
        ph3 = wrap(ph3 + step * 3.0f);

        const auto l = static_cast<float>(level.advance());
        const double signal =
            readShape(wave, delta, ph1) + l * (readShape(wave, delta, ph2) + readShape(wave, delta, ph3));

        // A ramp run past its tick must not push the filter out of its stable range.
        const double c = corner.advance();
        carrier.f = c <= 1.0 && c > 0.0 ? c : carrier.f;
        carrier.process(signal, kAntiDenormal);
        carrierOut[static_cast<std::size_t>(n)] = static_cast<float>(carrier.low);
    }
    frequency = freq;
    partialLevel = level;
    cutoff = corner;
    filter = carrier;
    phase1 = ph1;
    phase2 = ph2;
    phase3 = ph3;

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
