#include "effects/delay/AFMetalAmpT.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <type_traits>

namespace {

// Drive from clean to 45 dB; the second stage takes this share of it in dB, the first the rest.
constexpr float kDriveRangeDb = 45.0f;
constexpr float kSecondShare = 0.45f;
// Bias of the first stage, for the even harmonics of a single-ended valve.
constexpr float kBias = 0.25f;
// Tightening high-pass in front of the drive, the top of the cabinet and its low resonance.
constexpr double kTightHz = 110.0;
constexpr float kCabinetHz = 6500.0f;
constexpr double kResonanceHz = 95.0;
constexpr double kResonanceQ = 1.1;
// Tone bands: shelves and a peak where a guitar's body, bite and fizz live.
constexpr double kLowHz = 160.0;
constexpr double kMidHz = 750.0;
constexpr double kMidQ = 0.8;
constexpr double kHighHz = 3000.0;
// The make-up gain brings a nominal input back to its own RMS level at any drive: a Laplace-distributed
// signal, whose many quiet samples and rare peaks are what music looks like to a clipper, at this level.
constexpr double kNominalRms = 0.05;
// The limiter's release per sample at 48 kHz for "HardLimit" and "EvilLimit"; "EvilLimit" drives it 12 dB
// harder.
constexpr float kEvilGain = 4.0f;
constexpr double kHardReleaseMs = 60.0;
constexpr double kEvilReleaseMs = 6.0;

float unitRange(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

// Shelves and peak after the cookbook designs, normalised to a0 = 1: b0, b1, b2, a1, a2.
std::array<float, 5> normalised(double b0, double b1, double b2, double a0, double a1, double a2) {
    return {static_cast<float>(b0 / a0), static_cast<float>(b1 / a0), static_cast<float>(b2 / a0),
            static_cast<float>(a1 / a0), static_cast<float>(a2 / a0)};
}

std::array<float, 5> shelf(bool high, double hz, double db, double rate) {
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * 3.141592653589793 * hz / rate;
    const double cw = std::cos(w);
    const double alpha = std::sin(w) / std::sqrt(2.0); // slope 1
    const double root = 2.0 * std::sqrt(a) * alpha;
    const double s = high ? -1.0 : 1.0;
    return normalised(a * ((a + 1) - s * (a - 1) * cw + root), s * 2 * a * ((a - 1) - s * (a + 1) * cw),
                      a * ((a + 1) - s * (a - 1) * cw - root), (a + 1) + s * (a - 1) * cw + root,
                      -s * 2 * ((a - 1) + s * (a + 1) * cw), (a + 1) + s * (a - 1) * cw - root);
}

std::array<float, 5> peak(double hz, double q, double db, double rate) {
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * 3.141592653589793 * hz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double cw = std::cos(w);
    return normalised(1 + alpha * a, -2 * cw, 1 - alpha * a, 1 + alpha / a, -2 * cw, 1 - alpha / a);
}

std::array<float, 5> highPass(double hz, double q, double rate) {
    const double w = 2.0 * 3.141592653589793 * hz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double cw = std::cos(w);
    return normalised((1 + cw) * 0.5, -(1 + cw), (1 + cw) * 0.5, 1 + alpha, -2 * cw, 1 - alpha);
}

} // namespace

namespace {

constexpr const char* kOption0[] = {"Mono", "Stereo"};
constexpr const char* kOption1[] = {"Normal", "SoftLimit", "HardLimit", "EvilLimit"};

constexpr AFParameterInfo kParameters[] = {{"Drive", 0.5f}, {"Low", 0.5f}, {"Mid", 0.5f}, {"High", 0.5f}};
constexpr AFWords kOptions[] = {kOption0, kOption1};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param1 Knob Amt", 0.8f}, {"Param3 Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFMetalAmpT::descriptor{.typeId = 23,
                                                 .displayName = "Guitar Amp",
                                                 .className = "AFMetalAmpT",
                                                 .create = makeEffect<AFMetalAmpT>,
                                                 .parameters = kParameters,
                                                 .options = kOptions,
                                                 .menuPosition = 11,
                                                 .slotDefaults = kSlotDefaults};

AFMetalAmpT::AFMetalAmpT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {
    // The nominal input through both stages at each whole dB of drive, as quantiles of its distribution: the
    // make-up is its RMS over the output's (without the output's mean, which the cabinet's resonance
    // removes).
    constexpr int kPoints = 256;
    const double scale = kNominalRms / std::sqrt(2.0);
    const double rest = std::tanh(static_cast<double>(kBias));
    for (int db = 0; db < kMakeUpPoints; ++db) {
        const double first = std::pow(10.0, db * (1.0 - kSecondShare) / 20.0);
        const double second = std::pow(10.0, db * kSecondShare / 20.0);
        double sum = 0.0;
        double squares = 0.0;
        for (int i = 0; i < kPoints; ++i) {
            const double p = (i + 0.5) / kPoints;
            const double x = p < 0.5 ? scale * std::log(2.0 * p) : -scale * std::log(2.0 - 2.0 * p);
            const double y = std::tanh(second * (std::tanh(first * x + kBias) - rest));
            sum += y;
            squares += y * y;
        }
        const double mean = sum / kPoints;
        const double rms = std::sqrt(std::max(squares / kPoints - mean * mean, 1e-30));
        makeUp[static_cast<std::size_t>(db)] = static_cast<float>(kNominalRms / rms);
    }
    derive(true);
}

float AFMetalAmpT::driveDb(float value) noexcept {
    return unitRange(value) * kDriveRangeDb;
}

void AFMetalAmpT::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
}

void AFMetalAmpT::derive(bool jump) noexcept {
    const float rate = systemInfo->sampleRate;
    if (rate != appliedRate) {
        appliedRate = rate;
        jump = true;
        for (DriveStage& stage : drives)
            stage.design(rate, kCabinetHz);
        tightCoefficient = static_cast<float>(std::exp(-2.0 * 3.141592653589793 * kTightHz / rate));
    }
    const std::array<float, 4> key{unitRange(parameterValues[1]), unitRange(parameterValues[2]),
                                   unitRange(parameterValues[3]), rate};
    if (key != designedFor) {
        designedFor = key;
        const auto db = [](float v) { return static_cast<double>((v - 0.5f) * 2.0f * kToneRangeDb); };
        const std::array<std::array<float, 5>, kSections> design{
            shelf(false, kLowHz, db(key[0]), rate), peak(kMidHz, kMidQ, db(key[1]), rate),
            shelf(true, kHighHz, db(key[2]), rate), highPass(kResonanceHz, kResonanceQ, rate)};
        for (int lane = 0; lane < 8; ++lane) {
            const auto& c = design[static_cast<std::size_t>(lane % kSections)];
            b0[lane] = c[0];
            b1[lane] = c[1];
            b2[lane] = c[2];
            a1[lane] = c[3];
            a2[lane] = c[4];
        }
    }
    const float drive = driveDb(parameterValues[0]);
    const float firstTarget = std::pow(10.0f, drive * (1.0f - kSecondShare) / 20.0f);
    const float secondTarget = std::pow(10.0f, drive * kSecondShare / 20.0f);
    const float point = std::min(drive, static_cast<float>(kMakeUpPoints - 1) - 0.001f);
    const auto below = static_cast<std::size_t>(point);
    const float levelTarget =
        makeUp[below] + (makeUp[below + 1] - makeUp[below]) * (point - static_cast<float>(below));
    const float perSample = 1.0f / static_cast<float>(std::max(systemInfo->controlInterval, 1));
    if (jump) {
        firstGain = firstTarget;
        secondGain = secondTarget;
        level = levelTarget;
        firstStep = secondStep = levelStep = 0.0f;
    } else {
        firstStep = (firstTarget - firstGain) * perSample;
        secondStep = (secondTarget - secondGain) * perSample;
        levelStep = (levelTarget - level) * perSample;
    }
}

void AFMetalAmpT::controlTick() noexcept {
    derive(false);
}

void AFMetalAmpT::reset() {
    for (DriveStage& stage : drives)
        stage.reset();
    x1 = x2 = y1 = y2 = Lanes{};
    tightIn = tightOut = {};
    envelope = 0.0f;
    derive(true);
}

int32_t AFMetalAmpT::activate() {
    reset();
    return 1;
}

void AFMetalAmpT::tighten(const float* left, const float* right, float* outLeft, float* outRight,
                          int count) noexcept {
    using Pair = float __attribute__((vector_size(8)));
    float gain = firstGain;
    Pair in = {tightIn[0], tightIn[1]};
    Pair out = {tightOut[0], tightOut[1]};
    for (int i = 0; i < count; ++i) {
        gain += firstStep;
        const Pair x = {left[i], right[i]};
        out = tightCoefficient * (out + x - in);
        in = x;
        const Pair y = out * gain;
        outLeft[i] = y[0];
        outRight[i] = y[1];
    }
    tightIn = {in[0], in[1]};
    tightOut = {std::fabs(out[0]) < 1e-20f ? 0.0f : out[0], std::fabs(out[1]) < 1e-20f ? 0.0f : out[1]};
}

LANE_WIDE_CLONES void AFMetalAmpT::shape(float* left, float* right, int count) noexcept {
    using LaneInts = int32_t __attribute__((vector_size(32)));
    const LaneInts section = {0, 1, 2, 3, 0, 1, 2, 3};
    Lanes px1 = x1, px2 = x2, py1 = y1, py2 = y2;
    float gain = level;
    // Step n feeds sample n to the first section and each other section what the one before it gave at step
    // n - 1; the last section gives sample n - 3. Only the first and last three steps have idle lanes, whose
    // state stands still.
    const auto step = [&](int n, auto masked) {
        const Lanes fresh = {n < count ? left[n] : 0.0f, 0.0f, 0.0f, 0.0f, n < count ? right[n] : 0.0f};
        const Lanes x = __builtin_shufflevector(py1, fresh, 8, 0, 1, 2, 12, 4, 5, 6);
        // The terms of the last step go in last, so that the recursion waits on one multiply and two adds.
        const Lanes y = (b1 * px1 + b2 * px2 - a2 * py2) + (b0 * x - a1 * py1);
        if constexpr (decltype(masked)::value) {
            const LaneInts at = n - section;
            const LaneInts on = (at >= 0) & (at < count);
            px2 = on ? px1 : px2;
            px1 = on ? x : px1;
            py2 = on ? py1 : py2;
            py1 = on ? y : py1;
        } else {
            px2 = px1;
            px1 = x;
            py2 = py1;
            py1 = y;
        }
        if (n >= kSections - 1) {
            gain += levelStep;
            left[n - kSections + 1] = y[3] * gain;
            right[n - kSections + 1] = y[7] * gain;
        }
    };
    const int lead = std::min(kSections - 1, count);
    for (int n = 0; n < lead; ++n)
        step(n, std::true_type{});
    for (int n = kSections - 1; n < count; ++n)
        step(n, std::false_type{});
    for (int n = count; n < count + kSections - 1; ++n)
        step(n, std::true_type{});
    level = gain;
    for (Lanes* v : {&px1, &px2, &py1, &py2})
        *v = *v < 1e-20f && *v > -1e-20f ? Lanes{} : *v;
    x1 = px1;
    x2 = px2;
    y1 = py1;
    y2 = py2;
}

void AFMetalAmpT::limit(float* left, float* right, int count) noexcept {
    const int mode = options[1];
    if (mode == 0) return;
    if (mode == 1) {
        // A soft knee that never reaches the ceiling.
        for (float* data : {left, right})
            for (int i = 0; i < count; ++i)
                data[i] = data[i] / std::sqrt(1.0f + data[i] * data[i] * (1.0f / (kCeiling * kCeiling)));
        return;
    }
    // A peak limiter with instant attack on both channels at once, then a clamp at the ceiling.
    const bool evil = mode == 3;
    const float drive = evil ? kEvilGain : 1.0f;
    const double releaseMs = evil ? kEvilReleaseMs : kHardReleaseMs;
    const auto release = static_cast<float>(std::exp(-1000.0 / (releaseMs * appliedRate)));
    float env = envelope;
    for (int i = 0; i < count; ++i) {
        const float l = left[i] * drive;
        const float r = right[i] * drive;
        env = std::max({std::fabs(l), std::fabs(r), env * release});
        const float gain = env > kCeiling ? kCeiling / env : 1.0f;
        left[i] = std::clamp(l * gain, -kCeiling, kCeiling);
        right[i] = std::clamp(r * gain, -kCeiling, kCeiling);
    }
    envelope = env < 1e-20f ? 0.0f : env;
}

void AFMetalAmpT::process(float* left, float* right, int count) noexcept {
    for (int done = 0; done < count;) {
        const int n = std::min(DriveStage::kMaxBlock, count - done);
        float* l = left + done;
        float* r = right + done;
        float raisedLeft[DriveStage::kMaxBlock];
        float raisedRight[DriveStage::kMaxBlock];
        const float overStep = secondStep / DriveStage::kFactor;
        if (options[0] == 0) {
            for (int i = 0; i < n; ++i)
                l[i] = 0.5f * (l[i] + r[i]);
            tighten(l, l, raisedLeft, raisedRight, n);
            drives[0].process(raisedLeft, l, n, secondGain + overStep, overStep, kBias);
            std::copy(l, l + n, r);
        } else {
            tighten(l, r, raisedLeft, raisedRight, n);
            drives[0].process(raisedLeft, l, n, secondGain + overStep, overStep, kBias);
            drives[1].process(raisedRight, r, n, secondGain + overStep, overStep, kBias);
        }
        shape(l, r, n);
        firstGain += firstStep * static_cast<float>(n);
        secondGain += secondStep * static_cast<float>(n);
        limit(l, r, n);
        done += n;
    }
}

void AFMetalAmpT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFMetalAmpT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFMetalAmpT::formatParameter(int index, float value, char* text) {
    if (index == 0) {
        std::snprintf(text, kEffectTextSize, "%2.1f dB", static_cast<double>(driveDb(value)));
        return;
    }
    std::snprintf(text, kEffectTextSize, "%+2.1f dB",
                  static_cast<double>((unitRange(value) - 0.5f) * 2.0f * kToneRangeDb));
}
