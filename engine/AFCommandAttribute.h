#pragma once

#include "engine/AFCommandBase.h"

// A change of a slot setting that is not a host parameter: LFO waveform and step setup, rate divide, curves,
// effect options, quantise mode, mix law, and the Dictator lock. Integer settings travel as floats.
class AFCommandAttribute : public AFCommandBase {
public:
    enum Id : int {
        kLfo1Waveform = 253,
        kLfo1QuantizeSteps = 254,
        kLfo1TriggerMode = 255,
        kLfo2Waveform = 256,
        kLfo2QuantizeSteps = 257,
        kLfo2TriggerMode = 258,
        kLfo1RateDivide = 259,
        kLfo2RateDivide = 260,
        kDictatorLock = 8819,
        kModulatorCurve = 10000,
        kLfo2ModulatorCurve = 10001,
        kEffectOption = 10010,
        kLfo1Wave = 10026,
        kLfo2Wave = 10027,
        kQuantiseMode = 10028,
        kMixLaw = 10030,
        kParameterCurve = 10065,
        kModulatorCurveAlt = 13659,
        kLfo2ModulatorCurveAlt = 13660,
    };
    // The rate divide is kept in the command scaled up by this factor's inverse.
    static constexpr float kRateDivideScale = 0.33670032f;

    // Editor thread, before or after the editor writes the new value; the command itself writes nothing.
    AFCommandAttribute(int slot, int id, float oldValue, float newValue, int subIndex = 0);

    void undo(AFUniClient& client) override;
    void redo(AFUniClient& client) override;
    bool refreshNeeded() const override;
    const char* name() const override;

    // Editor thread: the value the attribute holds now, in the command's units (0 for an unknown target).
    static float current(const AFUniClient& client, int slot, int id, int subIndex = 0);
    // Editor thread: writes `value` to the attribute; an unknown id or an index outside its table does
    // nothing.
    static void apply(AFUniClient& client, int slot, int id, int subIndex, float value);

    int getSlot() const noexcept { return slot; }
    int getId() const noexcept { return id; }
    int getSubIndex() const noexcept { return subIndex; }
    float getOldValue() const noexcept { return oldValue; }
    float getNewValue() const noexcept { return newValue; }

private:
    int slot;
    int id;
    float oldValue;
    float newValue;
    int subIndex;
};
