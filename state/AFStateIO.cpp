#include "state/AFStateIO.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFMessageSink.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "host/AFPluginTypes.h"
#include "modulation/AFLfo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace {

constexpr int kNodes = AFDictator::kNodes;
constexpr std::size_t kMaxNameLength = 255;

// Record versions that gate fields.
constexpr int32_t kSlotIntegerVersion = 4301;
constexpr int32_t kNameVersion = 4303;
constexpr int32_t kLockValueVersion = 4305;
constexpr int32_t kVolumeVersion = 4307;

float bipolar(float v) {
    return v > -1.0f ? (v < 1.0f ? v : 1.0f) : (v <= -1.0f ? -1.0f : 0.0f);
}

void report(const char* format, const char* argument) {
    char text[512];
    std::snprintf(text, sizeof(text), format, argument);
    AFMessageSink::report(text);
}

int slotRow(int slot, int row) {
    return AFParameterMap::slotRow(slot, row);
}

int amountIndex(int slot, int amount) {
    return AFParameterMap::amount(slot, amount);
}

// A Dictator table as read, applied only once it is complete.
struct DictatorCells {
    std::array<std::array<float, kNodes>, 8> value{};
    std::array<std::array<bool, kNodes>, 8> set{};
};

// Reads the eight rows closed by their terminators; false when the words ran out.
bool readRows(AFChunk& chunk, DictatorCells& cells) {
    for (std::size_t r = 0; r < 8; ++r) {
        for (;;) {
            const int32_t column = chunk.readInt();
            if (chunk.isOverrun()) return false;
            if (column == AFStateIO::kRowEnd) break;
            const float value = chunk.readFloat();
            if (column < 0 || column >= kNodes) continue;
            cells.value[r][static_cast<std::size_t>(column)] = clampUnit(value);
            cells.set[r][static_cast<std::size_t>(column)] = true;
        }
    }
    return true;
}

void applyRows(AFDictator& dictator, const DictatorCells& cells) {
    for (int r = 0; r < 8; ++r) {
        for (int n = 0; n < kNodes; ++n) {
            auto& node = dictator.node(r, n);
            node.value = cells.value[static_cast<std::size_t>(r)][static_cast<std::size_t>(n)];
            node.set = cells.set[static_cast<std::size_t>(r)][static_cast<std::size_t>(n)];
        }
        dictator.rebuild(r);
        dictator.setChanged(r, true);
    }
}

} // namespace

// ---- Writers ----------------------------------------------------------------------------------------------

void AFStateIO::writeState(AFUniClient& client, AFChunk& chunk, int slot) {
    if (slot < -1 || slot >= AFUniClient::kSlots) return;
    chunk.setTempo(static_cast<float>(client.systemInfo.bpm));
    chunk.setSampleRate(client.getSampleRate());
    chunk.rewindToWrite();
    writeBody(client, chunk, slot);
    chunk.allocateCounted();
    writeBody(client, chunk, slot);
}

void AFStateIO::writeBody(AFUniClient& client, AFChunk& chunk, int slot) {
    chunk.writeHeader();
    chunk.writeInt(chunk.getPosition());
    chunk.writeInt(kPluginId);
    chunk.writeInt(kStateVersion);
    chunk.writeInt(kStateMagic);
    if (slot >= 0) {
        writeSlotRecord(client, chunk, slot);
        return;
    }
    for (int s = 0; s < AFUniClient::kSlots; ++s)
        writeSlotRecord(client, chunk, s);
    writeGlobalSection(client, chunk);
}

