#include "effects/filter/AFFlangerT.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Flanger", "Chorus"};
constexpr const char* kOption1[] = {"Flanger", "Chorus"};
constexpr const char* kOption2[] = {"Normal", "Inverse"};
constexpr const char* kOption3[] = {"Low Q", "Mid Q", "High Q"};

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

AFFlangerT::AFFlangerT(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFFlangerT");
    defineParameter(0, "Delay Left", 0.0f);
    defineParameter(1, "Delay Right", 0.01f);
    defineParameter(2, "Feedback", 0.58f);
    defineParameter(3, "Filter", 0.5f);
}

void AFFlangerT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFFlangerT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFFlangerT::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFFlangerT::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
