#pragma once

#include <cstdint>

// The engine's random generator, one for the whole process and shared by every instance:
// state = (state + argument) * 16807 reduced by 2^31 - 1 in signed 32-bit arithmetic.
class AFRandom {
public:
    // Any thread. A seed of 0 would lock the generator at 0 and is taken as 1.
    static void seed(int32_t value) noexcept;
    // Any thread, the audio thread included: a float between 0 and 1. Callers pass 0; a non-zero argument
    // stirs the state.
    static float next(int32_t argument = 0) noexcept;
};
