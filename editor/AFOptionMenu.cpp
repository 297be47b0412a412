#include "editor/AFOptionMenu.h"

#include "editor/AFBitmap.h"
#include "editor/AFFrame.h"
#include "editor/AFOptionMenuExtraCallBack.h"
#include "editor/AFTextPainter.h"

#include <algorithm>
#include <cmath>

AFOptionMenu::AFOptionMenu(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face)
    : AFControl(size, listener, tag, face), callerTag(tag), list(*this) {}

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
    list.layout(x, y, frame->getViewSize());
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
