#include "modulation/ControlCurveBank.h"

#include <algorithm>
#include <cmath>

namespace {

// The words were stored with the curves by index and later words no longer describe their shapes; presets
// and menus depend on them as they are.
constexpr const char* kCurveNames[ControlCurveBank::kCurveCount] = {
    "Linear /",       "Sloped )",       "Breaked _/TT",   "Breaked __/T",   "Breaked ___/",
    "Quantized 8",    "Quantized 4",    "Quantized 3",    "Quantized 2",    "Triangle /\\\\",
    "Quick /TTT",     "Quick vVTT",     "Quick -vVT",     "quicklate -vvV", "quicklate -vvV",
    "quicklate -vvV", "quicklate -vvV", "quicklate -vvV", "quicklate -vvV", "quicklate -vvV"};

} // namespace

void ControlCurveBank::compute(float control, float threshold, float* out) noexcept {
    // The sweep starts from 0 where the slot switches on; a hostile threshold or control never leaves 0..1.
    float f = 0.0f;
    if (control >= threshold) f = (control - threshold) / (1.0f - threshold);
    f = f > 0.0f ? (f < 1.0f ? f : 1.0f) : 0.0f;

    std::fill(out, out + kCurveCount, 0.0f);
    const int s = static_cast<int>(3.9999999999 * static_cast<double>(f));

    out[0] = f;
    out[1] = f * f;
    out[2] = 1.0f - (1.0f - f) * (1.0f - f);
    out[16] = std::trunc(2.0f * f + 0.5f) * 0.5f;
    out[17] = std::trunc(3.0f * f + 0.5f) * 0.33333334f;
    out[18] = std::trunc(4.0f * f + 0.5f) * 0.25f;
    out[19] = std::trunc(8.0f * f + 0.5f) * 0.125f;

    switch (s) {
    case 0:
        out[8] = 4.0f * f;
        out[9] = 2.0f * f;
        out[10] = 1.3333334f * f;
        out[11] = 2.0f * f;
        out[12] = 2.0f * f;
        out[15] = 2.0f * f;
        break;
    case 1:
        out[3] = 1.3333f * (f - 0.25f);
        out[7] = 4.0f * (f - 0.25f);
        out[8] = 1.0f;
        out[9] = 2.0f * f;
        out[10] = 1.3333334f * f;
        out[11] = 0.5f;
        out[12] = 2.0f * f;
        out[13] = 4.0f * (f - 0.25f);
        out[14] = 4.0f * (f - 0.25f);
        out[15] = 2.0f * f;
        break;
    case 2:
        out[3] = 1.3333f * (f - 0.25f);
        out[4] = 2.0f * (f - 0.5f);
        out[6] = 4.0f * (f - 0.5f);
        out[7] = 1.0f;
        out[8] = 1.0f;
        out[9] = 1.0f;
        out[10] = 1.3333334f * f;
        out[11] = 0.5f;
        out[12] = 2.0f - 2.0f * f;
        out[13] = 1.0f - 4.0f * (f - 0.5f);
        out[14] = 2.0f - 2.0f * f;
        out[15] = 1.0f - 4.0f * (f - 0.5f);
        break;
    default:
        out[3] = 1.3333f * (f - 0.25f);
        out[4] = 2.0f * (f - 0.5f);
        out[5] = 4.0f * (f - 0.75f);
        out[6] = 1.0f;
        out[7] = 1.0f;
        out[8] = 1.0f;
        out[9] = 1.0f;
        out[10] = 1.0f;
        out[11] = 0.5f + 2.0f * (f - 0.75f);
        out[12] = 2.0f - 2.0f * f;
        out[14] = 2.0f - 2.0f * f;
        break;
    }
}

const char* ControlCurveBank::curveName(int index) noexcept {
    return index >= 0 && index < kCurveCount ? kCurveNames[index] : "";
}
