#include "editor/MonsterView.h"

#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"

MonsterView::MonsterView() : AFViewContainer(AFRect::ofSize(0.0, 0.0, AFLayout::kWidth, AFLayout::kHeight)) {}

AFRect MonsterView::pageRect() {
    return AFRect::ofSize(0.0, AFLayout::kSlotTop, AFLayout::kWidth, AFLayout::kSlotHeight);
}

AFRect MonsterView::tabRect(int index) const {
    return AFRect::ofSize(kTabLeft + index * kTabWidth, kTabTop, kTabWidth - 4.0, kTabHeight);
}

void MonsterView::addPage(const std::string& name, std::unique_ptr<AFView> page) {
    page->setVisible(false);
    AFView* view = addView(std::move(page));
    for (std::size_t i = 0; i < pages.size(); ++i)
        if (pages[i].name == name) {
            // The old page stays in the tree, hidden for good: views are only ever added.
            pages[i].view->setVisible(false);
            pages[i].view = view;
            if (static_cast<int>(i) == current) view->setVisible(true);
            return;
        }
    pages.push_back({name, view});
    if (current < 0) {
        current = 0;
        view->setVisible(true);
    }
    if (AFFrame* frame = getFrame()) frame->invalidRect(tabRect(static_cast<int>(pages.size()) - 1));
}

bool MonsterView::showPage(const std::string& name) {
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if (pages[i].name != name) continue;
        if (static_cast<int>(i) == current) return true;
        pages[static_cast<std::size_t>(current)].view->setVisible(false);
        current = static_cast<int>(i);
        pages[i].view->setVisible(true);
        // The page catches up with the engine before it is drawn.
        pages[i].view->onIdle();
        if (AFFrame* frame = getFrame()) {
            frame->invalidRect(pageRect());
            frame->invalidRect(AFRect{tabRect(0).left, kTabTop, tabRect(static_cast<int>(pages.size())).left,
                                      kTabTop + kTabHeight});
        }
        return true;
    }
    return false;
}

const std::string& MonsterView::currentPage() const noexcept {
    static const std::string none;
    return current < 0 ? none : pages[static_cast<std::size_t>(current)].name;
}

AFView* MonsterView::getPage(const std::string& name) const {
    for (const Page& page : pages)
        if (page.name == name) return page.view;
    return nullptr;
}

void MonsterView::drawBackground(cairo_t* cr) {
    const AFRect clip = AFTextPainter::clipRect(cr);
    // Pages other than the strips sit on the plain stage, so an empty one shows no strip art through it.
    if (current > 0 && clip.intersects(pageRect())) {
        AFTextPainter::fill(cr, pageRect(), AFLayout::kStage);
    }
    for (std::size_t i = 0; i < pages.size(); ++i) {
        const AFRect tab = tabRect(static_cast<int>(i));
        if (!clip.intersects(tab)) continue;
        const bool shown = static_cast<int>(i) == current;
        AFTextPainter::roundedRect(cr, tab, 3.0);
        AFTextPainter::setColour(cr, shown ? AFLayout::kAccent : 0x262B36);
        cairo_fill(cr);
        AFTextPainter::draw(cr, pages[i].name.c_str(), tab, 10.0, shown ? AFLayout::kStage : AFLayout::kText,
                            AFTextPainter::kCenter, true);
    }
}

bool MonsterView::onMouseDown(const AFMouseEvent& event) {
    for (std::size_t i = 0; i < pages.size(); ++i)
        if (tabRect(static_cast<int>(i)).contains(event.x, event.y)) {
            showPage(pages[i].name);
            return true;
        }
    return false;
}

void MonsterView::onIdle() {
    if (current >= 0) pages[static_cast<std::size_t>(current)].view->onIdle();
}
