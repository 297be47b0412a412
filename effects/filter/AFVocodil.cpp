#include "effects/filter/AFVocodil.h"

#include "effects/filter/NoteFreqTable.h"
#include "effects/filter/WaveTables.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/TimeValueTables.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kWaveWords[] = {"Saw", "Tri", "Square", "Sine", "Saw2", "Tri2", "Square2", "Sine2"};
constexpr const char* kOctaveWords[] = {"1 Hi", "2 Hi", "2 Low", "1 Low"};
constexpr const char* kChordWords[] = {"Maj", "Min", "Whole", "Dim", "Aug", "4th", "Octave", "Weird"};
constexpr const char* kArpWords[] = {"Up",     "Down",     "PingPong", "Up2",     "Down2",     "PingPong2",
                                     "TrigUp", "TrigDown", "TrigPP",   "Trig2Up", "Trig2Down", "Trig2PP"};

// Raw band coefficients of the analysis filters; they do not follow the sample rate.
constexpr float kAnalysisF[32] = {0.01f, 0.02f, 0.03f, 0.04f, 0.05f, 0.06f, 0.07f, 0.08f, 0.09f, 0.10f, 0.11f,
                                  0.12f, 0.13f, 0.14f, 0.15f, 0.16f, 0.17f, 0.18f, 0.21f, 0.24f, 0.27f, 0.30f,
                                  0.33f, 0.36f, 0.39f, 0.42f, 0.45f, 0.48f, 0.51f, 0.54f, 0.57f, 0.61f};

// Carrier band curve for "Sound"; the last row repeats so the blend at the top stays inside.
constexpr float kSoundCurve[11][4] = {
    {0.001f, 0.01f, 0.01f, 0.01f}, {0.001f, 0.1f, 0.2f, 0.3f}, {0.01f, 0.3f, 0.6f, 0.9f},
    {0.1f, 0.2f, 0.4f, 0.7f},      {0.2f, 0.3f, 0.4f, 0.5f},   {0.22f, 0.4f, 0.5f, 0.65f},
    {0.32f, 0.35f, 0.65f, 0.8f},   {0.4f, 0.55f, 0.7f, 0.9f},  {0.01f, 0.33f, 0.63f, 0.9f},
    {0.001f, 0.1f, 0.2f, 0.5f},    {0.001f, 0.1f, 0.2f, 0.5f}};

constexpr float kChords[8][10] = {
    {0, 4, 7, 12, 16, 19, 24, 28, 31, 36},    {0, 3, 7, 12, 15, 19, 24, 27, 31, 36},
    {0, 2, 4, 6, 8, 10, 12, 14, 16, 18},      {0, 3, 6, 9, 12, 15, 18, 21, 24, 27},
    {0, 4, 8, 12, 16, 20, 24, 28, 32, 36},    {0, 5, 10, 15, 20, 25, 30, 35, 40, 45},
    {-12, 0, 12, 24, 0, -12, 12, 24, 0, -12}, {0, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f}};

constexpr float kEnvelopeFloor = 0.0001f;
constexpr float kFadeInStep = 0.015625f;

// Lane conditions as all-ones masks taken from the sign of a difference, and selections by mask: the loops
// stay free of float comparisons, which the compiler will not vectorise while floating-point traps are
// honoured.
using Lanes8 = float __attribute__((vector_size(32)));
using Pairs4 = double __attribute__((vector_size(32)));

// Eight table reads without a gather: each index fetches its point and delta as one 8-byte pair, and two
// shuffles sort the pairs into a vector of points and a vector of deltas. `inOut` holds the fractions and
// receives point + fraction * delta.
[[gnu::always_inline]] inline void readEight(const float* pairs, const uint32_t* index,
                                             float* inOut) noexcept {
    auto pair = [&](int k) noexcept {
        double v;
        std::memcpy(&v, pairs + 2 * static_cast<std::size_t>(index[k]), sizeof v);
        return v;
    };
    // Pairs 0, 1, 4, 5 and 2, 3, 6, 7: the shuffles below then work within each half of the vector.
    const Pairs4 first = {pair(0), pair(1), pair(4), pair(5)};
    const Pairs4 second = {pair(2), pair(3), pair(6), pair(7)};
    Lanes8 a;
    Lanes8 b;
    Lanes8 fraction;
    std::memcpy(&a, &first, sizeof a);
    std::memcpy(&b, &second, sizeof b);
    std::memcpy(&fraction, inOut, sizeof fraction);
    const Lanes8 point = __builtin_shufflevector(a, b, 0, 2, 8, 10, 4, 6, 12, 14);
    const Lanes8 delta = __builtin_shufflevector(a, b, 1, 3, 9, 11, 5, 7, 13, 15);
    const Lanes8 out = point + fraction * delta;
    std::memcpy(inOut, &out, sizeof out);
}

