#include "editor/AFFrame.h"

#include "editor/AFOptionMenu.h"

AFFrame::AFFrame(double width, double height, const AFBitmap* background)
    : AFViewContainer(AFRect::ofSize(0.0, 0.0, width, height), nullptr, -1, background) {
    dirty.push_back(size);
}

bool AFFrame::mouseDown(const AFMouseEvent& event) {
    if (menu != nullptr) {
        // A press outside the open menu only closes it.
        AFOptionMenu* open = menu;
        if (!open->getList().onMouseDown(event)) closeMenu();
        return true;
    }
    mouseTarget = mouseDownTarget(event);
    return mouseTarget != nullptr;
}

void AFFrame::mouseMoved(const AFMouseEvent& event) {
    if (menu != nullptr) {
        menu->getList().onMouseMoved(event);
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
    std::vector<AFRect> areas;
    areas.swap(dirty);
    if (all) areas.assign(1, size);
    const AFRect popup = menu != nullptr ? menu->getPopupRect() : AFRect{};
    for (const AFRect& area : areas) {
        cairo_save(cr);
        cairo_rectangle(cr, area.left, area.top, area.width(), area.height());
        cairo_clip(cr);
        setDrawClip(area);
        draw(cr);
        if (menu != nullptr && popup.intersects(area)) menu->getList().draw(cr);
        cairo_restore(cr);
    }
}

void AFFrame::invalidRect(const AFRect& rect) {
    if (rect.empty()) return;
    // A rectangle that touches one already waiting joins it; a long list becomes one.
    for (AFRect& waiting : dirty)
        if (waiting.intersects(rect)) {
            waiting = waiting.united(rect);
            return;
        }
    if (dirty.size() >= kMaxDirty) {
        AFRect all = rect;
        for (const AFRect& waiting : dirty)
            all = all.united(waiting);
        dirty.assign(1, all);
        return;
    }
    dirty.push_back(rect);
}

AFRect AFFrame::getDirtyRect() const noexcept {
    AFRect all;
    for (const AFRect& waiting : dirty)
        all = all.united(waiting);
    return all;
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
