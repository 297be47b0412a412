#include "effects/filter/AFFlangerT.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kVoiceWords[] = {"Flanger", "Chorus"};
constexpr const char* kFeedbackWords[] = {"Normal", "Inverse"};
constexpr const char* kQWords[] = {"Low Q", "Mid Q", "High Q"};

// Four beats at the slowest tempo and the highest rate, plus the guard sample.
const std::size_t kLineCapacity =
    static_cast<std::size_t>(AFSystemInfo::kMaxSampleRate * 60.0 / AFSystemInfo::kMinTempo * 4.0) + 2;

// Line samples below this are stored as 0 so a decaying feedback tail never turns denormal.
constexpr float kFlush = 1e-20f;

constexpr AFParameterInfo kParameters[] = {
    {"Delay Left", 0.0f}, {"Delay Right", 0.01f}, {"Feedback", 0.58f}, {"Filter", 0.5f}};
constexpr AFWords kOptions[] = {kVoiceWords, kVoiceWords, kFeedbackWords, kQWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Lfo Rate", 0.35f},
                                           {"Lfo Phase", 0.5f},
                                           {"Lfo Amount", 0.08f},
                                           {"Param1 Knob Amt", 0.12f},
                                           {"Param4 Knob Amt", 0.4f}};
constexpr AFAmountDefault kAmountDefaults[] = {{0, 0, 1.0f}, {0, 1, 1.0f}};

} // namespace

const AFEffectDescriptor AFFlangerT::descriptor{.typeId = 27,
                                                .displayName = "Flanger",
                                                .className = "test",
                                                .create = makeEffect<AFFlangerT>,
                                                .parameters = kParameters,
                                                .options = kOptions,
                                                .menuPosition = 3,
                                                .slotDefaults = kSlotDefaults,
                                                .amountDefaults = kAmountDefaults};

AFFlangerT::AFFlangerT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), delayL(kLineCapacity), delayR(kLineCapacity), timeL(system),
      timeR(system), filter(system) {
    deriveLength();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
    reset();
}

AFFlangerT::~AFFlangerT() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

float AFFlangerT::delayMs(int voice, float value) noexcept {
    const float v = clampUnit(value);
    // Linear, so the small knob values a slot's default sweep gives land on the classic 0.1 to 2 ms flange.
    if (voice == Chorus) return 5.0f + v * 30.0f;
    return 0.1f + v * 9.9f;
}

float AFFlangerT::lowpassCutoff(float a) noexcept {
    if (a >= 0.5f) return 1.0f;
    const float c = 2.0f * a;
    return c * c;
}

float AFFlangerT::highpassCutoff(float a) noexcept {
    if (a <= 0.5f) return 0.0f;
    const float c = 2.0f * (a - 0.5f);
    return c * c;
}

float AFFlangerT::delaySamples(int voice, float value) const noexcept {
    return delayMs(voice, value) * systemInfo->samplesPerMillisecond;
}

void AFFlangerT::restartLines() noexcept {
    // Reads trail the write head by at most the longest delay, so with the head back at 0 only the stretch
    // before the line's end can be read before it is written again: emptying that empties the line.
    write = 0;
    const auto reach =
        static_cast<std::size_t>(delayMs(Chorus, 1.0f) * systemInfo->samplesPerMillisecond) + 2;
    const auto end = static_cast<std::size_t>(lineLength) + 1;
    const auto from = end - std::min(reach + 1, end);
    std::fill(delayL.begin() + static_cast<std::ptrdiff_t>(from),
              delayL.begin() + static_cast<std::ptrdiff_t>(end), 0.0f);
    std::fill(delayR.begin() + static_cast<std::ptrdiff_t>(from),
              delayR.begin() + static_cast<std::ptrdiff_t>(end), 0.0f);
}

void AFFlangerT::deriveLength() noexcept {
    samplesPerBeat = systemInfo->samplesPerBeat;
    const auto wanted = static_cast<std::size_t>(std::max(samplesPerBeat * 4.0f, 4.0f));
    const int length = static_cast<int>(std::min(wanted, kLineCapacity - 1));
    if (length == lineLength) return;
    lineLength = length;
    restartLines();
}

void AFFlangerT::tempoChanged(int32_t) {
    deriveLength();
}

