#include "EditorTestSupport.h"
#include "TempFolder.h"
#include "TestHost.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/AFControlListener.h"
#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFPresetMenu.h"
#include "editor/AFUniClientEditor.h"
#include "editor/CurveSelector.h"
#include "editor/EditView.h"
#include "editor/FXSelect.h"
#include "editor/GainFader.h"
#include "effects/framework/EffectFactory.h"
#include "engine/KnobEngine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using editortest::press;
using editortest::ScriptedHost;

struct Recorder : AFControlListener {
    std::vector<std::string> calls;
    void valueChanged(AFControl* control) override {
        calls.push_back("change " + std::to_string(control->getValue()));
    }
    void beginEdit(int) override { calls.push_back("begin"); }
    void endEdit(int) override { calls.push_back("end"); }
};

double centreX(const AFView* view) {
    return (view->getViewSize().left + view->getViewSize().right) * 0.5;
}
double centreY(const AFView* view) {
    return (view->getViewSize().top + view->getViewSize().bottom) * 0.5;
}

// Clicks entry `index` of the menu the frame shows.
void pick(AFFrame& frame, int index) {
    AFOptionMenu* menu = frame.getOpenMenu();
    ASSERT_NE(menu, nullptr);
    const AFRect popup = menu->getPopupRect();
    const double y = popup.top + 2.0 + (index + 0.5) * AFMenuHelper::kRowHeight;
    ASSERT_EQ(menu->entryAt(popup.left + 20.0, y), index);
    frame.mouseDown(press(popup.left + 20.0, y));
}

class EditorTest : public ::testing::Test {
protected:
    TestHost testHost;
    AFUniClient& client = testHost.client();
    ScriptedHost host;
    AFUniClientEditor editor{client, host};
    AFFrame* frame = nullptr;

    void SetUp() override {
        ASSERT_TRUE(editor.open());
        frame = editor.getFrame();
    }
};

} // namespace

TEST(A2ModulatableKnobTest, MouseRulesAndFrameIndex) {
    Recorder listener;
    float value = 0.2f;
    A2ModulatableKnob knob(AFRect::ofSize(0, 0, 40, 40), &listener, 5, nullptr, &value);
    knob.setDefaultValue(0.75f);

    // A double click gives exactly the default, inside one gesture, and starts no drag.
    EXPECT_TRUE(knob.onMouseDown(press(20, 20, AFMouseEvent::kLeft, true)));
    EXPECT_EQ(value, 0.75f);
    EXPECT_FALSE(knob.isDragging());
    EXPECT_EQ(listener.calls, (std::vector<std::string>{"begin", "change 0.750000", "end"}));

    // A right click with no menu is a plain press: it drags.
    listener.calls.clear();
    EXPECT_TRUE(knob.onMouseDown(press(20, 20, AFMouseEvent::kRight)));
    EXPECT_TRUE(knob.isDragging());
    knob.onMouseMoved(press(20, 20 - A2ModulatableKnob::kDragRange * 0.1));
    EXPECT_NEAR(value, 0.85f, 1e-6f);
    AFMouseEvent fine = press(20, 20 - A2ModulatableKnob::kDragRange * 0.1);
    fine.shift = true;
    knob.onMouseMoved(fine);
    EXPECT_NEAR(value, 0.76f, 1e-6f);
    knob.onMouseUp(press(20, 20));
    EXPECT_EQ(listener.calls.front(), "begin");
    EXPECT_EQ(listener.calls.back(), "end");

    // Outside the rectangle, or with no value, the knob takes nothing.
    EXPECT_FALSE(knob.onMouseDown(press(50, 20)));
    knob.setValuePointer(nullptr);
    listener.calls.clear();
    EXPECT_FALSE(knob.onMouseDown(press(20, 20, AFMouseEvent::kLeft, true)));
    EXPECT_FALSE(knob.onMouseDown(press(20, 20, AFMouseEvent::kRight)));
    EXPECT_TRUE(listener.calls.empty());

    EXPECT_EQ(knob.frameIndex(0.0f), 0);
    EXPECT_EQ(knob.frameIndex(0.5f), 63);
    EXPECT_EQ(knob.frameIndex(0.25f), 31);
    EXPECT_EQ(knob.frameIndex(0.999f), 126);
    EXPECT_EQ(knob.frameIndex(1.0f), 126);
}

