#include "engine/AFCommandHistory.h"

#include "engine/AFCommandPrepare.h"

AFCommandHistory::AFCommandHistory(AFCommandPrepare* prepare) : prepare(prepare) {}

void AFCommandHistory::add(std::unique_ptr<AFCommandBase> command) {
    if (!command) return;
    while (size() > position)
        commands.pop_back();
    if (prepare != nullptr) prepare->prepare(*command);
    commands.push_back(std::move(command));
    position = size();
}

bool AFCommandHistory::undo(AFUniClient& client) {
    if (position <= 0) return false;
    AFCommandBase& command = *commands[static_cast<std::size_t>(position - 1)];
    command.undo(client);
    const bool refresh = command.refreshNeeded();
    --position;
    return refresh;
}

bool AFCommandHistory::redo(AFUniClient& client) {
    if (position >= size()) return false;
    AFCommandBase& command = *commands[static_cast<std::size_t>(position)];
    command.redo(client);
    const bool refresh = command.refreshNeeded();
    ++position;
    return refresh;
}

const AFCommandBase* AFCommandHistory::at(int index) const noexcept {
    if (index < 0 || index >= size()) return nullptr;
    return commands[static_cast<std::size_t>(index)].get();
}

const char* AFCommandHistory::undoName() const noexcept {
    const AFCommandBase* command = at(position - 1);
    return command != nullptr ? command->name() : "";
}

const char* AFCommandHistory::redoName() const noexcept {
    const AFCommandBase* command = at(position);
    return command != nullptr ? command->name() : "";
}
