#pragma once

#include "editor/AFControl.h"
#include "engine/AFDictator.h"

class AFUniClient;

// One Dictator row as a column of 17 cells, node 16 at the top: a press places a key frame (0.5) or picks the
// one there and drags its value, a double click or the right button clears a key frame. Every edit is one
// undo step taken before the change, and the row is rebuilt at once. It draws the row's curve, its key frames
// and the Dictator's current place. GUI thread.
class KeyFrameHandlerView : public AFControl {
public:
    static constexpr int kCellHeight = 17;
    static constexpr int kCells = AFDictator::kNodes;
    static constexpr double kHeight = kCellHeight * kCells;
    // Value change per pixel of vertical drag.
    static constexpr float kFineStep = 1.0f / 200.0f;
    static constexpr float kCoarseStep = 1.0f / 50.0f;

    KeyFrameHandlerView(const AFRect& size, AFControlListener* listener, int tag, AFUniClient& client,
                        int row);

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

    // The y of the Dictator's position line: the centre of its node moved on by the fraction.
    double positionY(float dictator) const noexcept;
    // The cell under a y inside the view.
    int cellAt(double y) const noexcept;
    int getActiveCell() const noexcept { return activeCell; }
    bool isFineDrag() const noexcept { return fineDrag; }
    int getRow() const noexcept { return row; }

private:
    void pushCommand();
    void reevaluate();

    AFUniClient& client;
    int row;
    AFDictator::Node* cells;
    int activeCell = -1;
    bool fineDrag = true;
    double pressY = 0.0;
    bool dragging = false;
};
