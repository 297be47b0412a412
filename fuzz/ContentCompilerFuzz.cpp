// The content compiler on any source that parses: it writes a file or names the fault, nothing else.
#include "fuzz/FuzzRig.h"
#include "tools/JsonValue.h"
#include "tools/PresetCompiler.h"

#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    try {
        const JsonValue source = JsonValue::parse(std::string(reinterpret_cast<const char*>(data), size));
        PresetCompiler::compile(source, rig.home() + "/compiled");
    } catch (const std::runtime_error&) {
    }
    return 0;
}
