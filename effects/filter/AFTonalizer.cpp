#include "effects/filter/AFTonalizer.h"

#include "effects/filter/WaveTables.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <span>

namespace {

constexpr const char* kScaleWords[] = {"Chromatic", "Whole", "3rd", "4rd", "5th", "7th", "Octave"};
constexpr const char* kSignWords[] = {"Normal", "Inverse"};
constexpr const char* kHoldWords[] = {"Flat", "Sweep", "Rootnote"};
constexpr const char* kRootNames[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};

// Semitones above the root that each scale word allows within one octave; the grid repeats every octave.
// "Chromatic" has no grid: its note moves continuously.
struct Grid {
    int count;
    std::array<int, 6> steps;
};
constexpr Grid kGrids[] = {
    {0, {}},                  // Chromatic
    {6, {0, 2, 4, 6, 8, 10}}, // Whole: whole-tone scale
    {3, {0, 4, 7}},           // 3rd: stacked thirds, the major triad
    {3, {0, 5, 10}},          // 4rd: stacked fourths
    {2, {0, 7}},              // 5th: root and fifth
    {4, {0, 4, 7, 10}},       // 7th: dominant seventh chord
    {1, {0}},                 // Octave
};

// The lowest note a comb reaches: knob at 0, no transposition. Fixes the longest delay.
constexpr int kLowestNote = 24;
constexpr float kGlide = 0.1f;
// Fastest delay change per sample that is still heard as a glide; beyond it the read crossfades.
constexpr double kFastestSweep = 1.0;
// Corner of the DC blocker in the feedback paths, below the lowest comb note (4.09 Hz).
constexpr float kBlockHz = 2.0f;

float snapToGrid(float x, const Grid& grid) noexcept {
    const float octave = std::floor(x / 12.0f);
    const float within = x - octave * 12.0f;
    float best = 12.0f;
    float distance = 12.0f - within;
    for (int k = 0; k < grid.count; ++k) {
        const auto step = static_cast<float>(grid.steps[static_cast<std::size_t>(k)]);
        const float d = std::fabs(within - step);
        if (d < distance) {
            distance = d;
            best = step;
        }
    }
    return octave * 12.0f + best;
}

int lineLengthFor(float sampleRate, const AFSystemInfo& system) noexcept {
    return static_cast<int>(sampleRate / system.noteLadder[kLowestNote].value) + 3;
}

constexpr AFParameterInfo kParameters[] = {
    {"Note Left", 0.0f}, {"Note Right", 0.0f}, {"Feedback", 0.85f}, {"Hold", 0.25f}};
constexpr AFWords kOptions[] = {kScaleWords, kScaleWords, kSignWords, kHoldWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param1 Knob Amt", 0.8f}, {"Param2 Knob Amt", 0.79f}};

} // namespace

const AFEffectDescriptor AFTonalizer::descriptor{.typeId = 7,
                                                 .displayName = "Tonalizer",
                                                 .className = "Tonalize",
                                                 .create = makeEffect<AFTonalizer>,
                                                 .parameters = kParameters,
                                                 .options = kOptions,
                                                 .menuPosition = 5,
                                                 .slotDefaults = kSlotDefaults};

AFTonalizer::AFTonalizer(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag),
      lineL(static_cast<std::size_t>(lineLengthFor(AFSystemInfo::kMaxSampleRate, *system))),
      lineR(lineL.size()), delayL(system), delayR(system), feedback(system) {
    const WaveTables& tables = WaveTables::instance();
    sine = tables.wave(3);
    sineDelta = tables.delta(3);
    setParameter(2, parameterValues[2]);
    reset();
}

float AFTonalizer::noteFor(float v, int32_t scale, int transposition) noexcept {
    const float x = clampUnit(v) * 60.0f;
    const float stepped = scale > 0 && scale < static_cast<int32_t>(std::size(kGrids))
                              ? snapToGrid(x, kGrids[static_cast<std::size_t>(scale)])
                              : x;
    return stepped + static_cast<float>(transposition + kLowestNote);
}

int AFTonalizer::rootFor(float v) noexcept {
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the truncating +0.5 the note steps are defined by
    return static_cast<int>(clampUnit(v) * 11.0f + 0.5f);
}

int AFTonalizer::transposition() const noexcept {
    return holdMode == kRootnote ? rootFor(parameterValues[3]) : 0;
}

double AFTonalizer::delayFor(float note) const noexcept {
    const int row = static_cast<int>(note);
    const AFSystemInfo::Pair& entry = systemInfo->noteLadder[static_cast<std::size_t>(row)];
    const float hz = entry.value + (note - static_cast<float>(row)) * entry.delta;
    return static_cast<double>(systemInfo->sampleRate / hz);
}

void AFTonalizer::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    if (index == 2) feedback.setTarget((clampUnit(value) + 1.0f) * 0.5f);
}

