#include "effects/delay/AFReverbHQ.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kChunk = 64;
// Rings in powers of two, so reads wrap by a mask; sized for the longest line at the highest rate.
constexpr int kLineSize = 32768;
// Each ring and its guard sample, the rings spaced off the power of two (by 273 samples, a little over four
// cache lines) so that lines written at the same place do not fall into the same cache sets; the diffusers'
// rings likewise.
constexpr int kLineStride = kLineSize + 273;
constexpr int kDiffuserSize = 4096;
constexpr int kDiffuserMask = kDiffuserSize - 1;
constexpr int kDiffuserStride = kDiffuserSize + 80;

// Line lengths at "Size" 1/5 of the way, in ms: spread over more than an octave, no two in a simple ratio.
constexpr std::array<float, AFReverbHQ::kLines> kLineMs{23.0f, 24.9f, 26.7f, 28.3f, 30.4f, 32.3f,
                                                        34.1f, 36.7f, 39.1f, 41.3f, 44.2f, 47.0f,
                                                        50.3f, 54.1f, 58.3f, 63.9f};
constexpr float kSmallestScale = 0.4f;
constexpr float kScaleRange = 0.9f;
// Slow drift of each line: depth in ms and rates in Hz, different for every line.
constexpr float kWobbleMs = 0.5f;
constexpr std::array<float, AFReverbHQ::kLines> kWobbleHz{0.13f, 0.71f, 0.29f, 0.53f, 0.19f, 0.83f,
                                                          0.37f, 0.61f, 0.23f, 0.91f, 0.43f, 0.67f,
                                                          0.17f, 0.47f, 0.79f, 0.31f};
// A size change moves a line by at most this many samples per sample, a pitch glide of about a third of a
// semitone.
constexpr float kMaxGlide = 0.02f;
// Input diffusers, left and right, in ms, and their allpass gains.
constexpr std::array<std::array<float, AFReverbHQ::kDiffusers>, 2> kDiffuserMs{{
    {0.71f, 1.13f, 1.79f, 2.41f, 3.1f, 4.7f, 7.9f, 11.3f},
    {0.77f, 1.21f, 1.63f, 2.57f, 3.3f, 5.1f, 7.3f, 10.7f},
}};
constexpr std::array<float, AFReverbHQ::kDiffusers> kDiffuserGain{0.7f,  0.7f, 0.7f,  0.7f,
                                                                  0.72f, 0.7f, 0.64f, 0.62f};
static_assert(kDiffuserSize > 11.3f * AFSystemInfo::kMaxSampleRate / 1000.0f + 2.0f);
static_assert(kLineSize > 63.9f * (kSmallestScale + kScaleRange) * AFSystemInfo::kMaxSampleRate / 1000.0f +
                              kWobbleMs * AFSystemInfo::kMaxSampleRate / 1000.0f + 4.0f);

// The decay at the top of the band is this share of the low band's at "Reflectivity" 0, all of it at 1; the
// low band's time holds exactly at the reference frequency.
constexpr float kDarkestRatio = 0.1f;
constexpr double kReferenceHz = 700.0;
// The shown time is the full band's. The treble always dies sooner than the low band (the damping, and the
// reads between samples of the drifting lines), and a white impulse's energy is mostly treble, so the low
// band rings this much longer than shown; the full band and the mid band then both land within a few percent.
constexpr float kLowBandStretch = 1.075f;
// No diffuser rings longer than this share of the shown time, or the shortest tails would be its own.
constexpr float kDiffuserShare = 0.2f;
// Send, the share of the diffused input heard at once, and the level of the network's rows.
constexpr float kSendTrim = 1.0f;
constexpr float kEarlyLevel = 0.5f;
constexpr float kLateLevel = 0.6f;
// Keeps every recursion out of the denormal range in silence: about -300 dB.
constexpr float kFloor = 1e-15f;
// Cutoff of the resonant input colours, and its resonance.
constexpr float kColourResonance = 0.6f;
constexpr std::array<float, 6> kHighPassHz{200.0f, 400.0f, 600.0f, 800.0f, 1000.0f, 2000.0f};

