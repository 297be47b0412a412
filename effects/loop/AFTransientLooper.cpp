#include "effects/loop/AFTransientLooper.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kOption0[] = {"Threshold", "Active"};
constexpr const char* kOption1[] = {"Sync", "SyncT", "Free"};
constexpr const char* kOption2[] = {"Freeze", "Reverb", "Looper"};

constexpr AFParameterInfo kParameters[] = {
    {"Threshold", 0.5f}, {"HoldTime", 0.5f}, {"Speed", 0.5f}, {"Pitch", 0.5f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2};

constexpr int32_t kActive = 1;
constexpr int32_t kSyncTriplet = 1;
constexpr int32_t kFree = 2;
constexpr int32_t kFreeze = 0;
constexpr int32_t kReverb = 1;

// Every edge the Reactor makes (engaging, loop and run ends, the end of the burst) fades over 44 samples.
constexpr double kFade = 44.0;
constexpr double kInverseFade = 1.0 / 44.0;
// The pitch path writes its block before it reads: the Hermite points of a read two samples back are written.
constexpr double kPitchLeast = 3.0;
// The reverb's delay lines, in samples at 48 kHz; each ring holds the longest at the highest rate.
constexpr std::array<int32_t, 8> kLineLengths = {1123, 1291, 1447, 1601, 1777, 1933, 2111, 2293};
static_assert(kLineLengths.back() * (AFSystemInfo::kMaxSampleRate / 48000.0f) < 16384);

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

int semitonesFor(float v) noexcept {
    return static_cast<int>(std::lround((unitClamp(v) - 0.5f) * 24.0f));
}

double speedRatioFor(float v) noexcept {
    return std::exp2((static_cast<double>(unitClamp(v)) - 0.5) * 2.0);
}

// The tail's decay to -60 dB: 16 s at 0, about 2.8 s in the middle, half a second at 1.
double tailSecondsFor(float v) noexcept {
    return 0.5 * std::exp2((1.0 - static_cast<double>(unitClamp(v))) * 5.0);
}

float thresholdFor(float v) noexcept {
    return std::pow(10.0f, (unitClamp(v) * 60.0f - 60.0f) / 20.0f);
}

uint32_t maxRecord() {
    const double beat = static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
    return static_cast<uint32_t>(beat * 2.0) + 4;
}

} // namespace

const uint32_t AFTransientLooper::kMaxRecord = maxRecord();

const AFEffectDescriptor AFTransientLooper::descriptor{.typeId = 3,
                                                       .displayName = "Reactor",
                                                       .className = "AFTransientLooper",
                                                       .create = makeEffect<AFTransientLooper>,
                                                       .parameters = kParameters,
                                                       .options = kOptions,
                                                       .menuPosition = 15};