int32_t lessMask(float a, float b) noexcept {
    return std::bit_cast<int32_t>(a - b) >> 31;
}

float pick(int32_t mask, float yes, float no) noexcept {
    return std::bit_cast<float>((mask & std::bit_cast<int32_t>(yes)) | (~mask & std::bit_cast<int32_t>(no)));
}

int voicesFor(float v) noexcept {
    return std::clamp(static_cast<int>(clampUnit(v) * 9.5f + 1.0f), 1, 10);
}

bool isDownMode(int mode) noexcept {
    return mode == 1 || mode == 4 || mode == 7 || mode == 10;
}
bool isPingPongMode(int mode) noexcept {
    return mode == 2 || mode == 5 || mode == 8 || mode == 11;
}

constexpr AFParameterInfo kParameters[] = {
    {"Sound", 0.4197960f}, {"Note", 0.0f}, {"Spread", 0.8f}, {"Arp", 0.0f}};
constexpr AFWords kOptions[] = {kWaveWords, kOctaveWords, kChordWords, kArpWords};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.5f}, {"Param2 Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFVocodil::descriptor{.typeId = 19,
                                               .displayName = "Vocodizer",
                                               .className = "AFVocodil",
                                               .create = makeEffect<AFVocodil>,
                                               .parameters = kParameters,
                                               .options = kOptions,
                                               .menuPosition = 9,
                                               .slotDefaults = kSlotDefaults};

AFVocodil::AFVocodil(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag), pairs(WaveTables::instance().pairs(0)) {
    analysisL.setF(kAnalysisF);
    analysisR.setF(kAnalysisF);
    analysisL.setDamp(0.25f);
    analysisR.setDamp(0.25f);
    carrierFilter.setDamp(0.7f);
    carrierF.fill(0.5f);
    carrierFilter.setF(carrierF.current);
    for (int i = 0; i < kLanes; ++i)
        phase[static_cast<std::size_t>(i)] = static_cast<float>(i) * 0.02f;
    for (int i = 0; i < 4; ++i)
        setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
}

int AFVocodil::baseNote(float v) const noexcept {
    const float u = clampUnit(v);
    switch (octaveMode) {
    case 1:
        return static_cast<int>(u * 24.5f + 48.0f);
    case 2:
        return static_cast<int>(u * 24.5f + 36.0f);
    case 3:
        return static_cast<int>(u * 12.5f + 36.0f);
    default:
        return static_cast<int>(u * 12.5f + 48.0f);
    }
}

void AFVocodil::setParameter(int index, float value) {
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0: {
        const float s = clampUnit(value);
        const float y = s * 9.5f;
        const int row = static_cast<int>(y);
        const float fy = y - static_cast<float>(row);
        const float d = 0.9f - s * 0.87f;
        soundGain = d < 0.5f ? 1.0f - (1.0f - 2.0f * d) * 0.61f : 1.0f;
        for (int i = 0; i < kLanes; ++i) {
            const float x = (static_cast<float>(i) * 0.03125f) * 2.99f;
            const int col = static_cast<int>(x);
            const float fx = x - static_cast<float>(col);
            carrierF.target[i] = fx * fy * kSoundCurve[row + 1][col + 1] +
                                 (1.0f - fx) * fy * kSoundCurve[row + 1][col] +
                                 fx * (1.0f - fy) * kSoundCurve[row][col + 1] +
                                 (1.0f - fx) * (1.0f - fy) * kSoundCurve[row][col];
        }
        carrierFilter.setDamp(d);
        break;
    }
    case 1:
        computeNotes();
        break;
    case 2: {
        const int voices = voicesFor(value);
        if (voices != voiceCount) {
            voiceCount = voices;
            computeNotes();
            computeVoiceGains();
        }
        break;
    }
    case 3: {
        const bool wasOn = arpOn();
        arpLength =
            arpMode >= 6
                ? 1u
                : TimeValueTables::instance().offTripletTable.intervalSamples(*systemInfo, clampUnit(value));
        if (wasOn != arpOn()) computeVoiceGains();
        break;
    }
    default:
        break;
    }
}

