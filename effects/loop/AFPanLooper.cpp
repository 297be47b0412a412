#include "effects/loop/AFPanLooper.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free", "SyncX"};
constexpr const char* kOption2[] = {"Free", "Tone"};
constexpr const char* kOption3[] = {"Off",      "2nd",     "3rd Off",    "3rd On",
                                    "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"};

constexpr AFParameterInfo kParameters[] = {{"Size", 0.5f}, {"Pan", 0.5f}, {"Pitch", 0.5f}, {"Amp", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, AFWords{}, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param3 Knob Amt", 0.6f}};

enum SyncMode { kSync, kSyncDotted, kFree, kSyncX };
enum Rhythm { kOff, kSecond, kThirdOff, kThirdOn, kRhythm1, kShuffle, kSwingSoft, kSwingHard };

// The repeat fade, as at the Looper's loop boundary.
constexpr float kFadeStep = 1.0f / 44.0f;
// Places of successive repeats across the field: left to right and back.
constexpr float kWalk[] = {-1.0f, -1.0f / 3.0f, 1.0f / 3.0f, 1.0f, 1.0f / 3.0f, -1.0f / 3.0f};
constexpr int kWalkLength = 6;
// "Tone" intervals: octave, fifth, fourth and minor third each way.
constexpr int kTonalSteps[] = {-12, -7, -5, -3, 0, 3, 5, 7, 12};
// How much of the far channel a panned repeat folds into the near one.
constexpr float kFold = 0.5f;

float unit(float value) noexcept {
    if (!(value > 0.0f)) return 0.0f;
    return value < 1.0f ? value : 1.0f;
}

uint32_t barAtSlowestTempo() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * 4.0) + 1;
}

} // namespace

const uint32_t AFPanLooper::kMaxCapacity = barAtSlowestTempo();

const AFEffectDescriptor AFPanLooper::descriptor{.typeId = 12,
                                                 .displayName = "Pan Looper",
                                                 .className = "AFPanLooper",
                                                 .create = makeEffect<AFPanLooper>,
                                                 .parameters = kParameters,
                                                 .options = kOptions,
                                                 .menuPosition = 14,
                                                 .quantise = 2,
                                                 .slotDefaults = kSlotDefaults};

AFPanLooper::AFPanLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftBuffer(kMaxCapacity + 2), rightBuffer(kMaxCapacity + 2),
      ampRamp(system) {
    ampRamp.setTarget(1.0);
    ampRamp.jump();
    nextLength = lengthFor(parameterValues[0]);
    tempoChanged(0);
    // The note tables are built on first use; make sure that is not on the audio thread.
    TimeValueTables::instance();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFPanLooper::~AFPanLooper() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

double AFPanLooper::lengthFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float v = unit(value);
    switch (options[0]) {
    case kSyncDotted:
        return tables.syncDottedTable.intervalSamples(*systemInfo, v);
    case kFree:
        return (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * v + 88.0;
    default:
        return tables.syncTable.intervalSamplesExact(*systemInfo, v);
    }
}

double AFPanLooper::semitonesFor(float value) const noexcept {
    const float v = unit(value);
    if (options[2] == 1) return kTonalSteps[static_cast<int>(v * 8.0f + 0.5f)];
    return (static_cast<double>(v) - 0.5) * 24.0;
}

void AFPanLooper::setParameter(int index, float value) {
    if (index < 0 || index > 3) return;
    if (!std::isfinite(value)) value = 0.0f;
    AFEffect::setParameter(index, value);
    if (index == 0) nextLength = lengthFor(value);
    if (index == 3) ampRamp.setTarget(unit(value));
}

void AFPanLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
    setParameter(index, parameterValues[static_cast<std::size_t>(index)]);
}

int32_t AFPanLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPanLooper::controlTick() noexcept {
    ampRamp.controlTick();
}

void AFPanLooper::tempoChanged(int32_t) noexcept {
    const double bar = static_cast<double>(systemInfo->samplesPerBeat) * 4.0;
    capacity = static_cast<uint32_t>(std::clamp(bar, 2.0, static_cast<double>(kMaxCapacity)));
    if (writePosition >= capacity) recording = false;
    nextLength = lengthFor(parameterValues[0]);
}

int32_t AFPanLooper::activate() noexcept {
    running = true;
    recording = true;
    writePosition = 0;
    nextLength = lengthFor(parameterValues[0]);
    length = nextLength;
    carry = 0.0;
    sampleCount = 0;
    repeat = 0;
    swingStep = 1;
    ampRamp.jump();
    beginRepeat(static_cast<double>(systemInfo->samplesPerBeat) * 0.03125);
    return 1;
}

void AFPanLooper::deactivate() noexcept {
    running = false;
}

