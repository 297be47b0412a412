#include "EditorTestSupport.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "TestHost.h"

#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFMappingEditor.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFPresetMenu.h"
#include "editor/AFTextButton.h"
#include "editor/AFUniClientEditor.h"
#include "editor/DictatorView.h"
#include "editor/KeyFrameHandlerView.h"
#include "editor/MonsterView.h"
#include "editor/SettingsView.h"
#include "state/AFSettingsStore.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using editortest::midX;
using editortest::midY;
using editortest::press;
using editortest::ScriptedHost;

class EditorPagesTest : public ::testing::Test {
protected:
    TestHost testHost;
    AFUniClient& client = testHost.client();
    ScriptedHost host;
    AFUniClientEditor editor{client, host};
    AFFrame* frame = nullptr;
    MonsterView* monster = nullptr;

    void SetUp() override {
        editor.open();
        frame = editor.getFrame();
        monster = editor.getMonsterView();
        ASSERT_NE(monster, nullptr);
    }
    // A click as the window delivers it: press and release at one place.
    void click(const AFRect& where, int button = AFMouseEvent::kLeft) {
        frame->mouseDown(press(midX(where), midY(where), button));
        frame->mouseUp(press(midX(where), midY(where), button));
    }
    int commands() { return client.getHistory().size(); }
};

} // namespace

TEST_F(EditorPagesTest, TabsSwitchPagesAndALaterPageReplacesOneByName) {
    EXPECT_EQ(monster->currentPage(), "main");
    EXPECT_FALSE(editor.showPage("nowhere"));
    EXPECT_EQ(monster->currentPage(), "main");
    click(monster->tabRect(2));
    EXPECT_EQ(monster->currentPage(), "dictator");
    EXPECT_FALSE(monster->getPage("main")->isVisible());
    EXPECT_TRUE(monster->getPage("dictator")->isVisible());

    // The modulator page arrives later under the tab that is already there.
    ASSERT_TRUE(editor.showPage("modulators"));
    auto* modulators = new AFViewContainer(MonsterView::pageRect());
    monster->addPage("modulators", std::unique_ptr<AFView>(modulators));
    EXPECT_EQ(monster->getPage("modulators"), modulators);
    EXPECT_TRUE(modulators->isVisible());
}

TEST_F(EditorPagesTest, KeyFrameMouseRulesEditTheRowOneUndoStepEach) {
    ASSERT_TRUE(editor.showPage("dictator"));
    auto* page = static_cast<DictatorView*>(monster->getPage("dictator"));
    KeyFrameHandlerView* row = page->getRow(2);
    const double top = row->getViewSize().top;
    const double x = midX(row->getViewSize());
    const AFDictator& dictator = client.getDictator();

    // Whole pixels: 16 at the top, 17 pixels a cell.
    EXPECT_EQ(row->cellAt(top + 16.9), 16);
    EXPECT_EQ(row->cellAt(top + 17.0), 15);
    EXPECT_EQ(row->cellAt(top + 288.9), 0);

    // A press on an empty cell places 0.5 and the row is rebuilt (node 0 joins as the single point's
    // partner).
    const double y10 = top + 6 * 17 + 8;
    frame->mouseDown(press(x, y10));
    EXPECT_EQ(commands(), 1);
    EXPECT_TRUE(dictator.node(2, 10).set);
    EXPECT_EQ(dictator.node(2, 10).value, 0.5f);
    EXPECT_TRUE(dictator.node(2, 0).set);
    EXPECT_FLOAT_EQ(dictator.node(2, 5).value, 0.25f);
    EXPECT_TRUE(row->isFineDrag());
    frame->mouseMoved(press(x, y10 - 20));
    frame->mouseUp(press(x, y10 - 20));
    EXPECT_FLOAT_EQ(dictator.node(2, 10).value, 0.6f);

    // Shift makes the drag coarse; a press on a used cell keeps its value but is still one step.
    frame->mouseDown(press(x, y10, AFMouseEvent::kLeft, false, true));
    EXPECT_FALSE(row->isFineDrag());
    EXPECT_FLOAT_EQ(dictator.node(2, 10).value, 0.6f);
    frame->mouseMoved(press(x, y10 - 5));
    frame->mouseUp(press(x, y10 - 5));
    EXPECT_FLOAT_EQ(dictator.node(2, 10).value, 0.7f);
    EXPECT_EQ(commands(), 2);

    // Double click or right button on an unused cell: nothing, and no step.
    const double y3 = top + 13 * 17 + 8;
    frame->mouseDown(press(x, y3, AFMouseEvent::kRight));
    frame->mouseDown(press(x, y3, AFMouseEvent::kLeft, true));
    EXPECT_FALSE(dictator.node(2, 3).set);
    EXPECT_EQ(commands(), 2);

    // On a used cell they clear it.
    frame->mouseDown(press(x, y10, AFMouseEvent::kRight));
    EXPECT_FALSE(dictator.node(2, 10).set);
    EXPECT_EQ(dictator.node(2, 10).value, 0.0f);
    EXPECT_EQ(commands(), 3);

    // Undo walks back through each edit, drags included; redo returns to the dragged value.
    editor.undo();
    EXPECT_FLOAT_EQ(dictator.node(2, 10).value, 0.7f);
    editor.undo();
    editor.undo();
    EXPECT_FALSE(dictator.node(2, 10).set);
    EXPECT_FALSE(dictator.node(2, 0).set);
    editor.redo();
    EXPECT_FLOAT_EQ(dictator.node(2, 10).value, 0.6f);

    // Clear and Random act on their row only, each one step.
    click(page->getRandomButton(5)->getViewSize());
    click(page->getClearButton(2)->getViewSize());
    EXPECT_EQ(commands(), 3);
    EXPECT_FALSE(dictator.node(2, 0).set);
    editor.undo();
    EXPECT_TRUE(dictator.node(2, 10).set);

    // Lock is the batch flag, undone like any attribute.
    click(page->getLockButton()->getViewSize());
    EXPECT_TRUE(client.isBatch());
    editor.undo();
    EXPECT_FALSE(client.isBatch());
}

