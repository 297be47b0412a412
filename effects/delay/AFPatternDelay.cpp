#include "effects/delay/AFPatternDelay.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Off", "Fade"};
constexpr const char* kOption3[] = {"Off", "2nd", "3rd"};

constexpr AFParameterInfo kParameters[] = {
    {"Delay Time", 0.3f}, {"Pattern", 0.27f}, {"Amount", 1.0f}, {"Decay", 0.8f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, AFWords{}, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.25f}};

constexpr int32_t kSyncDotted = 1;
constexpr int32_t kFree = 2;
constexpr int32_t kFadeOption = 1;

// The longest echo, in beats: two bars of quarters, or eight steps of the longest straight note.
constexpr double kMaxDelayBeats = 8.0;
// Reads run up to one sub-block past the ring's end into a copy of its start.
constexpr int32_t kMirror = 64;
// Crossfade between two tap sets: one control tick.
constexpr int kFadeSamples = 64;

struct Pattern {
    int length;
    std::array<float, 8> level;
};

// From a plain echo to busy broken rhythms; levels below 1 are ghost taps.
constexpr Pattern kPatterns[] = {
    {1, {1}},
    {2, {0.6f, 1}},
    {2, {0, 1}},
    {3, {0, 0, 1}},
    {3, {1, 0, 0.6f}},
    {4, {0, 1, 0, 0.5f}},
    {4, {1, 0, 0, 1}},
    {6, {1, 0.5f, 0, 1, 0.5f, 0}},
    {8, {0, 0, 1, 0, 0, 1, 0, 1}},
    {8, {1, 0, 0, 1, 0, 0, 1, 0}},
    {8, {0, 1, 1, 0, 1, 0, 1, 0}},
    {8, {1, 0.3f, 0.6f, 0.3f, 1, 0.3f, 0.6f, 0.3f}},
    {8, {0, 0, 0, 1, 0, 0, 1, 1}},
    {8, {1, 1, 0, 0, 1, 0, 1, 1}},
    {8, {0.4f, 0.6f, 0.8f, 1, 0.4f, 0.6f, 0.8f, 1}},
    {8, {1, 0, 1, 1, 0, 1, 1, 1}},
};
constexpr int kPatternCount = static_cast<int>(std::size(kPatterns));

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

int patternIndex(float v) noexcept {
    return static_cast<int>(static_cast<float>(kPatternCount - 1) * unitClamp(v) + 0.5f);
}

// Echo gain per step: "Decay" 0 leaves little past the first echo, 1 rings on for many bars.
float ratioFor(float decay) noexcept {
    return 0.2f + 0.75f * unitClamp(decay);
}

uint32_t ringFor(const AFSystemInfo& system) noexcept {
    const double samples = static_cast<double>(system.samplesPerBeat) * kMaxDelayBeats;
    const double wanted =
        std::clamp(samples, 1.0, static_cast<double>(AFPatternDelay::kMaxRing - kMirror - 1));
    return static_cast<uint32_t>(wanted) + kMirror + 1;
}

// The crossfade from the old tap set's l, r into the new one's, fade samples before its end.
void fadeFrom(const float* oldL, const float* oldR, float* l, float* r, int fade, int n) noexcept {
    constexpr float kFadeStep = 1.0f / static_cast<float>(kFadeSamples);
    for (int i = 0; i < n; ++i) {
        const float old = static_cast<float>(fade - i) * kFadeStep;
        l[i] += old * (oldL[i] - l[i]);
        r[i] += old * (oldR[i] - r[i]);
    }
}

uint32_t maxRing() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * kMaxDelayBeats) + kMirror + 2;
}

} // namespace

const uint32_t AFPatternDelay::kMaxRing = maxRing();

int AFPatternDelay::patternCount() noexcept {
    return kPatternCount;
}

const AFEffectDescriptor AFPatternDelay::descriptor{.typeId = 20,
                                                    .displayName = "Pattern Delay",
                                                    .className = "AFPatternDelay",
                                                    .create = makeEffect<AFPatternDelay>,
                                                    .parameters = kParameters,
                                                    .options = kOptions,
                                                    .menuPosition = 0,
                                                    .slotDefaults = kSlotDefaults};

