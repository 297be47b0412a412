#include "effects/loop/AFBeatStretcherKN.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

namespace {

constexpr const char* kModeWords[] = {"Amount", "Position"};
constexpr const char* kWindowWords[] = {"Triangle", "Hann", "Sine", "Linear", "Tukey"};
constexpr const char* kDirectionWords[] = {"Forward", "Backward", "Ping Pong"};

constexpr int kPositionMode = 1;
constexpr int kPingPong = 2;
// A tempo change that resizes the take leaves every grain on this window until the option is set again.
constexpr int kSineWindow = 2;

double unit(float value) noexcept {
    return std::isfinite(value) ? std::clamp(static_cast<double>(value), 0.0, 1.0) : 0.0;
}

double grainSamples(double rate, double v) noexcept {
    return std::round(rate * 0.005 + rate * 0.095 * v);
}

double distanceSamples(double rate, double v) noexcept {
    return rate * 0.01 + rate * 0.09 * v;
}

double ratioFor(double v) noexcept {
    return v <= 0.5 ? v + 0.5 : 2.0 * v;
}

double beatAtSlowestTempo() {
    return static_cast<double>(
        static_cast<float>(AFSystemInfo::kMaxSampleRate / (AFSystemInfo::kMinTempo * 0.016666666666666666)));
}

uint32_t marginFor(double rate) noexcept {
    return static_cast<uint32_t>(std::lround(rate / 44100.0 * 5512.0));
}

uint32_t largestBuffer() {
    return static_cast<uint32_t>(std::lround(beatAtSlowestTempo() * 8.0)) +
           marginFor(AFSystemInfo::kMaxSampleRate);
}

} // namespace

const uint32_t AFBeatStretcherKN::kMaxBufferLength = largestBuffer();

const std::array<std::array<float, AFBeatStretcherKN::kWindowSize + 1>, 5>&
AFBeatStretcherKN::windowTables() {
    static const auto tables = [] {
        // Hann and Sine divide by 255 so that both ends of a grain reach exactly zero.
        constexpr int n = kWindowSize;
        constexpr double divisor = n - 1;
        std::array<std::array<float, n + 1>, 5> t{};
        auto& triangle = t[0];
        auto& hann = t[1];
        auto& sine = t[2];
        auto& linear = t[3];
        auto& tukey = t[4];
        for (int i = 0; i < n / 2; ++i) {
            triangle[i] = static_cast<float>(i / 128.0);
            triangle[n - 1 - i] = triangle[i];
        }
        for (int i = 0; i < n; ++i) {
            const double x = i / divisor;
            hann[i] = static_cast<float>((1.0 - std::cos(2.0 * std::numbers::pi * x)) / 2.0);
            sine[i] = static_cast<float>(std::sin(std::numbers::pi * x));
            linear[i] = 1.0f;
            tukey[i] = 1.0f;
        }
        for (int i = 0; i < 25; ++i) {
            linear[i] = static_cast<float>(i / 24.0);
            linear[n - 1 - i] = linear[i];
        }
        for (int i = 0; i < 64; ++i) {
            tukey[i] = hann[2 * i];
            tukey[n - 1 - i] = tukey[i];
        }
        for (auto& table : t)
            table[n] = table[n - 1];
        return t;
    }();
    return tables;
}

namespace {

constexpr AFParameterInfo kParameters[] = {
    {"Amount", 0.5f}, {"Grainsize", 0.7f}, {"Distance", 0.2f}, {"Pitch", 0.5f}};
constexpr AFWords kOptions[] = {kModeWords, kWindowWords, kDirectionWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.6f}};

} // namespace

const AFEffectDescriptor AFBeatStretcherKN::descriptor{.typeId = 4,
                                                       .displayName = "Granulizer",
                                                       .className = "Stretcher",
                                                       .create = makeEffect<AFBeatStretcherKN>,
                                                       .parameters = kParameters,
                                                       .options = kOptions,
                                                       .menuPosition = 17,
                                                       .slotDefaults = kSlotDefaults};

