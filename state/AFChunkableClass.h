#pragma once

class AFChunk;

// Everything that saves itself into a chunk. Readers return true on success; the silent flag only keeps
// message boxes away, the reading itself still happens.
class AFChunkableClass {
public:
    virtual ~AFChunkableClass() = default;

    // Thread of the load or save that owns the chunk; the audio is held off.
    virtual bool read(AFChunk& chunk, bool silent) = 0;
    // Thread of the save that owns the chunk.
    virtual void write(AFChunk& chunk) = 0;

    // Same thread as read: the name of the file the object came from, without folder and extension.
    virtual void chunkName(const char*) {}
    // Same thread as read, around the read.
    virtual void beforeRead() {}
    virtual void afterRead() {}
    // Same thread as write, around the write.
    virtual void beforeWrite() {}
    virtual void afterWrite() {}
};
