#include "host/AFMasterBypass.h"

#include <algorithm>
#include <cmath>

void AFMasterBypass::setSampleRate(double rate) noexcept {
    const int32_t old = length;
    length = static_cast<int32_t>(std::max(1.0, std::round(rate * 0.01)));
    step = static_cast<int32_t>(static_cast<int64_t>(step) * length / old);
}

void AFMasterBypass::process(const float* dryL, const float* dryR, float* outL, float* outR,
                             uint32_t frames) noexcept {
    const int32_t goal = on ? length : 0;
    const float scale = 1.0f / static_cast<float>(length);
    uint32_t i = 0;
    for (; i < frames && step != goal; ++i) {
        step += step < goal ? 1 : -1;
        const float amount = static_cast<float>(step) * scale;
        outL[i] += (dryL[i] - outL[i]) * amount;
        outR[i] += (dryR[i] - outR[i]) * amount;
    }
    if (goal == 0) return;
    std::copy(dryL + i, dryL + frames, outL + i);
    std::copy(dryR + i, dryR + frames, outR + i);
}
