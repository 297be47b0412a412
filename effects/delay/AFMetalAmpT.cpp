#include "effects/delay/AFMetalAmpT.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Mono", "Stereo"};
constexpr const char* kOption1[] = {"Normal", "SoftLimit", "HardLimit", "EvilLimit"};

constexpr AFParameterInfo kParameters[] = {{"Drive", 0.5f}, {"Low", 0.5f}, {"Mid", 0.5f}, {"High", 0.5f}};
constexpr AFWords kOptions[] = {kOption0, kOption1};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param1 Knob Amt", 0.8f}, {"Param3 Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFMetalAmpT::descriptor{.typeId = 23,
                                                 .displayName = "Guitar Amp",
                                                 .className = "AFMetalAmpT",
                                                 .create = makeEffect<AFMetalAmpT>,
                                                 .parameters = kParameters,
                                                 .options = kOptions,
                                                 .menuPosition = 11,
                                                 .slotDefaults = kSlotDefaults};

AFMetalAmpT::AFMetalAmpT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFMetalAmpT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFMetalAmpT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFMetalAmpT::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