void AFVocodil::computeNotes() noexcept {
    const NoteFreqTable& table = NoteFreqTable::instance();
    const float base = static_cast<float>(baseNote(parameterValues[1]) + NoteFreqTable::kMidiOffset);
    const float* row = kChords[chordIndex];
    if (!detuned) {
        for (int j = 0; j < kLanes; ++j)
            noteFreq[static_cast<std::size_t>(j)] = j < 10 ? table.frequency(base + row[j]) : 0.0f;
        return;
    }
    for (int j = 0; j < kLanes; ++j) {
        const float detune = 0.5f + 0.01f * static_cast<float>(j / voiceCount);
        noteFreq[static_cast<std::size_t>(j)] = table.frequency(base + row[j % voiceCount] + detune);
    }
}

void AFVocodil::computeVoiceGains() noexcept {
    int n;
    if (arpOn())
        n = detuned ? (arpMode > 2 ? 6 : 3) : (arpMode > 2 ? 2 : 1);
    else
        n = detuned ? kLanes : voiceCount;
    for (int i = 0; i < kLanes; ++i)
        voiceGain.target[i] = i >= n ? 0.0f : (i <= 5 ? 1.0f : 1.0f - static_cast<float>(i - 5) * 0.02f);
    gainScale = 1.0f / ((static_cast<float>(voiceCount) + 5.0f) * 0.1666f);
}

void AFVocodil::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    const int32_t v = clampOption(value, words);
    switch (index) {
    case 0:
        waveIndex = v;
        pairs = WaveTables::instance().pairs(v & 3);
        detuned = v >= 4;
        computeNotes();
        computeVoiceGains();
        break;
    case 1:
        octaveMode = v;
        computeNotes();
        computeVoiceGains();
        break;
    case 2:
        chordIndex = v;
        computeNotes();
        computeVoiceGains();
        break;
    default:
        arpMode = v;
        arpPos = 0;
        arpDirection = isDownMode(v) ? -1 : 1;
        parameterNames[3] = v >= 6 ? "Active" : "Arp";
        setParameter(3, parameterValues[3]);
        computeVoiceGains();
        break;
    }
}

int32_t AFVocodil::getOption(int index) {
    switch (index) {
    case 0:
        return waveIndex;
    case 1:
        return octaveMode;
    case 2:
        return chordIndex;
    case 3:
        return arpMode;
    default:
        return 0;
    }
}

void AFVocodil::formatParameter(int index, float value, char* text) {
    switch (index) {
    case 0:
        std::snprintf(text, kEffectTextSize, "%3.0f", static_cast<double>(value) * 100.0);
        break;
    case 1:
        TimeValueTables::formatNote(text, kEffectTextSize, baseNote(value));
        break;
    case 2:
        std::snprintf(text, kEffectTextSize, "%d ", voicesFor(value));
        break;
    case 3:
        if (arpMode >= 6)
            std::snprintf(text, kEffectTextSize, "%s", value > 0.5f ? "On" : "Off");
        else
            std::snprintf(text, kEffectTextSize, "%s",
                          TimeValueTables::instance().offTripletTable.valueName(clampUnit(value)));
        break;
    default:
        AFEffect::formatParameter(index, value, text);
        break;
    }
}

