#include "editor/AFOnOffButton.h"

#include "editor/AFBitmap.h"

AFOnOffButton::AFOnOffButton(const AFRect& size, AFControlListener* listener, int tag,
                             const AFBitmap* offFace, const AFBitmap* onFace, float* valuePointer)
    : AFControl(size, listener, tag, offFace), onFace(onFace), valuePointer(valuePointer) {}

bool AFOnOffButton::onMouseDown(const AFMouseEvent& event) {
    if (valuePointer == nullptr || !size.contains(event.x, event.y) || event.button != AFMouseEvent::kLeft)
        return false;
    beginEdit();
    *valuePointer = *valuePointer > 0.5f ? 0.0f : 1.0f;
    invalid();
    valueChanged();
    endEdit();
    return true;
}

void AFOnOffButton::draw(cairo_t* cr) {
    const AFBitmap* face = getValue() > 0.5f ? onFace : getBackground();
    if (face != nullptr) face->draw(cr, size.left, size.top, size.width(), size.height());
}
