#include "state/AFChunk.h"

#include "host/AFPluginTypes.h"
#include "state/AFMessageSink.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

std::atomic<int32_t> sharedContentVersion{0};

uint32_t floatBits(float v) {
    return std::bit_cast<uint32_t>(v);
}
float bitsFloat(uint32_t w) {
    return std::bit_cast<float>(w);
}

uint32_t loadLittle(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

void storeLittle(uint8_t* p, uint32_t w) {
    p[0] = static_cast<uint8_t>(w), p[1] = static_cast<uint8_t>(w >> 8), p[2] = static_cast<uint8_t>(w >> 16),
    p[3] = static_cast<uint8_t>(w >> 24);
}

} // namespace

AFChunk::~AFChunk() = default;

int32_t AFChunk::contentVersion() {
    return sharedContentVersion.load();
}

void AFChunk::setContentVersion(int32_t value) {
    sharedContentVersion.store(value);
}

uint32_t AFChunk::nextWordPastStored() {
    if (position < 0 || static_cast<std::size_t>(position) >= extent()) overrun = true;
    ++position;
    return 0;
}

void AFChunk::putWordPastStored(std::size_t at, uint32_t value) {
    if (at >= sizeInWords) return;
    words.resize(at + 1, 0u);
    words[at] = value;
}

void AFChunk::writeFloat(float value) {
    putWord(floatBits(value));
}
void AFChunk::readFloat(float& into) {
    into = bitsFloat(nextWord());
}
float AFChunk::readFloat() {
    return bitsFloat(nextWord());
}
void AFChunk::stepBack() {
    --position;
}

void AFChunk::readFloats(float* into4) {
    for (int i = 0; i < 4; ++i)
        into4[i] = bitsFloat(nextWord());
}

void AFChunk::readFloatsValue(float* into4) {
    std::memset(into4, 0, 4 * sizeof(float));
    readFloats(into4);
}

void AFChunk::writeInt(int32_t value) {
    putWord(static_cast<uint32_t>(value));
}
void AFChunk::readInt(int32_t& into) {
    into = static_cast<int32_t>(nextWord());
}
int32_t AFChunk::readInt() {
    return static_cast<int32_t>(nextWord());
}

void AFChunk::writeString(const char* text) {
    const std::size_t length = text != nullptr ? std::strlen(text) : 0;
    writeInt(static_cast<int32_t>(length));
    const std::size_t textWords = (length + 3) / 4;
    for (std::size_t w = 0; w < textWords; ++w) {
        uint8_t bytes[4] = {0, 0, 0, 0};
        for (std::size_t b = 0; b < 4 && w * 4 + b < length; ++b)
            bytes[b] = static_cast<uint8_t>(text[w * 4 + b]);
        putWord(loadLittle(bytes));
    }
}

std::string AFChunk::readString() {
    const int32_t length = readInt();
    if (length <= 0) return {};
    // A hostile length never reads beyond the words that are there, and the text ends at its first zero byte:
    // a claimed length of millions over a zero-padded image costs no more than the text itself.
    const std::size_t available =
        position >= 0 && static_cast<std::size_t>(position) < extent() ? (extent() - position) * 4 : 0;
    const std::size_t wanted = static_cast<std::size_t>(length);
    const std::size_t textWords = (wanted + 3) / 4;
    const int32_t start = position;
    std::string text;
    bool ended = false;
    for (std::size_t w = 0; w < textWords && w * 4 < available && !ended; ++w) {
        uint8_t bytes[4];
        storeLittle(bytes, nextWord());
        for (std::size_t b = 0; b < 4 && w * 4 + b < wanted && !ended; ++b) {
            if (bytes[b] == 0)
                ended = true;
            else
                text.push_back(static_cast<char>(bytes[b]));
        }
    }
    if ((textWords - 1) * 4 >= available) overrun = true;
    position = start + static_cast<int32_t>(textWords);
    return text;
}

void AFChunk::writeBytes(const void* data, int32_t byteCount) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (int32_t w = 0; w < byteCount / 4; ++w)
        putWord(loadLittle(bytes + 4 * w));
}

void AFChunk::readBytes(void* into, int32_t byteCount) {
    auto* bytes = static_cast<uint8_t*>(into);
    for (int32_t w = 0; w < byteCount / 4; ++w)
        storeLittle(bytes + 4 * w, nextWord());
}

void AFChunk::writeHeader() {
    if (counting) {
        position += kHeaderWords;
        version = contentVersion();
        return;
    }
    const int32_t total = position;
    position = 0;
    writeInt(total);
    writeInt(contentVersion());
    writeFloat(tempo);
    writeFloat(sampleRate);
    writeInt(kMagic);
    sizeInWords = static_cast<uint32_t>(total);
}

