#include "effects/filter/AFFilterBank.h"

#include "effects/filter/NoteFreqTable.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kTimeWords[] = {"Tonal", "Sync", "Free"};
constexpr const char* kSpacingWords[] = {"Off",  "Akea", "Duka", "Tria", "Mura",
                                         "Desa", "Sura", "Kora", "Jona", "Riga"};
constexpr const char* kPanWords[] = {"Off", "Pan1", "Pan2"};
constexpr const char* kSkipWords[] = {"Off", "2nd", "3rd"};

constexpr int kRiga = 9;
constexpr int kKora = 7;

// Band frequency coefficients, blended across rows by "Frequency" and across columns by band position.
constexpr float kCurve[9][4] = {
    {0.01f, 0.1f, 0.2f, 0.3f},  {0.01f, 0.2f, 0.3f, 0.6f},  {0.1f, 0.15f, 0.35f, 0.6f},
    {0.15f, 0.25f, 0.4f, 0.6f}, {0.6f, 0.01f, 0.6f, 0.05f}, {0.55f, 0.35f, 0.2f, 0.11f},
    {0.5f, 0.3f, 0.2f, 0.01f},  {0.4f, 0.2f, 0.1f, 0.01f},  {0.1f, 0.5f, 0.1f, 0.01f}};

// Longest line ever needed: eight beats at 45 BPM and 196000 Hz, plus the guard sample.
std::size_t maxLineLength() {
    const float slowest =
        AFSystemInfo::kMaxSampleRate / static_cast<float>(AFSystemInfo::kMinTempo * 0.016666666666666666);
    return static_cast<std::size_t>(slowest * 8.0f + 1.0f) + 2;
}

// Distance from tap i to tap i + 1 for each spacing word; Kora shrinks the step itself instead.
float tapAdvance(int spacing, int i, float step) noexcept {
    switch (spacing) {
    case 1:
        return i < 9 ? step : step * 0.5f;
    case 2:
        return i % 2 == 0 ? step : step * 0.5f;
    case 3:
        return i % 3 == 0 ? step : step * 0.5f;
    case 4:
        return i % 3 == 0 ? step : step * 0.33333334f;
    case 5:
        return i < 9 ? step : step * 0.33333334f;
    case 6:
        return i < 9 ? step : (i <= 16 ? step * 0.5f : step * 0.25f);
    case 8:
        return i <= 16 ? step : step * 0.5f;
    case kRiga:
        return i % 4 == 0 ? step : step * 0.25f;
    default:
        return step;
    }
}

constexpr AFParameterInfo kParameters[] = {
    {"Delay Time", 0.5f}, {"Frequency", 0.5f}, {"Resonance", 0.5f}, {"Bands", 0.5f}};
constexpr AFWords kOptions[] = {kTimeWords, kSpacingWords, kPanWords, kSkipWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Parameter 1", 0.4f}};

} // namespace

const AFEffectDescriptor AFFilterBank::descriptor{.typeId = 5,
                                                  .displayName = "Spectralizer",
                                                  .className = "FilterBank",
                                                  .create = makeEffect<AFFilterBank>,
                                                  .parameters = kParameters,
                                                  .options = kOptions,
                                                  .menuPosition = 23,
                                                  .slotDefaults = kSlotDefaults};

AFFilterBank::AFFilterBank(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), resonance(system), delayL(maxLineLength()),
      delayR(maxLineLength()) {
    bandCount = 4;
    for (int i = 0; i < 4; ++i)
        setParameter(i, 0.5f);
    freq.fill(0.5f);
    frequencyCurve();
    filterL.setF(freq.current);
    filterR.setF(freq.current);
    filterL.setDamp(0.5f);
    filterR.setDamp(0.5f);
    resonance.setTarget(0.2475);
    resonance.jump();
    tempoChanged(0);
    if (systemInfo->bpmListeners) registered = systemInfo->bpmListeners->add(this);
}

AFFilterBank::~AFFilterBank() {
    if (registered) systemInfo->bpmListeners->remove(this);
}

