#pragma once

#include "engine/AFCommandBase.h"

#include <cstdint>

// A finished parameter gesture: the value before and after, both replayed through setParameter, so undo acts
// exactly like the knob did, internal indices included.
class AFCommandParameter : public AFCommandBase {
public:
    // Editor thread, at the end of the gesture.
    AFCommandParameter(int32_t index, float oldValue, float newValue);

    void undo(AFUniClient& client) override;
    void redo(AFUniClient& client) override;
    const char* name() const override;

    int32_t getIndex() const noexcept { return index; }
    float getOldValue() const noexcept { return oldValue; }
    float getNewValue() const noexcept { return newValue; }

private:
    int32_t index;
    float oldValue;
    float newValue;
};
