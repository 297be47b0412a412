#include "effects/loop/AFSliceArranger.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kOption0[] = {"Normal",   "More Bass",  "More Snare", "Pitch Down",
                                    "Pitch Up", "Pitch Flip", "Reverse",    "ReRecord"};
constexpr const char* kOption1[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption2[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption3[] = {"Bar", "2 Bars"};

constexpr AFParameterInfo kParameters[] = {
    {"Pattern", 0.0f}, {"Fill 1", 0.0f}, {"Fill 2", 0.0f}, {"Decay", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.2f}};

enum Character { kNormal, kMoreBass, kMoreSnare, kPitchDown, kPitchUp, kPitchFlip, kReverse, kReRecord };
enum FillStyle { kRepeat, kUp, kDown, kHard, kPong, kSoft };

constexpr int kStepsPerBar = 16;
constexpr int kPatternCount = 13;
// From subtle to wild: which slice each sixteenth of the bar plays. The first already moves the last beat, so
// a fresh slot is heard at once; the middle of the bank swaps eighths and beats; the end scatters the bar.
constexpr int kPatterns[kPatternCount][kStepsPerBar] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 12, 13},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 8, 9, 10, 11},
    {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15},
    {0, 1, 2, 0, 4, 5, 6, 4, 8, 9, 10, 8, 12, 13, 14, 12},
    {0, 1, 0, 1, 4, 5, 6, 7, 8, 9, 8, 9, 12, 13, 14, 15},
    {0, 0, 2, 3, 4, 4, 6, 7, 8, 8, 10, 11, 4, 5, 4, 5},
    {0, 1, 2, 3, 0, 1, 2, 3, 8, 9, 10, 11, 8, 9, 8, 9},
    {0, 3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12, 15, 14, 13},
    {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15},
    {0, 6, 4, 2, 8, 3, 12, 1, 0, 6, 4, 2, 14, 10, 13, 11},
    {12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3},
    {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15},
    {0, 15, 3, 12, 5, 10, 6, 9, 4, 11, 1, 14, 7, 8, 2, 13},
};
// From this pattern on, the second half of each bar of "2 Bars" takes its slices from the other bar.
constexpr int kCrossBarPattern = 7;

// The slice-edge fade, as at the Looper's loop boundary.
constexpr float kFadeStep = 1.0f / 44.0f;
// Gains of the two sides of a "Pong" repeat.
constexpr float kPongFar = 0.35f;

float unit(float value) noexcept {
    if (!(value > 0.0f)) return 0.0f;
    return value < 1.0f ? value : 1.0f;
}

int patternIndex(float value) noexcept {
    return static_cast<int>(static_cast<float>(kPatternCount - 1) * unit(value) + 0.5f);
}

// Filled steps of a fill knob, 0 when off; "Fill 1" spans up to a beat, "Fill 2" up to half a bar.
int fillSteps(float value, int most) noexcept {
    const float v = unit(value);
    if (v <= 0.0f) return 0;
    return std::clamp(static_cast<int>(v * static_cast<float>(most) + 0.5f), 1, most);
}

// Two bars at the slowest tempo and highest rate, and the part of a sixteenth a mid-step start captures
// first.
uint32_t twoBarsAtSlowestTempo() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * 8.25) + 64;
}

uint32_t bit(int slice) {
    return 1u << static_cast<uint32_t>(slice);
}

// One-pole low-pass coefficient for a corner frequency.
double onePole(double hz, double rate) {
    return 1.0 - std::exp(-6.283185307179586 * hz / rate);
}

// The slices in `mask` by falling energy, ties in slice order; returns how many. An insertion sort: a library
// stable sort may allocate, and this runs on the audio thread.
int rank(std::array<int, AFSliceArranger::kMaxSlices>& order,
         const std::array<double, AFSliceArranger::kMaxSlices>& energy, uint32_t mask) {
    int count = 0;
    for (int i = 0; i < AFSliceArranger::kMaxSlices; ++i) {
        if ((mask & bit(i)) == 0) continue;
        int j = count++;
        while (j > 0 && energy[static_cast<std::size_t>(order[static_cast<std::size_t>(j - 1)])] <
                            energy[static_cast<std::size_t>(i)]) {
            order[static_cast<std::size_t>(j)] = order[static_cast<std::size_t>(j - 1)];
            --j;
        }
        order[static_cast<std::size_t>(j)] = i;
    }
    return count;
}

} // namespace