void AFFilterBank::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        delayValue = value;
        break;
    case 1:
        if (value != frequencyValue) {
            frequencyValue = value;
            frequencyCurve();
        }
        break;
    case 2: {
        const double r = clampUnit(value);
        resonance.setTarget(r * r * 0.99);
        break;
    }
    case 3: {
        bandsValue = value;
        const float raw = value * 30.0f + 2.0f;
        const uint32_t n = raw >= 2.0f ? (raw < 32.0f ? static_cast<uint32_t>(raw) : 32u) : 2u;
        if (n != bandCount || bandSkip != gateSkipApplied) {
            bandCount = n;
            gateSkipApplied = bandSkip;
            std::fill(std::begin(gate.target), std::end(gate.target), 0.0f);
            const uint32_t stride = static_cast<uint32_t>(1 + bandSkip);
            for (uint32_t i = 0; i < n; i += stride)
                gate.target[i] = 1.0f;
            frequencyCurve();
        }
        break;
    }
    default:
        break;
    }
}

void AFFilterBank::frequencyCurve() noexcept {
    const float v = clampUnit(frequencyValue);
    const float y = v * 7.5f;
    const int row = static_cast<int>(y);
    const float fy = y - static_cast<float>(row);
    const float perBand = 1.0f / static_cast<float>(bandCount);
    float position = 0.0f;
    for (uint32_t i = 0; i < bandCount; ++i) {
        const float x = position * 2.99f;
        position += perBand;
        const int col = static_cast<int>(x);
        const float fx = x - static_cast<float>(col);
        float t00 = kCurve[row][col];
        float t01 = kCurve[row][col + 1];
        float t10 = kCurve[row + 1][col];
        float t11 = kCurve[row + 1][col + 1];
        if (spacing == kRiga) t00 = t01 = t10 = t11 = v * 0.8f;
        freq.target[i] = (fx * fy * t11 + (1.0f - fx) * fy * t10 + fx * (1.0f - fy) * t01 +
                          (1.0f - fx) * (1.0f - fy) * t00) *
                         0.5f;
    }
    for (uint32_t i = bandCount; i < kLanes; ++i)
        freq.target[i] = 0.0f;
    curveSpacing = spacing;
}

void AFFilterBank::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    switch (index) {
    case 0:
        timeMode = v;
        break;
    case 1:
        spacing = v;
        break;
    case 2:
        panMode = v;
        break;
    default:
        bandSkip = v;
        setParameter(3, bandsValue);
        break;
    }
}

int32_t AFFilterBank::getOption(int index) {
    switch (index) {
    case 0:
        return timeMode;
    case 1:
        return spacing;
    case 2:
        return panMode;
    case 3:
        return bandSkip;
    default:
        return 0;
    }
}

void AFFilterBank::formatParameter(int index, float value, char* text) {
    if (index != 0) {
        std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
        return;
    }
    switch (timeMode) {
    case 0:
        // Shown three octaves below the sounding pitch; the display mapping is kept as players know it.
        std::snprintf(text, kEffectTextSize, "%3.2f hz",
                      static_cast<double>(NoteFreqTable::instance().frequency(value * 60.0f + 24.0f)));
        break;
    case 1:
        std::snprintf(text, kEffectTextSize, "%d", static_cast<int>(value * 8.5f));
        break;
    default: {
        const float samples = std::trunc(value * 4.0f * systemInfo->samplesPerBeat * 0.0625f);
        std::snprintf(text, kEffectTextSize, "%3.2f ms",
                      static_cast<double>(samples / systemInfo->sampleRate * 1000.0f));
        break;
    }
    }
}

void AFFilterBank::setLength() noexcept {
    const float wanted = systemInfo->samplesPerBeat * 8.0f;
    const float longest = static_cast<float>(delayL.size() - 2);
    bufferLength = wanted >= 1.0f ? (wanted <= longest ? wanted : longest) : 1.0f;
    usedLength = std::max(usedLength, static_cast<std::size_t>(bufferLength + 1.0f));
}

void AFFilterBank::tempoChanged(int32_t) {
    setLength();
}