void AFTonalizer::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    switch (index) {
    case 0:
        scaleL = v;
        break;
    case 1:
        scaleR = v;
        break;
    case 2:
        feedbackSign = v;
        break;
    default:
        holdMode = v;
        parameterNames[3] = v == kRootnote ? "Rootnote" : "Hold";
        break;
    }
}

int32_t AFTonalizer::getOption(int index) {
    switch (index) {
    case 0:
        return scaleL;
    case 1:
        return scaleR;
    case 2:
        return feedbackSign;
    case 3:
        return holdMode;
    default:
        return 0;
    }
}

void AFTonalizer::updateLineLength() noexcept {
    lineRate = systemInfo->sampleRate;
    const int wanted = lineLengthFor(lineRate, *systemInfo);
    const auto capacity = static_cast<int>(lineL.size());
    lineLength = wanted < capacity ? wanted : capacity;
}

void AFTonalizer::reset() {
    updateLineLength();
    const auto used = static_cast<std::size_t>(lineLength);
    std::memset(lineL.data(), 0, sizeof(float) * used);
    std::memset(lineR.data(), 0, sizeof(float) * used);
    writeIndex = 0;
    holdGate = 0.0f;
    sweepPhase = 0.5f;
    fadeBlend = {1.0f, 1.0f};
    blockIn = {};
    blockOut = {};
    blockPole = 1.0f - 2.0f * std::numbers::pi_v<float> * kBlockHz / lineRate;
    feedback.jump();
    const int t = transposition();
    delayL.setTarget(delayFor(noteFor(parameterValues[0], scaleL, t)));
    delayR.setTarget(delayFor(noteFor(parameterValues[1], scaleR, t)));
    delayL.jump();
    delayR.jump();
}

int32_t AFTonalizer::activate() {
    reset();
    return 1;
}

void AFTonalizer::controlTick() noexcept {
    // A new rate changes every delay and the line length: start again from empty lines.
    if (systemInfo->sampleRate != lineRate) reset();
    feedback.controlTick();

    const int t = transposition();
    auto retune = [&](ParamRamp& delay, float v, int32_t scale, int side) noexcept {
        const double translated = delayFor(noteFor(v, scale, t));
        const double current = delay.getCurrent();
        delay.setTarget(scale > 0 ? current + (translated - current) * kGlide : translated);
        delay.controlTick();
        crossfadeLargeMove(delay, side);
    };
    retune(delayL, parameterValues[0], scaleL, 0);
    retune(delayR, parameterValues[1], scaleR, 1);
    fadeStep = 1.0f / static_cast<float>(systemInfo->controlInterval);

    const float rate = -1.0f / ((systemInfo->sampleRate / 44100.0f) * 64.0f);
    holdRate = holdMode != kRootnote && parameterValues[3] > 0.5f ? -rate : rate;
    sweepStep = 1.0f / systemInfo->samplesPerBeat;
}

void AFTonalizer::crossfadeLargeMove(ParamRamp& delay, int side) noexcept {
    if (std::fabs(delay.getIncrement()) <= kFastestSweep) return;
    const auto s = static_cast<std::size_t>(side);
    fadeFrom[s] = delay.getCurrent();
    fadeBlend[s] = 0.0f;
    delay.jump();
}

void AFTonalizer::process(float* left, float* right, int count) noexcept {
    if (fadeBlend[0] < 1.0f || fadeBlend[1] < 1.0f)
        run<true>(left, right, count);
    else
        run<false>(left, right, count);
}

