#pragma once

#include "editor/AFViewContainer.h"

#include <array>

class AFBitmapStore;
class AFOptionMenu;
class CurveSelector;
class KnobEngine;

// A slot's response-curve pickers, one beside each of Parameter 1..4 and Dry/Wet: each shows its control's
// curve and pops the shared curve menu for its own tag (the first tag plus its row). GUI thread.
class CurveSelect : public AFViewContainer {
public:
    static constexpr int kPickers = 5;

    CurveSelect(const std::array<AFRect, kPickers>& pickers, AFControlListener* listener, int firstTag,
                const AFBitmapStore& bitmaps, AFOptionMenu* menu);

    // Shows the curves the slot holds now.
    void follow(const KnobEngine& engine);
    CurveSelector* getSelector(int row) const { return selectors[static_cast<std::size_t>(row)]; }
    // The pickers sit between other views: the rectangle around them has nothing of its own to draw.
    void drawBackground(cairo_t*) override {}

private:
    std::array<CurveSelector*, kPickers> selectors{};
};
