#include "effects/loop/AFSliceArranger.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Normal",   "More Bass",  "More Snare", "Pitch Down",
                                    "Pitch Up", "Pitch Flip", "Reverse",    "ReRecord"};
constexpr const char* kOption1[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption2[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption3[] = {"Bar", "2 Bars"};

constexpr AFParameterInfo kParameters[] = {
    {"Pattern", 0.0f}, {"Fill 1", 0.0f}, {"Fill 2", 0.0f}, {"Decay", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param4 Knob Amt", 0.2f}};

} // namespace

const AFEffectDescriptor AFSliceArranger::descriptor{.typeId = 17,
                                                     .displayName = "Slicearranger",
                                                     .className = "AFSliceArranger",
                                                     .create = makeEffect<AFSliceArranger>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 16,
                                                     .quantise = 2,
                                                     .slotDefaults = kSlotDefaults};

AFSliceArranger::AFSliceArranger(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFSliceArranger::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFSliceArranger::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFSliceArranger::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