float unitRange(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

using Lanes = float __attribute__((vector_size(32)));
using LaneInts = int32_t __attribute__((vector_size(32)));

// 2^x for x <= 0 on eight lanes, in place (by reference: a 32-byte vector by value would change the calling
// convention with AVX), relative error under 2e-7: the control-rate gains of all sixteen lines at
// once, cheap enough to follow a modulated knob every tick.
void exp2Lanes(Lanes& x) noexcept {
    x = x < -126.0f ? Lanes{} - 126.0f : x;
    const LaneInts truncated = __builtin_convertvector(x, LaneInts);
    // Truncation rounds a negative value up; a true comparison is -1, which brings it down to the floor.
    const LaneInts whole = truncated + (__builtin_convertvector(truncated, Lanes) > x);
    const Lanes y = (x - __builtin_convertvector(whole, Lanes)) * 0.6931472f;
    Lanes p = Lanes{} + 1.0f / 5040.0f;
    p = p * y + 1.0f / 720.0f;
    p = p * y + 1.0f / 120.0f;
    p = p * y + 1.0f / 24.0f;
    p = p * y + 1.0f / 6.0f;
    p = p * y + 0.5f;
    p = p * y + 1.0f;
    p = p * y + 1.0f;
    const LaneInts bits = (whole + 127) << 23;
    Lanes scale;
    std::memcpy(&scale, &bits, sizeof(scale));
    x = p * scale;
}

} // namespace

namespace {

constexpr const char* kOption2[] = {"Clean",  "HP200", "HP400", "HP600", "HP800", "HP1000",
                                    "HP2000", "HP+",   "Comb+", "BP+",   "LP+"};

constexpr AFParameterInfo kParameters[] = {
    {"Size", 0.5f}, {"Reverb Time", 0.5f}, {"Reflectivity", 0.5f}, {"Input", 0.5f}};
constexpr AFWords kOptions[] = {AFWords{}, AFWords{}, kOption2};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.2f}, {"DryWet Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFReverbHQ::descriptor{.typeId = 13,
                                                .displayName = "Reverb",
                                                .className = "AFReverbHQ",
                                                .create = makeEffect<AFReverbHQ>,
                                                .parameters = kParameters,
                                                .options = kOptions,
                                                .menuPosition = 6,
                                                .slotDefaults = kSlotDefaults};

AFReverbHQ::AFReverbHQ(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), lineStore(static_cast<std::size_t>(kLines) * kLineStride),
      diffuserStore(static_cast<std::size_t>(2 * kDiffusers) * kDiffuserStride), colourFilter(system) {

    for (int ch = 0; ch < 2; ++ch)
        for (int k = 0; k < kDiffusers; ++k)
            diffusers[ch][k] = {(ch * kDiffusers + k) * kDiffuserStride, 2, kDiffuserGain[k]};
    // The drifts start spread round the circle, by the golden angle.
    for (int k = 0; k < kLines; ++k) {
        const double phase = 2.399963229728653 * k;
        wobbleCos[k / 8][k % 8] = static_cast<float>(std::cos(phase));
        wobbleSin[k / 8][k % 8] = static_cast<float>(std::sin(phase));
    }
    derive(true);
}

float AFReverbHQ::reverbTimeSeconds(float value) noexcept {
    return kShortestTime * std::pow(kLongestTime / kShortestTime, unitRange(value));
}

void AFReverbHQ::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
}

