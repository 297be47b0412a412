#include "effects/filter/AFMultiModeFilter.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr const char* kModeWords[] = {"Highpass", "Bandpass", "Lowpass", "Comb",    "12dB LP", "12dB HP",
                                      "12dB BR",  "12dB BP",  "24dB LP", "24dB HP", "24dB BR", "24dB BP"};
constexpr const char* kLinkWords[] = {"Unlink", "Link"};

inline float cutoffToHz(float v) {
    return v * v * v * 18000.0f + 30.0f;
}
inline float resonanceToQ(float v) {
    return v * 2.5f + 0.1f;
}

} // namespace

float AFMultiModeFilter::CutoffRamp::next(float value, float perMs, float ms) noexcept {
    if (value != target) {
        target = value;
        count = static_cast<uint32_t>(std::max(perMs * ms, 0.0f));
        if (count == 0) count = 1;
        step = -(value - current) / static_cast<float>(count);
    }
    if (target != current) {
        --count;
        current -= step;
        if (count == 0) {
            current = target;
            step = 0.0f;
        }
    }
    return current;
}

void AFMultiModeFilter::CutoffRamp::snap(float value) noexcept {
    target = current = value;
    step = 0.0f;
    count = 0;
}

namespace {

constexpr AFParameterInfo kParameters[] = {
    {"Cutoff L", 0.0f}, {"Reso L", 0.5f}, {"Cutoff R", 0.0f}, {"Reso R", 0.5f}};
constexpr AFWords kOptions[] = {kModeWords, AFWords{}, kLinkWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param1 Knob Amt", 1.0f}};
constexpr AFOptionDefault kOptionDefaults[] = {{2, 1}};

} // namespace

const AFEffectDescriptor AFMultiModeFilter::descriptor{.typeId = 24,
                                                       .displayName = "Filter",
                                                       .className = "Multi_Mode_Filter",
                                                       .create = makeEffect<AFMultiModeFilter>,
                                                       .parameters = kParameters,
                                                       .options = kOptions,
                                                       .menuPosition = 20,
                                                       .slotDefaults = kSlotDefaults,
                                                       .optionDefaults = kOptionDefaults};

AFMultiModeFilter::AFMultiModeFilter(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), directL(system), directR(system) {
    for (int i = 0; i < 4; ++i)
        setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
    reset();
}

float AFMultiModeFilter::blocksPerMs() const noexcept {
    return systemInfo->sampleRate * 0.001f / std::max(systemInfo->controlRate, 1.0f);
}

void AFMultiModeFilter::deriveRight() {
    const float cutR = parameterValues[2];
    const float resR = parameterValues[3];
    cutoffHzR = link != 0 ? cutoffHzL : cutoffToHz(cutR);
    qR = link != 0 ? qL : resonanceToQ(resR);
}

void AFMultiModeFilter::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        cutoffHzL = cutoffToHz(value);
        break;
    case 1:
        qL = resonanceToQ(value);
        break;
    default:
        break;
    }
    deriveRight();
}

void AFMultiModeFilter::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    if (index == 0) {
        mode = v;
        shape = v >= 4 ? v % 4 : 0;
        bandBoost = v == 1 || v == 7 || v == 11;
        return;
    }
    link = v;
    setParameter(2, parameterValues[2]);
    setParameter(3, parameterValues[3]);
}

int32_t AFMultiModeFilter::getOption(int index) {
    if (index == 0) return mode;
    if (index == 2) return link;
    return 0;
}

void AFMultiModeFilter::reset() {
    const int32_t m = mode;
    rampL.snap(parameterValues[0]);
    rampR.snap(parameterValues[2]);
    const int directMode = m < 4 ? m : 0;
    directL.reset(directMode, rampL.current, parameterValues[1]);
    directR.reset(directMode, rampR.current, parameterValues[3]);
    const float rate = systemInfo->sampleRate;
    const int interval = systemInfo->controlInterval;
    stages[0].set(shape, cutoffHzL, qL, rate, interval, true);
    stages[1].set(shape, cutoffHzR, qR, rate, interval, true);
    stages[2].set(shape, cutoffHzL, qL, rate, interval, true);
    stages[3].set(shape, cutoffHzR, qR, rate, interval, true);
    runningMode = m;
    runningBoost = bandBoost;
}

int32_t AFMultiModeFilter::activate() {
    reset();
    return 1;
}

void AFMultiModeFilter::controlTick() noexcept {
    const int32_t m = mode;
    runningMode = m;
    runningBoost = bandBoost;
    if (m < 4) {
        const float perMs = blocksPerMs();
        const float cutL = rampL.next(parameterValues[0], perMs, kCutoffRampMs);
        const float cutR = rampR.next(parameterValues[2], perMs, kCutoffRampMs);
        directL.set(m, cutL, parameterValues[1]);
        if (link == 0) directR.set(m, cutR, parameterValues[3]);
        return;
    }
    const float rate = systemInfo->sampleRate;
    const int interval = systemInfo->controlInterval;
    const int s = shape;
    const bool steep = m > 6;
    // Each side's design is worked out once, and only when a stage of that side needs it.
    const bool needL =
        !stages[0].matches(s, cutoffHzL, qL) || (steep && !stages[2].matches(s, cutoffHzL, qL));
    const bool needR =
        !stages[1].matches(s, cutoffHzR, qR) || (steep && !stages[3].matches(s, cutoffHzR, qR));
    const bool same = cutoffHzL == cutoffHzR && qL == qR;
    std::array<float, 5> left{};
    std::array<float, 5> right{};
    if (needL) left = BiquadStage::design(s, cutoffHzL, qL, rate);
    if (needR) right = same && needL ? left : BiquadStage::design(s, cutoffHzR, qR, rate);
    stages[0].apply(s, cutoffHzL, qL, left, interval, false);
    stages[1].apply(s, cutoffHzR, qR, right, interval, false);
    if (steep) {
        stages[2].apply(s, cutoffHzL, qL, left, interval, false);
        stages[3].apply(s, cutoffHzR, qR, right, interval, false);
    }
}

void AFMultiModeFilter::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    const int32_t m = runningMode;
    if (m < 4) {
        if (link != 0) {
            directL.processStereo(m, left, right, count);
        } else {
            AFDirectFilter::processPair(m, directL, left, directR, right, count);
        }
    } else {
        if (m > 6)
            BiquadStage::processCascadePair(stages[0], stages[2], left, stages[1], stages[3], right, count);
        else
            BiquadStage::processPair(stages[0], left, stages[1], right, count);
    }
    if (runningBoost) {
        for (int i = 0; i < count; ++i) {
            left[i] *= kBandBoost;
            right[i] *= kBandBoost;
        }
    }
}

void AFMultiModeFilter::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
