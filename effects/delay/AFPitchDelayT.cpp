#include "effects/delay/AFPitchDelayT.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption1[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption2[] = {"Normal",    "1/4",   "1/4 - - -", "1/4 -",      "1/8",
                                    "1/8 - - -", "1/8 -", "1/16",      "1/16 - - -", "1/16 -"};
constexpr const char* kOption3[] = {"Pitch",
                                    "+LP ",
                                    "+LP Q",
                                    "+Comb ",
                                    "+Comb Q",
                                    "+HP",
                                    "+HP Q",
                                    "-LP ",
                                    "-LP Q",
                                    "-Comb ",
                                    "-Comb Q",
                                    "-HP",
                                    "-HP Q",
                                    "LP",
                                    "LP Q",
                                    "Comb ",
                                    "Comb Q",
                                    "HP",
                                    "HP Q",
                                    "HP 300hz Input",
                                    "HP 600hz Input",
                                    "HP 1000hz Input",
                                    "HP 2000hz Input",
                                    "BP 300hz Input",
                                    "BP 600hz Input",
                                    "BP 1000hz Input",
                                    "BP 2000hz Input"};

constexpr AFParameterInfo kParameters[] = {
    {"Delay Left", 0.75f}, {"Delay Right", 0.75f}, {"Feedback", 0.5f}, {"Pitch", 0.75f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.5f}};

constexpr int kSync = 0;
constexpr int kSyncDotted = 1;
constexpr int kOctave = 12;

// Option 3: "Pitch" alone; then three groups of six loop filters (low-pass, comb, high-pass, each plain and
// resonant) that follow the pitch ("+"), oppose it ("-") or replace the shifter ("LP" ...); then eight
// fixed filters on the input.
constexpr int kFirstLoopFilter = 1;
constexpr int kFirstInputFilter = 19;
// Group 0 follows the pitch.
constexpr int kGroupOppose = 1;
constexpr int kGroupInstead = 2;
constexpr std::array<int, 3> kLoopModes{AFDirectFilter::Lowpass, AFDirectFilter::Comb,
                                        AFDirectFilter::Highpass};
// Where each loop filter's cutoff moves as its control goes from 0 to 1, kept where each kind stays audible.
constexpr std::array<float, 3> kCutoffFloor{0.35f, 0.2f, 0.05f};
constexpr std::array<float, 3> kCutoffSpan{0.6f, 0.6f, 0.55f};
constexpr float kPlainResonance = 0.15f;
constexpr float kHighResonance = 0.7f;
constexpr std::array<float, 4> kInputHz{300.0f, 600.0f, 1000.0f, 2000.0f};

// Option 2: the step in beats and which steps let the input in ("1/4": the first half of every step,
// "1/4 -": every second step, "1/4 - - -": every fourth).
constexpr std::array<double, 3> kStepBeats{1.0, 0.5, 0.25};

// The shifter reads behind the block not yet written, Hermite points included.
constexpr double kLeastDelay = 68.0;
constexpr float kGateStep = 1.0f / 44.0f;
constexpr float kFeedbackScale = 0.98f;
constexpr double kEchoGrainMs = 60.0;

float unit(float value) noexcept {
    return std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 0.0f;
}

} // namespace

const AFEffectDescriptor AFPitchDelayT::descriptor{.typeId = 11,
                                                   .displayName = "Pitch Delay",
                                                   .className = "AFPitchDelayT",
                                                   .create = makeEffect<AFPitchDelayT>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 2,
                                                   .slotDefaults = kSlotDefaults};

AFPitchDelayT::AFPitchDelayT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftLine(kLineSize), rightLine(kLineSize), loopFilter(system),
      feedbackRamp(system) {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFPitchDelayT::~AFPitchDelayT() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
    leftLine.silentFrom(dirtySamples);
    rightLine.silentFrom(dirtySamples);
}

void AFPitchDelayT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPitchDelayT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

uint32_t AFPitchDelayT::delayFor(int side, float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float v = unit(value);
    switch (options[static_cast<std::size_t>(side)]) {
    case kSync:
        return tables.syncTable.intervalSamples(*systemInfo, v);
    case kSyncDotted:
        return tables.syncDottedTable.intervalSamples(*systemInfo, v);
    default: {
        const double floor = 88.0 * static_cast<double>(systemInfo->rateRatio);
        return static_cast<uint32_t>((static_cast<double>(systemInfo->samplesPerBeat) - floor) * v + floor);
    }
    }
}

int AFPitchDelayT::semitonesFor(float value) noexcept {
    return static_cast<int>(std::lround((unit(value) - 0.5f) * 2.0f * kOctave));
}

