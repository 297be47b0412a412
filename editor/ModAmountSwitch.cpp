#include "editor/ModAmountSwitch.h"

#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"

#include <algorithm>
#include <cmath>

ModAmountSwitch::ModAmountSwitch(const AFRect& size, AFControlListener* listener)
    : AFControl(size, listener, kTag) {}

AFRect ModAmountSwitch::buttonRect(int target) const noexcept {
    const double width = size.width() / kTargets;
    return AFRect::ofSize(size.left + target * width, size.top, width, size.height()).inset(2.0, 0.0);
}

int ModAmountSwitch::targetAt(double x) const noexcept {
    return std::clamp(static_cast<int>(std::floor((x - size.left) / (size.width() / kTargets))), 0,
                      kTargets - 1);
}

void ModAmountSwitch::setName(int target, const std::string& name) {
    if (target < 0 || target >= kTargets || names[static_cast<std::size_t>(target)] == name) return;
    names[static_cast<std::size_t>(target)] = name;
    if (AFFrame* frame = getFrame()) frame->invalidRect(buttonRect(target));
}

void ModAmountSwitch::setReached(int target, bool on) {
    if (target < 0 || target >= kTargets || reached[static_cast<std::size_t>(target)] == on) return;
    reached[static_cast<std::size_t>(target)] = on;
    if (AFFrame* frame = getFrame()) frame->invalidRect(buttonRect(target));
}

bool ModAmountSwitch::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    const int target = targetAt(event.x);
    if (target == getTarget()) return true;
    setValue(static_cast<float>(target));
    valueChanged();
    return true;
}

void ModAmountSwitch::draw(cairo_t* cr) {
    cairo_save(cr);
    for (int i = 0; i < kTargets; ++i) {
        const AFRect box = buttonRect(i);
        const bool chosen = i == getTarget();
        AFTextPainter::roundedRect(cr, box, 4.0);
        AFTextPainter::setColour(cr, chosen ? 0x3D6FB6 : 0x252A34);
        cairo_fill(cr);
        const std::string& name = names[static_cast<std::size_t>(i)];
        AFTextPainter::draw(cr, name.empty() ? "-" : name.c_str(), box.inset(4.0, 0.0), 11.0,
                            chosen ? AFLayout::kText : AFLayout::kDimText, AFTextPainter::kCenter, chosen);
        if (reached[static_cast<std::size_t>(i)]) {
            AFTextPainter::setColour(cr, AFLayout::kAccent);
            cairo_arc(cr, box.right - 6.0, box.top + 6.0, 2.5, 0.0, 6.283185307179586);
            cairo_fill(cr);
        }
    }
    cairo_restore(cr);
}
