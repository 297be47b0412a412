#pragma once

#include "editor/AFControlListener.h"
#include "editor/AFViewContainer.h"
#include "engine/AFUniClient.h"

#include <array>
#include <string>

class A2ValueDisplay;
class AFPresetMenu;
class AFTextButton;
class AFUniClientEditor;
class KeyFrameHandlerView;

// The Dictator page: the eight rows as columns under their slots' colours and effects, each with its clear
// and randomise buttons, the record and lock switches, and the Dictator preset menu. Every edit of the rows
// is one undo step. Its idle pass follows the Dictator and the rows, which MIDI, recording and undo change
// behind its back. GUI thread.
class DictatorView : public AFViewContainer, public AFControlListener {
public:
    static constexpr double kRowsTop = 136.0;
    static constexpr double kColumnInset = 12.0;

    DictatorView(AFUniClientEditor& editor, const AFRect& size);

    KeyFrameHandlerView* getRow(int row) const { return rows[static_cast<std::size_t>(row)]; }
    AFPresetMenu* getPresetMenu() const noexcept { return presetMenu; }
    AFTextButton* getClearButton(int row) const { return clearButtons[static_cast<std::size_t>(row)]; }
    AFTextButton* getRandomButton(int row) const { return randomButtons[static_cast<std::size_t>(row)]; }
    AFTextButton* getLockButton() const noexcept { return lockButton; }

    void valueChanged(AFControl* control) override;
    void drawBackground(cairo_t* cr) override;
    void onIdle() override;

private:
    enum Tag : int { kTagRow = 0, kTagClear = 100, kTagRandom = 200, kTagPreset = 300, kTagRecord, kTagLock };
    using Table = std::array<std::array<AFDictator::Node, AFDictator::kNodes>, AFUniClient::kSlots>;

    void presetCommand();
    void loadPreset(const std::string& path);
    void rememberRows();
    // The strip the Dictator's position line takes across the rows at a Dictator value.
    AFRect positionBand(float dictator) const;

    AFUniClientEditor& editor;
    AFUniClient& client;
    std::array<KeyFrameHandlerView*, AFUniClient::kSlots> rows{};
    std::array<AFTextButton*, AFUniClient::kSlots> clearButtons{};
    std::array<AFTextButton*, AFUniClient::kSlots> randomButtons{};
    std::array<int, AFUniClient::kSlots> shownEffects{};
    AFPresetMenu* presetMenu = nullptr;
    AFTextButton* recordButton = nullptr;
    AFTextButton* lockButton = nullptr;
    A2ValueDisplay* readout = nullptr;
    Table shownRows{};
    float shownDictator = -1.0f;
};