AFPatternDelay::AFPatternDelay(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag),
      ringLeft(std::make_unique_for_overwrite<float[]>(kMaxRing + kMirror)),
      ringRight(std::make_unique_for_overwrite<float[]>(kMaxRing + kMirror)) {
    tempoChanged(0);
    builtKey = wantedKey();
    build(builtKey, taps[0]);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFPatternDelay::~AFPatternDelay() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

double AFPatternDelay::stepFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float v = unitClamp(value);
    switch (options[0]) {
    case kSyncDotted:
        return tables.syncDottedTable.intervalSamples(*systemInfo, v);
    case kFree:
        return (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * v + 88.0;
    default:
        return tables.syncTable.intervalSamplesExact(*systemInfo, v);
    }
}

AFPatternDelay::Key AFPatternDelay::wantedKey() const noexcept {
    Key key;
    key.step = stepFor(parameterValues[0]);
    key.pattern = patternIndex(parameterValues[1]);
    key.decay = unitClamp(parameterValues[3]);
    key.fade = options[1];
    key.spread = options[3];
    key.ring = ringSize;
    return key;
}

// Echo s (from 1) of the pattern sits at trunc(s * step). The taps cover one loop of E steps, E the pattern's
// length, or its least common multiple with the crossing count when that still fits, so that "every second"
// and "every third" count echoes across passes; otherwise they count within each pass, and an odd loop under
// "2nd" crosses its feedback so that the count still holds.
void AFPatternDelay::build(const Key& key, TapSet& set) const noexcept {
    const Pattern& pattern = kPatterns[key.pattern];
    const int length = pattern.length;
    const int every = key.spread + 1;
    const double longest = static_cast<double>(key.ring - kMirror - 1);
    const double stepLength = std::max(key.step, 1.0);
    const int fitting = std::max(1, static_cast<int>(longest / stepLength));
    int loopSteps = length;
    if (every > 1 && length % every != 0) {
        const int joint = std::lcm(length, every);
        int taps = 0;
        for (int k = 0; k < length; ++k)
            taps += pattern.level[static_cast<std::size_t>(k)] > 0.0f ? joint / length : 0;
        if (joint <= fitting && taps <= kMaxTaps) loopSteps = joint;
    }
    loopSteps = std::min(loopSteps, fitting);
    const float ratio = ratioFor(key.decay);
    const bool fade = key.fade == kFadeOption;
    const bool counted = loopSteps % every == 0;
    set.count = 0;
    for (int s = 1; s <= loopSteps; ++s) {
        const int k = (s - 1) % length;
        const float level = pattern.level[static_cast<std::size_t>(k)];
        if (level <= 0.0f) continue;
        const int decaySteps = fade ? s - 1 : (s - 1) / length * length;
        const auto n = static_cast<std::size_t>(set.count++);
        set.delay[n] = std::max(1, static_cast<int32_t>(static_cast<double>(s) * key.step));
        set.gain[n] = level * std::pow(ratio, static_cast<float>(decaySteps));
        set.cross[n] = every > 1 && (counted ? s : k + 1) % every == 0;
    }
    set.loop = std::max(1, static_cast<int32_t>(static_cast<double>(loopSteps) * key.step));
    set.feedback = std::pow(ratio, static_cast<float>(loopSteps));
    set.loopCross = every == 2 && loopSteps % 2 == 1;
}

void AFPatternDelay::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPatternDelay::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPatternDelay::controlTick() noexcept {
    // "Amount" glides to its value over one control interval.
    amountStep = (unitClamp(parameterValues[2]) - amount) * systemInfo->rampFactor;
    // A change waits for a running crossfade to end, so no tap set is dropped half-heard.
    if (fadeLeft > 0) return;
    const Key key = wantedKey();
    if (key == builtKey) return;
    builtKey = key;
    active = 1 - active;
    build(key, taps[static_cast<std::size_t>(active)]);
    fadeLeft = kFadeSamples;
}

void AFPatternDelay::tempoChanged(int32_t) noexcept {
    const uint32_t next = ringFor(*systemInfo);
    if (next > ringSize) {
        std::memset(ringLeft.get() + ringSize, 0, sizeof(float) * (next - ringSize));
        std::memset(ringRight.get() + ringSize, 0, sizeof(float) * (next - ringSize));
    }
    ringSize = next;
    std::memcpy(ringLeft.get() + ringSize, ringLeft.get(), sizeof(float) * kMirror);
    std::memcpy(ringRight.get() + ringSize, ringRight.get(), sizeof(float) * kMirror);
    if (static_cast<uint32_t>(writePosition) >= ringSize) writePosition = 0;
    // The old taps may reach past the new ring: the new ones take over at once.
    builtKey = wantedKey();
    build(builtKey, taps[static_cast<std::size_t>(active)]);
    fadeLeft = 0;
}

int32_t AFPatternDelay::activate() noexcept {
    // The rate may have changed since the last tempo: the ring is sized afresh.
    ringSize = ringFor(*systemInfo);
    std::memset(ringLeft.get(), 0, sizeof(float) * (ringSize + kMirror));
    std::memset(ringRight.get(), 0, sizeof(float) * (ringSize + kMirror));
    writePosition = 0;
    amount = unitClamp(parameterValues[2]);
    amountStep = 0.0f;
    builtKey = wantedKey();
    build(builtKey, taps[static_cast<std::size_t>(active)]);
    fadeLeft = 0;
    return 1;
}

LANE_WIDE_CLONES void AFPatternDelay::addTaps(const TapSet& set, const float* ringL, const float* ringR,
                                              int32_t write, int32_t ring, float* outL, float* outR,
                                              int n) noexcept {
    // Every tap's run is straight (the mirror past the ring's end holds its start), so the taps are summed
    // eight samples at a time in registers, each tap's reads in turn.
    std::array<const float*, kMaxTaps> fromL;
    std::array<const float*, kMaxTaps> fromR;
    const int taps = set.count;
    for (int t = 0; t < taps; ++t) {
        const auto tap = static_cast<std::size_t>(t);
        int32_t start = write - set.delay[tap];
        if (start < 0) start += ring;
        fromL[tap] = (set.cross[tap] ? ringR : ringL) + start;
        fromR[tap] = (set.cross[tap] ? ringL : ringR) + start;
    }
    using Lanes = float __attribute__((vector_size(32)));
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        Lanes l{};
        Lanes r{};
        for (std::size_t t = 0; t < static_cast<std::size_t>(taps); ++t) {
            Lanes a, b;
            std::memcpy(&a, fromL[t] + i, sizeof a);
            std::memcpy(&b, fromR[t] + i, sizeof b);
            l += set.gain[t] * a;
            r += set.gain[t] * b;
        }
        std::memcpy(outL + i, &l, sizeof l);
        std::memcpy(outR + i, &r, sizeof r);
    }
    for (; i < n; ++i) {
        float l = 0.0f;
        float r = 0.0f;
        for (std::size_t t = 0; t < static_cast<std::size_t>(taps); ++t) {
            l += set.gain[t] * fromL[t][i];
            r += set.gain[t] * fromR[t][i];
        }
        outL[i] = l;
        outR[i] = r;
    }
}