template <bool Crossfade>
void AFTonalizer::run(float* left, float* right, int count) noexcept {
    float* const bufL = lineL.data();
    float* const bufR = lineR.data();
    const int length = lineLength;
    const auto span = static_cast<double>(length);
    const double maxDelay = static_cast<double>(length - 2);
    const float sign = feedbackSign == 1 ? -1.0f : 1.0f;
    const bool sweep = holdMode == kSweep;
    const float rate = holdRate;
    const float step = sweepStep;
    const float pole = blockPole;

    // Local copies: the line stores could alias members and would force every state through memory.
    ParamRamp fbRamp = feedback;
    ParamRamp rampL = delayL;
    ParamRamp rampR = delayR;
    float gate = holdGate;
    float phase = sweepPhase;
    int w = writeIndex;
    float inL = blockIn[0];
    float inR = blockIn[1];
    float outL = blockOut[0];
    float outR = blockOut[1];
    float blendL = fadeBlend[0];
    float blendR = fadeBlend[1];
    const float blendStep = fadeStep;

    auto read = [&](const float* buf, double delay) noexcept {
        double p = static_cast<double>(w) - delay;
        p = p < 0.0 ? p + span : p;
        int i = static_cast<int>(p);
        i = i < length ? i : i - length;
        const int j = i + 1 == length ? 0 : i + 1;
        const auto frac = static_cast<float>(p - static_cast<double>(i));
        return buf[i] + (buf[j] - buf[i]) * frac;
    };
    auto clampDelay = [maxDelay](double d) noexcept { return d > 1.0 ? (d < maxDelay ? d : maxDelay) : 1.0; };
    auto blended = [&](const float* buf, double delay, double from, float& blend) noexcept {
        const float now = read(buf, delay);
        if (blend >= 1.0f) return now;
        blend = std::min(blend + blendStep, 1.0f);
        const float before = read(buf, clampDelay(from));
        return before + (now - before) * blend;
    };

    for (int n = 0; n < count; ++n) {
        const auto level = static_cast<float>(fbRamp.advance());
        const float fb = level * sign;
        const double dL = clampDelay(rampL.advance());
        const double dR = clampDelay(rampR.advance());

        gate = std::min(std::max(gate + rate, 0.0f), 1.0f);
        float gain = 1.5f - std::fabs(level);
        if (gate <= 0.0f) {
            phase = 0.5f;
        } else if (sweep) {
            phase += step;
            phase = phase >= 1.0f ? phase - 1.0f : phase;
            float q = phase - 0.25f;
            q = q < 0.0f ? q + 1.0f : q;
            const float p = q * static_cast<float>(WaveTables::kSize);
            const int i = static_cast<int>(p) & WaveTables::kMask;
            const float s = 0.5f + 0.5f * (sine[i] + (p - static_cast<float>(i)) * sineDelta[i]);
            gain *= (s - 1.0f) * gate + 1.0f;
        }

        float rL;
        float rR;
        if constexpr (Crossfade) {
            rL = blended(bufL, dL, fadeFrom[0], blendL);
            rR = blended(bufR, dR, fadeFrom[1], blendR);
        } else {
            rL = read(bufL, dL);
            rR = read(bufR, dR);
        }
        outL = rL - inL + pole * outL;
        outR = rR - inR + pole * outR;
        inL = rL;
        inR = rR;
        const float yL = outL * fb + left[n];
        const float yR = outR * fb + right[n];
        bufL[w] = (rL - yL) * gate + yL;
        bufR[w] = (rR - yR) * gate + yR;
        left[n] = rL * gain;
        right[n] = rR * gain;
        w = w + 1 == length ? 0 : w + 1;
    }

    feedback = fbRamp;
    delayL = rampL;
    delayR = rampR;
    holdGate = gate;
    sweepPhase = phase;
    writeIndex = w;
    blockIn = {inL, inR};
    blockOut = {outL, outR};
    fadeBlend = {blendL, blendR};
}

void AFTonalizer::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0:
    case 1: {
        const float note = noteFor(value, index == 0 ? scaleL : scaleR, transposition());
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): the display's truncating +0.5
        TimeValueTables::formatNote(text, kEffectTextSize, static_cast<int>(note + 0.5f));
        break;
    }
    case 3:
        if (holdMode == kRootnote) {
            std::snprintf(text, kEffectTextSize, "%s", kRootNames[rootFor(value)]);
            break;
        }
        [[fallthrough]];
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
