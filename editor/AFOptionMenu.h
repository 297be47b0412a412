#pragma once

#include "editor/AFControl.h"
#include "editor/AFMenuHelper.h"

#include <string>
#include <vector>

class AFOptionMenuExtraCallBack;

// The program's pop-up menu. As a control it shows its face (a bitmap, or the chosen entry's text) and pops
// up on a press; a shared menu (the Learn menu) pops up for another control's tag. An entry's place in the
// list is its value. GUI thread.
class AFOptionMenu : public AFControl {
public:
    enum Flag : int { kNormal = 0, kDisabled = 1, kTitle = 2, kChecked = 4 };

    AFOptionMenu(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* face = nullptr);

    // Position -1 appends; returns the entry's index.
    int addEntry(const std::string& text, int position = -1, int flags = kNormal);
    void setEntry(int index, const std::string& text);
    void removeAllEntry();
    int getNbEntries() const noexcept { return static_cast<int>(entries.size()); }
    const std::string& getEntry(int index) const;
    int getEntryFlags(int index) const;
    void setCurrent(int index);
    int getCurrent() const noexcept { return static_cast<int>(value); }
    // The face shows this text instead of the chosen entry's when set.
    void setLabel(const std::string& text) { label = text; }
    void setExtraCallBack(AFOptionMenuExtraCallBack* callback) noexcept { extra = callback; }
    void setFaceColour(uint32_t rgb) noexcept { faceColour = rgb; }

    // Opens the list at (x, y) on behalf of the control with `callerTag`.
    void popup(double x, double y, int callerTag);
    int getCallerTag() const noexcept { return callerTag; }
    // Picks entry `index` as a click on it would: sets the value and tells the listener.
    void choose(int index);

    bool onMouseDown(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

    // The open list, which the frame shows and feeds while this menu is popped up.
    AFMenuHelper& getList() noexcept { return list; }
    AFRect getPopupRect() const noexcept { return list.getViewSize(); }
    // The entry under (x, y) in the open list, or -1.
    int entryAt(double x, double y) const { return list.entryAt(x, y); }

private:
    struct Entry {
        std::string text;
        int flags;
    };
    std::vector<Entry> entries;
    std::string label;
    AFOptionMenuExtraCallBack* extra = nullptr;
    int callerTag = -1;
    uint32_t faceColour = 0x2A2F3A;
    AFMenuHelper list;
};
