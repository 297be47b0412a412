#include "editor/AFMappingEditor.h"

#include "editor/AFEditorHost.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "engine/AFCommandRememberAssignmentChunk.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"
#include "state/AFChunk.h"

#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

constexpr const char* kButtonWords[AFMappingEditor::kButtons] = {"Clear all",  "Load map", "Save map",
                                                                 "Stop learn", "<",        ">"};
constexpr double kListTop = 84.0;
constexpr double kColumnWidth = 588.0;

bool sameBindings(const std::vector<AFMappingEditor::Binding>& a,
                  const std::vector<AFMappingEditor::Binding>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].source != b[i].source || a[i].number != b[i].number || a[i].parameter != b[i].parameter)
            return false;
    return true;
}

// The map as MIDI map files hold it, with the aftertouch list after it, for the undo snapshots.
void writeBindings(const AFMidiBindings& bindings, AFChunk& chunk) {
    const auto body = [&bindings, &chunk] {
        bindings.writeMapBody(chunk);
        const auto& aftertouch = bindings.aftertouch();
        chunk.writeInt(aftertouch.size());
        for (int i = 0; i < aftertouch.size(); ++i)
            chunk.writeInt(aftertouch[i]);
    };
    // Counted first, then written into a chunk of that size.
    chunk.rewindToWrite();
    body();
    chunk.allocateCounted();
    body();
}

bool readBindings(AFMidiBindings& bindings, AFChunk& chunk) {
    auto loaded = std::make_unique<AFMidiBindings>();
    if (!loaded->readMapBody(chunk)) return false;
    const int32_t count = chunk.readInt();
    for (int32_t i = 0; i < count && i < AFMidiBindings::kListCapacity && !chunk.isOverrun(); ++i)
        loaded->addAftertouchBinding(chunk.readInt());
    if (chunk.isOverrun()) return false;
    bindings.replaceMap(*loaded);
    return true;
}

} // namespace

AFMappingEditor::AFMappingEditor(AFUniClientEditor& editor, const AFRect& size)
    : AFControl(size, nullptr, -1), editor(editor), client(editor.getClient()),
      bindings(editor.getClient().getMidiBindings()) {
    shown = collect(bindings);
    learnTarget = bindings.getLearnTarget();
}

std::vector<AFMappingEditor::Binding> AFMappingEditor::collect(const AFMidiBindings& bindings) {
    std::vector<Binding> all;
    for (int cc = 0; cc < AFMidiBindings::kSources; ++cc)
        for (int i = 0; i < bindings.controllers(cc).size(); ++i)
            all.push_back({kController, cc, bindings.controllers(cc)[i]});
    for (int note = 0; note < AFMidiBindings::kSources; ++note)
        for (int i = 0; i < bindings.notes(note).size(); ++i)
            all.push_back({kNote, note, bindings.notes(note)[i]});
    for (int i = 0; i < bindings.aftertouch().size(); ++i)
        all.push_back({kAftertouch, 0, bindings.aftertouch()[i]});
    return all;
}

std::string AFMappingEditor::targetName(int32_t parameter) const {
    char text[96];
    if (parameter >= 0 && parameter < AFUniClient::kHostParameters) {
        client.getParameterName(parameter, text);
        return text;
    }
    if (parameter >= AFUniClient::kAmountStart && parameter < AFUniClient::kAmountEnd) {
        constexpr const char* sources[3] = {"LFO 1", "Envelope", "LFO 2"};
        const int index = parameter - AFUniClient::kAmountStart;
        const int slot = index / KnobEngine::kAmountCount;
        const int amount = index % KnobEngine::kAmountCount;
        std::snprintf(text, sizeof text, "Slot %d %s amount %d", slot + 1, sources[amount / 5],
                      amount % 5 + 1);
        return text;
    }
    if (parameter >= AFUniClient::kTriggerAllRows && parameter < AFUniClient::kTriggerAllRows + 8) {
        std::snprintf(text, sizeof text, "Randomize Dictator row %d",
                      parameter - AFUniClient::kTriggerAllRows + 1);
        return text;
    }
    std::snprintf(text, sizeof text, "#%d", parameter);
    return text;
}

