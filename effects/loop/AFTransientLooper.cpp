#include "effects/loop/AFTransientLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Threshold", "Active"};
constexpr const char* kOption1[] = {"Sync", "SyncT", "Free"};
constexpr const char* kOption2[] = {"Freeze", "Reverb", "Looper"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    case 2:
        return kOption2;
    default:
        return {};
    }
}

} // namespace

AFTransientLooper::AFTransientLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFTransientLooper");
    defineParameter(0, "Threshold", 0.5f);
    defineParameter(1, "HoldTime", 0.5f);
    defineParameter(2, "Speed", 0.5f);
    defineParameter(3, "Pitch", 0.5f);
}

void AFTransientLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTransientLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFTransientLooper::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFTransientLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
