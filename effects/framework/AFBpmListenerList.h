#pragma once

#include <array>
#include <cstddef>

class AFBPMChangeInterface;

// The tempo listener list. Fixed capacity so that walking it on the audio thread never allocates; entries are
// added and removed only while the audio thread is held off (effect construction, destruction and swaps).
class AFBpmListenerList {
public:
    // Enough for eight slots, each with an effect and two LFOs, plus headroom for tools and tests.
    static constexpr std::size_t kCapacity = 64;

    // Any thread with the audio held off. Returns false when the list is full.
    bool add(AFBPMChangeInterface* listener) noexcept;
    // Any thread with the audio held off.
    void remove(AFBPMChangeInterface* listener) noexcept;
    // Audio thread: calls bpmChanged on every listener in list order.
    void notifyAll() const noexcept;

    std::size_t size() const noexcept { return count; }

private:
    std::array<AFBPMChangeInterface*, kCapacity> entries{};
    std::size_t count = 0;
};
