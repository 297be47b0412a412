#include "tools/PresetCompiler.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "modulation/AFStepPatternFile.h"
#include "tools/ToolClient.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

const JsonValue& member(const JsonValue& object, const char* key) {
    const JsonValue* value = object.find(key);
    if (!value) fail(std::string("\"") + key + "\" missing");
    return *value;
}

double number(const JsonValue& value, const std::string& what, double low, double high) {
    if (!value.isNumber()) fail(what + ": number expected");
    if (value.number < low || value.number > high)
        fail(what + ": " + std::to_string(value.number) + " outside " + std::to_string(low) + ".." +
             std::to_string(high));
    return value.number;
}

int integer(const JsonValue& value, const std::string& what, int low, int high) {
    const double v = number(value, what, low, high);
    if (v != static_cast<double>(static_cast<int>(v))) fail(what + ": whole number expected");
    return static_cast<int>(v);
}

const std::string& text(const JsonValue& value, const std::string& what) {
    if (!value.isString()) fail(what + ": text expected");
    return value.text;
}

const JsonValue& array(const JsonValue& value, const std::string& what, std::size_t size) {
    if (!value.isArray() || value.items.size() != size)
        fail(what + ": " + std::to_string(size) + " values expected");
    return value;
}

void checkKeys(const JsonValue& object, std::initializer_list<const char*> allowed, const std::string& what) {
    if (!object.isObject()) fail(what + ": object expected");
    for (const auto& [key, value] : object.members) {
        bool known = false;
        for (const char* a : allowed)
            known = known || key == a;
        if (!known) fail(what + ": unknown key \"" + key + "\"");
    }
}

constexpr const char* kSources[3] = {"lfo", "envelope", "lfo2"};

int optionValue(AFEffect& effect, int index, const JsonValue& value, const std::string& what) {
    AFWordList words;
    effect.getOptionList(index, words);
    if (words.empty()) fail(what + ": the parameter has no options");
    if (value.isString()) {
        for (std::size_t i = 0; i < words.size(); ++i)
            if (words[i] == value.text) return static_cast<int>(i);
        fail(what + ": no option \"" + value.text + "\"");
    }
    return integer(value, what, 0, static_cast<int>(words.size()) - 1);
}

void applyLfo(AFLfo& lfo, const JsonValue& source, const std::string& what) {
    checkKeys(source, {"waveform", "quantize", "trigger", "rateDivide", "steps"}, what);
    if (const JsonValue* v = source.find("waveform")) lfo.setWaveform(integer(*v, what + " waveform", 0, 63));
    if (const JsonValue* v = source.find("quantize"))
        lfo.setQuantizeSteps(integer(*v, what + " quantize", 0, 64));
    if (const JsonValue* v = source.find("trigger"))
        lfo.setTriggerMode(integer(*v, what + " trigger", 0, 16));
    if (const JsonValue* v = source.find("rateDivide"))
        lfo.setRateDivide(static_cast<float>(number(*v, what + " rateDivide", 0.0, 1.0)));
    if (const JsonValue* v = source.find("steps")) {
        array(*v, what + " steps", 16);
        for (int i = 0; i < 16; ++i)
            lfo.setStep(
                i, static_cast<float>(number(v->items[static_cast<std::size_t>(i)], what + " step", 0, 1)));
    }
}

void compileStepPattern(const JsonValue& source, const std::string& output) {
    checkKeys(source, {"format", "version", "name", "description", "values", "glides"}, "step pattern");
    text(member(source, "name"), "name");
    const JsonValue& values = array(member(source, "values"), "values", AFStepPatternFile::kStepCount);
    const JsonValue& glides = array(member(source, "glides"), "glides", AFStepPatternFile::kStepCount);
    AFGlideTable table(AFStepPatternFile::kStepCount, 1);
    for (uint32_t i = 0; i < AFStepPatternFile::kStepCount; ++i) {
        table.setValue(0, i, static_cast<float>(number(values.items[i], "values", 0.0, 1.0)));
        if (glides.items[i].kind != JsonValue::Kind::Bool) fail("glides: true or false expected");
        table.setGlide(0, i, glides.items[i].boolean ? 1 : 0);
    }
    if (!AFStepPatternFile::save(output, table, nullptr))
        throw PresetCompiler::WriteError("cannot write " + output);
}

// Sources (CC or note numbers) to lists of parameter indices.
void applyBindings(const JsonValue* sources, const char* what, bool (AFMidiBindings::*bind)(int, int32_t),
                   AFMidiBindings& map) {
    if (!sources) return;
    if (!sources->isObject()) fail(std::string(what) + ": object expected");
    for (const auto& [key, targets] : sources->members) {
        char* end = nullptr;
        const long source = std::strtol(key.c_str(), &end, 10);
        if (key.empty() || *end != '\0' || source < 0 || source >= AFMidiBindings::kSources)
            fail(std::string(what) + ": \"" + key + "\" outside 0..127");
        if (!targets.isArray()) fail(std::string(what) + " " + key + ": list of parameters expected");
        for (const JsonValue& target : targets.items) {
            const int parameter = integer(target, std::string(what) + " " + key, 0, INT32_MAX);
            if (!AFMidiBindings::isBindable(parameter) || !(map.*bind)(static_cast<int>(source), parameter))
                fail(std::string(what) + " " + key + ": parameter " + std::to_string(parameter) +
                     " cannot be bound");
        }
    }
}

