#include "editor/LfoAddView.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFLayout.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/GlideEdit.h"
#include "editor/LfoCurve.h"
#include "editor/StepSeqView.h"
#include "engine/AFCommandAttribute.h"
#include "engine/AFCommandStepSeq.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFLfo.h"

#include <cmath>
#include <cstdio>
#include <memory>

namespace {

constexpr const char* kDivideWords[4] = {"Divide 1/1", "Divide 1/2", "Divide 1/4", "Divide 1/8"};

} // namespace

LfoAddView::LfoAddView(AFUniClientEditor& editor, const AFRect& size, bool secondLfo, uint32_t colour)
    : AFViewContainer(size), editor(editor), client(editor.getClient()), secondLfo(secondLfo) {
    using B = AFBitmapId;
    using L = AFLayout;
    const AFBitmapStore& bitmaps = editor.getBitmaps();
    const double x = size.left;
    const double y = size.top;

    waveformMenu = addView(
        std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 10.0, y + 4.0, 200.0, 22.0), this, kTagWaveform));
    for (int i = 0; i < AFLfo::kWaveformCount; ++i)
        waveformMenu->addEntry(AFLfo::waveformName(i));
    divideText = addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(x + 236.0, y + 4.0, 100.0, 22.0),
                                                          11.0, L::kText, AFTextPainter::kRight));
    divideKnob =
        addView(std::make_unique<A2ModulatableKnob>(AFRect::ofSize(x + 344.0, y + 0.0, 30.0, 30.0), this,
                                                    kTagRateDivide, bitmaps.get(B::kGainKnob), &divideValue));
    divideKnob->setDefaultValue(0.0f);

    const AFRect viewRect = AFRect::ofSize(x + 10.0, y + 34.0, size.width() - 20.0, 200.0);
    waveView = addView(std::make_unique<LfoCurve>(viewRect, this, colour));
    stepView = addView(std::make_unique<StepSeqView>(viewRect, this, colour));
    glideEdit = addView(std::make_unique<GlideEdit>(
        editor, AFRect::ofSize(x + 10.0, y + 240.0, size.width() - 20.0, 22.0), secondLfo));

    const int rateRow = secondLfo ? KnobEngine::kLfo2Rate : KnobEngine::kLfoRate;
    const int phaseRow = secondLfo ? KnobEngine::kLfo2Phase : KnobEngine::kLfoPhase;
    A2ModulatableKnob** knobs[2] = {&rateKnob, &phaseKnob};
    A2ValueDisplay** texts[2] = {&rateText, &phaseText};
    const char* names[2] = {"RATE", "PHASE"};
    for (int i = 0; i < 2; ++i) {
        const double left = x + 20.0 + i * 130.0;
        const int tag = parameterTag(i == 0 ? rateRow : phaseRow);
        *knobs[i] = addView(std::make_unique<A2ModulatableKnob>(
            AFRect::ofSize(left + 25.0, y + 272.0, L::kControlKnob, L::kControlKnob), &editor, tag,
            bitmaps.get(B::kControlKnob), editor.valuePointer(tag), editor.getLearnMenu()));
        *texts[i] = addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left, y + 338.0, 114.0, 18.0),
                                                             13.0, L::kText, AFTextPainter::kCenter, true));
        addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left, y + 356.0, 114.0, 14.0), 10.0,
                                                 L::kDimText, AFTextPainter::kCenter))
            ->setText(names[i]);
    }
    rateKnob->setDefaultValue(0.5f);
    phaseKnob->setDefaultValue(0.0f);
}

int LfoAddView::parameterTag(int row) const noexcept {
    return AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + row;
}

AFLfo& LfoAddView::lfo() const {
    return *client.getSlot(slot).getLfo(secondLfo ? 1 : 0);
}

int LfoAddView::commandId(int tag) const noexcept {
    if (tag == kTagRateDivide) return secondLfo ? AFCommandAttribute::kLfo2RateDivide : tag;
    return secondLfo ? tag + 3 : tag;
}

