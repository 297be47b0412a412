#include "EditorTestSupport.h"
#include "TempFolder.h"
#include "TestHost.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFMenuHelper.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFUniClientEditor.h"
#include "editor/EditView.h"
#include "editor/GlideEdit.h"
#include "editor/LfoAddView.h"
#include "editor/LfoCurve.h"
#include "editor/LfoView.h"
#include "editor/ModAmountSwitch.h"
#include "editor/ModulatorView.h"
#include "editor/StepSeqView.h"
#include "editor/SweepRow.h"
#include "engine/AFCommandAttribute.h"
#include "engine/KnobEngine.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "modulation/AFStepPatternFile.h"

#include <gtest/gtest.h>

#include <string>

namespace {

AFMouseEvent at(double x, double y) {
    AFMouseEvent event;
    event.x = x;
    event.y = y;
    return event;
}

AFMouseEvent centre(const AFView* view) {
    const AFRect& r = view->getViewSize();
    return at((r.left + r.right) * 0.5, (r.top + r.bottom) * 0.5);
}

// The editor with the modulator page in the frame in place of the strips, as the page holder shows it.
class ModulatorPage : public ::testing::Test {
protected:
    TestHost testHost;
    AFUniClient& client = testHost.client();
    editortest::ScriptedHost host;
    AFUniClientEditor editor{client, host};
    AFFrame* frame = nullptr;
    ModulatorView* page = nullptr;

    void SetUp() override {
        editor.open();
        frame = editor.getFrame();
        editor.showPage("modulators");
        page = editor.getModulatorView();
    }

    LfoAddView& lfo(int which) { return *page->getLfoView(which)->getAddView(); }
    AFLfo& engineLfo(int slot, int which) { return *client.getSlot(slot).getLfo(which); }
    int historySize() { return client.getHistory().getPosition(); }
    // The attribute command last pushed.
    const AFCommandAttribute* lastAttribute() {
        return dynamic_cast<const AFCommandAttribute*>(client.getHistory().at(historySize() - 1));
    }
    void choose(AFOptionMenu* menu, int entry) {
        frame->mouseDown(centre(menu));
        ASSERT_EQ(frame->getOpenMenu(), menu);
        const AFRect popup = menu->getPopupRect();
        frame->mouseDown(at(popup.left + 20.0, popup.top + 2.0 + (entry + 0.5) * AFMenuHelper::kRowHeight));
    }
    void drag(double fromX, double fromY, double toX, double toY) {
        frame->mouseDown(at(fromX, fromY));
        frame->mouseMoved(at(toX, toY));
        frame->mouseUp(at(toX, toY));
    }
};

} // namespace

TEST_F(ModulatorPage, WaveformSwapsViewsBothWaysAsOneUndoableStepPerLfo) {
    for (int which = 0; which < 2; ++which) {
        LfoAddView& view = lfo(which);
        ASSERT_EQ(view.getWaveformMenu()->getNbEntries(), AFLfo::kWaveformCount);
        EXPECT_EQ(view.getWaveformMenu()->getEntry(13), "Stepsequencer");
        const int before = historySize();
        choose(view.getWaveformMenu(), LfoAddView::kStepWaveform);
        EXPECT_EQ(engineLfo(0, which).getWaveform(), 13);
        EXPECT_TRUE(view.getStepView()->isVisible());
        EXPECT_TRUE(view.getGlideEdit()->isVisible());
        EXPECT_FALSE(view.getWaveView()->isVisible());
        ASSERT_EQ(historySize(), before + 1);
        EXPECT_EQ(lastAttribute()->getId(), which == 0 ? 253 : 256);

        choose(view.getWaveformMenu(), 5);
        EXPECT_EQ(engineLfo(0, which).getWaveform(), 5);
        EXPECT_FALSE(view.getStepView()->isVisible());
        EXPECT_TRUE(view.getWaveView()->isVisible());
        // SawUp from the phase offset 0: the curve rises from 0 to 1.
        EXPECT_EQ(view.getWaveView()->pointValue(0), 0.0f);
        EXPECT_EQ(view.getWaveView()->pointValue(LfoCurve::kPoints), 1.0f);

        ASSERT_TRUE(editor.undo());
        EXPECT_EQ(engineLfo(0, which).getWaveform(), 13);
        EXPECT_TRUE(view.getStepView()->isVisible());
        ASSERT_TRUE(editor.undo());
        EXPECT_EQ(engineLfo(0, which).getWaveform(), 0);
        EXPECT_TRUE(view.getWaveView()->isVisible());
        EXPECT_FALSE(view.getStepView()->isVisible());
    }
}