// One straight read (the mirror holds the ring's start past its end).
void AFPatternDelay::loopFeedback(const TapSet& set, const float* ringL, const float* ringR, int32_t write,
                                  int32_t ring, float* toL, float* toR, int n) noexcept {
    int32_t at = write - set.loop;
    if (at < 0) at += ring;
    const float* __restrict fromL = (set.loopCross ? ringR : ringL) + at;
    const float* __restrict fromR = (set.loopCross ? ringL : ringR) + at;
    const float g = set.feedback;
    for (int i = 0; i < n; ++i) {
        toL[i] = g * fromL[i];
        toR[i] = g * fromR[i];
    }
}

void AFPatternDelay::runChunk(float* left, float* right, int n) noexcept {
    const TapSet& now = taps[static_cast<std::size_t>(active)];
    const TapSet& before = taps[static_cast<std::size_t>(1 - active)];
    float* ringL = ringLeft.get();
    float* ringR = ringRight.get();
    const auto ring = static_cast<int32_t>(ringSize);
    const int32_t w = writePosition;
    const int fade = fadeLeft;

    // A pass of the active tap set into l, r, crossfaded from the old set's while a change fades in.
    const auto crossfaded = [&](auto pass, float* l, float* r) {
        pass(now, ringL, ringR, w, ring, l, r, n);
        if (fade <= 0) return;
        alignas(32) float oldL[kMirror];
        alignas(32) float oldR[kMirror];
        pass(before, ringL, ringR, w, ring, oldL, oldR, n);
        fadeFrom(oldL, oldR, l, r, fade, n);
    };

    // The ring takes the input and one pass of the loop, hard-limited to full scale. No chunk is longer than
    // the loop, so its reads all lie behind this chunk's writes.
    alignas(32) float fl[kMirror];
    alignas(32) float fr[kMirror];
    crossfaded(loopFeedback, fl, fr);
    float* __restrict toL = ringL + w;
    float* __restrict toR = ringR + w;
    for (int i = 0; i < n; ++i) {
        toL[i] = std::min(std::max(left[i] + fl[i], -1.0f), 1.0f);
        toR[i] = std::min(std::max(right[i] + fr[i], -1.0f), 1.0f);
    }
    if (w < kMirror) {
        const int copied = std::min(n, kMirror - w);
        std::memcpy(ringL + ring + w, ringL + w, sizeof(float) * static_cast<std::size_t>(copied));
        std::memcpy(ringR + ring + w, ringR + w, sizeof(float) * static_cast<std::size_t>(copied));
    }

    alignas(32) float outL[kMirror];
    alignas(32) float outR[kMirror];
    crossfaded(addTaps, outL, outR);
    if (fade > 0) fadeLeft = fade - n;
    const float start = amount;
    const float step = amountStep;
    for (int i = 0; i < n; ++i) {
        const float gain = start + static_cast<float>(i + 1) * step;
        left[i] = outL[i] * gain;
        right[i] = outR[i] * gain;
    }
    amount = start + static_cast<float>(n) * step;
    writePosition = w + n == ring ? 0 : w + n;
}

