#pragma once

#include "editor/AFControl.h"

#include <array>
#include <string>

// Picks the target whose modulation depths the depth knobs show and edit: Parameter 1 to 4 of the slot's
// effect, or its Dry/Wet. Each button names its target and lights a dot while any modulator reaches it. The
// value is the target, 0..4. GUI thread.
class ModAmountSwitch : public AFControl {
public:
    static constexpr int kTargets = 5;
    static constexpr int kTag = 17598;

    ModAmountSwitch(const AFRect& size, AFControlListener* listener);

    int getTarget() const noexcept { return static_cast<int>(value); }
    // The button texts, redrawn when they change.
    void setName(int target, const std::string& name);
    const std::string& getName(int target) const { return names[static_cast<std::size_t>(target)]; }
    // Whether any modulator reaches the target.
    void setReached(int target, bool reached);
    // The button under x, 0..4.
    int targetAt(double x) const noexcept;

    bool onMouseDown(const AFMouseEvent& event) override;
    void draw(cairo_t* cr) override;

private:
    AFRect buttonRect(int target) const noexcept;

    std::array<std::string, kTargets> names{};
    std::array<bool, kTargets> reached{};
};
