#include "effects/loop/AFBeatStretcherKN.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Amount", "Position"};
constexpr const char* kOption1[] = {"Triangle", "Hann", "Sine", "Linear", "Tukey"};
constexpr const char* kOption2[] = {"Forward", "Backward", "Ping Pong"};

std::span<const char* const> optionWords(int index) {
    switch (index) {
    case 0:
        return kOption0;
    case 1:
        return kOption1;
    case 2:
        return kOption2;
    default:
        return {};
    }
}

} // namespace

AFBeatStretcherKN::AFBeatStretcherKN(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFBeatStretcherKN");
    defineParameter(0, "Amount", 0.0f);
    defineParameter(1, "Grainsize", 0.0f);
    defineParameter(2, "Distance", 0.0f);
    defineParameter(3, "Pitch", 0.0f);
}

void AFBeatStretcherKN::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFBeatStretcherKN::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFBeatStretcherKN::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFBeatStretcherKN::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
