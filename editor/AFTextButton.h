#pragma once

#include "editor/AFControl.h"

#include <string>

// A button drawn with its word: a push button tells its listener on a release inside it (value 1 while held),
// a toggle flips its value on the press and tells the listener at once. For the pages that carry no bitmaps.
// GUI thread.
class AFTextButton : public AFControl {
public:
    enum Kind : int { kPush, kToggle };

    AFTextButton(const AFRect& size, AFControlListener* listener, int tag, std::string text,
                 Kind kind = kPush);

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;
    void setText(const std::string& newText);
    // A toggle's word while it is off; without one it shows its word in both states.
    void setOffText(const std::string& word) { offText = word; }
    // The colour of a lit toggle.
    void setLitColour(uint32_t rgb) noexcept { lit = rgb; }

private:
    std::string text;
    std::string offText;
    Kind kind;
    uint32_t lit;
};
