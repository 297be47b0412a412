#include "effects/loop/AFTapeStopper.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kSyncWords[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kPlayWords[] = {"Stop", "Scratch", "Manual"};

constexpr int kSyncDotted = 1;
constexpr int kFree = 2;
constexpr int kStop = 0;
constexpr int kManual = 2;

// Edge fades run over the last 64 samples of a span.
constexpr double kFadeSamples = 64.0;
constexpr double kFadeScale = 0.015625;

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kSyncWords;
    case 1:
        return kPlayWords;
    default:
        return {};
    }
}

double endFade(double position, double span) noexcept {
    return position < span - kFadeSamples ? 1.0 : (span - position) * kFadeScale;
}

uint32_t largestBuffer() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(std::lround(beat * 4.0)) + 1;
}

// Parameter values outside 0..1 (or not numbers) are held at the nearest end.
float clampUnit(float value) noexcept {
    return std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 0.0f;
}

} // namespace

const uint32_t AFTapeStopper::kMaxBufferLength = largestBuffer();

AFTapeStopper::AFTapeStopper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag), leftBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)),
      rightBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)) {
    setName("TapeStopper");
    defineParameter(0, "Size", 0.44f);
    defineParameter(1, "Slow Down", 0.0f);
    defineParameter(2, "Down Slope", 0.23f);
    defineParameter(3, "Up Slope", 0.0f);
    tempoChanged(0);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFTapeStopper::~AFTapeStopper() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

uint32_t AFTapeStopper::cycleLengthFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    if (syncMode == kFree) {
        // From 2 ms at any rate up to two beats, the span of the longest synced value.
        const double shortest = 88.0 * static_cast<double>(systemInfo->rateRatio);
        const double longest = 2.0 * static_cast<double>(systemInfo->samplesPerBeat);
        return static_cast<uint32_t>(std::lround((longest - shortest) * clampUnit(value) + shortest));
    }
    const TimeValueTable& table = syncMode == kSyncDotted ? tables.offDottedTable : tables.offSyncTable;
    return table.intervalSamples(*systemInfo, clampUnit(value));
}

void AFTapeStopper::setParameter(int index, float value) {
    if (index < 0 || index > 3) return;
    AFEffect::setParameter(index, value);
    const double unit = clampUnit(value);
    switch (index) {
    case 1:
        slowDown = unit;
        break;
    case 2:
        downSlope = unit;
        break;
    case 3:
        upSlope = unit;
        break;
    default:
        break;
    }
}

void AFTapeStopper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t option = clampOption(value, words);
    if (index == 0)
        syncMode = option;
    else
        playMode = option;
    setParameter(index, parameterValues[static_cast<std::size_t>(index)]);
}

int32_t AFTapeStopper::getOption(int index) {
    switch (index) {
    case 0:
        return syncMode;
    case 1:
        return playMode;
    default:
        return 0;
    }
}

void AFTapeStopper::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFTapeStopper::tempoChanged(int32_t) noexcept {
    const long bar = std::lround(static_cast<double>(systemInfo->samplesPerBeat) * 4.0);
    capacity = static_cast<uint32_t>(std::clamp(bar, 1L, static_cast<long>(kMaxBufferLength - 1)));
    validEnd = std::min(validEnd, capacity);
}

int32_t AFTapeStopper::activate() noexcept {
    readPosition = 0.0;
    speed = 1.0;
    rising = 0;
    writePosition = 0;
    cycleCount = 0;
    dcInLeft = 0.0f;
    dcInRight = 0.0f;
    dcOutLeft = 0.0f;
    dcOutRight = 0.0f;
    validEnd = 0;
    cycleLength = cycleLengthFor(parameterValues[0]);
    firstCycle = 1;
    return 1;
}

