#pragma once

#include "editor/AFView.h"

class AFBitmap;

// The state of a slot's Control as a lamp and a word: off, waiting for the grid, fading, running. GUI thread.
class KnobVisualizer : public AFView {
public:
    enum State : int { kOff = 0, kPending = 1, kFading = 2, kRunning = 3 };

    // `lamps` are the four lamp bitmaps in the order of the states.
    KnobVisualizer(const AFRect& size, const AFBitmap* const* lamps);

    void setState(int newState, const char* grid);
    int getState() const noexcept { return state; }
    void draw(cairo_t* cr) override;

private:
    const AFBitmap* lamps[4];
    int state = kOff;
    const char* grid = "";
};
