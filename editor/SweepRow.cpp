#include "editor/SweepRow.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"

#include <cmath>
#include <cstdio>
#include <memory>

SweepRow::SweepRow(AFUniClientEditor& editor, const AFRect& size, const char* const (&names)[kKnobs])
    : AFViewContainer(size), editor(editor) {
    using L = AFLayout;
    const double x = size.left;
    const double y = size.top;
    addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(x, y, size.width(), 16.0), 10.0, L::kDimText,
                                             AFTextPainter::kLeft, true))
        ->setText("MAIN CONTROL SWEEPS");
    for (int i = 0; i < kKnobs; ++i) {
        const double left = x + i * 125.0;
        auto* knob = addView(std::make_unique<A2ModulatableKnob>(
            AFRect::ofSize(left, y + 22.0, L::kParameterKnob, L::kParameterKnob), &editor, -1,
            editor.getBitmaps().get(AFBitmapId::kParameterKnob), nullptr, editor.getLearnMenu()));
        knob->setDefaultValue(0.5f);
        knobs[static_cast<std::size_t>(i)] = knob;
        addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(left + 40.0, y + 22.0, 80.0, 15.0), 10.0,
                                                 L::kDimText, AFTextPainter::kLeft))
            ->setText(names[i]);
        texts[static_cast<std::size_t>(i)] = addView(std::make_unique<A2ValueDisplay>(
            AFRect::ofSize(left + 40.0, y + 38.0, 80.0, 18.0), 12.5, L::kText, AFTextPainter::kLeft, true));
    }
}

void SweepRow::bind(int firstTag) {
    for (int i = 0; i < kKnobs; ++i) {
        A2ModulatableKnob* knob = knobs[static_cast<std::size_t>(i)];
        knob->setTag(firstTag + i);
        knob->setValuePointer(editor.valuePointer(firstTag + i));
        knob->invalid();
    }
    shown.fill(-1.0f);
    follow();
}

void SweepRow::follow() {
    char text[16];
    for (std::size_t i = 0; i < kKnobs; ++i) {
        editor.followParameter(knobs[i]);
        const float sweep = knobs[i]->getValue();
        if (sweep == shown[i]) continue;
        shown[i] = sweep;
        std::snprintf(text, sizeof text, "%+d%%",
                      static_cast<int>(std::lround((sweep * 2.0f - 1.0f) * 100.0f)));
        texts[i]->setText(text);
    }
}
