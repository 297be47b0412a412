#include "engine/AFProcessingOrder.h"

#include <algorithm>

void AFProcessingOrder::append(int slot) noexcept {
    const auto free = std::find(order.begin(), order.end(), -1);
    if (free != order.end()) *free = slot;
}

void AFProcessingOrder::remove(int slot) noexcept {
    for (int i = 0; i < kSlots; ++i) {
        if (order[static_cast<std::size_t>(i)] != slot) continue;
        for (int j = i + 1; j < kSlots; ++j)
            order[static_cast<std::size_t>(j - 1)] = order[static_cast<std::size_t>(j)];
        order[kSlots - 1] = -1;
        return;
    }
}
