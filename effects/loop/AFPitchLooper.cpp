#include "effects/loop/AFPitchLooper.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Step", "Glide"};
constexpr const char* kOption3[] = {"Off", "2nd", "Triple 1", "Triple 2", "Swing"};

constexpr AFParameterInfo kParameters[] = {
    {"Size", 0.5f}, {"Pitch", 0.5f}, {"Trigger", 0.0f}, {"Decay", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, AFWords{}, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.2f}};

constexpr int kSyncDotted = 1;
constexpr int kFree = 2;
constexpr int kGlide = 1;

// The repeat boundary crossfade: 44 samples down, 44 up.
constexpr double kFadeSamples = 44.0;
constexpr float kFadeStep = 1.0f / 44.0f;

// Repeat lengths of each swing word as multiples of the loop; each pattern adds up to whole loops, so the
// repeats come back to the grid at its end.
struct Swing {
    int steps;
    std::array<double, 3> share;
};
constexpr std::array<Swing, 5> kSwings{{
    {1, {1.0, 1.0, 1.0}},
    {2, {1.5, 0.5, 1.0}},
    {3, {2.0 / 3.0, 2.0 / 3.0, 2.0 / 3.0}},
    {2, {4.0 / 3.0, 2.0 / 3.0, 1.0}},
    {2, {1.2, 0.8, 1.0}},
}};

constexpr int kOctave = 12;

float tableValue(float value) noexcept {
    return std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 0.0f;
}

// "Pitch": whole semitones, none at the centre, an octave at each end.
int semitonesFor(float value) noexcept {
    return static_cast<int>(std::lround((tableValue(value) - 0.5f) * 2.0f * kOctave));
}

uint32_t barAtSlowestTempo() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * 4.0) + 1;
}

} // namespace

const uint32_t AFPitchLooper::kMaxCapacity = barAtSlowestTempo();

const AFEffectDescriptor AFPitchLooper::descriptor{.typeId = 2,
                                                   .displayName = "Pitch Looper",
                                                   .className = "AFPitchLooper",
                                                   .create = makeEffect<AFPitchLooper>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 13,
                                                   .quantise = 2,
                                                   .slotDefaults = kSlotDefaults};

