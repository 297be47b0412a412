#include "engine/AFRandom.h"

#include <atomic>

namespace {
std::atomic<int32_t> state{1};
}

void AFRandom::seed(int32_t value) noexcept {
    state.store(value != 0 ? value : 1, std::memory_order_relaxed);
}

float AFRandom::next(int32_t argument) noexcept {
    const auto sum =
        static_cast<uint32_t>(state.load(std::memory_order_relaxed)) + static_cast<uint32_t>(argument);
    auto s = static_cast<int32_t>(sum * 16807u); // signed 32-bit wrap-around, done without overflow UB
    s -= (s / 2147483647) * 2147483647;
    state.store(s, std::memory_order_relaxed);
    return static_cast<float>(static_cast<double>(s) / 2147483648.0 * 0.5 + 0.5);
}
