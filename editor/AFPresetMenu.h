#pragma once

#include "editor/AFOptionMenu.h"

#include <string>

// A preset menu: the fixed commands, then the preset files of one folder, listed afresh each time it pops
// up. GUI thread.
class AFPresetMenu : public AFOptionMenu {
public:
    enum Command : int {
        kSelectFolder = 0,
        kSavePreset = 1,
        kLoadPreset = 2,
        kPresetsTitle = 3,
        kFirstFile = 4
    };

    // `extension` without the dot: "afo" for effect presets, "afog" for global ones.
    AFPresetMenu(const AFRect& size, AFControlListener* listener, int tag, std::string extension);

    void setFolder(const std::string& path) { folder = path; }
    const std::string& getFolder() const noexcept { return folder; }
    // Lists the folder: the commands, the title and the files, sorted by name.
    void rebuild();
    // The path of the file at menu index `index`, or "" for a command.
    std::string filePath(int index) const;

    bool onMouseDown(const AFMouseEvent& event) override;

private:
    std::string extension;
    std::string folder;
};
