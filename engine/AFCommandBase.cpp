#include "engine/AFCommandBase.h"

AFCommandBase::~AFCommandBase() = default;

void AFCommandBase::undo(AFUniClient&) {}

void AFCommandBase::redo(AFUniClient&) {}

bool AFCommandBase::refreshNeeded() const {
    return false;
}

const char* AFCommandBase::name() const {
    return "BaseCmd";
}
