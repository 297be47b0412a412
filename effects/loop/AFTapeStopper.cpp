#include "effects/loop/AFTapeStopper.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
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
constexpr uint32_t kFadeSamples = 64;
constexpr double kFadeScale = 0.015625;
constexpr float kDcPole = 0.998f;

double endFade(double position, double span) noexcept {
    return position < span - kFadeSamples ? 1.0 : (span - position) * kFadeScale;
}

uint32_t largestBuffer() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(std::lround(beat * 4.0)) + 1;
}

} // namespace

const uint32_t AFTapeStopper::kMaxBufferLength = largestBuffer();

namespace {

constexpr AFParameterInfo kParameters[] = {
    {"Size", 0.44f}, {"Slow Down", 0.0f}, {"Down Slope", 0.23f}, {"Up Slope", 0.0f}};
constexpr AFWords kOptions[] = {kSyncWords, kPlayWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param2 Knob Amt", 1.0f}};

} // namespace

const AFEffectDescriptor AFTapeStopper::descriptor{.typeId = 16,
                                                   .displayName = "Vinylizer",
                                                   .className = "TapeStopper",
                                                   .create = makeEffect<AFTapeStopper>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 19,
                                                   .quantise = 2,
                                                   .slotDefaults = kSlotDefaults};

AFTapeStopper::AFTapeStopper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag),
      leftBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)),
      rightBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)) {
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
    const uint8_t risingAtFloor = stopMode ? 0 : 1;
    float* bufferLeft = leftBuffer.get();
    float* bufferRight = rightBuffer.get();
    const uint32_t size = capacity;
    const double top = static_cast<double>(size);

    // The state lives in locals for the loop and is stored back once. The DC blocker runs in the same loop,
    // both channels side by side, so that its recursions overlap the read head's work.
    uint32_t valid = validEnd;
    uint32_t written = writePosition;
    uint32_t cycle = cycleLength;
    uint32_t played = cycleCount;
    double head = readPosition;
    double pace = speed;
    uint8_t up = rising;
    uint8_t first = firstCycle;
    float dcLeft = dcInLeft;
    float dcRight = dcInRight;
    float blockedLeft = dcOutLeft;
    float blockedRight = dcOutRight;
    // The factors of the two slope curves, for the slope in force while falling and while rising.
    const double downFactor = downSlope <= 0.5 ? 2.0 * downSlope : 2.0 * (downSlope - 0.5);
    const double upFactor = upSlope <= 0.5 ? 2.0 * upSlope : 2.0 * (upSlope - 0.5);

    for (int i = 0; i < count; ++i) {
        if (written < size) {
            bufferLeft[written] = left[i];
            bufferRight[written] = right[i];
            ++written;
            valid = std::max(valid, written);
        }
        float wetLeft = 0.0f;
        float wetRight = 0.0f;
        double gain = 1.0;
        bool silent = false;
        if (cycle == 0) {
            if (wanted != 0 && played < 0xFFFFFFC0u) cycle = wanted;
            if (top > head) {
                gain = endFade(head, top);
            } else {
                silent = true;
                if (wanted != 0) {
                    played = 0;
                    pace = 1.0;
                    written = 0;
                    up = 0;
                    head = 0.0;
                }
            }
        }

        if (!silent) {
            // Reads past what was recorded (only after a tempo change) hear silence.
            const auto index = static_cast<uint32_t>(head);
            const uint32_t next = index + 1 == size ? 0 : index + 1;
            const auto fraction = static_cast<float>(head - static_cast<double>(index));
            const float l0 = index < valid ? bufferLeft[index] : 0.0f;
            const float r0 = index < valid ? bufferRight[index] : 0.0f;
            const float l1 = next < valid ? bufferLeft[next] : 0.0f;
            const float r1 = next < valid ? bufferRight[next] : 0.0f;
            const float outLeft = l0 + (l1 - l0) * fraction;
            const float outRight = r0 + (r1 - r0) * fraction;

            const double slope = up ? upSlope : downSlope;
            const double factor = up ? upFactor : downFactor;
            const double s = pace;
            double step;
            if (manual) {
                step = slowDown;
            } else if (slope <= 0.5) {
                const double fall = 1.0 - s;
                const double a = 1.0 - fall * fall * fall;
                step = a + factor * (s - a);
            } else {
                step = s + factor * (s * s * s - s);
            }
            head += step;

            pace += up ? delta : -delta;
            if (pace < lowest) {
                pace = lowest;
                up = risingAtFloor;
            }
            if (pace > 1.0) up = 0;
            // The deliberate bounces: off the end backward at a quarter speed, off the start forward.
            if (head >= top) {
                up = 0;
                head = top - 1.0;
                pace = -0.25;
            }
            if (head < 0.0) {
                head = 0.0;
                up = 1;
                pace = 0.25;
            }

            // The end fade of the cycle: its last 64 samples fall to zero.
            double outGain = gain;
            if (cycle != 0 && played + kFadeSamples >= cycle) outGain *= (cycle - played) * kFadeScale;
            if (played < kFadeSamples && first == 0) outGain *= played * kFadeScale;
            const auto g = static_cast<float>(outGain);
            wetLeft = outLeft * g;
            wetRight = outRight * g;

            if (cycle != 0 && ++played >= cycle) {
                pace = 1.0;
                head = 0.0;
                cycle = wanted;
                played = 0;
                written = 0;
                up = 0;
                first = 0;
            }
        }

        blockedLeft = kDcPole * blockedLeft + (wetLeft - dcLeft);
        blockedRight = kDcPole * blockedRight + (wetRight - dcRight);
        dcLeft = wetLeft;
        dcRight = wetRight;
        left[i] = blockedLeft;
        right[i] = blockedRight;
    }

    validEnd = valid;
    writePosition = written;
    cycleLength = cycle;
    cycleCount = played;
    readPosition = head;
    speed = pace;
    rising = up;
    firstCycle = first;
    dcInLeft = dcLeft;
    dcInRight = dcRight;
    dcOutLeft = blockedLeft;
    dcOutRight = blockedRight;
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
