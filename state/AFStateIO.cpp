#include "state/AFStateIO.h"

#include "host/AFPluginTypes.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <cstdio>

namespace {

void report(AFMessageSink* messages, const char* format, const char* argument) {
    char text[512];
    std::snprintf(text, sizeof(text), format, argument);
    AFMessageSink::reportTo(messages, text);
}

// In the chunk's zero tail a loop waiting for a terminator can only end by running out, so it runs out at
// once.
bool runOut(AFChunk& chunk) {
    if (!chunk.inZeroTail()) return false;
    chunk.setPosition(static_cast<int32_t>(chunk.wordCount()));
    chunk.readInt();
    return true;
}

} // namespace

// ---- Writers ----------------------------------------------------------------------------------------------

void AFStateIO::writeState(const AFStateRecord& state, AFChunk& chunk, int slot) {
    if (slot < -1 || slot >= AFStateRecord::kSlots) return;
    chunk.rewindToWrite();
    writeBody(state, chunk, slot);
    chunk.allocateCounted();
    writeBody(state, chunk, slot);
}

void AFStateIO::writeBody(const AFStateRecord& state, AFChunk& chunk, int slot) {
    chunk.writeHeader();
    chunk.writeInt(chunk.getPosition());
    chunk.writeInt(kPluginId);
    chunk.writeInt(kStateVersion);
    chunk.writeInt(kStateMagic);
    if (slot >= 0) {
        writeSlotRecord(state.slots[static_cast<std::size_t>(slot)], chunk);
        return;
    }
    for (const auto& record : state.slots)
        writeSlotRecord(record, chunk);
    writeGlobalSection(state.global, chunk);
}

void AFStateIO::writeSlotRecord(const AFStateRecord::Slot& slot, AFChunk& chunk) {
    chunk.writeInt(kSlotVersion);
    chunk.writeInt(slot.type);
    for (const float value : slot.parameters)
        chunk.writeFloat(value);
    // The Dry Wet, and again as the lock value.
    chunk.writeFloat(slot.dryWet);
    chunk.writeFloat(slot.dryWet);
    for (const float value : slot.knobAmounts)
        chunk.writeFloat(value);
    for (const int32_t curve : slot.curves)
        chunk.writeInt(curve);
    for (std::size_t i = 0; i < 5; ++i)
        for (std::size_t source = 0; source < 3; ++source)
            chunk.writeFloat(slot.amounts[5 * source + i]);
    chunk.writeInt(slot.mixLaw);
    for (const auto& [option, mode] : slot.options) {
        chunk.writeInt(option);
        chunk.writeInt(mode);
    }
    chunk.writeInt(kOptionsEnd);
    chunk.writeInt(kGuardWord);
    for (std::size_t m = 0; m < 3; ++m) {
        const auto& modulator = slot.modulators[m];
        for (const float value : modulator.values)
            chunk.writeFloat(value);
        for (const float value : modulator.knobAmounts)
            chunk.writeFloat(value);
        for (const int32_t curve : modulator.curves)
            chunk.writeInt(curve);
        if (m != 1) {
            const auto& lfo = slot.lfos[m / 2];
            chunk.writeInt(lfo.rateMode);
            chunk.writeInt(lfo.triggerMode);
            chunk.writeInt(lfo.quantizeSteps);
            chunk.writeInt(lfo.waveform);
            chunk.writeFloat(lfo.rateDivide);
            for (const float step : lfo.steps)
                chunk.writeFloat(step);
        }
        chunk.writeInt(kGuardWord);
    }
    chunk.writeInt(slot.quantiseMode);
    chunk.writeString(slot.name.c_str());
    chunk.writeFloat(slot.volume);
}

void AFStateIO::writeRows(const AFStateRecord::DictatorRows& rows, AFChunk& chunk) {
    for (std::size_t r = 0; r < AFStateRecord::kDictatorRows; ++r) {
        for (std::size_t n = 0; n < AFStateRecord::kDictatorNodes; ++n) {
            if (!rows.set[r][n]) continue;
            chunk.writeInt(static_cast<int32_t>(n));
            chunk.writeFloat(rows.value[r][n]);
        }
        chunk.writeInt(kRowEnd);
    }
}

void AFStateIO::writeGlobalSection(const AFStateRecord::Global& global, AFChunk& chunk) {
    chunk.writeInt(global.dynamicSigFlow ? 1 : 0);
    chunk.writeInt(global.resetAfterLoad ? 1 : 0);
    chunk.writeInt(global.offOnTop ? 1 : 0);
    chunk.writeInt(global.ccRecallLock ? 1 : 0);
    chunk.writeFloat(global.threshold);
    chunk.writeInt(global.midiOut ? 1 : 0);
    for (const auto& [cc, parameter] : global.bindings) {
        chunk.writeInt(cc);
        chunk.writeInt(parameter);
    }
    chunk.writeInt(kBindingsEnd);
    writeRows(global.dictatorRows, chunk);
    chunk.writeInt(kDictatorEnd);
    chunk.writeFloat(global.dictator);
    chunk.writeFloat(global.masterMix);
    for (const float control : global.controls)
        chunk.writeFloat(control);
    chunk.writeInt(kHostValuesEnd);
    chunk.writeString(global.name.c_str());
    chunk.writeInt(global.program);
    chunk.writeInt(global.contentIndex);
}

