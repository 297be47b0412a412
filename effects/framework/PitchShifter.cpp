#include "effects/framework/PitchShifter.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFSystemInfo.h"

namespace {

// The search at the highest rate: its reach each side, its correlation length and the decimation that keeps
// the coarse pass near 12 kHz.
int samplesFor(double ms, double rate) {
    return static_cast<int>(ms * rate * 0.001);
}

constexpr double kCoarseRate = 8000.0;

using Lanes = float __attribute__((vector_size(16)));
using Ints = int32_t __attribute__((vector_size(16)));

// The window of four samples, the first at phase x + one step: sin²(pi x) as cos²(pi (x - 1/2)), the cosine
// by its series to the eighth power, within 3e-6 over the grain.
[[gnu::always_inline]] inline Lanes window(float x, float step) noexcept {
    constexpr float kPi = 3.14159265f;
    const Lanes at = (x - 0.5f) + Lanes{1.0f, 2.0f, 3.0f, 4.0f} * step;
    const Lanes z = (at * kPi) * (at * kPi);
    const Lanes c = 1.0f + z * (-0.5f + z * (1.0f / 24.0f + z * (-1.0f / 720.0f + z * (1.0f / 40320.0f))));
    return c * c;
}

// Four reads of one tap: where in its rows they fall, and the weights of the four samples around each, the
// tap's window included. The weights are shared by both channels.
struct Group {
    std::array<int32_t, 4> at;
    Lanes w0, w1, w2, w3;
};

// The reads at offset + ratio k for k = 0..3 of a group: the four-point Hermite weights of the samples at
// whole - 1 .. whole + 2, times the window g.
[[gnu::always_inline]] inline Group locate(double offset, Lanes ramp, Lanes g) noexcept {
    const auto base = static_cast<int32_t>(offset);
    const Lanes rel = static_cast<float>(offset - base) + ramp;
    const Ints whole = __builtin_convertvector(rel, Ints);
    const Lanes t = rel - __builtin_convertvector(whole, Lanes);
    const Lanes t2 = t * t;
    const Lanes half = 0.5f * g;
    const Lanes w3 = (t2 * t - t2) * half;
    const Lanes w0 = (t2 + t2 - t2 * t - t) * half;
    Group group{{base - 1 + whole[0], base - 1 + whole[1], base - 1 + whole[2], base - 1 + whole[3]},
                w0,
                (2.0f - 2.0f * t2) * half + 3.0f * w3,
                t * g + w0 - (w3 + w3),
                w3};
    return group;
}

// The four samples around each read of the group from one row, weighted and summed.
[[gnu::always_inline]] inline Lanes apply(const float* row, const Group& group) noexcept {
    Lanes x0, x1, x2, x3;
    __builtin_memcpy(&x0, row + group.at[0], sizeof x0);
    __builtin_memcpy(&x1, row + group.at[1], sizeof x1);
    __builtin_memcpy(&x2, row + group.at[2], sizeof x2);
    __builtin_memcpy(&x3, row + group.at[3], sizeof x3);
    // Rows to columns by shuffles, so nothing goes through memory.
    const Lanes t0 = __builtin_shufflevector(x0, x1, 0, 4, 1, 5);
    const Lanes t1 = __builtin_shufflevector(x2, x3, 0, 4, 1, 5);
    const Lanes u2 = __builtin_shufflevector(x0, x1, 2, 6, 3, 7);
    const Lanes u3 = __builtin_shufflevector(x2, x3, 2, 6, 3, 7);
    const Lanes c0 = __builtin_shufflevector(t0, t1, 0, 1, 4, 5);
    const Lanes c1 = __builtin_shufflevector(t0, t1, 2, 3, 6, 7);
    const Lanes c2 = __builtin_shufflevector(u2, u3, 0, 1, 4, 5);
    const Lanes c3 = __builtin_shufflevector(u2, u3, 2, 3, 6, 7);
    return (c0 * group.w0 + c1 * group.w1) + (c2 * group.w2 + c3 * group.w3);
}

template <int Channels>
[[gnu::always_inline]] inline void render(const std::array<std::array<const float*, 2>, 2>& rows,
                                          std::array<double, 2> offset, double ratio, double start,
                                          double step, float* const* out, int from, int count) noexcept {
    const Lanes ramp = Lanes{0.0f, 1.0f, 2.0f, 3.0f} * static_cast<float>(ratio);
    const auto stepF = static_cast<float>(step);
    for (int j = 0; j < count; j += 4) {
        const Lanes g = window(static_cast<float>(start + step * j), stepF);
        const double ahead = ratio * j;
        const Group a = locate(offset[0] + ahead, ramp, g);
        const Group b = locate(offset[1] + ahead, ramp, 1.0f - g);
        std::array<Lanes, Channels> sum;
        sum[0] = apply(rows[0][0], a) + apply(rows[1][0], b);
        if constexpr (Channels == 2) sum[1] = apply(rows[0][1], a) + apply(rows[1][1], b);
        const int n = std::min(4, count - j);
        for (std::size_t ch = 0; ch < Channels; ++ch) {
            float* to = out[ch] + from + j;
            if (n == 4) {
                __builtin_memcpy(to, &sum[ch], sizeof(Lanes));
            } else {
                for (int k = 0; k < n; ++k)
                    to[k] = sum[ch][k];
            }
        }
    }
}

} // namespace

