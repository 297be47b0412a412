#include "effects/framework/ParamRamp.h"

#include "effects/framework/AFSystemInfo.h"

void ParamRamp::controlTick() noexcept {
    increment = (target - current) * static_cast<double>(systemInfo->rampFactor);
    if (increment > -kSnap && increment < kSnap) {
        increment = 0.0;
        current = target;
    }
}
