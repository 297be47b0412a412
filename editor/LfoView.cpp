#include "editor/LfoView.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFLayout.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/LfoAddView.h"
#include "editor/SweepRow.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFLfo.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

namespace {

constexpr const char* kTriggerWords[AFLfo::kTriggerModeCount] = {"Trigger: Free", "Trigger: One Shot",
                                                                 "Trigger: Transport"};
constexpr const char* kSweepNames[SweepRow::kKnobs] = {"RATE", "PHASE", "AMOUNT"};

} // namespace

LfoView::LfoView(AFUniClientEditor& editor, const AFRect& size, bool secondLfo)
    : AFViewContainer(size), editor(editor), secondLfo(secondLfo) {
    using B = AFBitmapId;
    using L = AFLayout;
    const AFBitmapStore& bitmaps = editor.getBitmaps();
    const double x = size.left;
    const double y = size.top;
    const uint32_t colour = secondLfo ? 0x7FD4FF : L::kAccent;

    lfoAddView = addView(std::make_unique<LfoAddView>(
        editor, AFRect::ofSize(x, y + 30.0, size.width(), 376.0), secondLfo, colour));
    const int amountTag = rowTag(secondLfo ? KnobEngine::kLfo2Amount : KnobEngine::kLfoAmount);
    amountKnob = addView(std::make_unique<A2ModulatableKnob>(
        AFRect::ofSize(x + 305.0, y + 302.0, L::kControlKnob, L::kControlKnob), &editor, amountTag,
        bitmaps.get(B::kControlKnob), editor.valuePointer(amountTag), editor.getLearnMenu()));
    amountText = addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(x + 280.0, y + 368.0, 114.0, 18.0),
                                                          13.0, L::kText, AFTextPainter::kCenter, true));
    addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(x + 280.0, y + 386.0, 114.0, 14.0), 10.0,
                                             L::kDimText, AFTextPainter::kCenter))
        ->setText("AMOUNT");

    // Quantize and trigger carry the LFO's own tags; its add view handles them.
    quantizeMenu = addView(std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 10.0, y + 412.0, 180.0, 22.0),
                                                          lfoAddView, LfoAddView::kTagQuantize));
    quantizeMenu->addEntry("Quantize: Off");
    char text[32];
    for (int q = 1; q < kQuantizeChoices; ++q) {
        std::snprintf(text, sizeof text, "Quantize: %d Levels", q + 1);
        quantizeMenu->addEntry(text);
    }
    triggerMenu = addView(std::make_unique<AFOptionMenu>(AFRect::ofSize(x + 200.0, y + 412.0, 180.0, 22.0),
                                                         lfoAddView, LfoAddView::kTagTrigger));
    for (const char* word : kTriggerWords)
        triggerMenu->addEntry(word);

    sweeps = addView(
        std::make_unique<SweepRow>(editor, AFRect::ofSize(x + 10.0, y + 452.0, 370.0, 60.0), kSweepNames));
}

int LfoView::rowTag(int row) const noexcept {
    return AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + row;
}

void LfoView::bindSlot(int newSlot) {
    slot = newSlot;
    lfoAddView->bindSlot(slot);
    const int amountTag = rowTag(secondLfo ? KnobEngine::kLfo2Amount : KnobEngine::kLfoAmount);
    amountKnob->setTag(amountTag);
    amountKnob->setValuePointer(editor.valuePointer(amountTag));
    sweeps->bind(rowTag(secondLfo ? KnobEngine::kLfoRateKA + 6 : KnobEngine::kLfoRateKA));
    shownAmount = -1.0f;
    invalid();
    follow();
}

void LfoView::follow() {
    lfoAddView->follow();
    const AFLfo& lfo = *editor.getClient().getSlot(slot).getLfo(secondLfo ? 1 : 0);
    char text[32];
    if (const int quantize = lfo.getQuantizeSteps(); quantize != quantizeMenu->getCurrent()) {
        // A stored count beyond the menu's choices still shows what it is.
        std::snprintf(text, sizeof text, "Quantize: %d Levels", quantize + 1);
        quantizeMenu->setLabel(quantize < kQuantizeChoices ? std::string() : std::string(text));
        quantizeMenu->setCurrent(quantize);
    }
    triggerMenu->setCurrent(lfo.getTriggerMode());
    editor.followParameter(amountKnob);
    if (const float amount = amountKnob->getValue(); amount != shownAmount) {
        shownAmount = amount;
        std::snprintf(text, sizeof text, "%d%%", static_cast<int>(std::lround(amount * 100.0f)));
        amountText->setText(text);
    }
    sweeps->follow();
}

void LfoView::drawBackground(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::roundedRect(cr, size, 6.0);
    AFTextPainter::setColour(cr, AFLayout::kPanel);
    cairo_fill(cr);
    const uint32_t colour = secondLfo ? 0x7FD4FF : AFLayout::kAccent;
    const AFRect title = AFRect::ofSize(size.left + 12.0, size.top + 6.0, 120.0, 20.0);
    if (title.intersects(AFTextPainter::clipRect(cr)))
        AFTextPainter::draw(cr, secondLfo ? "LFO 2" : "LFO 1", title, 15.0, colour, AFTextPainter::kLeft,
                            true);
    cairo_restore(cr);
}
