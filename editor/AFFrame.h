#pragma once

#include "editor/AFViewContainer.h"

class AFOptionMenu;

// The root of the view tree: routes mouse and key records to the views, shows a popped-up menu above
// everything, and collects the rectangles that need repainting. GUI thread.
class AFFrame : public AFViewContainer {
public:
    AFFrame(double width, double height, const AFBitmap* background);

    // Events in logical units; the window divides by its scale before it calls these.
    bool mouseDown(const AFMouseEvent& event);
    void mouseMoved(const AFMouseEvent& event);
    void mouseUp(const AFMouseEvent& event);
    bool keyDown(const AFKeyEvent& event);
    // Lets every view compare itself with the engine.
    void idle();

    // Repaints the dirty part (or everything with `all`) into `cr`, whose units are logical, and clears it.
    void paint(cairo_t* cr, bool all = false);
    void invalidRect(const AFRect& rect);
    const AFRect& getDirtyRect() const noexcept { return dirty; }
    bool isDirty() const noexcept { return !dirty.empty(); }

    // The menu on top, if one is open; opening another closes the first.
    void openMenu(AFOptionMenu* menu);
    void closeMenu();
    AFOptionMenu* getOpenMenu() const noexcept { return menu; }

private:
    AFRect dirty;
    AFOptionMenu* menu = nullptr;
    AFView* mouseTarget = nullptr;
};
