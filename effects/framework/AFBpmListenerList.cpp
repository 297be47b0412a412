#include "effects/framework/AFBpmListenerList.h"

#include "effects/framework/AFBPMChangeInterface.h"

bool AFBpmListenerList::add(AFBPMChangeInterface* listener) noexcept {
    if (listener == nullptr || count >= kCapacity) return false;
    entries[count++] = listener;
    return true;
}

void AFBpmListenerList::remove(AFBPMChangeInterface* listener) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        if (entries[i] != listener) continue;
        for (std::size_t j = i + 1; j < count; ++j)
            entries[j - 1] = entries[j];
        entries[--count] = nullptr;
        return;
    }
}

void AFBpmListenerList::notifyAll() const noexcept {
    for (std::size_t i = 0; i < count; ++i)
        entries[i]->bpmChanged();
}