void AFStateIO::writeSlotRecord(AFUniClient& client, AFChunk& chunk, int slot) {
    KnobEngine& engine = client.getSlot(slot);
    const auto row = [&](int r) { return client.getParameter(slotRow(slot, r)); };
    const auto writeRows = [&](int first, int count) {
        for (int r = first; r < first + count; ++r)
            chunk.writeFloat(row(r));
    };
    chunk.writeInt(kSlotVersion);
    chunk.writeInt(engine.getEffectType());
    writeRows(KnobEngine::kParameter1, 5);
    chunk.writeFloat(row(KnobEngine::kDryWet));
    writeRows(KnobEngine::kParam1KnobAmt, 5);
    for (int i = 0; i < 5; ++i)
        chunk.writeInt(engine.getParameterCurve(i));
    for (int i = 0; i < 5; ++i) {
        chunk.writeFloat(client.getModulationAmount(slot, i));
        chunk.writeFloat(client.getModulationAmount(slot, 5 + i));
        chunk.writeFloat(client.getModulationAmount(slot, 10 + i));
    }
    chunk.writeInt(engine.getMixLaw());
    AFEffect* effect = engine.getEffect();
    for (int i = 0; i < effect->getParameterCount(); ++i) {
        AFWordList words;
        effect->getOptionList(i, words);
        if (words.empty()) continue;
        chunk.writeInt(i);
        chunk.writeInt(effect->getOption(i));
    }
    chunk.writeInt(kOptionsEnd);
    chunk.writeInt(kGuardWord);
    // LFO 1, the envelope and LFO 2: three values, their knob amounts, their curves, the LFO's own fields.
    static constexpr int kValueRows[3] = {KnobEngine::kLfoRate, KnobEngine::kEfAttack, KnobEngine::kLfo2Rate};
    for (int m = 0; m < 3; ++m) {
        writeRows(kValueRows[m], 3);
        writeRows(KnobEngine::kLfoRateKA + 3 * m, 3);
        for (int k = 0; k < 3; ++k)
            chunk.writeInt(engine.getModulatorCurve(3 * m + k));
        if (m != 1) engine.getLfo(m / 2)->write(chunk);
        chunk.writeInt(kGuardWord);
    }
    chunk.writeInt(engine.getQuantiseMode());
    chunk.writeString(client.presetNames[static_cast<std::size_t>(slot)].c_str());
    chunk.writeFloat(client.getParameter(AFParameterMap::fxGain(slot)));
}

void AFStateIO::writeDictatorRows(AFUniClient& client, AFChunk& chunk) {
    for (int r = 0; r < 8; ++r) {
        for (int n = 0; n < kNodes; ++n) {
            const auto& node = client.dictator.node(r, n);
            if (!node.set) continue;
            chunk.writeInt(n);
            chunk.writeFloat(node.value);
        }
        chunk.writeInt(kRowEnd);
    }
}

void AFStateIO::writeGlobalSection(AFUniClient& client, AFChunk& chunk) {
    const AFGlobalOptions& options = client.options;
    chunk.writeInt(options.dynamicSigFlow.load() ? 1 : 0);
    chunk.writeInt(options.resetAfterLoad.load() ? 1 : 0);
    chunk.writeInt(options.offOnTop.load() ? 1 : 0);
    chunk.writeInt(options.ccRecallLock.load() ? 1 : 0);
    chunk.writeFloat(options.threshold.load());
    chunk.writeInt(options.midiOut.load() ? 1 : 0);
    for (const auto& [cc, parameter] : client.midiMapForState()) {
        chunk.writeInt(cc);
        chunk.writeInt(parameter);
    }
    chunk.writeInt(kBindingsEnd);
    writeDictatorRows(client, chunk);
    chunk.writeInt(kDictatorEnd);
    chunk.writeFloat(client.getParameter(AFUniClient::kDictator));
    chunk.writeFloat(client.getParameter(AFUniClient::kDryWet));
    for (int i = 0; i < AFUniClient::kSlots; ++i)
        chunk.writeFloat(client.getParameter(i));
    chunk.writeInt(kHostValuesEnd);
    chunk.writeString(client.globalPresetName.c_str());
    chunk.writeInt(client.getProgram());
    chunk.writeInt(client.selectedContentIndex);
}

