#pragma once

#include "editor/AFView.h"

#include <cstdint>
#include <string>

// A line of text that redraws only when it changes: parameter names and their display texts, the preset
// name, messages. GUI thread.
class A2ValueDisplay : public AFView {
public:
    A2ValueDisplay(const AFRect& size, double fontSize, uint32_t colour, int align, bool bold = false);

    void setText(const std::string& newText);
    void setColour(uint32_t rgb);
    void draw(cairo_t* cr) override;

private:
    std::string text;
    double fontSize;
    uint32_t colour;
    int align;
    bool bold;
};
