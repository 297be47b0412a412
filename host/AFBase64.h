#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The host state travels as text in formats that keep strings only: the chunk's bytes in standard base64.
class AFBase64 {
public:
    // Host thread.
    static std::string encode(const uint8_t* data, std::size_t size);
    // Host thread. Nothing for text that is not base64 (a stray character, a broken tail); white space is
    // skipped, since some hosts wrap long values.
    static std::optional<std::vector<uint8_t>> decode(const std::string& text);
};
