#include "effects/delay/AFTest.h"

namespace {

constexpr const char* kTimeWords[] = {"Sync", "SyncT", "Free"};
constexpr const char* kFadeWords[] = {"Off", "Fade"};
constexpr const char* kNullDelayWords[] = {"Off", "NullDelay"};
constexpr const char* kHarmonicWords[] = {"Off", "2nd", "3rd"};

constexpr AFParameterInfo kParameters[] = {
    {"Delay", 0.75f}, {"Pattern", 0.5f}, {"Amount", 0.5f}, {"Decay", 0.0f}};
constexpr AFWords kOptions[] = {kTimeWords, kFadeWords, kNullDelayWords, kHarmonicWords};

} // namespace

const AFEffectDescriptor AFTest::descriptor{.typeId = 28,
                                            .displayName = "Test",
                                            .className = "test",
                                            .create = makeEffect<AFTest>,
                                            .parameters = kParameters,
                                            .options = kOptions,
                                            .menuPosition = -1};

AFTest::AFTest(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag) {}

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
