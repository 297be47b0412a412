#include "editor/AFOptionMenu.h"

#include "editor/AFBitmap.h"
#include "editor/AFFrame.h"
#include "editor/AFOptionMenuExtraCallBack.h"
#include "editor/AFTextPainter.h"

#include <algorithm>
#include <cmath>

AFOptionMenu::AFOptionMenu(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face)
    : AFControl(size, listener, tag, face), callerTag(tag) {}

int AFOptionMenu::addEntry(const std::string& text, int position, int flags) {
    if (position < 0 || position >= getNbEntries()) {
        entries.push_back({text, flags});
        return getNbEntries() - 1;
    }
    entries.insert(entries.begin() + position, {text, flags});
    return position;
}

void AFOptionMenu::setEntry(int index, const std::string& text) {
    if (index >= 0 && index < getNbEntries()) entries[static_cast<std::size_t>(index)].text = text;
    invalid();
}

void AFOptionMenu::removeAllEntry() {
    entries.clear();
    invalid();
}

const std::string& AFOptionMenu::getEntry(int index) const {
    static const std::string none;
    return index >= 0 && index < getNbEntries() ? entries[static_cast<std::size_t>(index)].text : none;
}

int AFOptionMenu::getEntryFlags(int index) const {
    return index >= 0 && index < getNbEntries() ? entries[static_cast<std::size_t>(index)].flags : kDisabled;
}

void AFOptionMenu::setCurrent(int index) {
    setValue(static_cast<float>(index));
}

void AFOptionMenu::popup(double x, double y, int tag) {
    callerTag = tag;
    if (extra != nullptr) extra->menuWillOpen(this, tag);
    AFFrame* frame = getFrame();
    if (frame == nullptr || entries.empty()) return;
    layoutPopup(x, y);
    hover = -1;
    frame->openMenu(this);
}

void AFOptionMenu::choose(int index) {
    if (index < 0 || index >= getNbEntries()) return;
    if (getEntryFlags(index) & (kDisabled | kTitle)) return;
    value = static_cast<float>(index);
    invalid();
    valueChanged();
}

bool AFOptionMenu::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    popup(size.left, size.bottom, getTag());
    return true;
}

void AFOptionMenu::layoutPopup(double x, double y) {
    const AFFrame* frame = getFrame();
    const AFRect bounds = frame->getViewSize();
    const int maxRows = std::max(1, static_cast<int>((bounds.height() - 8.0) / kRowHeight));
    const int count = getNbEntries();
    const int columns = (count + maxRows - 1) / maxRows;
    rowsPerColumn = (count + columns - 1) / columns;
    const double width = columns * kColumnWidth + 4.0;
    const double height = rowsPerColumn * kRowHeight + 4.0;
    const double left = std::clamp(x, bounds.left, std::max(bounds.left, bounds.right - width));
    const double top = std::clamp(y, bounds.top, std::max(bounds.top, bounds.bottom - height));
    popupRect = AFRect::ofSize(left, top, width, height);
}

int AFOptionMenu::entryAt(double x, double y) const {
    if (!popupRect.contains(x, y)) return -1;
    const int column = static_cast<int>((x - popupRect.left - 2.0) / kColumnWidth);
    const int row = static_cast<int>((y - popupRect.top - 2.0) / kRowHeight);
    if (row < 0 || row >= rowsPerColumn || column < 0) return -1;
    const int index = column * rowsPerColumn + row;
    return index < getNbEntries() ? index : -1;
}

bool AFOptionMenu::onPopupMouseDown(const AFMouseEvent& event) {
    if (!popupRect.contains(event.x, event.y)) return false;
    const int index = entryAt(event.x, event.y);
    if (index < 0 || (getEntryFlags(index) & (kDisabled | kTitle))) return true;
    if (AFFrame* frame = getFrame()) frame->closeMenu();
    choose(index);
    return true;
}

void AFOptionMenu::onPopupMouseMoved(const AFMouseEvent& event) {
    const int index = entryAt(event.x, event.y);
    if (index == hover) return;
    hover = index;
    if (AFFrame* frame = getFrame()) frame->invalidRect(popupRect);
}

void AFOptionMenu::draw(cairo_t* cr) {
    // A menu that only pops up (the Learn menu, moved to the pointer) has no face.
    if (size.width() < 2.0 || size.height() < 2.0) return;
    if (getBackground() != nullptr) {
        AFControl::draw(cr);
        return;
    }
    AFTextPainter::roundedRect(cr, size.inset(0.5, 0.5), 3.0);
    AFTextPainter::setColour(cr, faceColour);
    cairo_fill_preserve(cr);
    AFTextPainter::setColour(cr, 0x59606E);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    const std::string& text = label.empty() ? getEntry(getCurrent()) : label;
    const AFRect box{size.left + 4.0, size.top, size.right - 12.0, size.bottom};
    AFTextPainter::draw(cr, text.c_str(), box, std::min(11.0, size.height() - 5.0), 0xE8ECF2,
                        AFTextPainter::kLeft);
    // The drop mark.
    const double cx = size.right - 7.0;
    const double cy = size.top + size.height() * 0.5;
    cairo_move_to(cr, cx - 3.0, cy - 1.5);
    cairo_line_to(cr, cx + 3.0, cy - 1.5);
    cairo_line_to(cr, cx, cy + 2.0);
    cairo_close_path(cr);
    AFTextPainter::setColour(cr, 0xA8B0BE);
    cairo_fill(cr);
}

void AFOptionMenu::drawPopup(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::setColour(cr, 0x000000, 0.45);
    cairo_rectangle(cr, popupRect.left + 3.0, popupRect.top + 3.0, popupRect.width(), popupRect.height());
    cairo_fill(cr);
    AFTextPainter::setColour(cr, 0x1B1F27);
    cairo_rectangle(cr, popupRect.left, popupRect.top, popupRect.width(), popupRect.height());
    cairo_fill_preserve(cr);
    AFTextPainter::setColour(cr, 0x7A8496);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    const int current = getCurrent();
    for (int i = 0; i < getNbEntries(); ++i) {
        const int column = i / rowsPerColumn;
        const int row = i % rowsPerColumn;
        const AFRect box = AFRect::ofSize(popupRect.left + 2.0 + column * kColumnWidth,
                                          popupRect.top + 2.0 + row * kRowHeight, kColumnWidth, kRowHeight);
        const int flags = getEntryFlags(i);
        if (i == hover && !(flags & (kDisabled | kTitle))) {
            AFTextPainter::setColour(cr, 0x3D6FB6);
            cairo_rectangle(cr, box.left, box.top, box.width(), box.height());
            cairo_fill(cr);
        }
        uint32_t colour = 0xE8ECF2;
        if (flags & kTitle) colour = 0xF2C14E;
        if (flags & kDisabled) colour = 0x6C7280;
        const bool mark = (flags & kChecked) || (i == current && callerTag == getTag());
        if (mark)
            AFTextPainter::draw(cr, "\xE2\x97\x8F", AFRect{box.left, box.top, box.left + 14.0, box.bottom},
                                8.0, 0xF2C14E);
        AFTextPainter::draw(cr, entries[static_cast<std::size_t>(i)].text.c_str(),
                            AFRect{box.left + 14.0, box.top, box.right - 2.0, box.bottom}, 11.0, colour,
                            AFTextPainter::kLeft, (flags & kTitle) != 0);
    }
    cairo_restore(cr);
}
