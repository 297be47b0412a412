#include "effects/delay/DriveStage.h"

#include "effects/filter/LaneFilter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// Kaiser window shape: about 70 dB of stop band.
constexpr double kBeta = 7.0;
// The interpolator keeps the guitar's band and rejects every image, at a quarter of the base rate.
constexpr double kInterpolatorShare = 0.25;

double besselI0(double x) {
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; k < 30; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
    }
    return sum;
}

// Windowed-sinc low-pass of Taps taps at unit DC gain; `corner` as a share of the oversampled rate.
template <int Taps>
std::array<double, Taps> lowPass(double corner) {
    std::array<double, Taps> h{};
    const double middle = (Taps - 1) * 0.5;
    double sum = 0.0;
    for (int i = 0; i < Taps; ++i) {
        const double t = i - middle;
        const double sinc = t == 0.0
                                ? 2.0 * corner
                                : std::sin(2.0 * 3.141592653589793 * corner * t) / (3.141592653589793 * t);
        const double r = t / middle;
        h[static_cast<std::size_t>(i)] =
            sinc * besselI0(kBeta * std::sqrt(std::max(0.0, 1.0 - r * r))) / besselI0(kBeta);
        sum += h[static_cast<std::size_t>(i)];
    }
    for (double& v : h)
        v /= sum;
    return h;
}

using Lanes4 = float __attribute__((vector_size(16)));
using Lanes8 = float __attribute__((vector_size(32)));

// tanh on eight lanes, in place, as the [7/6] Padé approximant of its continued fraction, within 1e-4 of it
// and exactly 1 where the approximant reaches 1 (x = 4.972), so the curve stays monotonic and smooth but for
// a slope step of 2e-4 there. Being smooth, unlike a clamped polynomial, its harmonics fall off fast enough
// that little is left to fold back at four times the rate. By reference: a 32-byte vector by value would
// change the calling convention with AVX.
inline void saturate(Lanes8& x) noexcept {
    constexpr float kEdge = 4.972f;
    x = x < -kEdge ? Lanes8{} - kEdge : (x > kEdge ? Lanes8{} + kEdge : x);
    const Lanes8 s = x * x;
    const Lanes8 above = ((s + 378.0f) * s + 17325.0f) * s + 135135.0f;
    const Lanes8 below = ((s * 28.0f + 3150.0f) * s + 62370.0f) * s + 135135.0f;
    x = x * above / below;
}

// Adds to each lane the sample Gap places before it, from the vector `was` before this one, and keeps this
// one in `was` for the next.
template <int Gap>
inline void addEarlier(Lanes8& v, Lanes8& was) noexcept {
    const Lanes8 now = v;
    v += __builtin_shufflevector(was, now, 8 - Gap, 9 - Gap, 10 - Gap, 11 - Gap, 12 - Gap, 13 - Gap, 14 - Gap,
                                 15 - Gap);
    was = now;
}

} // namespace

void DriveStage::design(float sampleRate, float cabinetHz) noexcept {
    const auto up = lowPass<kUpTaps>(kInterpolatorShare / kFactor);
    for (int i = 0; i < kUpTaps; ++i)
        upPhases[static_cast<std::size_t>(i)] = static_cast<float>(up[static_cast<std::size_t>(i)] * kFactor);
    const double corner = std::min(static_cast<double>(cabinetHz), 0.2 * sampleRate) / (sampleRate * kFactor);
    const auto down = lowPass<kDownTaps>(corner);
    for (int i = 0; i < kDownTaps; ++i)
        downReversed[static_cast<std::size_t>(i)] =
            static_cast<float>(down[static_cast<std::size_t>(kDownTaps - 1 - i)]);
}

void DriveStage::reset() noexcept {
    input.fill(0.0f);
    firstOut.fill(0.0f);
    secondOut.fill(0.0f);
}

