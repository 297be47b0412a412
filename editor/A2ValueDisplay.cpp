#include "editor/A2ValueDisplay.h"

#include "editor/AFTextPainter.h"

A2ValueDisplay::A2ValueDisplay(const AFRect& size, double fontSize, uint32_t colour, int align, bool bold)
    : AFView(size), fontSize(fontSize), colour(colour), align(align), bold(bold) {}

void A2ValueDisplay::setText(const std::string& newText) {
    if (newText == text) return;
    text = newText;
    invalid();
}

void A2ValueDisplay::setColour(uint32_t rgb) {
    if (rgb == colour) return;
    colour = rgb;
    invalid();
}

void A2ValueDisplay::draw(cairo_t* cr) {
    AFTextPainter::draw(cr, text.c_str(), size, fontSize, colour, static_cast<AFTextPainter::Align>(align),
                        bold);
}
