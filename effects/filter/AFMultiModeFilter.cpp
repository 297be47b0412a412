#include "effects/filter/AFMultiModeFilter.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Highpass", "Bandpass", "Lowpass", "Comb", "12dB LP", "12dB HP", "12dB BR", "12dB BP", "24dB LP", "24dB HP", "24dB BR", "24dB BP"};
constexpr const char* kOption2[] = {"Unlink", "Link"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 2:
        return kOption2;
    default:
        return {};
    }
}

} // namespace

AFMultiModeFilter::AFMultiModeFilter(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFMultiModeFilter");
    defineParameter(0, "Cutoff L", 0.0f);
    defineParameter(1, "Reso L", 0.0f);
    defineParameter(2, "Cutoff R", 0.0f);
    defineParameter(3, "Reso R", 0.0f);
}

void AFMultiModeFilter::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFMultiModeFilter::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFMultiModeFilter::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFMultiModeFilter::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
