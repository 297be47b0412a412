#include "effects/filter/AFKnobixPhaser.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kStageWords[] = {"3 Stages", "4 Stages", "5 Stages",
                                       "6 Stages", "7 Stages", "8 Stages"};
constexpr const char* kInvertWords[] = {"Normal", "Invert"};

constexpr float kPi = 3.1415927f;
constexpr float kTwoPi = 6.2831855f;
constexpr float kTiny = 1e-10f;
// Below this a lane's step is dropped and the lane sits on its target.
constexpr float kLaneSnap = 1e-10f;

inline float fastSine(float a) {
    float y = (1.2732395f - std::fabs(a) * 0.4052847f) * a;
    return (std::fabs(y) * y - y) * 0.225f + y;
}

// Allpass coefficient a sweep angle gives between the two corner frequencies (normalised to Nyquist).
float sweepCoefficient(float angle, float low, float high) {
    const float y = fastSine(angle);
    const float c = (high - low) * (y + 1.0f) * 0.5f + low;
    return (1.0f - c) / (c + 1.0f);
}

constexpr AFParameterInfo kParameters[] = {
    {"Phase", 0.2f}, {"Feedback", 0.7f}, {"Depth", 0.7f}, {"Width", 0.7f}};
constexpr AFWords kOptions[] = {kStageWords, kInvertWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Lfo Rate", 0.35f}};
constexpr AFAmountDefault kAmountDefaults[] = {{0, 0, 1.0f}};

} // namespace

const AFEffectDescriptor AFKnobixPhaser::descriptor{.typeId = 14,
                                                    .displayName = "Phaser",
                                                    .className = "Phaser",
                                                    .create = makeEffect<AFKnobixPhaser>,
                                                    .parameters = kParameters,
                                                    .options = kOptions,
                                                    .menuPosition = 4,
                                                    .slotDefaults = kSlotDefaults,
                                                    .amountDefaults = kAmountDefaults};

AFKnobixPhaser::AFKnobixPhaser(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), feedback(system) {
    deriveRates();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
    reset();
}

AFKnobixPhaser::~AFKnobixPhaser() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

void AFKnobixPhaser::deriveRates() noexcept {
    rate = systemInfo->sampleRate;
    freqLow = 440.0f / (rate * 0.5f);
    freqHigh = 1600.0f / (rate * 0.5f);
}

void AFKnobixPhaser::sweep() noexcept {
    // The knob is kept in range so the angle stays inside the sine approximation's one period.
    const float x = clampUnit(parameterValues[0]) * kTwoPi - kPi;
    float xr = x + width * kPi;
    if (xr >= kPi) xr -= kTwoPi;
    coefTargetL = sweepCoefficient(x, freqLow, freqHigh);
    coefTargetR = sweepCoefficient(xr, freqLow, freqHigh);
}

void AFKnobixPhaser::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        sweep();
        break;
    case 2:
        depth = value;
        break;
    case 3:
        width = clampUnit(value) * 0.5f;
        break;
    default:
        break;
    }
}

void AFKnobixPhaser::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    if (index == 0)
        stageCount = v + 3;
    else
        invert = v;
}

int32_t AFKnobixPhaser::getOption(int index) {
    if (index == 0) return stageCount - 3;
    if (index == 1) return invert;
    return 0;
}

void AFKnobixPhaser::mute() noexcept {
    lastL = lastR = 0.0f;
    stateL = {};
    stateR = {};
}

void AFKnobixPhaser::reset() {
    mute();
    sweep();
    coefL = coefTargetL;
    coefR = coefTargetR;
    coefDeltaL = coefDeltaR = 0.0f;
    // Deliberately the raw knob, not the scaled target: the next tick moves it there.
    feedback.setTarget(parameterValues[1]);
    feedback.jump();
}

int32_t AFKnobixPhaser::activate() {
    reset();
    return 1;
}

void AFKnobixPhaser::tempoChanged(int32_t) {
    deriveRates();
}

void AFKnobixPhaser::controlTick() noexcept {
    if (systemInfo->sampleRate != rate) deriveRates();
    const float perSample = 1.0f / static_cast<float>(std::max(systemInfo->controlInterval, 1));
    coefDeltaL = (coefTargetL - coefL) * perSample;
    if (std::fabs(coefDeltaL) < kLaneSnap) {
        coefDeltaL = 0.0f;
        coefL = coefTargetL;
    }
    coefDeltaR = (coefTargetR - coefR) * perSample;
    if (std::fabs(coefDeltaR) < kLaneSnap) {
        coefDeltaR = 0.0f;
        coefR = coefTargetR;
    }
    feedback.setTarget(static_cast<double>(parameterValues[1]) * 0.9);
    feedback.controlTick();
}

template <int Stages>
void AFKnobixPhaser::run(float* left, float* right, int count) noexcept {
    // Left and right in the first two lanes of one vector: the same arithmetic per lane as two scalar chains.
    using Lanes = float __attribute__((vector_size(16)));
    std::array<Lanes, Stages> st;
    for (int s = 0; s < Stages; ++s)
        st[static_cast<std::size_t>(s)] = Lanes{stateL[s], stateR[s], 0.0f, 0.0f};
    Lanes a = {coefL, coefR, 0.0f, 0.0f};
    const Lanes da = {coefDeltaL, coefDeltaR, 0.0f, 0.0f};
    Lanes last = {lastL, lastR, 0.0f, 0.0f};
    const float sign = invert != 0 ? -1.0f : 1.0f;
    const float wet = depth;
    for (int i = 0; i < count; ++i) {
        const float fb = static_cast<float>(feedback.advance()) * sign;
        const Lanes in = {left[i], right[i], 0.0f, 0.0f};
        Lanes x = fb * last + in + kTiny;
        a += da;
        for (auto& state : st) {
            const Lanes y = state - a * x;
            state = a * y + x + kTiny;
            x = y;
        }
        last = x;
        const Lanes out = (in + kTiny) * kDryShare + wet * x;
        left[i] = out[0];
        right[i] = out[1];
    }
    for (int s = 0; s < Stages; ++s) {
        stateL[s] = st[static_cast<std::size_t>(s)][0];
        stateR[s] = st[static_cast<std::size_t>(s)][1];
    }
    coefL = a[0];
    coefR = a[1];
    lastL = last[0];
    lastR = last[1];
}

void AFKnobixPhaser::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    switch (stageCount) {
    case 3:
        run<3>(left, right, count);
        break;
    case 4:
        run<4>(left, right, count);
        break;
    case 5:
        run<5>(left, right, count);
        break;
    case 6:
        run<6>(left, right, count);
        break;
    case 7:
        run<7>(left, right, count);
        break;
    default:
        run<8>(left, right, count);
        break;
    }
}

void AFKnobixPhaser::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
