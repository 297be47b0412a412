#include "effects/filter/BiquadStage.h"

#include <algorithm>
#include <cmath>

namespace {

// Output magnitudes below this are stored as 0 so that decaying tails never turn denormal.
constexpr float kFlush = 5.9604645e-08f;

} // namespace

std::array<float, 5> BiquadStage::design(int shape, float frequency, float q, float sampleRate) noexcept {
    // Kept below Nyquist and away from zero Q so that a hostile value can never produce a pole outside the
    // unit circle.
    // Written so that a NaN falls to the floor too.
    const double nyquistGuard = 0.49 * static_cast<double>(sampleRate);
    const double f = frequency > 1.0f ? std::min(static_cast<double>(frequency), nyquistGuard) : 1.0;
    const double qq = q > 0.01f ? static_cast<double>(q) : 0.01;
    const double w = 2.0 * 3.141592653589793 * f / static_cast<double>(sampleRate);
    const double cw = std::cos(w);
    const double alpha = std::sin(w) / (2.0 * qq);
    const double inv = 1.0 / (1.0 + alpha);
    const double a1 = -2.0 * cw * inv;
    const double a2 = (1.0 - alpha) * inv;
    double b0 = 0.0;
    double b1 = 0.0;
    double b2 = 0.0;
    switch (shape) {
    case HighPass:
        b0 = (1.0 + cw) * inv * 0.5;
        b1 = -2.0 * b0;
        b2 = b0;
        break;
    case BandReject:
        b0 = inv;
        b1 = a1;
        b2 = inv;
        break;
    case BandPass:
        // Peak gain 1 at the centre frequency.
        b0 = alpha * inv;
        b2 = -b0;
        break;
    default:
        b0 = (1.0 - cw) * inv * 0.5;
        b1 = 2.0 * b0;
        b2 = b0;
        break;
    }
    return {static_cast<float>(b0), static_cast<float>(b1), static_cast<float>(b2), static_cast<float>(a1),
            static_cast<float>(a2)};
}

void BiquadStage::set(int shape, float frequency, float q, float sampleRate, int blockLength,
                      bool snap) noexcept {
    if (!snap && matches(shape, frequency, q)) {
        delta = {};
        glideLeft = 0;
        return;
    }
    apply(shape, frequency, q, design(shape, frequency, q, sampleRate), blockLength, snap);
}

void BiquadStage::apply(int shape, float frequency, float q, const std::array<float, 5>& designed,
                        int blockLength, bool snap) noexcept {
    if (!snap && matches(shape, frequency, q)) {
        delta = {};
        glideLeft = 0;
        return;
    }
    lastShape = shape;
    lastFrequency = frequency;
    lastQ = q;
    target = designed;
    if (snap || blockLength < 1) {
        current = target;
        delta = {};
        glideLeft = 0;
        if (snap) x1 = x2 = y1 = y2 = 0.0f;
        return;
    }
    const float perSample = 1.0f / static_cast<float>(blockLength);
    for (std::size_t i = 0; i < 5; ++i)
        delta[i] = (target[i] - current[i]) * perSample;
    glideLeft = blockLength;
}

template <bool Glide>
void BiquadStage::run(float* data, int count) noexcept {
    float b0 = current[0], b1 = current[1], b2 = current[2], a1 = current[3], a2 = current[4];
    const float d0 = delta[0], d1 = delta[1], d2 = delta[2], d3 = delta[3], d4 = delta[4];
    float sx1 = x1, sx2 = x2, sy1 = y1, sy2 = y2;
    for (int i = 0; i < count; ++i) {
        if constexpr (Glide) {
            b0 += d0;
            b1 += d1;
            b2 += d2;
            a1 += d3;
            a2 += d4;
        }
        const float x = data[i];
        float y = b0 * x + b1 * sx1 + b2 * sx2 - a1 * sy1 - a2 * sy2;
        y = std::fabs(y) < kFlush ? 0.0f : y;
        sx2 = sx1;
        sx1 = x;
        sy2 = sy1;
        sy1 = y;
        data[i] = y;
    }
    current = {b0, b1, b2, a1, a2};
    x1 = sx1;
    x2 = sx2;
    y1 = sy1;
    y2 = sy2;
}

void BiquadStage::finishGlide(int samples) noexcept {
    if (glideLeft <= 0) return;
    glideLeft -= samples;
    if (glideLeft > 0) return;
    glideLeft = 0;
    current = target;
    delta = {};
}