void AFReverbHQ::derive(bool jump) noexcept {
    const float rate = systemInfo->sampleRate;
    const int interval = std::max(systemInfo->controlInterval, 1);
    if (rate != appliedRate || interval != appliedInterval) {
        appliedRate = rate;
        appliedInterval = interval;
        jump = true;
        // The rings in use are the shortest power of two that holds the longest line at this rate, so that
        // starting the effect clears no more than it must.
        const float longest =
            (kLineMs.back() * (kSmallestScale + kScaleRange) + kWobbleMs) * rate * 0.001f + 4.0f;
        lineMask = 1;
        while (static_cast<float>(lineMask) < longest)
            lineMask = lineMask * 2 + 1;
        lineWrite &= lineMask;
        for (int ch = 0; ch < 2; ++ch)
            for (int k = 0; k < kDiffusers; ++k)
                diffusers[ch][k].delay =
                    std::max(1, static_cast<int>(std::lround(kDiffuserMs[ch][k] * rate * 0.001f)));
        const double pi = 3.141592653589793;
        referenceCos = static_cast<float>(std::cos(2.0 * pi * kReferenceHz / rate));
        for (int k = 0; k < kLines; ++k) {
            const double turn = 2.0 * pi * kWobbleHz[k] * interval / rate;
            turnCos[k / 8][k % 8] = static_cast<float>(std::cos(turn));
            turnSin[k / 8][k % 8] = static_cast<float>(std::sin(turn));
        }
    }

    const float size = unitRange(parameterValues[0]);
    const float time = unitRange(parameterValues[1]);
    const float reflectivity = unitRange(parameterValues[2]);
    const float samplesPerMs = rate * 0.001f;
    const float scale = (kSmallestScale + kScaleRange * size) * samplesPerMs;
    const float depth = kWobbleMs * samplesPerMs;
    const float perSample = 1.0f / static_cast<float>(interval);
    std::array<Lanes, 2> length{};
    for (int h = 0; h < 2; ++h) {
        Lanes ms;
        std::memcpy(&ms, kLineMs.data() + 8 * h, sizeof(ms));
        length[h] = ms * scale;
        // Turn the drift phasors, pulling their radius back to 1 so rounding never grows it.
        const Lanes c = wobbleCos[h] * turnCos[h] - wobbleSin[h] * turnSin[h];
        const Lanes s = wobbleSin[h] * turnCos[h] + wobbleCos[h] * turnSin[h];
        const Lanes radius = 1.5f - 0.5f * (c * c + s * s);
        wobbleCos[h] = c * radius;
        wobbleSin[h] = s * radius;
        // Only the even lines drift; the odd ones sit on whole samples, where reading between two samples
        // costs no treble.
        const Lanes drift = Lanes{1, 0, 1, 0, 1, 0, 1, 0} * depth;
        // Lengths are positive, so truncation rounds them down.
        const Lanes whole =
            __builtin_convertvector(__builtin_convertvector(length[h] + 0.5f, LaneInts), Lanes);
        const Lanes target = Lanes{0, 1, 0, 1, 0, 1, 0, 1} * whole +
                             Lanes{1, 0, 1, 0, 1, 0, 1, 0} * length[h] + drift * wobbleSin[h];
        if (jump) {
            delay[h] = target;
            delayStep[h] = Lanes{};
        } else {
            const Lanes step = (target - delay[h]) * perSample;
            delayStep[h] =
                step > kMaxGlide ? Lanes{} + kMaxGlide : (step < -kMaxGlide ? Lanes{} - kMaxGlide : step);
        }
    }

    if (jump || gainKey != std::array<float, 3>{size, time, reflectivity}) {
        gainKey = {size, time, reflectivity};
        const float shown = reverbTimeSeconds(time);
        const float seconds = shown * kLowBandStretch;
        const float highSeconds = seconds * (kDarkestRatio + (1.0f - kDarkestRatio) * reflectivity);
        // 60 dB over the decay time: log2 of the gain per sample of delay.
        constexpr float kLog2Of60dB = -9.965784f;
        const float perSampleLow = kLog2Of60dB / (seconds * rate);
        const float perSampleHigh = kLog2Of60dB / (highSeconds * rate);
        for (int h = 0; h < 2; ++h) {
            Lanes g = length[h] * perSampleLow;
            Lanes gh = length[h] * perSampleHigh;
            exp2Lanes(g);
            exp2Lanes(gh);
            // Taps e, c, e give c + 2e cos w: gh at Nyquist and g at the reference frequency. The Hadamard
            // mix is unscaled; its 1/4 rides on the taps.
            const Lanes edge = (g - gh) / (2.0f * (1.0f + referenceCos));
            const Lanes centre = gh + 2.0f * edge;
            for (int k = 0; k < 8; ++k) {
                edgeTap[static_cast<std::size_t>(8 * h + k)] = 0.25f * edge[k];
                centreTap[static_cast<std::size_t>(8 * h + k)] = 0.25f * centre[k];
            }
        }
        // An allpass of gain g over d samples falls by g each pass: 60 dB in d log(0.001) / log(g) samples.
        const float perSampleDiffuser = kLog2Of60dB / (kDiffuserShare * shown * rate);
        for (auto& side : diffusers) {
            Lanes cap;
            for (int k = 0; k < kDiffusers; ++k)
                cap[k] = perSampleDiffuser * static_cast<float>(side[static_cast<std::size_t>(k)].delay);
            exp2Lanes(cap);
            for (int k = 0; k < kDiffusers; ++k)
                side[static_cast<std::size_t>(k)].gain =
                    std::min(kDiffuserGain[static_cast<std::size_t>(k)], cap[k]);
        }
    }

    // A block may not read what it writes: it stays shorter than the shortest line, allowing for the glide.
    float shortest = 1e9f;
    for (int h = 0; h < 2; ++h)
        for (int k = 0; k < 8; ++k)
            shortest = std::min(shortest, delay[h][k]);
    longestRun = std::clamp(static_cast<int>(shortest) - 4, 1, kChunk);

    const float sendTarget = unitRange(parameterValues[3]) * kSendTrim;
    if (jump) {
        send = sendTarget;
        sendStep = 0.0f;
    } else {
        sendStep = (sendTarget - send) * perSample;
    }

    const int option = options[2];
    if (option >= 1 && option <= 6) {
        const float hz = kHighPassHz[static_cast<std::size_t>(option - 1)];
        highPassLeft.set(BiquadStage::HighPass, hz, 0.7071f, rate, interval, jump);
        highPassRight.set(BiquadStage::HighPass, hz, 0.7071f, rate, interval, jump);
    } else if (option >= 7) {
        constexpr std::array<int, 4> kColourModes{AFDirectFilter::Highpass, AFDirectFilter::Comb,
                                                  AFDirectFilter::Bandpass, AFDirectFilter::Lowpass};
        const int mode = kColourModes[static_cast<std::size_t>(option - 7)];
        if (jump)
            colourFilter.reset(mode, reflectivity, kColourResonance);
        else
            colourFilter.set(mode, reflectivity, kColourResonance);
    }
}