AFTransientLooper::AFTransientLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), recordL(kMaxRecord), recordR(kMaxRecord),
      lines(static_cast<std::size_t>(kLines) * kLineStride), pitchRingL(kPitchRing), pitchRingR(kPitchRing) {
    for (std::size_t i = 0; i < hann.size(); ++i)
        hann[i] = 0.5f - 0.5f * std::cos(6.2831853f * static_cast<float>(i) / 1024.0f);
    tempoChanged(0);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFTransientLooper::~AFTransientLooper() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

void AFTransientLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTransientLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

double AFTransientLooper::holdFor(float value) const noexcept {
    const auto& tables = TimeValueTables::instance();
    const float v = unitClamp(value);
    double samples = 0.0;
    switch (options[1]) {
    case kSyncTriplet:
        samples = tables.syncTripletTable.intervalSamplesExact(*systemInfo, v);
        break;
    case kFree:
        samples = (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * v + 88.0;
        break;
    default:
        samples = tables.syncTable.intervalSamplesExact(*systemInfo, v);
        break;
    }
    return std::clamp(samples, 88.0, static_cast<double>(capacity) - 1.0);
}

void AFTransientLooper::controlTick() noexcept {
    threshold = thresholdFor(parameterValues[0]);
    hold = holdFor(parameterValues[1]);
    speedRatio = speedRatioFor(parameterValues[2]);
    drift = (static_cast<double>(unitClamp(parameterValues[2])) - 0.5) * 2.0;
    const float rate = systemInfo->sampleRate;
    grainLength = std::max(64.0f, std::min(rate * 0.09f, static_cast<float>(hold) * 0.5f));
    const int semitones = semitonesFor(parameterValues[3]);
    pitched = semitones != 0;
    pitchRatio = systemInfo->semitoneRatio(semitones);
    shifter.configure(rate, PitchShifter::kGrainMs * systemInfo->samplesPerMillisecond);
    shifter.setCentre(0.0, kPitchLeast);
    shifter.setRatio(pitchRatio);
    if (options[2] == kReverb) {
        const float seconds = static_cast<float>(tailSecondsFor(parameterValues[2]));
        const float scale = rate / 48000.0f;
        for (std::size_t i = 0; i < kLines; ++i) {
            const auto length = static_cast<int32_t>(static_cast<float>(kLineLengths[i]) * scale);
            if (length == lineLength[i] && seconds == tailSeconds) continue;
            lineLength[i] = length;
            lineGain[i] = std::pow(10.0f, -3.0f * static_cast<float>(length) / (seconds * rate));
        }
        tailSeconds = seconds;
        // The rings wrap at the smallest power of two above the longest line, so they stay in cache.
        lineMask = 1;
        while (lineMask <= lineLength.back())
            lineMask = lineMask * 2 + 1;
    }
}

void AFTransientLooper::tempoChanged(int32_t) noexcept {
    const double beats = static_cast<double>(systemInfo->samplesPerBeat) * 2.0;
    // Two beats and the sample the interpolation reads past the end.
    capacity = static_cast<uint32_t>(std::clamp(beats + 2.0, 256.0, static_cast<double>(kMaxRecord)));
    written = std::min(written, capacity);
    hold = holdFor(parameterValues[1]);
}

int32_t AFTransientLooper::activate() noexcept {
    tempoChanged(0);
    state = State::Listening;
    sampleCount = 0;
    hitSample = -1;
    sinceHit = 0;
    wait = 0;
    written = 0;
    slowLevel = 0.0f;
    loopCount = 0;
    for (Grain& g : grains)
        g.on = false;
    seed = 1;
    std::memset(lines.data(), 0, sizeof(float) * static_cast<std::size_t>(kLines) * kLineStride);
    lineLow = {};
    lineWrite = 0;
    tailSeconds = 0.0f;
    lineLength = {};
    std::memset(pitchRingL.data(), 0, sizeof(float) * kPitchRing);
    std::memset(pitchRingR.data(), 0, sizeof(float) * kPitchRing);
    pitchWrite = 0;
    controlTick();
    pitchMix = pitched ? 1.0f : 0.0f;
    shifter.start();
    return 1;
}

uint32_t AFTransientLooper::random() noexcept {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
}

void AFTransientLooper::startHold(int offset) noexcept {
    state = State::Holding;
    hitSample = sampleCount + offset;
    sinceHit = 0;
    written = 0;
    loopLength = hold;
    cycleClock = 0.0;
    runPosition = 0.0;
    runSpeed = speedRatio;
    runEnd = std::min(loopLength / runSpeed, loopLength);
    wait = 0;
    head = 0.0;
    untilGrain = 0.0f;
    if (options[2] != kFreeze && options[2] != kReverb && options[1] != kFree) {
        // The loop waits for the next line of its own grid (at most a beat apart), so the hit lands on it.
        const double perBeat = systemInfo->samplesPerBeat;
        const double beat = static_cast<double>(systemInfo->ppqPosition) + offset / perBeat;
        const double grid = std::min(loopLength / perBeat, 1.0);
        const double line = std::ceil(beat / grid - 1e-9) * grid;
        wait = std::max<int64_t>(0, std::llround((line - beat) * perBeat));
    }
}

void AFTransientLooper::recordBlock(const float* l, const float* r, int count) noexcept {
    const uint32_t room = capacity > written ? capacity - written : 0;
    const uint32_t n = std::min(static_cast<uint32_t>(std::max(count, 0)), room);
    std::memcpy(recordL.data() + written, l, sizeof(float) * n);
    std::memcpy(recordR.data() + written, r, sizeof(float) * n);
    written += n;
}

inline void AFTransientLooper::read(double position, float& l, float& r) const noexcept {
    const auto i = static_cast<uint32_t>(position);
    const auto t = static_cast<float>(position - i);
    if (i + 1 < written) {
        l = recordL[i] + t * (recordL[i + 1] - recordL[i]);
        r = recordR[i] + t * (recordR[i + 1] - recordR[i]);
        return;
    }
    // Past what has been recorded the tape is silent.
    const float al = i < written ? recordL[i] : 0.0f;
    const float ar = i < written ? recordR[i] : 0.0f;
    l = al - t * al;
    r = ar - t * ar;
}

void AFTransientLooper::transpose(float* left, float* right, int count) noexcept {
    constexpr int64_t kMask = kPitchRing - 1;
    const auto at = static_cast<std::size_t>(pitchWrite & kMask);
    const auto first = std::min<std::size_t>(static_cast<std::size_t>(count), kPitchRing - at);
    std::memcpy(pitchRingL.data() + at, left, sizeof(float) * first);
    std::memcpy(pitchRingR.data() + at, right, sizeof(float) * first);
    std::memcpy(pitchRingL.data(), left + first, sizeof(float) * (static_cast<std::size_t>(count) - first));
    std::memcpy(pitchRingR.data(), right + first, sizeof(float) * (static_cast<std::size_t>(count) - first));
    const auto now = static_cast<double>(pitchWrite);
    pitchWrite += count;
    if (!pitched && pitchMix <= 0.0f) return;
    // Switched on, the taps start afresh on what the ring holds, faded in over a control interval.
    if (pitchMix <= 0.0f) shifter.start();
    alignas(16) std::array<float, PitchShifter::kMaxRun> shiftedL;
    alignas(16) std::array<float, PitchShifter::kMaxRun> shiftedR;
    const PitchShifter::RingSource ringL{pitchRingL.data(), static_cast<uint32_t>(kMask)};
    const PitchShifter::RingSource ringR{pitchRingR.data(), static_cast<uint32_t>(kMask)};
    shifter.processStereo(ringL, ringR, now, shiftedL.data(), shiftedR.data(), count);
    if (pitched && pitchMix >= 1.0f) {
        std::copy_n(shiftedL.data(), count, left);
        std::copy_n(shiftedR.data(), count, right);
        return;
    }
    float m = pitchMix;
    const float mixStep = pitched ? 1.0f / 64.0f : -1.0f / 64.0f;
    for (int i = 0; i < count; ++i) {
        const auto k = static_cast<std::size_t>(i);
        m = std::clamp(m + mixStep, 0.0f, 1.0f);
        left[i] += m * (shiftedL[k] - left[i]);
        right[i] += m * (shiftedR[k] - right[i]);
    }
    pitchMix = m;
}

void AFTransientLooper::runLooper(float* left, float* right, int from, int count) noexcept {
    recordBlock(left + from, right + from, count - from);
    // The running state in locals: the stores to the output cannot then be taken to touch it.
    int64_t since = sinceHit;
    const int64_t start = wait;
    double run = runPosition;
    double clock = cycleClock;
    double end = runEnd;
    double speed = runSpeed;
    double length = loopLength;
    uint32_t loops = loopCount;
    // Written for every sample of the call before they are read.
    alignas(32) std::array<float, 64> liveL;
    alignas(32) std::array<float, 64> liveR;
    alignas(32) std::array<float, 64> liveGain;
    std::copy(left + from, left + count, liveL.data() + from);
    std::copy(right + from, right + count, liveR.data() + from);
    const float* tapeL = recordL.data();
    const float* tapeR = recordR.data();
    for (int j = from; j < count;) {
        if (since < start) {
            // Waiting for the grid: the input passes, the loop is silent.
            const int n = static_cast<int>(std::min<int64_t>(count - j, start - since));
            std::fill_n(liveGain.data() + j, n, 1.0f);
            std::fill_n(left + j, n, 0.0f);
            std::fill_n(right + j, n, 0.0f);
            since += n;
            j += n;
            continue;
        }
        // A stretch up to and including the sample after which the loop or the run ends.
        const double toLoop = std::max(1.0, std::ceil(length - clock));
        const double toRun = std::max(1.0, std::ceil(end - run));
        const int n = static_cast<int>(std::min({static_cast<double>(count - j), toLoop, toRun}));
        const auto into = static_cast<double>(since - start);
        // Inside what is recorded, the reads need no check.
        const bool inside = (run + n) * speed + 1.0 < static_cast<double>(written);
        // Samples lo..hi lie past the fade-in of the loop and the fade-out of the input, and short of the
        // run's closing fade: there only the tape sounds.
        const int lo = static_cast<int>(std::clamp(std::ceil(kFade - std::min(run, into)), 0.0, 1.0 * n));
        const int hi =
            inside ? static_cast<int>(std::clamp(std::floor(end - kFade - run) + 1.0, 1.0 * lo, 1.0 * n))
                   : lo;
        const auto sample = [&](int i) {
            const auto k = static_cast<std::size_t>(j + i);
            const double at = run + i;
            const double fromStart = into + i;
            liveGain[k] = static_cast<float>(fromStart < kFade ? 1.0 - fromStart * kInverseFade : 0.0);
            const auto edge = static_cast<float>(std::min(std::min(at, end - at) * kInverseFade, 1.0));
            float yL = 0.0f;
            float yR = 0.0f;
            read(at * speed, yL, yR);
            left[j + i] = yL * edge;
            right[j + i] = yR * edge;
        };
        for (int i = 0; i < lo; ++i)
            sample(i);
        std::fill(liveGain.data() + j + lo, liveGain.data() + j + hi, 0.0f);
        for (int i = lo; i < hi; ++i) {
            const double position = (run + i) * speed;
            const auto whole = static_cast<uint32_t>(position);
            const auto t = static_cast<float>(position - whole);
            left[j + i] = tapeL[whole] + t * (tapeL[whole + 1] - tapeL[whole]);
            right[j + i] = tapeR[whole] + t * (tapeR[whole + 1] - tapeR[whole]);
        }
        for (int i = hi; i < n; ++i)
            sample(i);
        since += n;
        run += n;
        clock += n;
        j += n;
        if (clock >= length) {
            // A loop ends: a new length is taken here, and the next run starts from the top.
            clock -= length;
            ++loops;
            length = hold;
            run = clock;
            speed = speedRatio;
            end = std::min(length / speed, length);
        } else if (run >= end) {
            // Faster than the tape: the hold starts again inside the loop.
            run -= end;
            speed = speedRatio;
            end = std::min(length / speed, length - clock + run);
        }
    }
    sinceHit = since;
    runPosition = run;
    cycleClock = clock;
    runEnd = end;
    runSpeed = speed;
    loopLength = length;
    loopCount = loops;
    transpose(left + from, right + from, count - from);
    for (int j = from; j < count; ++j) {
        const auto k = static_cast<std::size_t>(j);
        left[j] += liveL[k] * liveGain[k];
        right[j] += liveR[k] * liveGain[k];
    }
}

void AFTransientLooper::spawnGrain() noexcept {
    Grain& g = grains[static_cast<std::size_t>(nextGrain)];
    nextGrain = (nextGrain + 1) % kGrains;
    g.length = grainLength;
    g.scale = 1024.0f / grainLength;
    g.age = 0.0f;
    g.ratio = pitchRatio;
    g.on = true;
    // Grains start anywhere in the half of the hold ahead of the head, and never read past the hold.
    const double span = std::max(0.0, hold - static_cast<double>(grainLength * pitchRatio) - 2.0);
    const double jitter = static_cast<double>(random()) / 16777216.0 * hold * 0.5;
    g.start = span > 0.0 ? static_cast<uint32_t>(std::fmod(head + jitter, span)) : 0u;
}

inline void AFTransientLooper::addGrain(const Grain& g, float w, float& yL, float& yR) const noexcept {
    const float offset = g.age * g.ratio;
    const auto whole = static_cast<uint32_t>(offset);
    const float t = offset - static_cast<float>(whole);
    const uint32_t i = g.start + whole;
    const float* bufferL = recordL.data();
    const float* bufferR = recordR.data();
    yL += w * (bufferL[i] + t * (bufferL[i + 1] - bufferL[i]));
    yR += w * (bufferR[i] + t * (bufferR[i + 1] - bufferR[i]));
}

void AFTransientLooper::runFreeze(float* left, float* right, int from, int count) noexcept {
    recordBlock(left + from, right + from, count - from);
    const auto holdSamples = static_cast<int64_t>(hold);
    const float crossfade = grainLength * 0.5f;
    int64_t since = sinceHit;
    for (int j = from; j < count; ++j) {
        if (since < holdSamples) {
            ++since;
            continue;
        }
        const int steady = freezeStretch(left, right, j, count, static_cast<float>(since - holdSamples));
        if (steady > 0) {
            since += steady;
            j += steady - 1;
            continue;
        }
        const float inL = left[j];
        const float inR = right[j];
        const auto into = static_cast<float>(since - holdSamples);
        const float mix = into < crossfade ? into / crossfade : 1.0f;
        untilGrain -= 1.0f;
        if (untilGrain <= 0.0f) {
            spawnGrain();
            untilGrain += grainLength / static_cast<float>(kGrains);
        }
        // Two Hann grains half a grain apart sum to one. Every read lies inside the hold, which is recorded
        // by the time the grains start.
        float yL = 0.0f;
        float yR = 0.0f;
        for (Grain& g : grains) {
            addGrain(g, g.on ? hann[static_cast<std::size_t>(g.age * g.scale)] : 0.0f, yL, yR);
            g.age += 1.0f;
            if (g.age >= g.length) {
                g.on = false;
                g.age = 0.0f;
            }
        }
        left[j] = inL + mix * (yL - inL);
        right[j] = inR + mix * (yR - inR);
        ++since;
        head += drift;
        if (head >= hold) head -= hold;
        if (head < 0.0) head += hold;
    }
    sinceHit = since;
}

// Past the crossfade, a stretch in which no grain starts or ends runs without those checks, the sounding
// grains' state in locals: the same arithmetic, sample for sample.
int AFTransientLooper::freezeStretch(float* left, float* right, int from, int count, float into) noexcept {
    if (into < grainLength * 0.5f) return 0;
    // The stretch ends before the sample at which the next grain starts, and before any sounding grain ends.
    int n = std::min(count - from, static_cast<int>(std::ceil(untilGrain)) - 1);
    std::array<Grain, kGrains> sounding{};
    int voices = 0;
    for (const Grain& g : grains) {
        if (!g.on) continue;
        n = std::min(n, static_cast<int>(std::ceil(g.length - g.age)) - 1);
        sounding[static_cast<std::size_t>(voices++)] = g;
    }
    if (n <= 0) return 0;
    const float* window = hann.data();
    double at = head;
    for (int j = from; j < from + n; ++j) {
        float yL = 0.0f;
        float yR = 0.0f;
        for (int v = 0; v < voices; ++v) {
            Grain& g = sounding[static_cast<std::size_t>(v)];
            addGrain(g, window[static_cast<std::size_t>(g.age * g.scale)], yL, yR);
            g.age += 1.0f;
        }
        // As the full step mixes at 1, rounding included.
        left[j] += yL - left[j];
        right[j] += yR - right[j];
        at += drift;
        if (at >= hold) at -= hold;
        if (at < 0.0) at += hold;
    }
    head = at;
    untilGrain -= static_cast<float>(n);
    int v = 0;
    for (Grain& g : grains) {
        if (g.on) g.age = sounding[static_cast<std::size_t>(v++)].age;
    }
    return n;
}

void AFTransientLooper::runReverb(float* left, float* right, int from, int count) noexcept {
    const double holdSamples = hold;
    // After the burst has faded and left the pitch shifter, only the tail sounds.
    const double quiet = holdSamples + kFade + kPitchRing;
    const int n = count - from;
    alignas(32) std::array<float, 64> sendL;
    alignas(32) std::array<float, 64> sendR;
    const bool bursting = static_cast<double>(sinceHit) < quiet;
    if (static_cast<double>(sinceHit) >= holdSamples + kFade) {
        // The burst is over: nothing enters the tail, and the tail alone sounds.
        sendL.fill(0.0f);
        sendR.fill(0.0f);
        std::fill_n(left + from, n, 0.0f);
        std::fill_n(right + from, n, 0.0f);
    } else {
        for (int j = 0; j < n; ++j) {
            const auto k = static_cast<std::size_t>(j);
            const double after = static_cast<double>(sinceHit + j) - holdSamples;
            const auto burst =
                static_cast<float>(after < 0.0 ? 1.0 : std::max(0.0, 1.0 - after * kInverseFade));
            sendL[k] = left[from + j] * burst;
            sendR[k] = right[from + j] * burst;
            left[from + j] = sendL[k];
            right[from + j] = sendR[k];
        }
    }
    if (bursting) transpose(sendL.data(), sendR.data(), n);
    sinceHit += n;

    runTail(left + from, right + from, sendL.data(), sendR.data(), n);
}

namespace {

using Column = float __attribute__((vector_size(32)));

// Eight rows of eight samples to eight columns of eight (and back: the transpose is its own inverse).
[[gnu::always_inline]] inline void swapRowsAndColumns(Column* r) noexcept {
    const Column t0 = __builtin_shufflevector(r[0], r[1], 0, 8, 1, 9, 4, 12, 5, 13);
    const Column t1 = __builtin_shufflevector(r[0], r[1], 2, 10, 3, 11, 6, 14, 7, 15);
    const Column t2 = __builtin_shufflevector(r[2], r[3], 0, 8, 1, 9, 4, 12, 5, 13);
    const Column t3 = __builtin_shufflevector(r[2], r[3], 2, 10, 3, 11, 6, 14, 7, 15);
    const Column t4 = __builtin_shufflevector(r[4], r[5], 0, 8, 1, 9, 4, 12, 5, 13);
    const Column t5 = __builtin_shufflevector(r[4], r[5], 2, 10, 3, 11, 6, 14, 7, 15);
    const Column t6 = __builtin_shufflevector(r[6], r[7], 0, 8, 1, 9, 4, 12, 5, 13);
    const Column t7 = __builtin_shufflevector(r[6], r[7], 2, 10, 3, 11, 6, 14, 7, 15);
    const Column u0 = __builtin_shufflevector(t0, t2, 0, 1, 8, 9, 4, 5, 12, 13);
    const Column u1 = __builtin_shufflevector(t0, t2, 2, 3, 10, 11, 6, 7, 14, 15);
    const Column u2 = __builtin_shufflevector(t1, t3, 0, 1, 8, 9, 4, 5, 12, 13);
    const Column u3 = __builtin_shufflevector(t1, t3, 2, 3, 10, 11, 6, 7, 14, 15);
    const Column u4 = __builtin_shufflevector(t4, t6, 0, 1, 8, 9, 4, 5, 12, 13);
    const Column u5 = __builtin_shufflevector(t4, t6, 2, 3, 10, 11, 6, 7, 14, 15);
    const Column u6 = __builtin_shufflevector(t5, t7, 0, 1, 8, 9, 4, 5, 12, 13);
    const Column u7 = __builtin_shufflevector(t5, t7, 2, 3, 10, 11, 6, 7, 14, 15);
    r[0] = __builtin_shufflevector(u0, u4, 0, 1, 2, 3, 8, 9, 10, 11);
    r[1] = __builtin_shufflevector(u1, u5, 0, 1, 2, 3, 8, 9, 10, 11);
    r[2] = __builtin_shufflevector(u2, u6, 0, 1, 2, 3, 8, 9, 10, 11);
    r[3] = __builtin_shufflevector(u3, u7, 0, 1, 2, 3, 8, 9, 10, 11);
    r[4] = __builtin_shufflevector(u0, u4, 4, 5, 6, 7, 12, 13, 14, 15);
    r[5] = __builtin_shufflevector(u1, u5, 4, 5, 6, 7, 12, 13, 14, 15);
    r[6] = __builtin_shufflevector(u2, u6, 4, 5, 6, 7, 12, 13, 14, 15);
    r[7] = __builtin_shufflevector(u3, u7, 4, 5, 6, 7, 12, 13, 14, 15);
}

} // namespace

// Eight lines with Householder feedback, each line getting itself minus a quarter of the sum, darkened and
// decayed. Every line is longer than a block, so the block's reads come before its writes: each line is read
// and written in one straight copy, the taps and the mix run across the block, and the darkening's
// recursion runs on all eight lines at once, one vector lane each.
LANE_WIDE_CLONES void AFTransientLooper::runTail(float* left, float* right, const float* sendL,
                                                 const float* sendR, int n) noexcept {
    // Whole columns of eight; the samples past n are read but never kept.
    const int padded = (n + 7) & ~7;
    const int32_t mask = lineMask;
    const int32_t w = lineWrite;
    float* ring = lines.data();
    alignas(32) float rows[kLines][64];
    for (std::size_t i = 0; i < kLines; ++i) {
        const float* line = ring + i * kLineStride;
        const int32_t start = (w - lineLength[i]) & mask;
        const int first = std::min(padded, mask + 1 - start);
        std::memcpy(rows[i], line + start, sizeof(float) * static_cast<std::size_t>(first));
        std::memcpy(rows[i] + first, line, sizeof(float) * static_cast<std::size_t>(padded - first));
    }
    alignas(32) float reflected[64];
    for (int j = 0; j < padded; ++j) {
        float sum = 0.0f;
        for (std::size_t i = 0; i < kLines; ++i)
            sum += rows[i][j];
        reflected[j] = sum * 0.25f;
    }
    for (int j = 0; j < n; ++j) {
        left[j] += 0.6f * (rows[0][j] - rows[2][j] + rows[4][j] - rows[6][j]);
        right[j] += 0.6f * (rows[1][j] - rows[3][j] + rows[5][j] - rows[7][j]);
    }
    Column low;
    Column gain;
    std::memcpy(&low, lineLow.data(), sizeof low);
    std::memcpy(&gain, lineGain.data(), sizeof gain);
    // Left feeds the even lines and right the odd ones, lines 2, 3, 6 and 7 inverted.
    const Column sign{1.0f, 1.0f, -1.0f, -1.0f, 1.0f, 1.0f, -1.0f, -1.0f};
    for (int j0 = 0; j0 < padded; j0 += 8) {
        std::array<Column, kLines> block;
        for (std::size_t i = 0; i < kLines; ++i)
            std::memcpy(&block[i], rows[i] + j0, sizeof(Column));
        swapRowsAndColumns(block.data());
        const int end = std::min(8, n - j0);
        for (int k = 0; k < end; ++k) {
            const int j = j0 + k;
            const float inL = sendL[j] * 0.5f;
            const float inR = sendR[j] * 0.5f;
            low += 0.85f * (block[static_cast<std::size_t>(k)] - reflected[j] - low);
            const Column feed{inL, inR, inL, inR, inL, inR, inL, inR};
            block[static_cast<std::size_t>(k)] = low * gain + sign * feed;
        }
        swapRowsAndColumns(block.data());
        for (std::size_t i = 0; i < kLines; ++i)
            std::memcpy(rows[i] + j0, &block[i], sizeof(Column));
    }
    std::memcpy(lineLow.data(), &low, sizeof low);
    const int first = std::min(n, mask + 1 - w);
    for (std::size_t i = 0; i < kLines; ++i) {
        float* line = ring + i * kLineStride;
        std::memcpy(line + w, rows[i], sizeof(float) * static_cast<std::size_t>(first));
        std::memcpy(line, rows[i] + first, sizeof(float) * static_cast<std::size_t>(n - first));
    }
    lineWrite = (w + n) & mask;
}

void AFTransientLooper::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    int from = 0;
    if (state == State::Listening) {
        if (options[0] == kActive) {
            startHold(0);
        } else {
            // A hit: louder than the threshold and twice the level of the last fifty milliseconds. The first
            // twenty only learn the level, so a slot switched on inside a note waits for the next hit.
            const float rate = systemInfo->sampleRate;
            const auto warmUp = static_cast<int64_t>(0.02f * rate);
            for (; from < count; ++from) {
                const float level = std::max(std::fabs(left[from]), std::fabs(right[from]));
                const bool learning = sampleCount + from < warmUp;
                const bool hit = !learning && level > threshold && level > 2.0f * slowLevel;
                slowLevel += (learning ? 200.0f : 20.0f) / rate * (level - slowLevel);
                if (hit) {
                    startHold(from);
                    break;
                }
            }
            if (state == State::Listening) {
                sampleCount += count;
                return;
            }
        }
    }
    switch (options[2]) {
    case kFreeze:
        runFreeze(left, right, from, count);
        break;
    case kReverb:
        runReverb(left, right, from, count);
        break;
    default:
        runLooper(left, right, from, count);
        break;
    }
    sampleCount += count;
}

void AFTransientLooper::formatParameter(int index, float value, char* text) {
    const auto& tables = TimeValueTables::instance();
    const float v = unitClamp(value);
    switch (index) {
    case 0:
        std::snprintf(text, kEffectTextSize, "%2.1f dB", static_cast<double>(v) * 60.0 - 60.0);
        break;
    case 1:
        if (options[1] == kSyncTriplet) {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTripletTable.valueName(v));
        } else if (options[1] == kFree) {
            const double samples = (static_cast<double>(systemInfo->samplesPerBeat) - 88.0) * v + 88.0;
            const double ms =
                std::trunc(std::trunc(samples) / static_cast<double>(systemInfo->sampleRate) * 1000.0);
            TimeValueTables::formatTime(text, kEffectTextSize, static_cast<float>(ms));
        } else {
            std::snprintf(text, kEffectTextSize, "%s", tables.syncTable.valueName(v));
        }
        break;
    case 2:
        if (options[2] == kFreeze) {
            std::snprintf(text, kEffectTextSize, "%+3.0f %%", (static_cast<double>(v) - 0.5) * 200.0);
        } else if (options[2] == kReverb) {
            TimeValueTables::formatTime(text, kEffectTextSize,
                                        static_cast<float>(tailSecondsFor(v) * 1000.0));
        } else {
            std::snprintf(text, kEffectTextSize, "%1.2fx", speedRatioFor(v));
        }
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%+d st", semitonesFor(v));
        break;
    }
}
