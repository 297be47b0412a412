#pragma once

#include "engine/AFCommandBase.h"

#include <deque>
#include <memory>

class AFCommandPrepare;
class AFUniClient;

// The one undo history of a client. Commands stay until the client closes or a new command cuts the redo
// tail; there is no depth limit. Everything here runs on the editor thread, never on the audio thread.
class AFCommandHistory {
public:
    // `prepare` sees every added command; it may be null.
    explicit AFCommandHistory(AFCommandPrepare* prepare);

    // Drops the commands that could be redone, then appends. A null command is ignored.
    void add(std::unique_ptr<AFCommandBase> command);
    // Each returns whether the editor must rebuild the slot strip; false when there was nothing to do.
    bool undo(AFUniClient& client);
    bool redo(AFUniClient& client);

    bool canUndo() const noexcept { return position > 0; }
    bool canRedo() const noexcept { return position < size(); }
    // The number of commands that are done.
    int getPosition() const noexcept { return position; }
    int size() const noexcept { return static_cast<int>(commands.size()); }
    // The command at `index`, or null outside the history.
    const AFCommandBase* at(int index) const noexcept;
    // The name of the command the next undo or redo would run, or "".
    const char* undoName() const noexcept;
    const char* redoName() const noexcept;

private:
    AFCommandPrepare* prepare;
    int position = 0;
    std::deque<std::unique_ptr<AFCommandBase>> commands;
};
