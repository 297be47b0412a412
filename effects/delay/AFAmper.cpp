#include "effects/delay/AFAmper.h"

#include <cstdio>

namespace {

constexpr const char* kOption2[] = {"Normal", "Hi", "Low", "Clip"};
constexpr const char* kOption3[] = {"Normal", "Dynamic", "Absurd"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 2:
        return kOption2;
    case 3:
        return kOption3;
    default:
        return {};
    }
}

} // namespace

AFAmper::AFAmper(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFAmper");
    defineParameter(0, "Volume", 0.5f);
    defineParameter(1, "Pan", 0.5f);
    defineParameter(2, "Crush", 0.0f);
    defineParameter(3, "Samplerate", 0.0f);
}

void AFAmper::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFAmper::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFAmper::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFAmper::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
