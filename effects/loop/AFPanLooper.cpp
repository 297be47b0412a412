#include "effects/loop/AFPanLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free", "SyncX"};
constexpr const char* kOption2[] = {"Free", "Tone"};
constexpr const char* kOption3[] = {"Off",      "2nd",     "3rd Off",    "3rd On",
                                    "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 2:
        return kOption2;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFPanLooper::AFPanLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFPanLooper");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Pan", 0.5f);
    defineParameter(2, "Pitch", 0.5f);
    defineParameter(3, "Amp", 1.0f);
}

void AFPanLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPanLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPanLooper::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFPanLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
