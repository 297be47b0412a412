#pragma once

#include "effects/filter/LaneFilter.h"
#include "effects/filter/LaneRamp.h"
#include "effects/framework/AFAligned.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>

// Vocodizer: a 32-band vocoder whose carrier is a chord or an arpeggio of up to 32 wavetable oscillators.
// The input is only analysed; the output is the carrier, band by band, shaped by the input's band envelopes.
class AFVocodil : public AFEffect, public AFAligned {
public:
    static constexpr int kLanes = 32;
    // Band signals below this level do not open an envelope: about -60 dB, under any musical input but
    // above hiss and reverb tails, so bands fall silent between words.
    static constexpr float kTriggerLevel = 0.001f;

    AFVocodil(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or with the audio held off.
    void setParameter(int index, float value) override;
    // Audio thread or with the audio held off.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // From activate.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread or with the audio held off.
    int32_t activate() override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    // Any thread, read-only: views for tests and the editor.
    const float* notes() const noexcept { return noteFreq.data(); }
    const float* arpeggio() const noexcept { return arpFreq.data(); }
    const LaneRamp& voices() const noexcept { return voiceGain; }
    int32_t getArpStep() const noexcept { return arpStep; }
    int32_t getVoiceCount() const noexcept { return voiceCount; }
    uint32_t getArpLength() const noexcept { return arpLength; }
    // Any thread, read-only: envelope levels and band gains; channel 0 is left, any other right.
    const float* envelope(int channel) const noexcept { return channel == 0 ? envL.env : envR.env; }
    const float* bandGains(int channel) const noexcept { return channel == 0 ? envL.gain : envR.gain; }

private:
    // The per-sample work of process, built for the widest lane instructions the processor offers.
    void render(float* left, float* right, int count) noexcept;
    struct alignas(32) Envelope {
        alignas(32) float env[kLanes];
        alignas(32) float peak[kLanes];
        alignas(32) float slope[kLanes];
        alignas(32) float gain[kLanes];
    };

    void computeNotes() noexcept;
    void computeVoiceGains() noexcept;
    void countActiveVoices() noexcept;
    void stepArpeggio() noexcept;
    int baseNote(float v) const noexcept;
    bool arpOn() const noexcept { return arpLength != 0; }
    [[gnu::always_inline]] static inline void analyse(LaneFilter& filter, Envelope& e, float input,
                                                      float rate, float limit) noexcept;

    LaneFilter analysisL;
    LaneFilter analysisR;
    LaneFilter carrierFilter;
    LaneRamp carrierF;
    LaneRamp voiceGain;
    Envelope envL{};
    Envelope envR{};
    alignas(32) std::array<float, kLanes> phase{};
    alignas(32) std::array<float, kLanes> phaseStep{};
    alignas(32) std::array<float, kLanes> oscOut{};
    alignas(32) std::array<uint32_t, kLanes> readIndex{};
    alignas(32) std::array<float, kLanes> noteFreq{};
    alignas(32) std::array<float, kLanes> arpFreq{};

    // The wave with its deltas interleaved (WaveTables::pairs).
    const float* pairs;
    int32_t waveIndex = 0;
    int32_t octaveMode = 0;
    int32_t chordIndex = 0;
    int32_t arpMode = 0;
    bool detuned = false;
    int32_t voiceCount = 1;
    uint32_t arpLength = 0;
    uint32_t arpPos = 0;
    int32_t arpStep = 0;
    int32_t arpDirection = 1;
    uint32_t arpCycleCount = 0;
    float fadeGain = 1.0f;
    bool fadeIn = false;
    bool triggerArmed = true;
    float gainScale = 1.0f;
    float soundGain = 1.0f;
    float envRate = 0.0f;
    float fadeRate = 0.0f;
    float outputGain = 0.0f;
    // Oscillators up to the last one with a gain that is not zero in this block.
    int activeVoices = kLanes;
    // Samples processed since the last control tick, for the arpeggiator clock.
    uint32_t samplesSinceTick = 0;
};
