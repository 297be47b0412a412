#include "effects/delay/AFPatternDelay.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Off", "Fade"};
constexpr const char* kOption3[] = {"Off", "2nd", "3rd"};

constexpr AFParameterInfo kParameters[] = {
    {"Delay Time", 0.3f}, {"Pattern", 0.27f}, {"Amount", 1.0f}, {"Decay", 0.8f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, AFWords{}, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.25f}};

} // namespace

const AFEffectDescriptor AFPatternDelay::descriptor{.typeId = 20,
                                                    .displayName = "Pattern Delay",
                                                    .className = "AFPatternDelay",
                                                    .create = makeEffect<AFPatternDelay>,
                                                    .parameters = kParameters,
                                                    .options = kOptions,
                                                    .menuPosition = 0,
                                                    .slotDefaults = kSlotDefaults};

AFPatternDelay::AFPatternDelay(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFPatternDelay::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPatternDelay::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPatternDelay::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
