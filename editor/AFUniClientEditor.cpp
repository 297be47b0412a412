#include "editor/AFUniClientEditor.h"

#include "editor/A2ModulatableKnob.h"
#include "editor/A2ValueDisplay.h"
#include "editor/AFBitmapId.h"
#include "editor/AFEditorHost.h"
#include "editor/AFFader.h"
#include "editor/AFFrame.h"
#include "editor/AFKickButton.h"
#include "editor/AFLayout.h"
#include "editor/AFMappingEditor.h"
#include "editor/AFPresetMenu.h"
#include "editor/AFRequestServer.h"
#include "editor/AFTextPainter.h"
#include "editor/AboutView.h"
#include "editor/DWFader.h"
#include "editor/DictatorFader.h"
#include "editor/DictatorView.h"
#include "editor/EditView.h"
#include "editor/ModulatorView.h"
#include "editor/MonsterView.h"
#include "editor/SettingsView.h"
#include "editor/ValDisp.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFCommandAttribute.h"
#include "engine/AFCommandRememberChunk.h"
#include "modulation/ControlCurveBank.h"
#include "state/AFMessageSink.h"

#include <cstdio>
#include <filesystem>

namespace {

void editorMessage(void* user, const char* text) {
    static_cast<AFUniClientEditor*>(user)->showMessage(text);
}

// The folder of a chosen file, with the file dialog's "no choice" as "".
std::string chosenFolder(const std::string& path) {
    if (path.empty() || path == "EMPTY") return {};
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return path;
    return std::filesystem::path(path).parent_path().string();
}

} // namespace

AFUniClientEditor::AFUniClientEditor(AFUniClient& client, AFEditorHost& host) : client(client), host(host) {}

AFUniClientEditor::~AFUniClientEditor() {
    close();
}

bool AFUniClientEditor::isParameter(int tag) noexcept {
    return (tag >= 0 && tag < AFUniClient::kHostParameters) ||
           (tag >= AFUniClient::kAmountStart && tag < AFUniClient::kAmountEnd);
}

float* AFUniClientEditor::valuePointer(int index) {
    if (!isParameter(index)) return nullptr;
    values[static_cast<std::size_t>(index)] = client.getParameter(index);
    return &values[static_cast<std::size_t>(index)];
}

bool AFUniClientEditor::open() {
    if (!bitmapsLoaded) bitmapsLoaded = bitmaps.load();
    build();
    openFlag.store(1);
    client.getMessageSink().setHandler(editorMessage, this);
    showPresetName();
    return bitmapsLoaded;
}

void AFUniClientEditor::close() {
    if (openFlag.exchange(0) == 0 && frame == nullptr) return;
    client.getMessageSink().setHandler(nullptr, nullptr);
    timer.stop();
    editViews.fill(nullptr);
    learnMenu = curveMenu = nullptr;
    globalPresetMenu = nullptr;
    messageDisplay = nullptr;
    undoButton = redoButton = nullptr;
    positionDisplay = nullptr;
    modulatorView = nullptr;
    monsterView = nullptr;
    frame.reset();
}

