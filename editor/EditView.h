#pragma once

#include "editor/AFViewContainer.h"

#include <array>
#include <string>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFBitmapStore;
class AFOnOffButton;
class AFOptionMenu;
class AFPresetMenu;
class AFUniClient;
class AFUniClientEditor;
class CurveSelect;
class CurveSelector;
class FXSelect;
class GainFader;
class KnobVisualizer;

// One slot's strip: the effect header, the Control with its modulation overlays and state, the four
// parameters with their texts and curves, the effect's options, Dry/Wet, the FX Gain fader, Bypass, mix law,
// quantise grid and the effect preset menu. Its idle pass follows the engine. GUI thread.
class EditView : public AFViewContainer {
public:
    EditView(AFUniClientEditor& editor, int slot);

    // Re-reads everything from the engine (after an effect swap, a load, undo).
    void refresh();
    void onIdle() override;

    FXSelect* getEffectSelect() const noexcept { return effectSelect; }
    A2ModulatableKnob* getControlKnob() const noexcept { return controlKnob; }
    A2ModulatableKnob* getParameterKnob(int i) const { return parameterKnobs[static_cast<std::size_t>(i)]; }
    GainFader* getGainFader() const noexcept { return gainFader; }
    CurveSelector* getCurveSelector(int i) const;
    AFPresetMenu* getPresetMenu() const noexcept { return presetMenu; }

private:
    void rebindEffect();
    void followValues();
    void followModulation();

    AFUniClientEditor& editor;
    AFUniClient& client;
    int slot;
    int boundType = -1;
    FXSelect* effectSelect;
    KnobVisualizer* visualizer;
    A2ModulatableKnob* controlKnob;
    A2ValueDisplay* controlText;
    std::array<A2ModulatableKnob*, 5> parameterKnobs{}; // Parameter 1..4, Dry/Wet
    GainFader* gainFader;
    std::array<A2ValueDisplay*, 6> parameterNames{};
    std::array<A2ValueDisplay*, 6> parameterTexts{};
    std::array<float, 6> shownValues{};
    CurveSelect* curveSelect;
    std::array<AFOptionMenu*, 4> optionMenus{};
    AFOptionMenu* mixLawMenu;
    AFOptionMenu* quantiseMenu;
    AFOnOffButton* bypass;
    AFPresetMenu* presetMenu;
};