const uint32_t AFSliceArranger::kMaxCapacity = twoBarsAtSlowestTempo();

const AFEffectDescriptor AFSliceArranger::descriptor{.typeId = 17,
                                                     .displayName = "Slicearranger",
                                                     .className = "AFSliceArranger",
                                                     .create = makeEffect<AFSliceArranger>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 16,
                                                     .quantise = 2,
                                                     .slotDefaults = kSlotDefaults};

AFSliceArranger::AFSliceArranger(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), leftBuffer(kMaxCapacity + 2), rightBuffer(kMaxCapacity + 2) {}

AFSliceArranger::~AFSliceArranger() = default;

void AFSliceArranger::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFSliceArranger::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

int32_t AFSliceArranger::activate() noexcept {
    running = true;
    capturing = true;
    availableMask = wholeMask = 0;
    rankedSlices = 0;
    writePosition = 0;
    cycleSteps = pendingSteps = options[3] == 1 ? 2 * kStepsPerBar : kStepsPerBar;
    captureMask = cycleSteps == kMaxSlices ? ~0u : bit(cycleSteps) - 1u;
    lowState = midLowState = midHighState = 0.0;
    lowSum = midSum = 0.0;

    // The slices sit on the song's sixteenths: the step and the bar come from the song position, and a start
    // between two grid lines begins with the rest of that sixteenth.
    const double slice = static_cast<double>(systemInfo->samplesPerBeat) * 0.25;
    double sixteenths = static_cast<double>(systemInfo->ppqPosition) * 4.0;
    if (!(std::fabs(sixteenths) < 1.0e9)) sixteenths = 0.0;
    double whole = std::floor(sixteenths);
    double past = sixteenths - whole;
    if (past * slice < 0.5) past = 0.0;
    if ((1.0 - past) * slice < 0.5) {
        whole += 1.0;
        past = 0.0;
    }
    const auto index = static_cast<int64_t>(whole);
    step = static_cast<int>(((index % cycleSteps) + cycleSteps) % cycleSteps);
    const int64_t bar = (index >= 0 ? index : index - (kStepsPerBar - 1)) / kStepsPerBar;
    cycle = static_cast<uint32_t>(bar & 1);
    partialStep = past > 0.0;
    gridClock = -past * slice;
    cyclePosition = 0;
    upcoming = planFor(step, cycleSteps, cycle, 0, step);
    // The first slice is the input itself, so it joins the dry signal without a fade.
    fadeInCurrent = false;
    beginStep();
    return 1;
}

void AFSliceArranger::deactivate() noexcept {
    running = false;
}

int AFSliceArranger::patternSource(int index, int steps) const noexcept {
    const int local = index % kStepsPerBar;
    const int bar = index / kStepsPerBar;
    const int pattern = patternIndex(parameterValues[0]);
    int barOfSource = bar;
    if (steps > kStepsPerBar && pattern >= kCrossBarPattern && local >= kStepsPerBar / 2)
        barOfSource = 1 - bar;
    return kPatterns[pattern][local] + kStepsPerBar * barOfSource;
}

void AFSliceArranger::applyCharacter(Plan& plan, int index) const noexcept {
    const int ranked = rankedSlices < 4 ? rankedSlices : 4;
    switch (options[0]) {
    case kMoreBass:
        if (ranked > 0) plan.source = bassRank[static_cast<std::size_t>(plan.source % ranked)];
        break;
    case kMoreSnare:
        if (ranked > 0) plan.source = snareRank[static_cast<std::size_t>(plan.source % ranked)];
        break;
    case kPitchDown:
        plan.rate = 0.5f;
        break;
    case kPitchUp:
        // An octave up lasts half the step, so the slice sounds twice.
        plan.rate = 2.0f;
        plan.segments = 2;
        break;
    case kPitchFlip:
        plan.rate = (index & 1) == 0 ? 0.5f : 2.0f;
        plan.segments = (index & 1) == 0 ? 1 : 2;
        break;
    case kReverse:
        plan.reverse = true;
        break;
    default:
        break;
    }
}