TEST_F(ModulatorPage, SlotButtonRebindsEveryControlWithoutHistory) {
    engineLfo(3, 0).setWaveform(13);
    engineLfo(3, 1).setWaveform(8);
    const int before = historySize();
    const AFRect button = page->slotButtonRect(3);
    frame->mouseDown(at(button.left + 5.0, button.top + 5.0));
    EXPECT_EQ(editor.getSelectedSlot(), 3);
    EXPECT_EQ(historySize(), before);
    EXPECT_TRUE(lfo(0).getStepView()->isVisible());
    EXPECT_FALSE(lfo(0).getWaveView()->isVisible());
    EXPECT_EQ(lfo(1).getWaveformMenu()->getCurrent(), 8);
    const int block = AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * 3;
    EXPECT_EQ(lfo(0).getRateKnob()->getTag(), block + KnobEngine::kLfoRate);
    EXPECT_EQ(lfo(1).getPhaseKnob()->getTag(), block + KnobEngine::kLfo2Phase);
    EXPECT_EQ(page->getLfoView(1)->getAmountKnob()->getTag(), block + KnobEngine::kLfo2Amount);
    EXPECT_EQ(page->getLfoView(1)->getSweeps()->getKnob(2)->getTag(), block + KnobEngine::kLfoRateKA + 8);
    EXPECT_EQ(page->getDepthKnob(2)->getTag(), AFUniClient::kAmountStart + KnobEngine::kAmountCount * 3 + 10);

    // Back to slot 0, whose LFO 1 plays a wave: the views swap back, still with no history.
    editor.selectSlot(0);
    EXPECT_TRUE(lfo(0).getWaveView()->isVisible());
    EXPECT_FALSE(lfo(0).getStepView()->isVisible());
    EXPECT_EQ(historySize(), before);
}

TEST_F(ModulatorPage, RateDivideStoresOnlyWhenItsStepChanges) {
    for (int which = 0; which < 2; ++which) {
        A2ModulatableKnob* knob = lfo(which).getRateDivideKnob();
        const AFMouseEvent middle = centre(knob);
        const int before = historySize();
        // 0.1 is still step 0: nothing stored, nothing in the history.
        drag(middle.x, middle.y, middle.x, middle.y - 0.1 * A2ModulatableKnob::kDragRange);
        EXPECT_EQ(engineLfo(0, which).getRateDivide(), 0.0f);
        EXPECT_EQ(historySize(), before);
        // Up to 0.3 crosses into step 1 (1/2) on the way, at the first value past 0.2506.
        frame->mouseDown(middle);
        for (int pixel = 1; pixel <= 60; ++pixel)
            frame->mouseMoved(at(middle.x, middle.y - pixel));
        frame->mouseUp(at(middle.x, middle.y - 60));
        const float stored = engineLfo(0, which).getRateDivide();
        EXPECT_EQ(LfoAddView::divideStep(stored), 1);
        EXPECT_LT(stored, 0.26f);
        ASSERT_EQ(historySize(), before + 1);
        EXPECT_EQ(lastAttribute()->getId(), which == 0 ? 259 : 260);
        ASSERT_TRUE(editor.undo());
        EXPECT_EQ(engineLfo(0, which).getRateDivide(), 0.0f);
    }
}

