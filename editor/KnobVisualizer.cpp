#include "editor/KnobVisualizer.h"

#include "editor/AFBitmap.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"

#include <string>

KnobVisualizer::KnobVisualizer(const AFRect& size, const AFBitmap* const* lampBitmaps) : AFView(size) {
    for (int i = 0; i < 4; ++i)
        lamps[i] = lampBitmaps[i];
}

void KnobVisualizer::setState(int newState, const char* newGrid) {
    if (newState == state && newGrid == grid) return;
    state = newState;
    grid = newGrid;
    invalid();
}

void KnobVisualizer::draw(cairo_t* cr) {
    const double lamp = AFLayout::kLamp;
    if (const AFBitmap* bitmap = lamps[state & 3])
        bitmap->draw(cr, size.left, size.top + (size.height() - lamp) * 0.5, lamp, lamp);
    static constexpr const char* words[4] = {"OFF", "WAIT", "FADE", "RUN"};
    static constexpr uint32_t colours[4] = {0x6C7280, 0xF5A524, 0xE8D44D, 0x46E07A};
    std::string text = words[state & 3];
    if (state == kPending && grid[0] != '\0') text += std::string(" ") + grid;
    AFTextPainter::draw(cr, text.c_str(), AFRect{size.left + lamp + 4.0, size.top, size.right, size.bottom},
                        11.0, colours[state & 3], AFTextPainter::kLeft, true);
}
