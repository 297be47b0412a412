#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What the tools read from a path a user names: a regular file only (a FIFO with no writer, a device or a
// folder is refused at once rather than blocking or reading for ever), and at most `limit` bytes of it.
class BoundedFile {
public:
    // The loader's own limit, 64 MiB: no file the plug-in writes comes near it.
    static constexpr std::size_t kDefaultLimit = 64u * 1024u * 1024u;

    // Main thread: the whole file into `bytes`, or false with the reason ("cannot open the file: …", "not a
    // regular file", "the file is too large", "cannot read the file: …").
    static bool read(const std::string& path, std::vector<uint8_t>& bytes, std::string& reason,
                     std::size_t limit = kDefaultLimit);
    // Main thread: true when `path` names a regular file (following links); otherwise false with the reason.
    static bool isRegular(const std::string& path, std::string& reason);
};