bool AFMappingEditor::editable() {
    if (!bindings.isCcBusy() && !bindings.isLoading()) return true;
    status = "The MIDI table is busy; try again.";
    invalid();
    return false;
}

void AFMappingEditor::rememberBindings(AFUniClient& client) {
    AFMidiBindings& live = client.getMidiBindings();
    client.getHistory().add(std::make_unique<AFCommandRememberAssignmentChunk>(
        client, [&live](AFChunk& chunk) { writeBindings(live, chunk); },
        [&live](AFChunk& chunk) { return readBindings(live, chunk); }));
}

bool AFMappingEditor::clearBinding(const Binding& binding) {
    if (!editable()) return false;
    const std::vector<Binding> all = collect(bindings);
    bool found = false;
    auto kept = std::make_unique<AFMidiBindings>();
    for (const Binding& b : all) {
        if (!found && b.source == binding.source && b.number == binding.number &&
            b.parameter == binding.parameter) {
            found = true;
            continue;
        }
        if (b.source == kController)
            kept->addControllerBinding(b.number, b.parameter);
        else if (b.source == kNote)
            kept->addNoteBinding(b.number, b.parameter);
        else
            kept->addAftertouchBinding(b.parameter);
    }
    if (!found) return false;
    rememberBindings(client);
    bindings.replaceMap(*kept);
    onIdle();
    return true;
}

bool AFMappingEditor::clearAll() {
    if (!editable()) return false;
    rememberBindings(client);
    bindings.clear();
    onIdle();
    return true;
}

bool AFMappingEditor::loadMap(const std::string& path) {
    if (path.empty() || path == "EMPTY" || !editable()) return false;
    rememberBindings(client);
    const bool loaded = bindings.loadMidiMap(path, false);
    if (loaded)
        client.getContentPaths().rememberFolder(AFContentPaths::kCcSavePath,
                                                std::filesystem::path(path).parent_path().string());
    status = loaded ? "Loaded " + std::filesystem::path(path).stem().string() : "";
    onIdle();
    invalid();
    return loaded;
}

bool AFMappingEditor::saveMap(const std::string& path) {
    if (path.empty() || path == "EMPTY") return false;
    std::filesystem::path target(path);
    if (target.extension() != ".afm") target += ".afm";
    const bool saved = bindings.saveMidiMap(target.string());
    if (saved) {
        client.getContentPaths().rememberFolder(AFContentPaths::kCcSavePath, target.parent_path().string());
        status = "Saved " + target.stem().string();
        invalid();
    }
    return saved;
}

AFRect AFMappingEditor::buttonRect(Button button) const {
    const double top = size.top + 8.0;
    switch (button) {
    case kPreviousPage:
        return AFRect::ofSize(size.right - 80.0, size.bottom - 30.0, 30.0, 22.0);
    case kNextPage:
        return AFRect::ofSize(size.right - 44.0, size.bottom - 30.0, 30.0, 22.0);
    default:
        return AFRect::ofSize(size.right - 16.0 - (kStopLearn + 1 - button) * 100.0, top, 92.0, 24.0);
    }
}

int AFMappingEditor::pageCount() const noexcept {
    constexpr int kLines = kRowsPerColumn * kColumns;
    return (static_cast<int>(shown.size()) + kLines - 1) / kLines;
}

AFRect AFMappingEditor::lineRect(int index) const {
    const int column = index / kRowsPerColumn;
    const int row = index % kRowsPerColumn;
    return AFRect::ofSize(size.left + 12.0 + column * (kColumnWidth + 12.0),
                          size.top + kListTop + row * kRowHeight, kColumnWidth, kRowHeight);
}

AFRect AFMappingEditor::clearRect(int index) const {
    const AFRect line = lineRect(index);
    return AFRect::ofSize(line.right - 22.0, line.top + 2.0, 20.0, kRowHeight - 4.0);
}

