#include "engine/AFCommandGUI.h"

#include "engine/AFUniClient.h"

AFCommandGUI::AFCommandGUI(int id, int oldValue, int newValue)
    : id(id), oldValue(oldValue), newValue(newValue) {}

void AFCommandGUI::undo(AFUniClient& client) {
    client.setEditorState(id, oldValue);
}

void AFCommandGUI::redo(AFUniClient& client) {
    client.setEditorState(id, newValue);
}

bool AFCommandGUI::refreshNeeded() const {
    return true;
}

const char* AFCommandGUI::name() const {
    return "GUI Change";
}