void AFReverbHQ::controlTick() noexcept {
    derive(false);
}

void AFReverbHQ::reset() {
    lineWrite = 0;
    diffuserWrite = 0;
    appliedRate = 0.0f;
    derive(true);
    for (int k = 0; k < kLines; ++k) {
        float* ring = lineStore.data() + static_cast<std::size_t>(k) * kLineStride;
        std::memset(ring, 0, sizeof(float) * static_cast<std::size_t>(lineMask + 2));
    }
    diffuserStore.clear();
    lossHistory = {};
}

int32_t AFReverbHQ::activate() {
    reset();
    return 1;
}

void AFReverbHQ::deactivate() {
    reset();
}

void AFReverbHQ::process(float* left, float* right, int count) noexcept {
    for (int done = 0; done < count;) {
        const int n = std::min(longestRun, count - done);
        float* l = left + done;
        float* r = right + done;
        float inLeft[kChunk];
        float inRight[kChunk];
        // The send's ramp from its start, so that the samples do not wait on one another.
        const float start = send;
        const float step = sendStep;
        for (int i = 0; i < n; ++i) {
            const float gain = start + static_cast<float>(i + 1) * step;
            inLeft[i] = l[i] * gain + kFloor;
            inRight[i] = r[i] * gain + kFloor;
        }
        send = start + static_cast<float>(n) * step;
        filterInput(inLeft, inRight, n);
        diffuse(0, inLeft, n);
        diffuse(1, inRight, n);
        diffuserWrite = (diffuserWrite + n) & kDiffuserMask;
        runNetwork(l, r, inLeft, inRight, n);
        done += n;
    }
}

