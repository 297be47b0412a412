#include "effects/loop/AFSliceArranger.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Normal",   "More Bass",  "More Snare", "Pitch Down",
                                    "Pitch Up", "Pitch Flip", "Reverse",    "ReRecord"};
constexpr const char* kOption1[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption2[] = {"Repeat", "Up", "Down", "Hard", "Pong", "Soft"};
constexpr const char* kOption3[] = {"Bar", "2 Bars"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    case 2:
        return kOption2;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFSliceArranger::AFSliceArranger(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFSliceArranger");
    defineParameter(0, "Pattern", 0.0f);
    defineParameter(1, "Fill 1", 0.0f);
    defineParameter(2, "Fill 2", 0.0f);
    defineParameter(3, "Decay", 1.0f);
}

void AFSliceArranger::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFSliceArranger::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFSliceArranger::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFSliceArranger::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
