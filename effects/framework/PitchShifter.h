#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

// Time-domain pitch shifter over a buffer its owner writes: two read taps, half a grain apart, glide through
// the buffer at the wanted ratio and take turns under sin² windows that always sum to one. Each tap that
// starts a new grain first looks, by correlation, for the start nearest its nominal one at which it lines up
// with the tap still sounding, so that the crossfade joins two copies in phase instead of beating. At a ratio
// of one both taps sit on the centre and the output is the buffer at that delay, sample for sample.
//
// Positions are in the buffer's own coordinates: the owner passes the reference position of the present
// sample ("now") and the shifter reads around now minus the centre delay. Mono; stereo owners run two.
class PitchShifter {
public:
    // The longest stretch one call renders; owners call in pieces of at most this.
    static constexpr int kMaxRun = 64;

    // A power-of-two ring the owner writes one sample per tick.
    struct RingSource {
        const float* data;
        uint32_t mask;
        float at(int64_t index) const noexcept { return data[static_cast<uint64_t>(index) & mask]; }
        // The n samples from first on, into to.
        void copy(int64_t first, int n, float* to) const noexcept {
            const auto i = static_cast<uint64_t>(first) & mask;
            const auto straight = std::min<uint64_t>(static_cast<uint64_t>(n), mask + 1 - i);
            std::copy_n(data + i, straight, to);
            std::copy_n(data, static_cast<uint64_t>(n) - straight, to + straight);
        }
        // The samples from first on, when the next n lie in one piece of the ring.
        const float* run(int64_t first, int n) const noexcept {
            const auto i = static_cast<uint64_t>(first) & mask;
            return i + static_cast<uint64_t>(n) <= mask ? data + i : nullptr;
        }
    };
    // A recording that starts at 0 and holds end samples: outside it reads silence, and its first samples
    // fade in so that a tap crossing the start of the recording never steps.
    struct LinearSource {
        const float* data;
        int64_t end;
        float at(int64_t index) const noexcept {
            if (index < 0 || index >= end) return 0.0f;
            const float v = data[index];
            return index < kEdgeFade ? v * static_cast<float>(index) * (1.0f / kEdgeFade) : v;
        }
        // The n samples from first on, into to.
        void copy(int64_t first, int n, float* to) const noexcept {
            if (const float* p = run(first, n); p != nullptr) {
                std::copy_n(p, n, to);
                return;
            }
            for (int i = 0; i < n; ++i)
                to[i] = at(first + i);
        }
        const float* run(int64_t first, int n) const noexcept {
            return first >= kEdgeFade && first + n <= end ? data + first : nullptr;
        }
    };

    static constexpr int kEdgeFade = 44;
    // Grain, search reach each side and correlation length, in milliseconds.
    static constexpr double kGrainMs = 40.0;
    static constexpr double kSearchMs = 7.5;
    static constexpr double kMatchMs = 4.0;

    // Any thread, before the audio runs: scratch sized for the highest rate.
    PitchShifter();

    // Audio thread (control rate): sample rate and grain length in samples. The search scales with the rate.
    void configure(float sampleRate, double grainSamples) noexcept;
    // Audio thread: ratio of output to input frequency, 0.25 to 4.
    void setRatio(double ratio) noexcept { wanted = std::clamp(ratio, 0.25, 4.0); }
    // Audio thread: the delay the taps centre on and the least delay any tap may read at (a ring's owner
    // keeps it above the block it has not written yet). New grains take them up.
    void setCentre(double delay, double floor) noexcept {
        centre = delay;
        least = floor;
    }
    // Audio thread: both taps on the centre, first tap at the start of its grain.
    void reset() noexcept;
    // Audio thread: the taps where a steady run at the ratio would have them, the first at the start of its
    // grain and the second at its middle, so that neither drifts past the floor before its next grain.
    void start() noexcept;

    // Audio thread: count output samples, the first for reference position now, the next one further each.
    template <class Source>
    void process(const Source& source, double now, float* out, int count) noexcept;
    // Audio thread: two channels through the same taps, lined up on their sum, so the image stays whole.
    template <class Source>
    void processStereo(const Source& left, const Source& right, double now, float* outLeft, float* outRight,
                       int count) noexcept;