void AFReverbHQ::filterInput(float* left, float* right, int count) noexcept {
    const int option = options[2];
    if (option >= 1 && option <= 6) {
        BiquadStage::processPairTwoStep(highPassLeft, left, highPassRight, right, count);
    } else if (option >= 7) {
        constexpr std::array<int, 4> kColourModes{AFDirectFilter::Highpass, AFDirectFilter::Comb,
                                                  AFDirectFilter::Bandpass, AFDirectFilter::Lowpass};
        colourFilter.processStereo(kColourModes[static_cast<std::size_t>(option - 7)], left, right, count);
    }
}

// Each allpass stage runs over the whole chunk in pieces that neither wrap nor read what the same piece
// writes, so the loop has no recursion and runs in vector lanes.
LANE_WIDE_CLONES void AFReverbHQ::diffuse(int channel, float* data, int count) noexcept {
    for (const Diffuser& stage : diffusers[static_cast<std::size_t>(channel)]) {
        float* ring = diffuserStore.data() + stage.offset;
        const float g = stage.gain;
        int write = diffuserWrite;
        for (int done = 0; done < count;) {
            const int read = (write - stage.delay) & kDiffuserMask;
            const int n = std::min({count - done, stage.delay, kDiffuserSize - read, kDiffuserSize - write});
            const float* __restrict from = ring + read;
            float* __restrict to = ring + write;
            float* __restrict x = data + done;
            for (int i = 0; i < n; ++i) {
                const float o = from[i];
                const float v = x[i] + g * o;
                to[i] = v;
                x[i] = o - g * v;
            }
            write = (write + n) & kDiffuserMask;
            done += n;
        }
    }
}