AFSliceArranger::Plan AFSliceArranger::planFor(int index, int steps, uint32_t cycleIndex, uint32_t available,
                                               int live) const noexcept {
    Plan plan;
    plan.source = patternSource(index, steps);
    // Only the slices the pattern moves take the character, so "Pattern" sets how much of it is heard.
    if (plan.source != index) applyCharacter(plan, index);

    const int local = index % kStepsPerBar;
    const bool lastBar = index / kStepsPerBar == steps / kStepsPerBar - 1;
    const int fill2 = fillSteps(parameterValues[2], kStepsPerBar / 2);
    const int fill1 = fillSteps(parameterValues[1], kStepsPerBar / 4);
    // "Fill 2" closes every second bar, "Fill 1" every bar; where both reach, the larger wins.
    const bool phraseEnd = lastBar && (steps > kStepsPerBar || (cycleIndex & 1u) == 1u);
    int filled = 0;
    float amount = 0.0f;
    int style = kRepeat;
    if (phraseEnd && fill2 > 0 && local >= kStepsPerBar - fill2) {
        filled = fill2;
        amount = unit(parameterValues[2]);
        style = options[2];
    } else if (fill1 > 0 && local >= kStepsPerBar - fill1) {
        filled = fill1;
        amount = unit(parameterValues[1]);
        style = options[1];
    }
    if (filled > 0) {
        const int j = local - (kStepsPerBar - filled);
        Plan roll;
        roll.source = patternSource(index - j, steps);
        if (options[0] == kMoreBass && rankedSlices > 0) roll.source = bassRank[0];
        if (options[0] == kMoreSnare && rankedSlices > 0) roll.source = snareRank[0];
        // Denser towards the end of the fill: one, two, four, then eight repeats a step.
        const float progress = static_cast<float>(j + 1) / static_cast<float>(filled);
        const int level = std::clamp(static_cast<int>(amount * 4.0f * progress), 0, 3);
        roll.segments = 1 << level;
        switch (style) {
        case kUp:
            roll.rate = std::exp2(progress);
            break;
        case kDown:
            roll.rate = std::exp2(-progress);
            break;
        case kHard:
            roll.gate = 0.5f;
            break;
        case kPong:
            roll.pong = true;
            break;
        case kSoft:
            roll.gain = 0.3f + 0.7f * progress;
            break;
        default:
            break;
        }
        plan = roll;
    }

    const float decay = unit(parameterValues[3]);
    if (decay < 1.0f) {
        plan.gate *= 0.15f + 0.85f * decay;
        plan.slope = 1.0f - decay;
    }
    // While the bar is still being captured, a slice not yet there can only be the one arriving now, heard as
    // it arrives.
    const bool ready =
        (available & bit(plan.source)) != 0 || (plan.source == live && plan.rate <= 1.0f && !plan.reverse);
    if (ready) return plan;
    if (live >= 0) {
        plan.source = live;
        plan.rate = 1.0f;
        plan.reverse = false;
        return plan;
    }
    // A bar captured before "2 Bars" was chosen stands in for the bar that was never captured.
    const int other = plan.source ^ kStepsPerBar;
    plan.source = (available & bit(other)) != 0 ? other : std::countr_zero(available | bit(kMaxSlices - 1));
    return plan;
}

bool AFSliceArranger::continues(const Plan& from, int64_t length, const Plan& to,
                                int64_t toStart) const noexcept {
    const auto plain = [](const Plan& p) {
        return p.segments == 1 && p.rate == 1.0f && !p.reverse && !p.pong && p.gate >= 1.0f &&
               p.slope == 0.0f;
    };
    return plain(from) && plain(to) && from.gain == to.gain && sourceLength(from.source) >= length &&
           sourceStart(from.source) + length == toStart;
}

int64_t AFSliceArranger::sourceStart(int source) const noexcept {
    return sliceStart[static_cast<std::size_t>(source)];
}

int64_t AFSliceArranger::sourceLength(int source) const noexcept {
    return sliceLength[static_cast<std::size_t>(source)];
}