PitchShifter::PitchShifter() {
    const double top = AFSystemInfo::kMaxSampleRate;
    const int span = 2 * samplesFor(kSearchMs, top) + samplesFor(kMatchMs, top) + 8;
    candidates.assign(static_cast<std::size_t>(span), 0.0f);
    reference.assign(static_cast<std::size_t>(samplesFor(kMatchMs, top) + 8), 0.0f);
    coarseCandidates.assign(static_cast<std::size_t>(span), 0.0f);
    coarseReference.assign(reference.size(), 0.0f);
    scores.assign(static_cast<std::size_t>(span), 0.0);
    sumScratch.assign(static_cast<std::size_t>(span), 0.0f);
    // A stretch of kMaxRun at the highest ratio, its four-sample reach and the rounding margins.
    for (auto& rows : rowScratch)
        rows.assign(static_cast<std::size_t>(4 * kMaxRun + 8), 0.0f);
    configure(48000.0f, kGrainMs * 48.0);
}

void PitchShifter::configure(float sampleRate, double grainSamples) noexcept {
    const double rate =
        std::clamp(static_cast<double>(sampleRate), static_cast<double>(AFSystemInfo::kMinSampleRate),
                   static_cast<double>(AFSystemInfo::kMaxSampleRate));
    grainLength = std::max(64.0, grainSamples);
    phaseStep = 1.0 / grainLength;
    search = std::max(8, samplesFor(kSearchMs, rate));
    decimation = std::max(1, static_cast<int>(rate / kCoarseRate));
    match = std::max(decimation * 4, samplesFor(kMatchMs, rate) / decimation * decimation);
}

void PitchShifter::reset() noexcept {
    phase = 0.0;
    const double start = std::max(centre, least);
    delay = {start, start};
}

void PitchShifter::start() noexcept {
    phase = 0.0;
    const double middle = middleDelay();
    delay = {middle + (wanted - 1.0) * grainLength * 0.5, middle};
}

LANE_WIDE_CLONES void PitchShifter::renderMono(const Taps& taps, double start, float* const* out, int from,
                                               int count) const noexcept {
    render<1>(taps.rows, taps.offset, wanted, start, phaseStep, out, from, count);
}

LANE_WIDE_CLONES void PitchShifter::renderStereo(const Taps& taps, double start, float* const* out, int from,
                                                 int count) const noexcept {
    render<2>(taps.rows, taps.offset, wanted, start, phaseStep, out, from, count);
}

double PitchShifter::bestLag(int lags, int length) noexcept {
    // Normalised by the candidate's energy, kept as a running sum, so a louder stretch does not win by
    // loudness alone.
    const float* ref = coarseReference.data();
    const float* cand = coarseCandidates.data();
    double energy = 0.0;
    for (int i = 0; i < length; ++i)
        energy += static_cast<double>(cand[i]) * cand[i];
    for (int k = 0; k < lags; ++k) {
        const double c = dot(ref, cand + k, length);
        scores[static_cast<std::size_t>(k)] = energy > 1e-12 ? c / std::sqrt(energy) : 0.0;
        energy +=
            static_cast<double>(cand[k + length]) * cand[k + length] - static_cast<double>(cand[k]) * cand[k];
        energy = std::max(energy, 0.0);
    }
    // A periodic sound matches as well one period on as here: of near-equal matches take the one nearest the
    // nominal start, which keeps the timing and leaves the fine search room on both sides.
    const int centre = lags / 2;
    int bestK = centre;
    double best = scores[static_cast<std::size_t>(centre)];
    for (int distance = 1; distance <= centre; ++distance) {
        for (const int k : {centre - distance, centre + distance}) {
            if (k < 0 || k >= lags) continue;
            const double score = scores[static_cast<std::size_t>(k)];
            if (score > best + 1e-3 * std::fabs(best)) {
                best = score;
                bestK = k;
            }
        }
    }
    return bestK;
}

double PitchShifter::dot(const float* a, const float* b, int length) noexcept {
    std::array<float, 8> lanes{};
    int i = 0;
    for (; i + 8 <= length; i += 8)
        for (int u = 0; u < 8; ++u)
            lanes[static_cast<std::size_t>(u)] += a[i + u] * b[i + u];
    float sum = 0.0f;
    for (; i < length; ++i)
        sum += a[i] * b[i];
    for (const float lane : lanes)
        sum += lane;
    return sum;
}
