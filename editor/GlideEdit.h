#pragma once

#include "editor/AFControlListener.h"
#include "editor/AFOptionMenuExtraCallBack.h"
#include "editor/AFViewContainer.h"

#include <string>

class A2ValueDisplay;
class AFOptionMenu;
class AFUniClientEditor;

// The step pattern's menu: "default" and "standart" patterns, "save" and "new preset", then the pattern files
// of the "Stepsequencer" folder, listed afresh each time the menu opens; choosing one loads it into the LFO.
// Every change of the pattern is one history step. GUI thread.
class GlideEdit : public AFViewContainer, public AFControlListener, public AFOptionMenuExtraCallBack {
public:
    enum Entry : int { kDefault = 0, kStandart = 1, kSave = 2, kNewPreset = 3, kTitle = 4, kFirstFile = 5 };
    static constexpr int kTagMenu = 17597;

    GlideEdit(AFUniClientEditor& editor, const AFRect& size, bool secondLfo);

    void bindSlot(int slot);
    // Lists the folder: the words, the title and the pattern files, sorted by name.
    void rebuild();
    AFOptionMenu* getMenu() const noexcept { return menu; }
    // The path of the file at menu index `index`, or "" for a word.
    std::string filePath(int index) const;
    // The pattern's name as the face shows it.
    const std::string& getPatternName() const noexcept { return patternName; }

    void valueChanged(AFControl* control) override;
    void menuWillOpen(AFOptionMenu* menu, int callerTag) override;

private:
    // Keeps the pattern for undo, then lets `edit` change the steps.
    template <typename Edit>
    void editPattern(Edit edit);
    void loadFile(const std::string& path);
    void saveTo(const std::string& path);
    void askAndSave();
    void setPatternName(const std::string& name, const std::string& path);

    AFUniClientEditor& editor;
    bool secondLfo;
    int slot = 0;
    AFOptionMenu* menu;
    std::string folder;
    std::string patternName;
    std::string patternPath;
};
