#pragma once

// Chamberlin state-variable filter on 32 independent lanes, one per band. The band-pass state of lane i is
// the lane's output. A tiny offset in each update keeps the states out of the denormal range.
class LaneFilter {
public:
    static constexpr int kLanes = 32;

    // Audio thread: one step on 32 separate inputs.
    void step(const float* input) noexcept {
        for (int i = 0; i < kLanes; ++i) {
            const float t = input[i] - damp[i] * band[i];
            high[i] = t - (low[i] + kAntiDenormal);
            band[i] = band[i] + (high[i] * f[i] + kAntiDenormal);
            low[i] = low[i] + (band[i] * f[i] - kAntiDenormal);
        }
    }
    // Audio thread: one step with the same input in every lane.
    void step(float input) noexcept {
        for (int i = 0; i < kLanes; ++i) {
            const float t = input - damp[i] * band[i];
            high[i] = t - (low[i] + kAntiDenormal);
            band[i] = band[i] + (high[i] * f[i] + kAntiDenormal);
            low[i] = low[i] + (band[i] * f[i] - kAntiDenormal);
        }
    }
    // Audio thread: silences the filter, coefficients stay.
    void clear() noexcept;
    // Audio thread.
    void setF(const float* value) noexcept {
        for (int i = 0; i < kLanes; ++i)
            f[i] = value[i];
    }
    // Audio thread.
    void setDamp(float value) noexcept;
    const float* output() const noexcept { return band; }

    static constexpr float kAntiDenormal = 1e-10f;

    alignas(32) float low[kLanes] = {};
    alignas(32) float high[kLanes] = {};
    alignas(32) float band[kLanes] = {};
    alignas(32) float f[kLanes] = {};
    alignas(32) float damp[kLanes] = {};
};
