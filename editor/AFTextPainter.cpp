#include "editor/AFTextPainter.h"

#include <string>

void AFTextPainter::setColour(cairo_t* cr, uint32_t rgb, double alpha) {
    cairo_set_source_rgba(cr, ((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0,
                          alpha);
}

void AFTextPainter::draw(cairo_t* cr, const char* text, const AFRect& box, double fontSize, uint32_t rgb,
                         Align align, bool bold) {
    if (text == nullptr || *text == '\0') return;
    cairo_save(cr);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, fontSize);
    std::string shown = text;
    cairo_text_extents_t extents;
    cairo_text_extents(cr, shown.c_str(), &extents);
    const double room = box.width() - 2.0;
    if (extents.x_advance > room) {
        while (!shown.empty()) {
            shown.pop_back();
            const std::string trial = shown + "\xE2\x80\xA6";
            cairo_text_extents(cr, trial.c_str(), &extents);
            if (extents.x_advance <= room) {
                shown = trial;
                break;
            }
        }
    }
    cairo_font_extents_t font;
    cairo_font_extents(cr, &font);
    double x = box.left + 1.0;
    if (align == kCenter) x = box.left + (box.width() - extents.x_advance) * 0.5;
    if (align == kRight) x = box.right - 1.0 - extents.x_advance;
    const double y = box.top + (box.height() + font.ascent - font.descent) * 0.5;
    setColour(cr, rgb);
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, shown.c_str());
    cairo_restore(cr);
}

void AFTextPainter::roundedRect(cairo_t* cr, const AFRect& box, double radius) {
    const double r = radius;
    cairo_new_sub_path(cr);
    cairo_arc(cr, box.right - r, box.top + r, r, -1.5707963, 0.0);
    cairo_arc(cr, box.right - r, box.bottom - r, r, 0.0, 1.5707963);
    cairo_arc(cr, box.left + r, box.bottom - r, r, 1.5707963, 3.1415927);
    cairo_arc(cr, box.left + r, box.top + r, r, 3.1415927, 4.712389);
    cairo_close_path(cr);
}

void AFTextPainter::fill(cairo_t* cr, const AFRect& box, uint32_t rgb) {
    setColour(cr, rgb);
    cairo_rectangle(cr, box.left, box.top, box.width(), box.height());
    cairo_fill(cr);
}

AFRect AFTextPainter::clipRect(cairo_t* cr) {
    double left = 0.0, top = 0.0, right = 0.0, bottom = 0.0;
    cairo_clip_extents(cr, &left, &top, &right, &bottom);
    return {left, top, right, bottom};
}

void AFTextPainter::well(cairo_t* cr, const AFRect& box) {
    roundedRect(cr, box, 4.0);
    setColour(cr, 0x0B0D12);
    cairo_fill_preserve(cr);
    setColour(cr, 0x3A404C);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
}
