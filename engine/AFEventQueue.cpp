#include "engine/AFEventQueue.h"

void AFEventQueue::clear() noexcept {
    head = -1;
    count = 0;
    for (int i = 0; i < kCapacity; ++i)
        pool[static_cast<std::size_t>(i)].next = i + 1 < kCapacity ? i + 1 : -1;
    freeList = 0;
}

bool AFEventQueue::insert(int32_t delay, int32_t type, int32_t data1, int32_t data2) noexcept {
    if (freeList < 0) return false;
    const int node = freeList;
    freeList = pool[static_cast<std::size_t>(node)].next;
    Node& n = pool[static_cast<std::size_t>(node)];
    n.record = Record{};
    n.record.type = type;
    n.record.data1 = data1;
    n.record.data2 = data2;
    ++count;

    int32_t d = delay;
    int previous = -1;
    int at = head;
    while (at >= 0 && d >= pool[static_cast<std::size_t>(at)].record.delay) {
        d -= pool[static_cast<std::size_t>(at)].record.delay;
        previous = at;
        at = pool[static_cast<std::size_t>(at)].next;
    }
    n.record.delay = d;
    n.next = at;
    if (previous < 0)
        head = node;
    else
        pool[static_cast<std::size_t>(previous)].next = node;
    if (at < 0) return true;
    // Inserted before a later record: every record after the new one gives up the remaining delay. This is
    // how the queue has always behaved, and stored timing relies on it.
    for (int i = at; i >= 0; i = pool[static_cast<std::size_t>(i)].next)
        pool[static_cast<std::size_t>(i)].record.delay -= d;
    return true;
}

void AFEventQueue::popFront() noexcept {
    if (head < 0) return;
    const int node = head;
    head = pool[static_cast<std::size_t>(node)].next;
    pool[static_cast<std::size_t>(node)].next = freeList;
    freeList = node;
    --count;
}
