#include "editor/AFPresetMenu.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

AFPresetMenu::AFPresetMenu(const AFRect& size, AFControlListener* listener, int tag, std::string extension)
    : AFOptionMenu(size, listener, tag), extension(std::move(extension)) {
    rebuild();
}

void AFPresetMenu::rebuild() {
    removeAllEntry();
    addEntry("[Select Folder]");
    addEntry("[Save Preset]");
    addEntry("[Load Preset]");
    addEntry("--Presets--", -1, kTitle);
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        const std::filesystem::path& path = it->path();
        if (path.extension() == "." + extension && it->is_regular_file(error))
            names.push_back(path.stem().string());
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        addEntry(name);
    setCurrent(kPresetsTitle);
}

std::string AFPresetMenu::filePath(int index) const {
    if (index < kFirstFile || index >= getNbEntries()) return {};
    const std::string separator = !folder.empty() && folder.back() != '/' ? "/" : "";
    char path[4096];
    std::snprintf(path, sizeof path, "%s%s", (folder + separator).c_str(),
                  (getEntry(index) + "." + extension).c_str());
    return path;
}

bool AFPresetMenu::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    rebuild();
    return AFOptionMenu::onMouseDown(event);
}
