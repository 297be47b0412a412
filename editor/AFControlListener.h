#pragma once

class AFControl;

// Receives a control's changes. GUI thread.
class AFControlListener {
public:
    virtual ~AFControlListener() = default;
    virtual void valueChanged(AFControl* control) = 0;
    // A gesture on the control's tag begins or ends (a drag, or the one change of a double click).
    virtual void beginEdit(int) {}
    virtual void endEdit(int) {}
};