void AFVocodil::stepArpeggio() noexcept {
    if (arpMode >= 6) {
        arpPos = 0;
        const float trigger = parameterValues[3];
        if (trigger > 0.5f && triggerArmed) {
            arpPos = arpLength;
            triggerArmed = false;
        } else if (trigger < 0.5f) {
            triggerArmed = true;
        }
    } else {
        arpPos += samplesSinceTick;
    }
    if (arpPos >= arpLength) {
        ++arpCycleCount;
        arpStep += arpDirection;
        arpPos -= arpLength;
        // Steps shorter than a control block advance once per block; the clock must not run away.
        if (arpPos >= arpLength) arpPos %= arpLength;
        fadeIn = true;
    }
    const int vc = voiceCount;
    if (arpMode == 5 && arpStep >= vc - 1) {
        arpDirection = -1;
        arpStep = vc - 3;
    }
    if (arpStep >= vc) {
        if (arpMode == 2 || arpMode == 8 || arpMode == 11) {
            arpDirection = -1;
            arpStep = vc - 2;
        } else {
            arpStep = 0;
        }
    }
    if (arpStep < 0) {
        if (isPingPongMode(arpMode)) {
            arpDirection = 1;
            arpStep = 1;
        } else if (isDownMode(arpMode)) {
            arpStep = vc - 1;
        }
    }
    if (arpMode == 2 && arpCycleCount > 15) {
        arpCycleCount = 0;
        arpStep = 0;
        arpDirection = 1;
    }
    const auto note = [this](int i) {
        return noteFreq[static_cast<std::size_t>(std::clamp(i, 0, kLanes - 1))];
    };
    arpFreq.fill(0.0f);
    arpFreq[0] = note(arpStep);
    if (detuned) {
        arpFreq[1] = note(vc + arpStep);
        arpFreq[2] = note(2 * vc + arpStep);
    }
    if (arpMode >= 3 && arpMode <= 5 && vc > 2) {
        const int s2 = arpStep == vc - 1 ? vc - 2 : arpStep + 1;
        if (detuned) {
            arpFreq[3] = note(s2);
            arpFreq[4] = note(vc + s2);
            arpFreq[5] = note(2 * vc + s2);
        } else {
            arpFreq[1] = note(s2);
        }
    }
}

void AFVocodil::countActiveVoices() noexcept {
    activeVoices = 0;
    for (int i = 0; i < kLanes; ++i)
        if (voiceGain.current[i] != 0.0f || voiceGain.target[i] != 0.0f) activeVoices = i + 1;
}

void AFVocodil::controlTick() noexcept {
    const float s = clampUnit(parameterValues[0]);
    const float k = s < 0.5f ? s * 0.5f : 0.25f - (s - 0.5f) * 0.5f;
    envRate = (1.0f / (systemInfo->sampleRate * 0.001f * 70.0f + 1e-09f)) * (k * 4.0f + 1.0f);
    if (arpMode < 6) {
        const bool wasOn = arpOn();
        arpLength = TimeValueTables::instance().offTripletTable.intervalSamples(
            *systemInfo, clampUnit(parameterValues[3]));
        if (wasOn != arpOn()) computeVoiceGains();
    }
    if (arpOn()) stepArpeggio();
    samplesSinceTick = 0;
    const float* freq = arpOn() ? arpFreq.data() : noteFreq.data();
    const float invRate = 1.0f / systemInfo->sampleRate;
    for (int i = 0; i < kLanes; ++i)
        phaseStep[static_cast<std::size_t>(i)] = std::min(freq[i] * invRate, 0.999f);
    carrierF.controlTick(systemInfo->rampFactor);
    voiceGain.controlTick(systemInfo->rampFactor);
    countActiveVoices();
    const bool fades = arpOn() && arpMode > 2;
    fadeRate = !fades
                   ? 0.0f
                   : (arpMode <= 5 ? 1.0f / static_cast<float>(arpLength) : (arpMode <= 8 ? 0.0f : 0.0001f));
    outputGain =
        (arpOn() ? soundGain * 0.98f : soundGain * gainScale) * ((waveIndex & 1) == 0 ? 0.59f : 1.97f) * 1.3f;
}

