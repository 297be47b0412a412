// An effect preset (.afo) loaded into a slot the first byte chooses, then played.
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    const int slot = size > 0 ? data[0] % 8 : 0;
    rig.client().loadPreset(rig.scratch(data, size, ".afo"), slot, true);
    rig.play(1);
    return 0;
}
