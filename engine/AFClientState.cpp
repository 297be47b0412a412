#include "engine/AFClientState.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "host/AFPluginTypes.h"
#include "modulation/AFLfo.h"
#include "state/AFStateIO.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

constexpr std::size_t kMaxNameLength = 255;
constexpr int kValueRows[3] = {KnobEngine::kLfoRate, KnobEngine::kEfAttack, KnobEngine::kLfo2Rate};

static_assert(AFStateRecord::kSlots == AFUniClient::kSlots);
static_assert(AFStateRecord::kDictatorNodes == AFDictator::kNodes);
static_assert(AFStateRecord::kSteps == AFLfo::kStepCount);

float bipolar(float v) {
    return v > -1.0f ? (v < 1.0f ? v : 1.0f) : (v <= -1.0f ? -1.0f : 0.0f);
}

void report(AFMessageSink& messages, const char* format, const char* argument) {
    char text[512];
    std::snprintf(text, sizeof(text), format, argument);
    messages.report(text);
}

void truncateName(std::string& name) {
    if (name.size() > kMaxNameLength) name.resize(kMaxNameLength);
}

} // namespace

// ---- Capture ----------------------------------------------------------------------------------------------

void AFClientState::captureSlot(AFUniClient& client, int slot, AFStateRecord::Slot& into) {
    KnobEngine& engine = client.getSlot(slot);
    const auto row = [&](int r) { return client.getParameter(AFParameterMap::slotRow(slot, r)); };
    into.valid = into.complete = true;
    into.version = AFStateIO::kSlotVersion;
    into.type = engine.getEffectType();
    for (std::size_t r = 0; r < into.parameters.size(); ++r)
        into.parameters[r] = row(KnobEngine::kParameter1 + static_cast<int>(r));
    into.dryWet = row(KnobEngine::kDryWet);
    for (std::size_t r = 0; r < into.knobAmounts.size(); ++r)
        into.knobAmounts[r] = row(KnobEngine::kParam1KnobAmt + static_cast<int>(r));
    for (std::size_t i = 0; i < into.curves.size(); ++i)
        into.curves[i] = engine.getParameterCurve(static_cast<int>(i));
    for (std::size_t a = 0; a < into.amounts.size(); ++a)
        into.amounts[a] = client.getModulationAmount(slot, static_cast<int>(a));
    into.mixLaw = engine.getMixLaw();
    into.options.clear();
    AFEffect* effect = engine.getEffect();
    for (int i = 0; i < effect->getParameterCount(); ++i)
        if (!effect->optionWords(i).empty()) into.options.emplace_back(i, effect->getOption(i));
    for (int m = 0; m < 3; ++m) {
        auto& modulator = into.modulators[static_cast<std::size_t>(m)];
        for (int k = 0; k < 3; ++k) {
            modulator.values[static_cast<std::size_t>(k)] = row(kValueRows[m] + k);
            modulator.knobAmounts[static_cast<std::size_t>(k)] = row(KnobEngine::kLfoRateKA + 3 * m + k);
            modulator.curves[static_cast<std::size_t>(k)] = engine.getModulatorCurve(3 * m + k);
        }
        if (m != 1) engine.getLfo(m / 2)->capture(into.lfos[static_cast<std::size_t>(m / 2)]);
    }
    into.hasQuantiseMode = into.hasName = into.hasVolume = true;
    into.quantiseMode = engine.getQuantiseMode();
    into.name = client.presetNames[static_cast<std::size_t>(slot)];
    into.volume = client.getParameter(AFParameterMap::fxGain(slot));
}

void AFClientState::captureRows(AFUniClient& client, AFStateRecord::DictatorRows& into) {
    for (std::size_t r = 0; r < AFStateRecord::kDictatorRows; ++r)
        for (std::size_t n = 0; n < AFStateRecord::kDictatorNodes; ++n) {
            const auto& node = client.dictator.node(static_cast<int>(r), static_cast<int>(n));
            into.value[r][n] = node.value;
            into.set[r][n] = node.set;
        }
}

void AFClientState::captureGlobal(AFUniClient& client, AFStateRecord::Global& into) {
    const AFGlobalOptions& options = client.options;
    into.dynamicSigFlow = options.dynamicSigFlow.load();
    into.resetAfterLoad = options.resetAfterLoad.load();
    into.offOnTop = options.offOnTop.load();
    into.ccRecallLock = options.ccRecallLock.load();
    into.threshold = options.threshold.load();
    into.midiOut = options.midiOut.load();
    into.bindings = client.midiMapForState();
    captureRows(client, into.dictatorRows);
    into.dictator = client.getParameter(AFUniClient::kDictator);
    into.masterMix = client.getParameter(AFUniClient::kDryWet);
    for (std::size_t i = 0; i < into.controls.size(); ++i)
        into.controls[i] = client.getParameter(static_cast<int32_t>(i));
    into.name = client.globalPresetName;
    into.program = client.getProgram();
    into.contentIndex = client.selectedContentIndex;
}

