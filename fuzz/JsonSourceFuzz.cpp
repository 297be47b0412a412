// The readable content sources: any text either parses or throws the parser's own error.
#include "tools/JsonValue.h"

#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    try {
        JsonValue::parse(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const std::runtime_error&) {
    }
    return 0;
}
