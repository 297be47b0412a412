#include "effects/filter/AFKnobixPhaser.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"3 Stages", "4 Stages", "5 Stages", "6 Stages", "7 Stages", "8 Stages"};
constexpr const char* kOption1[] = {"Normal", "Invert"};

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

AFKnobixPhaser::AFKnobixPhaser(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFKnobixPhaser");
    defineParameter(0, "Phase", 0.0f);
    defineParameter(1, "Feedback", 0.0f);
    defineParameter(2, "Depth", 0.0f);
    defineParameter(3, "Width", 0.0f);
}

void AFKnobixPhaser::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFKnobixPhaser::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFKnobixPhaser::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFKnobixPhaser::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
