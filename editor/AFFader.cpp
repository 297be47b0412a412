#include "editor/AFFader.h"

#include "editor/AFBitmap.h"
#include "editor/AFOptionMenu.h"

#include <algorithm>

AFFader::AFFader(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* track,
                 const AFBitmap* handle, float* valuePointer, float defaultValue)
    : AFControl(size, listener, tag, track), valuePointer(valuePointer), handle(handle),
      defaultValue(defaultValue) {}

double AFFader::handleWidth() const noexcept {
    return handle != nullptr ? handle->getWidth() : 0.0;
}

double AFFader::handleLeft(float v) const noexcept {
    return size.left + (size.width() - handleWidth()) * v;
}

void AFFader::moveTo(float v) {
    v = std::clamp(v, 0.0f, 1.0f);
    if (v == *valuePointer) return;
    *valuePointer = v;
    invalid();
    valueChanged();
}

bool AFFader::onMouseDown(const AFMouseEvent& event) {
    if (valuePointer == nullptr || !size.contains(event.x, event.y)) return false;
    if ((event.button == AFMouseEvent::kRight || event.command) && menu != nullptr) {
        menu->setViewSize(AFRect::ofSize(event.x, event.y, 1.0, 1.0));
        menu->setVisible(true);
        menu->popup(event.x, event.y, getTag());
        return true;
    }
    if (event.button != AFMouseEvent::kLeft) return false;
    beginEdit();
    if (event.doubleClick) {
        moveTo(defaultValue);
        endEdit();
        return true;
    }
    const double width = handleWidth();
    const double left = handleLeft(*valuePointer);
    if (event.x < left || event.x >= left + width) {
        const double travel = std::max(1.0, size.width() - width);
        moveTo(static_cast<float>((event.x - size.left - width * 0.5) / travel));
    }
    dragStartX = event.x;
    dragStartValue = *valuePointer;
    dragging = true;
    return true;
}

void AFFader::onMouseMoved(const AFMouseEvent& event) {
    if (!dragging) return;
    const double travel = std::max(1.0, size.width() - handleWidth());
    const double scale = event.shift ? 0.1 : 1.0;
    moveTo(static_cast<float>(dragStartValue + (event.x - dragStartX) / travel * scale));
}

void AFFader::onMouseUp(const AFMouseEvent&) {
    if (!dragging) return;
    dragging = false;
    endEdit();
}

void AFFader::draw(cairo_t* cr) {
    AFControl::draw(cr);
    if (handle == nullptr || valuePointer == nullptr) return;
    handle->draw(cr, handleLeft(*valuePointer), size.top, handle->getWidth(), size.height());
}