void AFStateIO::writeDictator(const AFStateRecord::DictatorRows& rows, const std::string& name,
                              AFChunk& chunk) {
    chunk.rewindToWrite();
    for (int pass = 0; pass < 2; ++pass) {
        if (pass == 1) chunk.allocateCounted();
        chunk.writeHeader();
        writeRows(rows, chunk);
        chunk.writeInt(kHostValuesEnd);
        chunk.writeString(name.c_str());
    }
}

// ---- Readers ----------------------------------------------------------------------------------------------

bool AFStateIO::readState(AFChunk& chunk, int slot, bool silent, bool midiOutTwin, AFMessageSink* messages,
                          AFStateRecord& into) {
    if (slot < -1 || slot >= AFStateRecord::kSlots) return false;
    chunk.rewindToRead();
    if (chunk.getSizeInWords() <= kEmptyWords) return false;
    chunk.readInt();
    const int32_t pluginId = chunk.readInt();
    const int32_t stateVersion = chunk.readInt();
    const int32_t magic = chunk.readInt();
    if (magic != kStateMagic) {
        if (!silent) report(messages, "This is not a %s file", AFIdentity::kProduct);
        return false;
    }
    if (pluginId != kPluginId) {
        if (!silent) AFMessageSink::reportTo(messages, "wrong plugin version");
        return false;
    }
    if (stateVersion > kStateVersion) {
        AFMessageSink::reportTo(messages,
                                "This Preset was written with a newer version, please update Orvanto.");
        return false;
    }
    into.stateVersion = stateVersion;
    const int first = slot >= 0 ? slot : 0;
    const int last = slot >= 0 ? slot : AFStateRecord::kSlots - 1;
    for (int s = first; s <= last; ++s) {
        auto& record = into.slots[static_cast<std::size_t>(s)];
        readSlotRecord(chunk, silent, messages, record);
        if (!record.valid || !record.complete) return true;
    }
    if (slot < 0) readGlobalSection(chunk, stateVersion, midiOutTwin, into.global);
    return true;
}

void AFStateIO::readSlotRecord(AFChunk& chunk, bool silent, AFMessageSink* messages,
                               AFStateRecord::Slot& into) {
    into.version = chunk.readInt();
    into.type = chunk.readInt();
    into.valid = !chunk.isOverrun() && into.version >= kOldestSlotVersion && into.version <= kSlotVersion;
    into.complete = false;
    if (!into.valid) return;
    const int32_t version = into.version;
    for (float& value : into.parameters)
        value = chunk.readFloat();
    into.dryWet = chunk.readFloat();
    // The lock value: with the lock off the Dry Wet above already carries it.
    if (version >= kLockValueVersion) chunk.readFloat();
    for (float& value : into.knobAmounts)
        value = chunk.readFloat();
    for (int32_t& curve : into.curves)
        curve = chunk.readInt();
    for (std::size_t i = 0; i < 5; ++i)
        for (std::size_t source = 0; source < 3; ++source)
            into.amounts[5 * source + i] = chunk.readFloat();
    into.mixLaw = chunk.readInt();
    // Five pairs end the loop without the terminator: the guard word read below then takes the terminator.
    into.options.clear();
    for (int pair = 0; pair < kMaxOptionPairs; ++pair) {
        const int32_t option = chunk.readInt();
        if (option == kOptionsEnd) break;
        const int32_t mode = chunk.readInt();
        if (!chunk.isOverrun()) into.options.emplace_back(option, mode);
    }
    chunk.readInt();
    for (std::size_t m = 0; m < 3; ++m) {
        auto& modulator = into.modulators[m];
        for (float& value : modulator.values)
            value = chunk.readFloat();
        for (float& value : modulator.knobAmounts)
            value = chunk.readFloat();
        for (int32_t& curve : modulator.curves)
            curve = chunk.readInt();
        if (m != 1) readLfo(chunk, version, silent, messages, into.lfos[m / 2]);
        chunk.readInt();
    }
    into.hasQuantiseMode = version >= kSlotIntegerVersion;
    if (into.hasQuantiseMode) into.quantiseMode = chunk.readInt();
    into.hasName = version >= kNameVersion;
    if (into.hasName) into.name = chunk.readString();
    into.hasVolume = version >= kVolumeVersion;
    if (into.hasVolume) into.volume = chunk.readFloat();
    into.complete = !chunk.isOverrun();
}

