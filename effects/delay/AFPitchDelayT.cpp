#include "effects/delay/AFPitchDelayT.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption1[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption2[] = {"Normal",    "1/4",   "1/4 - - -", "1/4 -",      "1/8",
                                    "1/8 - - -", "1/8 -", "1/16",      "1/16 - - -", "1/16 -"};
constexpr const char* kOption3[] = {"Pitch",
                                    "+LP ",
                                    "+LP Q",
                                    "+Comb ",
                                    "+Comb Q",
                                    "+HP",
                                    "+HP Q",
                                    "-LP ",
                                    "-LP Q",
                                    "-Comb ",
                                    "-Comb Q",
                                    "-HP",
                                    "-HP Q",
                                    "LP",
                                    "LP Q",
                                    "Comb ",
                                    "Comb Q",
                                    "HP",
                                    "HP Q",
                                    "HP 300hz Input",
                                    "HP 600hz Input",
                                    "HP 1000hz Input",
                                    "HP 2000hz Input",
                                    "BP 300hz Input",
                                    "BP 600hz Input",
                                    "BP 1000hz Input",
                                    "BP 2000hz Input"};

constexpr AFParameterInfo kParameters[] = {
    {"Delay Left", 0.75f}, {"Delay Right", 0.75f}, {"Feedback", 0.5f}, {"Pitch", 0.75f}};
constexpr AFWords kOptions[] = {kOption0, kOption1, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Dry Wet", 0.5f}};

} // namespace

const AFEffectDescriptor AFPitchDelayT::descriptor{.typeId = 11,
                                                   .displayName = "Pitch Delay",
                                                   .className = "AFPitchDelayT",
                                                   .create = makeEffect<AFPitchDelayT>,
                                                   .parameters = kParameters,
                                                   .options = kOptions,
                                                   .menuPosition = 2,
                                                   .slotDefaults = kSlotDefaults};

AFPitchDelayT::AFPitchDelayT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFPitchDelayT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPitchDelayT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPitchDelayT::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
