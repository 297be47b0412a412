#include "effects/loop/AFTriggerLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free", "Sync X"};
constexpr const char* kOption3[] = {"Forward", "Backward", "PingPong"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFTriggerLooper::AFTriggerLooper(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFTriggerLooper");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Swing", 0.5f);
    defineParameter(2, "Trigger", 0.0f);
    defineParameter(3, "Amp", 1.0f);
}

void AFTriggerLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFTriggerLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFTriggerLooper::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFTriggerLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
