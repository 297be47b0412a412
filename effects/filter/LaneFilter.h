#pragma once

// The 32-lane loops run twice as wide where the processor has AVX2; the choice is made once at load time and
// both forms compute the same values, since every sum is taken in a fixed order.
#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__)
#define LANE_WIDE_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define LANE_WIDE_CLONES
#endif

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

    // Sum of a[i] * b[i] over the 32 lanes in eight fixed partial sums, so it vectorises and always adds in
    // the same order.
    static float dot(const float* a, const float* b) noexcept {
        float acc[8] = {};
        for (int c = 0; c < kLanes; c += 8)
            for (int j = 0; j < 8; ++j)
                acc[j] += a[c + j] * b[c + j];
        return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
    }
    // Sum of the 32 lanes, in the same fixed order as dot.
    static float sum(const float* a) noexcept {
        float acc[8] = {};
        for (int c = 0; c < kLanes; c += 8)
            for (int j = 0; j < 8; ++j)
                acc[j] += a[c + j];
        return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
    }

    static constexpr float kAntiDenormal = 1e-10f;

    alignas(32) float low[kLanes] = {};
    alignas(32) float high[kLanes] = {};
    alignas(32) float band[kLanes] = {};
    alignas(32) float f[kLanes] = {};
    alignas(32) float damp[kLanes] = {};
};