AFPitchLooper::AFPitchLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftBuffer(kMaxCapacity), rightBuffer(kMaxCapacity) {
    tempoChanged(0);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFPitchLooper::~AFPitchLooper() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

void AFPitchLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPitchLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

double AFPitchLooper::lengthFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    switch (options[0]) {
    case kSyncDotted:
        return tables.syncDottedTable.intervalSamples(*systemInfo, tableValue(value));
    case kFree:
        return (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * tableValue(value) + 88.0;
    default:
        return tables.syncTable.intervalSamplesExact(*systemInfo, tableValue(value));
    }
}

double AFPitchLooper::segmentFor(int step) const noexcept {
    const Swing& swing = kSwings[static_cast<std::size_t>(std::clamp(options[3], 0, 4))];
    const double wanted = length * swing.share[static_cast<std::size_t>(step % swing.steps)];
    // A long swung repeat of a long loop stops at what one bar holds.
    return std::clamp(wanted, 2.0 * kFadeSamples,
                      std::max(2.0 * kFadeSamples, static_cast<double>(capacity)));
}

void AFPitchLooper::setParameter(int index, float value) {
    if (index < 0 || index > 3) return;
    if (!std::isfinite(value)) value = 0.0f;
    AFEffect::setParameter(index, value);
    if (index == 2 && value != lastTrigger) {
        if (lastTrigger < 0.5f && value > 0.5f) retriggerPending = true;
        lastTrigger = value;
    }
}

void AFPitchLooper::controlTick() noexcept {
    nextLength = lengthFor(parameterValues[0]);
    if (options[1] == kGlide && running) {
        const double through = std::clamp(cycleClock / segment, 0.0, 1.0);
        applyRatio(previousTransposition + (transposition - previousTransposition) * through);
    }
}

void AFPitchLooper::tempoChanged(int32_t) noexcept {
    const double bar = static_cast<double>(systemInfo->samplesPerBeat) * 4.0;
    capacity = static_cast<uint32_t>(std::clamp(bar, 0.0, static_cast<double>(kMaxCapacity)));
    validEnd = std::min(validEnd, capacity);
    if (writePosition >= capacity) writePosition = 0;
}

void AFPitchLooper::applyRatio(double semitones) noexcept {
    shifter.setRatio(std::exp2(semitones / kOctave));
}

void AFPitchLooper::startRepeat() noexcept {
    segment = segmentFor(swingStep);
    // Grains no longer than the repeat, so a short loop is still transposed within itself.
    const double grain = std::min(PitchShifter::kGrainMs * systemInfo->samplesPerMillisecond, segment);
    shifter.configure(systemInfo->sampleRate, grain);
    shifter.setCentre(0.0, -1e12);
    applyRatio(options[1] == kGlide ? previousTransposition : transposition);
    shifter.reset();
    readPosition = 0;
}

int32_t AFPitchLooper::activate() noexcept {
    length = nextLength = lengthFor(parameterValues[0]);
    cycleClock = 0.0;
    fadeGain = 1.0f;
    fadingOut = false;
    retriggerPending = false;
    recording = true;
    running = true;
    lastTrigger = parameterValues[2];
    writePosition = 0;
    validEnd = 0;
    swingStep = 0;
    repeats = 0;
    stack = 0;
    transposition = previousTransposition = 0;
    repeatGain = 1.0f;
    startRepeat();
    return 1;
}

void AFPitchLooper::deactivate() noexcept {
    running = false;
}

void AFPitchLooper::record(const float* left, const float* right, int count) noexcept {
    const uint32_t room = writePosition < capacity ? capacity - writePosition : 0;
    const uint32_t n = std::min(static_cast<uint32_t>(count), room);
    std::memcpy(leftBuffer.data() + writePosition, left, n * sizeof(float));
    std::memcpy(rightBuffer.data() + writePosition, right, n * sizeof(float));
    writePosition += n;
    validEnd = std::max(validEnd, writePosition);
    if (writePosition >= capacity) recording = false;
}

void AFPitchLooper::process(float* left, float* right, int count) noexcept {
    if (!running || count <= 0) return;
    // A trigger during the first pass is already being answered.
    if (retriggerPending && recording && repeats == 0) retriggerPending = false;
    if (recording) record(left, right, count);
    int done = 0;
    while (done < count) {
        // Up to and including the sample at which the repeat ends.
        const double toBoundary = std::ceil(segment - cycleClock);
        const int n = static_cast<int>(std::clamp(toBoundary, 1.0, static_cast<double>(count - done)));
        const PitchShifter::LinearSource sourceLeft{leftBuffer.data(), validEnd};
        const PitchShifter::LinearSource sourceRight{rightBuffer.data(), validEnd};
        float* outLeft = left + done;
        float* outRight = right + done;
        shifter.processStereo(sourceLeft, sourceRight, static_cast<double>(readPosition), outLeft, outRight,
                              n);
        const double fadeStart = segment - kFadeSamples;
        if (fadeGain >= 1.0f && cycleClock + n <= fadeStart) {
            // Between the fades only the repeat's level applies.
            for (int i = 0; i < n; ++i) {
                outLeft[i] *= repeatGain;
                outRight[i] *= repeatGain;
            }
            cycleClock += n;
        } else {
            fade(outLeft, outRight, n, fadeStart);
        }
        readPosition += n;
        done += n;
        if (cycleClock >= segment) crossBoundary(left + done, right + done, count - done);
    }
}

void AFPitchLooper::fade(float* outLeft, float* outRight, int n, double fadeStart) noexcept {
    for (int i = 0; i < n; ++i) {
        const float gain = fadeGain * repeatGain;
        outLeft[i] *= gain;
        outRight[i] *= gain;
        cycleClock += 1.0;
        if (cycleClock > fadeStart) fadingOut = true;
        fadeGain = std::min(1.0f, fadeGain + (fadingOut ? -kFadeStep : kFadeStep));
    }
}

void AFPitchLooper::crossBoundary(const float* restLeft, const float* restRight, int restCount) noexcept {
    cycleClock -= segment;
    fadingOut = false;
    if (retriggerPending) {
        // The input from the boundary on is the new recording; the rest of this block goes in at once so the
        // first repeat can play it.
        retriggerPending = false;
        recording = true;
        writePosition = 0;
        validEnd = 0;
        record(restLeft, restRight, restCount);
        repeats = 0;
        stack = 0;
        swingStep = 0;
        transposition = previousTransposition = 0;
        repeatGain = 1.0f;
        if (nextLength != length) length = nextLength;
        startRepeat();
        return;
    }
    const Swing& swing = kSwings[static_cast<std::size_t>(std::clamp(options[3], 0, 4))];
    swingStep = (swingStep + 1) % swing.steps;
    // A new length waits for the end of a swing pattern, so the pattern stays whole.
    if (swingStep == 0 && nextLength != length) {
        length = nextLength;
        cycleClock = 0.0;
    }
    ++repeats;
    const int interval = semitonesFor(parameterValues[1]);
    ++stack;
    if (std::abs(stack * interval) > kOctave) stack = 0;
    previousTransposition = transposition;
    transposition = stack * interval;
    repeatGain *= tableValue(parameterValues[3]);
    startRepeat();
}

void AFPitchLooper::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0: {
        const auto& tables = TimeValueTables::instance();
        if (options[0] == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(tableValue(value)));
        } else if (options[0] == kFree) {
            const double samples = std::trunc(lengthFor(value));
            const double ms = std::trunc(samples / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
        } else {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(tableValue(value)));
        }
        break;
    }
    case 1:
        std::snprintf(text, kEffectTextSize, "%d", semitonesFor(value));
        break;
    case 2:
        std::snprintf(text, kEffectTextSize, "%s", value > 0.5f ? "On" : "Off");
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
