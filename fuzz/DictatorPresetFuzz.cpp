// A Dictator preset (.dic), then the Dictator swept so every row is evaluated.
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    AFUniClient& client = rig.client();
    client.loadDictatorPreset(rig.scratch(data, size, ".dic"), true);
    for (float position : {0.0f, 0.37f, 1.0f}) {
        client.setParameter(AFUniClient::kDictator, position);
        rig.play(1);
    }
    return 0;
}
