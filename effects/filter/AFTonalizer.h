#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/SampleBlock.h"

#include <array>

// Pitched resonator: one feedback comb per channel, tuned to a note that can be held to a scale grid. "Hold"
// freezes what the combs contain; in "Sweep" the frozen sound pulses once per beat; in "Rootnote" the fourth
// knob transposes both notes and their grids instead.
class AFTonalizer : public AFEffect, public AFBPMChangeInterface {
public:
    AFTonalizer(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, count <= 64.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread: scales, feedback sign, hold mode (renames the fourth knob).
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, from activate or on a rate change; also the constructor.
    void reset() override;
    // Audio thread, once per control tick before process.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    enum HoldMode : int32_t { kFlat = 0, kSweep = 1, kRootnote = 2 };

private:
    // Note number of a side (the note table's index) for knob value v, scale and transposition in semitones.
    static float noteFor(float v, int32_t scale, int transposition) noexcept;
    // Transposition in semitones, 0..11, that the fourth knob selects in "Rootnote".
    static int rootFor(float v) noexcept;
    // Comb delay in samples for a note, at the current rate.
    double delayFor(float note) const noexcept;
    int transposition() const noexcept;
    void updateLineLength() noexcept;
    // Starts a crossfade to the ramp's new target when the ramp would sweep the read too fast.
    void crossfadeLargeMove(ParamRamp& delay, int side) noexcept;
    template <bool Crossfade>
    void run(float* left, float* right, int count) noexcept;

    SampleBlock lineL;
    SampleBlock lineR;
    int writeIndex = 0;
    int lineLength = 0;
    float lineRate = 0.0f;
    ParamRamp delayL;
    ParamRamp delayR;
    ParamRamp feedback;
    // A delay move faster than the line plays would sweep its content past as a burst of noise; instead the
    // read crossfades from the old delay to the new one over one tick. Left and right.
    std::array<double, 2> fadeFrom{};
    std::array<float, 2> fadeBlend{1.0f, 1.0f};
    float fadeStep = 0.0f;
    // DC blocker in each comb's feedback path: the combs would otherwise resonate at 0 Hz as at every
    // harmonic.
    std::array<float, 2> blockIn{};
    std::array<float, 2> blockOut{};
    float blockPole = 0.0f;
    float holdGate = 0.0f;
    float holdRate = 0.0f;
    float sweepPhase = 0.5f;
    float sweepStep = 0.0f;
    int32_t scaleL = 0;
    int32_t scaleR = 0;
    int32_t feedbackSign = 0;
    int32_t holdMode = kFlat;
    const float* sine = nullptr;
    const float* sineDelta = nullptr;
};
