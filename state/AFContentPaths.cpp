#include "state/AFContentPaths.h"

#include "effects/framework/EffectFactory.h"
#include "state/AFSettingsStore.h"
#include "state/AFUserFolders.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#ifndef ORVANTO_CONTENT_DIR
#define ORVANTO_CONTENT_DIR "/usr/local/share/orvanto/content"
#endif

namespace fs = std::filesystem;

namespace {

// Copies through a temporary file and moves it in only where nothing stands yet: a crash never leaves half
// a preset, and a file the user made in the meantime is never replaced.
void copyFileWithoutOverwrite(const fs::path& from, const fs::path& to) {
    struct stat existing {};
    if (::lstat(to.c_str(), &existing) == 0 || errno != ENOENT) return;
    std::error_code error;
    std::string temporary = to.parent_path().string();
    temporary += "/.";
    temporary += to.filename().string();
    temporary += ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return;
    ::close(fd);
    const bool copied = fs::copy_file(from, temporary, fs::copy_options::overwrite_existing, error);
    if (copied) {
        fs::permissions(temporary,
                        fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                            fs::perms::others_read,
                        error);
        if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
        // File systems without the no-replace rename still refuse a hard link onto an existing name.
        if ((errno == EINVAL || errno == ENOSYS) && ::link(temporary.c_str(), to.c_str()) == 0) {
            ::unlink(temporary.c_str());
            return;
        }
    }
    ::unlink(temporary.c_str());
}

// The folder with links resolved and without a trailing separator; empty when it cannot be resolved.
fs::path folderPath(const std::string& folder) {
    std::error_code error;
    fs::path resolved = fs::weakly_canonical(folder, error).lexically_normal();
    if (error) return {};
    if (!resolved.has_filename()) resolved = resolved.parent_path();
    return resolved;
}

} // namespace

AFContentPaths::AFContentPaths(AFSettingsStore& settingsStore) : store(settingsStore) {}

void AFContentPaths::runFirstUse() {
    std::string install;
    if (!store.read(kInstallPath, install)) store.write(kInstallPath, defaultInstallPath());

    int32_t firstUse = 0;
    store.read(kFirstUse, firstUse);
    if (firstUse == 0) {
        store.write(kFirstUse, 1);
        std::string content = readText(kContentPath);
        // A relative folder would depend on the host's working folder; such a value is replaced.
        if (content.empty() || content[0] != '/') {
            content = defaultContentPath();
            store.write(kContentPath, content);
        }
        copyTreeWithoutOverwrite(factoryContentPath(), content);
        createContentFolders(content);
        const std::string effects = appendFolder(content, kEffectPresets);
        for (int i = 0; i < EffectFactory::kMenuCount; ++i) {
            const std::string name = EffectFactory::menuEffectName(i);
            const std::string folder = appendFolder(effects, name);
            store.write(kPresetSavePath + name, folder);
            store.write(kPresetPath + name, folder);
        }
        const std::string global = appendFolder(content, kGlobalPresets);
        store.write(kGlobalPresetPath, global);
        store.write(kGlobalPresetSavePath, appendFolder(global, kUserFolder));
        store.write(kDictatorSavePath, appendFolder(content, kDictatorPresets));
        store.write(kUsage, 1);
    }

    usage = 0;
    store.read(kUsage, usage);
    store.write(kUsage, usage < INT32_MAX ? usage + 1 : usage);
    store.flush();
}

void AFContentPaths::createContentFolders(const std::string& content) {
    if (content.empty()) return;
    std::error_code error;
    const std::string effects = appendFolder(content, kEffectPresets);
    for (int i = 0; i < EffectFactory::kMenuCount; ++i)
        fs::create_directories(appendFolder(effects, EffectFactory::menuEffectName(i)), error);
    fs::create_directories(appendFolder(appendFolder(content, kGlobalPresets), kUserFolder), error);
    for (const char* folder : {kDictatorPresets, kMidiMaps, kStepSequencer})
        fs::create_directories(appendFolder(content, folder), error);
}

std::string AFContentPaths::readText(const std::string& key) const {
    std::string text;
    store.read(key, text);
    return text;
}

std::string AFContentPaths::presetPath(int index) const {
    return readText(index == -1 ? std::string(kContentPath) : kPresetPath + std::to_string(index));
}

std::string AFContentPaths::effectPresetPath(const std::string& effectName) const {
    return readText(kPresetPath + effectName);
}

std::string AFContentPaths::effectPresetSavePath(const std::string& effectName) const {
    return readText(kPresetSavePath + effectName);
}

std::string AFContentPaths::globalPresetSavePath() const {
    return readText(kGlobalPresetSavePath);
}

std::string AFContentPaths::dictatorSavePath() const {
    return readText(kDictatorSavePath);
}

std::string AFContentPaths::ccSavePath() const {
    return readText(kCcSavePath);
}

std::string AFContentPaths::midiMapFolder() const {
    return appendFolder(readText(kContentPath), kMidiMaps);
}

std::string AFContentPaths::defaultMidiMapPath() const {
    return midiMapFolder() + kDefaultMidiMap;
}

std::string AFContentPaths::stepSequencerFolder() const {
    return appendFolder(readText(kContentPath), kStepSequencer);
}

void AFContentPaths::rememberFolder(const std::string& key, const std::string& folder) {
    store.write(key, folder);
    store.flush();
}

std::string AFContentPaths::appendFolder(const std::string& base, const std::string& name) {
    std::string result = base;
    if (!result.empty() && result.back() != '/') result += '/';
    result += name;
    if (!result.empty() && result.back() != '/') result += '/';
    return result;
}

std::string AFContentPaths::defaultContentPath() {
    const std::string data = AFUserFolders::dataHome();
    if (data.empty()) return {};
    return appendFolder(appendFolder(data, "Orvanto"), "Content");
}

std::string AFContentPaths::factoryContentPath() {
    const char* source = std::getenv(kContentSourceVariable);
    if (source != nullptr && source[0] != '\0') return source;
    return ORVANTO_CONTENT_DIR;
}

std::string AFContentPaths::defaultInstallPath() {
    return appendFolder(fs::path(ORVANTO_CONTENT_DIR).parent_path().string(), "");
}

void AFContentPaths::copyTreeWithoutOverwrite(const std::string& from, const std::string& to) {
    std::error_code error;
    if (from.empty() || to.empty() || !fs::is_directory(from, error)) return;
    const fs::path source = folderPath(from);
    const fs::path target = folderPath(to);
    // A target inside the source would grow while it is walked.
    if (source.empty() || target.empty() ||
        std::mismatch(source.begin(), source.end(), target.begin(), target.end()).first == source.end())
        return;
    fs::create_directories(target, error);
    for (auto it =
             fs::recursive_directory_iterator(source, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        const fs::path destination = target / it->path().lexically_relative(source);
        std::error_code entryError;
        if (it->is_directory(entryError))
            fs::create_directories(destination, entryError);
        else if (it->is_regular_file(entryError))
            copyFileWithoutOverwrite(it->path(), destination);
    }
}
