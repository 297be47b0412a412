#pragma once

#include "editor/AFEditorHost.h"
#include "editor/AFMouseEvent.h"
#include "editor/AFRect.h"

#include <string>
#include <vector>

// What the display-free editor tests share: mouse records as the window delivers them, and a host that
// answers file requests from a script and records its side of the gestures.
namespace editortest {

inline AFMouseEvent press(double x, double y, int button = AFMouseEvent::kLeft, bool doubleClick = false,
                          bool shift = false) {
    AFMouseEvent event;
    event.x = x;
    event.y = y;
    event.button = button;
    event.doubleClick = doubleClick;
    event.shift = shift;
    return event;
}

inline double midX(const AFRect& r) {
    return (r.left + r.right) * 0.5;
}
inline double midY(const AFRect& r) {
    return (r.top + r.bottom) * 0.5;
}

// File requests take the scripted answers in turn, then "EMPTY" (no choice).
struct ScriptedHost : AFEditorHost {
    std::vector<std::string> answers;
    std::vector<std::string> gestures;
    void beginEdit(int index) override { gestures.push_back("begin " + std::to_string(index)); }
    void automate(int index, float) override { gestures.push_back("automate " + std::to_string(index)); }
    void endEdit(int index) override { gestures.push_back("end " + std::to_string(index)); }
    void chooseFile(const FileRequest&, FileAnswer answer) override {
        const std::string path = answers.empty() ? "EMPTY" : answers.front();
        if (!answers.empty()) answers.erase(answers.begin());
        answer(path);
    }
};

} // namespace editortest