void AFUniClientEditor::build() {
    using B = AFBitmapId;
    using L = AFLayout;
    frame = std::make_unique<AFFrame>(L::kWidth, L::kHeight, bitmaps.get(B::kBackground));

    auto learn = std::make_unique<AFOptionMenu>(AFRect::ofSize(0.0, 0.0, 1.0, 1.0), this, kTagLearn);
    learn->addEntry("Learn");
    learn->addEntry("Clear");
    learn->setExtraCallBack(this);
    learn->setVisible(false);
    auto curves = std::make_unique<AFOptionMenu>(AFRect::ofSize(0.0, 0.0, 1.0, 1.0), this, kTagCurveMenu);
    for (int i = 0; i < ControlCurveBank::kCurveCount; ++i)
        curves->addEntry(ControlCurveBank::curveName(i));
    curves->setVisible(false);
    learnMenu = frame->addView(std::move(learn));
    curveMenu = frame->addView(std::move(curves));

    frame->addView(std::make_unique<AFControl>(AFRect::ofSize(14.0, 12.0, 150.0, 40.0), nullptr, -1,
                                               bitmaps.get(B::kLogo)));
    auto presets = std::make_unique<AFPresetMenu>(AFRect::ofSize(170.0, 8.0, 260.0, 24.0), this,
                                                  kTagGlobalPreset, "afog");
    presets->setFaceColour(0x07080B);
    globalPresetMenu = frame->addView(std::move(presets));
    messageDisplay = frame->addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(172.0, 36.0, 500.0, 20.0),
                                                                     11.0, L::kAccent, AFTextPainter::kLeft));
    undoButton = frame->addView(std::make_unique<AFKickButton>(AFRect::ofSize(440.0, 8.0, 50.0, 24.0), this,
                                                               kTagUndo, bitmaps.get(B::kUndoButton)));
    redoButton = frame->addView(std::make_unique<AFKickButton>(AFRect::ofSize(494.0, 8.0, 50.0, 24.0), this,
                                                               kTagRedo, bitmaps.get(B::kRedoButton)));
    frame->addView(std::make_unique<AFKickButton>(AFRect::ofSize(554.0, 8.0, 90.0, 24.0), this, kTagRandomize,
                                                  bitmaps.get(B::kRandomizeButton)));
    frame->addView(std::make_unique<AFKickButton>(AFRect::ofSize(650.0, 8.0, 26.0, 24.0), this, kTagManual,
                                                  bitmaps.get(B::kManualButton)));

    frame
        ->addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(700.0, 4.0, 160.0, 16.0), 11.0, L::kAccent,
                                                   AFTextPainter::kLeft, true))
        ->setText("DICTATOR");
    frame->addView(std::make_unique<DictatorFader>(
        AFRect::ofSize(700.0, 24.0, L::kFaderWidth, L::kFaderHeight), this, AFUniClient::kDictator,
        bitmaps.get(B::kDictatorTrack), bitmaps.get(B::kDictatorHandle),
        valuePointer(AFUniClient::kDictator)));
    positionDisplay = frame->addView(std::make_unique<ValDisp>(AFRect::ofSize(830.0, 4.0, 30.0, 16.0), 11.0,
                                                               L::kAccent, AFTextPainter::kRight, true));
    frame
        ->addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(900.0, 4.0, 160.0, 16.0), 11.0, 0x7FD4FF,
                                                   AFTextPainter::kLeft, true))
        ->setText("MASTER DRY/WET");
    frame->addView(std::make_unique<DWFader>(
        AFRect::ofSize(900.0, 24.0, L::kFaderWidth, L::kFaderHeight), this, AFUniClient::kDryWet,
        bitmaps.get(B::kDryWetTrack), bitmaps.get(B::kDryWetHandle), valuePointer(AFUniClient::kDryWet)));
    for (std::size_t i = 0; i < frame->getNbViews(); ++i)
        if (auto* fader = dynamic_cast<AFFader*>(frame->getView(i))) fader->setMenu(learnMenu);

    auto monster = std::make_unique<MonsterView>();
    auto strips = std::make_unique<AFViewContainer>(MonsterView::pageRect());
    for (int slot = 0; slot < AFUniClient::kSlots; ++slot)
        editViews[static_cast<std::size_t>(slot)] = strips->addView(std::make_unique<EditView>(*this, slot));
    monster->addPage("main", std::move(strips));
    auto modulators = std::make_unique<ModulatorView>(*this, MonsterView::pageRect());
    modulatorView = modulators.get();
    monster->addPage("modulators", std::move(modulators));
    monster->addPage("dictator", std::make_unique<DictatorView>(*this, MonsterView::pageRect()));
    monster->addPage("midi", std::make_unique<AFMappingEditor>(*this, MonsterView::pageRect()));
    monster->addPage("settings", std::make_unique<SettingsView>(client, MonsterView::pageRect()));
    monster->addPage("about", std::make_unique<AboutView>(MonsterView::pageRect()));
    monsterView = frame->addView(std::move(monster));
    // The shared menus go last so that they pop up above the strips.
    frame->invalidRect(frame->getViewSize());
}

