#pragma once

#include "state/AFChunk.h"

#include <cstdint>
#include <string>

class AFUniClient;

// The layout of the client's state: the prefix, the slot records, the global section and the Dictator
// table, for effect presets, global presets, Dictator presets and the host state. Readers keep hostile
// values inside their ranges and stop where the words run out.
class AFStateIO {
public:
    static constexpr int32_t kPluginId = 1;
    static constexpr int32_t kStateVersion = 13;
    static constexpr int32_t kStateMagic = 18467;
    static constexpr int32_t kSlotVersion = 4307;
    static constexpr int32_t kOldestSlotVersion = 4300;
    static constexpr int32_t kOptionsEnd = 6675;
    static constexpr int32_t kGuardWord = 564667589;
    static constexpr int32_t kMaxOptionPairs = 5;
    static constexpr int32_t kBindingsEnd = -2;
    static constexpr int32_t kDictatorEnd = -3;
    static constexpr int32_t kHostValuesEnd = -4;
    static constexpr int32_t kRowEnd = -23;
    // A chunk of this many words or fewer holds no state.
    static constexpr uint32_t kEmptyWords = 9;
    // CC bindings kept from one state; more are read and dropped.
    static constexpr std::size_t kMaxBindings = 128 * 8;

    // Any thread but the audio thread; the two passes of the writer included.
    static void writeState(AFUniClient& client, AFChunk& chunk, int slot);
    // Holds the audio off while it changes the slots.
    static bool readState(AFUniClient& client, AFChunk& chunk, int slot, bool silent);
    static void writeDictator(AFUniClient& client, AFChunk& chunk);
    static bool readDictator(AFUniClient& client, AFChunk& chunk, bool silent);

    // GUI or host thread: whole files, with the system's messages.
    static bool loadPreset(AFUniClient& client, const std::string& path, int slot, bool silent);
    static bool savePreset(AFUniClient& client, const std::string& path, int slot);
    static bool loadDictatorPreset(AFUniClient& client, const std::string& path, bool silent);
    static bool saveDictatorPreset(AFUniClient& client, const std::string& path);
    // Host thread, at construction: "default.afo", else "Default.afo", for all slots. A missing file is no
    // error.
    static bool loadDefaultPreset(AFUniClient& client, const std::string& folder);

    // The body of one slot record, and the reader of one. The reader restores the slot when the record is
    // cut short or names an effect the catalogue cannot build, and returns false when the loader must stop.
    static void writeSlotRecord(AFUniClient& client, AFChunk& chunk, int slot);
    // `saved` holds the slot as it stood before the load, written by writeSavedSlot.
    static bool readSlotRecord(AFUniClient& client, AFChunk& chunk, int slot, bool silent, AFChunk& saved);

private:
    static void writeBody(AFUniClient& client, AFChunk& chunk, int slot);
    static void writeGlobalSection(AFUniClient& client, AFChunk& chunk);
    static void readGlobalSection(AFUniClient& client, AFChunk& chunk, int32_t stateVersion);
    static void writeDictatorRows(AFUniClient& client, AFChunk& chunk);
    static void applySlotBody(AFUniClient& client, AFChunk& chunk, int slot, int32_t version, bool silent);
    static bool slotEffectAllowed(int32_t type);
    static void writeSavedSlot(AFUniClient& client, AFChunk& saved, int slot);
    static void prepareEffects(AFUniClient& client, const AFChunk& chunk, int first, int last);
};
