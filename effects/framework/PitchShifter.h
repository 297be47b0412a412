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
    // A power-of-two ring the owner writes one sample per tick.
    struct RingSource {
        const float* data;
        uint32_t mask;
        float at(int64_t index) const noexcept { return data[static_cast<uint64_t>(index) & mask]; }
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
    };

    static constexpr int kEdgeFade = 44;
    // Grain, search reach each side and correlation length, in milliseconds.
    static constexpr double kGrainMs = 40.0;
    static constexpr double kSearchMs = 7.5;
    static constexpr double kMatchMs = 5.0;

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

    // Audio thread: one output sample for the present reference position.
    template <class Source>
    float tick(const Source& source, double now) noexcept;

    // Any thread; for inspection.
    double ratio() const noexcept { return wanted; }
    double grain() const noexcept { return grainLength; }
    // How far around the centre the taps may read: half a grain's glide plus the search reach.
    double reach(double ratio) const noexcept { return std::fabs(ratio - 1.0) * grainLength * 0.5 + search; }

private:
    template <class Source>
    static float read(const Source& source, double position) noexcept;
    template <class Source>
    void restart(int tap, const Source& source, double now) noexcept;
    template <class Source>
    double alignment(const Source& source, double now, double nominal, double other) noexcept;
    double window(double phase) const noexcept;
    double bestLag(int lags, int length) noexcept;

    static constexpr int kWindowRows = 1024;
    std::array<float, kWindowRows + 1> windowTable{};
    std::vector<float> candidates;
    std::vector<float> reference;
    std::vector<float> coarseCandidates;
    std::vector<float> coarseReference;
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
float PitchShifter::read(const Source& source, double position) noexcept {
    const double base = std::floor(position);
    const auto i = static_cast<int64_t>(base);
    const auto t = static_cast<float>(position - base);
    const float xm = source.at(i - 1), x0 = source.at(i), x1 = source.at(i + 1), x2 = source.at(i + 2);
    // Four-point Hermite: flat enough to keep interpolation noise far below the crossfade's.
    const float c1 = 0.5f * (x1 - xm);
    const float c2 = xm - 2.5f * x0 + 2.0f * x1 - 0.5f * x2;
    const float c3 = 0.5f * (x2 - xm) + 1.5f * (x0 - x1);
    return ((c3 * t + c2) * t + c1) * t + x0;
}

template <class Source>
float PitchShifter::tick(const Source& source, double now) noexcept {
    const double before = phase;
    phase += phaseStep;
    if (phase >= 1.0) {
        phase -= 1.0;
        restart(0, source, now);
    } else if (before < 0.5 && phase >= 0.5) {
        restart(1, source, now);
    }
    const double g = window(phase);
    const double d0 = std::max(delay[0], least), d1 = std::max(delay[1], least);
    const double y = g * read(source, now - d0) + (1.0 - g) * read(source, now - d1);
    const double drift = 1.0 - wanted;
    delay[0] += drift;
    delay[1] += drift;
    return static_cast<float>(y);
}

template <class Source>
void PitchShifter::restart(int tap, const Source& source, double now) noexcept {
    const double bend = wanted - 1.0;
    if (std::fabs(bend) < 1e-9) {
        delay[static_cast<std::size_t>(tap)] = std::max(centre, least);
        return;
    }
    // Keep the whole grain, search included, at or above the floor.
    const double middle = std::max(centre, least + reach(wanted) + 2.0);
    const double nominal = middle + bend * grainLength * 0.5;
    const double other = std::max(delay[static_cast<std::size_t>(1 - tap)], least);
    delay[static_cast<std::size_t>(tap)] = alignment(source, now, nominal, other);
}

template <class Source>
double PitchShifter::alignment(const Source& source, double now, double nominal, double other) noexcept {
    // The sounding tap's recent past against every candidate start within the reach, first coarsely on
    // decimated copies, then sample by sample around the coarse best, then between samples by a parabola.
    const double otherAt = std::floor(now - other);
    const double nominalAt = std::floor(now - nominal);
    const auto otherStart = static_cast<int64_t>(otherAt) - match + 1;
    const auto firstCandidate = static_cast<int64_t>(nominalAt) - search - match + 1;
    const int span = 2 * search + match;
    double energy = 0.0;
    for (int i = 0; i < match; ++i) {
        reference[static_cast<std::size_t>(i)] = source.at(otherStart + i);
        energy += static_cast<double>(reference[static_cast<std::size_t>(i)]) * reference[static_cast<std::size_t>(i)];
    }
    if (energy < 1e-12) return nominal;
    for (int i = 0; i < span; ++i) candidates[static_cast<std::size_t>(i)] = source.at(firstCandidate + i);
    // Candidate lag k starts at firstCandidate + k; lag 'search' is the nominal start.
    const int q = decimation;
    const int coarseMatch = match / q;
    const int coarseSpan = span / q;
    for (int i = 0; i < coarseMatch; ++i) {
        float s = 0.0f;
        for (int u = 0; u < q; ++u) s += reference[static_cast<std::size_t>(i * q + u)];
        coarseReference[static_cast<std::size_t>(i)] = s;
    }
    for (int i = 0; i < coarseSpan; ++i) {
        float s = 0.0f;
        for (int u = 0; u < q; ++u) s += candidates[static_cast<std::size_t>(i * q + u)];
        coarseCandidates[static_cast<std::size_t>(i)] = s;
    }
    const int coarse = static_cast<int>(bestLag(coarseSpan - coarseMatch + 1, coarseMatch)) * q;
    // Fine search on full-rate copies around the coarse best.
    double best = -1e300;
    int bestK = search;
    std::array<double, 3> around{};
    auto score = [&](int k) {
        double c = 0.0, e = 0.0;
        for (int i = 0; i < match; ++i) {
            const float v = candidates[static_cast<std::size_t>(k + i)];
            c += static_cast<double>(reference[static_cast<std::size_t>(i)]) * v;
            e += static_cast<double>(v) * v;
        }
        return e > 1e-12 ? c / std::sqrt(e) : 0.0;
    };
    const int lo = std::max(1, coarse - q), hi = std::min(2 * search - 1, coarse + q);
    for (int k = lo; k <= hi; ++k) {
        const double s = score(k);
        if (s > best) {
            best = s;
            bestK = k;
        }
    }
    around = {score(bestK - 1), best, score(bestK + 1)};
    const double curve = around[0] - 2.0 * around[1] + around[2];
    double fraction = 0.0;
    if (curve < 0.0) fraction = std::clamp(0.5 * (around[0] - around[2]) / curve, -0.5, 0.5);
    // The candidate's last sample lines up with the sounding tap's last whole sample; the sounding tap reads
    // a fraction past it, and so must the new one.
    const double start = nominalAt - search + bestK + fraction + (now - other - otherAt);
    return now - start;
}
