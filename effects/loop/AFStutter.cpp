#include "effects/loop/AFStutter.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Sync", "SyncT", "Free", "Sync X", "Sync TP", "Sync PPQ"};
constexpr const char* kOption1[] = {"Normal", "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"};

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

AFStutter::AFStutter(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("AFStutter");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Decay", 1.0f);
    defineParameter(2, "Shape", 0.0f);
    defineParameter(3, "Pan", 0.3f);
}

void AFStutter::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFStutter::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFStutter::getOptionList(int index, AFWordList& list) { appendWords(list, optionWords(index)); }

void AFStutter::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
