#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"

#include <array>

// The catalogue's hidden test entry: it keeps its names and option words, stores its option choices and
// passes the audio through unchanged.
class AFTest : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off.
    AFTest(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Any thread: group 0 is a time mode, groups 1 and 2 are flags; nothing else is stored.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;

private:
    int32_t timeMode = 0;
    std::array<int32_t, 2> flags{};
};