AFBeatStretcherKN::AFBeatStretcherKN(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag),
      leftBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)),
      rightBuffer(std::make_unique_for_overwrite<float[]>(kMaxBufferLength)) {
    for (int i = 0; i < 4; ++i)
        AFBeatStretcherKN::setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
    capacity = static_cast<int32_t>(std::lround(static_cast<double>(systemInfo->samplesPerBeat) * 8.0));
    margin = marginFor(systemInfo->sampleRate);
    setWindows(0);
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->add(this);
}

AFBeatStretcherKN::~AFBeatStretcherKN() {
    if (systemInfo->bpmListeners != nullptr) systemInfo->bpmListeners->remove(this);
}

void AFBeatStretcherKN::setWindows(int table) noexcept {
    const float* window = windowTables()[static_cast<std::size_t>(table)].data();
    for (auto& voice : grains)
        voice.window = window;
}

int AFBeatStretcherKN::voiceWindow(int voice) const noexcept {
    const float* first = windowTables()[0].data();
    return static_cast<int>((grains[static_cast<std::size_t>(voice)].window - first) / (kWindowSize + 1));
}

int AFBeatStretcherKN::activeVoices() const noexcept {
    return static_cast<int>(
        std::count_if(grains.begin(), grains.end(), [](const auto& v) { return v.active; }));
}

void AFBeatStretcherKN::setParameter(int index, float value) {
    if (index < 0 || index > 3) return;
    AFEffect::setParameter(index, value);
    const double v = unit(value);
    const double rate = systemInfo->sampleRate;
    switch (index) {
    case 0:
        amount = v;
        break;
    case 1:
        grainSize = static_cast<uint32_t>(grainSamples(rate, v));
        break;
    case 2:
        distance = distanceSamples(rate, v);
        break;
    default:
        pitchRatio = ratioFor(v);
        break;
    }
}

void AFBeatStretcherKN::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t option = clampOption(value, words);
    switch (index) {
    case 0:
        positionMode = option;
        parameterNames[0] = kModeWords[option];
        break;
    case 1:
        windowType = option;
        setWindows(option);
        break;
    default:
        direction = option;
        break;
    }
}

int32_t AFBeatStretcherKN::getOption(int index) {
    switch (index) {
    case 0:
        return positionMode;
    case 1:
        return windowType;
    case 2:
        return direction;
    default:
        return 0;
    }
}

void AFBeatStretcherKN::reset() {
    writePosition = 0;
    untilNextGrain = 0;
}

void AFBeatStretcherKN::tempoChanged(int32_t) noexcept {
    const long wanted = std::lround(static_cast<double>(systemInfo->samplesPerBeat) * 8.0);
    if (wanted == capacity) return;
    const uint32_t newMargin = marginFor(systemInfo->sampleRate);
    const long limit = static_cast<long>(kMaxBufferLength - newMargin);
    capacity = static_cast<int32_t>(std::clamp(wanted, 1L, limit));
    margin = newMargin;
    validEnd = std::min(validEnd, static_cast<uint32_t>(capacity) + margin);
    setWindows(kSineWindow);
}

int32_t AFBeatStretcherKN::activate() noexcept {
    return restart();
}

int32_t AFBeatStretcherKN::restart() noexcept {
    playPosition = 0.0;
    recording = 1;
    writePosition = 0;
    for (auto& voice : grains)
        voice.active = false;
    validEnd = 0;
    untilNextGrain = static_cast<int32_t>(std::lround(distance));
    grainIndex = 0;
    alternate = 0;
    return 1;
}

void AFBeatStretcherKN::startGrain(int count) noexcept {
    const bool backward = direction == kPingPong ? alternate != 0 : direction != 0;
    bool tested = false;
    double need = 0.0;
    double available = 0.0;
    if (pitchRatio <= 1.0) {
        if (backward && recording) {
            tested = true;
            need = grainSize;
            available = writePosition;
        }
    } else if (recording) {
        tested = true;
        need = std::round(grainSize * pitchRatio);
        available = static_cast<double>(writePosition) - count;
    }
    double start = playPosition;
    if (tested && !(need < available - playPosition)) {
        // Not enough recorded ahead of the play position: start earlier, or wait.
        if (playPosition <= need) return;
        start = playPosition - need;
    }
    if (!(start >= 0.0)) return;

    GrainVoice& voice = grains[static_cast<std::size_t>(grainIndex)];
    if (!voice.active) {
        const double size = grainSize;
        voice.windowStart = 0.0;
        voice.inverseSpan = 1.0 / size;
        voice.length = grainSize;
        voice.offset = start;
        voice.step = backward ? -pitchRatio : pitchRatio;
        voice.position = backward ? size - 1.0 : 0.0;
        voice.active = true;
    }
    grainIndex = grainIndex + 1 == kVoices ? 0 : grainIndex + 1;
    untilNextGrain = static_cast<int32_t>(std::lround(distance));
    alternate ^= 1;
}

