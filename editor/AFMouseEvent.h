#pragma once

// One mouse event as the window hands it to the views, in the frame's logical units.
struct AFMouseEvent {
    enum Button : int { kNone = 0, kLeft = 1, kRight = 2, kMiddle = 3 };

    double x = 0.0;
    double y = 0.0;
    int button = kLeft;
    bool doubleClick = false;
    bool shift = false;
    // Control on this system: the modifier that also opens a knob's menu.
    bool command = false;
};
