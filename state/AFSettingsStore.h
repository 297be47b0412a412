#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <variant>

// The per-user store of named strings and integers: one small text file, section "[Orvanto]", one
// `key=value` line per entry, integers bare and strings quoted, with backslash escapes. The file is read
// whole at construction; writes collect in memory until `flush`, which merges them into the file as it then
// stands on disk and replaces it through a temporary file and a rename, under a lock on the folder. So two
// instances keep each other's keys, the one that flushes last decides a key both wrote, and neither a crash
// nor a full disk leaves a torn file. A line that cannot be trusted (junk, over-long, unterminated, a key
// given twice) reads as absent.
class AFSettingsStore {
public:
    static constexpr const char* kSection = "Orvanto";
    static constexpr const char* kFileName = "Orvanto.conf";
    // Anything larger is not ours: the whole file then reads as empty.
    static constexpr std::size_t kMaxFileBytes = 1u << 20;
    static constexpr std::size_t kMaxLineBytes = 16384;

    // GUI or host thread, never the audio thread. The user's own file under the config home.
    AFSettingsStore();
    explicit AFSettingsStore(std::string filePath);
    AFSettingsStore(const AFSettingsStore&) = delete;
    AFSettingsStore& operator=(const AFSettingsStore&) = delete;
    // Flushes what is still pending.
    virtual ~AFSettingsStore();

    // Any thread but the audio thread. Leave `value` untouched and return false when the key is absent or
    // holds the other kind.
    virtual bool read(const std::string& key, int32_t& value) const;
    virtual bool read(const std::string& key, std::string& value) const;
    // Any thread but the audio thread. Visible to reads at once, on disk after `flush`. A value too long for
    // one line is refused.
    virtual void write(const std::string& key, int32_t value);
    virtual void write(const std::string& key, const std::string& value);
    // GUI or host thread. False when the file could not be replaced; the writes then stay pending.
    bool flush();

    // The default file: config home + "/Orvanto/" + kFileName, or "" without a home folder.
    static std::string defaultFilePath();

    using Value = std::variant<int32_t, std::string>;

private:
    using Entries = std::map<std::string, Value>;
    // The entries of a file's text, leaving out every line that cannot be trusted; and the text of entries.
    static Entries parse(const std::string& text);
    static std::string serialise(const Entries& entries);
    void store(const std::string& key, Value value);

    std::string filePath;
    mutable std::mutex mutex;
    Entries entries;
    Entries pending;
};
