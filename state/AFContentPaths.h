#pragma once

#include <cstdint>
#include <string>

class AFSettingsStore;

// Where the plug-in's files live: the keys of the per-user store that name the content folders, and the
// first-use set-up that fills them. The factory content tree is installed read-only; on first use it is
// copied into the user's data folder, and "contentpath" points at that copy, so saves land in a writable
// tree. Every folder text ends in '/'.
class AFContentPaths {
public:
    static constexpr const char* kInstallPath = "installpath";
    static constexpr const char* kFirstUse = "firstuse";
    static constexpr const char* kContentPath = "contentpath";
    static constexpr const char* kPresetPath = "presetpath";
    static constexpr const char* kPresetSavePath = "presetsavepath";
    static constexpr const char* kGlobalPresetPath = "presetpath0";
    static constexpr const char* kGlobalPresetSavePath = "presetsavepath0";
    static constexpr const char* kDictatorSavePath = "dictatorsavepath";
    static constexpr const char* kCcSavePath = "cc savepath";
    static constexpr const char* kUsage = "usage";

    static constexpr const char* kEffectPresets = "Effect Presets";
    static constexpr const char* kGlobalPresets = "Global Presets";
    static constexpr const char* kUserFolder = "User";
    static constexpr const char* kDictatorPresets = "Dictator Presets";
    static constexpr const char* kMidiMaps = "Midi Maps";
    static constexpr const char* kStepSequencer = "Stepsequencer";
    static constexpr const char* kDefaultMidiMap = "Default.afm";
    // Overrides the installed factory tree, for tests and runs from the build tree.
    static constexpr const char* kContentSourceVariable = "ORVANTO_CONTENT_SOURCE";

    explicit AFContentPaths(AFSettingsStore& store);

    // Host thread, while the client is built: the install folder when missing, on first use the content
    // tree and every preset folder key, then the start counter. Flushes the store.
    void runFirstUse();

    // Any thread but the audio thread. A missing key gives "": a path built on it is relative and finds no
    // files.
    // "presetpath%d"; index -1 gives "contentpath".
    std::string presetPath(int index) const;
    // "presetpath%s" and "presetsavepath%s" for an effect's display name.
    std::string effectPresetPath(const std::string& effectName) const;
    std::string effectPresetSavePath(const std::string& effectName) const;
    std::string globalPresetSavePath() const;
    std::string dictatorSavePath() const;
    std::string ccSavePath() const;
    std::string midiMapFolder() const;
    std::string defaultMidiMapPath() const;
    std::string stepSequencerFolder() const;
    // GUI thread: a file dialog remembers its folder under its key.
    void rememberFolder(const std::string& key, const std::string& folder);

    // The start count read at construction, before it was increased for the next start.
    int32_t getUsage() const noexcept { return usage; }

    // `base` and `name` joined as a folder: '/' between unless `base` is empty or already ends in one, and
    // '/' at the end.
    static std::string appendFolder(const std::string& base, const std::string& name);
    // The user's writable tree: data home + "/Orvanto/Content/".
    static std::string defaultContentPath();
    // The installed factory tree, or the folder that ORVANTO_CONTENT_SOURCE names.
    static std::string factoryContentPath();
    // The folder the factory tree is installed in.
    static std::string defaultInstallPath();
    // Copies every file of `from` below `to` that is not there yet, creating folders on the way; a file
    // already at the target is never replaced. A missing `from` copies nothing.
    static void copyTreeWithoutOverwrite(const std::string& from, const std::string& to);

private:
    std::string readText(const std::string& key) const;
    void createContentFolders(const std::string& content);

    AFSettingsStore& store;
    int32_t usage = 0;
};