void AFStateIO::writeDictator(AFUniClient& client, AFChunk& chunk) {
    chunk.setTempo(static_cast<float>(client.systemInfo.bpm));
    chunk.setSampleRate(client.getSampleRate());
    chunk.rewindToWrite();
    for (int pass = 0; pass < 2; ++pass) {
        if (pass == 1) chunk.allocateCounted();
        chunk.writeHeader();
        writeDictatorRows(client, chunk);
        chunk.writeInt(kHostValuesEnd);
        chunk.writeString(client.dictatorPresetName.c_str());
    }
}

// ---- Readers ----------------------------------------------------------------------------------------------

bool AFStateIO::slotEffectAllowed(int32_t type) {
    return type != 0 && type != 6 && type != 10 && type != 15 && EffectFactory::hasClass(type);
}

bool AFStateIO::readState(AFUniClient& client, AFChunk& chunk, int slot, bool silent) {
    if (slot < -1 || slot >= AFUniClient::kSlots) return false;
    chunk.rewindToRead();
    if (chunk.getSizeInWords() <= kEmptyWords) return false;
    chunk.readInt();
    const int32_t pluginId = chunk.readInt();
    const int32_t stateVersion = chunk.readInt();
    const int32_t magic = chunk.readInt();
    if (magic != kStateMagic) {
        if (!silent) report("This is not a %s file", AFIdentity::kProduct);
        return false;
    }
    if (pluginId != kPluginId) {
        if (!silent) AFMessageSink::report("wrong plugin version");
        return false;
    }
    if (stateVersion > kStateVersion) {
        AFMessageSink::report("This Preset was written with a newer version, please update Orvanto.");
        return false;
    }
    // What takes time happens before the audio is held off: the slots as they stand, to fall back on, and the
    // effects the records name. Under the hold the effects are swapped, not built, and the old ones are freed
    // after it.
    const AFAudioGate::Reader turn(client.getAudioGate());
    const int first = std::max(slot, 0);
    const int last = slot >= 0 ? slot : AFUniClient::kSlots - 1;
    std::array<AFChunk, AFUniClient::kSlots> saved;
    for (int s = first; s <= last; ++s) {
        writeSavedSlot(client, saved[static_cast<std::size_t>(s)], s);
        client.getSlot(s).deferFrees(true);
    }
    prepareEffects(client, chunk, first, last);

    client.lockAudioThread();
    bool complete = true;
    for (int s = first; s <= last && complete; ++s)
        complete = readSlotRecord(client, chunk, s, silent, saved[static_cast<std::size_t>(s)]);
    if (complete && slot < 0) readGlobalSection(client, chunk, stateVersion);
    client.unlockAudioThread();

    for (int s = first; s <= last; ++s) {
        client.getSlot(s).deferFrees(false);
        client.getSlot(s).dropRetired();
    }
    return complete;
}

void AFStateIO::writeSavedSlot(AFUniClient& client, AFChunk& saved, int slot) {
    saved.rewindToWrite();
    for (int pass = 0; pass < 2; ++pass) {
        if (pass == 1) saved.allocateCounted();
        saved.writeHeader();
        writeSlotRecord(client, saved, slot);
    }
}

void AFStateIO::prepareEffects(AFUniClient& client, const AFChunk& chunk, int first, int last) {
    // A copy, so that the load reads the chunk from where it stands. Records are walked only as far as their
    // layout is certain; a slot left out builds its effect under the hold as before.
    AFChunk scan;
    scan.copyFrom(chunk);
    scan.setPosition(chunk.getPosition());
    for (int s = first; s <= last; ++s) {
        const int32_t version = scan.readInt();
        const int32_t type = scan.readInt();
        if (scan.isOverrun() || version < AFLfo::kStepsVersion || version > kSlotVersion) return;
        if (slotEffectAllowed(type)) client.getSlot(s).prepareEffect(type);
        const auto skip = [&](int words) {
            for (int w = 0; w < words; ++w)
                scan.readInt();
        };
        skip(5 + (version >= kLockValueVersion ? 1 : 0) + 5 + 5 + 15 + 1);
        for (int pair = 0; pair < kMaxOptionPairs; ++pair) {
            if (scan.readInt() == kOptionsEnd) break;
            scan.readInt();
        }
        skip(1);
        for (int m = 0; m < 3; ++m) {
            skip(9);
            if (m != 1) skip(4 + (version >= AFLfo::kRateDivideVersion ? 1 : 0) + AFLfo::kStepCount);
            skip(1);
        }
        skip(1);
        scan.readString();
        if (version >= kVolumeVersion) skip(1);
        if (scan.isOverrun()) return;
    }
}

