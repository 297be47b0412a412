#include "effects/filter/LaneRamp.h"

void LaneRamp::snap() noexcept {
    for (int i = 0; i < kLanes; ++i) {
        current[i] = target[i];
        delta[i] = 0.0f;
    }
}

void LaneRamp::fill(float value) noexcept {
    for (int i = 0; i < kLanes; ++i) {
        target[i] = value;
        current[i] = value;
        delta[i] = 0.0f;
    }
}
