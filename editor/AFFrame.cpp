#include "editor/AFFrame.h"

#include "editor/AFOptionMenu.h"

AFFrame::AFFrame(double width, double height, const AFBitmap* background)
    : AFViewContainer(AFRect::ofSize(0.0, 0.0, width, height), nullptr, -1, background), dirty(size) {}

bool AFFrame::mouseDown(const AFMouseEvent& event) {
    if (menu != nullptr) {
        // A press outside the open menu only closes it.
        AFOptionMenu* open = menu;
        if (!open->onPopupMouseDown(event)) closeMenu();
        return true;
    }
    mouseTarget = mouseDownTarget(event);
    return mouseTarget != nullptr;
}

void AFFrame::mouseMoved(const AFMouseEvent& event) {
    if (menu != nullptr) {
        menu->onPopupMouseMoved(event);
        return;
    }
    if (mouseTarget != nullptr) mouseTarget->onMouseMoved(event);
}

void AFFrame::mouseUp(const AFMouseEvent& event) {
    if (mouseTarget == nullptr) return;
    AFView* target = mouseTarget;
    mouseTarget = nullptr;
    target->onMouseUp(event);
}

bool AFFrame::keyDown(const AFKeyEvent& event) {
    if (menu != nullptr) {
        if (event.key == AFKeyEvent::kEscape) closeMenu();
        return true;
    }
    return onKeyDown(event);
}

void AFFrame::idle() {
    onIdle();
}

void AFFrame::paint(cairo_t* cr, bool all) {
    const AFRect area = all ? size : dirty;
    dirty = {};
    if (area.empty()) return;
    cairo_save(cr);
    cairo_rectangle(cr, area.left, area.top, area.width(), area.height());
    cairo_clip(cr);
    setDrawClip(area);
    draw(cr);
    if (menu != nullptr) menu->drawPopup(cr);
    cairo_restore(cr);
}

void AFFrame::invalidRect(const AFRect& rect) {
    dirty = dirty.united(rect);
}

void AFFrame::openMenu(AFOptionMenu* newMenu) {
    closeMenu();
    menu = newMenu;
    invalidRect(menu->getPopupRect());
}

void AFFrame::closeMenu() {
    if (menu == nullptr) return;
    invalidRect(menu->getPopupRect());
    menu = nullptr;
}