void compileMidiMap(const JsonValue& source, const std::string& output) {
    checkKeys(source, {"format", "version", "name", "description", "controllers", "notes"}, "MIDI map");
    AFMidiBindings map;
    applyBindings(source.find("controllers"), "controllers", &AFMidiBindings::addControllerBinding, map);
    applyBindings(source.find("notes"), "notes", &AFMidiBindings::addNoteBinding, map);
    if (!map.saveMidiMap(output)) throw PresetCompiler::WriteError("cannot write " + output);
}

} // namespace

std::vector<std::string> PresetCompiler::effectParameterNames(AFEffect& effect) {
    std::vector<std::string> names;
    for (int i = 0; i < effect.getParameterCount() && i < 4; ++i) {
        char own[kEffectTextSize] = {};
        effect.getParameterName(i, own);
        names.emplace_back(own);
    }
    return names;
}

int PresetCompiler::slotRowByName(const std::vector<std::string>& effectNames, const std::string& name) {
    for (int r = 0; r < KnobEngine::kParameterCount; ++r)
        if (name == KnobEngine::kRowNames[r]) return r;
    for (std::size_t i = 0; i < effectNames.size(); ++i)
        if (name == effectNames[i]) return static_cast<int>(i);
    return -1;
}

void PresetCompiler::applySlot(AFUniClient& client, int slot, const JsonValue& preset) {
    const std::string where = "slot " + std::to_string(slot + 1);
    checkKeys(preset,
              {"format", "version", "name", "description", "silences", "effect", "parameters", "options",
               "curves", "modulatorCurves", "modulation", "mixLaw", "quantise", "volume", "lfo1", "lfo2"},
              where);
    const std::string& effectName = text(member(preset, "effect"), where + " effect");
    const int type = EffectFactory::typeIdByName(effectName.c_str());
    if (type < 0 || EffectFactory::menuPosition(type) < 0) fail(where + ": no effect \"" + effectName + "\"");
    client.setSlotEffect(slot, type);
    KnobEngine& engine = client.getSlot(slot);
    AFEffect* effect = engine.getEffect();
    // Names first: some effects rename a knob with its option.
    const std::vector<std::string> names = effectParameterNames(*effect);
    const auto row = [&](int r) { return AFParameterMap::slotRow(slot, r); };

    if (const JsonValue* options = preset.find("options")) {
        if (!options->isObject()) fail(where + " options: object expected");
        for (const auto& [name, value] : options->members) {
            const int index = slotRowByName(names, name);
            if (index < 0 || index >= 4) fail(where + ": no parameter \"" + name + "\" with options");
            client.setSlotOption(slot, index, optionValue(*effect, index, value, where + " " + name));
        }
    }
    if (const JsonValue* parameters = preset.find("parameters")) {
        if (!parameters->isObject()) fail(where + " parameters: object expected");
        for (const auto& [name, value] : parameters->members) {
            const int r = slotRowByName(names, name);
            if (r < 0) fail(where + ": no parameter \"" + name + "\"");
            client.setParameter(row(r), static_cast<float>(number(value, where + " " + name, 0.0, 1.0)));
        }
    }
    if (const JsonValue* curves = preset.find("curves")) {
        array(*curves, where + " curves", 5);
        for (int i = 0; i < 5; ++i)
            engine.setParameterCurve(
                i, integer(curves->items[static_cast<std::size_t>(i)], where + " curve", 0, 15));
    }
    if (const JsonValue* curves = preset.find("modulatorCurves")) {
        array(*curves, where + " modulatorCurves", KnobEngine::kModulatorCount);
        for (int i = 0; i < KnobEngine::kModulatorCount; ++i)
            engine.setModulatorCurve(
                i, integer(curves->items[static_cast<std::size_t>(i)], where + " curve", 0, 15));
    }
    if (const JsonValue* modulation = preset.find("modulation")) {
        checkKeys(*modulation, {"lfo", "envelope", "lfo2"}, where + " modulation");
        for (int source = 0; source < 3; ++source) {
            const JsonValue* depths = modulation->find(kSources[source]);
            if (!depths) continue;
            array(*depths, where + " modulation " + kSources[source], 5);
            for (int i = 0; i < 5; ++i)
                client.setParameter(AFParameterMap::amount(slot, 5 * source + i),
                                    static_cast<float>(number(depths->items[static_cast<std::size_t>(i)],
                                                              where + " modulation depth", -1.0, 1.0)));
        }
    }
    if (const JsonValue* law = preset.find("mixLaw"))
        engine.setMixLaw(integer(*law, where + " mixLaw", 0, KnobEngine::kMixLaws - 1));
    if (const JsonValue* mode = preset.find("quantise"))
        engine.setQuantiseMode(integer(*mode, where + " quantise", 0, KnobEngine::kQuantiseModes - 1));
    if (const JsonValue* volume = preset.find("volume"))
        client.setParameter(AFParameterMap::fxGain(slot),
                            static_cast<float>(number(*volume, where + " volume", 0, 1)));
    if (const JsonValue* lfo = preset.find("lfo1")) applyLfo(*engine.getLfo(0), *lfo, where + " lfo1");
    if (const JsonValue* lfo = preset.find("lfo2")) applyLfo(*engine.getLfo(1), *lfo, where + " lfo2");
    const JsonValue* name = preset.find("name");
    client.setPresetName(slot,
                         name ? text(*name, where + " name") : std::string(EffectFactory::effectName(type)));
}

