#include "state/AFPresetBank.h"

#include "host/AFPluginTypes.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

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
