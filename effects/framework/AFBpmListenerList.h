#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

class AFBPMChangeInterface;

// The tempo listener list. Fixed capacity so that walking it on the audio thread never allocates. An entry is
// published before the count that reaches it, so an effect may be built while the audio runs; entries are
// removed only while the audio thread is held off (effect destruction). Threads that add or remove take turns
// through a lock the audio thread never touches: two effects may be built on two threads at once.
class AFBpmListenerList {
public:
    // Enough for eight slots, each with an effect and two LFOs, plus headroom for tools and tests.
    static constexpr std::size_t kCapacity = 64;

    // Any thread but the audio thread. Returns false when the list is full.
    bool add(AFBPMChangeInterface* listener) noexcept;
    // Any thread with the audio held off.
    void remove(AFBPMChangeInterface* listener) noexcept;
    // Audio thread: calls bpmChanged on every listener in list order.
    void notifyAll() const noexcept;

    std::size_t size() const noexcept { return count.load(std::memory_order_acquire); }

private:
    std::array<AFBPMChangeInterface*, kCapacity> entries{};
    std::atomic<std::size_t> count{0};
    std::mutex editing;
};
