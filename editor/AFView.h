#pragma once

#include "editor/AFKeyEvent.h"
#include "editor/AFMouseEvent.h"
#include "editor/AFRect.h"

#include <cairo.h>

class AFFrame;
class AFViewContainer;

// Base of everything on the editor's face: a rectangle in frame coordinates that draws itself into a Cairo
// context and takes plain mouse and key records. All of it runs on the GUI thread.
class AFView {
public:
    explicit AFView(const AFRect& size);
    virtual ~AFView();
    AFView(const AFView&) = delete;
    AFView& operator=(const AFView&) = delete;

    // Draws into `cr`, whose units are the frame's logical units.
    virtual void draw(cairo_t* cr);
    // True when the view took the event. A view that takes a press receives the moves and the release.
    virtual bool onMouseDown(const AFMouseEvent& event);
    virtual void onMouseMoved(const AFMouseEvent& event);
    virtual void onMouseUp(const AFMouseEvent& event);
    virtual bool onKeyDown(const AFKeyEvent& event);
    // The frame's idle pass: a view compares what it shows with the engine and redraws itself if needed.
    virtual void onIdle() {}

    const AFRect& getViewSize() const noexcept { return size; }
    void setViewSize(const AFRect& rect);
    bool isVisible() const noexcept { return visible; }
    void setVisible(bool on);
    // Asks the frame to redraw this view's rectangle.
    void invalid();

    void setParent(AFViewContainer* container) noexcept { parent = container; }
    AFViewContainer* getParent() const noexcept { return parent; }
    AFFrame* getFrame() const noexcept;

protected:
    AFRect size;

private:
    AFViewContainer* parent = nullptr;
    bool visible = true;
};
