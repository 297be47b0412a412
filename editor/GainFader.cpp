#include "editor/GainFader.h"

#include "editor/AFTextPainter.h"

#include <algorithm>
#include <cmath>

GainFader::GainFader(const AFRect& size, AFControlListener* listener, int tag, float* valuePointer,
                     AFOptionMenu* menu, uint32_t colour)
    : AFFader(size, listener, tag, nullptr, nullptr, valuePointer, kUnity), colour(colour) {
    setMenu(menu);
}

void GainFader::draw(cairo_t* cr) {
    if (valuePointer == nullptr) return;
    const double half = kHandleWidth * 0.5;
    const double mid = size.top + size.height() * 0.5;
    const double left = size.left + half;
    const double right = size.right - half;
    const double unity = left + (right - left) * kUnity;
    const double at = left + (right - left) * *valuePointer;
    cairo_save(cr);
    AFTextPainter::roundedRect(cr, AFRect{left - 2.0, mid - 2.5, right + 2.0, mid + 2.5}, 2.5);
    AFTextPainter::setColour(cr, 0x0A0B0F);
    cairo_fill(cr);
    // The part between unity and the handle: how far the slot is pushed or pulled.
    AFTextPainter::setColour(cr, colour);
    cairo_rectangle(cr, std::min(unity, at), mid - 1.5, std::abs(at - unity), 3.0);
    cairo_fill(cr);
    AFTextPainter::setColour(cr, 0x8A93A3);
    cairo_set_line_width(cr, 1.0);
    cairo_move_to(cr, unity, size.top + 1.0);
    cairo_line_to(cr, unity, size.bottom - 1.0);
    cairo_stroke(cr);
    AFTextPainter::roundedRect(cr, AFRect{at - half, size.top + 1.0, at + half, size.bottom - 1.0}, 2.0);
    AFTextPainter::setColour(cr, 0xD8DDE6);
    cairo_fill_preserve(cr);
    AFTextPainter::setColour(cr, 0x2A2F3A);
    cairo_stroke(cr);
    cairo_restore(cr);
}