void AFClientState::writeState(AFUniClient& client, AFChunk& chunk, int slot) {
    if (slot < -1 || slot >= AFUniClient::kSlots) return;
    AFStateRecord state;
    for (int s = 0; s < AFUniClient::kSlots; ++s)
        if (slot < 0 || s == slot) captureSlot(client, s, state.slots[static_cast<std::size_t>(s)]);
    if (slot < 0) captureGlobal(client, state.global);
    chunk.setTempo(static_cast<float>(client.systemInfo.bpm));
    chunk.setSampleRate(client.getSampleRate());
    AFStateIO::writeState(state, chunk, slot);
}

void AFClientState::writeSlotRecord(AFUniClient& client, AFChunk& chunk, int slot) {
    AFStateRecord::Slot record;
    captureSlot(client, slot, record);
    AFStateIO::writeSlotRecord(record, chunk);
}

void AFClientState::writeDictator(AFUniClient& client, AFChunk& chunk) {
    AFStateRecord::DictatorRows rows;
    captureRows(client, rows);
    chunk.setTempo(static_cast<float>(client.systemInfo.bpm));
    chunk.setSampleRate(client.getSampleRate());
    AFStateIO::writeDictator(rows, client.dictatorPresetName, chunk);
}

// ---- Apply ------------------------------------------------------------------------------------------------

bool AFClientState::slotEffectAllowed(int32_t type) {
    return type != 0 && type != 6 && type != 10 && type != 15 && EffectFactory::hasClass(type);
}

void AFClientState::keepSlot(AFUniClient& client, int slot, AFStateRecord::Slot& into) {
    // Through the words, so the fallback reads exactly what the slot's own preset would.
    AFStateRecord state;
    captureSlot(client, slot, state.slots[static_cast<std::size_t>(slot)]);
    AFChunk saved;
    AFStateIO::writeState(state, saved, slot);
    AFStateIO::readState(saved, slot, true, false, nullptr, state);
    into = std::move(state.slots[static_cast<std::size_t>(slot)]);
}

bool AFClientState::readState(AFUniClient& client, AFChunk& chunk, int slot, bool silent) {
    AFStateRecord state;
    if (!AFStateIO::readState(chunk, slot, silent, client.options.midiOutPP.load(), &client.messages, state))
        return false;
    // What takes time happens before the audio is held off: the slots a record cannot replace as they
    // stand, to fall back on, the effects the records name and the CC map. Under the hold the effects are
    // swapped, not built, and the old ones are freed after it.
    const AFAudioGate::Reader turn(client.getAudioGate());
    const int first = std::max(slot, 0);
    const int last = slot >= 0 ? slot : AFUniClient::kSlots - 1;
    std::array<AFStateRecord::Slot, AFUniClient::kSlots> saved;
    for (int s = first; s <= last; ++s) {
        const auto& record = state.slots[static_cast<std::size_t>(s)];
        const bool usable = slotEffectAllowed(record.type);
        if (record.valid && !(record.complete && usable))
            keepSlot(client, s, saved[static_cast<std::size_t>(s)]);
        client.getSlot(s).deferFrees(true);
        if (record.valid && usable) client.getSlot(s).prepareEffect(record.type);
    }
    std::unique_ptr<AFMidiBindings> loadedMap;
    if (state.global.hasBindings && !client.options.ccRecallLock.load()) {
        loadedMap = std::make_unique<AFMidiBindings>();
        for (const auto& [cc, parameter] : state.global.bindings)
            loadedMap->addControllerBinding(cc, parameter);
    }

    client.lockAudioThread();
    bool complete = true;
    for (int s = first; s <= last && complete; ++s)
        complete = applySlot(client, s, state.slots[static_cast<std::size_t>(s)],
                             saved[static_cast<std::size_t>(s)]);
    if (complete && slot < 0) applyGlobal(client, state.global, loadedMap.get());
    client.unlockAudioThread();

    for (int s = first; s <= last; ++s) {
        client.getSlot(s).deferFrees(false);
        client.getSlot(s).dropRetired();
    }
    return complete;
}