void AFMappingEditor::press(Button button) {
    AFEditorHost::FileRequest request;
    request.startFolder = client.getContentPaths().ccSavePath();
    switch (button) {
    case kClearAll:
        clearAll();
        break;
    case kLoadMap:
        request.title = "Load MIDI Map";
        editor.getHost().chooseFile(request, [this](const std::string& path) { loadMap(path); });
        break;
    case kSaveMap:
        request.saving = true;
        request.title = "Save MIDI Map";
        request.defaultName = "MIDI Map";
        editor.getHost().chooseFile(request, [this](const std::string& path) { saveMap(path); });
        break;
    case kStopLearn:
        client.setLearnTarget(AFMidiBindings::kNoTarget);
        onIdle();
        break;
    case kPreviousPage:
        if (page > 0) --page, invalid();
        break;
    case kNextPage:
        if (page + 1 < pageCount()) ++page, invalid();
        break;
    default:
        break;
    }
}

bool AFMappingEditor::onMouseDown(const AFMouseEvent& event) {
    if (!size.contains(event.x, event.y)) return false;
    pressed = -1;
    for (int b = 0; b < kButtons; ++b)
        if (buttonRect(static_cast<Button>(b)).contains(event.x, event.y)) pressed = b;
    if (pressed >= 0) return true;
    const int first = page * kRowsPerColumn * kColumns;
    for (int i = 0; i < kRowsPerColumn * kColumns && first + i < static_cast<int>(shown.size()); ++i)
        if (clearRect(i).contains(event.x, event.y)) {
            clearBinding(shown[static_cast<std::size_t>(first + i)]);
            break;
        }
    return true;
}

void AFMappingEditor::onMouseUp(const AFMouseEvent& event) {
    const int button = pressed;
    pressed = -1;
    if (button >= 0 && buttonRect(static_cast<Button>(button)).contains(event.x, event.y))
        press(static_cast<Button>(button));
}

void AFMappingEditor::onIdle() {
    const bool nowBusy = bindings.isCcBusy() || bindings.isLoading();
    const int target = bindings.getLearnTarget();
    std::vector<Binding> now = nowBusy ? shown : collect(bindings);
    if (nowBusy == busy && target == learnTarget && sameBindings(now, shown)) return;
    busy = nowBusy;
    learnTarget = target;
    shown = std::move(now);
    const int pages = pageCount();
    if (page >= pages) page = pages > 0 ? pages - 1 : 0;
    invalid();
}

