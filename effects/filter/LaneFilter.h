#pragma once

#include <cstring>

// The 32-lane loops run two or four times as wide where the processor has AVX2 or AVX-512; the choice is made
// once at load time and every form computes the same values: each sum is taken in a fixed order, and no
// multiply-add is fused (AVX-512 brings fused forms the compiler would otherwise use).
// ThreadSanitizer gets the plain form only: the clones are chosen by an ifunc resolver that runs while the
// program is loaded, before the sanitizer's runtime is up, and the sanitized binary then crashes at start.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORVANTO_THREAD_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define ORVANTO_THREAD_SANITIZER 1
#endif
// So does clang (the fuzzing build): it takes a function as multiversioned only where that is declared
// before its first call, and these are members called above their definitions. The g++ builds, with and
// without AddressSanitizer, run the clones.
#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__) &&                 \
    !defined(ORVANTO_THREAD_SANITIZER)
#define LANE_WIDE_CLONES                                                                                     \
    __attribute__((target_clones("avx512f", "avx2", "default"), optimize("fp-contract=off")))
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
    // Audio thread: lane i's output is the band-pass state of lane i.
    const float* output() const noexcept { return band; }

    // Any thread. Sum of a[i] * b[i] over the 32 lanes: four eight-lane products added in a fixed tree, so
    // the result is the same at any vector width.
    static float dot(const float* a, const float* b) noexcept {
        Lanes8 x[4];
        Lanes8 y[4];
        std::memcpy(x, a, sizeof x);
        std::memcpy(y, b, sizeof y);
        return across((x[0] * y[0] + x[2] * y[2]) + (x[1] * y[1] + x[3] * y[3]));
    }
    // Any thread. Sum of the 32 lanes, in the same tree as dot.
    static float sum(const float* a) noexcept {
        Lanes8 x[4];
        std::memcpy(x, a, sizeof x);
        return across((x[0] + x[2]) + (x[1] + x[3]));
    }

    static constexpr float kAntiDenormal = 1e-10f;

    alignas(32) float low[kLanes] = {};
    alignas(32) float high[kLanes] = {};
    alignas(32) float band[kLanes] = {};
    alignas(32) float f[kLanes] = {};
    alignas(32) float damp[kLanes] = {};

private:
    using Lanes8 = float __attribute__((vector_size(32)));
    // Vectors are taken by reference: by value, a 32-byte vector would change the calling convention with
    // AVX.
    static float across(const Lanes8& v) noexcept {
        return ((v[0] + v[4]) + (v[1] + v[5])) + ((v[2] + v[6]) + (v[3] + v[7]));
    }
};