template <bool Add, bool Checked>
int AFBeatStretcherKN::renderRun(GrainVoice& voice, float* left, float* right, int count) noexcept {
    const float* bufferLeft = leftBuffer.get();
    const float* bufferRight = rightBuffer.get();
    const float* window = voice.window;
    const double offset = voice.offset;
    const double step = voice.step;
    const double windowStart = voice.windowStart;
    // Window position in table steps per sample of grain position.
    const double scale = voice.inverseSpan * 255.0;
    const double end = voice.length;
    const uint32_t valid = validEnd;
    double position = voice.position;
    for (int j = 0; j < count; ++j) {
        const double p = position + offset;
        const auto i = static_cast<uint32_t>(p);
        const auto f = static_cast<float>(p - i);
        float l0;
        float l1;
        float r0;
        float r1;
        if constexpr (Checked) {
            l0 = i < valid ? bufferLeft[i] : 0.0f;
            r0 = i < valid ? bufferRight[i] : 0.0f;
            l1 = i + 1 < valid ? bufferLeft[i + 1] : 0.0f;
            r1 = i + 1 < valid ? bufferRight[i + 1] : 0.0f;
        } else {
            l0 = bufferLeft[i];
            r0 = bufferRight[i];
            l1 = bufferLeft[i + 1];
            r1 = bufferRight[i + 1];
        }
        const double w = (position - windowStart) * scale;
        const auto wi = static_cast<uint32_t>(w);
        const auto wf = static_cast<float>(w - wi);
        const float gain = window[wi] + (window[wi + 1] - window[wi]) * wf;
        const float outLeft = (l0 + (l1 - l0) * f) * gain;
        const float outRight = (r0 + (r1 - r0) * f) * gain;
        if constexpr (Add) {
            left[j] += outLeft;
            right[j] += outRight;
        } else {
            left[j] = outLeft;
            right[j] = outRight;
        }
        position += step;
        if constexpr (Checked) {
            if (position >= end || position < 0.0) {
                voice.position = position;
                voice.active = false;
                return j + 1;
            }
        }
    }
    voice.position = position;
    return count;
}

template <bool Add>
void AFBeatStretcherKN::renderSegments(GrainVoice& voice, float* left, float* right, int count) noexcept {
    // Inside one table segment the window is linear in the grain position, so its gain advances by a fixed
    // amount per sample; only the segment changes cost a table read.
    const float* bufferLeft = leftBuffer.get();
    const float* bufferRight = rightBuffer.get();
    const float* window = voice.window;
    const double offset = voice.offset;
    const double step = voice.step;
    const double scale = voice.inverseSpan * 255.0;
    const double tableStep = step * scale;
    double position = voice.position;
    for (int j = 0; j < count;) {
        const double w = (position - voice.windowStart) * scale;
        const auto wi = static_cast<uint32_t>(w);
        const double slope = static_cast<double>(window[wi + 1]) - window[wi];
        double gain = window[wi] + slope * (w - wi);
        const double gainStep = slope * tableStep;
        const double room =
            tableStep > 0.0 ? std::ceil((wi + 1 - w) / tableStep) : std::floor((w - wi) / -tableStep) + 1;
        const int end = room < count - j ? j + static_cast<int>(room) : count;
        for (; j < end; ++j) {
            const double p = position + offset;
            const auto i = static_cast<uint32_t>(p);
            const auto f = static_cast<float>(p - i);
            const float l0 = bufferLeft[i];
            const float r0 = bufferRight[i];
            const auto g = static_cast<float>(gain);
            const float outLeft = (l0 + (bufferLeft[i + 1] - l0) * f) * g;
            const float outRight = (r0 + (bufferRight[i + 1] - r0) * f) * g;
            if constexpr (Add) {
                left[j] += outLeft;
                right[j] += outRight;
            } else {
                left[j] = outLeft;
                right[j] = outRight;
            }
            gain += gainStep;
            position += step;
        }
    }
    voice.position = position;
}