void AFTapeStopper::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    const uint32_t wanted = cycleLengthFor(parameterValues[0]);
    const double beat = 1.0 / static_cast<double>(systemInfo->samplesPerBeat);
    const double delta = slowDown * slowDown * (0.025 * beat - 16.0 * beat) + 16.0 * beat;
    const bool manual = playMode == kManual;
    const bool stopMode = playMode == kStop;
    const double lowest = stopMode ? 0.0 : -1.0;
    float* bufferLeft = leftBuffer.get();
    float* bufferRight = rightBuffer.get();
    const double top = static_cast<double>(capacity);

    for (int i = 0; i < count; ++i) {
        if (writePosition < capacity) {
            bufferLeft[writePosition] = left[i];
            bufferRight[writePosition] = right[i];
            ++writePosition;
            validEnd = std::max(validEnd, writePosition);
        }
        double gain = 1.0;
        if (cycleLength == 0) {
            if (wanted != 0 && cycleCount < 0xFFFFFFC0u) cycleLength = wanted;
            if (top > readPosition) {
                gain = endFade(readPosition, top);
            } else {
                left[i] = 0.0f;
                right[i] = 0.0f;
                if (wanted != 0) {
                    cycleCount = 0;
                    speed = 1.0;
                    writePosition = 0;
                    rising = 0;
                    readPosition = 0.0;
                }
                continue;
            }
        }

        const auto index = static_cast<uint32_t>(readPosition);
        const uint32_t next = index + 1 == capacity ? 0 : index + 1;
        const double fraction = readPosition - static_cast<double>(index);
        const float l0 = sampleAt(bufferLeft, index);
        const float r0 = sampleAt(bufferRight, index);
        const double outLeft = l0 + (sampleAt(bufferLeft, next) - l0) * fraction;
        const double outRight = r0 + (sampleAt(bufferRight, next) - r0) * fraction;

        const double slope = rising ? upSlope : downSlope;
        const double s = speed;
        double step;
        if (manual) {
            step = slowDown;
        } else if (slope <= 0.5) {
            const double fall = 1.0 - s;
            const double a = 1.0 - fall * fall * fall;
            step = a + 2.0 * slope * (s - a);
        } else {
            step = s + 2.0 * (slope - 0.5) * (s * s * s - s);
        }
        readPosition += step;

        speed += rising ? delta : -delta;
        if (speed < lowest) {
            speed = lowest;
            rising = stopMode ? 0 : 1;
        }
        if (speed > 1.0) rising = 0;
        // The deliberate bounces: off the end backward at a quarter speed, off the start forward.
        if (readPosition >= top) {
            rising = 0;
            readPosition = top - 1.0;
            speed = -0.25;
        }
        if (readPosition < 0.0) {
            readPosition = 0.0;
            rising = 1;
            speed = 0.25;
        }

        double outGain = (cycleLength != 0 ? endFade(cycleCount, cycleLength) : 1.0) * gain;
        if (cycleCount < 64 && firstCycle == 0) outGain *= cycleCount * kFadeScale;
        left[i] = static_cast<float>(outLeft * outGain);
        right[i] = static_cast<float>(outRight * outGain);

        if (cycleLength != 0 && ++cycleCount >= cycleLength) {
            speed = 1.0;
            readPosition = 0.0;
            cycleLength = wanted;
            cycleCount = 0;
            writePosition = 0;
            rising = 0;
            firstCycle = 0;
        }
    }

    for (int i = 0; i < count; ++i) {
        const float x = left[i];
        dcOutLeft = static_cast<float>(0.998 * dcOutLeft + (x - dcInLeft));
        dcInLeft = x;
        left[i] = dcOutLeft;
    }
    for (int i = 0; i < count; ++i) {
        const float x = right[i];
        dcOutRight = static_cast<float>(0.998 * dcOutRight + (x - dcInRight));
        dcInRight = x;
        right[i] = dcOutRight;
    }
}

void AFTapeStopper::formatParameter(int index, float value, char* text) {
    if (index != 0) {
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        return;
    }
    const auto& tables = TimeValueTables::instance();
    if (syncMode == kFree) {
        const double samples = cycleLengthFor(value);
        const double ms = std::trunc(samples / static_cast<double>(systemInfo->sampleRate) * 1000.0);
        TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
    } else {
        const TimeValueTable& table = syncMode == kSyncDotted ? tables.offDottedTable : tables.offSyncTable;
        std::snprintf(text, kEffectTextSize, "%s", table.valueName(clampUnit(value)));
    }
}
