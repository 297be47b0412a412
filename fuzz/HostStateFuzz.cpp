// The host's state: what a DAW hands back from a saved session, possibly damaged. Loaded, played, saved and
// loaded again; the second save must equal the first.
#include "engine/AFUniClient.h"
#include "fuzz/FuzzRig.h"

#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzRig& rig = FuzzRig::get();
    AFUniClient& client = rig.client();
    std::vector<uint8_t> input(data, data + size);
    client.setChunk(input.data(), static_cast<int32_t>(input.size()), false);
    rig.play(2);
    void* saved = nullptr;
    const int32_t savedSize = client.getChunk(&saved, false);
    if (savedSize <= 0 || saved == nullptr) std::abort();
    std::vector<uint8_t> first(static_cast<const uint8_t*>(saved),
                               static_cast<const uint8_t*>(saved) + savedSize);
    client.setChunk(first.data(), static_cast<int32_t>(first.size()), false);
    const int32_t againSize = client.getChunk(&saved, false);
    if (againSize != savedSize || std::memcmp(saved, first.data(), first.size()) != 0) std::abort();
    return 0;
}
