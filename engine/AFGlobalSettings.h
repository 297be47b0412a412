#pragma once

#include <cstdint>

class AFSettingsStore;
struct AFGlobalOptions;

// The engine's options in the per-user store: read once when a plug-in is built, written once when it goes,
// so every instance starts alike and the last one closed has the last word.
class AFGlobalSettings {
public:
    // Host thread, while the client is built: each key with its default, in the fixed order.
    static void read(const AFSettingsStore& store, AFGlobalOptions& options);
    // Host thread, while the client is destroyed: every key, in the fixed order. Does not flush.
    static void write(AFSettingsStore& store, const AFGlobalOptions& options);

    // The stored hundredths: 1..4 give that many hundredths, anything else 0.01.
    static float thresholdFromStored(int32_t hundredths) noexcept;
    // trunc(threshold * 100) in single precision, so that 0.01..0.04 come back as 1..4; 0 for a value that
    // is not a number or far out of range.
    static int32_t thresholdToStored(float threshold) noexcept;
};
