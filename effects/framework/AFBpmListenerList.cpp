#include "effects/framework/AFBpmListenerList.h"

#include "effects/framework/AFBPMChangeInterface.h"

bool AFBpmListenerList::add(AFBPMChangeInterface* listener) noexcept {
    const std::lock_guard<std::mutex> turn(editing);
    const std::size_t n = count.load(std::memory_order_relaxed);
    if (listener == nullptr || n >= kCapacity) return false;
    entries[n] = listener;
    count.store(n + 1, std::memory_order_release);
    return true;
}

void AFBpmListenerList::remove(AFBPMChangeInterface* listener) noexcept {
    const std::lock_guard<std::mutex> turn(editing);
    const std::size_t n = count.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < n; ++i) {
        if (entries[i] != listener) continue;
        for (std::size_t j = i + 1; j < n; ++j)
            entries[j - 1] = entries[j];
        entries[n - 1] = nullptr;
        count.store(n - 1, std::memory_order_release);
        return;
    }
}

void AFBpmListenerList::notifyAll() const noexcept {
    const std::size_t n = count.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < n; ++i)
        entries[i]->bpmChanged();
}
