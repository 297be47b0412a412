#include "effects/filter/AFFilterPattern.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Var1", "Var2", "Var3", "Var4",  "Var5",      "Var6",
                                    "Var7", "Var8", "Var9", "Var10", "Bristleman"};
constexpr const char* kOption1[] = {"Normal", "Length*2", "Length*3", "Length*4"};
constexpr const char* kOption2[] = {"PingPong", "Repeat", "Synced", "SyncedX"};
constexpr const char* kOption3[] = {"Normal", "Inverse", "Smart"};

constexpr AFParameterInfo kParameters[] = {
    {"Pattern", 0.0f}, {"Resonance", 0.5f}, {"SweepSpeed", 0.5f}, {"SweepRange", 0.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param3 Knob Amt", 0.9f}};

constexpr int32_t kPingPong = 0;
constexpr int32_t kSynced = 2;
constexpr int32_t kSyncedX = 3;
constexpr int32_t kInverse = 1;
constexpr int32_t kSmart = 2;

// Cutoffs of the sixteen steps, 0 closed to 1 open, on the filter's own cubic curve.
constexpr std::array<std::array<float, 16>, 11> kPatterns = {{
    {0.85f, 0.3f, 0.55f, 0.3f, 0.85f, 0.3f, 0.55f, 0.3f, 0.85f, 0.3f, 0.55f, 0.3f, 0.85f, 0.3f, 0.55f, 0.3f},
    {0.9f, 0.2f, 0.2f, 0.6f, 0.2f, 0.2f, 0.9f, 0.2f, 0.2f, 0.6f, 0.2f, 0.2f, 0.9f, 0.2f, 0.6f, 0.2f},
    {0.1f, 0.15f, 0.2f, 0.25f, 0.3f, 0.35f, 0.4f, 0.45f, 0.5f, 0.55f, 0.6f, 0.65f, 0.7f, 0.75f, 0.8f, 0.85f},
    {0.85f, 0.8f, 0.75f, 0.7f, 0.65f, 0.6f, 0.55f, 0.5f, 0.45f, 0.4f, 0.35f, 0.3f, 0.25f, 0.2f, 0.15f, 0.1f},
    {0.2f, 0.2f, 0.7f, 0.2f, 0.2f, 0.7f, 0.2f, 0.7f, 0.2f, 0.2f, 0.7f, 0.2f, 0.2f, 0.7f, 0.7f, 0.2f},
    {0.25f, 0.25f, 0.8f, 0.25f, 0.25f, 0.25f, 0.8f, 0.25f, 0.25f, 0.25f, 0.8f, 0.25f, 0.25f, 0.25f, 0.8f,
     0.4f},
    {0.9f, 0.6f, 0.4f, 0.25f, 0.9f, 0.6f, 0.4f, 0.25f, 0.9f, 0.6f, 0.4f, 0.25f, 0.9f, 0.6f, 0.4f, 0.25f},
    {0.3f, 0.5f, 0.7f, 0.9f, 0.7f, 0.5f, 0.3f, 0.15f, 0.3f, 0.5f, 0.7f, 0.9f, 0.7f, 0.5f, 0.3f, 0.15f},
    {0.62f, 0.18f, 0.45f, 0.9f, 0.3f, 0.74f, 0.12f, 0.55f, 0.85f, 0.25f, 0.66f, 0.38f, 0.95f, 0.2f, 0.5f,
     0.33f},
    {0.9f, 0.25f, 0.25f, 0.9f, 0.25f, 0.25f, 0.9f, 0.25f, 0.9f, 0.25f, 0.25f, 0.9f, 0.25f, 0.25f, 0.9f,
     0.25f},
    {0.95f, 0.15f, 0.8f, 0.1f, 0.9f, 0.2f, 0.15f, 0.85f, 0.1f, 0.95f, 0.2f, 0.75f, 0.1f, 0.9f, 0.3f, 0.12f},
}};

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

// The sweep's period: "2 bars" at 0 to "1\128" at 1, the LFO's rows without "Off".
const TimeValueTable::Entry& sweepRow(float v) noexcept {
    const auto& table = TimeValueTables::instance().lfoSyncTable;
    const int rows = table.count() - 1;
    return table.at(1 + static_cast<int>(static_cast<float>(rows - 1) * unitClamp(v) + 0.5f));
}

int64_t floorDiv(int64_t a, int64_t b) noexcept {
    const int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

} // namespace

const AFEffectDescriptor AFFilterPattern::descriptor{.typeId = 25,
                                                     .displayName = "Filter Pattern",
                                                     .className = "AFFilterPattern",
                                                     .create = makeEffect<AFFilterPattern>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 21,
                                                     .quantise = 2,
                                                     .slotDefaults = kSlotDefaults};

AFFilterPattern::AFFilterPattern(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftFilter(system), rightFilter(system) {
    stepLength = stepLengthFor();
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFFilterPattern::~AFFilterPattern() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

void AFFilterPattern::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFFilterPattern::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

double AFFilterPattern::stepLengthFor() const noexcept {
    return static_cast<double>(systemInfo->samplesPerBeat) * 0.25 * (options[1] + 1);
}

bool AFFilterPattern::synced() const noexcept {
    return options[2] == kSynced || options[2] == kSyncedX;
}

void AFFilterPattern::locate(int offset) noexcept {
    if (synced()) {
        // Steps on the host's grid: the step that holds this sample, and the first sample of the next.
        const double beats = static_cast<double>(systemInfo->ppqPosition) +
                             offset / static_cast<double>(systemInfo->samplesPerBeat);
        const double at = beats / (0.25 * (options[1] + 1));
        stepIndex = static_cast<int64_t>(std::floor(at));
        const double ahead = (static_cast<double>(stepIndex + 1) - at) * stepLength;
        untilNext = std::max(1, static_cast<int32_t>(std::ceil(ahead - 1e-6)));
        return;
    }
    // Free running: step k starts trunc((k - originStep) * stepLength) samples after the origin.
    const auto next = static_cast<int64_t>(static_cast<double>(stepIndex - originStep + 1) * stepLength);
    untilNext = static_cast<int32_t>(std::clamp<int64_t>(next - sinceOrigin, 1, 0x7fffffff));
}

float AFFilterPattern::cutoffFor(int channel) const noexcept {
    int64_t position = 0;
    if (options[2] == kPingPong) {
        const int64_t j = stepIndex - floorDiv(stepIndex, 2 * kSteps - 2) * (2 * kSteps - 2);
        position = j < kSteps ? j : 2 * kSteps - 2 - j;
    } else {
        position = stepIndex - floorDiv(stepIndex, kSteps) * kSteps;
        if (options[2] == kSyncedX && channel == 1) position = kSteps - 1 - position;
    }
    float c = kPatterns[static_cast<std::size_t>(options[0])][static_cast<std::size_t>(position)];
    c += unitClamp(parameterValues[0]) * (1.0f - c);
    c = unitClamp(c + unitClamp(parameterValues[3]) * (sweep - 0.5f));
    return options[3] == kInverse ? 1.0f - c : c;
}

void AFFilterPattern::applyFilters(bool settle) noexcept {
    const float resonance = unitClamp(parameterValues[1]);
    // "Smart" runs a filter per side (the same setting unless mirrored) so that both take the joined path.
    const int channels = options[2] == kSyncedX || options[3] == kSmart ? 2 : 1;
    for (int channel = 0; channel < channels; ++channel) {
        AFDirectFilter& filter = channel == 0 ? leftFilter : rightFilter;
        if (channel == 1 && options[2] != kSyncedX && !settle) {
            // Unmirrored, the right side follows the left without designing again.
            filter.setAs(AFDirectFilter::Lowpass, leftFilter);
            filter.setAs(AFDirectFilter::Highpass, leftFilter);
            continue;
        }
        const float c = cutoffFor(channel);
        if (options[3] == kSmart) {
            // Dark steps close a low-pass, bright ones open a high-pass; the middle leaves the sound whole.
            const float low = c < 0.5f ? c * 2.0f : 1.0f;
            const float high = c > 0.5f ? c * 2.0f - 1.0f : 0.0f;
            const float lowResonance = c < 0.5f ? resonance : 0.0f;
            const float highResonance = c > 0.5f ? resonance : 0.0f;
            if (settle) {
                filter.reset(AFDirectFilter::Lowpass, low, lowResonance);
                filter.reset(AFDirectFilter::Highpass, high, highResonance);
            } else {
                filter.set(AFDirectFilter::Lowpass, low, lowResonance);
                filter.set(AFDirectFilter::Highpass, high, highResonance);
            }
        } else if (settle) {
            filter.reset(AFDirectFilter::Lowpass, c, resonance);
        } else {
            filter.set(AFDirectFilter::Lowpass, c, resonance);
        }
    }
}

void AFFilterPattern::controlTick() noexcept {
    const double length = stepLengthFor();
    if (length != stepLength) tempoChanged(0);
    const auto& row = sweepRow(parameterValues[2]);
    if (synced()) {
        const double at = static_cast<double>(systemInfo->ppqPosition) / row.length;
        sweepPhase = at - std::floor(at);
    }
    sweep = static_cast<float>(sweepPhase < 0.5 ? sweepPhase * 2.0 : 2.0 - sweepPhase * 2.0);
    applyFilters(false);
}

void AFFilterPattern::tempoChanged(int32_t) noexcept {
    // The step in progress keeps its start; the steps after it take the new length.
    const auto start = static_cast<int64_t>(static_cast<double>(stepIndex - originStep) * stepLength);
    sinceOrigin -= start;
    originStep = stepIndex;
    stepLength = stepLengthFor();
    if (!synced() && static_cast<double>(sinceOrigin) >= std::trunc(stepLength)) {
        // Already longer than the new length: the next step starts now.
        ++stepIndex;
        originStep = stepIndex;
        sinceOrigin = 0;
        applyFilters(false);
    }
    locate(0);
}

int32_t AFFilterPattern::activate() noexcept {
    stepLength = stepLengthFor();
    stepIndex = 0;
    originStep = 0;
    sinceOrigin = 0;
    sweepPhase = 0.0;
    locate(0);
    controlTick();
    applyFilters(true);
    return 1;
}

void AFFilterPattern::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    if (synced()) {
        const int64_t was = stepIndex;
        locate(0);
        if (stepIndex != was) applyFilters(false);
    }
    const bool smart = options[3] == kSmart;
    const bool crossed = options[2] == kSyncedX;
    int done = 0;
    while (done < count) {
        const int n = std::min(count - done, untilNext);
        float* l = left + done;
        float* r = right + done;
        if (smart) {
            AFDirectFilter::processPairBand(leftFilter, l, rightFilter, r, n);
        } else if (crossed) {
            AFDirectFilter::processPair(AFDirectFilter::Lowpass, leftFilter, l, rightFilter, r, n);
        } else {
            leftFilter.processStereoTwoStep(AFDirectFilter::Lowpass, l, r, n);
        }
        done += n;
        sinceOrigin += n;
        untilNext -= n;
        if (untilNext <= 0) {
            if (synced()) {
                locate(done);
            } else {
                ++stepIndex;
                locate(0);
            }
            applyFilters(false);
        }
    }
    if (!synced()) {
        const double period =
            sweepRow(parameterValues[2]).length * static_cast<double>(systemInfo->samplesPerBeat);
        sweepPhase += count / std::max(period, 1.0);
        sweepPhase -= std::floor(sweepPhase);
    }
}

void AFFilterPattern::formatParameter(int index, float value, char* text) {
    if (index == 2) {
        std::snprintf(text, kEffectTextSize, "%s", sweepRow(value).text);
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