void AFSliceArranger::beginStep() noexcept {
    current = upcoming;
    const double slice = static_cast<double>(systemInfo->samplesPerBeat) * 0.25;
    stepStart = cyclePosition;
    gridClock += slice;
    stepEnd = std::max(stepStart + 1, static_cast<int64_t>(std::llround(gridClock)));
    capturingStep = capturing && (wholeMask & bit(step)) == 0;
    if (capturingStep) {
        sliceStart[static_cast<std::size_t>(step)] = writePosition;
        sliceLength[static_cast<std::size_t>(step)] = stepEnd - stepStart;
    }

    // What the next step will find: this slice done, the capture perhaps complete.
    const bool wrap = step + 1 >= cycleSteps;
    const int nextIndex = wrap ? 0 : step + 1;
    uint32_t nextAvailable = availableMask;
    uint32_t nextWhole = wholeMask;
    if (capturingStep) {
        nextAvailable |= bit(step);
        if (!partialStep) nextWhole |= bit(step);
    }
    const bool nextCapturing = (nextWhole & captureMask) != captureMask;
    // The step count changes only at a bar line, and never while the capture runs.
    if (wrap && !nextCapturing) pendingSteps = options[3] == 1 ? 2 * kStepsPerBar : kStepsPerBar;
    const int nextSteps = wrap ? pendingSteps : cycleSteps;
    const int nextLive = nextCapturing && (nextWhole & bit(nextIndex)) == 0 ? nextIndex : -1;
    upcoming = planFor(nextIndex, nextSteps, wrap ? cycle + 1 : cycle, nextAvailable, nextLive);
    const int64_t nextStart = upcoming.source == nextLive
                                  ? writePosition + (capturingStep ? stepEnd - stepStart : 0)
                                  : sourceStart(upcoming.source);
    const bool seamless = continues(current, stepEnd - stepStart, upcoming, nextStart);
    fadeOutCurrent = !seamless;
    segment = 0;
    beginSegment();
    fadeInCurrent = !seamless;
}

void AFSliceArranger::beginSegment() noexcept {
    const int64_t length = stepEnd - stepStart;
    const int64_t base = length / current.segments;
    const bool last = segment == current.segments - 1;
    segmentLength = last ? length - base * (current.segments - 1) : base;
    segmentPosition = 0;
    readStart = sourceStart(current.source);
    readLength = sourceLength(current.source);
    readRate = current.rate;
    const bool odd = (segment & 1) != 0;
    readReverse = current.reverse != (current.pong && odd && !(capturingStep && current.source == step));
    readPhase = 0.0;
    const auto gated =
        std::max<int64_t>(1, static_cast<int64_t>(static_cast<float>(segmentLength) * current.gate));
    const auto available =
        readLength > 0 ? static_cast<int64_t>(static_cast<double>(readLength - 1) / readRate) + 1 : 0;
    segmentPlayed = std::min({gated, available, segmentLength});
    playedInverse = segmentPlayed > 0 ? 1.0f / static_cast<float>(segmentPlayed) : 0.0f;
    fadeIn = segment > 0 || fadeInCurrent;
    fadeOut = !last || fadeOutCurrent || segmentPlayed < segmentLength;
    gainLeft = current.gain * (current.pong && odd ? kPongFar : 1.0f);
    gainRight = current.gain * (current.pong && !odd ? kPongFar : 1.0f);
}

void AFSliceArranger::finishSlice() noexcept {
    const auto s = static_cast<std::size_t>(step);
    const double inverse = 1.0 / static_cast<double>(std::max<int64_t>(1, sliceLength[s]));
    bassEnergy[s] = lowSum * inverse;
    midEnergy[s] = midSum * inverse;
    lowSum = midSum = 0.0;
    availableMask |= bit(step);
    if (!partialStep) wholeMask |= bit(step);
    partialStep = false;
    capturing = (wholeMask & captureMask) != captureMask;
    rankedSlices = rank(bassRank, bassEnergy, availableMask);
    rank(snareRank, midEnergy, availableMask);
}