void AFVocodil::analyse(LaneFilter& filter, Envelope& e, float input, float rate, float limit) noexcept {
    filter.step(input);
    for (int i = 0; i < kLanes; ++i) {
        const float level = filter.band[i];
        float env = e.env[i] - e.slope[i];
        // A band above the trigger level and above the envelope starts a climb towards it.
        const int32_t climb = lessMask(std::max(std::max(env, e.peak[i]), kTriggerLevel), level);
        float peak = pick(climb, level, e.peak[i]);
        float slope = pick(climb, -level * rate, e.slope[i]);
        env = pick(lessMask(env, kEnvelopeFloor), 0.0f, env);
        // Only a climbing lane has a peak; once the level passes it, the lane falls in a straight line.
        const int32_t top = lessMask(0.0f, peak) & lessMask(peak, env);
        e.peak[i] = pick(top, 0.0f, peak);
        e.slope[i] = pick(top, env * rate, slope);
        e.env[i] = env;
    }
    const float total = LaneFilter::sum(e.env);
    const float excess = total <= 2.0f ? 0.0f : (total - 2.0f) * -0.03125f;
    for (int i = 0; i < kLanes; ++i)
        e.gain[i] = std::clamp(e.env[i] + excess, 0.0f, limit);
}

void AFVocodil::process(float* left, float* right, int count) noexcept {
    render(left, right, count);
}

LANE_WIDE_CLONES void AFVocodil::render(float* left, float* right, int count) noexcept {
    const bool fades = arpOn() && arpMode > 2;
    const float rate = envRate;
    for (int s = 0; s < count; ++s) {
        for (int i = 0; i < kLanes; ++i) {
            const float p = phase[static_cast<std::size_t>(i)] + phaseStep[static_cast<std::size_t>(i)];
            phase[static_cast<std::size_t>(i)] = pick(lessMask(1.0f, p), p - 1.0f, p);
        }
        for (int i = 0; i < kLanes; ++i) {
            const float p = phase[static_cast<std::size_t>(i)] * static_cast<float>(WaveTables::kSize);
            const int whole = static_cast<int>(p);
            readIndex[static_cast<std::size_t>(i)] = static_cast<uint32_t>(whole & WaveTables::kMask);
            oscOut[static_cast<std::size_t>(i)] = p - static_cast<float>(whole);
        }
        // Voices whose gain is and stays zero are not read, eight at a time: their lanes add nothing to the
        // carrier.
        const float* const table = pairs;
        for (int group = 0; group < activeVoices; group += 8)
            readEight(table, readIndex.data() + group, oscOut.data() + group);
        voiceGain.advance();
        const float carrier = LaneFilter::dot(oscOut.data(), voiceGain.current) * 0.2f;
        carrierF.advance();
        carrierFilter.setF(carrierF.current);
        carrierFilter.step(carrier);
        analyse(analysisL, envL, left[s], rate, 1.0f);
        // The right channel's band gains may reach 1.2, the left's only 1: the imbalance is deliberate.
        analyse(analysisR, envR, right[s], rate, 1.2f);
        float g = outputGain;
        if (fades) {
            if (fadeIn) {
                fadeGain += kFadeInStep;
                if (fadeGain >= 1.0f) {
                    fadeGain = 1.0f;
                    fadeIn = false;
                }
            } else {
                fadeGain = std::max(fadeGain - fadeRate, 0.0f);
            }
            g *= fadeGain;
        }
        left[s] = g * LaneFilter::dot(carrierFilter.band, envL.gain);
        right[s] = g * LaneFilter::dot(carrierFilter.band, envR.gain);
    }
    samplesSinceTick += static_cast<uint32_t>(count > 0 ? count : 0);
}

void AFVocodil::reset() {
    computeVoiceGains();
    envL = Envelope{};
    envR = Envelope{};
    analysisL.clear();
    analysisR.clear();
    carrierFilter.clear();
    voiceGain.snap();
    countActiveVoices();
    carrierF.snap();
    carrierFilter.setF(carrierF.current);
    arpPos = arpLength;
    if (isDownMode(arpMode)) {
        arpStep = 0;
        arpDirection = -1;
    } else if (isPingPongMode(arpMode)) {
        arpStep = 1;
        arpDirection = -1;
    } else {
        arpStep = voiceCount - 1;
        arpDirection = 1;
    }
    arpCycleCount = 0;
    fadeGain = 1.0f;
    fadeIn = false;
    triggerArmed = true;
    samplesSinceTick = 0;
    for (int i = 0; i < kLanes; ++i)
        phase[static_cast<std::size_t>(i)] = static_cast<float>(i) * 0.02f;
}

int32_t AFVocodil::activate() {
    reset();
    return 1;
}
