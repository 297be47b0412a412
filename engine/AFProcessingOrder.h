#pragma once

#include <array>

// The order of the serial chain while "dynamicsigflow" is on: slots in the order they started, -1 for the
// free entries at the end. Written on the audio thread, and by other threads only with the audio held off.
class AFProcessingOrder {
public:
    static constexpr int kSlots = 8;

    AFProcessingOrder() { clear(); }

    // Any thread with the audio held off.
    void clear() noexcept { order.fill(-1); }
    // Audio thread: a slot that started takes the first free entry.
    void append(int slot) noexcept;
    // Audio thread, or with the audio held off: a slot that ended leaves, the later ones move up.
    void remove(int slot) noexcept;
    // Any thread.
    int at(int i) const noexcept { return order[static_cast<std::size_t>(i)]; }

private:
    std::array<int, kSlots> order{};
};
