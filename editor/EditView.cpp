#include "editor/EditView.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFLayout.h"
#include "editor/AFOnOffButton.h"
#include "editor/AFPresetMenu.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/CurveSelect.h"
#include "editor/CurveSelector.h"
#include "editor/FXSelect.h"
#include "editor/GainFader.h"
#include "editor/KnobVisualizer.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kMixLawWords[KnobEngine::kMixLaws] = {
    "Mix: Linear", "Mix: Equal Power", "Mix: Dry Full", "Mix: Dry Follows", "Mix: Wet Only"};
constexpr const char* kGridWords[KnobEngine::kQuantiseModes] = {"Grid: Free", "Grid: 1/16", "Grid: 1/8",
                                                                "Grid: 1/4",  "Grid: 1/2",  "Grid: 1/1"};
constexpr const char* kGridShort[KnobEngine::kQuantiseModes] = {"", "1/16", "1/8", "1/4", "1/2", "1/1"};

int slotParameter(int slot, int row) {
    return AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + row;
}

} // namespace

EditView::EditView(AFUniClientEditor& editor, int slot)
    : AFViewContainer(AFLayout::slotRect(slot)), editor(editor), client(editor.getClient()), slot(slot) {
    using L = AFLayout;
    using B = AFBitmapId;
    const AFBitmapStore& bitmaps = editor.getBitmaps();
    AFControlListener* listener = &editor;
    const double x = size.left;
    const double y = size.top;

    effectSelect =
        addView(std::make_unique<FXSelect>(AFRect::ofSize(x + 3.0, y, L::kSlotWidth - 6.0, L::kHeaderHeight),
                                           listener, AFUniClientEditor::kTagEffect + slot, slot, bitmaps));
    const AFBitmap* lamps[4] = {bitmaps.get(B::kLampOff), bitmaps.get(B::kLampPending),
                                bitmaps.get(B::kLampFading), bitmaps.get(B::kLampRunning)};
    visualizer =
        addView(std::make_unique<KnobVisualizer>(AFRect::ofSize(x + 12.0, y + 34.0, 70.0, 16.0), lamps));

    const AFRect controlRect = AFRect::ofSize(x + (L::kSlotWidth - L::kControlKnob) * 0.5, y + 52.0,
                                              L::kControlKnob, L::kControlKnob);
    controlKnob =
        addView(std::make_unique<A2ModulatableKnob>(controlRect, listener, slot, bitmaps.get(B::kControlKnob),
                                                    editor.valuePointer(slot), editor.getLearnMenu()));
    controlKnob->setDefaultValue(0.0f);
    for (int i = 0; i < A2ModulatableKnob::kOverlays; ++i)
        controlKnob->setOverlay(i, bitmaps.get(B::kOverlayLfo1 + i), controlRect);
    controlText = addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(x + 10.0, y + 117.0, 130.0, 16.0),
                                                           12.0, L::kText, AFTextPainter::kCenter, true));

    std::array<AFRect, CurveSelect::kPickers> pickers;
    for (int i = 0; i < 6; ++i) {
        const double top = i < 4 ? y + 138.0 + i * 54.0 : y + 446.0 + (i - 4) * 44.0;
        if (i < 5) {
            const int tag = slotParameter(slot, i);
            auto* k = addView(std::make_unique<A2ModulatableKnob>(
                AFRect::ofSize(x + 10.0, top + 4.0, L::kParameterKnob, L::kParameterKnob), listener, tag,
                bitmaps.get(B::kParameterKnob), editor.valuePointer(tag), editor.getLearnMenu()));
            k->setDefaultValue(i == 4 ? 1.0f : 0.5f);
            parameterKnobs[static_cast<std::size_t>(i)] = k;
            pickers[static_cast<std::size_t>(i)] = AFRect::ofSize(x + 118.0, top + 35.0, 26.0, 14.0);
        }
        // FX Gain is a fader across the strip under its name and text.
        const double textLeft = i < 5 ? x + 52.0 : x + 10.0;
        parameterNames[static_cast<std::size_t>(i)] = addView(std::make_unique<A2ValueDisplay>(
            AFRect::ofSize(textLeft, top + 2.0, 92.0, 15.0), 10.0, L::kDimText, AFTextPainter::kLeft));
        parameterTexts[static_cast<std::size_t>(i)] = addView(std::make_unique<A2ValueDisplay>(
            i < 5 ? AFRect::ofSize(x + 52.0, top + 17.0, 92.0, 17.0)
                  : AFRect::ofSize(x + 70.0, top + 1.0, 72.0, 17.0),
            12.5, L::kText, i < 5 ? AFTextPainter::kLeft : AFTextPainter::kRight, true));
        shownValues[static_cast<std::size_t>(i)] = -1.0f;
    }
    const int gainTag = AFUniClient::kFxGainStart + slot;
    gainFader = addView(std::make_unique<GainFader>(AFRect::ofSize(x + 8.0, y + 510.0, 134.0, 18.0), listener,
                                                    gainTag, editor.valuePointer(gainTag),
                                                    editor.getLearnMenu(), L::slotColour(slot)));
    curveSelect = addView(std::make_unique<CurveSelect>(
        pickers, listener, AFUniClientEditor::kTagCurve + slot * 5, bitmaps, editor.getCurveMenu()));
    parameterNames[4]->setText("Dry/Wet");
    parameterNames[5]->setText("FX Gain");

    for (int j = 0; j < 4; ++j) {
        optionMenus[static_cast<std::size_t>(j)] =
            addView(std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 8.0, y + 358.0 + j * 21.0, 134.0, 18.0),
                                                   listener, AFUniClientEditor::kTagOption + slot * 4 + j));
    }
    mixLawMenu = addView(std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 8.0, y + 534.0, 134.0, 18.0),
                                                        listener, AFUniClientEditor::kTagMixLaw + slot));
    for (const char* word : kMixLawWords)
        mixLawMenu->addEntry(word);
    quantiseMenu = addView(std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 8.0, y + 555.0, 134.0, 18.0),
                                                          listener, AFUniClientEditor::kTagQuantise + slot));
    for (const char* word : kGridWords)
        quantiseMenu->addEntry(word);
    const int bypassTag = slotParameter(slot, KnobEngine::kBypass);
    bypass = addView(std::make_unique<AFOnOffButton>(
        AFRect::ofSize(x + 84.0, y + 33.0, 58.0, 18.0), listener, bypassTag, bitmaps.get(B::kBypassOff),
        bitmaps.get(B::kBypassOn), editor.valuePointer(bypassTag)));
    presetMenu =
        addView(std::make_unique<AFPresetMenu>(AFRect::ofSize(x + 8.0, y + 586.0, 134.0, 22.0), listener,
                                               AFUniClientEditor::kTagSlotPreset + slot, "afo"));
    presetMenu->setFaceColour(0x0A0B0F);
    refresh();
}

