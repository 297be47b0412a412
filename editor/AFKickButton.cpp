#include "editor/AFKickButton.h"

#include "editor/AFBitmap.h"

AFKickButton::AFKickButton(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face)
    : AFControl(size, listener, tag, face) {}

bool AFKickButton::onMouseDown(const AFMouseEvent& event) {
    if (!enabled || !size.contains(event.x, event.y) || event.button != AFMouseEvent::kLeft) return false;
    value = 1.0f;
    invalid();
    return true;
}

void AFKickButton::onMouseUp(const AFMouseEvent& event) {
    if (value == 0.0f) return;
    value = 0.0f;
    invalid();
    if (size.contains(event.x, event.y)) {
        value = 1.0f;
        valueChanged();
        value = 0.0f;
    }
}

void AFKickButton::setEnabled(bool on) {
    if (enabled == on) return;
    enabled = on;
    invalid();
}

void AFKickButton::draw(cairo_t* cr) {
    if (getBackground() == nullptr) return;
    cairo_save(cr);
    // Pressed sinks by a pixel; disabled fades.
    const double shift = value > 0.5f ? 1.0 : 0.0;
    cairo_push_group(cr);
    getBackground()->draw(cr, size.left, size.top + shift, size.width(), size.height());
    cairo_pop_group_to_source(cr);
    cairo_paint_with_alpha(cr, enabled ? 1.0 : 0.35);
    cairo_restore(cr);
}
