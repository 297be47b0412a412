#include "effects/filter/AFFilterBank.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Tonal", "Sync", "Free"};
constexpr const char* kOption1[] = {"Off", "Akea", "Duka", "Tria", "Mura", "Desa", "Sura", "Kora", "Jona", "Riga"};
constexpr const char* kOption2[] = {"Off", "Pan1", "Pan2"};
constexpr const char* kOption3[] = {"Off", "2nd", "3rd"};

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

AFFilterBank::AFFilterBank(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFFilterBank");
    defineParameter(0, "Delay Time", 0.0f);
    defineParameter(1, "Frequency", 0.5f);
    defineParameter(2, "Resonance", 0.5f);
    defineParameter(3, "Bands", 0.0f);
}

void AFFilterBank::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFFilterBank::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFFilterBank::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFFilterBank::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
