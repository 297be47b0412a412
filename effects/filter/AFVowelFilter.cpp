#include "effects/filter/AFVowelFilter.h"

#include "effects/filter/SvfDampTable.h"
#include "effects/filter/SvfTuneTable.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kModelWords[] = {"Highpass", "Lowpass", "Bandpass", "Comp"};

// Keeps every scalar filter state off the denormal range.
constexpr float kTiny = 1e-18f;

// Comb lines hold 512 samples at 44.1 kHz, scaled with the rate; sized for the highest rate.
inline int combLengthFor(float rate) {
    return static_cast<int>(rate / 44100.0f * 512.0f);
}
const std::size_t kCombCapacity = static_cast<std::size_t>(combLengthFor(AFSystemInfo::kMaxSampleRate));

} // namespace

const std::array<AFVowelFilter::Vowel, AFVowelFilter::kVowels + 1>& AFVowelFilter::vowels() noexcept {
    // The first column is the higher formant for the front vowels: the program's own order.
    static constexpr std::array<Vowel, kVowels + 1> table = {{{"U", 320.0f, 800.0f},
                                                              {"O", 500.0f, 1000.0f},
                                                              {"A:", 700.0f, 1150.0f},
                                                              {"A", 1000.0f, 1400.0f},
                                                              {"OE", 1500.0f, 500.0f},
                                                              {"UE", 1650.0f, 320.0f},
                                                              {"AE", 1800.0f, 700.0f},
                                                              {"E", 2300.0f, 500.0f},
                                                              {"I", 3200.0f, 320.0f},
                                                              {"I", 3200.0f, 320.0f}}};
    return table;
}

void AFVowelFilter::vowelFrequencies(float value, float& f1, float& f2) noexcept {
    const float x = clampUnit(value) * 8.0f;
    const auto lo = static_cast<std::size_t>(static_cast<int>(x + 1e-07f));
    const auto hi = static_cast<std::size_t>(static_cast<int>(x + 0.999999f));
    const float t = x - std::trunc(x);
    const auto& table = vowels();
    f1 = table[lo].f1 + (table[hi].f1 - table[lo].f1) * t;
    f2 = table[lo].f2 + (table[hi].f2 - table[lo].f2) * t;
}

void AFVowelFilter::svfCoefficients(float frequency, float r, float rowCap, float sampleRate, float& f,
                                    float& q) noexcept {
    // Column by truncating x - 0.5, on purpose: the fraction then runs 0.5..1.5 and extrapolates.
    const float x = std::min(std::max(0.0f, frequency) * (20.0f / sampleRate), 11.0f);
    const int column = static_cast<int>(x - 0.5f);
    float frac = x - static_cast<float>(column);
    if (column >= 10) frac = 0.0f;
    const int c = std::clamp(column, 0, 10);
    const float rr = std::min(clampUnit(r), rowCap);
    const float y = rr * 10.0f;
    const int row = static_cast<int>(y - 0.5f);
    const float fr = y - static_cast<float>(row);
    const int base = row * 11;
    const int i00 = base + c;
    const int i01 = base + c + 1;
    const int i10 = std::clamp(base + c + 11, 0, 120);
    const int i11 = std::clamp(base + c + 12, 0, 120);
    const float w00 = (1.0f - frac) * (1.0f - fr);
    const float w01 = frac * (1.0f - fr);
    const float w10 = (1.0f - frac) * fr;
    const float w11 = frac * fr;
    f = w00 * SvfTuneTable::at(i00).value + w01 * SvfTuneTable::at(i01).value +
        w10 * SvfTuneTable::at(i10).value + w11 * SvfTuneTable::at(i11).value;
    q = w00 * SvfDampTable::at(i00).value + w01 * SvfDampTable::at(i01).value +
        w10 * SvfDampTable::at(i10).value + w11 * SvfDampTable::at(i11).value;
}

