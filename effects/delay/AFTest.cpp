#include "effects/delay/AFTest.h"

namespace {

constexpr const char* kTimeWords[] = {"Sync", "SyncT", "Free"};
constexpr const char* kFadeWords[] = {"Off", "Fade"};
constexpr const char* kNullDelayWords[] = {"Off", "NullDelay"};
constexpr const char* kHarmonicWords[] = {"Off", "2nd", "3rd"};

} // namespace

AFTest::AFTest(uint32_t type, AFSystemInfo* system, uint32_t flag) : AFEffect(type, 4, system, flag) {
    setName("test");
    defineParameter(0, "Delay", 0.75f);
    defineParameter(1, "Pattern", 0.5f);
    defineParameter(2, "Amount", 0.5f);
    defineParameter(3, "Decay", 0.0f);
}

void AFTest::setOption(int index, int32_t value) {
    if (index == 0) timeMode = clampOption(value, kTimeWords);
    if (index == 1) flags[0] = clampOption(value, kFadeWords);
    if (index == 2) flags[1] = clampOption(value, kNullDelayWords);
}

int32_t AFTest::getOption(int index) {
    if (index == 0) return timeMode;
    if (index == 1 || index == 2) return flags[static_cast<std::size_t>(index - 1)];
    return 0;
}

void AFTest::getOptionList(int index, AFWordList& list) {
    switch (index) {
    case 0:
        appendWords(list, kTimeWords);
        break;
    case 1:
        appendWords(list, kFadeWords);
        break;
    case 2:
        appendWords(list, kNullDelayWords);
        break;
    case 3:
        appendWords(list, kHarmonicWords);
        break;
    default:
        break;
    }
}