void AFFilterBank::placeTaps() noexcept {
    const float v = clampUnit(delayRamp.getCurrent());
    const float spb = systemInfo->samplesPerBeat;
    float step;
    switch (timeMode) {
    case 0:
        step = systemInfo->sampleRate / NoteFreqTable::instance().frequency((v + 1.0f) * 60.0f);
        break;
    case 1:
        step = std::trunc(v * 7.5f + 1.0f) * spb * 0.125f;
        break;
    default:
        step = v * 4.0f * spb * 0.0625f;
        break;
    }
    if (step < 10.0f) step = 0.0f;
    float pos = 0.0f;
    for (int i = 0; i < kLanes; ++i) {
        if (pos < 0.0f) pos += bufferLength;
        if (pos >= bufferLength) pos -= bufferLength;
        tapTargets[static_cast<std::size_t>(i)] = pos;
        if (spacing == kKora) {
            pos += step;
            step *= 0.9f;
        } else {
            pos += tapAdvance(spacing, i, step);
        }
    }
}

void AFFilterBank::controlTick() noexcept {
    if (systemInfo->samplesPerBeat * 8.0f != bufferLength) setLength();
    if (spacing != curveSpacing && (spacing == kRiga || curveSpacing == kRiga)) frequencyCurve();
    delayRamp.setBlocksPerMs(systemInfo->samplesPerMillisecond * systemInfo->rampFactor);
    delayRamp.next(delayValue, 100.0f);
    placeTaps();
    const double factor = systemInfo->rampFactor;
    for (int i = 0; i < kLanes; ++i) {
        const double inc = (tapTargets[i] - tapCurrent[i]) * factor;
        const bool still = inc > -ParamRamp::kSnap && inc < ParamRamp::kSnap;
        tapIncrement[i] = still ? 0.0 : inc;
        tapCurrent[i] = still ? tapTargets[i] : tapCurrent[i];
    }
    freq.controlTick(systemInfo->rampFactor);
    gate.controlTick(systemInfo->rampFactor);
    resonance.controlTick();
    const float spread = panMode == 0 ? 0.0f : (panMode == 1 ? 0.5f : 1.0f);
    for (int i = 0; i < kLanes; ++i) {
        panLeft[static_cast<std::size_t>(i)] = (i & 1) ? 1.0f - spread : 1.0f;
        panRight[static_cast<std::size_t>(i)] = (i & 1) ? 1.0f : 1.0f - spread;
    }
    prepareRestingTaps();
}

void AFFilterBank::prepareRestingTaps() noexcept {
    tapsResting = true;
    for (int i = 0; i < kLanes; ++i)
        tapsResting &= (tapIncrement[i] == 0.0) & (tapCurrent[i] >= 0.0) & (tapCurrent[i] < bufferLength);
    if (!tapsResting) return;
    // A resting tap at delay c reads at here - c, or one line length later while here < c. Both positions
    // split into a whole offset from here and a blend that stay fixed while the tap rests.
    const double length = bufferLength;
    const double lengthWhole = std::trunc(length);
    const double lengthFrac = length - lengthWhole;
    for (int i = 0; i < kLanes; ++i) {
        const double c = tapCurrent[i];
        const double cWhole = std::floor(c);
        const double cFrac = c - cWhole;
        const double directFrac = cFrac > 0.0 ? 1.0 - cFrac : 0.0;
        const double directOffset = -cWhole - (cFrac > 0.0 ? 1.0 : 0.0);
        const double wrapSum = directFrac + lengthFrac;
        const bool carry = wrapSum >= 1.0;
        const double wrapFrac = carry ? wrapSum - 1.0 : wrapSum;
        restOffsetDirect[i] = static_cast<int32_t>(directOffset);
        restOffsetWrapped[i] = static_cast<int32_t>(directOffset + lengthWhole + (carry ? 1.0 : 0.0));
        restFracDirect[i] = static_cast<float>(directFrac);
        restFracWrapped[i] = static_cast<float>(wrapFrac);
        restEdgeDirect[i] = directFrac < lengthFrac ? 1 : 0;
        restEdgeWrapped[i] = wrapFrac < lengthFrac ? 1 : 0;
    }
}

void AFFilterBank::locateRestingTaps(int32_t here, int32_t lastIndex) noexcept {
    // Whole-number form of locateTaps for taps that do not move; it vectorises on integer lanes.
    for (int i = 0; i < kLanes; ++i) {
        const int32_t direct = here + restOffsetDirect[i];
        const bool wrapped = direct < 0;
        const int32_t whole = wrapped ? here + restOffsetWrapped[i] : direct;
        const int32_t edge = wrapped ? restEdgeWrapped[i] : restEdgeDirect[i];
        const bool inside = (whole < lastIndex) | ((whole == lastIndex) & (edge != 0));
        readA[i] = inside ? whole : lastIndex;
        readB[i] = inside ? whole + 1 : 0;
        readFrac[i] = wrapped ? restFracWrapped[i] : restFracDirect[i];
    }
}

