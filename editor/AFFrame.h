#pragma once

#include "editor/AFViewContainer.h"

#include <vector>

class AFOptionMenu;

// The root of the view tree: routes mouse and key records to the views, shows a popped-up menu above
// everything, and collects the rectangles that need repainting. GUI thread.
class AFFrame : public AFViewContainer {
public:
    static constexpr std::size_t kMaxDirty = 32;

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
    // The union of what needs repainting.
    AFRect getDirtyRect() const noexcept;
    bool isDirty() const noexcept { return !dirty.empty(); }

    // The menu on top, if one is open; opening another closes the first.
    void openMenu(AFOptionMenu* menu);
    void closeMenu();
    AFOptionMenu* getOpenMenu() const noexcept { return menu; }

private:
    // Kept apart, so that markers moving in eight slots repaint eight small squares and not the band across.
    std::vector<AFRect> dirty;
    AFOptionMenu* menu = nullptr;
    AFView* mouseTarget = nullptr;
};
