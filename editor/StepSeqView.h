#pragma once

#include "editor/AFControl.h"

class AFLfo;

// The step view of one LFO: its 16 steps as bars, set by clicking and dragging across them, with the step
// that plays lit. The steps are written straight into the LFO; the listener hears beginEdit before the first
// write of a gesture (to keep the pattern for undo) and valueChanged after each. GUI thread.
class StepSeqView : public AFControl {
public:
    static constexpr int kTag = 17596;
    static constexpr int kSteps = 16;

    StepSeqView(const AFRect& size, AFControlListener* listener, uint32_t colour);

    void bind(AFLfo* lfo) noexcept;
    // The phase offset moves the pattern in whole steps, as the LFO plays it.
    void setOffset(float offset) noexcept { phaseOffset = offset; }
    // Redraws what changed in the steps or in the step playing.
    void follow();
    // The step under x, 0..15.
    int stepAt(double x) const noexcept;
    // The step value for y: 1 at the top, 0 at the bottom.
    float valueAt(double y) const noexcept;
    int getPlayingStep() const noexcept { return playing; }

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

private:
    void paintTo(double x, double y);
    AFRect barRect(int step) const noexcept;

    AFLfo* lfo = nullptr;
    uint32_t colour;
    float phaseOffset = 0.0f;
    float shown[kSteps] = {};
    int playing = -1;
    int lastStep = -1;
    bool dragging = false;
};
