#include "engine/AFGlobalSettings.h"

#include "engine/AFGlobalOptions.h"
#include "state/AFSettingsStore.h"

#include <atomic>
#include <cmath>

namespace {

struct Flag {
    const char* key;
    std::atomic<bool> AFGlobalOptions::*member;
};

struct DefaultedFlag {
    Flag flag;
    int32_t fallback;
};

constexpr const char* kThreshold = "Threshhold";

// Read order; the threshold comes last.
constexpr DefaultedFlag kReadOrder[] = {
    {{"CCRecallLock", &AFGlobalOptions::ccRecallLock}, 1},
    {{"dynamicsigflow", &AFGlobalOptions::dynamicSigFlow}, 1},
    {{"resetafterload", &AFGlobalOptions::resetAfterLoad}, 0},
    {{"offontop", &AFGlobalOptions::offOnTop}, 0},
    {{"CCRecallLockPP", &AFGlobalOptions::ccRecallLockPP}, 0},
    {{"dynamicsigflowPP", &AFGlobalOptions::dynamicSigFlowPP}, 1},
    {{"resetafterloadPP", &AFGlobalOptions::resetAfterLoadPP}, 0},
    {{"offontopPP", &AFGlobalOptions::offOnTopPP}, 0},
    {{"ThreshholdPP", &AFGlobalOptions::thresholdPP}, 0},
    {{"ignorePrgChange", &AFGlobalOptions::ignorePrgChange}, 1},
    {{"bypasslock", &AFGlobalOptions::bypassLock}, 0},
    {{"syncedhoststop", &AFGlobalOptions::syncedHostStop}, 0},
    {{"MIDI out", &AFGlobalOptions::midiOut}, 0},
    {{"MIDI outPP", &AFGlobalOptions::midiOutPP}, 0},
};

// Write order; the threshold comes first.
constexpr Flag kWriteOrder[] = {
    {"CCRecallLock", &AFGlobalOptions::ccRecallLock},
    {"dynamicsigflow", &AFGlobalOptions::dynamicSigFlow},
    {"resetafterload", &AFGlobalOptions::resetAfterLoad},
    {"offontop", &AFGlobalOptions::offOnTop},
    {"ThreshholdPP", &AFGlobalOptions::thresholdPP},
    {"CCRecallLockPP", &AFGlobalOptions::ccRecallLockPP},
    {"dynamicsigflowPP", &AFGlobalOptions::dynamicSigFlowPP},
    {"resetafterloadPP", &AFGlobalOptions::resetAfterLoadPP},
    {"offontopPP", &AFGlobalOptions::offOnTopPP},
    {"syncedhoststop", &AFGlobalOptions::syncedHostStop},
    {"ignorePrgChange", &AFGlobalOptions::ignorePrgChange},
    {"bypasslock", &AFGlobalOptions::bypassLock},
    {"MIDI out", &AFGlobalOptions::midiOut},
    {"MIDI outPP", &AFGlobalOptions::midiOutPP},
};

} // namespace

void AFGlobalSettings::read(const AFSettingsStore& store, AFGlobalOptions& options) {
    for (const DefaultedFlag& entry : kReadOrder) {
        int32_t value = entry.fallback;
        store.read(entry.flag.key, value);
        (options.*entry.flag.member).store(value != 0);
    }
    int32_t hundredths = 1;
    store.read(kThreshold, hundredths);
    options.threshold.store(thresholdFromStored(hundredths));
}

void AFGlobalSettings::write(AFSettingsStore& store, const AFGlobalOptions& options) {
    store.write(kThreshold, thresholdToStored(options.threshold.load()));
    for (const Flag& flag : kWriteOrder)
        store.write(flag.key, (options.*flag.member).load() ? 1 : 0);
}

float AFGlobalSettings::thresholdFromStored(int32_t hundredths) noexcept {
    if (hundredths >= 1 && hundredths <= 4) return static_cast<float>(hundredths * 0.01);
    return 0.01f;
}

int32_t AFGlobalSettings::thresholdToStored(float threshold) noexcept {
    const float scaled = threshold * 100.0f;
    if (!std::isfinite(scaled) || std::fabs(scaled) > 1.0e9f) return 0;
    return static_cast<int32_t>(scaled);
}
