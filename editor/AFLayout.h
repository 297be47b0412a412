#pragma once

#include "editor/AFRect.h"

#include <cstdint>

// Where things sit on the face, in logical units, and the colours: shared by the art program (which paints
// the fixed parts into the background) and the views (which sit on top of them).
struct AFLayout {
    static constexpr double kWidth = 1200.0;
    static constexpr double kHeight = 700.0;
    static constexpr double kTopBar = 64.0;
    static constexpr double kSlotWidth = 150.0;
    static constexpr double kSlotTop = 72.0;
    static constexpr double kSlotHeight = 620.0;
    static constexpr double kHeaderHeight = 30.0;
    static constexpr double kControlKnob = 64.0;
    static constexpr double kParameterKnob = 36.0;
    static constexpr double kGainKnob = 30.0;
    static constexpr double kLamp = 14.0;
    static constexpr double kFaderWidth = 160.0;
    static constexpr double kFaderHeight = 22.0;
    static constexpr double kHandleWidth = 14.0;
    static constexpr double kButtonHeight = 24.0;

    static constexpr uint32_t kStage = 0x101218;
    static constexpr uint32_t kPanel = 0x1A1D25;
    static constexpr uint32_t kText = 0xE8ECF2;
    static constexpr uint32_t kDimText = 0x9AA3B2;
    static constexpr uint32_t kAccent = 0xF2C14E;

    // One colour per slot, bright enough to read from a distance on the dark stage.
    static constexpr uint32_t slotColour(int slot) {
        constexpr uint32_t colours[8] = {0xE5484D, 0xF5A524, 0xE8D44D, 0x46C46E,
                                         0x2FB9C8, 0x4C8DF6, 0x9B6CF0, 0xE35DB0};
        return colours[slot & 7];
    }
    static constexpr AFRect slotRect(int slot) {
        return AFRect::ofSize(slot * kSlotWidth, kSlotTop, kSlotWidth, kSlotHeight);
    }
};
