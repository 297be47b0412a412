#include "editor/SettingsView.h"

#include "editor/AFLayout.h"
#include "editor/AFOptionMenu.h"
#include "editor/AFTextButton.h"
#include "editor/AFTextPainter.h"
#include "engine/AFGlobalOptions.h"
#include "engine/AFGlobalSettings.h"
#include "engine/AFUniClient.h"

#include <algorithm>
#include <memory>

namespace {

constexpr double kRowHeight = 50.0;
constexpr double kSwitchLeft = 760.0;
constexpr double kTwinLeft = 880.0;

} // namespace

const std::array<SettingsView::Option, SettingsView::kOptions>& SettingsView::options() {
    using O = AFGlobalOptions;
    static const std::array<Option, kOptions> table = {{
        {"dynamicsigflow", "Dynamic signal flow", "The chain runs in the order the slots start.",
         &O::dynamicSigFlow, &O::dynamicSigFlowPP},
        {"offontop", "Off on top", "A Control turned fully up counts as off.", &O::offOnTop, &O::offOnTopPP},
        {"resetafterload", "Reset after load", "After a load the Dictator and all eight Controls go to 0.",
         &O::resetAfterLoad, &O::resetAfterLoadPP},
        {"CCRecallLock", "Keep MIDI map on load", "A loaded preset keeps the current CC bindings.",
         &O::ccRecallLock, &O::ccRecallLockPP},
        {"MIDI out", "MIDI out", "The eight Controls go out as controllers 1 to 8 on channel 1.", &O::midiOut,
         &O::midiOutPP},
        {"syncedhoststop", "Stop with the host", "At transport stop the Controls and the Dictator drop to 0.",
         &O::syncedHostStop, nullptr},
        {"ignorePrgChange", "Ignore program changes", "MIDI program changes do not load global presets.",
         &O::ignorePrgChange, nullptr},
        {"bypasslock", "Keep Bypass on load", "A load keeps each slot's Bypass as it is.", &O::bypassLock,
         nullptr},
    }};
    return table;
}

SettingsView::SettingsView(AFUniClient& client, const AFRect& size) : AFViewContainer(size), client(client) {
    for (int i = 0; i < kOptions; ++i) {
        const Option& option = options()[static_cast<std::size_t>(i)];
        const double top = rowTop(i < kThresholdRow ? i : i + 1) + 12.0;
        switches[static_cast<std::size_t>(i)] = addView(std::make_unique<AFTextButton>(
            AFRect::ofSize(kSwitchLeft, top, 90.0, 24.0), this, kTagSwitch + i, "On", AFTextButton::kToggle));
        switches[static_cast<std::size_t>(i)]->setOffText("Off");
        if (option.twin != nullptr) {
            twins[static_cast<std::size_t>(i)] =
                addView(std::make_unique<AFTextButton>(AFRect::ofSize(kTwinLeft, top, 90.0, 24.0), this,
                                                       kTagTwin + i, "Per preset", AFTextButton::kToggle));
            twins[static_cast<std::size_t>(i)]->setOffText("Global");
        }
    }
    const double top = rowTop(kThresholdRow) + 12.0;
    auto menu =
        std::make_unique<AFOptionMenu>(AFRect::ofSize(kSwitchLeft, top, 90.0, 24.0), this, kTagThreshold);
    for (const char* entry : {"0.01", "0.02", "0.03", "0.04"})
        menu->addEntry(entry);
    thresholdMenu = addView(std::move(menu));
    thresholdTwin =
        addView(std::make_unique<AFTextButton>(AFRect::ofSize(kTwinLeft, top, 90.0, 24.0), this,
                                               kTagThresholdTwin, "Per preset", AFTextButton::kToggle));
    thresholdTwin->setOffText("Global");
    onIdle();
}

double SettingsView::rowTop(int row) const {
    return size.top + 48.0 + row * kRowHeight;
}

void SettingsView::valueChanged(AFControl* control) {
    AFGlobalOptions& engine = client.getOptions();
    const int tag = control->getTag();
    const bool on = control->getValue() > 0.5f;
    if (tag == kTagThreshold) {
        engine.threshold.store(
            AFGlobalSettings::thresholdFromStored(static_cast<int>(control->getValue()) + 1));
    } else if (tag == kTagThresholdTwin) {
        engine.thresholdPP.store(on);
    } else if (tag >= kTagTwin && tag < kTagTwin + kOptions) {
        (engine.*options()[static_cast<std::size_t>(tag - kTagTwin)].twin).store(on);
    } else if (tag == kTagSwitch) {
        // The chain's order changes with it, so the client restarts the slots through the quantiser.
        client.setDynamicSignalFlow(on);
    } else if (tag > kTagSwitch && tag < kTagSwitch + kOptions) {
        (engine.*options()[static_cast<std::size_t>(tag)].value).store(on);
    }
}

void SettingsView::drawBackground(cairo_t* cr) {
    using L = AFLayout;
    using P = AFTextPainter;
    P::fill(cr, size, L::kStage);
    P::draw(cr, "SETTINGS", AFRect::ofSize(16.0, size.top + 8.0, 200.0, 24.0), 15.0, L::kAccent, P::kLeft,
            true);
    P::draw(
        cr,
        "Every instance starts with these; the last one closed keeps its choice. \"Per preset\": a loaded "
        "preset brings its own value; \"Global\": the value here stays.",
        AFRect::ofSize(220.0, size.top + 10.0, 960.0, 20.0), 12.0, L::kDimText, P::kLeft);
    const auto row = [&](int index, const char* title, const char* meaning, const char* key) {
        const double top = rowTop(index);
        P::setColour(cr, index % 2 == 0 ? L::kPanel : 0x15181F);
        cairo_rectangle(cr, 12.0, top, size.width() - 24.0, kRowHeight - 2.0);
        cairo_fill(cr);
        P::draw(cr, title, AFRect::ofSize(24.0, top + 4.0, 300.0, 22.0), 14.0, L::kText, P::kLeft, true);
        P::draw(cr, meaning, AFRect::ofSize(24.0, top + 26.0, 700.0, 18.0), 12.0, L::kDimText, P::kLeft);
        P::draw(cr, key, AFRect::ofSize(1000.0, top + 12.0, 180.0, 24.0), 11.0, 0x5A6478, P::kRight);
    };
    for (int i = 0; i < kOptions; ++i) {
        const Option& option = options()[static_cast<std::size_t>(i)];
        row(i < kThresholdRow ? i : i + 1, option.title, option.meaning, option.key);
    }
    row(kThresholdRow, "Switching threshold", "A Control above this value switches its slot on.",
        "Threshhold");
}

void SettingsView::onIdle() {
    const AFGlobalOptions& engine = client.getOptions();
    for (int i = 0; i < kOptions; ++i) {
        const Option& option = options()[static_cast<std::size_t>(i)];
        switches[static_cast<std::size_t>(i)]->setValue((engine.*option.value).load() ? 1.0f : 0.0f);
        if (option.twin != nullptr)
            twins[static_cast<std::size_t>(i)]->setValue((engine.*option.twin).load() ? 1.0f : 0.0f);
    }
    thresholdTwin->setValue(engine.thresholdPP.load() ? 1.0f : 0.0f);
    // A preset may carry any threshold; the menu shows the nearest hundredth it offers.
    thresholdMenu->setCurrent(std::clamp(AFGlobalSettings::thresholdToStored(engine.threshold.load()), 1, 4) -
                              1);
}
