#include "effects/filter/AFTonalizer.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Chromatic", "Whole", "3rd", "4rd", "5th", "7th", "Octave"};
constexpr const char* kOption1[] = {"Chromatic", "Whole", "3rd", "4rd", "5th", "7th", "Octave"};
constexpr const char* kOption2[] = {"Normal", "Inverse"};
constexpr const char* kOption3[] = {"Flat", "Sweep", "Rootnote"};

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

AFTonalizer::AFTonalizer(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFTonalizer");
    defineParameter(0, "Note Left", 0.0f);
    defineParameter(1, "Note Right", 0.0f);
    defineParameter(2, "Feedback", 0.85f);
    defineParameter(3, "Hold", 0.25f);
}

void AFTonalizer::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTonalizer::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFTonalizer::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFTonalizer::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
