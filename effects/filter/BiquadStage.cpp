#include "effects/filter/BiquadStage.h"

#include <algorithm>
#include <cmath>

namespace {

// Output magnitudes below this are stored as 0 so that decaying tails never turn denormal.
constexpr float kFlush = 5.9604645e-08f;

} // namespace

void BiquadStage::set(int shape, float frequency, float q, float sampleRate, int blockLength,
                      bool snap) noexcept {
    if (!snap && shape == lastShape && frequency == lastFrequency && q == lastQ) {
        delta = {};
        glideLeft = 0;
        return;
    }
    lastShape = shape;
    lastFrequency = frequency;
    lastQ = q;

    // Kept below Nyquist and away from zero Q so that a hostile value can never produce a pole outside the
    // unit circle.
    const double f = std::clamp(static_cast<double>(frequency), 1.0, 0.49 * static_cast<double>(sampleRate));
    const double qq = std::max(static_cast<double>(q), 0.01);
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
    target = {static_cast<float>(b0), static_cast<float>(b1), static_cast<float>(b2), static_cast<float>(a1),
              static_cast<float>(a2)};

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

void BiquadStage::process(float* data, int count) noexcept {
    if (count <= 0) return;
    const int gliding = std::min(count, glideLeft);
    if (gliding > 0) {
        run<true>(data, gliding);
        glideLeft -= gliding;
        if (glideLeft == 0) {
            current = target;
            delta = {};
        }
    }
    if (count > gliding) run<false>(data + gliding, count - gliding);
}
