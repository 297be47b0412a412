#include "effects/framework/AFDirectFilter.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// Power of two above the longest comb delay (highest rate over the comb floor), so reads wrap by a mask.
constexpr int kLineSize = 8192;
constexpr int kLineMask = kLineSize - 1;
static_assert(kLineSize > static_cast<int>(AFSystemInfo::kMaxSampleRate / AFDirectFilter::kCombFloorHz) + 4);

} // namespace

AFDirectFilter::AFDirectFilter(AFSystemInfo* system)
    : systemInfo(system), lineL(kLineSize, 0.0f), lineR(kLineSize, 0.0f), lineSize(kLineSize) {}

float AFDirectFilter::cutoffHz(float cutoff) noexcept {
    const float c = clampUnit(cutoff) * 0.9f + 0.1f;
    return c * c * c * 20000.0f;
}

float AFDirectFilter::scaledResonance(int mode, float resonance) noexcept {
    const float r = clampUnit(resonance);
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
    if (mode == Comb) {
        design(mode, cutoff, resonance, first, second);
    } else if (Core& core = cores[static_cast<std::size_t>(mode)];
               cutoff == core.cutoff && resonance == core.resonance && systemInfo->sampleRate == core.rate) {
        first = core.gTarget;
        second = core.kTarget;
    } else {
        design(mode, cutoff, resonance, first, second);
        core.cutoff = cutoff;
        core.resonance = resonance;
        core.rate = systemInfo->sampleRate;
    }
    if (mode == Comb) {
        comb.delayTarget = first;
        comb.feedbackTarget = second;
        if (first == comb.delay && second == comb.feedback) {
            comb.delayStep = comb.feedbackStep = 0.0f;
            comb.glideLeft = 0;
            return;
        }
        comb.delayStep = (first - comb.delay) * perSample;
        comb.feedbackStep = (second - comb.feedback) * perSample;
        comb.glideLeft = interval;
        return;
    }
    glide(cores[static_cast<std::size_t>(mode)], first, second);
}

void AFDirectFilter::setAs(int mode, const AFDirectFilter& other) noexcept {
    const auto index = static_cast<std::size_t>(std::clamp(mode, 0, kModeCount - 2));
    const Core& source = other.cores[index];
    Core& core = cores[index];
    core.cutoff = source.cutoff;
    core.resonance = source.resonance;
    core.rate = source.rate;
    glide(core, source.gTarget, source.kTarget);
}

void AFDirectFilter::glide(Core& core, float g, float k) noexcept {
    const int interval = std::max(systemInfo->controlInterval, 1);
    core.gTarget = g;
    core.kTarget = k;
    if (g == core.g && k == core.k) {
        // Standing still: the per-sample path skips the coefficient updates.
        core.gStep = core.kStep = 0.0f;
        core.glideLeft = 0;
        return;
    }
    const float perSample = 1.0f / static_cast<float>(interval);
    core.gStep = (g - core.g) * perSample;
    core.kStep = (k - core.k) * perSample;
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
    core.cutoff = cutoff;
    core.resonance = resonance;
    core.rate = systemInfo->sampleRate;
}

void AFDirectFilter::finishGlide(Core& core, int samples) noexcept {
    if (core.glideLeft <= 0) return;
    core.glideLeft -= samples;
    if (core.glideLeft > 0) return;
    core.glideLeft = 0;
    core.g = core.gTarget;
    core.k = core.kTarget;
    core.gStep = core.kStep = 0.0f;
}

void AFDirectFilter::finishGlide(CombLine& line, int samples) noexcept {
    if (line.glideLeft <= 0) return;
    line.glideLeft -= samples;
    if (line.glideLeft > 0) return;
    line.glideLeft = 0;
    line.delay = line.delayTarget;
    line.feedback = line.feedbackTarget;
    line.delayStep = line.feedbackStep = 0.0f;
}

