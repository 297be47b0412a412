#include "effects/delay/AFReverseDelayV.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kModeWords[] = {"Sync", "SyncTP", "Free"};
constexpr int32_t kSync = 0;
constexpr int32_t kSyncDotted = 1;

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

uint32_t capacityFor(const AFSystemInfo& system) noexcept {
    const float samples = system.samplesPerBeat * 6.0f;
    const auto wanted = samples >= 1.0f ? static_cast<uint32_t>(samples) : 1u;
    return std::min(wanted, AFReverseDelayV::kMaxCapacity);
}

} // namespace

AFReverseDelayV::AFReverseDelayV(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag), leftBuffer(kMaxCapacity, 0.0f), rightBuffer(kMaxCapacity, 0.0f),
      feedbackRamp(system) {
    setName("AFReverseDelayV");
    defineParameter(0, "Time Left", 0.1f);
    defineParameter(1, "Time Right", 0.2f);
    defineParameter(2, "Feedback", 0.5f);
    defineParameter(3, "Fade", 0.25f);
    sides[0].buffer = leftBuffer.data();
    sides[1].buffer = rightBuffer.data();
    capacity = capacityFor(*systemInfo);
    lengthLeft = intervalByMode(options[0], parameterValues[0]);
    lengthRight = intervalByMode(options[1], parameterValues[1]);
    feedbackRamp.setTarget(unitClamp(parameterValues[2]));
    feedbackRamp.jump();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFReverseDelayV::~AFReverseDelayV() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

uint32_t AFReverseDelayV::intervalByMode(int32_t mode, float v) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float knob = unitClamp(v);
    if (mode == kSync) return tables.syncTable.intervalSamples(*systemInfo, knob);
    if (mode == kSyncDotted) return tables.syncDottedTable.intervalSamples(*systemInfo, knob);
    const float floor = systemInfo->rateRatio * 88.0f;
    const float samples = (systemInfo->samplesPerBeat - floor) * knob + floor;
    return samples > 0.0f ? static_cast<uint32_t>(samples) : 0u;
}

void AFReverseDelayV::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    if (index == 0) lengthLeft = intervalByMode(options[0], value);
    if (index == 1) lengthRight = intervalByMode(options[1], value);
}

void AFReverseDelayV::setOption(int index, int32_t value) {
    if (index < 0 || index >= parameterCount) return;
    if (index < 2) options[static_cast<std::size_t>(index)] = clampOption(value, kModeWords);
    setParameter(index, parameterValues[static_cast<std::size_t>(index)]);
}

int32_t AFReverseDelayV::getOption(int index) {
    return index == 0 || index == 1 ? options[static_cast<std::size_t>(index)] : 0;
}

void AFReverseDelayV::getOptionList(int index, AFWordList& list) {
    if (index == 0 || index == 1) appendWords(list, kModeWords);
}

void AFReverseDelayV::controlTick() noexcept {
    feedbackRamp.setTarget(unitClamp(parameterValues[2]));
    feedbackRamp.controlTick();
}

void AFReverseDelayV::tempoChanged(int32_t) {
    for (Side& side : sides) {
        side.readPosition = 0.0;
        side.remaining = 0;
    }
    // The rings keep their allocation; growing exposes samples a fresh resize would hold as zeros.
    const uint32_t next = capacityFor(*systemInfo);
    if (next > capacity) {
        const std::size_t bytes = sizeof(float) * (next - capacity);
        std::memset(leftBuffer.data() + capacity, 0, bytes);
        std::memset(rightBuffer.data() + capacity, 0, bytes);
    }
    capacity = next;
    if (writePosition >= capacity) writePosition = 0;
    // Synced lengths are beats: re-derive them for the new tempo.
    lengthLeft = intervalByMode(options[0], parameterValues[0]);
    lengthRight = intervalByMode(options[1], parameterValues[1]);
}