void AFPatternDelay::process(float* left, float* right, int count) noexcept {
    int done = 0;
    while (done < count) {
        int n = std::min(count - done, static_cast<int>(ringSize) - writePosition);
        n = std::min({n, kMirror, taps[static_cast<std::size_t>(active)].loop});
        if (fadeLeft > 0) n = std::min({n, fadeLeft, taps[static_cast<std::size_t>(1 - active)].loop});
        runChunk(left + done, right + done, n);
        done += n;
    }
}

void AFPatternDelay::formatParameter(int index, float value, char* text) {
    const auto& tables = TimeValueTables::instance();
    switch (index) {
    case 0:
        if (options[0] == kSyncDotted) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncDottedTable.valueName(unitClamp(value)));
        } else if (options[0] == kFree) {
            const double samples = std::trunc(stepFor(value));
            const double ms = std::trunc(samples / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
        } else {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(unitClamp(value)));
        }
        break;
    case 1: {
        // The pattern's number and its rhythm: "x" a full tap, "o" a ghost tap, "." a rest.
        const int number = patternIndex(value);
        const Pattern& pattern = kPatterns[number];
        char picture[9] = {};
        for (int k = 0; k < pattern.length; ++k) {
            const float level = pattern.level[static_cast<std::size_t>(k)];
            picture[k] = level >= 0.75f ? 'x' : (level > 0.0f ? 'o' : '.');
        }
        std::snprintf(text, kEffectTextSize, "%d %s", number + 1, picture);
        break;
    }
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
