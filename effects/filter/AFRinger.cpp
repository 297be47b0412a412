#include "effects/filter/AFRinger.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Hi", "Lo"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    default:
        return {};
    }
}

} // namespace

AFRinger::AFRinger(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFRinger");
    defineParameter(0, "Pitch", 0.0f);
    defineParameter(1, "VCA", 0.0f);
    defineParameter(2, "Amt", 0.0f);
    defineParameter(3, "Waveform", 0.0f);
}

void AFRinger::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFRinger::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFRinger::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFRinger::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