void AFSliceArranger::process(float* left, float* right, int count) noexcept {
    if (!running || count <= 0) return;
    float* const bufferLeft = leftBuffer.data() + 1;
    float* const bufferRight = rightBuffer.data() + 1;
    const bool reRecord = options[0] == kReRecord;

    int done = 0;
    while (done < count) {
        const int n = static_cast<int>(std::min<int64_t>(count - done, segmentLength - segmentPosition));
        float* l = left + done;
        float* r = right + done;
        if (capturingStep) {
            std::memcpy(bufferLeft + writePosition, l, static_cast<std::size_t>(n) * sizeof(float));
            std::memcpy(bufferRight + writePosition, r, static_cast<std::size_t>(n) * sizeof(float));
            writePosition += n;
            const double rate = systemInfo->sampleRate;
            const double lowCoefficient = onePole(150.0, rate);
            const double midLowCoefficient = onePole(800.0, rate);
            const double midHighCoefficient = onePole(4000.0, rate);
            for (int i = 0; i < n; ++i) {
                const double mono = 0.5 * (static_cast<double>(l[i]) + r[i]);
                lowState += (mono - lowState) * lowCoefficient;
                midLowState += (mono - midLowState) * midLowCoefficient;
                midHighState += (mono - midHighState) * midHighCoefficient;
                const double mid = midHighState - midLowState;
                lowSum += lowState * lowState;
                midSum += mid * mid;
            }
        }
        // The arranged result goes back over the slice this step stands on, once the capture is complete.
        const bool writeBack = reRecord && !capturing && (availableMask & bit(step)) != 0;
        const int64_t writeBase = writeBack ? sourceStart(step) + (cyclePosition - stepStart) : 0;
        const int64_t writeRoom = writeBack ? sourceLength(step) - (cyclePosition - stepStart) : 0;

        const int64_t played = segmentPlayed;
        const float fadeInStep = fadeIn ? kFadeStep : 2.0f;
        const float fadeOutStep = fadeOut ? kFadeStep : 2.0f;
        const float slope = current.slope * playedInverse;
        const double increment = readRate;
        const int64_t first = readReverse ? readStart + readLength - 1 : readStart;
        const int64_t direction = readReverse ? -1 : 1;
        const int64_t lowest = readStart;
        double phase = readPhase;
        for (int i = 0; i < n; ++i) {
            const int64_t e = segmentPosition + i;
            if (e >= played) {
                // What the gate left out is silence in the re-recorded slice as well.
                if (writeBack && i < writeRoom) bufferLeft[writeBase + i] = bufferRight[writeBase + i] = 0.0f;
                l[i] = 0.0f;
                r[i] = 0.0f;
                continue;
            }
            const auto k = static_cast<int64_t>(phase);
            const auto fraction = static_cast<float>(phase - static_cast<double>(k));
            const int64_t a = first + direction * k;
            const int64_t b = std::max(lowest, a + direction);
            const float vl = bufferLeft[a] + (bufferLeft[b] - bufferLeft[a]) * fraction;
            const float vr = bufferRight[a] + (bufferRight[b] - bufferRight[a]) * fraction;
            const float edge = std::min(
                {1.0f, static_cast<float>(e + 1) * fadeInStep, static_cast<float>(played - e) * fadeOutStep});
            const float shape = edge * (1.0f - slope * static_cast<float>(e));
            if (writeBack && i < writeRoom) {
                bufferLeft[writeBase + i] = vl * edge;
                bufferRight[writeBase + i] = vr * edge;
            }
            l[i] = vl * shape * gainLeft;
            r[i] = vr * shape * gainRight;
            phase += increment;
        }
        readPhase = phase;
        segmentPosition += n;
        cyclePosition += n;
        done += n;

        if (segmentPosition < segmentLength) continue;
        if (segment + 1 < current.segments) {
            ++segment;
            beginSegment();
            continue;
        }
        if (capturingStep) finishSlice();
        if (step + 1 >= cycleSteps) {
            step = 0;
            ++cycle;
            // The bar line falls within half a sample of the exact grid; the rest carries into the next bar.
            gridClock -= static_cast<double>(cyclePosition);
            cyclePosition = 0;
            cycleSteps = pendingSteps;
        } else {
            ++step;
        }
        beginStep();
    }
}

void AFSliceArranger::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0:
        std::snprintf(text, kEffectTextSize, "%d", patternIndex(value) + 1);
        break;
    case 1:
    case 2:
        if (unit(value) <= 0.0f)
            std::snprintf(text, kEffectTextSize, "Off");
        else
            std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    }
}
