#pragma once

#include <array>
#include <cstdint>

// The incoming MIDI queue as a delta list: each record's delay counts from the record before it, so the block
// loop only ever counts down the head. Records live in a fixed pool; a full queue drops new events.
class AFEventQueue {
public:
    struct Record {
        int32_t kind = 100;
        int32_t size = 1;
        int32_t delay = 0; // samples after the record before it
        int32_t type = 0;  // 200..206
        int32_t data1 = 0;
        int32_t data2 = 0;
        int32_t reserved[2] = {0, 0};
    };
    static_assert(sizeof(Record) == 32);

    static constexpr int kCapacity = 2048;

    // Audio thread (the host delivers events on it). Returns false when the pool is full.
    bool insert(int32_t delay, int32_t type, int32_t data1, int32_t data2) noexcept;
    // Audio thread.
    bool empty() const noexcept { return head < 0; }
    // The head record; only valid when not empty.
    Record& front() noexcept { return pool[static_cast<std::size_t>(head)].record; }
    void popFront() noexcept;
    // Remaining delay of the head, or `whenEmpty`.
    int32_t headDelay(int32_t whenEmpty) const noexcept {
        return head < 0 ? whenEmpty : pool[static_cast<std::size_t>(head)].record.delay;
    }
    int size() const noexcept { return count; }
    void clear() noexcept;

    AFEventQueue() noexcept { clear(); }

private:
    struct Node {
        Record record;
        int next = -1;
    };
    std::array<Node, kCapacity> pool{};
    int head = -1;
    int freeList = -1;
    int count = 0;
};
