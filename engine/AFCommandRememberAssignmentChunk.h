#pragma once

#include "engine/AFCommandRememberChunk.h"

#include <functional>

// A snapshot of the MIDI bindings around a learn or a clear. The bindings' own writer and reader (those of
// the MIDI map) are handed in by the page that edits them.
class AFCommandRememberAssignmentChunk : public AFCommandRememberChunk {
public:
    using Writer = std::function<void(AFChunk&)>;
    using Reader = std::function<bool(AFChunk&)>;

    // Editor thread, before the edit. Both callables must stay valid while the client lives.
    AFCommandRememberAssignmentChunk(AFUniClient& client, Writer writer, Reader reader);

    const char* name() const override;

protected:
    void capture(AFUniClient& client, AFChunk& chunk) override;
    bool restore(AFUniClient& client, AFChunk& chunk) override;

private:
    Writer writer;
    Reader reader;
};
