#include "effects/delay/AFPatternDelay.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Off", "Fade"};
constexpr const char* kOption3[] = {"Off", "2nd", "3rd"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFPatternDelay::AFPatternDelay(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFPatternDelay");
    defineParameter(0, "Delay Time", 0.3f);
    defineParameter(1, "Pattern", 0.27f);
    defineParameter(2, "Amount", 1.0f);
    defineParameter(3, "Decay", 0.8f);
}

void AFPatternDelay::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPatternDelay::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPatternDelay::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFPatternDelay::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