bool AFStateIO::readSlotRecord(AFUniClient& client, AFChunk& chunk, int slot, bool silent, AFChunk& saved) {
    KnobEngine& engine = client.getSlot(slot);
    const int32_t version = chunk.readInt();
    const int32_t type = chunk.readInt();
    if (chunk.isOverrun() || version < kOldestSlotVersion || version > kSlotVersion) return false;

    const bool usable = slotEffectAllowed(type);
    if (usable) engine.setEffect(type);
    applySlotBody(client, chunk, slot, version, silent);
    const bool complete = !chunk.isOverrun();
    if (!complete || !usable) {
        saved.rewindToRead();
        const int32_t savedVersion = saved.readInt();
        engine.setEffect(saved.readInt());
        applySlotBody(client, saved, slot, savedVersion, true);
    } else {
        if (!client.options.bypassLock.load()) client.setParameter(slotRow(slot, KnobEngine::kBypass), 0.0f);
        if (engine.isRunning()) {
            client.removeFromOrder(slot);
            engine.restartThroughQuantiser();
        }
    }
    engine.controlMoved(client.getParameter(slot));
    engine.parameterChanged(KnobEngine::kParameter1);
    return complete;
}

void AFStateIO::applySlotBody(AFUniClient& client, AFChunk& chunk, int slot, int32_t version, bool silent) {
    KnobEngine& engine = client.getSlot(slot);
    const auto setRow = [&](int row, float value) {
        client.setParameter(slotRow(slot, row), clampUnit(value));
    };
    const auto readRows = [&](int first, int count) {
        for (int r = first; r < first + count; ++r)
            setRow(r, chunk.readFloat());
    };
    const bool keepDryWet = client.dryWetLock.load();
    for (int r = KnobEngine::kParameter1; r < KnobEngine::kDryWet; ++r)
        setRow(r, chunk.readFloat());
    const float dryWet = chunk.readFloat();
    if (!keepDryWet) setRow(KnobEngine::kDryWet, dryWet);
    // The lock value: with the lock off the Dry Wet above already carries it.
    if (version >= kLockValueVersion) chunk.readFloat();
    readRows(KnobEngine::kParam1KnobAmt, 5);
    for (int i = 0; i < 5; ++i)
        engine.setParameterCurve(i, chunk.readInt());
    for (int i = 0; i < 5; ++i)
        for (int source = 0; source < 3; ++source)
            client.setParameter(amountIndex(slot, 5 * source + i), bipolar(chunk.readFloat()));
    engine.setMixLaw(chunk.readInt());
    AFEffect* effect = engine.getEffect();
    // Five pairs end the loop without the terminator: the guard word read below then takes the terminator.
    for (int pair = 0; pair < kMaxOptionPairs; ++pair) {
        const int32_t option = chunk.readInt();
        if (option == kOptionsEnd) break;
        const int32_t mode = chunk.readInt();
        if (option >= 0 && option < effect->getParameterCount() && !chunk.isOverrun())
            effect->setOption(option, mode);
    }
    chunk.readInt();
    static constexpr int kValueRows[3] = {KnobEngine::kLfoRate, KnobEngine::kEfAttack, KnobEngine::kLfo2Rate};
    for (int m = 0; m < 3; ++m) {
        readRows(kValueRows[m], 3);
        readRows(KnobEngine::kLfoRateKA + 3 * m, 3);
        for (int k = 0; k < 3; ++k)
            engine.setModulatorCurve(3 * m + k, chunk.readInt());
        if (m != 1) {
            AFLfo* lfo = engine.getLfo(m / 2);
            lfo->setRecordVersion(version);
            if (!lfo->read(chunk, silent) && !silent) AFMessageSink::report("TODO CHUNK ERROR");
            // Records without a rate divide clear LFO 1's, whichever LFO is being read.
            if (version < AFLfo::kRateDivideVersion) engine.getLfo(0)->setRateDivide(0.0f);
        }
        chunk.readInt();
    }
    if (version >= kSlotIntegerVersion)
        engine.setQuantiseMode(std::clamp(chunk.readInt(), 0, KnobEngine::kQuantiseModes - 1));
    std::string name = version >= kNameVersion ? chunk.readString() : std::string(effect->getName());
    if (name.size() > kMaxNameLength) name.resize(kMaxNameLength);
    client.presetNames[static_cast<std::size_t>(slot)] = name;
    const float volume = version >= kVolumeVersion ? clampUnit(chunk.readFloat()) : 0.5f;
    client.setParameter(AFParameterMap::fxGain(slot), volume);
}

