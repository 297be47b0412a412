#include "tools/ToolClient.h"

#include "engine/AFUniClient.h"
#include "host/AFPluginTypes.h"

#include <cstdio>

namespace {

intptr_t answer(AFPluginBase*, int32_t opcode, int32_t, intptr_t, void* ptr, float) {
    if (opcode != audioMasterGetVendorString || !ptr) return 0;
    std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", AFIdentity::kVendor);
    return 1;
}

} // namespace

std::unique_ptr<AFUniClient> ToolClient::create() {
    return std::make_unique<AFUniClient>(answer, nullptr);
}
