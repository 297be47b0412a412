#include "effects/delay/AFReverbHQ.h"

#include <cstdio>

namespace {

constexpr const char* kOption2[] = {"Clean",  "HP200", "HP400", "HP600", "HP800", "HP1000",
                                    "HP2000", "HP+",   "Comb+", "BP+",   "LP+"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 2:
        return kOption2;
    default:
        return {};
    }
}

} // namespace

AFReverbHQ::AFReverbHQ(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFReverbHQ");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Reverb Time", 0.5f);
    defineParameter(2, "Reflectivity", 0.5f);
    defineParameter(3, "Input", 0.5f);
}

void AFReverbHQ::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFReverbHQ::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFReverbHQ::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFReverbHQ::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
