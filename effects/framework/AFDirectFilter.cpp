#include "effects/framework/AFDirectFilter.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cmath>

namespace {

// Power of two above the longest comb delay (highest rate over the comb floor), so reads wrap by a mask.
constexpr int kLineSize = 8192;
constexpr int kLineMask = kLineSize - 1;
static_assert(kLineSize > static_cast<int>(AFSystemInfo::kMaxSampleRate / AFDirectFilter::kCombFloorHz) + 4);

// State below this is cleared after each block so that silence never decays into denormals.
constexpr float kFlush = 1e-20f;

inline float flushed(float v) noexcept {
    return std::fabs(v) < kFlush ? 0.0f : v;
}

} // namespace

AFDirectFilter::AFDirectFilter(AFSystemInfo* system)
    : systemInfo(system), lineL(kLineSize, 0.0f), lineR(kLineSize, 0.0f), lineSize(kLineSize) {}

float AFDirectFilter::cutoffHz(float cutoff) noexcept {
    const float c = std::clamp(cutoff, 0.0f, 1.0f) * 0.9f + 0.1f;
    return c * c * c * 20000.0f;
}

float AFDirectFilter::scaledResonance(int mode, float resonance) noexcept {
    const float r = std::clamp(resonance, 0.0f, 1.0f);
    if (mode == Highpass) return r * 0.9f;
    if (mode == Lowpass) return r * 0.75f;
    return r;
}

void AFDirectFilter::design(int mode, float cutoff, float resonance, float& first,
                            float& second) const noexcept {
    const float rate = systemInfo->sampleRate;
    const float hz = cutoffHz(cutoff);
    const float rho = scaledResonance(mode, resonance);
    if (mode == Comb) {
        first = std::clamp(rate / std::max(hz, kCombFloorHz), 2.0f, static_cast<float>(lineSize - 4));
        second = rho * 0.9f;
        return;
    }
    // Kept under Nyquist; the zero-delay core is stable for any positive g and k.
    const double f = std::min(static_cast<double>(hz), 0.45 * static_cast<double>(rate));
    first = static_cast<float>(std::tan(3.141592653589793 * f / static_cast<double>(rate)));
    second = 2.0f - 1.94f * rho;
}

void AFDirectFilter::set(int mode, float cutoff, float resonance) noexcept {
    mode = std::clamp(mode, 0, kModeCount - 1);
    const int interval = std::max(systemInfo->controlInterval, 1);
    const float perSample = 1.0f / static_cast<float>(interval);
    float first = 0.0f;
    float second = 0.0f;
    design(mode, cutoff, resonance, first, second);
    if (mode == Comb) {
        comb.delayTarget = first;
        comb.feedbackTarget = second;
        comb.delayStep = (first - comb.delay) * perSample;
        comb.feedbackStep = (second - comb.feedback) * perSample;
        comb.glideLeft = interval;
        return;
    }
    Core& core = cores[static_cast<std::size_t>(mode)];
    core.gTarget = first;
    core.kTarget = second;
    core.gStep = (first - core.g) * perSample;
    core.kStep = (second - core.k) * perSample;
    core.glideLeft = interval;
}

void AFDirectFilter::reset(int mode, float cutoff, float resonance) noexcept {
    mode = std::clamp(mode, 0, kModeCount - 1);
    for (Core& core : cores) {
        core.s1 = {};
        core.s2 = {};
        core.gStep = core.kStep = 0.0f;
        core.glideLeft = 0;
    }
    std::fill(lineL.begin(), lineL.end(), 0.0f);
    std::fill(lineR.begin(), lineR.end(), 0.0f);
    comb.write = 0;
    comb.delayStep = comb.feedbackStep = 0.0f;
    comb.glideLeft = 0;
    float first = 0.0f;
    float second = 0.0f;
    design(mode, cutoff, resonance, first, second);
    if (mode == Comb) {
        comb.delay = comb.delayTarget = first;
        comb.feedback = comb.feedbackTarget = second;
        return;
    }
    Core& core = cores[static_cast<std::size_t>(mode)];
    core.g = core.gTarget = first;
    core.k = core.kTarget = second;
}

