#pragma once

#include "tools/JsonValue.h"

#include <stdexcept>
#include <string>
#include <vector>

class AFEffect;
class AFUniClient;

// Builds the binary content files from their readable sources by applying the source to an engine and letting
// the engine write the file, so every image is exactly what the program itself saves. Main thread of the
// tool.
class PresetCompiler {
public:
    // Thrown when the output cannot be written (a full disk, a folder that refuses it).
    struct WriteError : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // Reads the source and writes `output`. Throws std::runtime_error naming the fault, WriteError for the
    // write.
    static void compileFile(const std::string& source, const std::string& output);
    static void compile(const JsonValue& source, const std::string& output);

    // One slot from an effect preset object; also the slots of a global preset.
    static void applySlot(AFUniClient& client, int slot, const JsonValue& preset);
    // Eight Dictator rows, each an object of node index to value.
    static void applyDictatorRows(AFUniClient& client, const JsonValue& rows);
    // The effect's own names of its first four parameters, as its knobs show them now.
    static std::vector<std::string> effectParameterNames(AFEffect& effect);
    // A slot parameter row (0..28) by row name or by the effect's own name; -1 when unknown.
    static int slotRowByName(const std::vector<std::string>& effectNames, const std::string& name);
};