void PresetCompiler::applyDictatorRows(AFUniClient& client, const JsonValue& rows) {
    array(rows, "rows", 8);
    AFDictator& dictator = client.getDictator();
    for (int r = 0; r < 8; ++r) {
        const JsonValue& nodes = rows.items[static_cast<std::size_t>(r)];
        if (!nodes.isObject()) fail("rows: an object of node index to value expected");
        dictator.clear(r);
        for (const auto& [key, value] : nodes.members) {
            char* end = nullptr;
            const long index = std::strtol(key.c_str(), &end, 10);
            if (key.empty() || *end != '\0' || index < 0 || index >= AFDictator::kNodes)
                fail("rows: node \"" + key + "\" outside 0.." + std::to_string(AFDictator::kNodes - 1));
            auto& node = dictator.node(r, static_cast<int>(index));
            node.value = static_cast<float>(number(value, "rows value", 0.0, 1.0));
            node.set = true;
        }
        dictator.rebuild(r);
    }
}

void PresetCompiler::compile(const JsonValue& source, const std::string& output) {
    const std::string& format = text(member(source, "format"), "format");
    // Marks a preset that falls silent on purpose; read by the content audit, not compiled.
    if (const JsonValue* silences = source.find("silences");
        silences && silences->kind != JsonValue::Kind::Bool)
        fail("silences: not true or false");
    if (format == "orvanto-step-pattern") {
        compileStepPattern(source, output);
        return;
    }
    if (format == "orvanto-midi-map") {
        compileMidiMap(source, output);
        return;
    }
    const auto owned = ToolClient::create();
    AFUniClient& client = *owned;
    bool saved = false;
    if (format == "orvanto-effect-preset") {
        applySlot(client, 0, source);
        saved = client.savePreset(output, 0);
    } else if (format == "orvanto-global-preset") {
        checkKeys(source,
                  {"format", "version", "name", "description", "silences", "slots", "controls", "dictator",
                   "dryWet", "rows"},
                  "global preset");
        const JsonValue& slots = array(member(source, "slots"), "slots", AFUniClient::kSlots);
        for (int s = 0; s < AFUniClient::kSlots; ++s)
            applySlot(client, s, slots.items[static_cast<std::size_t>(s)]);
        for (int s = 0; s < AFUniClient::kSlots; ++s)
            client.setParameter(s, 0.0f);
        if (const JsonValue* controls = source.find("controls")) {
            array(*controls, "controls", AFUniClient::kSlots);
            for (int s = 0; s < AFUniClient::kSlots; ++s)
                client.setParameter(s, static_cast<float>(number(controls->items[static_cast<std::size_t>(s)],
                                                                 "controls", 0.0, 1.0)));
        }
        if (const JsonValue* rows = source.find("rows")) applyDictatorRows(client, *rows);
        client.setBatch(true);
        const JsonValue* dictator = source.find("dictator");
        client.setParameter(AFUniClient::kDictator,
                            dictator ? static_cast<float>(number(*dictator, "dictator", 0.0, 1.0)) : 0.0f);
        client.setBatch(false);
        if (const JsonValue* dryWet = source.find("dryWet"))
            client.setParameter(AFUniClient::kDryWet,
                                static_cast<float>(number(*dryWet, "dryWet", 0.0, 1.0)));
        client.setGlobalPresetName(text(member(source, "name"), "name"));
        saved = client.savePreset(output, -1);
    } else if (format == "orvanto-dictator-preset") {
        checkKeys(source, {"format", "version", "name", "description", "silences", "rows"},
                  "Dictator preset");
        applyDictatorRows(client, member(source, "rows"));
        client.setDictatorPresetName(text(member(source, "name"), "name"));
        saved = client.saveDictatorPreset(output);
    } else {
        fail("unknown format \"" + format + "\"");
    }
    if (!saved) throw PresetCompiler::WriteError("cannot write " + output);
}

void PresetCompiler::compileFile(const std::string& source, const std::string& output) {
    const JsonValue document = JsonValue::fromFile(source);
    try {
        compile(document, output);
    } catch (const WriteError&) {
        throw;
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(source + ": " + e.what());
    }
}
