#include "effects/delay/AFReverseDelayV.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kModeWords[] = {"Sync", "SyncTP", "Free"};
constexpr int32_t kSync = 0;
constexpr int32_t kSyncDotted = 1;

uint32_t capacityFor(const AFSystemInfo& system) noexcept {
    const float samples = system.samplesPerBeat * 6.0f;
    const auto wanted = samples >= 1.0f ? static_cast<uint32_t>(samples) : 1u;
    return std::min(wanted, AFReverseDelayV::kMaxCapacity);
}

constexpr AFParameterInfo kParameters[] = {
    {"Time Left", 0.1f}, {"Time Right", 0.2f}, {"Feedback", 0.5f}, {"Fade", 0.25f}};
constexpr AFWords kOptions[] = {kModeWords, kModeWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.5f}};

} // namespace

const AFEffectDescriptor AFReverseDelayV::descriptor{.typeId = 21,
                                                     .displayName = "Reverse Delay",
                                                     .className = "AFReverseDelayV",
                                                     .create = makeEffect<AFReverseDelayV>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 1,
                                                     .slotDefaults = kSlotDefaults};

AFReverseDelayV::AFReverseDelayV(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftBuffer(kMaxCapacity), rightBuffer(kMaxCapacity),
      feedbackRamp(system) {
    sides[0].buffer = leftBuffer.data();
    sides[1].buffer = rightBuffer.data();
    capacity = capacityFor(*systemInfo);
    lengthLeft = intervalByMode(options[0], parameterValues[0]);
    lengthRight = intervalByMode(options[1], parameterValues[1]);
    feedbackRamp.setTarget(clampUnit(parameterValues[2]));
    feedbackRamp.jump();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFReverseDelayV::~AFReverseDelayV() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

uint32_t AFReverseDelayV::intervalByMode(int32_t mode, float v) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float knob = clampUnit(v);
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

void AFReverseDelayV::controlTick() noexcept {
    feedbackRamp.setTarget(clampUnit(parameterValues[2]));
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
    feedbackRamp.setTarget(clampUnit(parameterValues[2]));
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

namespace {

using Lanes = float __attribute__((vector_size(16)));
using Ints = int32_t __attribute__((vector_size(16)));
using Pair = double __attribute__((vector_size(16)));
using Half = float __attribute__((vector_size(8)));

Lanes load(const float* p) noexcept {
    Lanes v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void store(float* p, Lanes v) noexcept {
    std::memcpy(p, &v, sizeof(v));
}

Lanes splat(float v) noexcept {
    return Lanes{v, v, v, v};
}

// The feedback write of four samples in doubles, as the one-by-one step does it.
Lanes feedbackWrite(Lanes y, const double* feedback, Lanes input) noexcept {
    Pair fbLow;
    Pair fbHigh;
    std::memcpy(&fbLow, feedback, sizeof(fbLow));
    std::memcpy(&fbHigh, feedback + 2, sizeof(fbHigh));
    const Pair low = __builtin_convertvector(Half{y[0], y[1]}, Pair) * -fbLow +
                     __builtin_convertvector(Half{input[0], input[1]}, Pair);
    const Pair high = __builtin_convertvector(Half{y[2], y[3]}, Pair) * -fbHigh +
                      __builtin_convertvector(Half{input[2], input[3]}, Pair);
    const Half a = __builtin_convertvector(low, Half);
    const Half b = __builtin_convertvector(high, Half);
    const Lanes w = {a[0], a[1], b[0], b[1]};
    // Hard-limited to full scale, a NaN passing as it is.
    return w < splat(-1.0f) ? splat(-1.0f) : (splat(1.0f) < w ? splat(1.0f) : w);
}

} // namespace

uint32_t AFReverseDelayV::runSide(Side& side, uint32_t wanted, float* io, const double* feedback, int count,
                                  uint32_t position, bool& first, uint32_t size, float fade) noexcept {
    // A local copy, so that the stores into the ring cannot be taken to touch the running state.
    Side s = side;
    float* buffer = s.buffer;
    for (int n = 0; n < count;) {
        // A steady run four samples at a time: no stretch starts, neither index wraps, the read position is
        // whole (so the interpolation weight is zero) and the reads stay clear of the run's own writes.
        int run = 0;
        const double top = s.readPosition;
        if (s.remaining > 0 && top >= 0.0 && top + 1.0 < static_cast<double>(size) &&
            top == std::floor(top)) {
            const auto head = static_cast<int64_t>(top);
            run = std::min({count - n, s.remaining, static_cast<int>(std::min<int64_t>(head + 1, kChunk)),
                            static_cast<int>(std::min<uint32_t>(size - position, kChunk))}) &
                  ~3;
            const bool clear = head + 1 < static_cast<int64_t>(position) || head - run + 1 >= position + run;
            if (!clear) run = 0;
        }
        if (run > 0) {
            const auto head = static_cast<int64_t>(top);
            const Lanes fadeLanes = splat(static_cast<float>(s.fadeLength));
            const Ints fadeInts = {s.fadeLength, s.fadeLength, s.fadeLength, s.fadeLength};
            for (int j = 0; j < run; j += 4) {
                const float* at = buffer + head - j;
                const Lanes current = __builtin_shufflevector(load(at - 3), load(at - 3), 3, 2, 1, 0);
                const Lanes following = __builtin_shufflevector(load(at - 2), load(at - 2), 3, 2, 1, 0);
                const Lanes x = current + (following - current) * splat(0.0f);
                const int32_t left = s.remaining - 1 - j;
                const Ints remaining = {left, left - 1, left - 2, left - 3};
                const Ints elapsed = Ints{s.stretch, s.stretch, s.stretch, s.stretch} - remaining;
                const Lanes rising = __builtin_convertvector(elapsed, Lanes) / fadeLanes;
                const Lanes falling = __builtin_convertvector(remaining, Lanes) / fadeLanes;
                const Lanes gain =
                    elapsed < fadeInts ? rising : (remaining < fadeInts ? falling : splat(1.0f));
                const Lanes y = gain * x;
                store(buffer + position + j, feedbackWrite(y, feedback + n + j, load(io + n + j)));
                store(io + n + j, y);
            }
            s.readPosition -= run;
            s.remaining -= run;
            n += run;
            position += static_cast<uint32_t>(run);
        } else {
            if (--s.remaining < 0) startStretch(s, wanted, position, first, fade);
            io[n] = processSide(s, io[n], feedback[n], position, size);
            ++n;
            ++position;
        }
        if (position >= size) {
            position = 0;
            first = false;
        }
    }
    side = s;
    return position;
}

void AFReverseDelayV::process(float* left, float* right, int count) noexcept {
    // The two sides share only the feedback and the write position, so each runs through the chunk on its
    // own. "Fade" changes only at ticks, between calls.
    const uint32_t size = capacity;
    const float fade = clampUnit(parameterValues[3]);
    for (int done = 0; done < count; done += kChunk) {
        const int n = std::min(kChunk, count - done);
        double feedback[kChunk];
        for (int i = 0; i < n; ++i)
            feedback[i] = feedbackRamp.advance();
        bool first = firstPass;
        runSide(sides[0], lengthLeft, left + done, feedback, n, writePosition, first, size, fade);
        first = firstPass;
        writePosition =
            runSide(sides[1], lengthRight, right + done, feedback, n, writePosition, first, size, fade);
        firstPass = first;
    }
}

void AFReverseDelayV::formatParameter(int index, float value, char* text) {
    if (index == 0 || index == 1) {
        const int32_t mode = options[static_cast<std::size_t>(index)];
        const auto& tables = TimeValueTables::instance();
        if (mode == kSync) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(clampUnit(value)));
            return;
        }
        if (mode == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(clampUnit(value)));
            return;
        }
        if (value > 0.99f) {
            std::snprintf(text, kEffectTextSize, "%s", "Off");
            return;
        }
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
