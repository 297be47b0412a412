#include "editor/DictatorView.h"

#include "editor/A2ValueDisplay.h"
#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFPresetMenu.h"
#include "editor/AFTextButton.h"
#include "editor/AFTextPainter.h"
#include "editor/AFUniClientEditor.h"
#include "editor/KeyFrameHandlerView.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFCommandAttribute.h"
#include "engine/AFCommandRememberDictatorChunk.h"

#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

bool sameNodes(const AFDictator::Node& a, const AFDictator::Node& b) {
    return a.value == b.value && a.set == b.set && a.hold == b.hold && a.last == b.last;
}

} // namespace

DictatorView::DictatorView(AFUniClientEditor& editor, const AFRect& size)
    : AFViewContainer(size), editor(editor), client(editor.getClient()) {
    using L = AFLayout;
    const double top = size.top;
    addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(16.0, top + 8.0, 160.0, 24.0), 15.0, L::kAccent,
                                             AFTextPainter::kLeft, true))
        ->setText("DICTATOR");
    auto menu = std::make_unique<AFPresetMenu>(AFRect::ofSize(150.0, top + 8.0, 260.0, 24.0), this,
                                               kTagPreset, "dic");
    menu->setFaceColour(0x07080B);
    presetMenu = addView(std::move(menu));
    recordButton = addView(std::make_unique<AFTextButton>(AFRect::ofSize(430.0, top + 8.0, 80.0, 24.0), this,
                                                          kTagRecord, "Record", AFTextButton::kToggle));
    recordButton->setLitColour(0xE5484D);
    lockButton = addView(std::make_unique<AFTextButton>(AFRect::ofSize(518.0, top + 8.0, 80.0, 24.0), this,
                                                        kTagLock, "Lock", AFTextButton::kToggle));
    readout = addView(std::make_unique<A2ValueDisplay>(AFRect::ofSize(620.0, top + 8.0, 560.0, 24.0), 12.0,
                                                       L::kDimText, AFTextPainter::kLeft));

    for (int r = 0; r < AFUniClient::kSlots; ++r) {
        const double left = r * L::kSlotWidth + kColumnInset;
        const double width = L::kSlotWidth - 2.0 * kColumnInset;
        rows[static_cast<std::size_t>(r)] = addView(std::make_unique<KeyFrameHandlerView>(
            AFRect::ofSize(left, kRowsTop, width, KeyFrameHandlerView::kHeight), this, kTagRow + r, client,
            r));
        const double buttons = kRowsTop + KeyFrameHandlerView::kHeight + 8.0;
        clearButtons[static_cast<std::size_t>(r)] = addView(std::make_unique<AFTextButton>(
            AFRect::ofSize(left, buttons, width * 0.5 - 2.0, 22.0), this, kTagClear + r, "Clear"));
        randomButtons[static_cast<std::size_t>(r)] = addView(std::make_unique<AFTextButton>(
            AFRect::ofSize(left + width * 0.5 + 2.0, buttons, width * 0.5 - 2.0, 22.0), this, kTagRandom + r,
            "Random"));
    }
    shownEffects.fill(-1);
    onIdle();
}

void DictatorView::rememberRows() {
    client.getHistory().add(std::make_unique<AFCommandRememberDictatorChunk>(client));
}

void DictatorView::valueChanged(AFControl* control) {
    const int tag = control->getTag();
    AFDictator& dictator = client.getDictator();
    if (tag >= kTagRow && tag < kTagRow + AFUniClient::kSlots) {
        const auto* row = static_cast<KeyFrameHandlerView*>(control);
        const AFDictator::Node& node = dictator.node(row->getRow(), row->getActiveCell());
        char text[96];
        if (node.set)
            std::snprintf(text, sizeof text, "Row %d, node %d: %.2f", row->getRow() + 1, row->getActiveCell(),
                          static_cast<double>(node.value));
        else
            std::snprintf(text, sizeof text, "Row %d, node %d: cleared", row->getRow() + 1,
                          row->getActiveCell());
        readout->setText(text);
        return;
    }
    if (tag >= kTagClear && tag < kTagClear + AFUniClient::kSlots) {
        rememberRows();
        dictator.clear(tag - kTagClear);
        dictator.setChanged(tag - kTagClear, true);
        onIdle();
        return;
    }
    if (tag >= kTagRandom && tag < kTagRandom + AFUniClient::kSlots) {
        rememberRows();
        dictator.randomise(tag - kTagRandom);
        dictator.rebuild(tag - kTagRandom);
        dictator.setChanged(tag - kTagRandom, true);
        onIdle();
        return;
    }
    switch (tag) {
    case kTagPreset:
        presetCommand();
        break;
    case kTagRecord:
        client.setDictatorRecord(control->getValue() > 0.5f);
        break;
    case kTagLock: {
        const float now = control->getValue() > 0.5f ? 1.0f : 0.0f;
        const float old = AFCommandAttribute::current(client, 0, AFCommandAttribute::kDictatorLock);
        if (old == now) break;
        client.getHistory().add(
            std::make_unique<AFCommandAttribute>(0, AFCommandAttribute::kDictatorLock, old, now));
        AFCommandAttribute::apply(client, 0, AFCommandAttribute::kDictatorLock, 0, now);
        break;
    }
    default:
        break;
    }
}

void DictatorView::loadPreset(const std::string& path) {
    if (path.empty() || path == "EMPTY") return;
    rememberRows();
    if (client.loadDictatorPreset(path, false)) readout->setText("Loaded " + client.getDictatorPresetName());
    onIdle();
}

