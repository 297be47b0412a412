#include "effects/loop/AFTransientLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Threshold", "Active"};
constexpr const char* kOption1[] = {"Sync", "SyncT", "Free"};
constexpr const char* kOption2[] = {"Freeze", "Reverb", "Looper"};

constexpr AFParameterInfo kParameters[] = {
    {"Threshold", 0.5f}, {"HoldTime", 0.5f}, {"Speed", 0.5f}, {"Pitch", 0.5f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2};

} // namespace

const AFEffectDescriptor AFTransientLooper::descriptor{.typeId = 3,
                                                       .displayName = "Reactor",
                                                       .className = "AFTransientLooper",
                                                       .create = makeEffect<AFTransientLooper>,
                                                       .parameters = kParameters,
                                                       .options = kOptions,
                                                       .menuPosition = 15};

AFTransientLooper::AFTransientLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFTransientLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTransientLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFTransientLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