// Two channels at once, side by side in vector lanes with each lane doing its channel's scalar arithmetic.
// The second lane's result is kept only when it is a real second channel (stereo or pair), never for the mono
// path, whose two pointers are the same buffer.
template <int Mode, bool Glide>
void AFDirectFilter::runCores(Core& ca, Core& cb, int chA, int chB, float* left, float* right, bool pair,
                              int count, bool twoStep) noexcept {
    using Lanes = float __attribute__((vector_size(8)));
    const auto ia = static_cast<std::size_t>(chA);
    const auto ib = static_cast<std::size_t>(chB);
    Lanes g = {ca.g, cb.g};
    Lanes k = {ca.k, cb.k};
    const Lanes gStep = {ca.gStep, cb.gStep};
    const Lanes kStep = {ca.kStep, cb.kStep};
    Lanes s1 = {ca.s1[ia], cb.s1[ib]};
    Lanes s2 = {ca.s2[ia], cb.s2[ib]};
    const Lanes one = {1.0f, 1.0f};
    Lanes a1 = one / (one + g * (g + k));
    int i = 0;
    if (!Glide && twoStep) {
        // Standing still, the core is a fixed linear system, s' = s + M s + B x and y = C s + D x, and the
        // state can move two samples on at once: the recursion is half as long, and the sample between hangs
        // off it. The state moves by increments, as in the core's own form, so low cutoffs keep their
        // precision.
        const Lanes a2 = g * a1;
        const Lanes a3 = g * a2;
        const Lanes m11 = -2.0f * g * (g + k) * a1, m12 = -2.0f * a2, m21 = 2.0f * a2, m22 = -2.0f * a3;
        const Lanes b1 = 2.0f * a2, b2 = 2.0f * a3;
        Lanes c1 = a2, c2 = one - a3, d = a3;
        if constexpr (Mode == Highpass) {
            c1 = -(k * a1) - a2;
            c2 = k * a2 - c2;
            d = a1;
        }
        if constexpr (Mode == Bandpass) {
            c1 = k * a1;
            c2 = -(k * a2);
            d = k * a2;
        }
        // Two steps: (I + M)^2 - I = M^2 + 2M, (I + M) B, and C (I + M), C B for the sample between.
        const Lanes w11 = (m11 * m11 + m12 * m21) + 2.0f * m11, w12 = (m11 * m12 + m12 * m22) + 2.0f * m12;
        const Lanes w21 = (m21 * m11 + m22 * m21) + 2.0f * m21, w22 = (m21 * m12 + m22 * m22) + 2.0f * m22;
        const Lanes v1 = b1 + (m11 * b1 + m12 * b2), v2 = b2 + (m21 * b1 + m22 * b2);
        const Lanes e1 = c1 + (c1 * m11 + c2 * m21), e2 = c2 + (c1 * m12 + c2 * m22);
        const Lanes f = c1 * b1 + c2 * b2;
        // Both channels and both samples side by side: lanes left and right now, then left and right one
        // sample on; the state as s1 left and right, then s2.
        using Quad = float __attribute__((vector_size(16)));
        const auto quad = [](Lanes a, Lanes b) { return Quad{a[0], a[1], b[0], b[1]}; };
        const Quad ca = quad(c1, e1), cb = quad(c2, e2), df = quad(d, f), dd = quad(Lanes{}, d);
        const Quad wa = quad(w11, w21), wb = quad(w12, w22), va = quad(v1, v2), vb = quad(b1, b2);
        Quad state = quad(s1, s2);
        for (; i + 1 < count; i += 2) {
            Lanes l, r;
            std::memcpy(&l, left + i, sizeof l);
            std::memcpy(&r, right + i, sizeof r);
            const Quad x = __builtin_shufflevector(l, r, 0, 2, 1, 3);
            const Quad x0 = __builtin_shufflevector(x, x, 0, 1, 0, 1);
            const Quad x1 = __builtin_shufflevector(x, x, 2, 3, 2, 3);
            const Quad first = __builtin_shufflevector(state, state, 0, 1, 0, 1);
            const Quad second = __builtin_shufflevector(state, state, 2, 3, 2, 3);
            const Quad y = (ca * first + cb * second) + (df * x0 + dd * x);
            state = (state + (va * x0 + vb * x1)) + (wa * first + wb * second);
            const Lanes outLeft = __builtin_shufflevector(y, y, 0, 2);
            const Lanes outRight = __builtin_shufflevector(y, y, 1, 3);
            std::memcpy(left + i, &outLeft, sizeof outLeft);
            if (pair) std::memcpy(right + i, &outRight, sizeof outRight);
        }
        s1 = Lanes{state[0], state[1]};
        s2 = Lanes{state[2], state[3]};
    }
    for (; i < count; ++i) {
        if constexpr (Glide) {
            g += gStep;
            k += kStep;
            a1 = one / (one + g * (g + k));
        }
        const Lanes a2 = g * a1;
        const Lanes a3 = g * a2;
        const Lanes x = {left[i], right[i]};
        const Lanes v3 = x - s2;
        const Lanes v1 = a1 * s1 + a2 * v3;
        const Lanes v2 = s2 + a2 * s1 + a3 * v3;
        s1 = 2.0f * v1 - s1;
        s2 = 2.0f * v2 - s2;
        Lanes y = v2;
        if constexpr (Mode == Highpass) y = x - k * v1 - v2;
        if constexpr (Mode == Bandpass) y = k * v1;
        left[i] = y[0];
        if (pair) right[i] = y[1];
    }
    ca.g = g[0];
    ca.k = k[0];
    ca.s1[ia] = flushed(s1[0]);
    ca.s2[ia] = flushed(s2[0]);
    if (!pair) return;
    cb.g = g[1];
    cb.k = k[1];
    cb.s1[ib] = flushed(s1[1]);
    cb.s2[ib] = flushed(s2[1]);
}

