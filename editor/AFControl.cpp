#include "editor/AFControl.h"

#include "editor/AFBitmap.h"
#include "editor/AFControlListener.h"

AFControl::AFControl(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* background)
    : AFView(size), listener(listener), tag(tag), background(background) {}

void AFControl::setValue(float newValue) {
    if (newValue == value) return;
    value = newValue;
    invalid();
}

void AFControl::valueChanged() {
    if (listener != nullptr) listener->valueChanged(this);
}

void AFControl::beginEdit() {
    if (listener != nullptr) listener->beginEdit(tag);
}

void AFControl::endEdit() {
    if (listener != nullptr) listener->endEdit(tag);
}

void AFControl::draw(cairo_t* cr) {
    if (background != nullptr) background->draw(cr, size.left, size.top, size.width(), size.height());
}