void AFPanLooper::beginRepeat(double grid32) noexcept {
    const int rhythm = options[3];
    if (nextLength != length) {
        bool adopt = options[0] != kSyncX;
        if (!adopt && (swingStep == 0 || rhythm < kRhythm1)) {
            // "SyncX": a shorter loop waits for the end of a swing pair, a longer one for a grid line of
            // twice its length, counted from the start.
            if (nextLength <= length) {
                adopt = true;
            } else {
                const auto k = static_cast<int64_t>((nextLength + nextLength) / grid32);
                const auto ticks = static_cast<int64_t>(static_cast<double>(sampleCount) / grid32);
                adopt = k <= 0 || ticks % k == 0;
            }
        }
        if (adopt) {
            length = nextLength;
            swingStep = rhythm == kRhythm1 ? 2 : 1;
            // The new loop starts on the thirty-second grid: the first one ends where the grid says.
            if (options[0] != kFree) carry = -std::fmod(static_cast<double>(sampleCount), grid32);
        }
    }

    double duration = length;
    switch (rhythm) {
    case kRhythm1:
        // Two halves, then one whole.
        if (++swingStep >= 3) swingStep = 0;
        duration = swingStep == 0 ? length : length * 0.5;
        break;
    case kShuffle:
    case kSwingSoft:
    case kSwingHard: {
        swingStep = swingStep == 0 ? 1 : 0;
        const double first = rhythm == kShuffle ? 0.5 : (rhythm == kSwingSoft ? 0.8 : 0.66666666);
        duration = length * (swingStep == 0 ? first : 2.0 - first);
        break;
    }
    default:
        break;
    }
    repeatSamples = std::max<int64_t>(1, std::llround(carry + duration));
    carry += duration - static_cast<double>(repeatSamples);
    elapsed = 0;
    readPhase = 0.0;

    // The first pass is the capture itself, in the middle and at its own pitch.
    float place = 0.0f;
    repeatGain = 1.0f;
    if (repeat > 0) {
        // "2nd" holds each place for two repeats; "3rd On" walks only with every third repeat.
        const uint32_t move =
            rhythm == kSecond ? (repeat + 1) / 2 : (rhythm == kThirdOn ? repeat / 3 : repeat);
        place = move > 0 ? kWalk[(move - 1) % kWalkLength] : 0.0f;
        if (rhythm == kThirdOff && repeat % 3 == 0) repeatGain = 0.0f;
        if (rhythm == kThirdOn && repeat % 3 != 0) place = 0.0f;
    }
    const float pan = place * unit(parameterValues[1]);
    const float towardsRight = pan > 0.0f ? pan : 0.0f;
    const float towardsLeft = pan < 0.0f ? -pan : 0.0f;
    directLeft = 1.0f - towardsRight;
    crossLeft = towardsLeft * kFold;
    directRight = 1.0f - towardsLeft;
    crossRight = towardsRight * kFold;

    // Semitones in proportion to the place; "Tone" keeps the inner places at the original pitch.
    double semitones = semitonesFor(parameterValues[2]);
    semitones *= options[2] == 1 ? (place >= 1.0f ? 1.0 : (place <= -1.0f ? -1.0 : 0.0)) : place;
    double rate = std::exp2(semitones / 12.0);
    // A faster read must never overtake the capture nor leave the bar.
    const double span = static_cast<double>(std::max<int64_t>(1, repeatSamples - 1));
    const double limit = recording ? 1.0 + (static_cast<double>(sampleCount) - 2.0) / span
                                   : (static_cast<double>(capacity) - 2.0) / span;
    if (rate > 1.0) rate = std::max(1.0, std::min(rate, limit));
    readRate = std::min(rate, (static_cast<double>(capacity) - 2.0) / span);
}

void AFPanLooper::process(float* left, float* right, int count) noexcept {
    if (!running || count <= 0) return;
    if (recording) {
        const uint32_t room = writePosition < capacity ? capacity - writePosition : 0;
        const uint32_t n = std::min(static_cast<uint32_t>(count), room);
        std::memcpy(leftBuffer.data() + writePosition, left, n * sizeof(float));
        std::memcpy(rightBuffer.data() + writePosition, right, n * sizeof(float));
        writePosition += n;
        if (writePosition >= capacity) recording = false;
    }
    const double grid32 = static_cast<double>(systemInfo->samplesPerBeat) * 0.03125;
    const float* bufferLeft = leftBuffer.data();
    const float* bufferRight = rightBuffer.data();

    int i = 0;
    while (i < count) {
        if (elapsed >= repeatSamples) {
            ++repeat;
            beginRepeat(grid32);
        }
        const int n = static_cast<int>(std::min<int64_t>(count - i, repeatSamples - elapsed));
        const auto total = static_cast<float>(repeatSamples);
        // The first pass is the input itself and joins the dry signal without a fade.
        const float fadeIn = repeat > 0 ? kFadeStep : 2.0f;
        const float ll = directLeft * repeatGain;
        const float rl = crossLeft * repeatGain;
        const float rr = directRight * repeatGain;
        const float lr = crossRight * repeatGain;
        const double increment = readRate;
        double phase = readPhase;
        auto position = static_cast<float>(elapsed);
        for (int j = i; j < i + n; ++j) {
            const auto k = static_cast<int64_t>(phase);
            const auto fraction = static_cast<float>(phase - static_cast<double>(k));
            const float vl = bufferLeft[k] + (bufferLeft[k + 1] - bufferLeft[k]) * fraction;
            const float vr = bufferRight[k] + (bufferRight[k + 1] - bufferRight[k]) * fraction;
            const float fade = std::min({1.0f, (position + 1.0f) * fadeIn, (total - position) * kFadeStep});
            const float gain = static_cast<float>(ampRamp.advance()) * fade;
            left[j] = (vl * ll + vr * rl) * gain;
            right[j] = (vr * rr + vl * lr) * gain;
            phase += increment;
            position += 1.0f;
        }
        readPhase = phase;
        elapsed += n;
        sampleCount += n;
        i += n;
    }
}

void AFPanLooper::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0: {
        const auto& tables = TimeValueTables::instance();
        const float v = unit(value);
        if (options[0] == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(v));
        } else if (options[0] == kFree) {
            const double samples = std::trunc(lengthFor(value));
            const double ms = std::trunc(samples / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
        } else {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(v));
        }
        break;
    }
    case 2:
        if (options[2] == 1)
            std::snprintf(text, kEffectTextSize, "%d", static_cast<int>(semitonesFor(value)));
        else
            std::snprintf(text, kEffectTextSize, "%2.1f", semitonesFor(value));
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
