#include "editor/A2ModulatableKnob.h"

#include "editor/AFBitmap.h"
#include "editor/AFFrame.h"
#include "editor/AFOptionMenu.h"

#include <algorithm>

A2ModulatableKnob::A2ModulatableKnob(const AFRect& size, AFControlListener* listener, int tag,
                                     const AFBitmap* face, float* valuePointer, AFOptionMenu* menu)
    : AFControl(size, listener, tag, face), valuePointer(valuePointer), menu(menu) {}

bool A2ModulatableKnob::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y) || valuePointer == nullptr) return false;
    if ((event.button == AFMouseEvent::kRight || event.command) && menu != nullptr) {
        menu->setViewSize(AFRect::ofSize(event.x, event.y, 1.0, 1.0));
        menu->setVisible(true);
        menu->popup(event.x, event.y, getTag());
        return true;
    }
    if (event.doubleClick) {
        beginEdit();
        *valuePointer = defaultValue;
        invalid();
        valueChanged();
        endEdit();
        return true;
    }
    dragStartX = event.x;
    dragStartY = event.y;
    dragStartValue = *valuePointer;
    dragging = true;
    beginEdit();
    return true;
}

void A2ModulatableKnob::onMouseMoved(const AFMouseEvent& event) {
    if (!dragging || valuePointer == nullptr) return;
    const double range = kDragRange * (event.shift ? kFineFactor : 1.0);
    // A change of fineness mid-drag starts the count again from here, so the value does not jump.
    const double delta = (dragStartY - event.y) / range * rangeScale;
    const float next = std::clamp(static_cast<float>(dragStartValue + delta), 0.0f, 1.0f);
    if (next == *valuePointer) return;
    *valuePointer = next;
    invalid();
    valueChanged();
}

void A2ModulatableKnob::onMouseUp(const AFMouseEvent&) {
    if (!dragging) return;
    dragging = false;
    endEdit();
}

int A2ModulatableKnob::frameIndex(float v) const noexcept {
    const int index = static_cast<int>(static_cast<float>(frameCount) * v);
    return std::clamp(index, 0, static_cast<int>(frameCount) - 1);
}

void A2ModulatableKnob::setOverlay(int which, const AFBitmap* bitmap, const AFRect& rect) {
    if (which < 0 || which >= kOverlays) return;
    overlays[static_cast<std::size_t>(which)].bitmap = bitmap;
    overlays[static_cast<std::size_t>(which)].rect = rect;
}

void A2ModulatableKnob::setOverlayPosition(int which, float position) {
    if (which < 0 || which >= kOverlays) return;
    Overlay& overlay = overlays[static_cast<std::size_t>(which)];
    const bool wasShown = overlay.position >= 0.0f;
    const bool shown = position >= 0.0f;
    if (wasShown == shown && (!shown || frameIndex(position) == frameIndex(overlay.position))) {
        overlay.position = position;
        return;
    }
    overlay.position = position;
    if (AFFrame* frame = getFrame()) frame->invalidRect(overlay.rect);
}

void A2ModulatableKnob::draw(cairo_t* cr) {
    if (valuePointer == nullptr) return;
    if (const AFBitmap* face = getBackground()) {
        const double offset = frameIndex(*valuePointer) * size.height();
        face->draw(cr, size.left, size.top, size.width(), size.height(), 0.0, offset);
    }
    for (const Overlay& overlay : overlays) {
        if (overlay.bitmap == nullptr || overlay.position < 0.0f) continue;
        const double offset = frameIndex(overlay.position) * overlay.rect.height();
        overlay.bitmap->draw(cr, overlay.rect.left, overlay.rect.top, overlay.rect.width(),
                             overlay.rect.height(), 0.0, offset);
    }
}