void AFMappingEditor::draw(cairo_t* cr) {
    using L = AFLayout;
    using P = AFTextPainter;
    P::fill(cr, size, L::kStage);
    P::draw(cr, "MIDI MAPPING", AFRect::ofSize(16.0, size.top + 8.0, 200.0, 24.0), 15.0, L::kAccent, P::kLeft,
            true);

    const int pages = pageCount();
    for (int b = 0; b < kButtons; ++b) {
        const auto button = static_cast<Button>(b);
        if (button >= kPreviousPage && pages < 2) continue;
        const bool enabled = (button != kStopLearn || learnTarget >= 0) && (!busy || button > kStopLearn);
        const AFRect box = buttonRect(button);
        P::roundedRect(cr, box.inset(0.5, 0.5), 4.0);
        P::setColour(cr, pressed == b ? 0x3A4150 : 0x262B36);
        cairo_fill(cr);
        P::draw(cr, kButtonWords[b], box, 11.0, enabled ? L::kText : 0x5A6170, P::kCenter, true);
    }

    char line[160];
    if (learnTarget >= 0)
        std::snprintf(line, sizeof line, "Learning: move a controller, press a key or use aftertouch for %s",
                      targetName(learnTarget).c_str());
    else
        std::snprintf(line, sizeof line, "%zu binding%s. Right click a knob and choose \"Learn\" to add one.",
                      shown.size(), shown.size() == 1 ? "" : "s");
    P::draw(cr, line, AFRect::ofSize(16.0, size.top + 38.0, 760.0, 18.0), 12.0,
            learnTarget >= 0 ? L::kAccent : L::kDimText, P::kLeft, learnTarget >= 0);
    const std::string right = busy ? "MIDI table busy" : status;
    P::draw(cr, right.c_str(), AFRect::ofSize(size.right - 420.0, size.top + 38.0, 404.0, 18.0), 12.0,
            busy ? 0xE5484D : L::kDimText, P::kRight);

    for (int column = 0; column < kColumns; ++column) {
        const AFRect head = lineRect(column * kRowsPerColumn);
        const double y = head.top - kRowHeight - 2.0;
        const double x = head.left;
        P::draw(cr, "SOURCE", AFRect::ofSize(x + 4.0, y, 90.0, kRowHeight), 10.0, L::kDimText, P::kLeft,
                true);
        P::draw(cr, "NAME", AFRect::ofSize(x + 134.0, y, 110.0, kRowHeight), 10.0, L::kDimText, P::kLeft,
                true);
        P::draw(cr, "CHANNEL", AFRect::ofSize(x + 250.0, y, 60.0, kRowHeight), 10.0, L::kDimText, P::kLeft,
                true);
        P::draw(cr, "TARGET", AFRect::ofSize(x + 316.0, y, 200.0, kRowHeight), 10.0, L::kDimText, P::kLeft,
                true);
    }
    const int first = page * kRowsPerColumn * kColumns;
    for (int i = 0; i < kRowsPerColumn * kColumns && first + i < static_cast<int>(shown.size()); ++i) {
        const Binding& b = shown[static_cast<std::size_t>(first + i)];
        const AFRect row = lineRect(i);
        P::setColour(cr, i % 2 == 0 ? 0x1A1D25 : 0x15181F);
        cairo_rectangle(cr, row.left, row.top, row.width(), row.height());
        cairo_fill(cr);
        const char* name = "";
        if (b.source == kController) {
            std::snprintf(line, sizeof line, "CC %d", b.number);
            name = AFMidiBindings::controllerName(b.number);
        } else if (b.source == kNote) {
            constexpr const char* pitches[12] = {"C",  "C#", "D",  "D#", "E",  "F",
                                                 "F#", "G",  "G#", "A",  "A#", "B"};
            std::snprintf(line, sizeof line, "Note %d", b.number);
            name = pitches[b.number % 12];
        } else {
            std::snprintf(line, sizeof line, "%s", AFMidiBindings::otherSourceName(0));
        }
        const uint32_t colour = AFLayout::kText;
        P::draw(cr, line, AFRect::ofSize(row.left + 4.0, row.top, 126.0, kRowHeight), 11.0, colour, P::kLeft,
                true);
        if (b.source == kNote) {
            // Middle C (note 60) is C3, as the factory maps name their pads.
            std::snprintf(line, sizeof line, "%s%d", name, b.number / 12 - 2);
            name = line;
        }
        P::draw(cr, name, AFRect::ofSize(row.left + 134.0, row.top, 110.0, kRowHeight), 11.0, colour,
                P::kLeft);
        P::draw(cr, "all", AFRect::ofSize(row.left + 250.0, row.top, 60.0, kRowHeight), 11.0, L::kDimText,
                P::kLeft);
        P::draw(cr, targetName(b.parameter).c_str(),
                AFRect::ofSize(row.left + 316.0, row.top, 240.0, kRowHeight), 11.0, L::kAccent, P::kLeft);
        const AFRect clear = clearRect(i);
        P::roundedRect(cr, clear, 3.0);
        P::setColour(cr, 0x3A2226);
        cairo_fill(cr);
        P::draw(cr, "x", clear, 11.0, 0xE5484D, P::kCenter, true);
    }
    if (pages > 1) {
        std::snprintf(line, sizeof line, "page %d of %d", page + 1, pages);
        P::draw(cr, line, AFRect::ofSize(size.right - 200.0, size.bottom - 30.0, 112.0, 22.0), 11.0,
                L::kDimText, P::kRight);
    }
}