TEST_F(EditorPagesTest, DictatorPresetSavedAndLoadedFromThePage) {
    TempFolder folder;
    ASSERT_TRUE(editor.showPage("dictator"));
    auto* page = static_cast<DictatorView*>(monster->getPage("dictator"));
    client.getDictator().node(4, 7) = {0.8f, true};
    client.getDictator().rebuild(4);

    host.answers = {folder.path("Sweep")};
    page->getPresetMenu()->choose(AFPresetMenu::kSavePreset);
    ASSERT_TRUE(std::filesystem::exists(folder.path("Sweep.dic")));
    client.getDictator().clear(4);

    host.answers = {folder.path("Sweep.dic")};
    page->getPresetMenu()->choose(AFPresetMenu::kLoadPreset);
    EXPECT_FLOAT_EQ(client.getDictator().node(4, 7).value, 0.8f);
    editor.undo();
    EXPECT_FALSE(client.getDictator().node(4, 7).set);
}

TEST_F(EditorPagesTest, LearnMenuOnTheDictatorFaderAndTheMappingPage) {
    AFMidiBindings& bindings = client.getMidiBindings();
    bindings.clear();
    ASSERT_TRUE(bindings.addControllerBinding(7, AFUniClient::kDictator));
    ASSERT_TRUE(bindings.addNoteBinding(60, 0));
    ASSERT_TRUE(bindings.addAftertouchBinding(AFUniClient::kDryWet));

    // The fader's menu names the CC; "Clear" takes the binding off as one step.
    frame->mouseDown(press(710.0, 34.0, AFMouseEvent::kRight));
    AFOptionMenu* menu = frame->getOpenMenu();
    ASSERT_EQ(menu, editor.getLearnMenu());
    EXPECT_EQ(menu->getEntry(1), "Clear (CC: 7)");
    menu->choose(1);
    frame->closeMenu();
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), -1);
    editor.undo();
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), 7);

    ASSERT_TRUE(editor.showPage("midi"));
    auto* mapping = static_cast<AFMappingEditor*>(monster->getPage("midi"));
    mapping->onIdle();
    ASSERT_EQ(mapping->getBindings().size(), 3u);
    EXPECT_EQ(mapping->getBindings()[1].source, AFMappingEditor::kNote);
    EXPECT_EQ(mapping->targetName(AFUniClient::kDictator), "Dictator");
    EXPECT_EQ(mapping->targetName(AFUniClient::kTriggerAllRows + 2), "Randomize Dictator row 3");

    // Clearing one line leaves the others; clearing all and undoing brings back every list, aftertouch too.
    click(mapping->clearRect(1));
    EXPECT_EQ(bindings.notes(60).size(), 0);
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), 7);
    click(mapping->buttonRect(AFMappingEditor::kClearAll));
    EXPECT_EQ(mapping->getBindings().size(), 0u);
    editor.undo();
    EXPECT_EQ(bindings.aftertouch().size(), 1);
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), 7);

    // A map saved from the page loads back; a load is one step too.
    TempFolder folder;
    host.answers = {folder.path("Live"), folder.path("Live.afm")};
    click(mapping->buttonRect(AFMappingEditor::kSaveMap));
    bindings.clear();
    click(mapping->buttonRect(AFMappingEditor::kLoadMap));
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), 7);
    editor.undo();
    EXPECT_EQ(bindings.controllerFor(AFUniClient::kDictator), -1);
}

TEST(SettingsViewTest, ChangesReachTheEngineAtOnceAndTheStoreOnClosing) {
    TempFolder folder;
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path().c_str());
    {
        TestHost testHost;
        AFUniClient& client = testHost.client();
        SettingsView page(client, MonsterView::pageRect());
        const auto toggle = [&](AFControl* control) {
            const AFRect r = control->getViewSize();
            control->onMouseDown(press(midX(r), midY(r)));
        };
        toggle(page.getSwitch(0));
        toggle(page.getSwitch(1));
        toggle(page.getTwinSwitch(1));
        toggle(page.getSwitch(6));
        toggle(page.getThresholdTwin());
        page.getThresholdMenu()->choose(2);
        const AFGlobalOptions& options = client.getOptions();
        EXPECT_FALSE(options.dynamicSigFlow);
        EXPECT_TRUE(options.offOnTop);
        EXPECT_TRUE(options.offOnTopPP);
        EXPECT_FALSE(options.ignorePrgChange);
        EXPECT_TRUE(options.thresholdPP);
        EXPECT_FLOAT_EQ(options.threshold.load(), 0.03f);
    }
    const AFSettingsStore store(folder.path("Orvanto/Orvanto.conf"));
    const auto stored = [&store](const char* key) {
        int32_t value = -1;
        store.read(key, value);
        return value;
    };
    EXPECT_EQ(stored("dynamicsigflow"), 0);
    EXPECT_EQ(stored("offontop"), 1);
    EXPECT_EQ(stored("offontopPP"), 1);
    EXPECT_EQ(stored("ignorePrgChange"), 0);
    EXPECT_EQ(stored("ThreshholdPP"), 1);
    EXPECT_EQ(stored("Threshhold"), 3);
}