void BiquadStage::process(float* data, int count) noexcept {
    if (count <= 0) return;
    const int gliding = std::min(count, glideLeft);
    if (gliding > 0) {
        run<true>(data, gliding);
        finishGlide(gliding);
    }
    if (count > gliding) run<false>(data + gliding, count - gliding);
}

template <bool Glide>
void BiquadStage::runPair(BiquadStage& a, float* first, BiquadStage& b, float* second, int count) noexcept {
    std::array<float, 5> ca = a.current;
    std::array<float, 5> cb = b.current;
    const std::array<float, 5> da = a.delta;
    const std::array<float, 5> db = b.delta;
    float ax1 = a.x1, ax2 = a.x2, ay1 = a.y1, ay2 = a.y2;
    float bx1 = b.x1, bx2 = b.x2, by1 = b.y1, by2 = b.y2;
    for (int i = 0; i < count; ++i) {
        if constexpr (Glide) {
            for (std::size_t c = 0; c < 5; ++c) {
                ca[c] += da[c];
                cb[c] += db[c];
            }
        }
        const float xa = first[i];
        const float xb = second[i];
        float ya = ca[0] * xa + ca[1] * ax1 + ca[2] * ax2 - ca[3] * ay1 - ca[4] * ay2;
        float yb = cb[0] * xb + cb[1] * bx1 + cb[2] * bx2 - cb[3] * by1 - cb[4] * by2;
        ya = std::fabs(ya) < kFlush ? 0.0f : ya;
        yb = std::fabs(yb) < kFlush ? 0.0f : yb;
        ax2 = ax1;
        ax1 = xa;
        ay2 = ay1;
        ay1 = ya;
        bx2 = bx1;
        bx1 = xb;
        by2 = by1;
        by1 = yb;
        first[i] = ya;
        second[i] = yb;
    }
    a.current = ca;
    b.current = cb;
    a.x1 = ax1;
    a.x2 = ax2;
    a.y1 = ay1;
    a.y2 = ay2;
    b.x1 = bx1;
    b.x2 = bx2;
    b.y1 = by1;
    b.y2 = by2;
}

void BiquadStage::processPair(BiquadStage& a, float* first, BiquadStage& b, float* second,
                              int count) noexcept {
    int done = 0;
    while (done < count) {
        int segment = count - done;
        // A stage that is not gliding has zero deltas, so one gliding kernel serves both.
        const bool glide = a.glideLeft > 0 || b.glideLeft > 0;
        if (a.glideLeft > 0) segment = std::min(segment, a.glideLeft);
        if (b.glideLeft > 0) segment = std::min(segment, b.glideLeft);
        if (glide)
            runPair<true>(a, first + done, b, second + done, segment);
        else
            runPair<false>(a, first + done, b, second + done, segment);
        a.finishGlide(segment);
        b.finishGlide(segment);
        done += segment;
    }
}

void BiquadStage::processPairTwoStep(BiquadStage& a, float* first, BiquadStage& b, float* second,
                                     int count) noexcept {
    const int gliding = std::min(count, std::max(a.glideLeft, b.glideLeft));
    if (gliding > 0) processPair(a, first, b, second, gliding);
    if (count > gliding) runPairTwoStep(a, first + gliding, b, second + gliding, count - gliding);
}

