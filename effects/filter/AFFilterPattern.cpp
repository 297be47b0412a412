#include "effects/filter/AFFilterPattern.h"

#include <cstdio>

namespace {

constexpr const char* kOption0[] = {"Var1", "Var2", "Var3", "Var4",  "Var5",      "Var6",
                                    "Var7", "Var8", "Var9", "Var10", "Bristleman"};
constexpr const char* kOption1[] = {"Normal", "Length*2", "Length*3", "Length*4"};
constexpr const char* kOption2[] = {"PingPong", "Repeat", "Synced", "SyncedX"};
constexpr const char* kOption3[] = {"Normal", "Inverse", "Smart"};

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

AFFilterPattern::AFFilterPattern(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 4, system, flag) {
    setName("AFFilterPattern");
    defineParameter(0, "Pattern", 0.0f);
    defineParameter(1, "Resonance", 0.5f);
    defineParameter(2, "SweepSpeed", 0.5f);
    defineParameter(3, "SweepRange", 0.0f);
}

void AFFilterPattern::setOption(int index, int32_t value) {
    const auto words = optionWords(index);
    if (words.empty()) return;
    options[static_cast<std::size_t>(index)] = clampOption(value, words);
}

int32_t AFFilterPattern::getOption(int index) {
    return optionWords(index).empty() ? 0 : options[static_cast<std::size_t>(index)];
}

void AFFilterPattern::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFFilterPattern::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
