#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"

#include <array>

// Catalogue entry whose sound has not landed yet: it carries its names, defaults, options and displays
// and passes the audio through unchanged.
class AFPanLooper : public AFEffect, public AFBPMChangeInterface {
public:
    AFPanLooper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    void formatParameter(int index, float value, char* text) override;

private:
    std::array<int32_t, 4> options{};
};
