#include "editor/KeyFrameHandlerView.h"

#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "engine/AFCommandRememberDictatorChunk.h"
#include "engine/AFUniClient.h"

#include <algorithm>
#include <cmath>
#include <memory>

KeyFrameHandlerView::KeyFrameHandlerView(const AFRect& size, AFControlListener* listener, int tag,
                                         AFUniClient& client, int row)
    : AFControl(size, listener, tag), client(client), row(row), cells(&client.getDictator().node(row, 0)) {}

int KeyFrameHandlerView::cellAt(double y) const noexcept {
    return kCells - 1 -
           (static_cast<int>(std::floor(y)) - static_cast<int>(std::floor(size.top))) / kCellHeight;
}

double KeyFrameHandlerView::positionY(float dictator) const noexcept {
    const float travel = std::clamp(dictator, 0.0f, 1.0f) * 15.999f;
    return size.top + (kCells - 0.5 - static_cast<double>(travel)) * kCellHeight;
}

void KeyFrameHandlerView::pushCommand() {
    client.getHistory().add(std::make_unique<AFCommandRememberDictatorChunk>(client));
}

void KeyFrameHandlerView::reevaluate() {
    client.getDictator().rebuild(row);
    client.getDictator().setChanged(row, true);
    value = cells[activeCell].value;
    invalid();
    valueChanged();
}

bool KeyFrameHandlerView::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    const int cell = cellAt(event.y);
    if (cell < 0 || cell >= kCells) return false;
    AFDictator::Node& node = cells[cell];
    if (event.doubleClick || event.button == AFMouseEvent::kRight) {
        if (!node.set) return true;
        pushCommand();
        activeCell = cell;
        node.value = 0.0f;
        node.set = false;
        reevaluate();
        return true;
    }
    pushCommand();
    if (!node.set) {
        node.set = true;
        node.value = 0.5f;
    }
    activeCell = cell;
    fineDrag = !event.shift;
    pressY = event.y;
    dragging = true;
    reevaluate();
    return true;
}

void KeyFrameHandlerView::onMouseMoved(const AFMouseEvent& event) {
    if (!dragging) return;
    AFDictator::Node& node = cells[activeCell];
    const float step = fineDrag ? kFineStep : kCoarseStep;
    const float moved = std::clamp(node.value + static_cast<float>(pressY - event.y) * step, 0.0f, 1.0f);
    pressY = event.y;
    if (moved == node.value || !node.set) return;
    node.value = moved;
    reevaluate();
}

void KeyFrameHandlerView::onMouseUp(const AFMouseEvent&) {
    dragging = false;
}

void KeyFrameHandlerView::draw(cairo_t* cr) {
    const uint32_t colour = AFLayout::slotColour(row);
    const double barLeft = size.left + 4.0;
    const double barWidth = size.width() - 8.0;
    const auto cellTop = [this](int cell) { return size.top + (kCells - 1 - cell) * kCellHeight; };

    AFTextPainter::setColour(cr, AFLayout::kPanel);
    cairo_rectangle(cr, size.left, size.top, size.width(), size.height());
    cairo_fill(cr);
    bool ended = true;
    for (int i = 0; i < kCells; ++i) {
        const AFDictator::Node& node = cells[i];
        const double top = cellTop(i);
        AFTextPainter::setColour(cr, i % 2 == 0 ? 0x20242E : 0x1A1D25);
        cairo_rectangle(cr, size.left + 1.0, top + 1.0, size.width() - 2.0, kCellHeight - 2.0);
        cairo_fill(cr);
        // A node carries a value from the first key frame up to the last one; the rest of the row plays 0.
        if (node.set) ended = false;
        if (ended) continue;
        if (node.value > 0.0f) {
            AFTextPainter::setColour(cr, colour, node.set ? 0.9 : 0.35);
            cairo_rectangle(cr, barLeft, top + 3.0, barWidth * node.value, kCellHeight - 6.0);
            cairo_fill(cr);
        }
        if (node.set) {
            const double x = barLeft + barWidth * node.value;
            const double y = top + kCellHeight * 0.5;
            AFTextPainter::setColour(cr, AFLayout::kText);
            cairo_move_to(cr, x, y - 5.0);
            cairo_line_to(cr, x + 5.0, y);
            cairo_line_to(cr, x, y + 5.0);
            cairo_line_to(cr, x - 5.0, y);
            cairo_close_path(cr);
            cairo_fill(cr);
        }
        if (node.last) ended = true;
    }

    const float dictator = client.getParameter(AFUniClient::kDictator);
    const double y = positionY(dictator);
    AFTextPainter::setColour(cr, AFLayout::kAccent);
    cairo_set_line_width(cr, 2.0);
    cairo_move_to(cr, size.left, y);
    cairo_line_to(cr, size.right, y);
    cairo_stroke(cr);
    const float played =
        client.getDictator().controlValue(row, dictator, client.getOptions().threshold.load());
    cairo_arc(cr, barLeft + barWidth * played, y, 4.0, 0.0, 2.0 * M_PI);
    cairo_fill(cr);
}
