#include "editor/AFEditorSnapshot.h"

#include "editor/AFFrame.h"
#include "editor/AFUniClientEditor.h"

#include <cairo.h>

#include <cmath>

bool AFEditorSnapshot::write(AFUniClientEditor& editor, double scale, const std::string& path) {
    AFFrame* frame = editor.getFrame();
    if (frame == nullptr || !(scale > 0.0) || scale > 4.0) return false;
    const AFRect& size = frame->getViewSize();
    const int width = static_cast<int>(std::lround(size.width() * scale));
    const int height = static_cast<int>(std::lround(size.height() * scale));
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* cr = cairo_create(surface);
    cairo_scale(cr, scale, scale);
    frame->paint(cr, true);
    cairo_destroy(cr);
    const bool written = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    return written;
}
