#include "host/AFBase64.h"

#include <array>

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> makeReverse() {
    std::array<int8_t, 256> table{};
    for (auto& t : table)
        t = -1;
    for (int i = 0; i < 64; ++i)
        table[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
    return table;
}
constexpr std::array<int8_t, 256> kReverse = makeReverse();
} // namespace

std::string AFBase64::encode(const uint8_t* data, std::size_t size) {
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        const uint32_t v = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8) | data[i + 2];
        text += kAlphabet[(v >> 18) & 63];
        text += kAlphabet[(v >> 12) & 63];
        text += kAlphabet[(v >> 6) & 63];
        text += kAlphabet[v & 63];
    }
    if (const std::size_t rest = size - i; rest > 0) {
        const uint32_t v = (uint32_t{data[i]} << 16) | (rest == 2 ? uint32_t{data[i + 1]} << 8 : 0u);
        text += kAlphabet[(v >> 18) & 63];
        text += kAlphabet[(v >> 12) & 63];
        text += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

std::optional<std::vector<uint8_t>> AFBase64::decode(const std::string& text) {
    std::vector<uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    int count = 0;
    int padding = 0;
    for (const char c : text) {
        if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        const int8_t v = kReverse[static_cast<uint8_t>(c)];
        if (v < 0 || padding > 0) return std::nullopt; // a letter after the padding is no base64 either
        bits = (bits << 6) | static_cast<uint32_t>(v);
        if (++count == 4) {
            bytes.push_back(static_cast<uint8_t>(bits >> 16));
            bytes.push_back(static_cast<uint8_t>(bits >> 8));
            bytes.push_back(static_cast<uint8_t>(bits));
            bits = 0;
            count = 0;
        }
    }
    // The tail: two letters carry one byte, three carry two; one letter alone carries nothing whole.
    if (count == 1 || padding > 2 || (padding > 0 && count + padding != 4)) return std::nullopt;
    if (count == 2) bytes.push_back(static_cast<uint8_t>(bits >> 4));
    if (count == 3) {
        bytes.push_back(static_cast<uint8_t>(bits >> 10));
        bytes.push_back(static_cast<uint8_t>(bits >> 2));
    }
    return bytes;
}