// Two samples from the last two outputs at once: y0 = f0 - a1 y1 - a2 y2 and, putting y0 into the next,
// y1' = f1 - a1 f0 + (a1^2 - a2) y1 + a1 a2 y2, where f is the feed-forward part. Both hang off the same two
// outputs, so each step of the recursion covers two samples.
void BiquadStage::runPairTwoStep(BiquadStage& a, float* first, BiquadStage& b, float* second,
                                 int count) noexcept {
    struct Lane {
        std::array<float, 5> c;
        float c1, c2; // a1^2 - a2 and a1 a2
        float x1, x2, y1, y2;
        float* data;
    };
    std::array<Lane, 2> lanes;
    for (int k = 0; k < 2; ++k) {
        const BiquadStage& s = k == 0 ? a : b;
        const std::array<float, 5>& c = s.current;
        Lane& lane = lanes[static_cast<std::size_t>(k)];
        lane = {c, c[3] * c[3] - c[4], c[3] * c[4], s.x1, s.x2, s.y1, s.y2, k == 0 ? first : second};
    }
    const auto flushed = [](float y) { return std::fabs(y) < kFlush ? 0.0f : y; };
    int i = 0;
    for (; i + 1 < count; i += 2) {
        for (Lane& l : lanes) {
            const float u0 = l.data[i];
            const float u1 = l.data[i + 1];
            const float f0 = l.c[0] * u0 + l.c[1] * l.x1 + l.c[2] * l.x2;
            const float f1 = l.c[0] * u1 + l.c[1] * u0 + l.c[2] * l.x1;
            const float y0 = flushed(f0 - (l.c[3] * l.y1 + l.c[4] * l.y2));
            const float y01 = flushed((f1 - l.c[3] * f0) + (l.c1 * l.y1 + l.c2 * l.y2));
            l.data[i] = y0;
            l.data[i + 1] = y01;
            l.x2 = u0;
            l.x1 = u1;
            l.y2 = y0;
            l.y1 = y01;
        }
    }
    for (int k = 0; k < 2; ++k) {
        BiquadStage& s = k == 0 ? a : b;
        const Lane& l = lanes[static_cast<std::size_t>(k)];
        s.x1 = l.x1;
        s.x2 = l.x2;
        s.y1 = l.y1;
        s.y2 = l.y2;
    }
    if (i < count) runPair<false>(a, first + i, b, second + i, count - i);
}

template <bool Glide>
float BiquadStage::tick(std::array<float, 5>& c, const std::array<float, 5>& d, float& x1, float& x2,
                        float& y1, float& y2, float x) noexcept {
    if constexpr (Glide) {
        for (std::size_t i = 0; i < 5; ++i)
            c[i] += d[i];
    }
    float y = c[0] * x + c[1] * x1 + c[2] * x2 - c[3] * y1 - c[4] * y2;
    y = std::fabs(y) < kFlush ? 0.0f : y;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
}

template <bool Glide>
void BiquadStage::runCascadePair(BiquadStage& a, BiquadStage& a2, float* first, BiquadStage& b,
                                 BiquadStage& b2, float* second, int count) noexcept {
    std::array<BiquadStage*, 4> stages{&a, &a2, &b, &b2};
    std::array<std::array<float, 5>, 4> c{};
    std::array<std::array<float, 5>, 4> d{};
    std::array<std::array<float, 4>, 4> h{};
    for (std::size_t s = 0; s < 4; ++s) {
        c[s] = stages[s]->current;
        d[s] = stages[s]->delta;
        h[s] = {stages[s]->x1, stages[s]->x2, stages[s]->y1, stages[s]->y2};
    }
    for (int i = 0; i < count; ++i) {
        const float ya = tick<Glide>(c[0], d[0], h[0][0], h[0][1], h[0][2], h[0][3], first[i]);
        const float yb = tick<Glide>(c[2], d[2], h[2][0], h[2][1], h[2][2], h[2][3], second[i]);
        first[i] = tick<Glide>(c[1], d[1], h[1][0], h[1][1], h[1][2], h[1][3], ya);
        second[i] = tick<Glide>(c[3], d[3], h[3][0], h[3][1], h[3][2], h[3][3], yb);
    }
    for (std::size_t s = 0; s < 4; ++s) {
        stages[s]->current = c[s];
        stages[s]->x1 = h[s][0];
        stages[s]->x2 = h[s][1];
        stages[s]->y1 = h[s][2];
        stages[s]->y2 = h[s][3];
    }
}

void BiquadStage::processCascadePair(BiquadStage& a, BiquadStage& a2, float* first, BiquadStage& b,
                                     BiquadStage& b2, float* second, int count) noexcept {
    int done = 0;
    while (done < count) {
        int segment = count - done;
        bool glide = false;
        for (const BiquadStage* s : {&a, &a2, &b, &b2}) {
            if (s->glideLeft > 0) {
                segment = std::min(segment, s->glideLeft);
                glide = true;
            }
        }
        if (glide)
            runCascadePair<true>(a, a2, first + done, b, b2, second + done, segment);
        else
            runCascadePair<false>(a, a2, first + done, b, b2, second + done, segment);
        for (BiquadStage* s : {&a, &a2, &b, &b2})
            s->finishGlide(segment);
        done += segment;
    }
}