float AFPitchDelayT::gateTarget() const noexcept {
    const int word = options[2];
    if (word <= 0) return 1.0f;
    const int kind = (word - 1) % 3;
    const double step = kStepBeats[static_cast<std::size_t>((word - 1) / 3)];
    const double steps = beatClock / step;
    const auto index = static_cast<int64_t>(steps);
    switch (kind) {
    case 0:
        return steps - static_cast<double>(index) < 0.5 ? 1.0f : 0.0f;
    case 1:
        return index % 4 == 0 ? 1.0f : 0.0f;
    default:
        return index % 2 == 0 ? 1.0f : 0.0f;
    }
}

void AFPitchDelayT::updateFilters(bool snap) noexcept {
    const int word = options[3];
    const float pitch = unit(parameterValues[3]);
    // A setting already in force needs no new design: the glide towards it ends within the tick anyway.
    if (!snap && word == filterWord && pitch == filterPitch) return;
    filterWord = word;
    filterPitch = pitch;
    if (word >= kFirstLoopFilter && word < kFirstInputFilter) {
        const int w = word - kFirstLoopFilter;
        const int group = w / 6;
        const auto kind = static_cast<std::size_t>((w % 6) / 2);
        const float control = group == kGroupOppose ? 1.0f - pitch : pitch;
        const float cutoff = kCutoffFloor[kind] + kCutoffSpan[kind] * control;
        const float resonance = w % 2 == 1 ? kHighResonance : kPlainResonance;
        if (snap)
            loopFilter.reset(kLoopModes[kind], cutoff, resonance);
        else
            loopFilter.set(kLoopModes[kind], cutoff, resonance);
    } else if (word >= kFirstInputFilter) {
        const int w = word - kFirstInputFilter;
        const int shape = w < 4 ? BiquadStage::HighPass : BiquadStage::BandPass;
        const float hz = kInputHz[static_cast<std::size_t>(w % 4)];
        const float q = shape == BiquadStage::HighPass ? 0.707f : 1.0f;
        const int block = systemInfo->controlInterval;
        leftInput.set(shape, hz, q, systemInfo->sampleRate, block, snap);
        rightInput.set(shape, hz, q, systemInfo->sampleRate, block, snap);
    }
}

void AFPitchDelayT::controlTick() noexcept {
    feedbackRamp.setTarget(unit(parameterValues[2]) * kFeedbackScale);
    feedbackRamp.controlTick();
    const int word = options[3];
    // The shifters' setting follows the knobs, the options and the tempo; most ticks none of them moved.
    const std::array<float, 8> key{parameterValues[0],
                                   parameterValues[1],
                                   parameterValues[3],
                                   systemInfo->samplesPerBeat,
                                   systemInfo->sampleRate,
                                   static_cast<float>(options[0]),
                                   static_cast<float>(options[1]),
                                   static_cast<float>(word)};
    if (key != shifterKey) {
        shifterKey = key;
        configureShifters();
    }
    updateFilters(false);
}

void AFPitchDelayT::configureShifters() noexcept {
    const int word = options[3];
    const bool shifting = word < kFirstLoopFilter || word >= kFirstInputFilter ||
                          (word - kFirstLoopFilter) / 6 != kGroupInstead;
    const double ratio =
        shifting ? std::exp2(semitonesFor(parameterValues[3]) / static_cast<double>(kOctave)) : 1.0;
    // Echoes take longer grains than the looper's: fewer crossfades, and the smear stays inside the echo.
    const double grainMax = kEchoGrainMs * static_cast<double>(systemInfo->samplesPerMillisecond);
    PitchShifter* shifters[] = {&leftShifter, &rightShifter};
    for (int side = 0; side < 2; ++side) {
        const auto delay =
            static_cast<double>(delayFor(side, parameterValues[static_cast<std::size_t>(side)]));
        PitchShifter& shifter = *shifters[side];
        shifter.configure(systemInfo->sampleRate, std::clamp(delay, 256.0, grainMax));
        shifter.setCentre(delay, kLeastDelay);
        shifter.setRatio(ratio);
    }
}

int32_t AFPitchDelayT::activate() noexcept {
    // Only what was written since the last clear: a restart after a short run clears kilobytes, not 8 MB.
    std::fill_n(leftLine.data(), dirtySamples, 0.0f);
    std::fill_n(rightLine.data(), dirtySamples, 0.0f);
    dirtySamples = 0;
    writePosition = 0;
    beatClock = 0.0;
    gate = gateTarget();
    feedbackRamp.setTarget(unit(parameterValues[2]) * kFeedbackScale);
    feedbackRamp.jump();
    shifterKey = {};
    controlTick();
    leftShifter.reset();
    rightShifter.reset();
    updateFilters(true);
    return 1;
}

