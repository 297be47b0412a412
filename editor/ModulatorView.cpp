#include "editor/ModulatorView.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/EnvFollowerView.h"
#include "editor/LfoView.h"
#include "editor/ModAmountSwitch.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

constexpr const char* kDepthNames[ModulatorView::kDepths] = {"LFO 1", "ENVELOPE", "LFO 2"};
constexpr uint32_t kDepthColours[ModulatorView::kDepths] = {AFLayout::kAccent, 0x9BE27A, 0x7FD4FF};
constexpr int kTargets = 5;

} // namespace

ModulatorView::ModulatorView(AFUniClientEditor& editor, const AFRect& size)
    : AFViewContainer(size), editor(editor) {
    using B = AFBitmapId;
    using L = AFLayout;
    const AFBitmapStore& bitmaps = editor.getBitmaps();
    const double top = size.top + kButtonHeight + 12.0;
    const double height = size.bottom - 8.0 - top;
    for (int i = 0; i < 2; ++i)
        lfoViews[static_cast<std::size_t>(i)] = addView(
            std::make_unique<LfoView>(editor, AFRect::ofSize(10.0 + i * 395.0, top, 390.0, height), i == 1));
    envelopeView =
        addView(std::make_unique<EnvFollowerView>(editor, AFRect::ofSize(800.0, top, 390.0, 250.0)));

    const double depthTop = top + 258.0;
    depthPanel = AFRect::ofSize(800.0, depthTop, 390.0, size.bottom - 8.0 - depthTop);
    addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(812.0, depthTop + 6.0, 360.0, 20.0), 15.0,
                                             L::kText, AFTextPainter::kLeft, true))
        ->setText("MODULATION DEPTH ON");
    amountSwitch =
        addView(std::make_unique<ModAmountSwitch>(AFRect::ofSize(810.0, depthTop + 32.0, 370.0, 28.0), this));
    for (int m = 0; m < kDepths; ++m) {
        const double left = 810.0 + m * 125.0;
        const int tag = depthTag(m);
        auto* knob = addView(std::make_unique<A2ModulatableKnob>(
            AFRect::ofSize(left + 25.0, depthTop + 74.0, L::kControlKnob, L::kControlKnob), &editor, tag,
            bitmaps.get(B::kControlKnob), editor.valuePointer(tag), editor.getLearnMenu()));
        knob->setDefaultValue(0.0f);
        depthKnobs[static_cast<std::size_t>(m)] = knob;
        depthTexts[static_cast<std::size_t>(m)] =
            addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left, depthTop + 140.0, 114.0, 18.0),
                                                     13.0, L::kText, AFTextPainter::kCenter, true));
        addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left, depthTop + 158.0, 114.0, 14.0), 10.0,
                                                 kDepthColours[m], AFTextPainter::kCenter, true))
            ->setText(kDepthNames[m]);
    }
    slotTypes.fill(-1);
    effectivePixels.fill(-1);
    bindSlot(editor.getSelectedSlot());
}

int ModulatorView::depthTag(int modulator) const noexcept {
    return AFUniClient::kAmountStart + KnobEngine::kAmountCount * slot + modulator * kTargets + target;
}

AFRect ModulatorView::effectiveRect(int i) const noexcept {
    return AFRect::ofSize(depthPanel.left + 100.0, depthPanel.top + 214.0 + i * 18.0,
                          depthPanel.width() - 112.0, 14.0);
}

AFRect ModulatorView::slotButtonRect(int index) const noexcept {
    const double width = (size.width() - 20.0) / AFUniClient::kSlots;
    return AFRect::ofSize(size.left + 10.0 + index * width, size.top + 6.0, width, kButtonHeight)
        .inset(3.0, 0.0);
}

void ModulatorView::bindSlot(int newSlot) {
    slot = newSlot;
    for (LfoView* view : lfoViews)
        view->bindSlot(slot);
    envelopeView->bindSlot(slot);
    boundType = -1;
    showTarget(target);
    invalid();
}

void ModulatorView::showTarget(int newTarget) {
    target = newTarget;
    amountSwitch->setValue(static_cast<float>(target));
    for (int m = 0; m < kDepths; ++m) {
        A2ModulatableKnob* knob = depthKnobs[static_cast<std::size_t>(m)];
        knob->setTag(depthTag(m));
        knob->setValuePointer(editor.valuePointer(knob->getTag()));
        knob->invalid();
    }
    shown.fill(-1.0f);
    followTargets();
}

