#include "effects/loop/AFPitchLooper.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "Sync TP", "Free"};
constexpr const char* kOption1[] = {"Step", "Glide"};
constexpr const char* kOption3[] = {"Off", "2nd", "Triple 1", "Triple 2", "Swing"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFPitchLooper::AFPitchLooper(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFPitchLooper");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Pitch", 0.5f);
    defineParameter(2, "Trigger", 0.0f);
    defineParameter(3, "Decay", 1.0f);
}

void AFPitchLooper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFPitchLooper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFPitchLooper::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFPitchLooper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
