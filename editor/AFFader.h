#pragma once

#include "editor/AFControl.h"

class AFOptionMenu;

// A horizontal fader over a track bitmap, editing one 0..1 value through a pointer: drag the handle (shift
// for fine), click the track to jump, double click for the default. GUI thread.
class AFFader : public AFControl {
public:
    AFFader(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* track,
            const AFBitmap* handle, float* valuePointer, float defaultValue);

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;
    float getValue() const override { return valuePointer != nullptr ? *valuePointer : 0.0f; }
    bool isDragging() const noexcept { return dragging; }
    // The menu a right click pops up for this fader (the Learn menu); without one the right button does
    // nothing.
    void setMenu(AFOptionMenu* learn) noexcept { menu = learn; }

protected:
    // The handle's width: its bitmap's, or what a fader that draws its own handle says.
    virtual double handleWidth() const noexcept;
    double handleLeft(float v) const noexcept;

    float* valuePointer;

private:
    void moveTo(float v);

    const AFBitmap* handle;
    float defaultValue;
    double dragStartX = 0.0;
    float dragStartValue = 0.0f;
    bool dragging = false;
    AFOptionMenu* menu = nullptr;
};
