#pragma once

#include "editor/AFControl.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

class AFMidiBindings;
class AFUniClient;
class AFUniClientEditor;

// The MIDI page: every binding as a line (source, number and name, channel, the parameter it drives) with a
// button that clears that one binding, and buttons that clear all, load and save a MIDI map and stop a learn
// that waits. Edits are refused while the controller table is busy or a map is being replaced, and each one
// is an undo step. GUI thread.
class AFMappingEditor : public AFControl {
public:
    enum Source : int { kController, kNote, kAftertouch };
    enum Button : int { kClearAll, kLoadMap, kSaveMap, kStopLearn, kPreviousPage, kNextPage, kButtons };
    struct Binding {
        Source source;
        int number;
        int32_t parameter;
    };
    static constexpr double kRowHeight = 18.0;
    static constexpr int kRowsPerColumn = 27;
    static constexpr int kColumns = 2;

    AFMappingEditor(AFUniClientEditor& editor, const AFRect& size);

    // The bindings as the engine holds them now, controllers first, then notes, then aftertouch.
    static std::vector<Binding> collect(const AFMidiBindings& bindings);
    // What a parameter index drives, in words.
    std::string targetName(int32_t parameter) const;
    const std::vector<Binding>& getBindings() const noexcept { return shown; }

    // Editor thread: one undo step for the client's bindings, taken before a learn, a clear or a load.
    static void rememberBindings(AFUniClient& client);

    // Each false when the table is busy or the edit did not get through.
    bool clearBinding(const Binding& binding);
    bool clearAll();
    bool loadMap(const std::string& path);
    bool saveMap(const std::string& path);

    AFRect buttonRect(Button button) const;
    // The clear button of line `index` of the list, counting from the first line on the page shown.
    AFRect clearRect(int index) const;

    bool onMouseDown(const AFMouseEvent& event) override;
    void onMouseUp(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;
    void onIdle() override;

private:
    bool editable();
    void press(Button button);
    AFRect lineRect(int index) const;
    int pageCount() const noexcept;

    AFUniClientEditor& editor;
    AFUniClient& client;
    AFMidiBindings& bindings;
    std::vector<Binding> shown;
    int learnTarget = -1;
    bool busy = false;
    int page = 0;
    int pressed = -1;
    std::string status;
};