void DictatorView::presetCommand() {
    AFEditorHost::FileRequest request;
    request.startFolder = client.getContentPaths().dictatorSavePath();
    switch (presetMenu->getCurrent()) {
    case AFPresetMenu::kSelectFolder:
        request.title = "Select Folder";
        editor.getHost().chooseFile(request, [this](const std::string& path) {
            if (path.empty() || path == "EMPTY") return;
            std::error_code error;
            const std::string folder = std::filesystem::is_directory(path, error)
                                           ? path
                                           : std::filesystem::path(path).parent_path().string();
            client.getContentPaths().rememberFolder(AFContentPaths::kDictatorSavePath, folder);
            presetMenu->setFolder(client.getContentPaths().dictatorSavePath());
        });
        break;
    case AFPresetMenu::kSavePreset:
        request.saving = true;
        request.title = "Save Dictator Preset";
        request.defaultName = client.getDictatorPresetName();
        editor.getHost().chooseFile(request, [this](const std::string& path) {
            if (path.empty() || path == "EMPTY") return;
            std::filesystem::path target(path);
            if (target.extension() != ".dic") target += ".dic";
            client.setDictatorPresetName(target.stem().string());
            if (client.saveDictatorPreset(target.string())) {
                client.getContentPaths().rememberFolder(AFContentPaths::kDictatorSavePath,
                                                        target.parent_path().string());
                readout->setText("Saved " + target.stem().string());
            }
        });
        break;
    case AFPresetMenu::kLoadPreset:
        request.title = "Load Dictator Preset";
        editor.getHost().chooseFile(request, [this](const std::string& path) { loadPreset(path); });
        break;
    default:
        loadPreset(presetMenu->filePath(presetMenu->getCurrent()));
        break;
    }
}

void DictatorView::drawBackground(cairo_t* cr) {
    using L = AFLayout;
    AFTextPainter::fill(cr, size, L::kStage);
    // Text costs even where it is clipped away: the moving position line repaints thin bands only.
    const AFRect clip = AFTextPainter::clipRect(cr);
    const double helpTop = kRowsTop + KeyFrameHandlerView::kHeight + 44.0;
    for (int r = 0;
         r < AFUniClient::kSlots && clip.intersects(AFRect{size.left, kRowsTop - 30.0, size.right, kRowsTop});
         ++r) {
        const AFRect header = AFRect::ofSize(r * L::kSlotWidth + kColumnInset, kRowsTop - 28.0,
                                             L::kSlotWidth - 2.0 * kColumnInset, 22.0);
        AFTextPainter::setColour(cr, L::slotColour(r));
        cairo_rectangle(cr, header.left, header.bottom - 3.0, header.width(), 3.0);
        cairo_fill(cr);
        char text[64];
        std::snprintf(text, sizeof text, "%d  %s", r + 1,
                      shownEffects[static_cast<std::size_t>(r)] >= 0
                          ? EffectFactory::effectName(shownEffects[static_cast<std::size_t>(r)])
                          : "");
        AFTextPainter::draw(cr, text, header.inset(0.0, 2.0), 12.0, L::slotColour(r), AFTextPainter::kLeft,
                            true);
    }
    if (!clip.intersects(AFRect{size.left, helpTop, size.right, helpTop + 80.0})) return;
    const double top = helpTop;
    const char* lines[] = {
        "Each column is one Control's row; node 16 is at the top, where the Dictator ends its travel.",
        "Click an empty node to place a key frame at 0.5, or a key frame to pick it; drag up and down to set "
        "its "
        "value (hold shift for large steps).",
        "Double click or right click a key frame to remove it. Between key frames the Control runs in "
        "straight "
        "lines; after the last one it is off.",
        "Record writes Control moves into the node under the Dictator; Lock keeps the rows when a state "
        "loads."};
    for (int i = 0; i < 4; ++i)
        AFTextPainter::draw(cr, lines[i], AFRect::ofSize(16.0, top + i * 20.0, size.width() - 32.0, 18.0),
                            12.0, L::kDimText, AFTextPainter::kLeft);
}

void DictatorView::onIdle() {
    recordButton->setValue(client.isDictatorRecord() ? 1.0f : 0.0f);
    lockButton->setValue(client.isBatch() ? 1.0f : 0.0f);
    if (presetMenu->getFolder().empty()) presetMenu->setFolder(client.getContentPaths().dictatorSavePath());
    AFFrame* frame = isVisible() ? getFrame() : nullptr;
    const auto repaint = [frame](const AFRect& rect) {
        if (frame != nullptr) frame->invalidRect(rect);
    };
    // A moving Dictator repaints only the bands of its old and new line across the rows.
    const float dictator = client.getParameter(AFUniClient::kDictator);
    if (dictator != shownDictator) {
        repaint(positionBand(shownDictator));
        repaint(positionBand(dictator));
        shownDictator = dictator;
    }
    for (int r = 0; r < AFUniClient::kSlots; ++r) {
        const int type = client.getSlot(r).getEffectType();
        if (type != shownEffects[static_cast<std::size_t>(r)]) {
            shownEffects[static_cast<std::size_t>(r)] = type;
            repaint(AFRect{size.left, kRowsTop - 30.0, size.right, kRowsTop});
        }
        auto& shown = shownRows[static_cast<std::size_t>(r)];
        for (int n = 0; n < AFDictator::kNodes; ++n) {
            const AFDictator::Node& node = client.getDictator().node(r, n);
            if (sameNodes(node, shown[static_cast<std::size_t>(n)])) continue;
            shown[static_cast<std::size_t>(n)] = node;
            repaint(rows[static_cast<std::size_t>(r)]->getViewSize());
        }
    }
}

AFRect DictatorView::positionBand(float dictator) const {
    const double y = rows[0]->positionY(dictator);
    return AFRect{size.left, y - 7.0, size.right, y + 7.0};
}
