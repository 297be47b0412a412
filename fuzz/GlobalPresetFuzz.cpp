// A global preset (.afog): every slot, the Dictator rows and the bindings at once, then played.
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    rig.client().loadPreset(rig.scratch(data, size, ".afog"), -1, true);
    rig.play(1);
    return 0;
}
