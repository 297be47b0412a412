#include "effects/loop/AFPitchLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Step", "Glide"};
constexpr const char* kOption3[] = {"Off", "2nd", "Triple 1", "Triple 2", "Swing"};

constexpr AFParameterInfo kParameters[] = {
    {"Size", 0.5f}, {"Pitch", 0.5f}, {"Trigger", 0.0f}, {"Decay", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, AFWords{}, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.2f}};

} // namespace

const AFEffectDescriptor AFPitchLooper::descriptor{.typeId = 2,
                                                   .displayName = "Pitch Looper",
                                                   .className = "AFPitchLooper",
                                                   .create = makeEffect<AFPitchLooper>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 13,
                                                   .quantise = 2,
                                                   .slotDefaults = kSlotDefaults};

AFPitchLooper::AFPitchLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFPitchLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPitchLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPitchLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