int32_t AFReverseDelayV::activate() {
    feedbackRamp.setTarget(unitClamp(parameterValues[2]));
    feedbackRamp.jump();
    writePosition = 0;
    std::memset(leftBuffer.data(), 0, sizeof(float) * capacity);
    std::memset(rightBuffer.data(), 0, sizeof(float) * capacity);
    for (Side& side : sides) {
        side.readPosition = 0.0;
        side.fadeLength = 64;
        side.remaining = 0;
    }
    firstPass = true;
    return 1;
}

inline void AFReverseDelayV::startStretch(Side& side, uint32_t wanted, uint32_t position, bool first,
                                          float fade) noexcept {
    if (first && wanted > position) {
        // Only what has been written so far can be played back.
        side.stretch = static_cast<int32_t>(wanted - position);
        side.readPosition = -1.0;
    } else {
        side.stretch = static_cast<int32_t>(wanted);
        side.readPosition = static_cast<double>(position);
    }
    side.remaining = side.stretch;
    const int32_t half = side.stretch / 2;
    side.fadeLength = static_cast<int32_t>(static_cast<float>(half - 128) * fade + 64.0f);
}

inline float AFReverseDelayV::processSide(Side& side, float input, double feedback, uint32_t position,
                                          uint32_t size) noexcept {
    if (side.readPosition < 0.0) side.readPosition += static_cast<double>(size);
    float* buffer = side.buffer;
    const auto i = static_cast<uint32_t>(side.readPosition);
    const uint32_t next = i + 1 < size ? i + 1 : 0;
    const double t = side.readPosition - static_cast<double>(i);
    const auto x = static_cast<float>(buffer[i] + (buffer[next] - buffer[i]) * t);

    const int32_t elapsed = side.stretch - side.remaining;
    float gain = 1.0f;
    if (elapsed < side.fadeLength) {
        gain = static_cast<float>(elapsed) / static_cast<float>(side.fadeLength);
    } else if (side.remaining < side.fadeLength) {
        gain = static_cast<float>(side.remaining) / static_cast<float>(side.fadeLength);
    }
    const float y = gain * x;

    // Inverted feedback, hard-limited to full scale.
    const auto written = static_cast<float>(static_cast<double>(y) * -feedback + static_cast<double>(input));
    buffer[position] = std::clamp(written, -1.0f, 1.0f);
    side.readPosition -= 1.0;
    return y;
}

void AFReverseDelayV::process(float* left, float* right, int count) noexcept {
    // Local copies, so that the stores into the rings cannot be taken to touch the running state or the ramp.
    // "Fade" changes only at ticks, between calls.
    Side l = sides[0];
    Side r = sides[1];
    ParamRamp ramp = feedbackRamp;
    uint32_t position = writePosition;
    bool first = firstPass;
    const uint32_t size = capacity;
    const float fade = unitClamp(parameterValues[3]);
    for (int n = 0; n < count; ++n) {
        const double feedback = ramp.advance();
        if (--l.remaining < 0) startStretch(l, lengthLeft, position, first, fade);
        left[n] = processSide(l, left[n], feedback, position, size);
        if (--r.remaining < 0) startStretch(r, lengthRight, position, first, fade);
        right[n] = processSide(r, right[n], feedback, position, size);
        if (++position >= size) {
            position = 0;
            first = false;
        }
    }
    sides[0] = l;
    sides[1] = r;
    feedbackRamp = ramp;
    writePosition = position;
    firstPass = first;
}

void AFReverseDelayV::formatParameter(int index, float value, char* text) {
    if (index == 0 || index == 1) {
        const int32_t mode = options[static_cast<std::size_t>(index)];
        const auto& tables = TimeValueTables::instance();
        if (mode == kSync) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(unitClamp(value)));
            return;
        }
        if (mode == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(unitClamp(value)));
            return;
        }
        if (value > 0.99f) {
            std::snprintf(text, kEffectTextSize, "%s", "Off");
            return;
        }
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
