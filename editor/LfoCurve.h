#pragma once

#include "editor/AFControl.h"

#include <array>

class AFLfo;

// The wave view of one LFO: one cycle of its waveform as the LFO computes it, quantize levels included, with
// a marker at the live phase. Its value is the phase offset, dragged sideways, and goes to the client as a
// parameter. GUI thread.
class LfoCurve : public AFControl {
public:
    static constexpr int kTag = 17595;
    static constexpr int kPoints = 128;
    // Pixels of sideways drag for a whole turn of the phase.
    static constexpr double kDragWidth = 300.0;

    LfoCurve(const AFRect& size, AFControlListener* listener, uint32_t colour);

    // Rebinds to another LFO; the waveform, quantize and offset are read at once.
    void bind(const AFLfo* lfo) noexcept;
    // The phase offset the drawing starts from (0..1).
    void setOffset(float offset);
    // Re-reads waveform and quantize, and moves the live marker; redraws only what changed.
    void follow();
    // The drawn curve at point i of kPoints, 0..1, for tests and the drawing alike.
    float pointValue(int i) const noexcept { return points[static_cast<std::size_t>(i)]; }
    int getLiveX() const noexcept { return liveX; }

    // The value the waveform has at x (0..1, offset applied), with q quantize steps. Random waveforms draw a
    // fixed stand-in pattern, since their real values come from a running generator.
    static float shape(int waveform, float x, int quantize) noexcept;

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseMoved(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

private:
    void computePoints();

    const AFLfo* lfo = nullptr;
    uint32_t colour;
    int waveform = -1;
    int quantize = -1;
    float offset = -1.0f;
    int liveX = -1;
    std::array<float, kPoints + 1> points{};
    double dragStartX = 0.0;
    float dragStartValue = 0.0f;
    bool dragging = false;
};
