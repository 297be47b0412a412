#include "editor/EnvFollowerView.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/SweepRow.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFEnvFollower.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

constexpr uint32_t kColour = 0x9BE27A;
constexpr const char* kNames[SweepRow::kKnobs] = {"ATTACK", "RELEASE", "AMOUNT"};

} // namespace

EnvFollowerView::EnvFollowerView(AFUniClientEditor& editor, const AFRect& size)
    : AFViewContainer(size), editor(editor) {
    using B = AFBitmapId;
    using L = AFLayout;
    const AFBitmapStore& bitmaps = editor.getBitmaps();
    const double x = size.left;
    const double y = size.top;
    for (int i = 0; i < 3; ++i) {
        const double left = x + 10.0 + i * 125.0;
        const int tag = rowTag(KnobEngine::kEfAttack + i);
        auto* knob = addView(std::make_unique<A2ModulatableKnob>(
            AFRect::ofSize(left + 25.0, y + 32.0, L::kControlKnob, L::kControlKnob), &editor, tag,
            bitmaps.get(B::kControlKnob), editor.valuePointer(tag), editor.getLearnMenu()));
        knob->setDefaultValue(0.5f);
        knobs[static_cast<std::size_t>(i)] = knob;
        texts[static_cast<std::size_t>(i)] = addView(std::make_unique<A2ValueDisplay>(
            AFRect::ofSize(left, y + 98.0, 114.0, 18.0), 13.0, L::kText, AFTextPainter::kCenter, true));
        addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left, y + 116.0, 114.0, 14.0), 10.0,
                                                 L::kDimText, AFTextPainter::kCenter))
            ->setText(kNames[i]);
    }
    sweeps =
        addView(std::make_unique<SweepRow>(editor, AFRect::ofSize(x + 10.0, y + 172.0, 370.0, 60.0), kNames));
}

int EnvFollowerView::rowTag(int row) const noexcept {
    return AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + row;
}

AFRect EnvFollowerView::meterRect() const noexcept {
    return AFRect::ofSize(size.left + 10.0, size.top + 138.0, size.width() - 20.0, 26.0);
}

void EnvFollowerView::bindSlot(int newSlot) {
    slot = newSlot;
    for (int i = 0; i < 3; ++i) {
        A2ModulatableKnob* knob = knobs[static_cast<std::size_t>(i)];
        knob->setTag(rowTag(KnobEngine::kEfAttack + i));
        knob->setValuePointer(editor.valuePointer(knob->getTag()));
    }
    sweeps->bind(rowTag(KnobEngine::kLfoRateKA + 3));
    shown.fill(-1.0f);
    level = peak = 0.0f;
    invalid();
    follow();
}

void EnvFollowerView::follow() {
    AFUniClient& client = editor.getClient();
    AFEnvFollower* follower = client.getSlot(slot).getEnvelope();
    char text[kEffectTextSize];
    for (std::size_t i = 0; i < 3; ++i) {
        editor.followParameter(knobs[i]);
        if (const float v = knobs[i]->getValue(); v != shown[i]) {
            shown[i] = v;
            if (i < 2) {
                text[0] = '\0';
                follower->formatParameter(static_cast<int>(i), v, text);
            } else {
                std::snprintf(text, sizeof text, "%d%%", static_cast<int>(std::lround(v * 100.0f)));
            }
            texts[i]->setText(text);
        }
    }
    sweeps->follow();
    // What the follower hands the slot: its level times the amount, as the slot last took it.
    level = std::clamp(client.getSlot(slot).getModulatorOutput(2), 0.0f, 1.0f);
    peak = std::max(level, peak - kPeakFall);
    const AFRect meter = meterRect();
    const int levelNow = static_cast<int>(level * meter.width());
    const int peakNow = static_cast<int>(peak * meter.width());
    if (levelNow == levelPixels && peakNow == peakPixels) return;
    levelPixels = levelNow;
    peakPixels = peakNow;
    if (AFFrame* frame = getFrame()) frame->invalidRect(meter);
}

void EnvFollowerView::drawBackground(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::roundedRect(cr, size, 6.0);
    AFTextPainter::setColour(cr, AFLayout::kPanel);
    cairo_fill(cr);
    const AFRect title = AFRect::ofSize(size.left + 12.0, size.top + 6.0, 300.0, 20.0);
    if (title.intersects(AFTextPainter::clipRect(cr)))
        AFTextPainter::draw(cr, "ENVELOPE FOLLOWER", title, 15.0, kColour, AFTextPainter::kLeft, true);
    const AFRect meter = meterRect();
    AFTextPainter::roundedRect(cr, meter, 3.0);
    AFTextPainter::setColour(cr, 0x0B0D12);
    cairo_fill(cr);
    const AFRect inner = meter.inset(2.0, 2.0);
    AFTextPainter::setColour(cr, kColour);
    cairo_rectangle(cr, inner.left, inner.top, inner.width() * level, inner.height());
    cairo_fill(cr);
    AFTextPainter::setColour(cr, 0xFFFFFF, 0.9);
    cairo_rectangle(cr, inner.left + inner.width() * peak - 2.0, inner.top, 2.0, inner.height());
    cairo_fill(cr);
    cairo_restore(cr);
}