void AFStateIO::readLfo(AFChunk& chunk, int32_t version, bool silent, AFMessageSink* messages,
                        AFStateRecord::Lfo& into) {
    into.rateMode = chunk.readInt();
    into.triggerMode = chunk.readInt();
    into.quantizeSteps = chunk.readInt();
    into.waveform = chunk.readInt();
    into.hasRateDivide = version >= kRateDivideVersion;
    if (into.hasRateDivide) into.rateDivide = chunk.readFloat();
    into.hasSteps = version >= kStepsVersion;
    into.hasGlideTable = !into.hasSteps && version >= kGlideTableVersion;
    if (into.hasSteps) {
        for (float& step : into.steps)
            step = chunk.readFloat();
    } else if (into.hasGlideTable) {
        if (!into.glideTable.read(chunk, silent) && !silent)
            AFMessageSink::reportTo(messages, "TODO CHUNK ERROR");
    }
}

void AFStateIO::readGlobalSection(AFChunk& chunk, int32_t stateVersion, bool midiOutTwin,
                                  AFStateRecord::Global& into) {
    into = AFStateRecord::Global{};
    if (stateVersion >= 9) {
        into.dynamicSigFlow = chunk.readInt() != 0;
        into.resetAfterLoad = chunk.readInt() != 0;
        into.offOnTop = chunk.readInt() != 0;
        into.ccRecallLock = chunk.readInt() != 0;
        into.threshold = chunk.readFloat();
        if (chunk.isOverrun()) return;
        into.hasOptions = true;
    }
    if (stateVersion >= 13) {
        // The stored word is dropped; with the twin on, the flag is the word after it.
        chunk.readInt();
        if (midiOutTwin) {
            into.midiOut = chunk.readInt() != 0;
            if (chunk.isOverrun()) return;
            into.hasMidiOut = true;
        }
    }
    if (stateVersion >= 5) {
        for (;;) {
            if (runOut(chunk)) return;
            const int32_t cc = chunk.readInt();
            if (chunk.isOverrun()) return;
            if (cc == kBindingsEnd) break;
            const int32_t parameter = chunk.readInt();
            if (cc >= 0 && cc < 128 && parameter >= 0 && into.bindings.size() < kMaxBindings)
                into.bindings.emplace_back(cc, parameter);
        }
        into.hasBindings = true;
    }
    if (stateVersion >= 8) {
        if (!readRows(chunk, into.dictatorRows)) return;
        into.hasDictatorRows = true;
    } else if (stateVersion >= 6) {
        for (;;) {
            if (runOut(chunk)) return;
            if (chunk.readInt() == kDictatorEnd) break;
            if (chunk.isOverrun()) return;
        }
    }
    if (stateVersion >= 6) {
        if (stateVersion >= 8) chunk.readInt();
        into.dictator = chunk.readFloat();
        const float second = chunk.readFloat();
        into.masterMix = stateVersion >= 10 ? second : 1.0f;
        for (float& control : into.controls)
            control = chunk.readFloat();
        chunk.readInt();
        if (chunk.isOverrun()) return;
        into.hasHostValues = true;
    }
    if (stateVersion >= 7) {
        into.name = chunk.readString();
        if (chunk.isOverrun()) return;
        into.hasName = true;
    }
    if (stateVersion >= 11) {
        into.program = chunk.readInt();
        if (chunk.isOverrun()) return;
        into.hasProgram = true;
    }
    if (stateVersion >= 12) {
        into.contentIndex = chunk.readInt();
        if (chunk.isOverrun()) return;
        into.hasContentIndex = true;
    }
}

bool AFStateIO::readRows(AFChunk& chunk, AFStateRecord::DictatorRows& rows) {
    rows = AFStateRecord::DictatorRows{};
    for (std::size_t r = 0; r < AFStateRecord::kDictatorRows; ++r) {
        for (;;) {
            if (runOut(chunk)) return false;
            const int32_t column = chunk.readInt();
            if (chunk.isOverrun()) return false;
            if (column == kRowEnd) break;
            const float value = chunk.readFloat();
            if (column < 0 || column >= AFStateRecord::kDictatorNodes) continue;
            rows.value[r][static_cast<std::size_t>(column)] = value;
            rows.set[r][static_cast<std::size_t>(column)] = true;
        }
    }
    return true;
}

bool AFStateIO::readDictator(AFChunk& chunk, AFStateRecord::DictatorRows& rows, std::string& name) {
    chunk.rewindToRead();
    if (!readRows(chunk, rows)) return false;
    chunk.readInt();
    name = chunk.readString();
    return !chunk.isOverrun();
}
