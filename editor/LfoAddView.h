#pragma once

#include "editor/AFControlListener.h"
#include "editor/AFViewContainer.h"

class A2ModulatableKnob;
class A2ValueDisplay;
class AFLfo;
class AFOptionMenu;
class AFUniClient;
class AFUniClientEditor;
class GlideEdit;
class LfoCurve;
class StepSeqView;

// One LFO's waveform menu, rate and phase knobs, rate divide, and its wave view or, for the step waveform,
// its step view with the pattern menu. It handles its tags itself, the same in both LFOs, and pushes the
// history commands of its LFO; `secondLfo` picks LFO 2. GUI thread.
class LfoAddView : public AFViewContainer, public AFControlListener {
public:
    static constexpr int kTagWaveform = 253;
    static constexpr int kTagQuantize = 254;
    static constexpr int kTagTrigger = 255;
    static constexpr int kTagRateDivide = 259;
    static constexpr int kStepWaveform = 13;

    LfoAddView(AFUniClientEditor& editor, const AFRect& size, bool secondLfo, uint32_t colour);

    // Points every control at `slot`'s LFO; leaves no history.
    void bindSlot(int slot);
    // Follows the engine: knob values, texts, waveform, the live phase and step.
    void follow();

    void valueChanged(AFControl* control) override;
    void beginEdit(int tag) override;
    void endEdit(int tag) override;

    AFOptionMenu* getWaveformMenu() const noexcept { return waveformMenu; }
    A2ModulatableKnob* getRateKnob() const noexcept { return rateKnob; }
    A2ModulatableKnob* getPhaseKnob() const noexcept { return phaseKnob; }
    A2ModulatableKnob* getRateDivideKnob() const noexcept { return divideKnob; }
    LfoCurve* getWaveView() const noexcept { return waveView; }
    StepSeqView* getStepView() const noexcept { return stepView; }
    GlideEdit* getGlideEdit() const noexcept { return glideEdit; }
    // The rate divide's step for a control value: 0..3 for 1, 1/2, 1/4, 1/8.
    static int divideStep(float value) noexcept { return static_cast<int>(3.99f * value); }
    // The history id of a field, the LFO 1 id for the first LFO.
    int commandId(int tag) const noexcept;

private:
    AFLfo& lfo() const;
    int parameterTag(int row) const noexcept;
    // The step view for the step waveform, the wave view for all others.
    void showViews(int waveform);
    void editField(int id, float newValue);
    void showTexts();

    AFUniClientEditor& editor;
    AFUniClient& client;
    bool secondLfo;
    int slot = 0;
    float divideValue = 0.0f;
    int divideShown = -1;
    float rateShown = -1.0f;
    float phaseShown = -1.0f;
    AFOptionMenu* waveformMenu;
    A2ModulatableKnob* rateKnob;
    A2ModulatableKnob* phaseKnob;
    A2ModulatableKnob* divideKnob;
    A2ValueDisplay* rateText;
    A2ValueDisplay* phaseText;
    A2ValueDisplay* divideText;
    LfoCurve* waveView;
    StepSeqView* stepView;
    GlideEdit* glideEdit;
};
