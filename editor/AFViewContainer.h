#pragma once

#include "editor/AFControl.h"

#include <memory>
#include <vector>

// A control that also holds views, drawn in the order added and hit from the last one added. GUI thread.
class AFViewContainer : public AFControl {
public:
    AFViewContainer(const AFRect& size, AFControlListener* listener = nullptr, int tag = -1,
                    const AFBitmap* background = nullptr);

    // Takes the view and returns it, for the caller to keep a handle.
    template <typename View>
    View* addView(std::unique_ptr<View> view) {
        View* raw = view.get();
        raw->setParent(this);
        children.push_back(std::move(view));
        raw->invalid();
        return raw;
    }
    void removeAll();
    std::size_t getNbViews() const noexcept { return children.size(); }
    AFView* getView(std::size_t index) const { return children[index].get(); }

    void draw(cairo_t* cr) override;
    // Fills the own rectangle (background bitmap or colour) before the children.
    virtual void drawBackground(cairo_t* cr);
    bool onMouseDown(const AFMouseEvent& event) override;
    bool onKeyDown(const AFKeyEvent& event) override;
    void onIdle() override;

    // The visible view, deepest first, that took the press; the frame then sends it the moves and release.
    AFView* mouseDownTarget(const AFMouseEvent& event);

    // The part of the frame to repaint now; children outside it are skipped.
    void setDrawClip(const AFRect& rect) noexcept { drawClip = rect; }

private:
    std::vector<std::unique_ptr<AFView>> children;
    AFRect drawClip{-1e9, -1e9, 1e9, 1e9};
};
