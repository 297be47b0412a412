#include "modulation/ControlCurveBank.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace {

using Curves = std::array<float, ControlCurveBank::kCurveCount>;

// The twenty curves read piece by piece; "up to" includes its bound.
Curves reference(float f) {
    Curves c{};
    const auto ramp = [f](float from, float gain) { return gain * (f - from); };
    c[0] = f;
    c[1] = f * f;
    c[2] = 1.0f - (1.0f - f) * (1.0f - f);
    c[3] = f <= 0.25f ? 0.0f : 1.3333f * (f - 0.25f);
    c[4] = f <= 0.5f ? 0.0f : 2.0f * (f - 0.5f);
    c[5] = f <= 0.75f ? 0.0f : 4.0f * (f - 0.75f);
    c[6] = f <= 0.5f ? 0.0f : (f <= 0.75f ? ramp(0.5f, 4.0f) : 1.0f);
    c[7] = f <= 0.25f ? 0.0f : (f <= 0.5f ? ramp(0.25f, 4.0f) : 1.0f);
    c[8] = f <= 0.25f ? 4.0f * f : 1.0f;
    c[9] = f <= 0.5f ? 2.0f * f : 1.0f;
    c[10] = f <= 0.75f ? 1.3333334f * f : 1.0f;
    c[11] = f <= 0.25f ? 2.0f * f : (f <= 0.75f ? 0.5f : 0.5f + ramp(0.75f, 2.0f));
    c[12] = f <= 0.5f ? 2.0f * f : 2.0f - 2.0f * f;
    c[13] =
        f <= 0.25f ? 0.0f : (f <= 0.5f ? ramp(0.25f, 4.0f) : (f <= 0.75f ? 1.0f - ramp(0.5f, 4.0f) : 0.0f));
    c[14] = f <= 0.25f ? 0.0f : (f <= 0.5f ? ramp(0.25f, 4.0f) : 2.0f - 2.0f * f);
    c[15] = f <= 0.5f ? 2.0f * f : (f <= 0.75f ? 1.0f - ramp(0.5f, 4.0f) : 0.0f);
    c[16] = std::trunc(2.0f * f + 0.5f) / 2.0f;
    c[17] = std::trunc(3.0f * f + 0.5f) * 0.33333334f;
    c[18] = std::trunc(4.0f * f + 0.5f) / 4.0f;
    c[19] = std::trunc(8.0f * f + 0.5f) / 8.0f;
    return c;
}

Curves computed(float control, float threshold) {
    Curves out;
    out.fill(-9.0f); // the bank clears what it does not write
    ControlCurveBank::compute(control, threshold, out.data());
    return out;
}

} // namespace

TEST(ControlCurveBankTest, AllCurvesAcrossTheSweep) {
    std::vector<float> fs;
    for (int i = 0; i <= 512; ++i)
        fs.push_back(static_cast<float>(i) / 512.0f);
    for (float edge : {0.25f, 0.5f, 0.75f}) {
        fs.push_back(std::nextafter(edge, 0.0f));
        fs.push_back(std::nextafter(edge, 1.0f));
    }
    for (float f : {0.1f, 0.3f, 0.3333f, 0.6f, 0.7f, 0.9f, 0.99f})
        fs.push_back(f);
    for (float f : fs) {
        const Curves got = computed(f, 0.0f);
        const Curves want = reference(f);
        for (int i = 0; i < ControlCurveBank::kCurveCount; ++i)
            EXPECT_EQ(got[i], want[i]) << "curve " << i << " f " << f;
    }
}

TEST(ControlCurveBankTest, LandmarkValues) {
    const Curves top = computed(1.0f, 0.0f);
    EXPECT_EQ(top[3], 1.3333f * 0.75f); // just short of 1, as the constant gives
    EXPECT_EQ(top[11], 1.0f);
    EXPECT_EQ(top[12], 0.0f);
    EXPECT_EQ(top[13], 0.0f);
    EXPECT_EQ(top[15], 0.0f);
    EXPECT_EQ(top[17], 3.0f * 0.33333334f);
    const Curves quarter = computed(0.25f, 0.0f);
    EXPECT_EQ(quarter[8], 1.0f);
    EXPECT_EQ(quarter[16], 0.5f); // the 0.5 rounds to the nearest level
    EXPECT_EQ(quarter[19], 0.25f);
    const Curves middle = computed(0.5f, 0.0f);
    EXPECT_EQ(middle[13], 1.0f);
    EXPECT_EQ(middle[12], 1.0f);
    EXPECT_EQ(middle[9], 1.0f);
}

TEST(ControlCurveBankTest, ThresholdMapsTheControl) {
    for (float threshold : {0.0f, 0.01f, 0.2f, 0.5f}) {
        for (float control : {0.0f, 0.005f, 0.01f, 0.2f, 0.3f, 0.5f, 0.75f, 1.0f}) {
            const float f = control >= threshold ? (control - threshold) / (1.0f - threshold) : 0.0f;
            const Curves got = computed(control, threshold);
            const Curves want = reference(f);
            for (int i = 0; i < ControlCurveBank::kCurveCount; ++i)
                EXPECT_EQ(got[i], want[i]) << "curve " << i << " c " << control << " T " << threshold;
        }
    }
    // At the threshold and below it every curve is 0.
    for (float control : {0.1f, 0.3f}) {
        const Curves off = computed(control, 0.3f);
        for (int i = 0; i < ControlCurveBank::kCurveCount; ++i)
            EXPECT_EQ(off[i], 0.0f) << i;
    }
}

TEST(ControlCurveBankTest, HostileInputsStayInRange) {
    const float cases[][2] = {{1.0f, 1.0f},  {2.0f, 1.0f}, {5.0f, 0.0f},
                              {-3.0f, 0.0f}, {0.5f, 3.0f}, {std::nanf(""), 0.0f}};
    for (const auto& c : cases) {
        const Curves got = computed(c[0], c[1]);
        for (int i = 0; i < ControlCurveBank::kCurveCount; ++i) {
            EXPECT_GE(got[i], 0.0f) << i;
            EXPECT_LE(got[i], 1.0f) << i;
        }
    }
}

TEST(ControlCurveBankTest, MenuWords) {
    const std::vector<std::string> words = {
        "Linear /",       "Sloped )",       "Breaked _/TT",   "Breaked __/T",   "Breaked ___/",
        "Quantized 8",    "Quantized 4",    "Quantized 3",    "Quantized 2",    "Triangle /\\\\",
        "Quick /TTT",     "Quick vVTT",     "Quick -vVT",     "quicklate -vvV", "quicklate -vvV",
        "quicklate -vvV", "quicklate -vvV", "quicklate -vvV", "quicklate -vvV", "quicklate -vvV"};
    ASSERT_EQ(static_cast<int>(words.size()), ControlCurveBank::kCurveCount);
    for (int i = 0; i < ControlCurveBank::kCurveCount; ++i)
        EXPECT_EQ(words[i], ControlCurveBank::curveName(i)) << i;
    EXPECT_STREQ(ControlCurveBank::curveName(20), "");
    EXPECT_STREQ(ControlCurveBank::curveName(-1), "");
}
