#include "effects/loop/AFTriggerLooper.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kSyncWords[] = {"Sync", "Sync TP", "Free", "Sync X"};
constexpr const char* kDirectionWords[] = {"Forward", "Backward", "PingPong"};

constexpr int kSync = 0;
constexpr int kSyncDotted = 1;
constexpr int kFree = 2;
constexpr int kSyncX = 3;
constexpr int kBackward = 1;
constexpr int kPingPong = 2;

// The boundary crossfade: 44 samples down, 44 up.
constexpr double kFadeSamples = 44.0;
constexpr double kFadeStep = 0.022727272727272728;

// A position as a read index. Out-of-range values (wild swing or size values) land where they read silence.
int32_t toIndex(double position) noexcept {
    if (!(position > -1.0)) return 0;
    if (position >= 2147483647.0) return 2147483647;
    return static_cast<int32_t>(position);
}

// Table rows are picked from 0..1; anything outside picks the nearest end row.
float tableValue(float value) noexcept {
    return std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 0.0f;
}

uint32_t barAtSlowestTempo() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * 4.0) + 1;
}

} // namespace

const uint32_t AFTriggerLooper::kMaxCapacity = barAtSlowestTempo();

namespace {

constexpr AFParameterInfo kParameters[] = {{"Size", 0.5f}, {"Swing", 0.5f}, {"Trigger", 0.0f}, {"Amp", 1.0f}};
constexpr AFWords kOptions[] = {kSyncWords, AFWords{}, AFWords{}, kDirectionWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param2 Knob Amt", 0.2f}};

} // namespace

const AFEffectDescriptor AFTriggerLooper::descriptor{.typeId = 1,
                                                     .displayName = "Looper",
                                                     .className = "AFTriggerLooper",
                                                     .create = makeEffect<AFTriggerLooper>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 12,
                                                     .quantise = 2,
                                                     .slotDefaults = kSlotDefaults};

AFTriggerLooper::AFTriggerLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag),
      leftBuffer(std::make_unique_for_overwrite<float[]>(kMaxCapacity)),
      rightBuffer(std::make_unique_for_overwrite<float[]>(kMaxCapacity)), ampRamp(system) {
    ampRamp.setTarget(1.0);
    ampRamp.jump();
    tempoChanged(0);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFTriggerLooper::~AFTriggerLooper() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

double AFTriggerLooper::lengthFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    switch (syncMode) {
    case kSync:
    case kSyncX:
        return tables.syncTable.intervalSamplesExact(*systemInfo, tableValue(value));
    case kSyncDotted:
        return tables.syncDottedTable.intervalSamples(*systemInfo, tableValue(value));
    case kFree:
        return (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * value + 88.0;
    default:
        return 0.0;
    }
}

void AFTriggerLooper::setParameter(int index, float value) {
    if (index < 0 || index > 3) return;
    if (!std::isfinite(value)) value = 0.0f;
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        nextLength = lengthFor(value);
        break;
    case 2:
        if (value != lastTrigger) {
            if (lastTrigger < 0.5f && value > 0.5f) retriggerPending = true;
            lastTrigger = value;
        }
        break;
    case 3:
        ampRamp.setTarget(value);
        break;
    default:
        break;
    }
}

void AFTriggerLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t option = clampOption(value, words);
    if (index == 0)
        syncMode = option;
    else
        direction = option;
    setParameter(index, parameterValues[static_cast<std::size_t>(index)]);
}

int32_t AFTriggerLooper::getOption(int index) {
    switch (index) {
    case 0:
        return syncMode;
    case 3:
        return direction;
    default:
        return 0;
    }
}

void AFTriggerLooper::reset() {
    length = 400.0;
    nextLength = 400.0;
    running = false;
    writePosition = 0;
}

void AFTriggerLooper::controlTick() noexcept {
    ampRamp.controlTick();
}

void AFTriggerLooper::tempoChanged(int32_t) noexcept {
    const double bar = static_cast<double>(systemInfo->samplesPerBeat) * 4.0;
    capacity = static_cast<uint32_t>(std::clamp(bar, 0.0, static_cast<double>(kMaxCapacity)));
    validEnd = std::min(validEnd, capacity);
    if (writePosition >= capacity) writePosition = 0;
}

int32_t AFTriggerLooper::activate() noexcept {
    cycleClock = 0.0;
    sampleCount = 0;
    fading = false;
    fadeGain = 1.0f;
    fadingOut = false;
    length = nextLength;
    retriggerPending = true;
    recording = true;
    running = true;
    secondHalf = false;
    lastTrigger = parameterValues[2];
    writePosition = 0;
    segmentEnd = (length - kFadeSamples) + length * 0.5 * parameterValues[1];
    readPosition = 0;
    readStep = 1;
    ampRamp.jump();
    loopCount = 0;
    latchedSwing = parameterValues[1];
    gridTicks = 0;
    sinceChange = 0;
    gridAccumulator = 0.0;
    return 1;
}

void AFTriggerLooper::deactivate() noexcept {
    running = false;
}

