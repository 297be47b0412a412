#pragma once

#include "editor/AFRect.h"

#include <cairo.h>

#include <cstdint>

// Text and colour helpers for the views: one sans face, sizes in logical units. GUI thread.
class AFTextPainter {
public:
    enum Align : int { kLeft, kCenter, kRight };

    static void setColour(cairo_t* cr, uint32_t rgb, double alpha = 1.0);
    // Draws `text` vertically centred in `box`, shortened with an ellipsis when it does not fit.
    static void draw(cairo_t* cr, const char* text, const AFRect& box, double fontSize, uint32_t rgb,
                     Align align = kCenter, bool bold = false);
    static void roundedRect(cairo_t* cr, const AFRect& box, double radius);
    // `box` filled flat with one colour.
    static void fill(cairo_t* cr, const AFRect& box, uint32_t rgb);
    // The part of the face `cr` may paint now, so that a view can skip what lies outside it.
    static AFRect clipRect(cairo_t* cr);
    // The dark sunken well with a thin rim that curves and bars are drawn in.
    static void well(cairo_t* cr, const AFRect& box);
};