void AFStateIO::readGlobalSection(AFUniClient& client, AFChunk& chunk, int32_t stateVersion) {
    AFGlobalOptions& options = client.options;
    if (stateVersion >= 9) {
        const int32_t dynamic = chunk.readInt();
        const int32_t resetAfterLoad = chunk.readInt();
        const int32_t offOnTop = chunk.readInt();
        chunk.readInt(); // the stored CC recall lock is never applied
        const float threshold = chunk.readFloat();
        if (chunk.isOverrun()) return;
        if (options.dynamicSigFlowPP.load()) client.setDynamicSignalFlow(dynamic != 0, false);
        if (options.resetAfterLoadPP.load()) options.resetAfterLoad.store(resetAfterLoad != 0);
        if (options.offOnTopPP.load()) options.offOnTop.store(offOnTop != 0);
        if (options.thresholdPP.load() && threshold >= 0.0f && threshold <= 0.5f)
            options.threshold.store(threshold);
    }
    if (stateVersion >= 13) {
        // The stored word is dropped; with the twin on, the flag is the word after it.
        chunk.readInt();
        if (options.midiOutPP.load()) {
            const int32_t midiOut = chunk.readInt();
            if (chunk.isOverrun()) return;
            options.midiOut.store(midiOut != 0);
        }
    }
    if (stateVersion >= 5) {
        std::vector<std::pair<int32_t, int32_t>> bindings;
        for (;;) {
            const int32_t cc = chunk.readInt();
            if (chunk.isOverrun()) return;
            if (cc == kBindingsEnd) break;
            const int32_t parameter = chunk.readInt();
            if (cc >= 0 && cc < 128 && parameter >= 0 && bindings.size() < kMaxBindings)
                bindings.emplace_back(cc, parameter);
        }
        if (!options.ccRecallLock.load()) client.applyLoadedMidiMap(bindings);
    }
    if (stateVersion >= 8) {
        DictatorCells cells;
        if (!readRows(chunk, cells)) return;
        if (!client.isBatch()) applyRows(client.dictator, cells);
    } else if (stateVersion >= 6) {
        while (chunk.readInt() != kDictatorEnd)
            if (chunk.isOverrun()) return;
    }
    if (stateVersion >= 6) {
        if (stateVersion >= 8) chunk.readInt();
        const float dictatorValue = clampUnit(chunk.readFloat());
        const float second = chunk.readFloat();
        const float masterMix = stateVersion >= 10 ? clampUnit(second) : 1.0f;
        std::array<float, AFUniClient::kSlots> controls{};
        for (float& c : controls)
            c = clampUnit(chunk.readFloat());
        chunk.readInt();
        if (chunk.isOverrun()) return;
        const bool wasBatch = client.batch.exchange(true);
        client.setParameter(AFUniClient::kDictator, dictatorValue);
        client.setParameter(AFUniClient::kDryWet, masterMix);
        for (int i = 0; i < AFUniClient::kSlots; ++i)
            client.setParameter(i, controls[static_cast<std::size_t>(i)]);
        if (options.resetAfterLoad.load()) {
            client.setParameter(AFUniClient::kDictator, 0.0f);
            for (int i = 0; i < AFUniClient::kSlots; ++i)
                client.setParameter(i, 0.0f);
        }
        client.batch.store(wasBatch);
    }
    if (stateVersion >= 7) {
        std::string name = chunk.readString();
        if (chunk.isOverrun()) return;
        if (name.size() > kMaxNameLength) name.resize(kMaxNameLength);
        client.globalPresetName = name;
    }
    if (stateVersion >= 11) {
        const int32_t program = chunk.readInt();
        if (chunk.isOverrun()) return;
        client.curProgram = std::clamp(program, 0, std::max(client.getNumPrograms() - 1, 0));
    }
    if (stateVersion >= 12) {
        const int32_t index = chunk.readInt();
        if (chunk.isOverrun()) return;
        client.selectedContentIndex = index;
    }
}