template <bool Glide>
void AFDirectFilter::runCombs(AFDirectFilter& fa, AFDirectFilter& fb, float* lineA, float* lineB, float* left,
                              float* right, bool pair, int count) noexcept {
    CombLine& ca = fa.comb;
    CombLine& cb = fb.comb;
    float da = ca.delay, fba = ca.feedback, db = cb.delay, fbb = cb.feedback;
    const float dsa = ca.delayStep, fsa = ca.feedbackStep, dsb = cb.delayStep, fsb = cb.feedbackStep;
    int wa = ca.write;
    int wb = cb.write;
    for (int i = 0; i < count; ++i) {
        if constexpr (Glide) {
            da += dsa;
            fba += fsa;
            db += dsb;
            fbb += fsb;
        }
        const int wholeA = static_cast<int>(da);
        const float fracA = da - static_cast<float>(wholeA);
        const float xa = left[i];
        const float tapA =
            lineA[(wa - wholeA - 1) & kLineMask] * fracA + lineA[(wa - wholeA) & kLineMask] * (1.0f - fracA);
        lineA[wa] = flushed(xa + fba * tapA);
        left[i] = 0.5f * (xa + tapA);
        wa = (wa + 1) & kLineMask;
        if (pair) {
            const int wholeB = static_cast<int>(db);
            const float fracB = db - static_cast<float>(wholeB);
            const float xb = right[i];
            const float tapB = lineB[(wb - wholeB - 1) & kLineMask] * fracB +
                               lineB[(wb - wholeB) & kLineMask] * (1.0f - fracB);
            lineB[wb] = flushed(xb + fbb * tapB);
            right[i] = 0.5f * (xb + tapB);
            wb = (wb + 1) & kLineMask;
        }
    }
    ca.delay = da;
    ca.feedback = fba;
    ca.write = wa;
    if (!pair || &fa == &fb) return;
    cb.delay = db;
    cb.feedback = fbb;
    cb.write = wb;
}