TEST_F(EditorTest, KnobDragReachesEngineHostAndHistory) {
    A2ModulatableKnob* knob = editor.getEditView(2)->getParameterKnob(1);
    const int index = knob->getTag();
    ASSERT_EQ(index, AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * 2 + 1);
    const float before = client.getParameter(index);
    frame->mouseDown(press(centreX(knob), centreY(knob)));
    frame->mouseMoved(press(centreX(knob), centreY(knob) + 40.0));
    frame->mouseUp(press(centreX(knob), centreY(knob) + 40.0));
    const float after = client.getParameter(index);
    EXPECT_NEAR(after, std::max(0.0f, before - 0.2f), 1e-6f);
    const std::string tag = std::to_string(index);
    EXPECT_EQ(host.gestures.front(), "begin " + tag);
    EXPECT_EQ(host.gestures.back(), "end " + tag);

    AFKeyEvent undo;
    undo.key = 'z';
    undo.command = true;
    EXPECT_TRUE(editor.keyDown(undo));
    EXPECT_EQ(client.getParameter(index), before);
    undo.shift = true;
    EXPECT_TRUE(editor.keyDown(undo));
    EXPECT_EQ(client.getParameter(index), after);
}

TEST_F(EditorTest, GainFaderResetsToUnityDragsAndLearns) {
    GainFader* fader = editor.getEditView(3)->getGainFader();
    const int index = fader->getTag();
    ASSERT_EQ(index, AFUniClient::kFxGainStart + 3);
    client.setParameter(index, 0.8f);
    editor.idle(0.0);
    const double y = centreY(fader);
    frame->mouseDown(press(centreX(fader), y, AFMouseEvent::kLeft, true));
    frame->mouseUp(press(centreX(fader), y));
    EXPECT_EQ(client.getParameter(index), GainFader::kUnity);
    EXPECT_EQ(host.gestures.front(), "begin " + std::to_string(index));
    EXPECT_EQ(host.gestures.back(), "end " + std::to_string(index));

    // The handle sits at unity in the middle: dragging it right boosts.
    frame->mouseDown(press(centreX(fader), y));
    frame->mouseMoved(press(centreX(fader) + 30.0, y));
    frame->mouseUp(press(centreX(fader) + 30.0, y));
    EXPECT_GT(client.getParameter(index), GainFader::kUnity + 0.2f);

    frame->mouseDown(press(centreX(fader), y, AFMouseEvent::kRight));
    EXPECT_EQ(frame->getOpenMenu(), editor.getLearnMenu());
    EXPECT_EQ(editor.getLearnMenu()->getCallerTag(), index);
}

TEST_F(EditorTest, EffectChoiceReachesSlotAndUndoes) {
    FXSelect* select = editor.getEditView(3)->getEffectSelect();
    const int before = client.getSlot(3).getEffectType();
    const int position = EffectFactory::menuPosition(before) == 0 ? 1 : 0;
    frame->mouseDown(press(centreX(select), centreY(select)));
    pick(*frame, position);
    EXPECT_EQ(client.getSlot(3).getEffectType(), EffectFactory::menuTypeId(position));
    editor.idle(0.0);
    EXPECT_TRUE(editor.undo());
    EXPECT_EQ(client.getSlot(3).getEffectType(), before);
}

TEST_F(EditorTest, CurveMenuStoresIndexWithHistory) {
    CurveSelector* selector = editor.getEditView(1)->getCurveSelector(2);
    const int before = client.getSlot(1).getParameterCurve(2);
    frame->mouseDown(press(centreX(selector), centreY(selector)));
    EXPECT_EQ(frame->getOpenMenu(), editor.getCurveMenu());
    pick(*frame, 7);
    EXPECT_EQ(client.getSlot(1).getParameterCurve(2), 7);
    EXPECT_TRUE(editor.undo());
    EXPECT_EQ(client.getSlot(1).getParameterCurve(2), before);
}