void AFUniClientEditor::selectSlot(int slot) {
    if (slot < 0 || slot >= AFUniClient::kSlots) return;
    selectedSlot = slot;
    if (modulatorView != nullptr) modulatorView->bindSlot(slot);
}

bool AFUniClientEditor::showPage(const std::string& name) {
    return monsterView != nullptr && monsterView->showPage(name);
}

void AFUniClientEditor::idle(double nowMs) {
    timer.poll(nowMs);
    if (frame == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(messageMutex);
        if (messageWaiting) {
            shownMessage = pendingMessage;
            messageWaiting = false;
            if (messageDisplay != nullptr) messageDisplay->setText(shownMessage);
        }
    }
    undoButton->setEnabled(client.canUndo());
    redoButton->setEnabled(client.canRedo());
    positionDisplay->setNumber(client.getDictatorPosition());
    for (int i = 0; i < static_cast<int>(frame->getNbViews()); ++i)
        if (auto* fader = dynamic_cast<AFFader*>(frame->getView(static_cast<std::size_t>(i))))
            followParameter(fader);
    frame->idle();
}

void AFUniClientEditor::followParameter(AFControl* control) {
    const int tag = control->getTag();
    if (!isParameter(tag) || tag == gestureTag) return;
    const float now = client.getParameter(tag);
    float& shown = values[static_cast<std::size_t>(tag)];
    if (shown == now) return;
    shown = now;
    control->invalid();
}

bool AFUniClientEditor::keyDown(const AFKeyEvent& event) {
    if (frame != nullptr && frame->keyDown(event)) return true;
    if (!event.command || (event.key != 'z' && event.key != 'Z')) return false;
    if (event.shift)
        redo();
    else
        undo();
    return true;
}

bool AFUniClientEditor::undo() {
    if (!client.canUndo()) return false;
    client.undo();
    refreshAll();
    return true;
}

bool AFUniClientEditor::redo() {
    if (!client.canRedo()) return false;
    client.redo();
    refreshAll();
    return true;
}

void AFUniClientEditor::refreshAll() {
    if (frame == nullptr) return;
    for (EditView* view : editViews)
        view->refresh();
    if (modulatorView != nullptr) modulatorView->bindSlot(selectedSlot);
    showPresetName();
    frame->invalidRect(frame->getViewSize());
}

void AFUniClientEditor::showPresetName() {
    if (globalPresetMenu == nullptr) return;
    globalPresetMenu->setFolder(client.getContentPaths().presetPath(0));
    const std::string& name = client.getGlobalPresetName();
    globalPresetMenu->setLabel(name.empty() ? "Default" : name);
    globalPresetMenu->invalid();
}

void AFUniClientEditor::showMessage(const std::string& text) {
    std::lock_guard<std::mutex> lock(messageMutex);
    pendingMessage = text;
    messageWaiting = true;
}

std::string AFUniClientEditor::manualPath() const {
    std::string folder;
    client.getSettings().read(AFContentPaths::kInstallPath, folder);
    char path[4096];
    std::snprintf(path, sizeof path, "%s%s",
                  (folder.empty() || folder.back() == '/' ? folder : folder + "/").c_str(), kManualFile);
    return path;
}

bool AFUniClientEditor::openManual() {
    return host.openDocument(manualPath());
}