    // Any thread; for inspection.
    double ratio() const noexcept { return wanted; }
    double grain() const noexcept { return grainLength; }
    // How far around the centre the taps may read: half a grain's glide plus the search reach.
    double reach(double ratio) const noexcept { return std::fabs(ratio - 1.0) * grainLength * 0.5 + search; }

    // Both channels of a stereo source summed, for the search.
    template <class Source>
    struct Sum {
        const Source& a;
        const Source& b;
        // Room for the second channel's stretch.
        float* scratch;
        void copy(int64_t first, int n, float* to) const noexcept {
            a.copy(first, n, to);
            b.copy(first, n, scratch);
            for (int i = 0; i < n; ++i)
                to[i] += scratch[i];
        }
    };

private:
    // Keep the whole grain, search included, at or above the floor.
    double middleDelay() const noexcept { return std::max(centre, least + reach(wanted) + 2.0); }
    template <int Channels, class Source, class Search>
    void run(const Source* sources, const Search& search, double now, float* const* out, int count) noexcept;
    // The reads of both taps over one stretch: for each tap and channel the samples from a whole position on,
    // and where in them the tap starts.
    struct Taps {
        std::array<std::array<const float*, 2>, 2> rows;
        std::array<double, 2> offset;
    };
    // Both taps over samples from..to in one pass, the first tap reading from position first under the window
    // from phase start, the second from position second under its complement.
    template <int Channels, class Source>
    void runTaps(const Source* sources, double first, double second, double start, float* const* out,
                 int from, int to) noexcept;
    // The taps' reads weighted and summed into count samples of each channel from out + from on.
    void renderMono(const Taps& taps, double start, float* const* out, int from, int count) const noexcept;
    void renderStereo(const Taps& taps, double start, float* const* out, int from, int count) const noexcept;
    template <class Source>
    void restart(int tap, const Source& source, double now) noexcept;
    template <class Source>
    double alignment(const Source& source, double now, double nominal, double other) noexcept;
    // The lag, fractional, at which the copied candidates best match the copied reference.
    double bestMatch() noexcept;
    int bestLag(int lags, int length) noexcept;
    // Each candidate's match, for lags lags, scored into scores from first on: the correlation of the
    // reference with the candidate over length, over the candidate's root energy.
    void scoreLags(const float* ref, const float* cand, int length, int lags, int first) noexcept;
    // Correlations of ref with cand + k over length for k = 0..lags-1, into out; the lags run side by side in
    // the vector lanes, each its own sum in order. Reads cand up to lags + length + 14, writes out up to
    // lags + 15.
    static void correlate(const float* ref, const float* cand, int length, int lags, float* out) noexcept;
    // Sum of products in eight independent lanes, so the compiler can keep them in vector registers.
    static double dot(const float* a, const float* b, int length) noexcept;

    std::vector<float> candidates;
    std::vector<float> reference;
    std::vector<float> coarseCandidates;
    std::vector<float> coarseReference;
    std::vector<double> scores;
    std::vector<float> correlations;
    std::vector<float> sumScratch;
    // Where a tap's stretch does not lie in one straight piece of its source: one per tap and channel.
    std::array<std::vector<float>, 4> rowScratch;
    std::array<double, 2> delay{};
    double phase = 0.0;
    double phaseStep = 1.0 / 1920.0;
    double grainLength = 1920.0;
    double wanted = 1.0;
    double centre = 0.0;
    double least = -1.0e12;
    int search = 360;
    int match = 240;
    int decimation = 4;
};

template <class Source>
void PitchShifter::process(const Source& source, double now, float* out, int count) noexcept {
    float* outs[] = {out};
    run<1>(&source, source, now, outs, count);
}

template <class Source>
void PitchShifter::processStereo(const Source& left, const Source& right, double now, float* outLeft,
                                 float* outRight, int count) noexcept {
    const Source sources[] = {left, right};
    float* outs[] = {outLeft, outRight};
    run<2>(sources, Sum<Source>{left, right, sumScratch.data()}, now, outs, count);
}

