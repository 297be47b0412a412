#pragma once

#include "editor/AFBitmapStore.h"
#include "editor/AFControlListener.h"
#include "editor/AFGuiTimer.h"
#include "editor/AFKeyEvent.h"
#include "editor/AFOptionMenuExtraCallBack.h"
#include "editor/AFTimerReceiver.h"
#include "engine/AFUniClient.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

class A2ValueDisplay;
class AFEditorHost;
class AFFrame;
class AFKickButton;
class AFOptionMenu;
class AFPresetMenu;
class EditView;
class ModulatorView;
class MonsterView;
class ValDisp;

// The plug-in's editor: one fixed-size frame with the eight slot strips, the global preset menu, undo and
// redo, Randomize, the manual, the Dictator and the master Dry/Wet. It holds no audio state: every control
// edits the client or issues a history command. It is the single listener of all its controls and
// dispatches on their tags. GUI thread, except the byte flags, which other threads set.
class AFUniClientEditor : public AFControlListener, public AFOptionMenuExtraCallBack, public AFTimerReceiver {
public:
    // Tags above the host and internal parameter indices, one range per kind of control.
    static constexpr int kTagEffect = 30000;
    static constexpr int kTagOption = 30100;
    static constexpr int kTagCurve = 30200;
    static constexpr int kTagMixLaw = 30300;
    static constexpr int kTagQuantise = 30400;
    static constexpr int kTagSlotPreset = 30500;
    static constexpr int kTagGlobalPreset = 30600;
    static constexpr int kTagUndo = 30601;
    static constexpr int kTagRedo = 30602;
    static constexpr int kTagRandomize = 30603;
    static constexpr int kTagManual = 30604;
    static constexpr int kTagLearn = 30605;
    static constexpr int kTagCurveMenu = 30606;
    static constexpr int kTimerPeriodMs = 30;
    static constexpr const char* kManualFile = "Manual.htm";

    AFUniClientEditor(AFUniClient& client, AFEditorHost& host);
    ~AFUniClientEditor() override;

    // Decodes the images, builds the view tree, sets `open` and starts the timer. False if the images do
    // not all decode (the editor still opens, drawing what it has).
    bool open();
    void close();
    bool isOpen() const noexcept { return openFlag.load() != 0; }
    AFFrame* getFrame() const noexcept { return frame.get(); }
    // The window's loop, with a monotonic time in milliseconds: runs the timer when due and the idle pass.
    void idle(double nowMs);
    // Keys the views do not take: Ctrl+Z undoes, Ctrl+Shift+Z redoes.
    bool keyDown(const AFKeyEvent& event);

    void valueChanged(AFControl* control) override;
    void beginEdit(int tag) override;
    void endEdit(int tag) override;
    void menuWillOpen(AFOptionMenu* menu, int callerTag) override;
    // Snapshot, then program, then refresh, each if its flag is set.
    void timerFired(AFGuiTimer* timer) override;

    // Set from any thread.
    std::atomic<uint8_t> refreshPending{0};
    std::atomic<uint8_t> snapshotPending{0};
    std::atomic<uint8_t> programPending{0};

    bool undo();
    bool redo();
    // Re-reads every view from the engine.
    void refreshAll();
    // Hands "Manual.htm" of the install folder to the desktop.
    bool openManual();
    // Any thread: a line for the message display, shown at the next idle pass.
    void showMessage(const std::string& text);

    // For the views.
    AFUniClient& getClient() const noexcept { return client; }
    const AFBitmapStore& getBitmaps() const noexcept { return bitmaps; }
    AFEditorHost& getHost() const noexcept { return host; }
    AFOptionMenu* getLearnMenu() const noexcept { return learnMenu; }
    AFOptionMenu* getCurveMenu() const noexcept { return curveMenu; }
    float* valuePointer(int index);
    // Brings a parameter control in line with the engine unless a gesture on it is under way.
    void followParameter(AFControl* control);
    EditView* getEditView(int slot) const { return editViews[static_cast<std::size_t>(slot)]; }
    AFPresetMenu* getGlobalPresetMenu() const noexcept { return globalPresetMenu; }
    std::string manualPath() const;
    // The slot whose modulators the modulator page shows; choosing one rebinds the page and leaves no
    // history.
    int getSelectedSlot() const noexcept { return selectedSlot; }
    void selectSlot(int slot);
    // The modulator page, held by the page holder under "modulators".
    ModulatorView* getModulatorView() const noexcept { return modulatorView; }
    // Shows the page of that name below the top bar ("main" holds the slot strips); false for no such page.
    bool showPage(const std::string& name);
    MonsterView* getMonsterView() const noexcept { return monsterView; }

private:
    void build();
    void showPresetName();
    void presetCommand(AFPresetMenu* menu, int slot);
    void editAttribute(int slot, int id, int subIndex, float newValue);
    static bool isParameter(int tag) noexcept;

    AFUniClient& client;
    AFEditorHost& host;
    AFBitmapStore bitmaps;
    bool bitmapsLoaded = false;
    std::unique_ptr<AFFrame> frame;
    std::atomic<uint8_t> openFlag{0};
    AFGuiTimer timer{this, kTimerPeriodMs};
    std::array<float, AFUniClient::kAmountEnd> values{};
    int gestureTag = -1;
    std::array<EditView*, AFUniClient::kSlots> editViews{};
    AFOptionMenu* learnMenu = nullptr;
    AFOptionMenu* curveMenu = nullptr;
    AFPresetMenu* globalPresetMenu = nullptr;
    A2ValueDisplay* messageDisplay = nullptr;
    AFKickButton* undoButton = nullptr;
    AFKickButton* redoButton = nullptr;
    ValDisp* positionDisplay = nullptr;
    MonsterView* monsterView = nullptr;
    std::mutex messageMutex;
    std::string pendingMessage;
    bool messageWaiting = false;
    std::string shownMessage;
    int selectedSlot = 0;
    ModulatorView* modulatorView = nullptr;
};
