#pragma once

#include "editor/AFViewContainer.h"

class AFBitmapStore;
class AFOptionMenu;
class A2ValueDisplay;

// A slot's header: its number and colour, the effect's badge and name, and the menu of the 24 effects in
// menu order. Choosing one tells the listener with the menu's tag; the value is the menu position. GUI
// thread.
class FXSelect : public AFViewContainer {
public:
    FXSelect(const AFRect& size, AFControlListener* listener, int tag, int slot,
             const AFBitmapStore& bitmaps);

    // Shows the effect of catalogue id `typeId`.
    void setEffect(int typeId);
    bool onMouseDown(const AFMouseEvent& event) override;
    void drawBackground(cairo_t* cr) override;

private:
    const AFBitmapStore& bitmaps;
    int slot;
    int position = -1;
    AFOptionMenu* menu;
    A2ValueDisplay* name;
};
