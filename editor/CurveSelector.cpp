#include "editor/CurveSelector.h"

#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFOptionMenu.h"

CurveSelector::CurveSelector(const AFRect& size, AFControlListener* listener, int tag,
                             const AFBitmapStore& bitmaps, AFOptionMenu* menu)
    : AFControl(size, listener, tag, bitmaps.get(AFBitmapId::kCurveFace)), bitmaps(bitmaps), menu(menu) {}

void CurveSelector::setCurve(int curve) {
    setValue(static_cast<float>(curve));
}

bool CurveSelector::onMouseDown(const AFMouseEvent& event) {
    if (menu == nullptr || !size.contains(event.x, event.y)) return false;
    menu->setCurrent(getCurve());
    menu->popup(size.left, size.bottom, getTag());
    return true;
}

void CurveSelector::draw(cairo_t* cr) {
    AFControl::draw(cr);
    const AFBitmap* glyph = bitmaps.get(AFBitmapId::kCurveGlyph + getCurve());
    if (glyph == nullptr) return;
    const double w = glyph->getWidth() * 0.5;
    const double h = glyph->getHeight() * 0.5;
    cairo_save(cr);
    cairo_translate(cr, size.left + (size.width() - w) * 0.5, size.top + (size.height() - h) * 0.5);
    cairo_scale(cr, 0.5, 0.5);
    glyph->draw(cr, 0.0, 0.0, glyph->getWidth(), glyph->getHeight());
    cairo_restore(cr);
}