namespace {

constexpr AFParameterInfo kParameters[] = {
    {"Vowel A", 0.1099f}, {"Vowel B", 1.0f}, {"Vowel Mix", 0.7299f}, {"Resonance", 1.0f}};
constexpr AFWords kOptions[] = {kModelWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Parameter 3", 0.0f}, {"Param3 Knob Amt", 0.99f}};

} // namespace

const AFEffectDescriptor AFVowelFilter::descriptor{.typeId = 18,
                                                   .displayName = "Vowel Filter",
                                                   .className = "Vowelfilter",
                                                   .create = makeEffect<AFVowelFilter>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 22,
                                                   .slotDefaults = kSlotDefaults};

AFVowelFilter::AFVowelFilter(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {
    SvfTuneTable::entries();
    SvfDampTable::entries();
    for (auto& line : combLines)
        line.assign(kCombCapacity, 0.0f);
    vowelFrequencies(parameterValues[0], f1A, f2A);
    vowelFrequencies(parameterValues[1], f1B, f2B);
    resonance = std::pow(clampUnit(parameterValues[3]), 0.84f);
    mix = mixTarget = parameterValues[2];
    deriveRate();
    updateFormants();
}

void AFVowelFilter::deriveRate() noexcept {
    rate = systemInfo->sampleRate;
    bandLow = rate * 4.0690105e-05f;
    bandHigh = rate * 0.47058824f;
    omegaPerHz = 6.28319f / rate;
    samplesPerMs = rate * 0.001f;
    const float w = 3.14159f / rate * std::min(rate, 6000.0f);
    // Not the tangent series: the last factor is the sound's own.
    lpT = w + 0.333333f * w * w * w + 1.333333f * w * w * w * w * w;
    lpInverse = 1.0f / (lpT + 1.0f);
    combLength = std::clamp(combLengthFor(rate), 1, static_cast<int>(kCombCapacity));
    for (auto& line : combLines)
        std::fill(line.begin(), line.begin() + combLength, 0.0f);
    if (combWrite >= combLength) combWrite = 0;
    dirty = true;
}

void AFVowelFilter::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        vowelFrequencies(value, f1A, f2A);
        updateFormants();
        break;
    case 1:
        vowelFrequencies(value, f1B, f2B);
        updateFormants();
        break;
    case 3:
        resonance = std::pow(clampUnit(value), 0.84f);
        dirty = true;
        break;
    default:
        break;
    }
}

void AFVowelFilter::setOption(int index, int32_t value) {
    if (index != 0) return;
    const int32_t v = clampOption(value, kModelWords);
    model = v == 3 ? Comp : v;
}

int32_t AFVowelFilter::getOption(int index) {
    return index == 0 ? model : 0;
}

void AFVowelFilter::getParameterWords(int index, AFWordList& list) {
    if (index != 0 && index != 1) return;
    for (int i = 0; i < kVowels; ++i)
        list.emplace_back(vowels()[static_cast<std::size_t>(i)].word);
}

void AFVowelFilter::updateFormants() noexcept {
    dirty = false;
    const int32_t m = model;
    appliedModel = m;
    formant1 = f1A + (f1B - f1A) * mix;
    formant2 = f2A + (f2B - f2A) * mix;
    const std::array<float, 2> formants{formant1, formant2};
    switch (m) {
    case Highpass:
    case Bandpass: {
        const float cap = m == Highpass ? 0.96f : 0.8f;
        for (std::size_t i = 0; i < 2; ++i)
            svfCoefficients(formants[i], resonance, cap, rate, svfF[i], svfQ[i]);
        break;
    }
    case Lowpass:
        for (std::size_t i = 0; i < 2; ++i) {
            const float w = std::clamp(formants[i], bandLow, bandHigh) * omegaPerHz;
            const float s = std::sin(w);
            const float c = std::sin(w + 1.5707965f);
            const float alpha = s * (1.0f - resonance * 0.98f);
            const float inv = 1.0f / (1.0f + alpha);
            peakB0[i] = 0.5f * s * inv;
            peakB2[i] = -0.5f * s * inv;
            peakA1[i] = 2.0f * c * inv;
            peakA2[i] = -(1.0f - alpha) * inv;
        }
        break;
    default:
        for (std::size_t i = 0; i < 2; ++i)
            combDelay[i] = std::min(500.0f / std::max(formants[i], 45.0f) * samplesPerMs,
                                    static_cast<float>(combLength - 1));
        combFeedback = -resonance;
        break;
    }
}

