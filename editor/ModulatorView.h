#pragma once

#include "editor/AFControlListener.h"
#include "editor/AFViewContainer.h"

#include <array>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFUniClientEditor;
class EnvFollowerView;
class LfoView;
class ModAmountSwitch;

// The modulator page: a row of eight slot buttons picks the slot, whose two LFOs, envelope follower and
// modulation depths the page shows and edits. Choosing a slot rebinds the page and leaves no history. GUI
// thread.
class ModulatorView : public AFViewContainer, public AFControlListener {
public:
    static constexpr double kButtonHeight = 30.0;
    // The three depth knobs, in the order of the slot's amount table: LFO 1, envelope, LFO 2.
    static constexpr int kDepths = 3;

    ModulatorView(AFUniClientEditor& editor, const AFRect& size);

    // Shows `slot`'s modulators.
    void bindSlot(int slot);
    int getSlot() const noexcept { return slot; }
    // The live pass, from the editor's timer: values, texts, phases and levels.
    void followEngine();
    // Points the depth knobs at target 0..4 (Parameter 1..4, Dry/Wet).
    void showTarget(int target);
    AFRect slotButtonRect(int slot) const noexcept;
    // The bar that shows where target 0..4 sits now, after all modulation.
    AFRect effectiveRect(int target) const noexcept;

    void drawBackground(cairo_t* cr) override;
    bool onMouseDown(const AFMouseEvent& event) override;
    void valueChanged(AFControl* control) override;

    LfoView* getLfoView(int which) const { return lfoViews[static_cast<std::size_t>(which)]; }
    EnvFollowerView* getEnvFollowerView() const noexcept { return envelopeView; }
    ModAmountSwitch* getAmountSwitch() const noexcept { return amountSwitch; }
    A2ModulatableKnob* getDepthKnob(int i) const { return depthKnobs[static_cast<std::size_t>(i)]; }

private:
    int depthTag(int modulator) const noexcept;
    void followTargets();

    AFUniClientEditor& editor;
    int slot = 0;
    int target = 0;
    std::array<int, 8> slotTypes{};
    int boundType = -1;
    std::array<LfoView*, 2> lfoViews{};
    EnvFollowerView* envelopeView;
    ModAmountSwitch* amountSwitch;
    std::array<A2ModulatableKnob*, kDepths> depthKnobs{};
    std::array<A2ValueDisplay*, kDepths> depthTexts{};
    std::array<float, kDepths> shown{};
    AFRect depthPanel;
    std::array<float, 5> effective{};
    std::array<int, 5> effectivePixels{};
};
