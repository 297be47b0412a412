#pragma once

#include "engine/AFCommandRememberChunk.h"

// A snapshot of the Dictator rows around an edit of them: a placed, cleared or randomised node or row.
class AFCommandRememberDictatorChunk : public AFCommandRememberChunk {
public:
    // Editor thread, before the edit.
    explicit AFCommandRememberDictatorChunk(AFUniClient& client);

    const char* name() const override;

protected:
    void capture(AFUniClient& client, AFChunk& chunk) override;
    bool restore(AFUniClient& client, AFChunk& chunk) override;
};