void AFUniClientEditor::timerFired(AFGuiTimer*) {
    // A state load on another thread holds this turn throughout: no snapshot or randomize lands inside it.
    const AFAudioGate::Reader turn(client.getAudioGate());
    const bool randomize = client.takeRandomizeRequest();
    if (randomize) snapshotPending.store(1);
    if (client.takeProgramChangeRequest()) programPending.store(1);
    if (snapshotPending.exchange(0) != 0) {
        AFRequestServer::pushSnapshot(client);
        if (randomize) {
            AFRequestServer::randomize(client);
            refreshAll();
        }
        if (isOpen() && frame != nullptr) showPresetName();
    }
    if (programPending.exchange(0) != 0) {
        if (AFRequestServer::programChange(client) && frame != nullptr) refreshAll();
    }
    if (refreshPending.exchange(0) != 0) {
        if (isOpen() && frame != nullptr) showPresetName();
    }
    // The modulator page follows the engine only while the frame shows it.
    if (modulatorView != nullptr && modulatorView->isVisible() && modulatorView->getFrame() != nullptr)
        modulatorView->followEngine();
}

void AFUniClientEditor::beginEdit(int tag) {
    if (!isParameter(tag)) return;
    gestureTag = tag;
    client.beginEdit(tag);
    // The gesture's first value is its old value: the value before the control moves.
    client.setParameterAutomated(tag, client.getParameter(tag));
    if (tag < AFUniClient::kHostParameters) host.beginEdit(tag);
}

void AFUniClientEditor::endEdit(int tag) {
    if (!isParameter(tag)) return;
    client.endEdit(tag);
    if (tag < AFUniClient::kHostParameters) host.endEdit(tag);
    gestureTag = -1;
}

void AFUniClientEditor::menuWillOpen(AFOptionMenu* menu, int callerTag) {
    if (menu != learnMenu) return;
    const int cc = client.getMidiBindings().controllerFor(callerTag);
    char text[32];
    if (cc >= 0)
        std::snprintf(text, sizeof text, "Clear (CC: %d)", cc);
    else
        std::snprintf(text, sizeof text, "Clear");
    menu->setEntry(1, text);
}

void AFUniClientEditor::editAttribute(int slot, int id, int subIndex, float newValue) {
    const float old = AFCommandAttribute::current(client, slot, id, subIndex);
    if (old == newValue) return;
    client.getHistory().add(std::make_unique<AFCommandAttribute>(slot, id, old, newValue, subIndex));
    AFCommandAttribute::apply(client, slot, id, subIndex, newValue);
}

void AFUniClientEditor::valueChanged(AFControl* control) {
    const int tag = control->getTag();
    if (isParameter(tag)) {
        const float value = control->getValue();
        client.setParameterAutomated(tag, value);
        if (tag < AFUniClient::kHostParameters) host.automate(tag, value);
        return;
    }
    const auto menuValue = [control] { return static_cast<int>(control->getValue()); };
    if (tag == kTagLearn) {
        auto* menu = static_cast<AFOptionMenu*>(control);
        AFMappingEditor::rememberBindings(client);
        if (menuValue() == 0)
            client.setLearnTarget(menu->getCallerTag());
        else if (!client.getMidiBindings().removeParameter(menu->getCallerTag()))
            showMessage("The audio did not pause for the MIDI bindings; the binding stays. Try again.");
        return;
    }
    if (tag == kTagCurveMenu) {
        const int target = static_cast<AFOptionMenu*>(control)->getCallerTag() - kTagCurve;
        if (target < 0 || target >= AFUniClient::kSlots * 5) return;
        editAttribute(target / 5, AFCommandAttribute::kParameterCurve, target % 5,
                      static_cast<float>(menuValue()));
        return;
    }
    if (tag >= kTagEffect && tag < kTagEffect + AFUniClient::kSlots) {
        const int slot = tag - kTagEffect;
        client.changeSlotEffect(slot, EffectFactory::menuTypeId(menuValue()));
        editViews[static_cast<std::size_t>(slot)]->refresh();
        return;
    }
    if (tag >= kTagOption && tag < kTagOption + AFUniClient::kSlots * 4) {
        const int index = tag - kTagOption;
        editAttribute(index / 4, AFCommandAttribute::kEffectOption, index % 4,
                      static_cast<float>(menuValue()));
        return;
    }
    if (tag >= kTagMixLaw && tag < kTagMixLaw + AFUniClient::kSlots) {
        editAttribute(tag - kTagMixLaw, AFCommandAttribute::kMixLaw, 0, static_cast<float>(menuValue()));
        return;
    }
    if (tag >= kTagQuantise && tag < kTagQuantise + AFUniClient::kSlots) {
        editAttribute(tag - kTagQuantise, AFCommandAttribute::kQuantiseMode, 0,
                      static_cast<float>(menuValue()));
        return;
    }
    if (tag >= kTagSlotPreset && tag < kTagSlotPreset + AFUniClient::kSlots) {
        presetCommand(static_cast<AFPresetMenu*>(control), tag - kTagSlotPreset);
        return;
    }
    switch (tag) {
    case kTagGlobalPreset:
        presetCommand(static_cast<AFPresetMenu*>(control), -1);
        break;
    case kTagUndo:
        undo();
        break;
    case kTagRedo:
        redo();
        break;
    case kTagRandomize:
        // A rising edge through 0.5 raises the request; the timer carries it out.
        client.setParameter(AFUniClient::kRandomize, 1.0f);
        client.setParameter(AFUniClient::kRandomize, 0.0f);
        break;
    case kTagManual:
        openManual();
        break;
    default:
        break;
    }
}