bool AFStateIO::readDictator(AFUniClient& client, AFChunk& chunk, bool) {
    chunk.rewindToRead();
    DictatorCells cells;
    if (!readRows(chunk, cells)) return false;
    chunk.readInt();
    std::string name = chunk.readString();
    if (chunk.isOverrun()) return false;
    if (name.size() > kMaxNameLength) name.resize(kMaxNameLength);
    for (int n = 0; n < kNodes; ++n) {
        client.dictator.node(8, n).value = 0.0f;
        client.dictator.node(8, n).set = false;
    }
    applyRows(client.dictator, cells);
    client.dictatorPresetName = name;
    // The Controls follow the new rows at once.
    const float dictatorValue = client.getParameter(AFUniClient::kDictator);
    client.parameters[AFUniClient::kDictator].store(-1.0f, std::memory_order_relaxed);
    client.setParameter(AFUniClient::kDictator, dictatorValue);
    return true;
}

// ---- Files ------------------------------------------------------------------------------------------------

bool AFStateIO::loadPreset(AFUniClient& client, const std::string& path, int slot, bool silent) {
    AFChunk chunk;
    if (!chunk.readFile(path, silent)) return false;
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        if (!silent) report("preset was written with a newer version of %s", AFIdentity::kProduct);
        return false;
    }
    return readState(client, chunk, slot, silent);
}

bool AFStateIO::savePreset(AFUniClient& client, const std::string& path, int slot) {
    AFChunk chunk;
    writeState(client, chunk, slot);
    if (chunk.writeFile(path)) return true;
    report("saving preset to %s failed", path.c_str());
    return false;
}

bool AFStateIO::loadDictatorPreset(AFUniClient& client, const std::string& path, bool silent) {
    AFChunk chunk;
    if (!chunk.readFile(path, silent)) return false;
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        if (!silent) report("preset was written with a newer version of %s", AFIdentity::kProduct);
        return false;
    }
    return readDictator(client, chunk, silent);
}

bool AFStateIO::saveDictatorPreset(AFUniClient& client, const std::string& path) {
    AFChunk chunk;
    writeDictator(client, chunk);
    if (chunk.writeFile(path)) return true;
    report("saving preset to %s failed", path.c_str());
    return false;
}

bool AFStateIO::loadDefaultPreset(AFUniClient& client, const std::string& folder) {
    if (folder.empty()) return false;
    const std::filesystem::path base(folder);
    for (const char* file : {"default.afo", "Default.afo"}) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(base / file, error)) continue;
        if (loadPreset(client, (base / file).string(), -1, true)) return true;
    }
    return false;
}
