// The settings file: read, a key of each kind written and flushed, and read back from the merged file.
#include "fuzz/FuzzRig.h"
#include "state/AFSettingsStore.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    const std::string path = rig.scratch(data, size, ".conf");
    {
        AFSettingsStore store(path);
        int32_t number = 0;
        std::string text;
        store.read("Threshhold", number);
        store.read("installpath", text);
        store.write("fuzz number", 42);
        store.write("fuzz text", std::string("a \"quoted\" \\ value"));
        if (!store.flush()) return 0;
    }
    AFSettingsStore again(path);
    int32_t number = 0;
    std::string text;
    if (!again.read("fuzz number", number) || number != 42) std::abort();
    if (!again.read("fuzz text", text) || text != "a \"quoted\" \\ value") std::abort();
    return 0;
}