template <int Channels, class Source, class Search>
void PitchShifter::run(const Source* sources, const Search& search, double now, float* const* out,
                       int count) noexcept {
    count = std::min(count, kMaxRun);
    double p = phase;
    int i = 0;
    while (i < count) {
        // A grain start at the first sample, if one falls there.
        double q = p + phaseStep;
        const bool wrap = q >= 1.0;
        if (wrap || (p < 0.5 && q >= 0.5)) {
            phase = wrap ? q - 1.0 : q;
            restart(wrap ? 0 : 1, search, now + i);
            p = phase - phaseStep;
        }
        // Then a stretch up to the next one: sample k of it sits at phase p + (k + 1) steps.
        const double next = p + phaseStep < 0.5 ? 0.5 : 1.0;
        int n = static_cast<int>((next - p) / phaseStep);
        while (n > 1 && p + phaseStep * n >= next)
            --n;
        while (p + phaseStep * (n + 1) < next)
            ++n;
        const int j = std::min(count, i + std::max(n, 1));
        const double start = now + i;
        runTaps<Channels>(sources, start - std::max(delay[0], least), start - std::max(delay[1], least), p,
                          out, i, j);
        p += phaseStep * (j - i);
        const double drift = (1.0 - wanted) * (j - i);
        delay[0] += drift;
        delay[1] += drift;
        i = j;
    }
    phase = p;
}

template <int Channels, class Source>
void PitchShifter::runTaps(const Source* sources, double first, double second, double start,
                           float* const* out, int from, int to) noexcept {
    // The kernel works in groups of up to eight and may read one group past the end.
    const int padded = (to - from + 7) & ~7;
    Taps taps{};
    const std::array<double, 2> at{first, second};
    for (std::size_t tap = 0; tap < 2; ++tap) {
        // A sample's reach each side, and one more for rounding, from the first read to the last.
        const auto lo = static_cast<int64_t>(std::floor(at[tap])) - 2;
        const int span =
            static_cast<int>(static_cast<int64_t>(std::floor(at[tap] + wanted * (padded - 1))) - lo) + 4;
        taps.offset[tap] = at[tap] - static_cast<double>(lo);
        for (std::size_t ch = 0; ch < Channels; ++ch) {
            const float* p = sources[ch].run(lo, span);
            if (p == nullptr) {
                float* copy = rowScratch[tap * 2 + ch].data();
                sources[ch].copy(lo, span, copy);
                p = copy;
            }
            taps.rows[tap][ch] = p;
        }
    }
    if constexpr (Channels == 1) {
        renderMono(taps, start, out, from, to - from);
    } else {
        renderStereo(taps, start, out, from, to - from);
    }
}

template <class Source>
void PitchShifter::restart(int tap, const Source& source, double now) noexcept {
    const double bend = wanted - 1.0;
    if (std::fabs(bend) < 1e-9) {
        delay[static_cast<std::size_t>(tap)] = std::max(centre, least);
        return;
    }
    const double middle = middleDelay();
    const double nominal = middle + bend * grainLength * 0.5;
    const double other = std::max(delay[static_cast<std::size_t>(1 - tap)], least);
    delay[static_cast<std::size_t>(tap)] = alignment(source, now, nominal, other);
}

template <class Source>
double PitchShifter::alignment(const Source& source, double now, double nominal, double other) noexcept {
    // The sounding tap's recent past against every candidate start within the reach.
    const double otherAt = std::floor(now - other);
    const double nominalAt = std::floor(now - nominal);
    const auto otherStart = static_cast<int64_t>(otherAt) - match + 1;
    const auto firstCandidate = static_cast<int64_t>(nominalAt) - search - match + 1;
    source.copy(otherStart, match, reference.data());
    if (dot(reference.data(), reference.data(), match) < 1e-12) return nominal;
    source.copy(firstCandidate, 2 * search + match, candidates.data());
    // Candidate lag k starts at firstCandidate + k; lag 'search' is the nominal start.
    const double lag = bestMatch();
    // The candidate's last sample lines up with the sounding tap's last whole sample; the sounding tap reads
    // a fraction past it, and so must the new one.
    const double start = nominalAt - search + lag + (now - other - otherAt);
    return now - start;
}
