#include "effects/filter/CountRamp.h"

float CountRamp::next(float value, float ms) noexcept {
    if (value != target) {
        target = value;
        const float blocks = blocksPerMs * ms;
        count = blocks >= 1.0f ? static_cast<uint32_t>(blocks) : 1u;
        step = -(value - current) / static_cast<float>(count);
    }
    if (target != current) {
        --count;
        current -= step;
        if (count == 0) {
            current = target;
            step = 0.0f;
        }
    }
    return current;
}

void CountRamp::jump(float value) noexcept {
    target = value;
    current = value;
    step = 0.0f;
    count = 0;
}