void LfoAddView::bindSlot(int newSlot) {
    slot = newSlot;
    const int rateTag = parameterTag(secondLfo ? KnobEngine::kLfo2Rate : KnobEngine::kLfoRate);
    const int phaseTag = parameterTag(secondLfo ? KnobEngine::kLfo2Phase : KnobEngine::kLfoPhase);
    rateKnob->setTag(rateTag);
    rateKnob->setValuePointer(editor.valuePointer(rateTag));
    phaseKnob->setTag(phaseTag);
    phaseKnob->setValuePointer(editor.valuePointer(phaseTag));
    AFLfo& target = lfo();
    divideValue = target.getRateDivide();
    divideShown = -1;
    rateShown = phaseShown = -1.0f;
    waveView->bind(&target);
    stepView->bind(&target);
    glideEdit->bindSlot(slot);
    waveformMenu->setCurrent(target.getWaveform());
    showViews(target.getWaveform());
    invalid();
    follow();
}

void LfoAddView::showViews(int waveform) {
    const bool steps = waveform == kStepWaveform;
    stepView->setVisible(steps);
    glideEdit->setVisible(steps);
    waveView->setVisible(!steps);
}

void LfoAddView::showTexts() {
    char text[kEffectTextSize];
    const float rate = rateKnob->getValue();
    if (rate != rateShown) {
        rateShown = rate;
        text[0] = '\0';
        lfo().formatParameter(1, rate, text);
        rateText->setText(text);
    }
    const float phase = phaseKnob->getValue();
    if (phase != phaseShown) {
        phaseShown = phase;
        std::snprintf(text, sizeof text, "%.0f\xC2\xB0", phase * 360.0f);
        phaseText->setText(text);
    }
    const int step = divideStep(divideValue);
    if (step != divideShown) {
        divideShown = step;
        divideText->setText(kDivideWords[step & 3]);
    }
}

void LfoAddView::follow() {
    editor.followParameter(rateKnob);
    editor.followParameter(phaseKnob);
    const AFLfo& target = lfo();
    if (const int waveform = target.getWaveform(); waveform != waveformMenu->getCurrent()) {
        waveformMenu->setCurrent(waveform);
        showViews(waveform);
    }
    if (!divideKnob->isDragging() && target.getRateDivide() != divideValue) {
        divideValue = target.getRateDivide();
        divideKnob->invalid();
    }
    showTexts();
    waveView->setOffset(phaseKnob->getValue());
    stepView->setOffset(phaseKnob->getValue());
    if (waveView->isVisible()) waveView->follow();
    if (stepView->isVisible()) stepView->follow();
}

void LfoAddView::editField(int id, float newValue) {
    const float old = AFCommandAttribute::current(client, slot, id);
    if (old == newValue) return;
    client.getHistory().add(std::make_unique<AFCommandAttribute>(slot, id, old, newValue));
    AFCommandAttribute::apply(client, slot, id, 0, newValue);
}

void LfoAddView::valueChanged(AFControl* control) {
    const int tag = control->getTag();
    switch (tag) {
    case kTagWaveform: {
        const int waveform = static_cast<int>(control->getValue());
        editField(commandId(tag), static_cast<float>(waveform));
        showViews(waveform);
        waveView->follow();
        break;
    }
    case kTagQuantize:
    case kTagTrigger:
        editField(commandId(tag), control->getValue());
        break;
    case kTagRateDivide: {
        // Only a change of the step is a change of the rate; moving within one step stores nothing.
        const int step = divideStep(divideValue);
        if (step == divideStep(lfo().getRateDivide())) break;
        editField(commandId(tag), divideValue / AFCommandAttribute::kRateDivideScale);
        break;
    }
    case LfoCurve::kTag:
        client.setParameterAutomated(phaseKnob->getTag(), control->getValue());
        // The knob shows the gesture's value at once; following skips a parameter in a gesture.
        editor.valuePointer(phaseKnob->getTag());
        phaseKnob->invalid();
        break;
    default:
        break;
    }
    showTexts();
}

void LfoAddView::beginEdit(int tag) {
    if (tag == LfoCurve::kTag) editor.beginEdit(phaseKnob->getTag());
    if (tag == StepSeqView::kTag)
        client.getHistory().add(std::make_unique<AFCommandStepSeq>(client, slot, secondLfo ? 1 : 0));
}

void LfoAddView::endEdit(int tag) {
    if (tag == LfoCurve::kTag) editor.endEdit(phaseKnob->getTag());
}
