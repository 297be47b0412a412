#pragma once

#include <cstdint>

// One key press as the window hands it to the views: the character (lower case for letters) and modifiers.
struct AFKeyEvent {
    static constexpr uint32_t kEscape = 27;
    static constexpr uint32_t kReturn = 13;

    uint32_t key = 0;
    bool shift = false;
    bool command = false;
};
