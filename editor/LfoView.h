#pragma once

#include "editor/AFViewContainer.h"

#include <array>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFOptionMenu;
class AFUniClientEditor;
class LfoAddView;

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
    A2ModulatableKnob* getSweepKnob(int i) const { return sweepKnobs[static_cast<std::size_t>(i)]; }

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
    std::array<A2ModulatableKnob*, 3> sweepKnobs{};
    std::array<A2ValueDisplay*, 3> sweepTexts{};
    std::array<float, 4> shown{};
};
