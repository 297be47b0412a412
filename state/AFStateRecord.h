#pragma once

#include "state/AFGlideTableRecord.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A state as plain values: the slot records, the global section's options, bindings, Dictator rows and host
// values, and the names. The reader fills it from a chunk and the writer writes it, neither knowing the
// engine; the engine captures itself into one and applies one to itself. Values stay as the words had them:
// the engine clamps what it applies.
struct AFStateRecord {
    static constexpr int kSlots = 8;
    static constexpr int kDictatorRows = 8;
    static constexpr int kDictatorNodes = 17;
    static constexpr int kSteps = 16;
    static constexpr int kMaxOptionPairs = 5;

    // An LFO's own fields, as its record version has them.
    struct Lfo {
        int32_t rateMode = 0;
        int32_t triggerMode = 0;
        int32_t quantizeSteps = 0;
        int32_t waveform = 0;
        bool hasRateDivide = false;
        float rateDivide = 0.0f;
        bool hasSteps = false;
        std::array<float, kSteps> steps{};
        // Records before the steps carry a grid instead.
        bool hasGlideTable = false;
        AFGlideTableRecord glideTable;
    };

    // LFO 1, the envelope follower or LFO 2: three value rows, their knob amounts and curves.
    struct Modulator {
        std::array<float, 3> values{};
        std::array<float, 3> knobAmounts{};
        std::array<int32_t, 3> curves{};
    };

    struct Slot {
        // False when the record was refused at its version word: the slot stays as it is.
        bool valid = false;
        // False when the words ran out inside the record.
        bool complete = false;
        int32_t version = 0;
        int32_t type = 0;
        std::array<float, 4> parameters{};
        float dryWet = 0.0f;
        std::array<float, 5> knobAmounts{};
        std::array<int32_t, 5> curves{};
        // By amount index: 5 × source + parameter.
        std::array<float, 15> amounts{};
        int32_t mixLaw = 0;
        // (option, mode) pairs: every option an effect has words for when written, at most five when read.
        std::vector<std::pair<int32_t, int32_t>> options;
        std::array<Modulator, 3> modulators{};
        std::array<Lfo, 2> lfos{};
        bool hasQuantiseMode = false;
        int32_t quantiseMode = 0;
        // Without a name the slot takes its effect's.
        bool hasName = false;
        std::string name;
        bool hasVolume = false;
        float volume = 0.0f;
    };

    struct DictatorRows {
        std::array<std::array<float, kDictatorNodes>, kDictatorRows> value{};
        std::array<std::array<bool, kDictatorNodes>, kDictatorRows> set{};
    };

    // The global section. A reader that runs out of words stops, and only the parts before are present.
    struct Global {
        bool hasOptions = false;
        bool dynamicSigFlow = false;
        bool resetAfterLoad = false;
        bool offOnTop = false;
        bool ccRecallLock = false;
        float threshold = 0.0f;
        // Read only while the per-preset twin of MIDI out is on.
        bool hasMidiOut = false;
        bool midiOut = false;
        bool hasBindings = false;
        std::vector<std::pair<int32_t, int32_t>> bindings;
        bool hasDictatorRows = false;
        DictatorRows dictatorRows;
        bool hasHostValues = false;
        float dictator = 0.0f;
        float masterMix = 1.0f;
        std::array<float, kSlots> controls{};
        bool hasName = false;
        std::string name;
        bool hasProgram = false;
        int32_t program = 0;
        bool hasContentIndex = false;
        int32_t contentIndex = 0;
    };

    int32_t stateVersion = 0;
    std::array<Slot, kSlots> slots{};
    Global global;
};