// Over the whole block, each loop running in vector lanes: read every line at its delay, filter its loss and
// mix the lines eight samples at a time, take the outputs, add the input and write the lines back.
// The short copies stay loops: a library call costs more than these few samples.
LANE_WIDE_CLONES __attribute__((optimize("no-tree-loop-distribute-patterns"))) void
AFReverbHQ::runNetwork(float* left, float* right, const float* inLeft, const float* inRight,
                       int count) noexcept {
    // Two samples of filter history ahead of each line's block, and room for a whole vector past it.
    alignas(32) float taps[kLines][kChunk + 2 + 8];
    alignas(32) float mixed[kLines][kChunk];
    const int padded = (count + 7) & ~7;
    const int w = lineWrite;
    for (int k = 0; k < kLines; ++k) {
        float* ring = lineStore.data() + static_cast<std::size_t>(k) * kLineStride;
        float* out = taps[k] + 2;
        const float d0 = delay[static_cast<std::size_t>(k / 8)][k % 8];
        const float step = delayStep[static_cast<std::size_t>(k / 8)][k % 8];
        // Runs over which the whole part of the delay stands and the ring does not wrap: there a sample and
        // its older neighbour are two straight reads.
        for (int n = 0; n < count;) {
            const float u = d0 + static_cast<float>(n + 1) * step;
            const float whole = std::floor(u);
            // Where the whole part next changes, worked out in floats so that a tiny step cannot overflow.
            float next = static_cast<float>(count);
            if (step > 0.0f)
                next = std::ceil((whole + 1.0f - d0) / step - 1.0f);
            else if (step < 0.0f)
                next = std::floor((whole - d0) / step - 1.0f) + 1.0f;
            const int older = (w + n - static_cast<int>(whole) - 1) & lineMask;
            // The ring's guard sample past its end repeats its first, so a pair may start on the last sample.
            const int last = std::min(count, n + lineMask + 1 - older);
            const int end =
                static_cast<int>(std::clamp(next, static_cast<float>(n + 1), static_cast<float>(last)));
            const float* __restrict from = ring + older;
            float* __restrict to = out + n;
            const float start = d0 - whole;
            if (step == 0.0f && start == 0.0f) {
                // A line standing on a whole sample: the read is a copy, in whole vectors. The last may
                // run past the run's end (into the ring's margin, onto taps the next run or the zeros
                // overwrite).
                for (int i = 0; i < end - n; i += 8) {
                    Lanes v;
                    std::memcpy(&v, from + 1 + i, sizeof v);
                    std::memcpy(to + i, &v, sizeof v);
                }
                n = end;
                continue;
            }
            for (int i = 0; i < end - n; ++i) {
                const float a = from[i + 1];
                const float fraction = start + static_cast<float>(n + i + 1) * step;
                to[i] = a + (from[i] - a) * fraction;
            }
            n = end;
        }
        const std::size_t line = static_cast<std::size_t>(k);
        taps[k][0] = lossHistory[line][0];
        taps[k][1] = lossHistory[line][1];
        lossHistory[line] = {taps[k][count], taps[k][count + 1]};
        // Whole vectors past the end read zeros, never stale stack.
        const Lanes zeros{};
        std::memcpy(taps[k] + count + 2, &zeros, sizeof zeros);
    }
    // Eight samples of all sixteen lines at a time: each line's loss filter, then the mix in registers.
    for (int i = 0; i < padded; i += 8) {
        std::array<Lanes, kLines> v;
        for (std::size_t k = 0; k < kLines; ++k) {
            Lanes x0, x1, x2;
            std::memcpy(&x0, taps[k] + i, sizeof(Lanes));
            std::memcpy(&x1, taps[k] + i + 1, sizeof(Lanes));
            std::memcpy(&x2, taps[k] + i + 2, sizeof(Lanes));
            v[k] = edgeTap[k] * (x0 + x2) + centreTap[k] * x1;
        }
#pragma GCC unroll 4
        for (std::size_t span = kLines / 2; span >= 1; span /= 2) {
#pragma GCC unroll 16
            for (std::size_t k = 0; k < kLines; ++k) {
                if ((k & span) != 0) continue;
                const Lanes sum = v[k] + v[k + span];
                v[k + span] = v[k] - v[k + span];
                v[k] = sum;
            }
        }
        for (std::size_t k = 0; k < kLines; ++k)
            std::memcpy(mixed[k] + i, &v[k], sizeof(Lanes));
    }
    for (int i = 0; i < count; ++i) {
        left[i] = kLateLevel * mixed[0][i] + kEarlyLevel * inLeft[i];
        right[i] = kLateLevel * mixed[1][i] + kEarlyLevel * inRight[i];
    }
    // Left enters the even lines, right the odd ones, each with its own signs.
    constexpr std::array<float, kLines> kFeed{1, 1, 1, -1, -1, 1, 1, 1, -1, 1, -1, 1, 1, -1, 1, -1};
    const int first = std::min(count, lineMask + 1 - w);
    for (int k = 0; k < kLines; ++k) {
        const float* __restrict in = (k & 1) == 0 ? inLeft : inRight;
        const float* __restrict y = mixed[k];
        const float sign = kFeed[static_cast<std::size_t>(k)];
        float* ring = lineStore.data() + static_cast<std::size_t>(k) * kLineStride;
        float* __restrict to = ring + w;
        for (int i = 0; i < first; ++i)
            to[i] = y[i] + sign * in[i];
        float* __restrict wrapped = ring - first;
        for (int i = first; i < count; ++i)
            wrapped[i] = y[i] + sign * in[i];
        ring[lineMask + 1] = ring[0];
    }
    for (int h = 0; h < 2; ++h)
        delay[static_cast<std::size_t>(h)] +=
            static_cast<float>(count) * delayStep[static_cast<std::size_t>(h)];
    lineWrite = (w + count) & lineMask;
}

void AFReverbHQ::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFReverbHQ::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFReverbHQ::formatParameter(int index, float value, char* text) {
    if (index == 1) {
        std::snprintf(text, kEffectTextSize, "%2.2f s", static_cast<double>(reverbTimeSeconds(value)));
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
