#pragma once

#include "editor/AFControl.h"

class AFBitmapStore;
class AFOptionMenu;

// Shows the response curve of one control (its glyph on the curve face, bitmap 1057) and pops the shared
// curve menu for its tag. The value is the curve index. GUI thread.
class CurveSelector : public AFControl {
public:
    CurveSelector(const AFRect& size, AFControlListener* listener, int tag, const AFBitmapStore& bitmaps,
                  AFOptionMenu* menu);

    void setCurve(int curve);
    int getCurve() const noexcept { return static_cast<int>(value); }
    bool onMouseDown(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

private:
    const AFBitmapStore& bitmaps;
    AFOptionMenu* menu;
};