void AFVowelFilter::controlTick() noexcept {
    if (systemInfo->sampleRate != rate) deriveRate();
    const float value = clampUnit(parameterValues[2]);
    if (value != mixTarget) {
        mixTarget = value;
        mixCount = systemInfo->sampleRate * 0.001f / std::max(systemInfo->controlRate, 1.0f) * kMixRampMs;
        if (mixCount <= 0.0f) mixCount = 1.0f;
        mixStep = -(value - mix) / mixCount;
    }
    if (mixTarget != mix) {
        mixCount -= 1.0f;
        mix -= mixStep;
        if (mixCount <= 0.0f) {
            mix = mixTarget;
            mixStep = 0.0f;
        }
        dirty = true;
    }
    if (dirty || appliedModel != model) updateFormants();
}

namespace {

// Four filters side by side: left formant 1, left formant 2, right formant 1, right formant 2. Each lane does
// exactly the scalar arithmetic of its own filter.
using Lanes = float __attribute__((vector_size(16)));

struct SvfLanes {
    Lanes band;
    Lanes low;
    Lanes high;
};

inline Lanes svfLanes(SvfLanes& s, Lanes x, Lanes f, Lanes q) {
    const Lanes b = s.high * f + s.band;
    s.band = b + kTiny;
    const Lanes l = s.band * f + s.low;
    s.low = l + kTiny;
    s.high = x - (s.band * q + s.low);
    return b;
}

} // namespace

void AFVowelFilter::runHighpass(float* left, float* right, int count) noexcept {
    const Lanes f = {svfF[0], svfF[1], svfF[0], svfF[1]};
    const Lanes q = {svfQ[0], svfQ[1], svfQ[0], svfQ[1]};
    const auto& h = highpassSvf;
    SvfLanes s = {{h[0].band, h[1].band, h[2].band, h[3].band},
                  {h[0].low, h[1].low, h[2].low, h[3].low},
                  {h[0].high, h[1].high, h[2].high, h[3].high}};
    for (int i = 0; i < count; ++i) {
        const Lanes x = {left[i], left[i], right[i], right[i]};
        const Lanes band = svfLanes(s, x, f, q);
        // The first formant speaks through its high output, the second through its band output.
        left[i] = (s.high[0] + band[1]) * kOutputGain;
        right[i] = (s.high[2] + band[3]) * kOutputGain;
    }
    for (std::size_t k = 0; k < 4; ++k)
        highpassSvf[k] = {s.band[k], s.low[k], s.high[k]};
}

void AFVowelFilter::runBandpass(float* left, float* right, int count) noexcept {
    const Lanes f = {svfF[0], svfF[1], svfF[0], svfF[1]};
    const Lanes q = {svfQ[0], svfQ[1], svfQ[0], svfQ[1]};
    // bandpassSvf holds (channel * 2 + formant) * 2 + stage.
    const auto& h = bandpassSvf;
    SvfLanes first = {{h[0].band, h[2].band, h[4].band, h[6].band},
                      {h[0].low, h[2].low, h[4].low, h[6].low},
                      {h[0].high, h[2].high, h[4].high, h[6].high}};
    SvfLanes second = {{h[1].band, h[3].band, h[5].band, h[7].band},
                       {h[1].low, h[3].low, h[5].low, h[7].low},
                       {h[1].high, h[3].high, h[5].high, h[7].high}};
    for (int i = 0; i < count; ++i) {
        const Lanes x = {left[i], left[i], right[i], right[i]};
        const Lanes out = svfLanes(second, svfLanes(first, x, f, q), f, q);
        left[i] = (out[0] + out[1]) * kOutputGain;
        right[i] = (out[2] + out[3]) * kOutputGain;
    }
    for (std::size_t k = 0; k < 4; ++k) {
        bandpassSvf[k * 2] = {first.band[k], first.low[k], first.high[k]};
        bandpassSvf[k * 2 + 1] = {second.band[k], second.low[k], second.high[k]};
    }
}

