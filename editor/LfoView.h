#pragma once

#include "editor/AFViewContainer.h"

#include <array>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFOptionMenu;
class AFUniClientEditor;
class LfoAddView;
class SweepRow;

// One LFO of the selected slot: its LfoAddView, the amount knob, quantize and trigger, and how far the
// main control sweeps its rate, phase and amount. GUI thread.
class LfoView : public AFViewContainer {
public:
    static constexpr int kQuantizeChoices = 16;

    LfoView(AFUniClientEditor& editor, const AFRect& size, bool secondLfo);

    void bindSlot(int slot);
    void follow();
    void drawBackground(cairo_t* cr) override;

    LfoAddView* getAddView() const noexcept { return lfoAddView; }
    A2ModulatableKnob* getAmountKnob() const noexcept { return amountKnob; }
    AFOptionMenu* getQuantizeMenu() const noexcept { return quantizeMenu; }
    AFOptionMenu* getTriggerMenu() const noexcept { return triggerMenu; }
    SweepRow* getSweeps() const noexcept { return sweeps; }

private:
    int rowTag(int row) const noexcept;

    AFUniClientEditor& editor;
    bool secondLfo;
    int slot = 0;
    LfoAddView* lfoAddView;
    A2ModulatableKnob* amountKnob;
    A2ValueDisplay* amountText;
    AFOptionMenu* quantizeMenu;
    AFOptionMenu* triggerMenu;
    SweepRow* sweeps;
    float shownAmount = -1.0f;
};
