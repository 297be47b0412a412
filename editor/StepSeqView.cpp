#include "editor/StepSeqView.h"

#include "editor/AFFrame.h"
#include "editor/AFTextPainter.h"
#include "modulation/AFLfo.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPad = 4.0;

} // namespace

StepSeqView::StepSeqView(const AFRect& size, AFControlListener* listener, uint32_t colour)
    : AFControl(size, listener, kTag), colour(colour) {}

void StepSeqView::bind(AFLfo* target) noexcept {
    lfo = target;
    playing = -1;
    std::fill(std::begin(shown), std::end(shown), -1.0f);
    follow();
}

AFRect StepSeqView::barRect(int step) const noexcept {
    const double width = (size.width() - 2.0 * kPad) / kSteps;
    return AFRect::ofSize(size.left + kPad + step * width, size.top + kPad, width,
                          size.height() - 2.0 * kPad);
}

int StepSeqView::stepAt(double x) const noexcept {
    const double width = (size.width() - 2.0 * kPad) / kSteps;
    return std::clamp(static_cast<int>(std::floor((x - size.left - kPad) / width)), 0, kSteps - 1);
}

float StepSeqView::valueAt(double y) const noexcept {
    const double height = size.height() - 2.0 * kPad;
    return std::clamp(static_cast<float>(1.0 - (y - size.top - kPad) / height), 0.0f, 1.0f);
}

void StepSeqView::follow() {
    if (lfo == nullptr) return;
    AFFrame* frame = getFrame();
    for (int i = 0; i < kSteps; ++i) {
        const float v = lfo->getStep(i);
        if (v == shown[i]) continue;
        shown[i] = v;
        if (frame != nullptr) frame->invalidRect(barRect(i));
    }
    // Where the LFO reads: its step position, moved by the offset in whole steps.
    int step = static_cast<int>(15.0f * phaseOffset) + static_cast<int>(lfo->getStepPosition());
    step = ((step % kSteps) + kSteps) % kSteps;
    if (step == playing) return;
    if (frame != nullptr && playing >= 0) frame->invalidRect(barRect(playing));
    playing = step;
    if (frame != nullptr) frame->invalidRect(barRect(step));
}

void StepSeqView::paintTo(double x, double y) {
    const int step = stepAt(x);
    const float v = valueAt(y);
    // A fast drag skips bars; the ones passed over since the last step take the value too.
    const int from = lastStep < 0 || lastStep == step ? step : lastStep + (step > lastStep ? 1 : -1);
    for (int i = std::min(from, step); i <= std::max(from, step); ++i)
        lfo->setStep(i, v);
    lastStep = step;
    value = v;
    follow();
    valueChanged();
}

bool StepSeqView::onMouseDown(const AFMouseEvent& event) {
    if (lfo == nullptr || !size.contains(event.x, event.y)) return false;
    beginEdit();
    dragging = true;
    lastStep = -1;
    paintTo(event.x, event.y);
    return true;
}

void StepSeqView::onMouseMoved(const AFMouseEvent& event) {
    if (dragging) paintTo(event.x, event.y);
}

void StepSeqView::onMouseUp(const AFMouseEvent&) {
    if (!dragging) return;
    dragging = false;
    endEdit();
}

void StepSeqView::draw(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::well(cr, size);
    for (int i = 0; i < kSteps; ++i) {
        const AFRect bar = barRect(i).inset(1.5, 0.0);
        AFTextPainter::setColour(cr, i % 4 == 0 ? 0x232833 : 0x1A1E27);
        cairo_rectangle(cr, bar.left, bar.top, bar.width(), bar.height());
        cairo_fill(cr);
        const double h = bar.height() * std::clamp(shown[i], 0.0f, 1.0f);
        AFTextPainter::setColour(cr, i == playing ? 0xFFFFFF : colour, i == playing ? 0.95 : 0.85);
        cairo_rectangle(cr, bar.left, bar.bottom - h, bar.width(), std::max(h, 2.0));
        cairo_fill(cr);
    }
    cairo_restore(cr);
}
