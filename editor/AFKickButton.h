#pragma once

#include "editor/AFControl.h"

// A button that acts on release inside it: its value is 1 while pressed, and the listener hears the press
// (value 1) and the release (value 0). GUI thread.
class AFKickButton : public AFControl {
public:
    AFKickButton(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face);

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;
    void setEnabled(bool on);

private:
    bool enabled = true;
};
