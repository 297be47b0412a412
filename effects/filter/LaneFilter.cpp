#include "effects/filter/LaneFilter.h"

void LaneFilter::clear() noexcept {
    for (int i = 0; i < kLanes; ++i) {
        low[i] = 0.0f;
        high[i] = 0.0f;
        band[i] = 0.0f;
    }
}

void LaneFilter::setDamp(float value) noexcept {
    for (int i = 0; i < kLanes; ++i)
        damp[i] = value;
}
