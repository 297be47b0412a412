#pragma once

#include "editor/AFControl.h"

#include <array>

class AFOptionMenu;

// The main control of the face: edits one float in place through `valuePointer` and draws the modulation it
// receives as overlay strips over its face. GUI thread.
class A2ModulatableKnob : public AFControl {
public:
    static constexpr int kOverlays = 3;
    // Pixels of vertical drag for the whole range; shift makes it ten times finer.
    static constexpr double kDragRange = 200.0;
    static constexpr double kFineFactor = 10.0;

    A2ModulatableKnob(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face,
                      float* valuePointer, AFOptionMenu* menu = nullptr);

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

    float getValue() const override { return valuePointer != nullptr ? *valuePointer : 0.0f; }
    void setValuePointer(float* pointer) noexcept { valuePointer = pointer; }
    void setDefaultValue(float value) noexcept { defaultValue = value; }
    // Overlay `which` shows the modulated value `position` (0..1) from `bitmap`; a negative position hides
    // it.
    void setOverlay(int which, const AFBitmap* bitmap, const AFRect& rect);
    void setOverlayPosition(int which, float position);
    bool isDragging() const noexcept { return dragging; }
    // The face frame drawn for `value`.
    int frameIndex(float value) const noexcept;

    float defaultValue = 0.5f;
    unsigned frameCount = 127;
    float rangeScale = 1.0f;

private:
    struct Overlay {
        const AFBitmap* bitmap = nullptr;
        AFRect rect;
        float position = -1.0f;
    };

    float* valuePointer;
    AFOptionMenu* menu;
    double dragStartX = 0.0;
    double dragStartY = 0.0;
    float dragStartValue = 0.0f;
    bool dragging = false;
    std::array<Overlay, kOverlays> overlays{};
};
