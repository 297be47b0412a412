#pragma once

#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>
#include <vector>

// "Vowel Filter": two formants read from a nine-vowel table, crossfaded between two chosen vowels, realised
// by one of four filter models. Coefficients are worked out at control rate; only the chosen model runs.
class AFVowelFilter : public AFEffect {
public:
    AFVowelFilter(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread in place; count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread: "Comp" is stored as model number 4 and read back as 4.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // GUI thread: "Vowel Mix" is the special one.
    bool isSpecialParameter(int index) override { return index == 2; }
    // GUI thread: the nine vowel words of "Vowel A" and "Vowel B".
    void getParameterWords(int index, AFWordList& list) override;
    // GUI thread: nine steps for the two vowel knobs.
    float getParameterSteps(int index) override { return index == 0 || index == 1 ? 9.0f : 0.0f; }
    // Nobody calls it.
    bool hasFlag() override { return true; }

    enum Model { Highpass = 0, Lowpass = 1, Bandpass = 2, Comp = 4 };
    static constexpr int kVowels = 9;
    static constexpr float kMixRampMs = 24.0f;
    static constexpr float kOutputGain = 0.7f;

    struct Vowel {
        const char* word;
        float f1;
        float f2;
    };
    // Any thread: the nine vowels and a repeat of the last, so interpolation past the end stays inside.
    static const std::array<Vowel, kVowels + 1>& vowels() noexcept;
    // Any thread: formant frequencies of a vowel knob position.
    static void vowelFrequencies(float value, float& f1, float& f2) noexcept;
    // Any thread: frequency and damping coefficients of the tuned state-variable filter for a formant.
    static void svfCoefficients(float frequency, float resonance, float rowCap, float sampleRate, float& f,
                                float& q) noexcept;

    // Audio thread: the gliding vowel mix and the working formants in Hz.
    float currentMix() const noexcept { return mix; }
    float formant(int which) const noexcept { return which == 0 ? formant1 : formant2; }

private:
    struct Svf {
        float band = 0.0f;
        float low = 0.0f;
        float high = 0.0f;
    };
    struct Peak {
        float y1 = 0.0f;
        float y2 = 0.0f;
    };
    struct Comb {
        float lp = 0.0f;  // low-pass history
        float out = 0.0f; // last output, fed back
    };

    void deriveRate() noexcept;
    void updateFormants() noexcept;
    void runHighpass(float* left, float* right, int count) noexcept;
    void runLowpass(float* left, float* right, int count) noexcept;
    void runBandpass(float* left, float* right, int count) noexcept;
    void runComp(float* left, float* right, int count) noexcept;

    float f1A = 0.0f;
    float f2A = 0.0f;
    float f1B = 0.0f;
    float f2B = 0.0f;
    float mix = 0.0f;
    float mixTarget = 0.0f;
    float mixStep = 0.0f;
    float mixCount = 0.0f;
    float resonance = 1.0f; // r' = v^0.84
    float formant1 = 0.0f;
    float formant2 = 0.0f;
    int32_t model = Highpass;
    int32_t appliedModel = -1;
    bool dirty = true;

    float rate = 0.0f;
    float bandLow = 0.0f;
    float bandHigh = 0.0f;
    float omegaPerHz = 0.0f;
    float samplesPerMs = 0.0f;
    float lpT = 0.0f;
    float lpInverse = 0.0f;

    // Highpass and Bandpass models: f and q per formant.
    std::array<float, 2> svfF{};
    std::array<float, 2> svfQ{};
    std::array<Svf, 4> highpassSvf{}; // channel * 2 + formant
    std::array<Svf, 8> bandpassSvf{}; // (channel * 2 + formant) * 2 + stage
    // Lowpass model: per formant b0, b2, a1, a2; input delays per channel; output delays per channel *
    // formant.
    std::array<float, 2> peakB0{};
    std::array<float, 2> peakB2{};
    std::array<float, 2> peakA1{};
    std::array<float, 2> peakA2{};
    std::array<float, 2> inputX1{};
    std::array<float, 2> inputX2{};
    std::array<Peak, 4> peaks{};
    // Comp model: one line per channel and formant.
    std::array<float, 2> combDelay{};
    float combFeedback = 0.0f;
    std::array<std::vector<float>, 4> combLines;
    std::array<Comb, 4> combs{};
    int combLength = 1;
    int combWrite = 0;
};
