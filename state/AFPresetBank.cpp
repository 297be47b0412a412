#include "state/AFPresetBank.h"

#include "host/AFPluginTypes.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

std::string AFPresetBank::defaultFolder() {
    namespace fs = std::filesystem;
    const char* data = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    fs::path root;
    if (data != nullptr && data[0] != '\0')
        root = data;
    else if (home != nullptr && home[0] != '\0')
        root = fs::path(home) / ".local" / "share";
    else
        return {};
    return (root / AFIdentity::kProduct / "Global Presets").string();
}

void AFPresetBank::scan(const std::string& where) {
    namespace fs = std::filesystem;
    folder = where;
    names.clear();
    std::error_code error;
    if (where.empty() || !fs::is_directory(where, error)) return;
    for (fs::directory_iterator it(where, error), end; !error && it != end; it.increment(error)) {
        if (!it->is_regular_file(error) || it->path().extension() != kExtension) continue;
        names.push_back(it->path().stem().string());
    }
    std::sort(names.begin(), names.end());
}

std::string AFPresetBank::name(int index) const {
    return index >= 0 && index < count() ? names[static_cast<std::size_t>(index)] : std::string();
}

std::string AFPresetBank::path(int index) const {
    if (index < 0 || index >= count()) return {};
    return (std::filesystem::path(folder) / (names[static_cast<std::size_t>(index)] + kExtension)).string();
}