void AFDirectFilter::run(int mode, const Side& a, const Side& b, bool pair, int count,
                         bool twoStep) noexcept {
    AFDirectFilter& fa = *a.filter;
    AFDirectFilter& fb = *b.filter;
    const bool shared = &fa == &fb;
    int done = 0;
    while (done < count) {
        int segment = count - done;
        float* const left = a.data + done;
        float* const right = b.data + done;
        if (mode == Comb) {
            bool glide = false;
            if (fa.comb.glideLeft > 0) {
                segment = std::min(segment, fa.comb.glideLeft);
                glide = true;
            }
            if (pair && fb.comb.glideLeft > 0) {
                segment = std::min(segment, fb.comb.glideLeft);
                glide = true;
            }
            float* const lineA = (a.channel == 0 ? fa.lineL : fa.lineR).data();
            float* const lineB = (b.channel == 0 ? fb.lineL : fb.lineR).data();
            if (glide)
                runCombs<true>(fa, fb, lineA, lineB, left, right, pair, segment);
            else
                runCombs<false>(fa, fb, lineA, lineB, left, right, pair, segment);
            finishGlide(fa.comb, segment);
            if (pair && !shared) finishGlide(fb.comb, segment);
        } else {
            Core& ca = fa.cores[static_cast<std::size_t>(mode)];
            Core& cb = fb.cores[static_cast<std::size_t>(mode)];
            bool glide = false;
            if (ca.glideLeft > 0) {
                segment = std::min(segment, ca.glideLeft);
                glide = true;
            }
            if (pair && cb.glideLeft > 0) {
                segment = std::min(segment, cb.glideLeft);
                glide = true;
            }
            switch (mode * 2 + (glide ? 1 : 0)) {
            case Highpass * 2:
                runCores<Highpass, false>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            case Highpass * 2 + 1:
                runCores<Highpass, true>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            case Bandpass * 2:
                runCores<Bandpass, false>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            case Bandpass * 2 + 1:
                runCores<Bandpass, true>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            case Lowpass * 2:
                runCores<Lowpass, false>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            default:
                runCores<Lowpass, true>(ca, cb, a.channel, b.channel, left, right, pair, segment, twoStep);
                break;
            }
            finishGlide(ca, segment);
            if (pair && !shared) finishGlide(cb, segment);
        }
        done += segment;
    }
}

void AFDirectFilter::process(int mode, float* data, int count) noexcept {
    const Side side{this, 0, data};
    run(std::clamp(mode, 0, kModeCount - 1), side, side, false, count);
}

void AFDirectFilter::processStereo(int mode, float* left, float* right, int count) noexcept {
    run(std::clamp(mode, 0, kModeCount - 1), Side{this, 0, left}, Side{this, 1, right}, true, count);
}

void AFDirectFilter::processStereoTwoStep(int mode, float* left, float* right, int count) noexcept {
    run(std::clamp(mode, 0, kModeCount - 1), Side{this, 0, left}, Side{this, 1, right}, true, count, true);
}

void AFDirectFilter::processPair(int mode, AFDirectFilter& leftFilter, float* left,
                                 AFDirectFilter& rightFilter, float* right, int count) noexcept {
    run(std::clamp(mode, 0, kModeCount - 1), Side{&leftFilter, 0, left}, Side{&rightFilter, 0, right}, true,
        count);
}

void AFDirectFilter::processStereoBand(float* left, float* right, int count) noexcept {
    processStereoBand(left, right, count, [left, right](int i, float yl, float yr) {
        left[i] = yl;
        right[i] = yr;
    });
}

