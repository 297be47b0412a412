#pragma once

#include "editor/AFViewContainer.h"

#include <array>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFUniClientEditor;
class SweepRow;

// The envelope follower of the selected slot: attack, release and amount, how far the main control sweeps
// them, and the follower's live output as a level bar with a falling peak. GUI thread.
class EnvFollowerView : public AFViewContainer {
public:
    // Peak hold falls this much per follow, about 1.5 s from top to bottom at the editor's timer.
    static constexpr float kPeakFall = 0.02f;

    EnvFollowerView(AFUniClientEditor& editor, const AFRect& size);

    void bindSlot(int slot);
    void follow();
    void drawBackground(cairo_t* cr) override;

    A2ModulatableKnob* getKnob(int i) const { return knobs[static_cast<std::size_t>(i)]; }
    SweepRow* getSweeps() const noexcept { return sweeps; }
    float getLevel() const noexcept { return level; }

private:
    int rowTag(int row) const noexcept;
    AFRect meterRect() const noexcept;

    AFUniClientEditor& editor;
    int slot = 0;
    std::array<A2ModulatableKnob*, 3> knobs{};
    std::array<A2ValueDisplay*, 3> texts{};
    SweepRow* sweeps;
    std::array<float, 3> shown{};
    float level = 0.0f;
    float peak = 0.0f;
    int levelPixels = -1;
    int peakPixels = -1;
};
