#include "effects/framework/PitchShifter.h"

#include "effects/framework/AFSystemInfo.h"

namespace {

// The search at the highest rate: its reach each side, its correlation length and the decimation that keeps
// the coarse pass near 12 kHz.
int samplesFor(double ms, double rate) {
    return static_cast<int>(ms * rate * 0.001);
}

constexpr double kCoarseRate = 8000.0;

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
