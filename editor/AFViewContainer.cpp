#include "editor/AFViewContainer.h"

AFViewContainer::AFViewContainer(const AFRect& size, AFControlListener* listener, int tag,
                                 const AFBitmap* background)
    : AFControl(size, listener, tag, background) {}

void AFViewContainer::removeAll() {
    invalid();
    children.clear();
}

void AFViewContainer::drawBackground(cairo_t* cr) {
    AFControl::draw(cr);
}

void AFViewContainer::draw(cairo_t* cr) {
    drawBackground(cr);
    for (const auto& child : children) {
        if (!child->isVisible() || !child->getViewSize().intersects(drawClip)) continue;
        if (auto* container = dynamic_cast<AFViewContainer*>(child.get())) container->setDrawClip(drawClip);
        child->draw(cr);
    }
}

AFView* AFViewContainer::mouseDownTarget(const AFMouseEvent& event) {
    for (auto it = children.rbegin(); it != children.rend(); ++it) {
        AFView* child = it->get();
        if (!child->isVisible() || !child->getViewSize().contains(event.x, event.y)) continue;
        if (auto* container = dynamic_cast<AFViewContainer*>(child)) {
            if (AFView* inner = container->mouseDownTarget(event)) return inner;
        } else if (child->onMouseDown(event)) {
            return child;
        }
    }
    return onMouseDown(event) ? this : nullptr;
}

bool AFViewContainer::onMouseDown(const AFMouseEvent&) {
    return false;
}

bool AFViewContainer::onKeyDown(const AFKeyEvent& event) {
    for (auto it = children.rbegin(); it != children.rend(); ++it)
        if ((*it)->isVisible() && (*it)->onKeyDown(event)) return true;
    return false;
}

void AFViewContainer::onIdle() {
    // A hidden view (a page not shown) follows nothing; it catches up when shown again.
    for (const auto& child : children)
        if (child->isVisible()) child->onIdle();
}