CurveSelector* EditView::getCurveSelector(int i) const {
    return curveSelect->getSelector(i);
}

void EditView::refresh() {
    boundType = -1;
    for (float& shown : shownValues)
        shown = -1.0f;
    rebindEffect();
    followValues();
}

void EditView::rebindEffect() {
    KnobEngine& engine = client.getSlot(slot);
    AFEffect* effect = engine.getEffect();
    const int type = engine.getEffectType();
    const std::string effectName = EffectFactory::effectName(type);
    presetMenu->setFolder(client.getContentPaths().effectPresetPath(effectName));
    presetMenu->setLabel(client.getPresetName(slot));
    if (type == boundType) return;
    boundType = type;
    effectSelect->setEffect(type);
    char text[kEffectTextSize];
    for (int i = 0; i < 4; ++i) {
        text[0] = '\0';
        if (effect != nullptr) effect->getParameterName(i, text);
        parameterNames[static_cast<std::size_t>(i)]->setText(text);
        shownValues[static_cast<std::size_t>(i)] = -1.0f;
    }
    for (int j = 0; j < 4; ++j) {
        AFOptionMenu* menu = optionMenus[static_cast<std::size_t>(j)];
        menu->removeAllEntry();
        AFWordList words;
        if (effect != nullptr) effect->getOptionList(j, words);
        for (const std::string& word : words)
            menu->addEntry(word);
        menu->setVisible(!words.empty());
    }
}

