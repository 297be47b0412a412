#include "effects/framework/AFSystemInfo.h"

#include <algorithm>

AFSystemInfo::AFSystemInfo(float maxBlockSize, AFBpmListenerList* listeners)
    : maxBlock(maxBlockSize), bpmListeners(listeners) {
    // Rate fields start from 44.1 kHz; samples and ticks per beat keep their start values until the owner
    // first sets a rate or a tempo.
    const float spb = samplesPerBeat;
    const float tpb = ticksPerBeat;
    recomputeRateFields();
    samplesPerBeat = spb;
    ticksPerBeat = tpb;

    // Semitone ratios, built outward from unity with the two multipliers so that both halves are exact
    // products of the same constants.
    double up = 1.0;
    double down = 1.0;
    std::array<double, kSemitoneRows + 1> ratios{};
    ratios[kSemitoneCentre] = 1.0;
    for (int n = 1; n <= kSemitoneCentre; ++n) {
        up *= 1.0594630943592953;
        down *= 0.9438743126816934;
        ratios[kSemitoneCentre + n] = up;
        ratios[kSemitoneCentre - n] = down;
    }
    ratios[kSemitoneRows] = up * 1.0594630943592953;
    for (int i = 0; i < kSemitoneRows; ++i) {
        semitoneTable[i].value = static_cast<float>(ratios[i]);
        semitoneTable[i].delta = static_cast<float>(ratios[i + 1] - ratios[i]);
    }

    float f = 1.021975f;
    for (int i = 0; i < kNoteLadderRows; ++i) {
        const float next = f * 1.0594631f;
        noteLadder[i] = {f, next - f};
        f = next;
    }
}

bool AFSystemInfo::setSampleRate(float rate) {
    if (!(rate >= kMinSampleRate && rate <= kMaxSampleRate)) return false;
    sampleRate = rate;
    recomputeRateFields();
    return true;
}

void AFSystemInfo::setTempo(double newBpm) {
    if (!(newBpm < kMaxTempo)) return;
    bpm = newBpm < kMinTempo ? kMinTempo : newBpm;
    recomputeTempoFields();
}

void AFSystemInfo::setControlInterval(int samples) {
    controlRate = static_cast<float>(samples);
    controlInterval = samples;
    rampFactor = 1.0f / static_cast<float>(samples);
    setSampleRate(sampleRate);
    recomputeTempoFields();
}

float AFSystemInfo::semitoneRatio(int semitones) const noexcept {
    const int row = std::clamp(semitones + kSemitoneCentre, 0, kSemitoneRows - 1);
    return semitoneTable[row].value;
}

void AFSystemInfo::recomputeRateFields() {
    rateRatio = static_cast<float>(sampleRate * 2.2675737e-05);
    sampleTime = 1.0f / sampleRate;
    twoSampleTime = 2.0f / sampleRate;
    twoPiSampleTime = 6.2831855f / sampleRate;
    piSampleTime = 3.1415927f / sampleRate;
    controlTime = controlRate / sampleRate;
    ticksPerMillisecond = static_cast<float>(sampleRate / controlRate * 0.001);
    samplesPerMillisecond = static_cast<float>(sampleRate * 0.001);
    sampleRateOverTwoPi = static_cast<float>(sampleRate * 0.15915494);
    inverseRate1024 = static_cast<float>(1.0 / (sampleRate * 0.0009765625));
    recomputeTempoFields();
}

void AFSystemInfo::recomputeTempoFields() {
    samplesPerBeat = static_cast<float>(sampleRate / (bpm * 0.016666666666666666));
    ticksPerBeat = samplesPerBeat / controlRate;
}
