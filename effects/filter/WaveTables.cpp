#include "effects/filter/WaveTables.h"

#include <cmath>
#include <cstddef>
#include <span>

namespace {

struct Knot {
    double index;
    double value;
};

// The analogue shapes are drawn through a few measured points with a shape-preserving cubic, so each
// segment stays monotone (no overshoot) and every corner is rounded the way a real oscillator rounds it.
// The last knot sits at 1024 and repeats the first, closing the cycle.
constexpr Knot kSaw[] = {{0, 0.981},    {1, 1.0},       {128, 0.714},  {256, 0.433},
                         {384, 0.200},  {511, -0.054},  {640, -0.290}, {768, -0.463},
                         {896, -0.485}, {1023, -0.488}, {1024, 0.981}};

constexpr Knot kTri[] = {{0, 0.003},    {64, 0.230},   {128, 0.448},  {256, 0.853},  {384, 0.448},
                         {448, 0.230},  {511, 0.001},  {576, -0.230}, {640, -0.448}, {768, -0.853},
                         {896, -0.448}, {960, -0.230}, {1024, 0.003}};

// A square whose flat tops sag towards zero as through a coupling capacitor.
constexpr Knot kSquare[] = {{0, 0.998},    {128, 0.911},   {256, 0.832},  {384, 0.760},
                            {511, 0.615},  {512, -0.998},  {640, -0.911}, {768, -0.832},
                            {896, -0.760}, {1023, -0.694}, {1024, 0.998}};

// Fritsch-Carlson slopes: harmonic mean of the neighbouring secants, zero at a local extremum.
double knotSlope(std::span<const Knot> knots, std::size_t k) {
    if (k == 0 || k + 1 == knots.size()) return 0.0;
    const double left = (knots[k].value - knots[k - 1].value) / (knots[k].index - knots[k - 1].index);
    const double right = (knots[k + 1].value - knots[k].value) / (knots[k + 1].index - knots[k].index);
    if (left * right <= 0.0) return 0.0;
    const double wLeft = 2.0 * (knots[k + 1].index - knots[k].index) + (knots[k].index - knots[k - 1].index);
    const double wRight = (knots[k + 1].index - knots[k].index) + 2.0 * (knots[k].index - knots[k - 1].index);
    return (wLeft + wRight) / (wLeft / left + wRight / right);
}

void drawShape(std::span<const Knot> knots, float* out) {
    std::size_t k = 0;
    for (int i = 0; i < WaveTables::kSize; ++i) {
        while (knots[k + 1].index < i)
            ++k;
        const Knot& a = knots[k];
        const Knot& b = knots[k + 1];
        const double h = b.index - a.index;
        const double t = (i - a.index) / h;
        const double t2 = t * t;
        const double t3 = t2 * t;
        const double value = (2.0 * t3 - 3.0 * t2 + 1.0) * a.value +
                             (t3 - 2.0 * t2 + t) * h * knotSlope(knots, k) +
                             (-2.0 * t3 + 3.0 * t2) * b.value + (t3 - t2) * h * knotSlope(knots, k + 1);
        out[i] = static_cast<float>(value);
    }
}

} // namespace

const WaveTables& WaveTables::instance() {
    static const WaveTables tables;
    return tables;
}

WaveTables::WaveTables() {
    drawShape(kSaw, waves[0].data());
    drawShape(kTri, waves[1].data());
    drawShape(kSquare, waves[2].data());
    const double step = 2.0 * 3.14159265358979323846 / kSize;
    for (int i = 0; i < kSize; ++i)
        waves[3][static_cast<std::size_t>(i)] = static_cast<float>(std::sin(step * i));
    for (int w = 0; w < kCount; ++w) {
        auto& table = waves[static_cast<std::size_t>(w)];
        auto& diff = deltas[static_cast<std::size_t>(w)];
        auto& pair = pairTables[static_cast<std::size_t>(w)];
        for (int i = 0; i < kSize; ++i) {
            const auto k = static_cast<std::size_t>(i);
            diff[k] = table[static_cast<std::size_t>((i + 1) & kMask)] - table[k];
            pair[2 * k] = table[k];
            pair[2 * k + 1] = diff[k];
        }
    }
}
