#pragma once

#include <cstdint>
#include <string>
#include <vector>

class AFChunk;
class AFUniClient;

// Reads any content file kind (effect preset, global preset, Dictator preset, MIDI map, step pattern) through
// the engine's own loaders: `describe` renders every field as JSON, `check` is strict where the loaders
// forgive and names the first wrong word. Main thread of the tool.
class PresetInspector {
public:
    enum class Kind { Effect, Global, Dictator, MidiMap, Pattern, Unknown };

    explicit PresetInspector(std::string path);

    // False with `problem()` set when the file is not sound.
    bool check();
    // The file as JSON; empty with `problem()` set when the file cannot be read at all.
    std::string describe();
    const std::string& problem() const noexcept { return fault; }
    Kind kind() const noexcept { return fileKind; }

private:
    bool loadImage();
    bool checkHeader();
    bool loadState(AFUniClient& client, int slot);
    bool checkRecordHeads(AFUniClient& client, int slots);
    bool compareWords(const AFChunk& written, int32_t from, int32_t to);
    bool checkGlobalSection(int32_t from);
    bool checkDictatorRows(int32_t& position);
    bool checkString(int32_t& position, const char* field);
    bool checkPattern();
    bool checkMidiMap();
    std::string describeMidiMap();
    std::string describeState(AFUniClient& client);
    std::string describeSlot(AFUniClient& client, int slot);
    std::string describeRows(int32_t& position);
    std::string describeGlobalSection(int32_t position);
    std::string describePattern();
    std::string headerJson() const;
    bool failAt(int32_t word, const std::string& what);
    int32_t slotRecordsEnd(AFUniClient& client, int slots) const;
    int32_t intAt(int32_t word) const;
    float floatAt(int32_t word) const;

    std::string path;
    std::string fault;
    std::string messages;
    Kind fileKind = Kind::Unknown;
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> fileWords;
};
