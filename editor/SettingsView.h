#pragma once

#include "editor/AFControlListener.h"
#include "editor/AFViewContainer.h"

#include <array>
#include <atomic>

class AFOptionMenu;
class AFTextButton;
class AFUniClient;
struct AFGlobalOptions;

// The settings page: every engine option with its switch and, where it has one, the switch of its per-preset
// twin, and the switching threshold. A change reaches the engine at once; the signal flow goes through the
// client's own operation, which restarts the chain. The settings store takes them all when the plug-in
// closes. Its idle pass follows loads that bring their own options. GUI thread.
class SettingsView : public AFViewContainer, public AFControlListener {
public:
    struct Option {
        const char* key;
        const char* title;
        const char* meaning;
        std::atomic<bool> AFGlobalOptions::*value;
        std::atomic<bool> AFGlobalOptions::*twin; // null: the option does not travel with presets
    };
    static constexpr int kOptions = 8;
    // The threshold's row sits after the first three options, as the store lists it.
    static constexpr int kThresholdRow = 3;
    static const std::array<Option, kOptions>& options();

    SettingsView(AFUniClient& client, const AFRect& size);

    AFTextButton* getSwitch(int option) const { return switches[static_cast<std::size_t>(option)]; }
    AFTextButton* getTwinSwitch(int option) const { return twins[static_cast<std::size_t>(option)]; }
    AFTextButton* getThresholdTwin() const noexcept { return thresholdTwin; }
    AFOptionMenu* getThresholdMenu() const noexcept { return thresholdMenu; }

    void valueChanged(AFControl* control) override;
    void drawBackground(cairo_t* cr) override;
    void onIdle() override;

private:
    enum Tag : int { kTagSwitch = 0, kTagTwin = 100, kTagThreshold = 200, kTagThresholdTwin };
    double rowTop(int row) const;

    AFUniClient& client;
    std::array<AFTextButton*, kOptions> switches{};
    std::array<AFTextButton*, kOptions> twins{};
    AFOptionMenu* thresholdMenu = nullptr;
    AFTextButton* thresholdTwin = nullptr;
};