TEST_F(ModulatorPage, QuantizeAndTriggerMenusEditTheirLfo) {
    for (int which = 0; which < 2; ++which) {
        LfoView* view = page->getLfoView(which);
        choose(view->getQuantizeMenu(), 3);
        EXPECT_EQ(engineLfo(0, which).getQuantizeSteps(), 3);
        EXPECT_EQ(lastAttribute()->getId(), which == 0 ? 254 : 257);
        choose(view->getTriggerMenu(), 2);
        EXPECT_EQ(engineLfo(0, which).getTriggerMode(), 2);
        EXPECT_EQ(lastAttribute()->getId(), which == 0 ? 255 : 258);
        ASSERT_TRUE(editor.undo());
        ASSERT_TRUE(editor.undo());
        EXPECT_EQ(engineLfo(0, which).getQuantizeSteps(), 0);
        EXPECT_EQ(engineLfo(0, which).getTriggerMode(), 0);
        EXPECT_EQ(engineLfo(1, which).getQuantizeSteps(), 0);
    }
}

TEST_F(ModulatorPage, StepDragSetsEveryStepPassedAndUndoesAsOne) {
    engineLfo(0, 1).setWaveform(13);
    editor.refreshAll();
    StepSeqView* steps = lfo(1).getStepView();
    ASSERT_TRUE(steps->isVisible());
    const AFRect& r = steps->getViewSize();
    const double stepWidth = (r.width() - 8.0) / 16.0;
    const double x4 = r.left + 4.0 + 4.5 * stepWidth;
    const double x9 = r.left + 4.0 + 9.5 * stepWidth;
    const int before = historySize();
    drag(x4, r.top + 1.0, x9, r.bottom - 1.0);
    EXPECT_EQ(historySize(), before + 1);
    EXPECT_EQ(engineLfo(0, 1).getStep(4), 1.0f);
    for (int i = 5; i <= 9; ++i)
        EXPECT_EQ(engineLfo(0, 1).getStep(i), 0.0f) << i;
    EXPECT_EQ(steps->stepAt(x9), 9);
    EXPECT_EQ(engineLfo(0, 0).getStep(4), 0.0f);
    ASSERT_TRUE(editor.undo());
    EXPECT_EQ(engineLfo(0, 1).getStep(4), 0.0f);
    EXPECT_EQ(engineLfo(0, 1).getStep(2), 0.5f);
    ASSERT_TRUE(editor.redo());
    EXPECT_EQ(engineLfo(0, 1).getStep(4), 1.0f);
}

TEST_F(ModulatorPage, PatternMenuLoadsFromTheFolderAndKeepsTheHistory) {
    TempFolder content;
    client.getSettings().write("contentpath", content.path() + "/");
    AFGlideTable table;
    for (uint32_t i = 0; i < 16; ++i)
        table.setValue(0, i, static_cast<float>(i % 4) * 0.25f);
    const std::string folder = AFStepPatternFile::folderPath(content.path() + "/");
    TempFolder::writeText(folder + "ignored.txt", "not a pattern");
    ASSERT_TRUE(AFStepPatternFile::save(folder + "Ramps.AFS", table, nullptr));
    TempFolder::writeText(folder + "Broken.AFS", "not a chunk");

    engineLfo(0, 0).setWaveform(13);
    editor.refreshAll();
    GlideEdit* glide = lfo(0).getGlideEdit();
    frame->mouseDown(centre(glide->getMenu()));
    AFOptionMenu* menu = frame->getOpenMenu();
    ASSERT_EQ(menu, glide->getMenu());
    frame->closeMenu();
    ASSERT_EQ(menu->getNbEntries(), GlideEdit::kFirstFile + 2);
    const char* words[GlideEdit::kFirstFile] = {"default", "standart", "save", "new preset", "Stepsequencer"};
    for (int i = 0; i < GlideEdit::kFirstFile; ++i)
        EXPECT_EQ(menu->getEntry(i), words[i]);
    EXPECT_EQ(menu->getEntry(GlideEdit::kFirstFile), "Broken");

    const int before = historySize();
    menu->choose(GlideEdit::kFirstFile);
    EXPECT_EQ(historySize(), before);
    EXPECT_EQ(engineLfo(0, 0).getStep(2), 0.5f);
    menu->choose(GlideEdit::kFirstFile + 1);
    EXPECT_EQ(historySize(), before + 1);
    EXPECT_EQ(glide->getPatternName(), "Ramps");
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(engineLfo(0, 0).getStep(i), static_cast<float>(i % 4) * 0.25f) << i;
    menu->choose(GlideEdit::kStandart);
    EXPECT_EQ(engineLfo(0, 0).getStep(15), 1.0f);
    ASSERT_TRUE(editor.undo());
    ASSERT_TRUE(editor.undo());
    EXPECT_EQ(engineLfo(0, 0).getStep(3), 0.0f);
    EXPECT_EQ(engineLfo(0, 0).getStep(2), 0.5f);

    // "save" writes back to the file last loaded, "new preset" to a new one with the pattern suffix.
    menu->choose(GlideEdit::kFirstFile + 1);
    engineLfo(0, 0).setStep(0, 0.875f);
    menu->choose(GlideEdit::kSave);
    host.answers = {folder + "Mine"};
    engineLfo(0, 0).setStep(1, 0.125f);
    menu->choose(GlideEdit::kNewPreset);
    EXPECT_EQ(glide->getPatternName(), "Mine");
    AFGlideTable saved, mine;
    ASSERT_TRUE(AFStepPatternFile::load(folder + "Ramps.AFS", saved));
    ASSERT_TRUE(AFStepPatternFile::load(folder + "Mine.AFS", mine));
    EXPECT_EQ(saved.getValue(0, 0), 0.875f);
    EXPECT_EQ(saved.getValue(0, 1), 0.25f);
    EXPECT_EQ(mine.getValue(0, 1), 0.125f);
    EXPECT_EQ(mine.getValue(0, 2), 0.5f);
}

