#pragma once

#include "state/AFStateRecord.h"

#include <cstdint>
#include <string>

class AFChunk;
class AFMessageSink;

// The layout of the state in a chunk: the prefix, the slot records, the global section and the Dictator
// table, for effect presets, global presets, Dictator presets and the host state. Readers parse into records
// and keep reading where hostile words lead, stopping where the words run out; what the values mean is the
// engine's business.
class AFStateIO {
public:
    static constexpr int32_t kPluginId = 1;
    static constexpr int32_t kStateVersion = 13;
    static constexpr int32_t kStateMagic = 18467;
    static constexpr int32_t kSlotVersion = 4307;
    static constexpr int32_t kOldestSlotVersion = 4300;
    static constexpr int32_t kOptionsEnd = 6675;
    static constexpr int32_t kGuardWord = 564667589;
    static constexpr int32_t kMaxOptionPairs = AFStateRecord::kMaxOptionPairs;
    static constexpr int32_t kBindingsEnd = -2;
    static constexpr int32_t kDictatorEnd = -3;
    static constexpr int32_t kHostValuesEnd = -4;
    static constexpr int32_t kRowEnd = -23;
    // Record versions that gate fields.
    static constexpr int32_t kGlideTableVersion = 4302;
    static constexpr int32_t kSlotIntegerVersion = 4301;
    static constexpr int32_t kNameVersion = 4303;
    static constexpr int32_t kStepsVersion = 4304;
    static constexpr int32_t kLockValueVersion = 4305;
    static constexpr int32_t kRateDivideVersion = 4306;
    static constexpr int32_t kVolumeVersion = 4307;
    // A chunk of this many words or fewer holds no state.
    static constexpr uint32_t kEmptyWords = 9;
    // CC bindings kept from one state; more are read and dropped.
    static constexpr std::size_t kMaxBindings = 128 * 8;

    // Any thread. Slot 0..7 reads one effect preset into that slot's record, -1 all eight records and, when
    // every record is complete, the global section. False, with the system's message unless `silent`, when
    // the prefix refuses the chunk. The twin of MIDI out decides whether the section holds the flag's word.
    static bool readState(AFChunk& chunk, int slot, bool silent, bool midiOutTwin, AFMessageSink* messages,
                          AFStateRecord& into);
    // Any thread: both passes of the writer; the caller sets the header's tempo and sample rate first.
    static void writeState(const AFStateRecord& state, AFChunk& chunk, int slot);
    // Any thread: one slot record as the state holds it, at the chunk's position.
    static void writeSlotRecord(const AFStateRecord::Slot& slot, AFChunk& chunk);
    // Any thread: the eight rows and the name of a Dictator preset. False when the words ran out.
    static bool readDictator(AFChunk& chunk, AFStateRecord::DictatorRows& rows, std::string& name);
    static void writeDictator(const AFStateRecord::DictatorRows& rows, const std::string& name,
                              AFChunk& chunk);

private:
    static void writeBody(const AFStateRecord& state, AFChunk& chunk, int slot);
    static void writeGlobalSection(const AFStateRecord::Global& global, AFChunk& chunk);
    static void writeRows(const AFStateRecord::DictatorRows& rows, AFChunk& chunk);
    static bool readRows(AFChunk& chunk, AFStateRecord::DictatorRows& rows);
    static void readSlotRecord(AFChunk& chunk, bool silent, AFMessageSink* messages,
                               AFStateRecord::Slot& into);
    static void readLfo(AFChunk& chunk, int32_t version, bool silent, AFMessageSink* messages,
                        AFStateRecord::Lfo& into);
    static void readGlobalSection(AFChunk& chunk, int32_t stateVersion, bool midiOutTwin,
                                  AFStateRecord::Global& into);
};
