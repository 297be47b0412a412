#include "effects/loop/AFTapeStopper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "SyncTP", "Free"};
constexpr const char* kOption1[] = {"Stop", "Scratch", "Manual"};

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

AFTapeStopper::AFTapeStopper(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFTapeStopper");
    defineParameter(0, "Size", 0.44f);
    defineParameter(1, "Slow Down", 0.0f);
    defineParameter(2, "Down Slope", 0.23f);
    defineParameter(3, "Up Slope", 0.0f);
}

void AFTapeStopper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTapeStopper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFTapeStopper::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFTapeStopper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
