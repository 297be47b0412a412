#include "effects/delay/AFMetalAmpT.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

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
// Output level, and the limiter's release per sample at 48 kHz for "HardLimit" and "EvilLimit"; "EvilLimit"
// drives it 12 dB harder.
constexpr float kOutputGain = 0.3f;
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
    derive(true);
}

float AFMetalAmpT::driveDb(float value) noexcept {
    return unitRange(value) * kDriveRangeDb;
}

void AFMetalAmpT::Section::flush() noexcept {
    for (float* v : {&x1, &x2, &y1, &y2})
        *v = std::fabs(*v) < 1e-20f ? 0.0f : *v;
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
        for (Channel& channel : channels)
            channel.drive.design(rate, kCabinetHz);
        tightCoefficient = static_cast<float>(std::exp(-2.0 * 3.141592653589793 * kTightHz / rate));
    }
    const std::array<float, 4> key{unitRange(parameterValues[1]), unitRange(parameterValues[2]),
                                   unitRange(parameterValues[3]), rate};
    if (key != designedFor) {
        designedFor = key;
        const auto db = [](float v) { return static_cast<double>((v - 0.5f) * 2.0f * kToneRangeDb); };
        design[0] = shelf(false, kLowHz, db(key[0]), rate);
        design[1] = peak(kMidHz, kMidQ, db(key[1]), rate);
        design[2] = shelf(true, kHighHz, db(key[2]), rate);
        design[3] = highPass(kResonanceHz, kResonanceQ, rate);
        for (Channel& channel : channels) {
            for (int k = 0; k < kSections; ++k) {
                Section& section = channel.sections[static_cast<std::size_t>(k)];
                const auto& c = design[static_cast<std::size_t>(k)];
                section.b0 = c[0];
                section.b1 = c[1];
                section.b2 = c[2];
                section.a1 = c[3];
                section.a2 = c[4];
            }
        }
    }
    const float drive = driveDb(parameterValues[0]);
    const float firstTarget = std::pow(10.0f, drive * (1.0f - kSecondShare) / 20.0f);
    const float secondTarget = std::pow(10.0f, drive * kSecondShare / 20.0f);
    const float perSample = 1.0f / static_cast<float>(std::max(systemInfo->controlInterval, 1));
    if (jump) {
        firstGain = firstTarget;
        secondGain = secondTarget;
        firstStep = secondStep = 0.0f;
    } else {
        firstStep = (firstTarget - firstGain) * perSample;
        secondStep = (secondTarget - secondGain) * perSample;
    }
}

void AFMetalAmpT::controlTick() noexcept {
    derive(false);
}

void AFMetalAmpT::reset() {
    for (Channel& channel : channels) {
        channel.drive.reset();
        for (Section& section : channel.sections)
            section.x1 = section.x2 = section.y1 = section.y2 = 0.0f;
        channel.tightIn = channel.tightOut = 0.0f;
    }
    envelope = 0.0f;
    derive(true);
}

int32_t AFMetalAmpT::activate() {
    reset();
    return 1;
}

void AFMetalAmpT::drive(Channel& channel, float* data, int count) noexcept {
    float driven[DriveStage::kMaxBlock];
    float gain = firstGain;
    float in = channel.tightIn;
    float out = channel.tightOut;
    for (int i = 0; i < count; ++i) {
        gain += firstStep;
        out = tightCoefficient * (out + data[i] - in);
        in = data[i];
        driven[i] = out * gain;
    }
    channel.tightIn = in;
    channel.tightOut = std::fabs(out) < 1e-20f ? 0.0f : out;
    const float overStep = secondStep / DriveStage::kFactor;
    channel.drive.process(driven, data, count, secondGain + overStep, overStep, kBias);
}

void AFMetalAmpT::shape(Channel& channel, float* data, int count) noexcept {
    auto [low, mid, high, body] = channel.sections;
    for (int i = 0; i < count; ++i)
        data[i] = kOutputGain * body.run(high.run(mid.run(low.run(data[i]))));
    channel.sections = {low, mid, high, body};
    for (Section& section : channel.sections)
        section.flush();
}

void AFMetalAmpT::shapePair(float* left, float* right, int count) noexcept {
    auto [lowL, midL, highL, bodyL] = channels[0].sections;
    auto [lowR, midR, highR, bodyR] = channels[1].sections;
    for (int i = 0; i < count; ++i) {
        left[i] = kOutputGain * bodyL.run(highL.run(midL.run(lowL.run(left[i]))));
        right[i] = kOutputGain * bodyR.run(highR.run(midR.run(lowR.run(right[i]))));
    }
    channels[0].sections = {lowL, midL, highL, bodyL};
    channels[1].sections = {lowR, midR, highR, bodyR};
    for (Channel& channel : channels)
        for (Section& section : channel.sections)
            section.flush();
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
        if (options[0] == 0) {
            for (int i = 0; i < n; ++i)
                l[i] = 0.5f * (l[i] + r[i]);
            drive(channels[0], l, n);
            shape(channels[0], l, n);
            std::copy(l, l + n, r);
        } else {
            drive(channels[0], l, n);
            drive(channels[1], r, n);
            shapePair(l, r, n);
        }
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
