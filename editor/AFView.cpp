#include "editor/AFView.h"

#include "editor/AFFrame.h"

AFView::AFView(const AFRect& size) : size(size) {}

AFView::~AFView() = default;

void AFView::draw(cairo_t*) {}

bool AFView::onMouseDown(const AFMouseEvent&) {
    return false;
}

void AFView::onMouseMoved(const AFMouseEvent&) {}

void AFView::onMouseUp(const AFMouseEvent&) {}

bool AFView::onKeyDown(const AFKeyEvent&) {
    return false;
}

void AFView::setViewSize(const AFRect& rect) {
    invalid();
    size = rect;
    invalid();
}

void AFView::setVisible(bool on) {
    if (visible == on) return;
    visible = on;
    if (AFFrame* frame = getFrame()) frame->invalidRect(size);
}

void AFView::invalid() {
    if (!visible) return;
    if (AFFrame* frame = getFrame()) frame->invalidRect(size);
}

AFFrame* AFView::getFrame() const noexcept {
    const AFView* view = this;
    while (view->parent != nullptr)
        view = view->parent;
    return dynamic_cast<AFFrame*>(const_cast<AFView*>(view));
}