void AFFlangerT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    switch (index) {
    case 0:
        timeModeL = v;
        break;
    case 1:
        timeModeR = v;
        break;
    case 2:
        feedbackMode = v;
        break;
    default:
        filterQ = v;
        break;
    }
}

int32_t AFFlangerT::getOption(int index) {
    switch (index) {
    case 0:
        return timeModeL;
    case 1:
        return timeModeR;
    case 2:
        return feedbackMode;
    case 3:
        return filterQ;
    default:
        return 0;
    }
}

void AFFlangerT::reset() {
    restartLines();
    timeL.setTarget(delaySamples(timeModeL, parameterValues[0]));
    timeR.setTarget(delaySamples(timeModeR, parameterValues[1]));
    timeL.jump();
    timeR.jump();
    filterValue = parameterValues[3];
    const float q = kFilterQ[static_cast<std::size_t>(filterQ)];
    // Each reset clears every mode's state and jumps its own mode; the second keeps the first's setting.
    filter.reset(AFDirectFilter::Lowpass, lowpassCutoff(filterValue), q);
    filter.reset(AFDirectFilter::Highpass, highpassCutoff(filterValue), q);
}

int32_t AFFlangerT::activate() {
    reset();
    return 1;
}

void AFFlangerT::controlTick() noexcept {
    if (systemInfo->samplesPerBeat != samplesPerBeat) deriveLength();
    timeL.setTarget(delaySamples(timeModeL, parameterValues[0]));
    timeR.setTarget(delaySamples(timeModeR, parameterValues[1]));
    timeL.controlTick();
    timeR.controlTick();
    const float towards = parameterValues[3] - filterValue;
    filterValue = std::fabs(towards) < 1e-6f ? parameterValues[3] : filterValue + towards * kFilterGlide;
    const float q = kFilterQ[static_cast<std::size_t>(filterQ)];
    filter.set(AFDirectFilter::Lowpass, lowpassCutoff(filterValue), q);
    filter.set(AFDirectFilter::Highpass, highpassCutoff(filterValue), q);
}

void AFFlangerT::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    const float factor = clampUnit(parameterValues[2]) * (feedbackMode != 0 ? -0.9f : 0.9f);
    const int length = lineLength;
    const auto span = static_cast<double>(length);
    float* const lineL = delayL.data();
    float* const lineR = delayR.data();
    // Local ramps and head, since the line and output stores could alias members.
    ParamRamp rampL = timeL;
    ParamRamp rampR = timeR;
    int w = write;
    // The lines run inside the filter's pass, so their work overlaps the filter's recursions.
    filter.processStereoBand(left, right, count, [&](int i, float filteredL, float filteredR) {
        // In double: the write index runs to hundreds of thousands, where a float has no fraction left.
        double pL = static_cast<double>(w) - rampL.advance();
        double pR = static_cast<double>(w) - rampR.advance();
        while (pL < 0.0)
            pL += span;
        while (pL >= span)
            pL -= span;
        while (pR < 0.0)
            pR += span;
        while (pR >= span)
            pR -= span;
        const int iL = static_cast<int>(pL);
        const int iR = static_cast<int>(pR);
        const int jL = iL + 1 == length ? 0 : iL + 1;
        const int jR = iR + 1 == length ? 0 : iR + 1;
        const auto fL = static_cast<float>(pL - static_cast<double>(iL));
        const auto fR = static_cast<float>(pR - static_cast<double>(iR));
        const float outL = lineL[iL] + (lineL[jL] - lineL[iL]) * fL;
        const float outR = lineR[iR] + (lineR[jR] - lineR[iR]) * fR;
        const float inL = filteredL + outL * factor;
        const float inR = filteredR + outR * factor;
        lineL[w] = std::fabs(inL) < kFlush ? 0.0f : inL;
        lineR[w] = std::fabs(inR) < kFlush ? 0.0f : inR;
        left[i] = outL;
        right[i] = outR;
        w = w + 1 == length ? 0 : w + 1;
    });
    timeL = rampL;
    timeR = rampR;
    write = w;
}

void AFFlangerT::formatParameter(int index, float value, char* text) {
    if (index == 0 || index == 1) {
        const int voice = index == 0 ? timeModeL : timeModeR;
        std::snprintf(text, kEffectTextSize, "%2.2f ms", static_cast<double>(delayMs(voice, value)));
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
