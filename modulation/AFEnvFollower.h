#pragma once
#include "effects/framework/AFEffect.h"
class AFEnvFollower : public AFEffect {
public:
    explicit AFEnvFollower(AFSystemInfo* s) : AFEffect(0, 2, s, 0) {}
    double value() const { return 0.0; }
    void reset() override {}
};
