#include "engine/AFCommandParameter.h"

#include "engine/AFUniClient.h"

AFCommandParameter::AFCommandParameter(int32_t index, float oldValue, float newValue)
    : index(index), oldValue(oldValue), newValue(newValue) {}

void AFCommandParameter::undo(AFUniClient& client) {
    client.setParameter(index, oldValue);
}

void AFCommandParameter::redo(AFUniClient& client) {
    client.setParameter(index, newValue);
}

const char* AFCommandParameter::name() const {
    return "Parameter Change";
}
