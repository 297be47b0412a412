#pragma once

#include "engine/AFCommandBase.h"
#include "state/AFChunk.h"

// A snapshot command: the state of one slot (an effect preset image) or, with slot -1, the whole state (a
// global preset image), before and after a change. The before image is taken at construction, so the command
// is made before the change; the after image is taken when the change is undone, so that redo returns to the
// state exactly as it stood then.
class AFCommandRememberChunk : public AFCommandBase {
public:
    // Editor thread: snapshots the slot, or everything for -1.
    AFCommandRememberChunk(AFUniClient& client, int slot);

    // Editor thread; both load through the state reader, which holds the audio off.
    void undo(AFUniClient& client) override;
    void redo(AFUniClient& client) override;
    bool refreshNeeded() const override;
    const char* name() const override;

    int getSlot() const noexcept { return slot; }
    const AFChunk& getBefore() const noexcept { return before; }

protected:
    // For snapshots of other parts of the client: the derived constructor calls rememberBefore itself.
    explicit AFCommandRememberChunk(int slot);
    void rememberBefore(AFUniClient& client);

    // The part of the client this command snapshots.
    virtual void capture(AFUniClient& client, AFChunk& chunk);
    virtual bool restore(AFUniClient& client, AFChunk& chunk);

private:
    int slot;
    AFChunk before;
    AFChunk after;
};
