#include "effects/framework/PitchShifter.h"

#include "effects/filter/LaneFilter.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/LaneTranspose.h"

namespace {

// The search at the highest rate: its reach each side, its correlation length and the decimation that keeps
// the coarse pass near 12 kHz.
int samplesFor(double ms, double rate) {
    return static_cast<int>(ms * rate * 0.001);
}

constexpr double kCoarseRate = 8000.0;

// Groups of four samples everywhere, eight where the processor has AVX2 (with g++; clang, which builds the
// fuzz targets, takes the narrow form): an eight-wide group is two four-wide ones side by side, each lane
// computed as the narrow form computes it, so both give the same output bit for bit. The eight-wide helpers
// are inlined into the AVX2 function only, so the ABI of passing their vectors never comes into play.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVANTO_WIDE_SHIFTER 1
#pragma GCC diagnostic ignored "-Wpsabi"
#endif
using Lanes4 = float __attribute__((vector_size(16)));
using Ints4 = int32_t __attribute__((vector_size(16)));
using Lanes8 = float __attribute__((vector_size(32)));
using Ints8 = int32_t __attribute__((vector_size(32)));
using Longs4 = uint64_t __attribute__((vector_size(32)));
using Words8 = uint32_t __attribute__((vector_size(32)));

// Read positions in fixed point, 32 bits of fraction: a stretch's positions are whole multiples of the ratio
// on from its first, exact in any grouping, and the fraction is exact in a float to 24 bits.
constexpr double kUnit = 4294967296.0;

template <int W>
struct Wide;
template <>
struct Wide<4> {
    using Lanes = Lanes4;
    using Ints = Ints4;
    static Lanes halves(Lanes4 low, Lanes4) noexcept { return low; }
    // The offsets of the lanes' positions from the first, for positions by apart.
    static std::array<Longs4, 2> ramps(uint64_t by) noexcept { return {Longs4{0, 1, 2, 3} * by, Longs4{}}; }
    // The whole samples and the top 24 bits of the fractions of the positions from base on.
    static void split(uint64_t base, const std::array<Longs4, 2>& ramp, Ints& whole,
                      Ints& fraction) noexcept {
        const auto p = reinterpret_cast<Words8>(base + ramp[0]);
        whole = reinterpret_cast<Ints>(__builtin_shufflevector(p, p, 1, 3, 5, 7));
        fraction = reinterpret_cast<Ints>(__builtin_shufflevector(p, p, 0, 2, 4, 6) >> 8);
    }
};

// The window of four samples, the first at phase x + one step: sin²(pi x) as cos²(pi (x - 1/2)), the cosine
// by its series to the eighth power, within 3e-6 over the grain.
template <class Lanes>
[[gnu::always_inline]] inline Lanes window(const Lanes& at) noexcept {
    constexpr float kPi = 3.14159265f;
    const Lanes z = (at * kPi) * (at * kPi);
    const Lanes c = 1.0f + z * (-0.5f + z * (1.0f / 24.0f + z * (-1.0f / 720.0f + z * (1.0f / 40320.0f))));
    return c * c;
}

// Where each read of a tap falls in its rows and the weights of the four samples around it, the tap's window
// included: worked out for the whole stretch first and shared by both channels.
struct Reads {
    static constexpr int kMax = PitchShifter::kMaxRun;
    alignas(32) std::array<std::array<float, kMax>, 4> weight;
    alignas(32) std::array<uint32_t, kMax> at;
};

// The W reads from sample j on, at fixed-point positions from base on: the four-point Hermite weights of the
// samples at whole - 1 .. whole + 2, times the window g.
template <int W>
[[gnu::always_inline]] inline void locate(uint64_t base, const std::array<Longs4, 2>& ramp,
                                          const typename Wide<W>::Lanes& g, Reads& reads, int j) noexcept {
    using Lanes = typename Wide<W>::Lanes;
    using Ints = typename Wide<W>::Ints;
    Ints whole, fraction;
    Wide<W>::split(base, ramp, whole, fraction);
    const Ints first = whole - 1;
    const Lanes t = __builtin_convertvector(fraction, Lanes) * (1.0f / 16777216.0f);
    const Lanes t2 = t * t;
    const Lanes half = 0.5f * g;
    const Lanes w3 = (t2 * t - t2) * half;
    const Lanes w0 = (t2 + t2 - t2 * t - t) * half;
    const Lanes w1 = (2.0f - 2.0f * t2) * half + 3.0f * w3;
    const Lanes w2 = t * g + w0 - (w3 + w3);
    const auto k = static_cast<std::size_t>(j);
    __builtin_memcpy(&reads.weight[0][k], &w0, sizeof w0);
    __builtin_memcpy(&reads.weight[1][k], &w1, sizeof w1);
    __builtin_memcpy(&reads.weight[2][k], &w2, sizeof w2);
    __builtin_memcpy(&reads.weight[3][k], &w3, sizeof w3);
    __builtin_memcpy(&reads.at[k], &first, sizeof first);
}

// The four samples around each of the W reads from sample j on out of one row, weighted and summed.
template <int W>
[[gnu::always_inline]] inline typename Wide<W>::Lanes apply(const float* row, const Reads& reads,
                                                            const uint32_t* at, int j) noexcept {
    using Lanes = typename Wide<W>::Lanes;
    std::array<Lanes4, W> x;
    for (std::size_t k = 0; k < W; ++k)
        __builtin_memcpy(&x[k], row + at[k], sizeof(Lanes4));
    // Rows to columns by shuffles, so nothing goes through memory; the eight-wide form transposes in two
    // independent halves.
    Lanes c0, c1, c2, c3;
    if constexpr (W == 4) {
        c0 = x[0];
        c1 = x[1];
        c2 = x[2];
        c3 = x[3];
        transposeFour(c0, c1, c2, c3);
    } else {
        const Lanes x0 = Wide<W>::halves(x[0], x[4]);
        const Lanes x1 = Wide<W>::halves(x[1], x[5]);
        const Lanes x2 = Wide<W>::halves(x[2], x[6]);
        const Lanes x3 = Wide<W>::halves(x[3], x[7]);
        const Lanes t0 = __builtin_shufflevector(x0, x1, 0, 8, 1, 9, 4, 12, 5, 13);
        const Lanes t1 = __builtin_shufflevector(x2, x3, 0, 8, 1, 9, 4, 12, 5, 13);
        const Lanes u2 = __builtin_shufflevector(x0, x1, 2, 10, 3, 11, 6, 14, 7, 15);
        const Lanes u3 = __builtin_shufflevector(x2, x3, 2, 10, 3, 11, 6, 14, 7, 15);
        c0 = __builtin_shufflevector(t0, t1, 0, 1, 8, 9, 4, 5, 12, 13);
        c1 = __builtin_shufflevector(t0, t1, 2, 3, 10, 11, 6, 7, 14, 15);
        c2 = __builtin_shufflevector(u2, u3, 0, 1, 8, 9, 4, 5, 12, 13);
        c3 = __builtin_shufflevector(u2, u3, 2, 3, 10, 11, 6, 7, 14, 15);
    }
    const auto k = static_cast<std::size_t>(j);
    Lanes w0, w1, w2, w3;
    __builtin_memcpy(&w0, &reads.weight[0][k], sizeof w0);
    __builtin_memcpy(&w1, &reads.weight[1][k], sizeof w1);
    __builtin_memcpy(&w2, &reads.weight[2][k], sizeof w2);
    __builtin_memcpy(&w3, &reads.weight[3][k], sizeof w3);
    return (c0 * w0 + c1 * w1) + (c2 * w2 + c3 * w3);
}

// Two passes, each of short independent steps the processor can overlap: where the reads fall and what they
// weigh, then the reads themselves.
template <int W, int Channels>
[[gnu::always_inline]] inline void render(const std::array<std::array<const float*, 2>, 2>& rows,
                                          std::array<double, 2> offset, double ratio, double start,
                                          double step, float* const* out, int from, int count) noexcept {
    using Lanes = typename Wide<W>::Lanes;
    // Truncated: each stretch starts afresh from the exact positions, and 2^-32 of a sample is far below
    // hearing.
    const auto by = static_cast<uint64_t>(ratio * kUnit);
    const std::array<uint64_t, 2> origin{static_cast<uint64_t>(offset[0] * kUnit),
                                         static_cast<uint64_t>(offset[1] * kUnit)};
    const std::array<Longs4, 2> ramp = Wide<W>::ramps(by);
    const auto stepF = static_cast<float>(step);
    const Lanes4 phases = Lanes4{1.0f, 2.0f, 3.0f, 4.0f} * stepF;
    std::array<Reads, 2> reads;
    for (int j = 0; j < count; j += W) {
        const auto x = static_cast<float>(start + step * j);
        const auto next = static_cast<float>(start + step * (j + 4));
        const Lanes g = window(Wide<W>::halves((x - 0.5f) + phases, (next - 0.5f) + phases));
        const uint64_t ahead = by * static_cast<uint64_t>(j);
        locate<W>(origin[0] + ahead, ramp, g, reads[0], j);
        locate<W>(origin[1] + ahead, ramp, 1.0f - g, reads[1], j);
    }
    for (int j = 0; j < count; j += W) {
        const auto k = static_cast<std::size_t>(j);
        std::array<uint32_t, W> a, b;
        __builtin_memcpy(a.data(), &reads[0].at[k], sizeof a);
        __builtin_memcpy(b.data(), &reads[1].at[k], sizeof b);
        std::array<Lanes, Channels> sum;
        sum[0] = apply<W>(rows[0][0], reads[0], a.data(), j) + apply<W>(rows[1][0], reads[1], b.data(), j);
        if constexpr (Channels == 2)
            sum[1] =
                apply<W>(rows[0][1], reads[0], a.data(), j) + apply<W>(rows[1][1], reads[1], b.data(), j);
        const int n = std::min(W, count - j);
        for (std::size_t ch = 0; ch < Channels; ++ch) {
            float* to = out[ch] + from + j;
            if (n == W) {
                __builtin_memcpy(to, &sum[ch], sizeof(Lanes));
            } else {
                for (int i = 0; i < n; ++i)
                    to[i] = sum[ch][i];
            }
        }
    }
}

#if ORVANTO_WIDE_SHIFTER
template <>
struct Wide<8> {
    using Lanes = Lanes8;
    using Ints = Ints8;
    static Lanes halves(Lanes4 low, Lanes4 high) noexcept {
        return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
    }
    // Positions in two sets of four, laid out so that one shuffle within each half of the register puts the
    // lanes in order.
    static std::array<Longs4, 2> ramps(uint64_t by) noexcept {
        return {Longs4{0, 1, 4, 5} * by, Longs4{2, 3, 6, 7} * by};
    }
    static void split(uint64_t base, const std::array<Longs4, 2>& ramp, Ints& whole,
                      Ints& fraction) noexcept {
        const auto a = reinterpret_cast<Words8>(base + ramp[0]);
        const auto b = reinterpret_cast<Words8>(base + ramp[1]);
        whole = reinterpret_cast<Ints>(__builtin_shufflevector(a, b, 1, 3, 9, 11, 5, 7, 13, 15));
        fraction = reinterpret_cast<Ints>(__builtin_shufflevector(a, b, 0, 2, 8, 10, 4, 6, 12, 14) >> 8);
    }
};

template <int Channels>
__attribute__((target("avx2"))) void
renderWide(const std::array<std::array<const float*, 2>, 2>& rows, std::array<double, 2> offset, double ratio,
           double start, double step, float* const* out, int from, int count) noexcept {
    render<8, Channels>(rows, offset, ratio, start, step, out, from, count);
}

const bool kWide = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}();
#endif

