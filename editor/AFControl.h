#pragma once

#include "editor/AFView.h"

class AFBitmap;
class AFControlListener;

// A view with a tag and a value from 0 to 1 that tells its listener when the value changes. Base of the
// program's widgets. GUI thread.
class AFControl : public AFView {
public:
    AFControl(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* background = nullptr);

    virtual void setValue(float newValue);
    virtual float getValue() const { return value; }
    int getTag() const noexcept { return tag; }
    // Points the control at another target, as a view does when it shows another slot.
    void setTag(int newTag) noexcept { tag = newTag; }
    AFControlListener* getListener() const noexcept { return listener; }
    const AFBitmap* getBackground() const noexcept { return background; }

    // Tell the listener.
    void valueChanged();
    void beginEdit();
    void endEdit();

    void draw(cairo_t* cr) override;

protected:
    float value = 0.0f;

private:
    AFControlListener* listener;
    int tag;
    const AFBitmap* background;
};