TEST_F(EditorTest, LearnMenuLabelFollowsBinding) {
    A2ModulatableKnob* knob = editor.getEditView(0)->getControlKnob();
    AFOptionMenu* learn = editor.getLearnMenu();
    client.getMidiBindings().removeParameter(0);
    frame->mouseDown(press(centreX(knob), centreY(knob), AFMouseEvent::kRight));
    EXPECT_EQ(frame->getOpenMenu(), learn);
    EXPECT_EQ(learn->getEntry(1), "Clear");
    pick(*frame, 0);
    EXPECT_EQ(client.getLearnTarget(), 0);

    client.getMidiBindings().addControllerBinding(7, 0);
    frame->mouseDown(press(centreX(knob), centreY(knob), AFMouseEvent::kRight));
    EXPECT_EQ(learn->getEntry(1), "Clear (CC: 7)");
    pick(*frame, 1);
    EXPECT_EQ(client.getMidiBindings().controllerFor(0), -1);
}

TEST_F(EditorTest, PresetMenuSavesLoadsAndTakesEmptyAsNoChoice) {
    TempFolder folder;
    EditView* view = editor.getEditView(4);
    AFPresetMenu* menu = view->getPresetMenu();
    const int index = view->getParameterKnob(0)->getTag();
    client.setParameter(index, 0.3f);

    host.answers = {folder.path("Mine")};
    menu->choose(AFPresetMenu::kSavePreset);
    ASSERT_TRUE(std::filesystem::exists(folder.path("Mine.afo")));

    const int depth = client.getHistory().size();
    host.answers = {"EMPTY"};
    menu->choose(AFPresetMenu::kLoadPreset);
    EXPECT_EQ(client.getHistory().size(), depth);

    client.setParameter(index, 0.9f);
    menu->setFolder(folder.path());
    menu->rebuild();
    ASSERT_EQ(menu->getNbEntries(), AFPresetMenu::kFirstFile + 1);
    EXPECT_EQ(menu->getEntry(AFPresetMenu::kFirstFile), "Mine");
    menu->choose(AFPresetMenu::kFirstFile);
    EXPECT_NEAR(client.getParameter(index), 0.3f, 1e-6f);
}

TEST_F(EditorTest, TimerTakesSnapshotBeforeProgramThenRefreshes) {
    // A bank of two global presets; program 1 sets the parameter to 0.9.
    TempFolder bank;
    const int index = AFUniClient::kSlotBlockStart + 3;
    client.setParameter(index, 0.2f);
    client.setGlobalPresetName("First");
    ASSERT_TRUE(client.savePreset(bank.path("First.afog"), -1));
    client.setParameter(index, 0.9f);
    client.setGlobalPresetName("Second");
    ASSERT_TRUE(client.savePreset(bank.path("Second.afog"), -1));
    client.rescanPresetBank(bank.path());
    ASSERT_EQ(client.getPresetBank().count(), 2);
    client.setParameter(index, 0.123f);
    const int depth = client.getHistory().size();

    editor.timerFired(nullptr);
    EXPECT_EQ(client.getHistory().size(), depth);

    editor.snapshotPending.store(1);
    editor.timerFired(nullptr);
    EXPECT_EQ(client.getHistory().size(), depth + 1);
    EXPECT_EQ(editor.snapshotPending.load(), 0);

    // A MIDI program change and a snapshot at once: the snapshot holds the state before the program loads,
    // so undo returns to it.
    client.getOptions().ignorePrgChange.store(false);
    AFMidiEvent change;
    change.midiData[0] = 0xC0;
    change.midiData[1] = 1;
    AFEvents block{1, &change};
    client.processEvents(&block);
    std::vector<float> left(64), right(64);
    testHost.processBlock(left.data(), right.data(), 64);
    editor.snapshotPending.store(1);
    editor.refreshPending.store(1);
    editor.timerFired(nullptr);
    EXPECT_EQ(client.getGlobalPresetName(), "Second");
    EXPECT_NEAR(client.getParameter(index), 0.9f, 1e-6f);
    EXPECT_EQ(editor.getGlobalPresetMenu()->getCurrent(), AFPresetMenu::kPresetsTitle);
    EXPECT_EQ(editor.programPending.load() | editor.refreshPending.load(), 0);
    EXPECT_TRUE(editor.undo());
    EXPECT_NEAR(client.getParameter(index), 0.123f, 1e-6f);
}
