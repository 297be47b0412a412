#include "editor/AFMenuHelper.h"

#include "editor/AFFrame.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFTextPainter.h"

#include <algorithm>

AFMenuHelper::AFMenuHelper(AFOptionMenu& menu) : AFControl(AFRect{}, nullptr, -1), menu(menu) {}

void AFMenuHelper::layout(double x, double y, const AFRect& bounds) {
    const int maxRows = std::max(1, static_cast<int>((bounds.height() - 8.0) / kRowHeight));
    const int count = std::max(1, menu.getNbEntries());
    const int columns = (count + maxRows - 1) / maxRows;
    rowsPerColumn = (count + columns - 1) / columns;
    const double width = columns * kColumnWidth + 4.0;
    const double height = rowsPerColumn * kRowHeight + 4.0;
    const double left = std::clamp(x, bounds.left, std::max(bounds.left, bounds.right - width));
    const double top = std::clamp(y, bounds.top, std::max(bounds.top, bounds.bottom - height));
    size = AFRect::ofSize(left, top, width, height);
    hover = -1;
}

int AFMenuHelper::entryAt(double x, double y) const {
    if (!size.contains(x, y)) return -1;
    const int column = static_cast<int>((x - size.left - 2.0) / kColumnWidth);
    const int row = static_cast<int>((y - size.top - 2.0) / kRowHeight);
    if (row < 0 || row >= rowsPerColumn || column < 0) return -1;
    const int index = column * rowsPerColumn + row;
    return index < menu.getNbEntries() ? index : -1;
}

bool AFMenuHelper::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    const int index = entryAt(event.x, event.y);
    if (index < 0 || (menu.getEntryFlags(index) & (AFOptionMenu::kDisabled | AFOptionMenu::kTitle)))
        return true;
    if (AFFrame* frame = menu.getFrame()) frame->closeMenu();
    menu.choose(index);
    return true;
}

void AFMenuHelper::onMouseMoved(const AFMouseEvent& event) {
    const int index = entryAt(event.x, event.y);
    if (index == hover) return;
    hover = index;
    if (AFFrame* frame = menu.getFrame()) frame->invalidRect(size);
}

void AFMenuHelper::draw(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::setColour(cr, 0x000000, 0.45);
    cairo_rectangle(cr, size.left + 3.0, size.top + 3.0, size.width(), size.height());
    cairo_fill(cr);
    AFTextPainter::setColour(cr, 0x1B1F27);
    cairo_rectangle(cr, size.left, size.top, size.width(), size.height());
    cairo_fill_preserve(cr);
    AFTextPainter::setColour(cr, 0x7A8496);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    const int current = menu.getCurrent();
    for (int i = 0; i < menu.getNbEntries(); ++i) {
        const int column = i / rowsPerColumn;
        const int row = i % rowsPerColumn;
        const AFRect box = AFRect::ofSize(size.left + 2.0 + column * kColumnWidth,
                                          size.top + 2.0 + row * kRowHeight, kColumnWidth, kRowHeight);
        const int flags = menu.getEntryFlags(i);
        const bool pickable = !(flags & (AFOptionMenu::kDisabled | AFOptionMenu::kTitle));
        if (i == hover && pickable) {
            AFTextPainter::setColour(cr, 0x3D6FB6);
            cairo_rectangle(cr, box.left, box.top, box.width(), box.height());
            cairo_fill(cr);
        }
        uint32_t colour = 0xE8ECF2;
        if (flags & AFOptionMenu::kTitle) colour = 0xF2C14E;
        if (flags & AFOptionMenu::kDisabled) colour = 0x6C7280;
        const bool mark =
            (flags & AFOptionMenu::kChecked) || (i == current && menu.getCallerTag() == menu.getTag());
        if (mark)
            AFTextPainter::draw(cr, "\xE2\x97\x8F", AFRect{box.left, box.top, box.left + 14.0, box.bottom},
                                8.0, 0xF2C14E);
        AFTextPainter::draw(cr, menu.getEntry(i).c_str(),
                            AFRect{box.left + 14.0, box.top, box.right - 2.0, box.bottom}, 11.0, colour,
                            AFTextPainter::kLeft, (flags & AFOptionMenu::kTitle) != 0);
    }
    cairo_restore(cr);
}