bool AFClientState::applySlot(AFUniClient& client, int slot, AFStateRecord::Slot& record,
                              AFStateRecord::Slot& saved) {
    if (!record.valid) return false;
    KnobEngine& engine = client.getSlot(slot);
    const bool usable = slotEffectAllowed(record.type);
    // One recompute once every row is in, not one per row.
    engine.holdRecompute(true);
    if (usable) engine.setEffect(record.type);
    applySlotBody(client, slot, record);
    if (!record.complete || !usable) {
        engine.setEffect(saved.type);
        applySlotBody(client, slot, saved);
    } else {
        if (!client.options.bypassLock.load())
            client.setParameter(AFParameterMap::slotRow(slot, KnobEngine::kBypass), 0.0f);
        if (engine.isRunning()) {
            client.removeFromOrder(slot);
            engine.restartThroughQuantiser();
        }
    }
    engine.holdRecompute(false);
    engine.controlMoved(client.getParameter(slot));
    engine.parameterChanged(KnobEngine::kParameter1);
    return record.complete;
}

void AFClientState::applySlotBody(AFUniClient& client, int slot, AFStateRecord::Slot& record) {
    KnobEngine& engine = client.getSlot(slot);
    const auto setRow = [&](int row, float value) {
        client.setParameter(AFParameterMap::slotRow(slot, row), clampUnit(value));
    };
    for (std::size_t r = 0; r < record.parameters.size(); ++r)
        setRow(KnobEngine::kParameter1 + static_cast<int>(r), record.parameters[r]);
    if (!client.dryWetLock.load()) setRow(KnobEngine::kDryWet, record.dryWet);
    for (std::size_t r = 0; r < record.knobAmounts.size(); ++r)
        setRow(KnobEngine::kParam1KnobAmt + static_cast<int>(r), record.knobAmounts[r]);
    for (std::size_t i = 0; i < record.curves.size(); ++i)
        engine.setParameterCurve(static_cast<int>(i), record.curves[i]);
    for (int i = 0; i < 5; ++i)
        for (int source = 0; source < 3; ++source) {
            const int amount = 5 * source + i;
            client.setParameter(AFParameterMap::amount(slot, amount),
                                bipolar(record.amounts[static_cast<std::size_t>(amount)]));
        }
    engine.setMixLaw(record.mixLaw);
    AFEffect* effect = engine.getEffect();
    for (const auto& [option, mode] : record.options)
        if (option >= 0 && option < effect->getParameterCount()) effect->setOption(option, mode);
    for (int m = 0; m < 3; ++m) {
        const auto& modulator = record.modulators[static_cast<std::size_t>(m)];
        for (int k = 0; k < 3; ++k)
            setRow(kValueRows[m] + k, modulator.values[static_cast<std::size_t>(k)]);
        for (int k = 0; k < 3; ++k)
            setRow(KnobEngine::kLfoRateKA + 3 * m + k, modulator.knobAmounts[static_cast<std::size_t>(k)]);
        for (int k = 0; k < 3; ++k)
            engine.setModulatorCurve(3 * m + k, modulator.curves[static_cast<std::size_t>(k)]);
        if (m == 1) continue;
        engine.getLfo(m / 2)->apply(record.lfos[static_cast<std::size_t>(m / 2)]);
        // Records without a rate divide clear LFO 1's, whichever LFO is being read.
        if (!record.lfos[static_cast<std::size_t>(m / 2)].hasRateDivide)
            engine.getLfo(0)->setRateDivide(0.0f);
    }
    if (record.hasQuantiseMode)
        engine.setQuantiseMode(std::clamp(record.quantiseMode, 0, KnobEngine::kQuantiseModes - 1));
    std::string name = record.hasName ? std::move(record.name) : std::string(effect->getName());
    truncateName(name);
    client.presetNames[static_cast<std::size_t>(slot)] = std::move(name);
    client.setParameter(AFParameterMap::fxGain(slot), record.hasVolume ? clampUnit(record.volume) : 0.5f);
}

void AFClientState::applyRows(AFUniClient& client, const AFStateRecord::DictatorRows& rows) {
    for (int r = 0; r < AFStateRecord::kDictatorRows; ++r) {
        for (int n = 0; n < AFStateRecord::kDictatorNodes; ++n) {
            auto& node = client.dictator.node(r, n);
            node.value = clampUnit(rows.value[static_cast<std::size_t>(r)][static_cast<std::size_t>(n)]);
            node.set = rows.set[static_cast<std::size_t>(r)][static_cast<std::size_t>(n)];
        }
        client.dictator.rebuild(r);
        client.dictator.setChanged(r, true);
    }
}

