#include "editor/FXSelect.h"

#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFBitmapStore.h"
#include "editor/AFLayout.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFTextPainter.h"
#include "effects/framework/EffectFactory.h"

FXSelect::FXSelect(const AFRect& size, AFControlListener* listener, int tag, int slot,
                   const AFBitmapStore& bitmaps)
    : AFViewContainer(size, nullptr, tag, bitmaps.get(AFBitmapId::kSlotHeader + slot)), bitmaps(bitmaps),
      slot(slot) {
    auto popup =
        std::make_unique<AFOptionMenu>(AFRect::ofSize(size.left, size.bottom, 1.0, 1.0), listener, tag);
    for (int i = 0; i < EffectFactory::kMenuCount; ++i)
        popup->addEntry(EffectFactory::menuEffectName(i));
    popup->setVisible(false);
    menu = addView(std::move(popup));
    name = addView(
        std::make_unique<A2ValueDisplay>(AFRect{size.left + 46.0, size.top, size.right - 4.0, size.bottom},
                                         13.0, 0x0A0B0F, AFTextPainter::kLeft, true));
}

void FXSelect::setEffect(int typeId) {
    const int next = EffectFactory::menuPosition(typeId);
    if (next == position) return;
    position = next;
    menu->setCurrent(position);
    name->setText(position >= 0 ? EffectFactory::menuEffectName(position) : "-");
    invalid();
}

bool FXSelect::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y) || event.button != AFMouseEvent::kLeft) return false;
    menu->popup(size.left, size.bottom, getTag());
    return true;
}

void FXSelect::drawBackground(cairo_t* cr) {
    AFViewContainer::drawBackground(cr);
    if (const AFBitmap* number = bitmaps.get(AFBitmapId::kSlotNumber + slot))
        number->draw(cr, size.left + 3.0, size.top + 4.0, 22.0, 22.0);
    if (position >= 0)
        if (const AFBitmap* badge = bitmaps.get(AFBitmapId::kEffectBadge + position))
            badge->draw(cr, size.left + 24.0, size.top + 5.0, 20.0, 20.0);
}