LANE_WIDE_CLONES void DriveStage::process(const float* in, float* out, int count, float secondGain,
                                          float secondStep, float bias) noexcept {
    std::memcpy(input.data() + kUpHistory, in, static_cast<std::size_t>(count) * sizeof(float));
    const int overCount = count * kFactor;

    // Interpolator: the four phases of one input sample side by side in four lanes.
    float raised[kFactor * kMaxBlock];
    Lanes4 phases[kUpTaps / kFactor];
    std::memcpy(phases, upPhases.data(), sizeof(phases));
    for (int n = 0; n < count; ++n) {
        const float* x = input.data() + kUpHistory + n;
        Lanes4 sum = phases[0] * x[0];
        for (int k = 1; k < kUpTaps / kFactor; ++k)
            sum += phases[k] * x[-k];
        std::memcpy(raised + kFactor * n, &sum, sizeof(sum));
    }

    // First stage, eight samples at a time; the lanes past the block work on zeros and are never read.
    const int laneCount = (overCount + 7) / 8 * 8;
    std::fill(raised + overCount, raised + laneCount, 0.0f);
    // The stage's output at rest, so that silence stays silent.
    Lanes8 rest = Lanes8{} + bias;
    saturate(rest);
    float* first = firstOut.data() + kSmoothHistory;
    for (int i = 0; i < laneCount; i += 8) {
        Lanes8 v;
        std::memcpy(&v, raised + i, sizeof(v));
        v += bias;
        saturate(v);
        v -= rest;
        std::memcpy(first + i, &v, sizeof(v));
    }

    // Treble loss between the stages: a triangle of taps 1..16..1, built as two sums of sixteen, each sum as
    // four doublings of pairs, so that no tap needs a multiply. Each doubling keeps the vector it saw before
    // and takes the earlier samples from it by a shuffle, not through memory; they all start on zeros at the
    // history, which holds the triangle's whole reach, so the block's own samples come out exact.
    static_assert(kSmoothTaps == 31 && kSmoothHistory >= kSmoothTaps - 1 && kSmoothHistory % 8 == 0);
    alignas(32) float smooth[kFactor * kMaxBlock];
    Lanes8 before[8] = {};
    for (int i = -kSmoothHistory; i < laneCount; i += 8) {
        Lanes8 v;
        std::memcpy(&v, first + i, sizeof(v));
        for (int box = 0; box < 2; ++box) {
            addEarlier<1>(v, before[4 * box]);
            addEarlier<2>(v, before[4 * box + 1]);
            addEarlier<4>(v, before[4 * box + 2]);
            addEarlier<8>(v, before[4 * box + 3]);
        }
        if (i >= 0) std::memcpy(smooth + i, &v, sizeof(v));
    }

    // Second stage.
    float* second = secondOut.data() + kDownHistory;
    const Lanes8 ramp = {0, 1, 2, 3, 4, 5, 6, 7};
    for (int i = 0; i < laneCount; i += 8) {
        Lanes8 v;
        std::memcpy(&v, smooth + i, sizeof(v));
        v *= (1.0f / 256.0f) * (secondGain + secondStep * (ramp + static_cast<float>(i)));
        saturate(v);
        std::memcpy(second + i, &v, sizeof(v));
    }

    // Decimator: one output for every four, each a dot product in eight lanes; eight outputs at a time, whose
    // lane sums fold together in three rounds of shuffles, each sum in a fixed order.
    Lanes8 taps[kDownTaps / 8];
    std::memcpy(taps, downReversed.data(), sizeof(taps));
    for (int n = 0; n < count; n += 8) {
        Lanes8 sums[8];
        for (int j = 0; j < 8; ++j) {
            const float* x = secondOut.data() + kFactor * (n + j) + kFactor - 1;
            Lanes8 sum{};
            for (int k = 0; k < kDownTaps / 8; ++k) {
                Lanes8 v;
                std::memcpy(&v, x + 8 * k, sizeof(v));
                sum += taps[k] * v;
            }
            sums[j] = sum;
        }
        Lanes8 pairs[4];
        for (int j = 0; j < 4; ++j)
            pairs[j] = __builtin_shufflevector(sums[2 * j], sums[2 * j + 1], 0, 1, 2, 3, 8, 9, 10, 11) +
                       __builtin_shufflevector(sums[2 * j], sums[2 * j + 1], 4, 5, 6, 7, 12, 13, 14, 15);
        Lanes8 quads[2];
        for (int j = 0; j < 2; ++j)
            quads[j] = __builtin_shufflevector(pairs[2 * j], pairs[2 * j + 1], 0, 1, 8, 9, 4, 5, 12, 13) +
                       __builtin_shufflevector(pairs[2 * j], pairs[2 * j + 1], 2, 3, 10, 11, 6, 7, 14, 15);
        const Lanes8 folded = __builtin_shufflevector(quads[0], quads[1], 0, 4, 2, 6, 8, 12, 10, 14) +
                              __builtin_shufflevector(quads[0], quads[1], 1, 5, 3, 7, 9, 13, 11, 15);
        std::memcpy(out + n, &folded, static_cast<std::size_t>(std::min(8, count - n)) * sizeof(float));
    }

    std::memmove(input.data(), input.data() + count, kUpHistory * sizeof(float));
    std::memmove(firstOut.data(), firstOut.data() + overCount, kSmoothHistory * sizeof(float));
    std::memmove(secondOut.data(), secondOut.data() + overCount, kDownHistory * sizeof(float));
}