template <bool Add>
void AFBeatStretcherKN::render(GrainVoice& voice, float* left, float* right, int count) noexcept {
    // Fast path: the voice cannot end inside this block and every read lies in the take.
    const double last = voice.position + voice.step * count;
    const double lowest = voice.offset + std::min(voice.position, last);
    const double highest = voice.offset + std::max(voice.position, last);
    const bool fast = last >= 0.0 && last < static_cast<double>(voice.length) && lowest >= 0.0 &&
                      highest + 2.0 < static_cast<double>(validEnd);
    if (fast) {
        // Slowly moving windows take the segment loop; fast ones gain nothing from it.
        if (std::fabs(voice.step * voice.inverseSpan * 255.0) < 0.25)
            renderSegments<Add>(voice, left, right, count);
        else
            renderRun<Add, false>(voice, left, right, count);
        if (voice.position >= voice.length || voice.position < 0.0) voice.active = false;
        return;
    }
    const int done = renderRun<Add, true>(voice, left, right, count);
    if (!Add && done < count) {
        std::fill(left + done, left + count, 0.0f);
        std::fill(right + done, right + count, 0.0f);
    }
}

void AFBeatStretcherKN::process(float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    if (recording) {
        const uint32_t limit = static_cast<uint32_t>(capacity) - 1 + margin;
        float* bufferLeft = leftBuffer.get();
        float* bufferRight = rightBuffer.get();
        for (int i = 0; i < count && writePosition < limit; ++i) {
            bufferLeft[writePosition] = left[i];
            bufferRight[writePosition] = right[i];
            ++writePosition;
        }
        validEnd = std::max(validEnd, std::min(writePosition, limit));
        if (writePosition >= limit) recording = 0;
    }

    untilNextGrain -= count;
    if (untilNextGrain < 0) startGrain(count);

    bool written = false;
    for (auto& voice : grains) {
        if (!voice.active) continue;
        if (written) {
            render<true>(voice, left, right, count);
        } else {
            render<false>(voice, left, right, count);
            written = true;
        }
    }
    if (!written) {
        std::memset(left, 0, static_cast<std::size_t>(count) * sizeof(float));
        std::memset(right, 0, static_cast<std::size_t>(count) * sizeof(float));
    }

    if (positionMode == kPositionMode) {
        if (amount != static_cast<double>(lastPosition)) {
            const double take = std::min(static_cast<double>(writePosition), static_cast<double>(capacity));
            playPosition = take * amount;
            lastPosition = static_cast<float>(amount);
        }
    } else {
        playPosition += (1.0 - amount) * count;
    }
    if (playPosition >= capacity) playPosition -= capacity;
}

void AFBeatStretcherKN::formatParameter(int index, float value, char* text) {
    const double v = unit(value);
    const double rate = systemInfo->sampleRate;
    switch (index) {
    case 1:
        std::snprintf(text, kEffectTextSize, "%d ms",
                      // NOLINTNEXTLINE(bugprone-incorrect-roundings): the display's truncating +0.5
                      static_cast<int>(grainSamples(rate, v) / rate * 1000.0 + 0.5));
        break;
    case 2:
        std::snprintf(text, kEffectTextSize, "%d ms",
                      // NOLINTNEXTLINE(bugprone-incorrect-roundings): the display's truncating +0.5
                      static_cast<int>(distanceSamples(rate, v) / rate * 1000.0 + 0.5));
        break;
    case 3:
        // Semitones, the way a musician reads a pitch shift.
        std::snprintf(text, kEffectTextSize, "%d",
                      static_cast<int>(std::lround(12.0 * std::log2(ratioFor(v)))));
        break;
    case 0:
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        break;
    default:
        std::snprintf(text, kEffectTextSize, "%s", "unknown parameter called in AFBeatStretcherKN");
        break;
    }
}
