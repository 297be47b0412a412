#pragma once
#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
class AFLfo : public AFEffect, public AFBPMChangeInterface {
public:
    explicit AFLfo(AFSystemInfo* s) : AFEffect(0, 2, s, 0) {}
    float restart() { return 0.0f; }
    float tick() { return 0.0f; }
    void setParameterMode(int, int) {}
    int getParameterMode(int) { return 0; }
    void setOption(int, int32_t) override {}
};
