#include "effects/filter/AFVocodil.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Saw", "Tri", "Square", "Sine", "Saw2", "Tri2", "Square2", "Sine2"};
constexpr const char* kOption1[] = {"1 Hi", "2 Hi", "2 Low", "1 Low"};
constexpr const char* kOption2[] = {"Maj", "Min", "Whole", "Dim", "Aug", "4th", "Octave", "Weird"};
constexpr const char* kOption3[] = {"Up",     "Down",     "PingPong", "Up2",     "Down2",     "PingPong2",
                                    "TrigUp", "TrigDown", "TrigPP",   "Trig2Up", "Trig2Down", "Trig2PP"};

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

AFVocodil::AFVocodil(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFVocodil");
    defineParameter(0, "Sound", 0.0f);
    defineParameter(1, "Note", 0.0f);
    defineParameter(2, "Spread", 0.0f);
    defineParameter(3, "Arp", 0.0f);
}

void AFVocodil::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFVocodil::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFVocodil::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFVocodil::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