void AFClientState::applyGlobal(AFUniClient& client, AFStateRecord::Global& global,
                                const AFMidiBindings* loadedMap) {
    AFGlobalOptions& options = client.options;
    if (global.hasOptions) {
        if (options.dynamicSigFlowPP.load()) client.setDynamicSignalFlow(global.dynamicSigFlow, false);
        if (options.resetAfterLoadPP.load()) options.resetAfterLoad.store(global.resetAfterLoad);
        if (options.offOnTopPP.load()) options.offOnTop.store(global.offOnTop);
        // The stored CC recall lock is never applied.
        if (options.thresholdPP.load() && global.threshold >= 0.0f && global.threshold <= 0.5f)
            options.threshold.store(global.threshold);
    }
    if (global.hasMidiOut) options.midiOut.store(global.midiOut);
    if (loadedMap != nullptr) client.midiBindings.replaceControllers(*loadedMap);
    if (global.hasDictatorRows && !client.isBatch()) applyRows(client, global.dictatorRows);
    if (global.hasHostValues) {
        const bool wasBatch = client.batch.exchange(true);
        client.setParameter(AFUniClient::kDictator, clampUnit(global.dictator));
        client.setParameter(AFUniClient::kDryWet, clampUnit(global.masterMix));
        for (int i = 0; i < AFUniClient::kSlots; ++i)
            client.setParameter(i, clampUnit(global.controls[static_cast<std::size_t>(i)]));
        if (options.resetAfterLoad.load()) {
            client.setParameter(AFUniClient::kDictator, 0.0f);
            for (int i = 0; i < AFUniClient::kSlots; ++i)
                client.setParameter(i, 0.0f);
        }
        client.batch.store(wasBatch);
    }
    if (global.hasName) {
        truncateName(global.name);
        client.globalPresetName = std::move(global.name);
    }
    if (global.hasProgram)
        client.curProgram = std::clamp(global.program, 0, std::max(client.getNumPrograms() - 1, 0));
    if (global.hasContentIndex) client.selectedContentIndex = global.contentIndex;
}

bool AFClientState::readDictator(AFUniClient& client, AFChunk& chunk, bool) {
    AFStateRecord::DictatorRows rows;
    std::string name;
    if (!AFStateIO::readDictator(chunk, rows, name)) return false;
    truncateName(name);
    for (int n = 0; n < AFDictator::kNodes; ++n) {
        client.dictator.node(8, n).value = 0.0f;
        client.dictator.node(8, n).set = false;
    }
    applyRows(client, rows);
    client.dictatorPresetName = name;
    // The Controls follow the new rows at once.
    const float dictatorValue = client.getParameter(AFUniClient::kDictator);
    client.parameters[AFUniClient::kDictator].store(-1.0f, std::memory_order_relaxed);
    client.setParameter(AFUniClient::kDictator, dictatorValue);
    return true;
}

// ---- Files ------------------------------------------------------------------------------------------------

namespace {

bool readPresetFile(AFMessageSink& messages, AFChunk& chunk, const std::string& path, bool silent) {
    chunk.setMessageSink(&messages);
    if (!chunk.readFile(path, silent)) return false;
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        if (!silent) report(messages, "preset was written with a newer version of %s", AFIdentity::kProduct);
        return false;
    }
    return true;
}

bool writePresetFile(AFMessageSink& messages, const AFChunk& chunk, const std::string& path) {
    if (chunk.writeFile(path)) return true;
    report(messages, "saving preset to %s failed", path.c_str());
    return false;
}

} // namespace

bool AFClientState::loadPreset(AFUniClient& client, const std::string& path, int slot, bool silent) {
    AFChunk chunk;
    return readPresetFile(client.messages, chunk, path, silent) && readState(client, chunk, slot, silent);
}

bool AFClientState::savePreset(AFUniClient& client, const std::string& path, int slot) {
    AFChunk chunk;
    writeState(client, chunk, slot);
    return writePresetFile(client.messages, chunk, path);
}

bool AFClientState::loadDictatorPreset(AFUniClient& client, const std::string& path, bool silent) {
    AFChunk chunk;
    return readPresetFile(client.messages, chunk, path, silent) && readDictator(client, chunk, silent);
}

bool AFClientState::saveDictatorPreset(AFUniClient& client, const std::string& path) {
    AFChunk chunk;
    writeDictator(client, chunk);
    return writePresetFile(client.messages, chunk, path);
}

bool AFClientState::loadDefaultPreset(AFUniClient& client, const std::string& folder) {
    if (folder.empty()) return false;
    const std::filesystem::path base(folder);
    for (const char* file : {"default.afo", "Default.afo"}) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(base / file, error)) continue;
        if (loadPreset(client, (base / file).string(), -1, true)) return true;
    }
    return false;
}
