#pragma once

#include "engine/AFCommandBase.h"

// A change of what the editor shows (the selected slot, the open page): kept in the client's editor state so
// that it survives the editor being closed and opened, and so that undo walks back through views as well.
class AFCommandGUI : public AFCommandBase {
public:
    // Editor thread: `id` names the editor setting, with its value before and after.
    AFCommandGUI(int id, int oldValue, int newValue);

    void undo(AFUniClient& client) override;
    void redo(AFUniClient& client) override;
    bool refreshNeeded() const override;
    const char* name() const override;

    int getId() const noexcept { return id; }

private:
    int id;
    int oldValue;
    int newValue;
};
