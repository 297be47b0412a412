#pragma once

#include "editor/AFViewContainer.h"

#include <memory>
#include <string>
#include <vector>

// The page holder: the tabs in the top bar and, below them, one page at a time in the area the slot strips
// use. It spans the whole frame but draws nothing outside its tabs and takes no press that misses them, so
// the top bar's own controls stay reachable. Only the page on show runs its idle pass. GUI thread.
class MonsterView : public AFViewContainer {
public:
    static constexpr double kTabTop = 48.0;
    static constexpr double kTabHeight = 16.0;
    static constexpr double kTabLeft = 684.0;
    static constexpr double kTabWidth = 84.0;

    MonsterView();

    // The rectangle every page takes.
    static AFRect pageRect();
    // Adds a page under a tab named `name`, hidden until shown; a name given twice replaces that page. The
    // first page added is on show.
    void addPage(const std::string& name, std::unique_ptr<AFView> page);
    // False (and nothing changes) for a name without a page.
    bool showPage(const std::string& name);
    const std::string& currentPage() const noexcept;
    AFView* getPage(const std::string& name) const;
    // The tab of page `index` in the order added.
    AFRect tabRect(int index) const;

    void drawBackground(cairo_t* cr) override;
    bool onMouseDown(const AFMouseEvent& event) override;
    void onIdle() override;

private:
    struct Page {
        std::string name;
        AFView* view;
    };
    std::vector<Page> pages;
    int current = -1;
};
