#include "effects/filter/AFFilterPattern.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Var1", "Var2", "Var3", "Var4",  "Var5",      "Var6",
                                    "Var7", "Var8", "Var9", "Var10", "Bristleman"};
constexpr const char* kOption1[] = {"Normal", "Length*2", "Length*3", "Length*4"};
constexpr const char* kOption2[] = {"PingPong", "Repeat", "Synced", "SyncedX"};
constexpr const char* kOption3[] = {"Normal", "Inverse", "Smart"};

constexpr AFParameterInfo kParameters[] = {
    {"Pattern", 0.0f}, {"Resonance", 0.5f}, {"SweepSpeed", 0.5f}, {"SweepRange", 0.0f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param3 Knob Amt", 0.9f}};

} // namespace

const AFEffectDescriptor AFFilterPattern::descriptor{.typeId = 25,
                                                     .displayName = "Filter Pattern",
                                                     .className = "AFFilterPattern",
                                                     .create = makeEffect<AFFilterPattern>,
                                                     .parameters = kParameters,
                                                     .options = kOptions,
                                                     .menuPosition = 21,
                                                     .quantise = 2,
                                                     .slotDefaults = kSlotDefaults};

AFFilterPattern::AFFilterPattern(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFFilterPattern::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFFilterPattern::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFFilterPattern::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
