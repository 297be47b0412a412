#include "effects/delay/AFReverseDelayV.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption1[] = {"Sync", "SyncTP", "Free"};

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

AFReverseDelayV::AFReverseDelayV(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFReverseDelayV");
    defineParameter(0, "Time Left", 0.1f);
    defineParameter(1, "Time Right", 0.2f);
    defineParameter(2, "Feedback", 0.5f);
    defineParameter(3, "Fade", 0.25f);
}

void AFReverseDelayV::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFReverseDelayV::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFReverseDelayV::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFReverseDelayV::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
