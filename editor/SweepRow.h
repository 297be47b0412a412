#pragma once

#include "editor/AFViewContainer.h"

#include <array>

class A2ModulatableKnob;
class A2ValueDisplay;
class AFUniClientEditor;

// Three small knobs under a title: how far the main control sweeps three modulator settings of a slot, each
// with its name and its signed percentage (0.5 sweeps nothing). GUI thread.
class SweepRow : public AFViewContainer {
public:
    static constexpr int kKnobs = 3;

    SweepRow(AFUniClientEditor& editor, const AFRect& size, const char* const (&names)[kKnobs]);

    // Points the knobs at the host parameters firstTag, firstTag + 1 and firstTag + 2.
    void bind(int firstTag);
    void follow();
    A2ModulatableKnob* getKnob(int i) const { return knobs[static_cast<std::size_t>(i)]; }

private:
    AFUniClientEditor& editor;
    std::array<A2ModulatableKnob*, kKnobs> knobs{};
    std::array<A2ValueDisplay*, kKnobs> texts{};
    std::array<float, kKnobs> shown{};
};
