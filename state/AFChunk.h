#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class AFMessageSink;

// The one container of all persistent state: a flat run of 32-bit little-endian words behind a five-word
// header (size in words, version, tempo, sample rate, magic). Writers run twice over the same code, first
// counting and then writing, so no size is ever computed by hand. Readers never trust the words: a read past
// the end yields 0 and marks the chunk as overrun.
class AFChunk {
public:
    static constexpr int32_t kMagic = 26101977;
    static constexpr int kHeaderWords = 5;
    // A size word beyond this is refused like a wrong magic: no preset comes near 64 MiB.
    static constexpr uint32_t kMaxWords = 16u * 1024u * 1024u;

    AFChunk() = default;
    AFChunk(const AFChunk&) = delete;
    AFChunk& operator=(const AFChunk&) = delete;

    // One thread at a time; state loads and saves hold the audio off first.
    virtual ~AFChunk();
    virtual void writeFloat(float value);
    virtual void readFloat(float& into);
    virtual float readFloat();
    virtual void stepBack();
    virtual void readFloats(float* into4);
    virtual void readFloatsValue(float* into4);
    virtual void writeInt(int32_t value);
    virtual void readInt(int32_t& into);
    virtual int32_t readInt();
    virtual void rawByteRead() {}
    // An absent or empty string is one word 0; otherwise the length, the bytes and zero padding to a word.
    virtual void writeString(const char* text);
    virtual void writeBytes(const void* data, int32_t byteCount);
    // The text, or "" for an absent string.
    virtual std::string readString();
    virtual void readBytes(void* into, int32_t byteCount);

    // Counting pass: writes only move the position.
    void writeHeader();
    // Any thread, before a read: where the header's message goes; without one, to standard error.
    void setMessageSink(AFMessageSink* sink) noexcept { messages = sink; }
    // Sets the position to 0 and reads the header. Reports "\t This is no valid %s format!" unless silent and
    // returns false for a wrong magic or an insane size.
    bool readHeader(bool silent);
    void rewindToWrite();
    void rewindToRead() { position = kHeaderWords, overrun = false; }
    // Ends the counting pass: allocates the counted words, zeroed, for the real pass.
    void allocateCounted();
    void copyFrom(const AFChunk& other);

    // The image as bytes, little-endian, exactly sizeInWords words.
    std::vector<uint8_t> toBytes() const;
    // Takes an image: the header decides the size, a shorter image is zero-filled. False (and the message
    // unless silent) when the header is not ours; the chunk is then left empty.
    bool loadBytes(const void* data, std::size_t byteCount, bool silent);
    // Whole files. Writing goes through a temporary file and a rename, so a failed save never destroys the
    // old file. Paths shorter than two characters fail. No message from this layer: the caller reports.
    bool readFile(const std::string& path, bool silent);
    bool writeFile(const std::string& path) const;

    int32_t getVersion() const noexcept { return version; }
    int32_t getMagic() const noexcept { return magic; }
    float getTempo() const noexcept { return tempo; }
    float getSampleRate() const noexcept { return sampleRate; }
    void setTempo(float value) noexcept { tempo = value; }
    void setSampleRate(float value) noexcept { sampleRate = value; }
    int32_t getPosition() const noexcept { return position; }
    void setPosition(int32_t words) noexcept { position = words; }
    uint32_t getSizeInWords() const noexcept { return sizeInWords; }
    bool isCounting() const noexcept { return counting; }
    // True once any read went past the last word.
    bool isOverrun() const noexcept { return overrun; }
    std::size_t wordCount() const noexcept { return extent(); }
    // True when every read from here on is a zero the image did not store: past its stored words a chunk
    // reads zeros up to the size its header claims, which may be millions of words.
    bool inZeroTail() const noexcept {
        return position >= 0 && static_cast<std::size_t>(position) >= words.size();
    }
    uint32_t word(std::size_t i) const noexcept { return i < words.size() ? words[i] : 0u; }

    // The process-wide content version: written into word 1; files of a later version are refused.
    static int32_t contentVersion();
    static void setContentVersion(int32_t value);

protected:
    // The words a reader may reach: a loaded image keeps only the words it brought, and the rest up to the
    // header's size reads as zero without being stored.
    std::size_t extent() const noexcept { return std::max<std::size_t>(words.size(), sizeInWords); }
    // Inline for the words a state holds; the ends of the image take the calls below.
    uint32_t nextWord() {
        if (position >= 0 && static_cast<std::size_t>(position) < words.size())
            return words[static_cast<std::size_t>(position++)];
        return nextWordPastStored();
    }
    void putWord(uint32_t value) {
        // A negative position converts to a size beyond any chunk.
        const auto at = static_cast<std::size_t>(position++);
        if (counting) return;
        if (at < words.size())
            words[at] = value;
        else
            putWordPastStored(at, value);
    }
    uint32_t nextWordPastStored();
    void putWordPastStored(std::size_t at, uint32_t value);

    int32_t magic = 0;
    int32_t version = 0;
    float tempo = 120.0f;
    float sampleRate = 44100.0f;
    std::vector<uint32_t> words;
    int32_t position = 0;
    uint32_t sizeInWords = 0;
    bool counting = false;
    bool overrun = false;
    AFMessageSink* messages = nullptr;
};