void EditView::followValues() {
    KnobEngine& engine = client.getSlot(slot);
    AFEffect* effect = engine.getEffect();
    if (engine.getEffectType() != boundType) rebindEffect();
    // Values the host, MIDI or the Dictator moved; a knob in the hand keeps what the hand says.
    editor.followParameter(controlKnob);
    for (A2ModulatableKnob* knob : parameterKnobs)
        editor.followParameter(knob);
    editor.followParameter(gainFader);
    editor.followParameter(bypass);
    char text[kEffectTextSize];
    const float control = controlKnob->getValue();
    std::snprintf(text, sizeof text, "%d%%", static_cast<int>(std::lround(control * 100.0f)));
    controlText->setText(text);
    for (int i = 0; i < 6; ++i) {
        const float value =
            i < 5 ? parameterKnobs[static_cast<std::size_t>(i)]->getValue() : gainFader->getValue();
        if (value == shownValues[static_cast<std::size_t>(i)]) continue;
        shownValues[static_cast<std::size_t>(i)] = value;
        if (i < 4 && effect != nullptr) {
            text[0] = '\0';
            effect->formatParameter(i, value, text);
        } else if (i == 4) {
            std::snprintf(text, sizeof text, "%d%%", static_cast<int>(std::lround(value * 100.0f)));
        } else {
            // FX Gain: 0.5 + v below the middle, 2v above, from -6 dB through unity to +6 dB.
            const float linear = value < 0.5f ? value + 0.5f : value + value;
            std::snprintf(text, sizeof text, "%+.1f dB", 20.0 * std::log10(std::max(linear, 1e-6f)));
        }
        parameterTexts[static_cast<std::size_t>(i)]->setText(text);
    }
    curveSelect->follow(engine);
    for (int j = 0; j < 4; ++j) {
        AFOptionMenu* menu = optionMenus[static_cast<std::size_t>(j)];
        if (menu->isVisible() && effect != nullptr) menu->setCurrent(effect->getOption(j));
    }
    mixLawMenu->setCurrent(engine.getMixLaw());
    quantiseMenu->setCurrent(engine.getQuantiseMode());
    presetMenu->setLabel(client.getPresetName(slot));
}

void EditView::followModulation() {
    KnobEngine& engine = client.getSlot(slot);
    int state = KnobVisualizer::kOff;
    if (engine.isRunning())
        state = engine.getPending() == -1 || engine.getFade() < 0.999f ? KnobVisualizer::kFading
                                                                       : KnobVisualizer::kRunning;
    else if (engine.getPending() == 1)
        state = KnobVisualizer::kPending;
    const int mode = std::clamp(engine.getQuantiseMode(), 0, KnobEngine::kQuantiseModes - 1);
    visualizer->setState(state, kGridShort[mode]);
    // Each modulator's current push on the Control, drawn where it carries it; hidden while it has no amount.
    constexpr int amountRows[3] = {KnobEngine::kLfoAmount, KnobEngine::kLfo2Amount, KnobEngine::kEfAmount};
    const float control = controlKnob->getValue();
    for (int i = 0; i < A2ModulatableKnob::kOverlays; ++i) {
        const float amount = client.getParameter(slotParameter(slot, amountRows[i]));
        const float position = std::clamp(control + engine.getModulatorOutput(i), 0.0f, 1.0f);
        controlKnob->setOverlayPosition(i, amount > 0.0f && engine.isRunning() ? position : -1.0f);
    }
}

void EditView::onIdle() {
    followValues();
    followModulation();
    AFViewContainer::onIdle();
}