// The four filters in one vector, left low-pass, right low-pass, left high-pass, right high-pass, each lane
// doing its filter's scalar arithmetic. The high-passes run one sample behind, on the low-passes' previous
// output, so that one step moves all four recursions; the first and last samples move only one half.
template <bool Glide>
void AFDirectFilter::runPairBand(AFDirectFilter& fa, AFDirectFilter& fb, float* left, float* right,
                                 int count) noexcept {
    using Quad = float __attribute__((vector_size(16)));
    Core& loA = fa.cores[Lowpass];
    Core& loB = fb.cores[Lowpass];
    Core& hiA = fa.cores[Highpass];
    Core& hiB = fb.cores[Highpass];
    Quad g = {loA.g, loB.g, hiA.g, hiB.g}, k = {loA.k, loB.k, hiA.k, hiB.k};
    const Quad gStep = {loA.gStep, loB.gStep, hiA.gStep, hiB.gStep};
    const Quad kStep = {loA.kStep, loB.kStep, hiA.kStep, hiB.kStep};
    Quad s1 = {loA.s1[0], loB.s1[0], hiA.s1[0], hiB.s1[0]};
    Quad s2 = {loA.s2[0], loB.s2[0], hiA.s2[0], hiB.s2[0]};
    const Quad one = {1.0f, 1.0f, 1.0f, 1.0f};
    const Quad lowHalf = {1.0f, 1.0f, 0.0f, 0.0f};
    const Quad highHalf = {0.0f, 0.0f, 1.0f, 1.0f};
    Quad a1 = one / (one + g * (g + k));
    Quad v2{};
    // One sample on for the lanes whose glide moves by `share` of a step; returns the high-pass outputs.
    const auto step = [&](Quad x, Quad share) {
        if constexpr (Glide) {
            g += gStep * share;
            k += kStep * share;
            a1 = one / (one + g * (g + k));
        }
        const Quad a2 = g * a1, a3 = g * a2;
        const Quad v3 = x - s2;
        const Quad v1 = a1 * s1 + a2 * v3;
        v2 = s2 + a2 * s1 + a3 * v3;
        s1 = 2.0f * v1 - s1;
        s2 = 2.0f * v2 - s2;
        return x - k * v1 - v2;
    };
    // The high-passes' input: the low-passes' last output.
    const auto feed = [&](float l, float r) {
        return __builtin_shufflevector(Quad{l, r, 0.0f, 0.0f}, v2, 0, 1, 4, 5);
    };
    Quad keep1 = s1, keep2 = s2;
    step(Quad{left[0], right[0], 0.0f, 0.0f}, lowHalf);
    s1 = __builtin_shufflevector(s1, keep1, 0, 1, 6, 7);
    s2 = __builtin_shufflevector(s2, keep2, 0, 1, 6, 7);
    for (int i = 1; i < count; ++i) {
        const Quad y = step(feed(left[i], right[i]), one);
        left[i - 1] = y[2];
        right[i - 1] = y[3];
    }
    keep1 = s1;
    keep2 = s2;
    const Quad y = step(feed(0.0f, 0.0f), highHalf);
    left[count - 1] = y[2];
    right[count - 1] = y[3];
    s1 = __builtin_shufflevector(keep1, s1, 0, 1, 6, 7);
    s2 = __builtin_shufflevector(keep2, s2, 0, 1, 6, 7);
    loA.g = g[0];
    loB.g = g[1];
    hiA.g = g[2];
    hiB.g = g[3];
    loA.k = k[0];
    loB.k = k[1];
    hiA.k = k[2];
    hiB.k = k[3];
    loA.s1[0] = flushed(s1[0]);
    loB.s1[0] = flushed(s1[1]);
    hiA.s1[0] = flushed(s1[2]);
    hiB.s1[0] = flushed(s1[3]);
    loA.s2[0] = flushed(s2[0]);
    loB.s2[0] = flushed(s2[1]);
    hiA.s2[0] = flushed(s2[2]);
    hiB.s2[0] = flushed(s2[3]);
}

void AFDirectFilter::processPairBand(AFDirectFilter& leftFilter, float* left, AFDirectFilter& rightFilter,
                                     float* right, int count) noexcept {
    const std::array<Core*, 4> cores{&leftFilter.cores[Lowpass], &rightFilter.cores[Lowpass],
                                     &leftFilter.cores[Highpass], &rightFilter.cores[Highpass]};
    int done = 0;
    while (done < count) {
        int segment = count - done;
        bool glide = false;
        for (const Core* core : cores) {
            if (core->glideLeft <= 0) continue;
            segment = std::min(segment, core->glideLeft);
            glide = true;
        }
        if (glide)
            runPairBand<true>(leftFilter, rightFilter, left + done, right + done, segment);
        else
            runPairBand<false>(leftFilter, rightFilter, left + done, right + done, segment);
        finishGlide(*cores[0], segment);
        finishGlide(*cores[2], segment);
        if (&leftFilter != &rightFilter) {
            finishGlide(*cores[1], segment);
            finishGlide(*cores[3], segment);
        }
        done += segment;
    }
}
