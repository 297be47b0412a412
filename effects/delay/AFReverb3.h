#pragma once

#include "effects/framework/AFEffect.h"

// Catalogue entry whose sound has not landed yet: it carries its names, defaults, options and displays
// and passes the audio through unchanged.
class AFReverb3 : public AFEffect {
public:
    AFReverb3(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);

    void formatParameter(int index, float value, char* text) override;
    bool hasFlag() override { return true; }
};
