#pragma once

class AFCommandBase;

// The owner's say in every command that enters the history, before it is appended.
class AFCommandPrepare {
public:
    virtual ~AFCommandPrepare();
    // Editor thread. The default leaves the command as it is.
    virtual void prepare(AFCommandBase& command);
};
