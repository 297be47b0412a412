#include "editor/CurveSelect.h"

#include "editor/CurveSelector.h"
#include "engine/KnobEngine.h"

#include <memory>

namespace {

AFRect around(const std::array<AFRect, CurveSelect::kPickers>& pickers) {
    AFRect all = pickers[0];
    for (const AFRect& picker : pickers)
        all = all.united(picker);
    return all;
}

} // namespace

CurveSelect::CurveSelect(const std::array<AFRect, kPickers>& pickers, AFControlListener* listener,
                         int firstTag, const AFBitmapStore& bitmaps, AFOptionMenu* menu)
    : AFViewContainer(around(pickers)) {
    for (int row = 0; row < kPickers; ++row)
        selectors[static_cast<std::size_t>(row)] = addView(std::make_unique<CurveSelector>(
            pickers[static_cast<std::size_t>(row)], listener, firstTag + row, bitmaps, menu));
}

void CurveSelect::follow(const KnobEngine& engine) {
    for (int row = 0; row < kPickers; ++row)
        selectors[static_cast<std::size_t>(row)]->setCurve(engine.getParameterCurve(row));
}