void ModulatorView::followTargets() {
    const KnobEngine& engine = editor.getClient().getSlot(slot);
    if (engine.getEffectType() != boundType) {
        boundType = engine.getEffectType();
        char text[kEffectTextSize];
        for (int i = 0; i < 4; ++i) {
            text[0] = '\0';
            if (AFEffect* effect = engine.getEffect()) effect->getParameterName(i, text);
            amountSwitch->setName(i, text);
        }
        amountSwitch->setName(4, "Dry/Wet");
    }
    AFUniClient& client = editor.getClient();
    const int base = AFUniClient::kAmountStart + KnobEngine::kAmountCount * slot;
    for (int i = 0; i < kTargets; ++i) {
        bool reached = false;
        for (int m = 0; m < kDepths; ++m)
            reached = reached || client.getParameter(base + m * kTargets + i) != 0.0f;
        amountSwitch->setReached(i, reached);
    }
    char text[16];
    for (std::size_t m = 0; m < kDepths; ++m) {
        editor.followParameter(depthKnobs[m]);
        const float depth = depthKnobs[m]->getValue();
        if (depth == shown[m]) continue;
        shown[m] = depth;
        std::snprintf(text, sizeof text, "%d%%", static_cast<int>(std::lround(depth * 100.0f)));
        depthTexts[m]->setText(text);
    }
    AFFrame* frame = getFrame();
    for (int i = 0; i < kTargets; ++i) {
        const float value = std::clamp(engine.getEffective(i), 0.0f, 1.0f);
        const AFRect bar = effectiveRect(i);
        const int pixels = static_cast<int>(value * bar.width());
        effective[static_cast<std::size_t>(i)] = value;
        if (pixels == effectivePixels[static_cast<std::size_t>(i)]) continue;
        effectivePixels[static_cast<std::size_t>(i)] = pixels;
        if (frame != nullptr) frame->invalidRect(bar);
    }
}

void ModulatorView::followEngine() {
    for (LfoView* view : lfoViews)
        view->follow();
    envelopeView->follow();
    followTargets();
    AFUniClient& client = editor.getClient();
    for (int i = 0; i < AFUniClient::kSlots; ++i) {
        const int type = client.getSlot(i).getEffectType();
        if (type == slotTypes[static_cast<std::size_t>(i)]) continue;
        slotTypes[static_cast<std::size_t>(i)] = type;
        if (AFFrame* frame = getFrame()) frame->invalidRect(slotButtonRect(i));
    }
}

bool ModulatorView::onMouseDown(const AFMouseEvent& event) {
    for (int i = 0; i < AFUniClient::kSlots; ++i) {
        if (!slotButtonRect(i).contains(event.x, event.y)) continue;
        if (i != slot) editor.selectSlot(i);
        return true;
    }
    return false;
}

void ModulatorView::valueChanged(AFControl* control) {
    if (control == amountSwitch) showTarget(amountSwitch->getTarget());
}

void ModulatorView::drawBackground(cairo_t* cr) {
    cairo_save(cr);
    AFTextPainter::fill(cr, size, AFLayout::kStage);
    AFUniClient& client = editor.getClient();
    // The live views repaint small squares; the buttons' texts are drawn only where they are in them.
    const AFRect clip = AFTextPainter::clipRect(cr);
    char text[96];
    for (int i = 0; i < AFUniClient::kSlots; ++i) {
        const AFRect box = slotButtonRect(i);
        if (!box.intersects(clip)) continue;
        const uint32_t colour = AFLayout::slotColour(i);
        const bool chosen = i == slot;
        AFTextPainter::roundedRect(cr, box, 5.0);
        AFTextPainter::setColour(cr, chosen ? colour : AFLayout::kPanel);
        cairo_fill_preserve(cr);
        AFTextPainter::setColour(cr, colour);
        cairo_set_line_width(cr, 2.0);
        cairo_stroke(cr);
        std::snprintf(text, sizeof text, "%d  %s", i + 1,
                      EffectFactory::effectName(client.getSlot(i).getEffectType()));
        AFTextPainter::draw(cr, text, box.inset(6.0, 0.0), 12.0, chosen ? AFLayout::kStage : AFLayout::kText,
                            AFTextPainter::kCenter, true);
    }
    if (depthPanel.intersects(clip)) {
        AFTextPainter::roundedRect(cr, depthPanel, 6.0);
        AFTextPainter::setColour(cr, AFLayout::kPanel);
        cairo_fill(cr);
        AFTextPainter::draw(cr, "NOW, AFTER ALL MODULATION",
                            AFRect::ofSize(depthPanel.left + 12.0, depthPanel.top + 192.0, 360.0, 16.0), 10.0,
                            AFLayout::kDimText, AFTextPainter::kLeft, true);
    }
    // Where each target sits now; the one the depth knobs edit is lit.
    for (int i = 0; i < kTargets; ++i) {
        const AFRect bar = effectiveRect(i);
        if (!bar.intersects(clip)) continue;
        AFTextPainter::draw(cr, amountSwitch->getName(i).c_str(),
                            AFRect{depthPanel.left + 12.0, bar.top, bar.left - 6.0, bar.bottom}, 11.0,
                            AFLayout::kText, AFTextPainter::kLeft);
        AFTextPainter::setColour(cr, 0x0B0D12);
        cairo_rectangle(cr, bar.left, bar.top, bar.width(), bar.height());
        cairo_fill(cr);
        AFTextPainter::setColour(cr, i == target ? 0x5B8FDA : 0x5A6475);
        cairo_rectangle(cr, bar.left, bar.top + 1.0, bar.width() * effective[static_cast<std::size_t>(i)],
                        bar.height() - 2.0);
        cairo_fill(cr);
    }
    cairo_restore(cr);
}