void AFVowelFilter::runLowpass(float* left, float* right, int count) noexcept {
    const std::array<float, 2> b0 = peakB0, b2 = peakB2, a1 = peakA1, a2 = peakA2;
    std::array<Peak, 4> p = peaks;
    std::array<float, 2> x1 = inputX1, x2 = inputX2;
    for (int i = 0; i < count; ++i) {
        for (std::size_t ch = 0; ch < 2; ++ch) {
            float* const data = ch == 0 ? left : right;
            const float x = data[i];
            float sum = 0.0f;
            for (std::size_t k = 0; k < 2; ++k) {
                Peak& s = p[ch * 2 + k];
                const float y = x * b0[k] + x2[ch] * b2[k] + (s.y1 + kTiny) * a1[k] + s.y2 * a2[k];
                s.y2 = s.y1;
                s.y1 = y;
                sum += y;
            }
            x2[ch] = x1[ch];
            x1[ch] = x;
            data[i] = sum * kOutputGain;
        }
    }
    peaks = p;
    inputX1 = x1;
    inputX2 = x2;
}

void AFVowelFilter::runComp(float* left, float* right, int count) noexcept {
    const float fb = combFeedback;
    const float t = lpT;
    const float tMinus = lpT - 1.0f;
    const float inv = lpInverse;
    const int length = combLength;
    const float d0 = combDelay[0];
    const float d1 = combDelay[1];
    float* __restrict const lineL0 = combLines[0].data();
    float* __restrict const lineL1 = combLines[1].data();
    float* __restrict const lineR0 = combLines[2].data();
    float* __restrict const lineR1 = combLines[3].data();
    Comb cl0 = combs[0], cl1 = combs[1], cr0 = combs[2], cr1 = combs[3];
    const auto step = [&](Comb& c, float* __restrict line, float x, int w, float d) {
        // The shaper peaks at |a| = 2 and returns to 0 at |a| = 4; past that it would turn over and grow with
        // the square, and a hot input would run the feedback away to infinity. Held at 4, it stays as it is
        // wherever it has a shape and gives silence beyond.
        const float a = std::clamp(c.out * fb + x, -4.0f, 4.0f);
        const float b = (1.0f - std::fabs(a) * 0.25f) * a;
        line[w] = b + kTiny;
        int read = static_cast<int>(static_cast<float>(w) - d);
        if (read < 0) read += length;
        const float y = (line[read] - tMinus * c.lp) * inv;
        c.out = (y + c.lp) * t;
        c.lp = y;
        return c.out;
    };
    int w = combWrite;
    for (int i = 0; i < count; ++i) {
        const float xl = left[i];
        const float xr = right[i];
        const float l = step(cl0, lineL0, xl, w, d0) + step(cl1, lineL1, xl, w, d1);
        const float r = step(cr0, lineR0, xr, w, d0) + step(cr1, lineR1, xr, w, d1);
        left[i] = l * kOutputGain;
        right[i] = r * kOutputGain;
        w = w + 1 == length ? 0 : w + 1;
    }
    combs = {cl0, cl1, cr0, cr1};
    combWrite = w;
}

void AFVowelFilter::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    switch (appliedModel) {
    case Highpass:
        runHighpass(left, right, count);
        break;
    case Lowpass:
        runLowpass(left, right, count);
        break;
    case Bandpass:
        runBandpass(left, right, count);
        break;
    default:
        runComp(left, right, count);
        break;
    }
}

void AFVowelFilter::formatParameter(int index, float value, char* text) {
    if (index == 0 || index == 1) {
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): the display's truncating +0.5
        const int i = std::clamp(static_cast<int>(clampUnit(value) * 8.0f + 0.5f), 0, kVowels - 1);
        std::snprintf(text, kEffectTextSize, "%s", vowels()[static_cast<std::size_t>(i)].word);
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
