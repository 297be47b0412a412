#include "state/AFSettingsStore.h"

#include "state/AFUserFolders.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7F;
}

// Keys also hide the characters that would make a line look like a separator, a section or a comment.
void appendEscaped(std::string& out, const std::string& text, bool isKey) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == '\\' || c == '"') {
            out += '\\';
            out += ch;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else if (isControl(c) || (isKey && (c == '=' || c == '[' || c == '#' || c == ';'))) {
            out += "\\x";
            out += kHexDigits[c >> 4];
            out += kHexDigits[c & 15];
        } else {
            out += ch;
        }
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Decodes line[from, to) up to the first raw `stop` (or `to`); false on a raw control byte, an unknown
// escape or a raw quote. `end` receives the position of the stop.
bool unescape(const std::string& line, std::size_t from, std::size_t to, char stop, std::string& out,
              std::size_t& end) {
    std::size_t i = from;
    while (i < to && line[i] != stop) {
        const char c = line[i];
        if (isControl(static_cast<unsigned char>(c)) || c == '"') return false;
        if (c != '\\') {
            out += c;
            ++i;
            continue;
        }
        if (i + 1 >= to) return false;
        const char e = line[i + 1];
        i += 2;
        if (e == '\\' || e == '"')
            out += e;
        else if (e == 'n')
            out += '\n';
        else if (e == 't')
            out += '\t';
        else if (e == 'r')
            out += '\r';
        else if (e == 'x' && i + 1 < to && hexValue(line[i]) >= 0 && hexValue(line[i + 1]) >= 0) {
            out += static_cast<char>(hexValue(line[i]) * 16 + hexValue(line[i + 1]));
            i += 2;
        } else
            return false;
    }
    end = i;
    return true;
}

bool parseEntry(const std::string& line, std::string& key, AFSettingsStore::Value& value) {
    std::size_t equals = 0;
    if (!unescape(line, 0, line.size(), '=', key, equals) || key.empty() || equals >= line.size())
        return false;
    const std::size_t start = equals + 1;
    if (start >= line.size()) return false;
    if (line[start] == '"') {
        std::string text;
        std::size_t close = 0;
        if (!unescape(line, start + 1, line.size(), '"', text, close)) return false;
        if (close + 1 != line.size()) return false;
        value = std::move(text);
        return true;
    }
    int32_t number = 0;
    const char* first = line.data() + start;
    const char* last = line.data() + line.size();
    const auto [ptr, error] = std::from_chars(first, last, number);
    if (error != std::errc() || ptr != last) return false;
    value = number;
    return true;
}

std::string entryLine(const std::string& key, const AFSettingsStore::Value& value) {
    std::string line;
    appendEscaped(line, key, true);
    line += '=';
    if (const auto* number = std::get_if<int32_t>(&value)) {
        line += std::to_string(*number);
    } else {
        line += '"';
        appendEscaped(line, std::get<std::string>(value), false);
        line += '"';
    }
    return line;
}

// The whole file, or "" when it is missing, not a regular file, or larger than any file of ours. Opened
// without blocking, so a pipe planted under the name cannot hang the host.
std::string readWhole(const std::string& path) {
    if (path.empty()) return {};
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return {};
    std::string text;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
        static_cast<std::size_t>(info.st_size) <= AFSettingsStore::kMaxFileBytes) {
        std::vector<char> buffer(AFSettingsStore::kMaxFileBytes + 1);
        std::size_t got = 0;
        while (got < buffer.size()) {
            const ssize_t n = ::read(fd, buffer.data() + got, buffer.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        if (got <= AFSettingsStore::kMaxFileBytes) text.assign(buffer.data(), got);
    }
    ::close(fd);
    return text;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// A temporary file beside the target, synced, then renamed over it: readers see the old file or the new
// one, never a part.
bool replaceFile(const std::string& folder, const std::string& path, const std::string& text) {
    std::string temporary = folder + "/." + AFSettingsStore::kFileName + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return false;
    const bool written = writeAll(fd, text) && ::fdatasync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (written && closed && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

// Held while the file is read, merged and replaced, so two instances never merge the same old file.
class FolderLock {
public:
    explicit FolderLock(const std::string& folder)
        : fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd >= 0) ::flock(fd, LOCK_EX);
    }
    ~FolderLock() {
        if (fd >= 0) ::close(fd);
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    bool held() const noexcept { return fd >= 0; }
    // Makes the rename itself durable.
    void sync() const noexcept { ::fsync(fd); }

private:
    int fd;
};

} // namespace

AFSettingsStore::AFSettingsStore() : AFSettingsStore(defaultFilePath()) {}

AFSettingsStore::AFSettingsStore(std::string path) : filePath(std::move(path)) {
    entries = parse(readWhole(filePath));
}

AFSettingsStore::~AFSettingsStore() {
    // A destructor has nobody to tell: a store that cannot be written keeps the file as it was.
    try {
        flush();
    } catch (const std::exception&) {
    }
}

std::string AFSettingsStore::defaultFilePath() {
    const std::string base = AFUserFolders::configHome();
    if (base.empty()) return {};
    return base + "/" + kSection + "/" + kFileName;
}

bool AFSettingsStore::read(const std::string& key, int32_t& value) const {
    std::lock_guard<std::mutex> guard(mutex);
    const auto found = entries.find(key);
    if (found == entries.end()) return false;
    const auto* number = std::get_if<int32_t>(&found->second);
    if (number == nullptr) return false;
    value = *number;
    return true;
}

bool AFSettingsStore::read(const std::string& key, std::string& value) const {
    std::lock_guard<std::mutex> guard(mutex);
    const auto found = entries.find(key);
    if (found == entries.end()) return false;
    const auto* text = std::get_if<std::string>(&found->second);
    if (text == nullptr) return false;
    value = *text;
    return true;
}

void AFSettingsStore::write(const std::string& key, int32_t value) {
    store(key, value);
}

void AFSettingsStore::write(const std::string& key, const std::string& value) {
    store(key, value);
}

void AFSettingsStore::store(const std::string& key, Value value) {
    if (key.empty() || entryLine(key, value).size() > kMaxLineBytes) return;
    std::lock_guard<std::mutex> guard(mutex);
    entries[key] = value;
    pending[key] = std::move(value);
}

bool AFSettingsStore::flush() {
    std::lock_guard<std::mutex> guard(mutex);
    if (pending.empty()) return true;
    if (filePath.empty()) return false;
    std::error_code error;
    // A file kept elsewhere through a link stays there; the link is not replaced by a copy.
    std::string target = filePath;
    if (std::filesystem::is_symlink(filePath, error)) {
        const auto resolved = std::filesystem::weakly_canonical(filePath, error);
        if (!error) target = resolved.string();
    }
    const std::filesystem::path parent = std::filesystem::path(target).parent_path();
    const std::string folder = parent.empty() ? std::string(".") : parent.string();
    std::filesystem::create_directories(folder, error);
    const FolderLock lock(folder);
    if (!lock.held()) return false;
    const std::string onDisk = readWhole(target);
    Entries merged = parse(onDisk);
    for (const auto& [key, value] : pending)
        merged[key] = value;
    const std::string text = serialise(merged);
    if (text != onDisk) {
        if (!replaceFile(folder, target, text)) return false;
        lock.sync();
    }
    entries = std::move(merged);
    pending.clear();
    return true;
}

AFSettingsStore::Entries AFSettingsStore::parse(const std::string& text) {
    Entries result;
    if (text.size() > kMaxFileBytes) return result;
    std::set<std::string> repeated;
    bool inSection = false;
    std::size_t start = 0;
    // Only terminated lines count: a file cut short loses its last line, never reads half a value.
    for (std::size_t newline = text.find('\n'); newline != std::string::npos;
         start = newline + 1, newline = text.find('\n', start)) {
        std::size_t length = newline - start;
        if (length > kMaxLineBytes) continue;
        if (length > 0 && text[start + length - 1] == '\r') --length;
        const std::string line = text.substr(start, length);
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        if (line[0] == '[') {
            inSection = line == std::string("[") + kSection + "]";
            continue;
        }
        if (!inSection) continue;
        std::string key;
        Value value;
        if (!parseEntry(line, key, value)) continue;
        if (!result.emplace(key, std::move(value)).second) repeated.insert(key);
    }
    for (const auto& key : repeated)
        result.erase(key);
    return result;
}

std::string AFSettingsStore::serialise(const Entries& entries) {
    std::string text = std::string("[") + kSection + "]\n";
    for (const auto& [key, value] : entries) {
        text += entryLine(key, value);
        text += '\n';
    }
    return text;
}
