// A step pattern (.AFS) as the pattern list loads it.
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFStepPatternFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    AFGlideTable table;
    AFStepPatternFile::load(rig.scratch(data, size, ".AFS"), table, &rig.client().getMessageSink());
    return 0;
}