void AFUniClientEditor::presetCommand(AFPresetMenu* menu, int slot) {
    const int choice = menu->getCurrent();
    const std::string effectName =
        slot >= 0 ? std::string(EffectFactory::effectName(client.getSlot(slot).getEffectType()))
                  : std::string();
    AFSettingsStore& settings = client.getSettings();
    const std::string listKey =
        slot >= 0 ? AFContentPaths::kPresetPath + effectName : AFContentPaths::kGlobalPresetPath;
    const std::string saveKey =
        slot >= 0 ? AFContentPaths::kPresetSavePath + effectName : AFContentPaths::kGlobalPresetSavePath;
    const auto load = [this, slot](const std::string& path) {
        if (path.empty() || path == "EMPTY") return;
        client.getHistory().add(std::make_unique<AFCommandRememberChunk>(client, slot));
        client.loadPreset(path, slot, false);
        refreshAll();
    };
    AFEditorHost::FileRequest request;
    switch (choice) {
    case AFPresetMenu::kSelectFolder:
        request.title = "Select Folder";
        request.startFolder = menu->getFolder();
        host.chooseFile(request, [this, menu, listKey, slot](const std::string& path) {
            const std::string folder = chosenFolder(path);
            if (folder.empty()) return;
            client.getSettings().write(listKey, folder);
            client.getSettings().flush();
            menu->setFolder(folder);
            if (slot < 0) client.rescanPresetBank(folder);
        });
        break;
    case AFPresetMenu::kSavePreset: {
        request.saving = true;
        request.title = "Save Preset";
        settings.read(saveKey, request.startFolder);
        request.defaultName = slot >= 0 ? client.getPresetName(slot) : client.getGlobalPresetName();
        const std::string extension = slot >= 0 ? ".afo" : ".afog";
        host.chooseFile(request, [this, slot, saveKey, extension](const std::string& path) {
            if (path.empty() || path == "EMPTY") return;
            std::string target = path;
            if (std::filesystem::path(target).extension() != extension) target += extension;
            if (client.savePreset(target, slot)) {
                client.getSettings().write(saveKey, chosenFolder(target));
                client.getSettings().flush();
            }
            refreshAll();
        });
        break;
    }
    case AFPresetMenu::kLoadPreset:
        request.title = "Load Preset";
        request.startFolder = menu->getFolder();
        host.chooseFile(request, load);
        break;
    default:
        load(menu->filePath(choice));
        break;
    }
}
