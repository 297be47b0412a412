#include "effects/delay/AFReverbHQ.h"

#include <cstdio>

namespace {

constexpr const char* kOption2[] = {"Clean",  "HP200", "HP400", "HP600", "HP800", "HP1000",
                                    "HP2000", "HP+",   "Comb+", "BP+",   "LP+"};

constexpr AFParameterInfo kParameters[] = {
    {"Size", 0.5f}, {"Reverb Time", 0.5f}, {"Reflectivity", 0.5f}, {"Input", 0.5f}};
constexpr AFWords kOptions[] = {AFWords{}, AFWords{}, kOption2};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.2f}, {"DryWet Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFReverbHQ::descriptor{.typeId = 13,
                                                .displayName = "Reverb",
                                                .className = "AFReverbHQ",
                                                .create = makeEffect<AFReverbHQ>,
                                                .parameters = kParameters,
                                                .options = kOptions,
                                                .menuPosition = 6,
                                                .slotDefaults = kSlotDefaults};

AFReverbHQ::AFReverbHQ(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFReverbHQ::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFReverbHQ::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFReverbHQ::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
