#include "editor/LfoCurve.h"

#include "editor/AFFrame.h"
#include "editor/AFTextPainter.h"
#include "modulation/AFLfo.h"

#include <algorithm>
#include <cmath>

namespace {

// Levels standing in for the random draws, a new one every half cycle as the LFO draws them.
constexpr float kRandomStandIn[4] = {-0.2f, 0.7f, -0.8f, 0.3f};

} // namespace

LfoCurve::LfoCurve(const AFRect& size, AFControlListener* listener, uint32_t colour)
    : AFControl(size, listener, kTag), colour(colour) {}

float LfoCurve::shape(int wave, float x, int q) noexcept {
    float v = 0.0f;
    switch (wave) {
    case 0:
        v = 0.5f + 0.5f * static_cast<float>(std::sin(6.283185307179586 * (x - 0.25)));
        break;
    case 1:
    case 2: {
        const float t = static_cast<int>(1.999999f * x) == 0 ? x + x : 2.0f - x - x;
        v = wave == 1 ? t : t * t;
        break;
    }
    case 3:
        v = x <= 0.5f ? 1.0f : 0.0f;
        break;
    case 4:
        v = x <= 0.75f ? 1.0f : 0.0f;
        break;
    case 5:
        v = x;
        break;
    case 6:
        v = x * x;
        break;
    case 7:
        v = 1.0f - (1.0f - x) * (1.0f - x);
        break;
    case 8:
        v = 1.0f - x;
        break;
    case 9:
        v = (1.0f - x) * (1.0f - x);
        break;
    case 10:
        v = 1.0f - x * x;
        break;
    case 11:
    case 12: {
        const int cell = std::clamp(static_cast<int>(x + x), 0, 1);
        const float current = kRandomStandIn[cell + 1];
        const float previous = kRandomStandIn[cell];
        v = 0.5f + 0.5f * (wave == 11 ? current : previous + (current - previous) * x);
        break;
    }
    default:
        break;
    }
    if (q != 0) v = std::min(1.0f, std::trunc(v * static_cast<float>(q + 1)) / static_cast<float>(q));
    return v;
}

void LfoCurve::bind(const AFLfo* target) noexcept {
    lfo = target;
    waveform = -1;
    liveX = -1;
    follow();
}

void LfoCurve::setOffset(float newOffset) {
    if (newOffset == offset) return;
    offset = newOffset;
    value = newOffset;
    computePoints();
    invalid();
}

void LfoCurve::computePoints() {
    for (int i = 0; i <= kPoints; ++i) {
        float x = std::max(offset, 0.0f) + static_cast<float>(i) / kPoints;
        if (x > 1.0f) x -= 1.0f;
        points[static_cast<std::size_t>(i)] = shape(waveform, x, quantize);
    }
}

void LfoCurve::follow() {
    if (lfo == nullptr) return;
    const int wave = lfo->getWaveform();
    const int q = lfo->getQuantizeSteps();
    if (wave != waveform || q != quantize) {
        waveform = wave;
        quantize = q;
        computePoints();
        invalid();
    }
    // The phase is the audio thread's double, read whole; a stale turn only moves the marker a tick late.
    const double phase = lfo->getPhase();
    const int x = static_cast<int>(std::clamp(phase, 0.0, 1.0) * (size.width() - 8.0));
    if (x == liveX) return;
    const int old = liveX;
    liveX = x;
    if (AFFrame* frame = getFrame()) {
        frame->invalidRect(AFRect::ofSize(size.left + 1.0 + old, size.top, 6.0, size.height()));
        frame->invalidRect(AFRect::ofSize(size.left + 1.0 + x, size.top, 6.0, size.height()));
    }
}

bool LfoCurve::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    dragStartX = event.x;
    dragStartValue = value;
    dragging = true;
    beginEdit();
    return true;
}

void LfoCurve::onMouseMoved(const AFMouseEvent& event) {
    if (!dragging) return;
    // Dragging right moves the curve right: the cycle starts earlier.
    const float next =
        std::clamp(static_cast<float>(dragStartValue - (event.x - dragStartX) / kDragWidth), 0.0f, 1.0f);
    if (next == value) return;
    setOffset(next);
    valueChanged();
}

void LfoCurve::onMouseUp(const AFMouseEvent&) {
    if (!dragging) return;
    dragging = false;
    endEdit();
}

void LfoCurve::draw(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::well(cr, size);
    const double left = size.left + 4.0;
    const double width = size.width() - 8.0;
    const double top = size.top + 6.0;
    const double height = size.height() - 12.0;
    AFTextPainter::setColour(cr, 0x262B35);
    for (int i = 1; i < 4; ++i) {
        cairo_move_to(cr, left + width * i * 0.25, top);
        cairo_line_to(cr, left + width * i * 0.25, top + height);
    }
    cairo_move_to(cr, left, top + height * 0.5);
    cairo_line_to(cr, left + width, top + height * 0.5);
    cairo_stroke(cr);
    for (int i = 0; i <= kPoints; ++i) {
        const double px = left + width * i / kPoints;
        const double py = top + height * (1.0 - points[static_cast<std::size_t>(i)]);
        if (i == 0)
            cairo_move_to(cr, px, py);
        else
            cairo_line_to(cr, px, py);
    }
    AFTextPainter::setColour(cr, colour);
    cairo_set_line_width(cr, 2.5);
    cairo_stroke(cr);
    if (liveX >= 0 && lfo != nullptr) {
        const double px = left + liveX;
        AFTextPainter::setColour(cr, 0xFFFFFF, 0.85);
        cairo_set_line_width(cr, 2.0);
        cairo_move_to(cr, px, top);
        cairo_line_to(cr, px, top + height);
        cairo_stroke(cr);
    }
    cairo_restore(cr);
}