void AFPitchDelayT::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    count = std::min(count, static_cast<int>(wetLeft.size()));
    const PitchShifter::RingSource lineL{leftLine.data(), kLineSize - 1};
    const PitchShifter::RingSource lineR{rightLine.data(), kLineSize - 1};
    // Every read lies at least a block behind the writes of this block, so the reads, the loop filter and
    // the writes can each run over the whole block.
    leftShifter.process(lineL, static_cast<double>(writePosition), wetLeft.data(), count);
    rightShifter.process(lineR, static_cast<double>(writePosition), wetRight.data(), count);
    const int word = options[3];
    if (word >= kFirstLoopFilter && word < kFirstInputFilter) {
        const int mode = kLoopModes[static_cast<std::size_t>(((word - kFirstLoopFilter) % 6) / 2)];
        loopFilter.processStereoTwoStep(mode, wetLeft.data(), wetRight.data(), count);
    } else if (word >= kFirstInputFilter) {
        BiquadStage::processPairTwoStep(leftInput, left, rightInput, right, count);
    }
    const double beatStep = 1.0 / std::max(1.0f, systemInfo->samplesPerBeat);
    // The way in, per sample: the rhythm's gate (1 while it stays open) and the feedback ramp.
    alignas(16) std::array<float, 64> in;
    alignas(16) std::array<float, 64> feedback;
    const bool open = options[2] <= 0 && gate >= 1.0f;
    if (open) {
        std::fill_n(in.data(), count, 1.0f);
        beatClock += beatStep * count;
    } else {
        for (int i = 0; i < count; ++i) {
            gate += std::clamp(gateTarget() - gate, -kGateStep, kGateStep);
            beatClock += beatStep;
            in[static_cast<std::size_t>(i)] = gate;
        }
    }
    if (feedbackRamp.getIncrement() == 0.0) {
        std::fill_n(feedback.data(), count, static_cast<float>(feedbackRamp.getCurrent()));
    } else {
        for (int i = 0; i < count; ++i)
            feedback[static_cast<std::size_t>(i)] = static_cast<float>(feedbackRamp.advance());
    }
    // In at most two pieces, where the ring wraps, so that each is one straight run.
    for (int from = 0; from < count;) {
        const uint32_t start = (writePosition + static_cast<uint32_t>(from)) & (kLineSize - 1);
        const int n =
            static_cast<int>(std::min<uint32_t>(static_cast<uint32_t>(count - from), kLineSize - start));
        float* lineL = leftLine.data() + start;
        float* lineR = rightLine.data() + start;
        const float* gateIn = in.data() + from;
        const float* back = feedback.data() + from;
        const float* wetL = wetLeft.data() + from;
        const float* wetR = wetRight.data() + from;
        const float* dryL = left + from;
        const float* dryR = right + from;
        for (int i = 0; i < n; ++i) {
            lineL[i] = std::min(std::max(dryL[i] * gateIn[i] + wetL[i] * back[i], -1.0f), 1.0f);
            lineR[i] = std::min(std::max(dryR[i] * gateIn[i] + wetR[i] * back[i], -1.0f), 1.0f);
        }
        from += n;
    }
    std::copy_n(wetLeft.data(), count, left);
    std::copy_n(wetRight.data(), count, right);
    // The head starts at 0 on activation, so the written part is one run from 0 until it first wraps.
    const uint32_t end = writePosition + static_cast<uint32_t>(count);
    dirtySamples = std::max(dirtySamples, std::min(end, kLineSize));
    writePosition = end & (kLineSize - 1);
}

void AFPitchDelayT::formatParameter(int index, float value, char* text) {
    const auto& tables = TimeValueTables::instance();
    if (index == 0 || index == 1) {
        switch (options[static_cast<std::size_t>(index)]) {
        case kSync:
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(unit(value)));
            return;
        case kSyncDotted:
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(unit(value)));
            return;
        default: {
            const double ms =
                std::trunc(delayFor(index, value) / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
            return;
        }
        }
    }
    if (index == 3) {
        const int word = options[3];
        if (word >= kFirstLoopFilter && word < kFirstInputFilter &&
            (word - kFirstLoopFilter) / 6 == kGroupInstead) {
            const auto kind = static_cast<std::size_t>(((word - kFirstLoopFilter) % 6) / 2);
            const float hz = AFDirectFilter::cutoffHz(kCutoffFloor[kind] + kCutoffSpan[kind] * unit(value));
            std::snprintf(text, kEffectTextSize, "%d Hz", static_cast<int>(std::lround(hz)));
            return;
        }
        std::snprintf(text, kEffectTextSize, "%d", semitonesFor(value));
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
