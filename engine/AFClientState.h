#pragma once

#include "state/AFStateRecord.h"

#include <string>

class AFChunk;
class AFMidiBindings;
class AFUniClient;

// The client's side of its state: captures the client into records for the writer, and applies the records
// a reader parsed. A load builds what takes time (the slots to fall back on, the effects the records name,
// the CC map) before it holds the audio off; under the hold it only swaps effects and stores values.
class AFClientState {
public:
    // Any thread but the audio thread. Slot 0..7 is that slot's effect preset, -1 the global preset.
    static void writeState(AFUniClient& client, AFChunk& chunk, int slot);
    static bool readState(AFUniClient& client, AFChunk& chunk, int slot, bool silent);
    static void writeDictator(AFUniClient& client, AFChunk& chunk);
    static bool readDictator(AFUniClient& client, AFChunk& chunk, bool silent);
    // Any thread but the audio thread: one slot record at the chunk's position, for tools that measure them.
    static void writeSlotRecord(AFUniClient& client, AFChunk& chunk, int slot);

    // GUI or host thread: whole files, with the system's messages.
    static bool loadPreset(AFUniClient& client, const std::string& path, int slot, bool silent);
    static bool savePreset(AFUniClient& client, const std::string& path, int slot);
    static bool loadDictatorPreset(AFUniClient& client, const std::string& path, bool silent);
    static bool saveDictatorPreset(AFUniClient& client, const std::string& path);
    // Host thread, at construction: "default.afo", else "Default.afo", for all slots. A missing file is no
    // error.
    static bool loadDefaultPreset(AFUniClient& client, const std::string& folder);

private:
    static void captureSlot(AFUniClient& client, int slot, AFStateRecord::Slot& into);
    static void captureGlobal(AFUniClient& client, AFStateRecord::Global& into);
    static void captureRows(AFUniClient& client, AFStateRecord::DictatorRows& into);
    // The slot as its own effect preset would bring it back, to fall back on.
    static void keepSlot(AFUniClient& client, int slot, AFStateRecord::Slot& into);
    static bool slotEffectAllowed(int32_t type);
    // With the audio held off.
    static bool applySlot(AFUniClient& client, int slot, AFStateRecord::Slot& record,
                          AFStateRecord::Slot& saved);
    static void applySlotBody(AFUniClient& client, int slot, AFStateRecord::Slot& record);
    static void applyGlobal(AFUniClient& client, AFStateRecord::Global& global,
                            const AFMidiBindings* loadedMap);
    static void applyRows(AFUniClient& client, const AFStateRecord::DictatorRows& rows);
};