void AFTriggerLooper::record(const float* left, const float* right, int count) noexcept {
    const uint32_t room = writePosition < capacity ? capacity - writePosition : 0;
    const uint32_t n = std::min(static_cast<uint32_t>(count), room);
    std::memcpy(leftBuffer.get() + writePosition, left, n * sizeof(float));
    std::memcpy(rightBuffer.get() + writePosition, right, n * sizeof(float));
    writePosition += n;
    validEnd = std::max(validEnd, writePosition);
    if (writePosition >= capacity) recording = false;
}

void AFTriggerLooper::process(float* left, float* right, int count) noexcept {
    if (!running || count <= 0) return;
    if (retriggerPending && recording && writePosition < length) retriggerPending = false;
    if (recording) record(left, right, count);
    const double grid32 = static_cast<double>(systemInfo->samplesPerBeat) * 0.03125;
    const float* bufferLeft = leftBuffer.get();
    const float* bufferRight = rightBuffer.get();

    for (int i = 0; i < count; ++i) {
        ++sampleCount;
        const double fadeDelta = fadingOut ? -kFadeStep : kFadeStep;
        const double gain = ampRamp.advance() * static_cast<double>(fadeGain);
        if (readPosition < 0) readPosition = 0;
        const auto index = static_cast<uint32_t>(readPosition);
        const bool recorded = index < validEnd;
        const float inLeft = left[i];
        const float inRight = right[i];
        left[i] = static_cast<float>((recorded ? bufferLeft[index] : 0.0f) * gain);
        right[i] = static_cast<float>((recorded ? bufferRight[index] : 0.0f) * gain);
        fadeGain = static_cast<float>(static_cast<double>(fadeGain) + fadeDelta);
        if (fadeGain >= 1.0f) {
            fadeGain = 1.0f;
            fading = false;
        }
        gridAccumulator += 1.0;
        if (gridAccumulator >= grid32) {
            ++gridTicks;
            gridAccumulator -= grid32;
        }
        readPosition =
            static_cast<int32_t>(static_cast<uint32_t>(readPosition) + static_cast<uint32_t>(readStep));
        cycleClock += 1.0;
        ++sinceChange;
        if (cycleClock > segmentEnd) {
            fadingOut = true;
            const double boundary = segmentEnd + kFadeSamples;
            if (cycleClock >= boundary) {
                crossBoundary(boundary, grid32, inLeft, inRight, left + i + 1, right + i + 1, count - i - 1);
            }
        }
    }
}

void AFTriggerLooper::crossBoundary(double boundary, double grid32, float inLeft, float inRight,
                                    const float* restLeft, const float* restRight, int restCount) noexcept {
    const bool retrigger = retriggerPending;
    if (retrigger) {
        // The input from the boundary on is taken without a capacity check: a sub-block is at most 64 samples
        // and a bar is far longer.
        recording = true;
        retriggerPending = false;
        leftBuffer[0] = inLeft;
        rightBuffer[0] = inRight;
        const auto rest = std::min(static_cast<uint32_t>(restCount), kMaxCapacity - 1);
        std::memcpy(leftBuffer.get() + 1, restLeft, rest * sizeof(float));
        std::memcpy(rightBuffer.get() + 1, restRight, rest * sizeof(float));
        writePosition = rest + 1;
        validEnd = std::max(validEnd, writePosition);
    }
    ++loopCount;
    cycleClock -= boundary;

    if (nextLength != length) {
        bool adopt = syncMode != kSyncX;
        if (!adopt && secondHalf) {
            if (nextLength <= length) {
                adopt = true;
            } else {
                const double ticks = (nextLength + nextLength) / grid32;
                const auto k = static_cast<uint32_t>(std::clamp(ticks, 0.0, 4294967295.0));
                adopt = k == 0 || gridTicks % k == 0;
            }
        }
        if (adopt) {
            length = nextLength;
            loopCount = 0;
            sinceChange = 0;
            cycleClock = gridAccumulator;
            secondHalf = true;
        }
    }

    fading = true;
    fadingOut = false;
    secondHalf = !secondHalf;
    segmentEnd = length - kFadeSamples;
    if (secondHalf) {
        segmentEnd -= length * 0.5 * latchedSwing;
        if (segmentEnd < kFadeSamples) segmentEnd = kFadeSamples;
    } else {
        latchedSwing = parameterValues[1];
        sinceChange = 0;
        segmentEnd += length * 0.5 * latchedSwing;
    }

    const bool backwardStart = direction == kBackward || (direction == kPingPong && readStep == 1);
    if (backwardStart) {
        readStep = -1;
        readPosition = toIndex(segmentEnd + 43.0);
    } else {
        readStep = 1;
        readPosition = 0;
    }
    if (retrigger) {
        readPosition = 0;
        readStep = 1;
    }
}

void AFTriggerLooper::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0: {
        const auto& tables = TimeValueTables::instance();
        if (syncMode == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(tableValue(value)));
        } else if (syncMode == kFree) {
            const double samples = std::trunc(lengthFor(value));
            const double ms = std::trunc(samples / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
        } else {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(tableValue(value)));
        }
        break;
    }
    case 2:
        std::snprintf(text, kEffectTextSize, "%s", value > 0.5f ? "On" : "Off");
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