bool AFChunk::readHeader(bool silent) {
    position = 0;
    overrun = false;
    sizeInWords = static_cast<uint32_t>(readInt());
    version = readInt();
    tempo = readFloat();
    sampleRate = readFloat();
    magic = readInt();
    if (magic != kMagic || sizeInWords < kHeaderWords || sizeInWords > kMaxWords) {
        if (!silent) {
            char text[128];
            std::snprintf(text, sizeof(text), "\t This is no valid %s format!", AFIdentity::kProduct);
            AFMessageSink::reportTo(messages, text);
        }
        return false;
    }
    return true;
}

void AFChunk::rewindToWrite() {
    counting = true;
    position = 0;
    overrun = false;
}

void AFChunk::allocateCounted() {
    counting = false;
    words.assign(static_cast<std::size_t>(position > 0 ? position : 0), 0u);
}

void AFChunk::copyFrom(const AFChunk& other) {
    if (&other == this) return;
    const std::size_t stored = std::min<std::size_t>(other.words.size(), other.sizeInWords);
    words.assign(other.words.begin(), other.words.begin() + static_cast<std::ptrdiff_t>(stored));
    sizeInWords = other.sizeInWords;
    magic = other.magic, version = other.version, tempo = other.tempo, sampleRate = other.sampleRate;
    position = 0;
    overrun = false;
}

std::vector<uint8_t> AFChunk::toBytes() const {
    std::vector<uint8_t> bytes(static_cast<std::size_t>(sizeInWords) * 4, 0);
    const std::size_t stored = std::min<std::size_t>(words.size(), sizeInWords);
    if constexpr (std::endian::native == std::endian::little) {
        if (stored > 0) std::memcpy(bytes.data(), words.data(), stored * 4);
    } else {
        for (std::size_t i = 0; i < stored; ++i)
            storeLittle(&bytes[i * 4], words[i]);
    }
    return bytes;
}

bool AFChunk::loadBytes(const void* data, std::size_t byteCount, bool silent) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint8_t head[kHeaderWords * 4] = {};
    if (bytes != nullptr) std::memcpy(head, bytes, std::min(byteCount, sizeof(head)));
    words.assign(kHeaderWords, 0u);
    for (int i = 0; i < kHeaderWords; ++i)
        words[static_cast<std::size_t>(i)] = loadLittle(head + 4 * i);
    if (!readHeader(silent)) {
        words.clear();
        sizeInWords = 0;
        return false;
    }
    // The header's size decides how much is read; a shorter image reads as zeros behind it.
    const std::size_t usable = std::min(byteCount / 4, static_cast<std::size_t>(sizeInWords));
    words.resize(usable);
    if constexpr (std::endian::native == std::endian::little) {
        if (usable > 0) std::memcpy(words.data(), bytes, usable * 4);
    } else {
        for (std::size_t i = 0; i < usable; ++i)
            words[i] = loadLittle(bytes + 4 * i);
    }
    position = kHeaderWords;
    return true;
}

bool AFChunk::readFile(const std::string& path, bool silent) {
    if (path.size() < 2) return false;
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    uint8_t head[kHeaderWords * 4] = {};
    in.read(reinterpret_cast<char*>(head), sizeof(head));
    uint32_t size = loadLittle(head);
    if (loadLittle(head + 16) != static_cast<uint32_t>(kMagic) || size > kMaxWords || size < kHeaderWords)
        size = kHeaderWords;
    // Only what the file holds is read: a header claiming more than is there costs no memory for the rest.
    const std::size_t limit = static_cast<std::size_t>(size) * 4;
    std::vector<uint8_t> bytes(head, head + std::min(limit, sizeof(head)));
    constexpr std::size_t kPiece = 64 * 1024;
    while (in && bytes.size() < limit) {
        const std::size_t have = bytes.size();
        bytes.resize(std::min(limit, have + kPiece));
        in.read(reinterpret_cast<char*>(bytes.data() + have),
                static_cast<std::streamsize>(bytes.size() - have));
        bytes.resize(have + static_cast<std::size_t>(in.gcount()));
    }
    bytes.resize(std::max(bytes.size(), sizeof(head)), 0);
    return loadBytes(bytes.data(), bytes.size(), silent);
}

namespace {

// A device, pipe or terminal is written in place: renaming over it would replace it with a file. The open
// does not wait for a pipe's reader.
bool writeInPlace(const std::string& path, const std::vector<uint8_t>& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    return ::close(fd) == 0 && done == bytes.size();
}

} // namespace

bool AFChunk::writeFile(const std::string& path) const {
    if (path.size() < 2) return false;
    std::error_code ignored;
    const auto status = std::filesystem::status(path, ignored);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
        !std::filesystem::is_directory(status))
        return writeInPlace(path, toBytes());
    const std::string temporary = path + ".tmp-" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        const auto bytes = toBytes();
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.flush();
        if (!out) {
            out.close();
            std::filesystem::remove(temporary, ignored);
            return false;
        }
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    if (!error) return true;
    std::filesystem::remove(temporary, ignored);
    return false;
}
