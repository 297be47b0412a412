#include "editor/GlideEdit.h"

#include "editor/AFEditorHost.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFUniClientEditor.h"
#include "engine/AFCommandStepSeq.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "modulation/AFStepPatternFile.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

constexpr const char* kWords[] = {"default", "standart", "save", "new preset"};

} // namespace

GlideEdit::GlideEdit(AFUniClientEditor& editor, const AFRect& size, bool secondLfo)
    : AFViewContainer(size), editor(editor), secondLfo(secondLfo) {
    menu = addView(std::make_unique<AFOptionMenu>(size, this, kTagMenu));
    menu->setExtraCallBack(this);
    menu->setFaceColour(0x0A0B0F);
    rebuild();
    setPatternName("default", {});
}

void GlideEdit::bindSlot(int newSlot) {
    if (newSlot == slot) return;
    slot = newSlot;
    setPatternName("default", {});
}

void GlideEdit::setPatternName(const std::string& name, const std::string& path) {
    patternName = name;
    patternPath = path;
    menu->setLabel("Pattern: " + name);
    menu->invalid();
}

void GlideEdit::rebuild() {
    folder = editor.getClient().getContentPaths().stepSequencerFolder();
    menu->removeAllEntry();
    for (const char* word : kWords)
        menu->addEntry(word);
    menu->addEntry(AFStepPatternFile::kFolderWord, -1, AFOptionMenu::kTitle);
    std::vector<std::string> names;
    std::error_code error;
    const std::string suffix = AFStepPatternFile::kSuffix;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        const std::filesystem::path& path = it->path();
        if (path.extension() == suffix && it->is_regular_file(error)) names.push_back(path.stem().string());
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        menu->addEntry(name);
    menu->setCurrent(kTitle);
}

std::string GlideEdit::filePath(int index) const {
    if (index < kFirstFile || index >= menu->getNbEntries()) return {};
    return (std::filesystem::path(folder) / (menu->getEntry(index) + AFStepPatternFile::kSuffix)).string();
}

void GlideEdit::menuWillOpen(AFOptionMenu*, int) {
    rebuild();
}

template <typename Edit>
void GlideEdit::editPattern(Edit edit) {
    AFUniClient& client = editor.getClient();
    AFLfo& lfo = *client.getSlot(slot).getLfo(secondLfo ? 1 : 0);
    client.getHistory().add(std::make_unique<AFCommandStepSeq>(client, slot, secondLfo ? 1 : 0));
    edit(lfo);
}

void GlideEdit::loadFile(const std::string& path) {
    // A file that does not read leaves the pattern, and the history, as they were.
    AFGlideTable table;
    if (!AFStepPatternFile::load(path, table)) return;
    editPattern([&table](AFLfo& lfo) { AFStepPatternFile::applyToLfo(table, lfo); });
    setPatternName(std::filesystem::path(path).stem().string(), path);
}

void GlideEdit::saveTo(const std::string& path) {
    AFUniClient& client = editor.getClient();
    AFGlideTable table;
    AFStepPatternFile::takeFromLfo(*client.getSlot(slot).getLfo(secondLfo ? 1 : 0), table);
    if (AFStepPatternFile::save(path, table, &client.getSystemInfo()))
        setPatternName(std::filesystem::path(path).stem().string(), path);
}

void GlideEdit::askAndSave() {
    AFEditorHost::FileRequest request;
    request.saving = true;
    request.title = "Save Pattern";
    request.startFolder = folder;
    request.defaultName = patternName;
    editor.getHost().chooseFile(request, [this](const std::string& path) {
        if (path.empty() || path == "EMPTY") return;
        std::string target = path;
        if (std::filesystem::path(target).extension() != AFStepPatternFile::kSuffix)
            target += AFStepPatternFile::kSuffix;
        saveTo(target);
    });
}

void GlideEdit::valueChanged(AFControl* control) {
    if (control != menu) return;
    const int choice = menu->getCurrent();
    menu->setCurrent(kTitle);
    switch (choice) {
    case kDefault:
        // The pattern a new LFO has: one step at half height.
        editPattern([](AFLfo& lfo) {
            for (int i = 0; i < AFLfo::kStepCount; ++i)
                lfo.setStep(i, i == 2 ? 0.5f : 0.0f);
        });
        setPatternName("default", {});
        break;
    case kStandart:
        // A rising staircase over the bar, the plainest pattern to start from.
        editPattern([](AFLfo& lfo) {
            for (int i = 0; i < AFLfo::kStepCount; ++i)
                lfo.setStep(i, static_cast<float>(i) / (AFLfo::kStepCount - 1));
        });
        setPatternName("standart", {});
        break;
    case kSave:
        if (patternPath.empty())
            askAndSave();
        else
            saveTo(patternPath);
        break;
    case kNewPreset:
        askAndSave();
        break;
    default:
        if (const std::string path = filePath(choice); !path.empty()) loadFile(path);
        break;
    }
}