TEST_F(ModulatorPage, WaveViewDrawsWhatTheLfoPlays) {
    AFLfo& lfo = engineLfo(5, 0);
    for (int waveform = 0; waveform <= 10; ++waveform)
        for (int quantize : {0, 3})
            for (float x : {0.0f, 0.125f, 0.3f, 0.5f, 0.5001f, 0.75f, 0.9f, 1.0f}) {
                lfo.setWaveform(waveform);
                lfo.setQuantizeSteps(quantize);
                lfo.setParameter(0, x);
                // A restart plays phase 0, so the value is the waveform's at the offset alone.
                EXPECT_NEAR(LfoCurve::shape(waveform, x, quantize), lfo.restart(), 2e-5f)
                    << waveform << " q" << quantize << " x" << x;
            }
}

TEST_F(ModulatorPage, DepthKnobsEditTheChosenTargetThroughTheAmountTable) {
    ModAmountSwitch* targets = page->getAmountSwitch();
    const AFRect& r = targets->getViewSize();
    frame->mouseDown(at(r.left + r.width() * 0.9, centre(targets).y));
    frame->mouseUp(at(r.left + r.width() * 0.9, centre(targets).y));
    EXPECT_EQ(targets->getTarget(), 4);
    const int envelopeDryWet = AFUniClient::kAmountStart + 5 + 4;
    A2ModulatableKnob* knob = page->getDepthKnob(1);
    ASSERT_EQ(knob->getTag(), envelopeDryWet);
    const AFMouseEvent middle = centre(knob);
    drag(middle.x, middle.y, middle.x, middle.y - 0.4 * A2ModulatableKnob::kDragRange);
    EXPECT_NEAR(client.getParameter(envelopeDryWet), 0.4f, 1e-6f);
    EXPECT_EQ(client.getParameter(AFUniClient::kAmountStart + 5), 0.0f);
    ASSERT_TRUE(editor.undo());
    EXPECT_EQ(client.getParameter(envelopeDryWet), 0.0f);

    // Dragging the wave view sideways moves the phase offset, one history step like the knob's.
    LfoCurve* wave = lfo(0).getWaveView();
    const int phase = lfo(0).getPhaseKnob()->getTag();
    const AFMouseEvent waveMiddle = centre(wave);
    drag(waveMiddle.x, waveMiddle.y, waveMiddle.x - 0.25 * LfoCurve::kDragWidth, waveMiddle.y);
    EXPECT_NEAR(client.getParameter(phase), 0.25f, 1e-6f);
    EXPECT_NEAR(lfo(0).getPhaseKnob()->getValue(), 0.25f, 1e-6f);
    ASSERT_TRUE(editor.undo());
    EXPECT_EQ(client.getParameter(phase), 0.0f);
}
