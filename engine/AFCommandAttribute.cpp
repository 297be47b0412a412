#include "engine/AFCommandAttribute.h"

#include "effects/framework/AFEffect.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFLfo.h"

#include <cmath>

namespace {

constexpr int kParameterCurves = 5;
constexpr int kModulatorRowsPerLfo = 6; // LFO 2's rows start after LFO 1 and the envelope
constexpr int kEffectOptions = 4;

// Integer settings round to the nearest whole value; a value that is no number at all counts as 0.
int toInt(float value) {
    if (!std::isfinite(value)) return 0;
    const float bounded = std::fmax(-1.0e6f, std::fmin(1.0e6f, value));
    return static_cast<int>(std::floor(bounded + 0.5f));
}

bool validSlot(int slot) {
    return slot >= 0 && slot < AFUniClient::kSlots;
}

// The LFO an id addresses: 0 or 1, or -1 when the id is not an LFO field.
int lfoOf(int id) {
    switch (id) {
    case AFCommandAttribute::kLfo1Waveform:
    case AFCommandAttribute::kLfo1QuantizeSteps:
    case AFCommandAttribute::kLfo1TriggerMode:
    case AFCommandAttribute::kLfo1RateDivide:
    case AFCommandAttribute::kLfo1Wave:
        return 0;
    case AFCommandAttribute::kLfo2Waveform:
    case AFCommandAttribute::kLfo2QuantizeSteps:
    case AFCommandAttribute::kLfo2TriggerMode:
    case AFCommandAttribute::kLfo2RateDivide:
    case AFCommandAttribute::kLfo2Wave:
        return 1;
    default:
        return -1;
    }
}

// The modulator curve row an id and sub-index address, or -1 outside the slot's table.
int modulatorRow(int id, int subIndex) {
    int row = -1;
    if (id == AFCommandAttribute::kModulatorCurve || id == AFCommandAttribute::kModulatorCurveAlt)
        row = subIndex;
    else if (id == AFCommandAttribute::kLfo2ModulatorCurve ||
             id == AFCommandAttribute::kLfo2ModulatorCurveAlt)
        row = kModulatorRowsPerLfo + subIndex;
    return row >= 0 && row < KnobEngine::kModulatorCount ? row : -1;
}

} // namespace

AFCommandAttribute::AFCommandAttribute(int slot, int id, float oldValue, float newValue, int subIndex)
    : slot(slot), id(id), oldValue(oldValue), newValue(newValue), subIndex(subIndex) {}

void AFCommandAttribute::undo(AFUniClient& client) {
    apply(client, slot, id, subIndex, oldValue);
}

void AFCommandAttribute::redo(AFUniClient& client) {
    apply(client, slot, id, subIndex, newValue);
}

bool AFCommandAttribute::refreshNeeded() const {
    return true;
}

const char* AFCommandAttribute::name() const {
    return "Attribute Change";
}

float AFCommandAttribute::current(const AFUniClient& client, int slot, int id, int subIndex) {
    if (id == kDictatorLock) return client.isBatch() ? 1.0f : 0.0f;
    if (!validSlot(slot)) return 0.0f;
    const KnobEngine& engine = client.getSlot(slot);
    if (const int which = lfoOf(id); which >= 0) {
        const AFLfo& lfo = *engine.getLfo(which);
        switch (id) {
        case kLfo1QuantizeSteps:
        case kLfo2QuantizeSteps:
            return static_cast<float>(lfo.getQuantizeSteps());
        case kLfo1TriggerMode:
        case kLfo2TriggerMode:
            return static_cast<float>(lfo.getTriggerMode());
        case kLfo1RateDivide:
        case kLfo2RateDivide:
            return lfo.getRateDivide() / kRateDivideScale;
        default:
            return static_cast<float>(lfo.getWaveform());
        }
    }
    if (const int row = modulatorRow(id, subIndex); row >= 0)
        return static_cast<float>(engine.getModulatorCurve(row));
    switch (id) {
    case kEffectOption:
        return subIndex >= 0 && subIndex < kEffectOptions && engine.getEffect() != nullptr
                   ? static_cast<float>(engine.getEffect()->getOption(subIndex))
                   : 0.0f;
    case kQuantiseMode:
        return static_cast<float>(engine.getQuantiseMode());
    case kMixLaw:
        return static_cast<float>(engine.getMixLaw());
    case kParameterCurve:
        return subIndex >= 0 && subIndex < kParameterCurves
                   ? static_cast<float>(engine.getParameterCurve(subIndex))
                   : 0.0f;
    default:
        return 0.0f;
    }
}

void AFCommandAttribute::apply(AFUniClient& client, int slot, int id, int subIndex, float value) {
    if (id == kDictatorLock) {
        client.setBatch(toInt(value) != 0);
        return;
    }
    if (!validSlot(slot)) return;
    KnobEngine& engine = client.getSlot(slot);
    if (const int which = lfoOf(id); which >= 0) {
        AFLfo& lfo = *engine.getLfo(which);
        switch (id) {
        case kLfo1QuantizeSteps:
        case kLfo2QuantizeSteps:
            lfo.setQuantizeSteps(toInt(value));
            break;
        case kLfo1TriggerMode:
        case kLfo2TriggerMode:
            lfo.setTriggerMode(toInt(value));
            break;
        case kLfo1RateDivide:
        case kLfo2RateDivide:
            lfo.setRateDivide(std::isfinite(value) ? value * kRateDivideScale : 0.0f);
            break;
        default: {
            const int wave = toInt(value);
            lfo.setWaveform(wave >= 0 && wave < AFLfo::kWaveformCount ? wave : 0);
            break;
        }
        }
        return;
    }
    if (const int row = modulatorRow(id, subIndex); row >= 0) {
        engine.setModulatorCurve(row, toInt(value));
        return;
    }
    switch (id) {
    case kEffectOption:
        if (subIndex >= 0 && subIndex < kEffectOptions) client.setSlotOption(slot, subIndex, toInt(value));
        break;
    case kQuantiseMode: {
        const int mode = toInt(value);
        engine.setQuantiseMode(
            mode < 0 ? 0 : (mode >= KnobEngine::kQuantiseModes ? KnobEngine::kQuantiseModes - 1 : mode));
        break;
    }
    case kMixLaw:
        engine.setMixLaw(toInt(value));
        break;
    case kParameterCurve:
        if (subIndex >= 0 && subIndex < kParameterCurves) engine.setParameterCurve(subIndex, toInt(value));
        break;
    default:
        break;
    }
}
