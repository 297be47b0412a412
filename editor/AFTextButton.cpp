#include "editor/AFTextButton.h"

#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"

#include <utility>

AFTextButton::AFTextButton(const AFRect& size, AFControlListener* listener, int tag, std::string text,
                           Kind kind)
    : AFControl(size, listener, tag), text(std::move(text)), kind(kind), lit(AFLayout::kAccent) {}

bool AFTextButton::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    if (kind == kToggle) {
        value = value > 0.5f ? 0.0f : 1.0f;
        invalid();
        valueChanged();
        return true;
    }
    value = 1.0f;
    invalid();
    return true;
}

void AFTextButton::onMouseUp(const AFMouseEvent& event) {
    if (kind == kToggle) return;
    value = 0.0f;
    invalid();
    if (size.contains(event.x, event.y)) valueChanged();
}

void AFTextButton::setText(const std::string& newText) {
    if (newText == text) return;
    text = newText;
    invalid();
}

void AFTextButton::draw(cairo_t* cr) {
    const bool on = value > 0.5f;
    const bool litToggle = kind == kToggle && on;
    AFTextPainter::roundedRect(cr, size.inset(0.5, 0.5), 4.0);
    AFTextPainter::setColour(cr, litToggle ? lit : (on ? 0x3A4150 : 0x262B36));
    cairo_fill_preserve(cr);
    AFTextPainter::setColour(cr, 0x5A6478);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    const uint32_t colour = litToggle ? AFLayout::kStage : AFLayout::kText;
    const std::string& word = kind == kToggle && !on && !offText.empty() ? offText : text;
    AFTextPainter::draw(cr, word.c_str(), size.inset(4.0, 0.0), 11.0, colour, AFTextPainter::kCenter, true);
}
