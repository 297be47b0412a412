#pragma once

class AFUniClient;

// One undoable user gesture. A command holds what it needs to take the gesture back and to do it again; the
// history owns it. All operations run on the editor thread.
class AFCommandBase {
public:
    AFCommandBase() = default;
    AFCommandBase(const AFCommandBase&) = delete;
    AFCommandBase& operator=(const AFCommandBase&) = delete;
    virtual ~AFCommandBase();

    virtual void undo(AFUniClient& client);
    virtual void redo(AFUniClient& client);
    // Whether the editor must rebuild the slot strip after this command ran either way.
    virtual bool refreshNeeded() const;
    virtual const char* name() const;
};
