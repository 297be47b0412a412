#pragma once

#include "editor/AFControl.h"

class AFOptionMenu;

// The open list of an AFOptionMenu, above everything else in the frame: lays the entries out in columns that
// fit the frame, lights the entry under the pointer, and picks the entry clicked (titles and disabled
// entries are not picked). GUI thread.
class AFMenuHelper : public AFControl {
public:
    static constexpr double kRowHeight = 18.0;
    static constexpr double kColumnWidth = 190.0;

    explicit AFMenuHelper(AFOptionMenu& menu);

    // Places the list with its top-left at (x, y), moved inside `bounds` where it would stick out.
    void layout(double x, double y, const AFRect& bounds);
    // The entry under (x, y), or -1.
    int entryAt(double x, double y) const;

    // A press outside the list is not taken.
    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

private:
    AFOptionMenu& menu;
    int hover = -1;
    int rowsPerColumn = 1;
};
