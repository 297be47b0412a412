// The one place that knows DGL: a Cairo top-level widget that hosts the editor's frame in every format's
// window, forwards mouse, keys, size and scale to it, and plays the editor's host (automation gestures, the
// file dialog).
#include "DistrhoUI.hpp"

#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFUniClientEditor.h"
#include "host/AFDPFWrapper.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>

START_NAMESPACE_DISTRHO

class AFDPFEditorUI : public UI, public AFEditorHost {
public:
    // A second press this close in time and place is a double click.
    static constexpr uint kDoubleClickMs = 400;
    static constexpr double kDoubleClickDistance = 4.0;

    AFDPFEditorUI()
        : UI(static_cast<uint>(AFLayout::kWidth), static_cast<uint>(AFLayout::kHeight), true),
          wrapper(static_cast<AFDPFWrapper*>(getPluginInstancePointer())) {
        wrapper->getEditorLink().setEditorOpen(true);
        editor = std::make_unique<AFUniClientEditor>(wrapper->getEditorClient(), *this);
        editor->open();
    }

    ~AFDPFEditorUI() override {
        editor.reset();
        if (backbuffer != nullptr) cairo_surface_destroy(backbuffer);
        wrapper->getEditorLink().setEditorOpen(false);
    }

    // AFEditorHost, GUI thread.
    void beginEdit(int index) override { editParameter(static_cast<uint32_t>(index), true); }
    void automate(int index, float value) override { setParameterValue(static_cast<uint32_t>(index), value); }
    void endEdit(int index) override { editParameter(static_cast<uint32_t>(index), false); }

    void chooseFile(const FileRequest& request, FileAnswer answer) override {
        FileBrowserOptions options;
        options.saving = request.saving;
        options.title = request.title.c_str();
        options.startDir = request.startFolder.empty() ? nullptr : request.startFolder.c_str();
        options.defaultName = request.defaultName.empty() ? nullptr : request.defaultName.c_str();
        if (openFileBrowser(options))
            pendingAnswer = std::move(answer);
        else
            answer("EMPTY");
    }

protected:
    // The editor follows the engine itself; the host's copy of a parameter tells it nothing new.
    void parameterChanged(uint32_t, float) override {}
    void programLoaded(uint32_t) override { editor->refreshPending.store(1); }
    void stateChanged(const char*, const char*) override { editor->refreshPending.store(1); }

    void uiIdle() override {
        const double now =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
                .count();
        editor->idle(now);
        flush();
    }

    void onCairoDisplay(const CairoGraphicsContext& context) override {
        cairo_t* cr = context.handle;
        if (backbuffer == nullptr) updateBackbuffer(true);
        if (backbuffer == nullptr) return;
        cairo_set_source_surface(cr, backbuffer, 0.0, 0.0);
        cairo_paint(cr);
    }

    bool onMouse(const MouseEvent& ev) override {
        AFFrame* frame = editor->getFrame();
        if (frame == nullptr) return false;
        AFMouseEvent event = translate(ev.pos.getX(), ev.pos.getY(), ev.mod);
        event.button = static_cast<int>(ev.button);
        if (!ev.press) {
            frame->mouseUp(event);
            flush();
            return true;
        }
        event.doubleClick = ev.time - lastPressTime < kDoubleClickMs && ev.button == lastPressButton &&
                            std::fabs(event.x - lastPressX) < kDoubleClickDistance &&
                            std::fabs(event.y - lastPressY) < kDoubleClickDistance;
        // A third press starts counting again.
        lastPressTime = event.doubleClick ? 0 : ev.time;
        lastPressButton = ev.button;
        lastPressX = event.x;
        lastPressY = event.y;
        const bool handled = frame->mouseDown(event);
        flush();
        return handled;
    }

    bool onMotion(const MotionEvent& ev) override {
        AFFrame* frame = editor->getFrame();
        if (frame == nullptr) return false;
        frame->mouseMoved(translate(ev.pos.getX(), ev.pos.getY(), ev.mod));
        flush();
        return true;
    }

    bool onKeyboard(const KeyboardEvent& ev) override {
        if (!ev.press) return false;
        AFKeyEvent event;
        event.key = ev.key;
        event.shift = (ev.mod & kModifierShift) != 0;
        event.command = (ev.mod & kModifierControl) != 0;
        const bool handled = editor->keyDown(event);
        flush();
        return handled;
    }

    void onResize(const ResizeEvent& ev) override {
        UI::onResize(ev);
        if (backbuffer != nullptr) cairo_surface_destroy(backbuffer);
        backbuffer = nullptr;
        repaint();
    }

    void uiFileBrowserSelected(const char* filename) override {
        FileAnswer answer = std::move(pendingAnswer);
        pendingAnswer = nullptr;
        if (answer) answer(filename != nullptr ? filename : "EMPTY");
        flush();
    }

private:
    double scale() const noexcept { return static_cast<double>(getWidth()) / AFLayout::kWidth; }

    AFMouseEvent translate(double x, double y, uint mod) const {
        AFMouseEvent event;
        const double s = scale();
        event.x = x / s;
        event.y = y / s;
        event.shift = (mod & kModifierShift) != 0;
        event.command = (mod & kModifierControl) != 0;
        return event;
    }

    // Draws what changed into the image and asks the window to show that part.
    void flush() {
        AFFrame* frame = editor->getFrame();
        if (frame == nullptr || !frame->isDirty()) return;
        const AFRect dirty = frame->getDirtyRect();
        updateBackbuffer(false);
        const double s = scale();
        const double left = std::max(0.0, std::floor(dirty.left * s));
        const double top = std::max(0.0, std::floor(dirty.top * s));
        repaint(Rectangle<uint>(static_cast<int>(left), static_cast<int>(top),
                                static_cast<uint>(std::ceil(dirty.right * s - left)) + 1,
                                static_cast<uint>(std::ceil(dirty.bottom * s - top)) + 1));
    }

    // The frame is drawn into an image at the window's scale; only its dirty part is drawn again.
    void updateBackbuffer(bool all) {
        AFFrame* frame = editor->getFrame();
        if (frame == nullptr) return;
        if (backbuffer == nullptr) {
            backbuffer = cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(getWidth()),
                                                    static_cast<int>(getHeight()));
            all = true;
        }
        cairo_t* cr = cairo_create(backbuffer);
        cairo_scale(cr, scale(), scale());
        frame->paint(cr, all);
        cairo_destroy(cr);
    }

    AFDPFWrapper* wrapper;
    std::unique_ptr<AFUniClientEditor> editor;
    cairo_surface_t* backbuffer = nullptr;
    FileAnswer pendingAnswer;
    uint lastPressTime = 0;
    uint lastPressButton = 0;
    double lastPressX = 0.0;
    double lastPressY = 0.0;
};

UI* createUI() {
    return new AFDPFEditorUI();
}

END_NAMESPACE_DISTRHO
