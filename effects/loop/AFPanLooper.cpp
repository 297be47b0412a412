#include "effects/loop/AFPanLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free", "SyncX"};
constexpr const char* kOption2[] = {"Free", "Tone"};
constexpr const char* kOption3[] = {"Off",      "2nd",     "3rd Off",    "3rd On",
                                    "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"};

constexpr AFParameterInfo kParameters[] = {{"Size", 0.5f}, {"Pan", 0.5f}, {"Pitch", 0.5f}, {"Amp", 1.0f}};
constexpr AFWords kOptions[] = {kOption0, AFWords{}, kOption2, kOption3};
constexpr AFSlotDefault kSlotDefaults[] = {{"Param3 Knob Amt", 0.6f}};

} // namespace

const AFEffectDescriptor AFPanLooper::descriptor{.typeId = 12,
                                                 .displayName = "Pan Looper",
                                                 .className = "AFPanLooper",
                                                 .create = makeEffect<AFPanLooper>,
                                                 .parameters = kParameters,
                                                 .options = kOptions,
                                                 .menuPosition = 14,
                                                 .quantise = 2,
                                                 .slotDefaults = kSlotDefaults};

AFPanLooper::AFPanLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

void AFPanLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPanLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPanLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
