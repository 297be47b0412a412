#include "effects/filter/AFVowelFilter.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Highpass", "Lowpass", "Bandpass", "Comp"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    default:
        return {};
    }
}

} // namespace

AFVowelFilter::AFVowelFilter(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFVowelFilter");
    defineParameter(0, "Vowel A", 0.0f);
    defineParameter(1, "Vowel B", 0.0f);
    defineParameter(2, "Vowel Mix", 0.0f);
    defineParameter(3, "Resonance", 0.0f);
}

void AFVowelFilter::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFVowelFilter::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFVowelFilter::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFVowelFilter::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
