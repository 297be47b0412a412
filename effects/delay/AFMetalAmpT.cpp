#include "effects/delay/AFMetalAmpT.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Mono", "Stereo"};
constexpr const char* kOption1[] = {"Normal", "SoftLimit", "HardLimit", "EvilLimit"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    default:
        return {};
    }
}

} // namespace

AFMetalAmpT::AFMetalAmpT(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFMetalAmpT");
    defineParameter(0, "Drive", 0.5f);
    defineParameter(1, "Low", 0.5f);
    defineParameter(2, "Mid", 0.5f);
    defineParameter(3, "High", 0.5f);
}

void AFMetalAmpT::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFMetalAmpT::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFMetalAmpT::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFMetalAmpT::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