template <int Channels>
void renderAny(const std::array<std::array<const float*, 2>, 2>& rows, std::array<double, 2> offset,
               double ratio, double start, double step, float* const* out, int from, int count) noexcept {
#if ORVANTO_WIDE_SHIFTER
    if (kWide) {
        renderWide<Channels>(rows, offset, ratio, start, step, out, from, count);
        return;
    }
#endif
    render<4, Channels>(rows, offset, ratio, start, step, out, from, count);
}

} // namespace

PitchShifter::PitchShifter() {
    const double top = AFSystemInfo::kMaxSampleRate;
    // The candidates with room for the correlation's last pass of sixteen lags.
    const int span = 2 * samplesFor(kSearchMs, top) + samplesFor(kMatchMs, top) + 16;
    candidates.assign(static_cast<std::size_t>(span), 0.0f);
    reference.assign(static_cast<std::size_t>(samplesFor(kMatchMs, top) + 8), 0.0f);
    coarseCandidates.assign(static_cast<std::size_t>(span), 0.0f);
    coarseReference.assign(reference.size(), 0.0f);
    scores.assign(static_cast<std::size_t>(span), 0.0);
    correlations.assign(static_cast<std::size_t>(span), 0.0f);
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

void PitchShifter::renderMono(const Taps& taps, double start, float* const* out, int from,
                              int count) const noexcept {
    renderAny<1>(taps.rows, taps.offset, wanted, start, phaseStep, out, from, count);
}

void PitchShifter::renderStereo(const Taps& taps, double start, float* const* out, int from,
                                int count) const noexcept {
    renderAny<2>(taps.rows, taps.offset, wanted, start, phaseStep, out, from, count);
}

double PitchShifter::bestMatch() noexcept {
    // First coarsely on decimated copies, then sample by sample around the coarse best, then between samples
    // by a parabola.
    const int span = 2 * search + match;
    const int q = decimation;
    const int coarseMatch = match / q;
    const int coarseSpan = span / q;
    for (int i = 0; i < coarseMatch; ++i) {
        float s = 0.0f;
        for (int u = 0; u < q; ++u)
            s += reference[static_cast<std::size_t>(i * q + u)];
        coarseReference[static_cast<std::size_t>(i)] = s;
    }
    for (int i = 0; i < coarseSpan; ++i) {
        float s = 0.0f;
        for (int u = 0; u < q; ++u)
            s += candidates[static_cast<std::size_t>(i * q + u)];
        coarseCandidates[static_cast<std::size_t>(i)] = s;
    }
    const int coarse = bestLag(coarseSpan - coarseMatch + 1, coarseMatch) * q;
    // Fine search on full-rate copies around the coarse best; the neighbours of the best stay scored for the
    // parabola.
    const int lo = std::max(1, coarse - q), hi = std::min(2 * search - 1, coarse + q);
    scoreLags(reference.data(), candidates.data() + lo - 1, match, hi - lo + 3, lo - 1);
    int bestK = lo;
    for (int k = lo + 1; k <= hi; ++k)
        if (scores[static_cast<std::size_t>(k)] > scores[static_cast<std::size_t>(bestK)]) bestK = k;
    const std::array<double, 3> around{scores[static_cast<std::size_t>(bestK - 1)],
                                       scores[static_cast<std::size_t>(bestK)],
                                       scores[static_cast<std::size_t>(bestK + 1)]};
    const double curve = around[0] - 2.0 * around[1] + around[2];
    double fraction = 0.0;
    if (curve < 0.0) fraction = std::clamp(0.5 * (around[0] - around[2]) / curve, -0.5, 0.5);
    return bestK + fraction;
}

void PitchShifter::scoreLags(const float* ref, const float* cand, int length, int lags, int first) noexcept {
    // Normalised by the candidate's energy, kept as a running sum, so a louder stretch does not win by
    // loudness alone.
    correlate(ref, cand, length, lags, correlations.data());
    double energy = dot(cand, cand, length);
    for (int k = 0; k < lags; ++k) {
        const auto at = static_cast<std::size_t>(first + k);
        scores[at] = energy > 1e-12 ? correlations[static_cast<std::size_t>(k)] / std::sqrt(energy) : 0.0;
        energy +=
            static_cast<double>(cand[k + length]) * cand[k + length] - static_cast<double>(cand[k]) * cand[k];
        energy = std::max(energy, 0.0);
    }
}

int PitchShifter::bestLag(int lags, int length) noexcept {
    scoreLags(coarseReference.data(), coarseCandidates.data(), length, lags, 0);
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

LANE_WIDE_CLONES void PitchShifter::correlate(const float* ref, const float* cand, int length, int lags,
                                              float* out) noexcept {
    // Sixteen lags a pass, in two independent sums.
    for (int k = 0; k < lags; k += 16) {
        Lanes8 low{}, high{};
        for (int i = 0; i < length; ++i) {
            Lanes8 a, b;
            __builtin_memcpy(&a, cand + k + i, sizeof a);
            __builtin_memcpy(&b, cand + k + i + 8, sizeof b);
            low += ref[i] * a;
            high += ref[i] * b;
        }
        __builtin_memcpy(out + k, &low, sizeof low);
        __builtin_memcpy(out + k + 8, &high, sizeof high);
    }
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
