#pragma once

#include "editor/AFControl.h"

// A switch: a press flips its value between 0 and 1 and tells the listener, inside one edit gesture. Draws
// the off or the on face. GUI thread.
class AFOnOffButton : public AFControl {
public:
    AFOnOffButton(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* offFace,
                  const AFBitmap* onFace, float* valuePointer);

    bool onMouseDown(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;
    float getValue() const override { return valuePointer != nullptr ? *valuePointer : 0.0f; }

private:
    const AFBitmap* onFace;
    float* valuePointer;
};