template <int Mode, int Channels, bool Glide>
void AFDirectFilter::runCore(float* left, float* right, int count) noexcept {
    Core& core = cores[static_cast<std::size_t>(Mode)];
    float g = core.g;
    float k = core.k;
    float s1l = core.s1[0], s2l = core.s2[0], s1r = core.s1[1], s2r = core.s2[1];
    float a1 = 1.0f / (1.0f + g * (g + k));
    float a2 = g * a1;
    float a3 = g * a2;
    for (int i = 0; i < count; ++i) {
        if constexpr (Glide) {
            g += core.gStep;
            k += core.kStep;
            a1 = 1.0f / (1.0f + g * (g + k));
            a2 = g * a1;
            a3 = g * a2;
        }
        {
            const float x = left[i];
            const float v3 = x - s2l;
            const float v1 = a1 * s1l + a2 * v3;
            const float v2 = s2l + a2 * s1l + a3 * v3;
            s1l = 2.0f * v1 - s1l;
            s2l = 2.0f * v2 - s2l;
            if constexpr (Mode == Highpass) left[i] = x - k * v1 - v2;
            if constexpr (Mode == Bandpass) left[i] = k * v1;
            if constexpr (Mode == Lowpass) left[i] = v2;
        }
        if constexpr (Channels == 2) {
            const float x = right[i];
            const float v3 = x - s2r;
            const float v1 = a1 * s1r + a2 * v3;
            const float v2 = s2r + a2 * s1r + a3 * v3;
            s1r = 2.0f * v1 - s1r;
            s2r = 2.0f * v2 - s2r;
            if constexpr (Mode == Highpass) right[i] = x - k * v1 - v2;
            if constexpr (Mode == Bandpass) right[i] = k * v1;
            if constexpr (Mode == Lowpass) right[i] = v2;
        }
    }
    core.g = g;
    core.k = k;
    core.s1 = {flushed(s1l), flushed(s1r)};
    core.s2 = {flushed(s2l), flushed(s2r)};
}

template <int Channels, bool Glide>
void AFDirectFilter::runComb(float* left, float* right, int count) noexcept {
    float delay = comb.delay;
    float feedback = comb.feedback;
    int write = comb.write;
    float* const bufL = lineL.data();
    float* const bufR = lineR.data();
    for (int i = 0; i < count; ++i) {
        if constexpr (Glide) {
            delay += comb.delayStep;
            feedback += comb.feedbackStep;
        }
        const int whole = static_cast<int>(delay);
        const float frac = delay - static_cast<float>(whole);
        const int older = (write - whole - 1) & kLineMask;
        const int newer = (write - whole) & kLineMask;
        {
            const float x = left[i];
            const float tap = bufL[older] * frac + bufL[newer] * (1.0f - frac);
            bufL[write] = flushed(x + feedback * tap);
            left[i] = 0.5f * (x + tap);
        }
        if constexpr (Channels == 2) {
            const float x = right[i];
            const float tap = bufR[older] * frac + bufR[newer] * (1.0f - frac);
            bufR[write] = flushed(x + feedback * tap);
            right[i] = 0.5f * (x + tap);
        }
        write = (write + 1) & kLineMask;
    }
    comb.delay = delay;
    comb.feedback = feedback;
    comb.write = write;
}

template <int Channels>
void AFDirectFilter::runModeStereo(int mode, float* left, float* right, int count) noexcept {
    if (count <= 0) return;
    if (mode == Comb) {
        const int gliding = std::min(count, comb.glideLeft);
        if (gliding > 0) {
            runComb<Channels, true>(left, right, gliding);
            comb.glideLeft -= gliding;
            if (comb.glideLeft == 0) {
                comb.delay = comb.delayTarget;
                comb.feedback = comb.feedbackTarget;
            }
        }
        if (count > gliding) runComb<Channels, false>(left + gliding, right + gliding, count - gliding);
        return;
    }
    Core& core = cores[static_cast<std::size_t>(mode)];
    const int gliding = std::min(count, core.glideLeft);
    float* const restL = left + gliding;
    float* const restR = right + gliding;
    const int rest = count - gliding;
    switch (mode) {
    case Highpass:
        if (gliding > 0) runCore<Highpass, Channels, true>(left, right, gliding);
        break;
    case Bandpass:
        if (gliding > 0) runCore<Bandpass, Channels, true>(left, right, gliding);
        break;
    default:
        if (gliding > 0) runCore<Lowpass, Channels, true>(left, right, gliding);
        break;
    }
    if (gliding > 0) {
        core.glideLeft -= gliding;
        if (core.glideLeft == 0) {
            core.g = core.gTarget;
            core.k = core.kTarget;
        }
    }
    if (rest <= 0) return;
    switch (mode) {
    case Highpass:
        runCore<Highpass, Channels, false>(restL, restR, rest);
        break;
    case Bandpass:
        runCore<Bandpass, Channels, false>(restL, restR, rest);
        break;
    default:
        runCore<Lowpass, Channels, false>(restL, restR, rest);
        break;
    }
}

void AFDirectFilter::process(int mode, float* data, int count) noexcept {
    runModeStereo<1>(std::clamp(mode, 0, kModeCount - 1), data, data, count);
}

void AFDirectFilter::processStereo(int mode, float* left, float* right, int count) noexcept {
    runModeStereo<2>(std::clamp(mode, 0, kModeCount - 1), left, right, count);
}
