#pragma once

#include <cstdint>

class AFChunk;

// Anything that saves itself into a chunk. Readers never trust the words: hostile values are kept inside
// their ranges, and a read past the end yields zeros that the caller detects through the chunk.
class AFChunkableClass {
public:
    virtual ~AFChunkableClass() = default;
    // Any thread but the audio thread, with the audio held off. 1 on success; `silent` suppresses messages.
    virtual int readChunk(AFChunk& chunk, bool silent) = 0;
    // Any thread but the audio thread.
    virtual void writeChunk(AFChunk& chunk) = 0;
    // The record version of the enclosing record; older versions lack fields.
    virtual void setChunkVersion(int32_t) {}
};