void AFFilterBank::locateTaps(double here, double length, uint32_t lastIndex) noexcept {
    for (int i = 0; i < kLanes; ++i)
        tapCurrent[i] += tapIncrement[i];
    const double lastStart = length - 1.0;
    for (int i = 0; i < kLanes; ++i) {
        double p = here - tapCurrent[i];
        while (p < 0.0)
            p += length;
        const auto whole = static_cast<int32_t>(p);
        const bool inside = p < lastStart;
        readA[i] = inside ? whole : static_cast<int32_t>(lastIndex);
        readB[i] = inside ? whole + 1 : 0;
        readFrac[i] = static_cast<float>(p - whole);
    }
}

void AFFilterBank::process(float* left, float* right, int count) noexcept {
    render(left, right, count);
}

LANE_WIDE_CLONES void AFFilterBank::render(float* left, float* right, int count) noexcept {
    const float* const lineL = delayL.data();
    const float* const lineR = delayR.data();
    const double length = bufferLength;
    const float lengthF = bufferLength;
    const uint32_t lastIndex = static_cast<uint32_t>(bufferLength - 1.0f);
    const float bands = clampUnit(bandsValue);
    const float bandsGain = bands > 0.5f ? 1.0f - (bands - 0.5f) : 1.0f;
    const bool dampMoves = resonance.getIncrement() != 0.0;
    alignas(32) float weightL[kLanes];
    alignas(32) float weightR[kLanes];
    for (int s = 0; s < count; ++s) {
        delayL[writePos] = left[s];
        delayR[writePos] = right[s];
        if (tapsResting)
            locateRestingTaps(static_cast<int32_t>(writePos), static_cast<int32_t>(lastIndex));
        else
            locateTaps(writePos, length, lastIndex);
        for (int i = 0; i < kLanes; ++i) {
            const int32_t a = readA[i];
            const int32_t b = readB[i];
            tapL[i] = lineL[a] + (lineL[b] - lineL[a]) * readFrac[i];
            tapR[i] = lineR[a] + (lineR[b] - lineR[a]) * readFrac[i];
        }
        freq.advance();
        filterL.setF(freq.current);
        filterR.setF(freq.current);
        const float res = static_cast<float>(resonance.advance());
        if (dampMoves) {
            filterL.setDamp(1.0f - res);
            filterR.setDamp(1.0f - res);
        }
        filterL.step(tapL.data());
        filterR.step(tapR.data());
        gate.advance();
        const float g = (res > 0.75f ? 1.0f - (res - 0.75f) * 3.75f : 1.0f) * bandsGain;
        for (int i = 0; i < kLanes; ++i) {
            const float lane = gate.current[i] * g;
            weightL[i] = lane * panLeft[i];
            weightR[i] = lane * panRight[i];
        }
        left[s] = LaneFilter::dot(filterL.band, weightL);
        right[s] = LaneFilter::dot(filterR.band, weightR);
        if (static_cast<float>(++writePos) >= lengthF) writePos = 0;
    }
}

void AFFilterBank::reset() {
    frequencyCurve();
    writePos = 0;
    filterL.clear();
    filterR.clear();
    std::fill_n(delayL.begin(), usedLength, 0.0f);
    std::fill_n(delayR.begin(), usedLength, 0.0f);
    freq.snap();
    filterL.setF(freq.current);
    filterR.setF(freq.current);
    gate.snap();
    resonance.jump();
    filterL.setDamp(static_cast<float>(1.0 - resonance.getCurrent()));
    filterR.setDamp(static_cast<float>(1.0 - resonance.getCurrent()));
}

int32_t AFFilterBank::activate() {
    reset();
    // Start with the taps where the knob already is, rather than sweeping in from the last position.
    delayRamp.jump(delayValue);
    placeTaps();
    tapCurrent = tapTargets;
    tapIncrement.fill(0.0);
    prepareRestingTaps();
    return 1;
}
