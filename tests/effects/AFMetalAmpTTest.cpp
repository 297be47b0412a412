#include "DelaySlotDriver.h"

#include "effects/delay/AFMetalAmpT.h"
#include "effects/framework/AFSystemInfo.h"
#include "tools/RealFft.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace {

constexpr float kRate = 48000.0f;
constexpr double kPi = 3.141592653589793;

struct AmpRun {
    AFSystemInfo system{64.0f, nullptr};
    AFMetalAmpT amp{23, &system, 0};
    DelaySlotDriver driver{amp};

    AmpRun(std::array<float, 4> values, int stereo, int limiter) {
        system.setSampleRate(kRate);
        system.setControlInterval(64);
        amp.setOption(0, stereo);
        amp.setOption(1, limiter);
        driver.values = values;
        for (int i = 0; i < 4; ++i)
            amp.setParameter(i, values[static_cast<std::size_t>(i)]);
        amp.activate();
    }

    // A sine on both inputs; the output of the left channel after a second to settle.
    std::vector<float> sine(double hz, float level, int count) {
        const int total = static_cast<int>(kRate) + count;
        std::vector<float> left(static_cast<std::size_t>(total)), right;
        for (int n = 0; n < total; ++n)
            left[static_cast<std::size_t>(n)] =
                level * static_cast<float>(std::sin(2.0 * kPi * hz * n / kRate));
        right = left;
        driver.run(left, right);
        return {left.end() - count, left.end()};
    }
};

double rms(const std::vector<float>& v) {
    double sum = 0.0;
    for (float x : v)
        sum += static_cast<double>(x) * x;
    return std::sqrt(sum / static_cast<double>(v.size()));
}

} // namespace

// At full drive a 3,100 Hz sine comes out as its harmonics: whatever lies away from them, folded back from
// above the oversampled band, stays 60 dB under the output, in either mode.
TEST(AFMetalAmpT, FullDriveLeavesNoAliasAboveMinus60dB) {
    constexpr int kSize = 16384;
    for (int stereo : {0, 1}) {
        AmpRun run({1.0f, 0.5f, 0.5f, 0.5f}, stereo, 0);
        std::vector<float> out = run.sine(3100.0, 0.5f, kSize);
        // Blackman-Harris: side lobes under -92 dB, main lobe four bins either side.
        for (int n = 0; n < kSize; ++n) {
            const double x = 2.0 * kPi * n / kSize;
            out[static_cast<std::size_t>(n)] *= static_cast<float>(
                0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x));
        }
        RealFft fft(kSize);
        std::vector<float> magnitude(static_cast<std::size_t>(fft.bins()));
        fft.magnitudes(out.data(), magnitude.data());
        double total = 0.0;
        double away = 0.0;
        const double binHz = kRate / kSize;
        for (int k = 1; k < fft.bins(); ++k) {
            const double power = static_cast<double>(magnitude[static_cast<std::size_t>(k)]) *
                                 magnitude[static_cast<std::size_t>(k)];
            total += power;
            const double harmonic = k * binHz / 3100.0;
            if (std::fabs(harmonic - std::round(harmonic)) * 3100.0 > 5.0 * binHz && k > 5) away += power;
        }
        EXPECT_LT(10.0 * std::log10(away / total), -60.0) << "stereo " << stereo;
    }
}

// Each tone knob moves its own region at least 12 dB up and down from the flat setting.
TEST(AFMetalAmpT, ToneBandsReachTwelveDecibelsEitherWay) {
    const struct {
        int knob;
        double hz;
    } bands[] = {{1, 80.0}, {2, 750.0}, {3, 5000.0}};
    for (const auto& band : bands) {
        double level[3];
        for (int setting = 0; setting < 3; ++setting) {
            std::array<float, 4> values{0.0f, 0.5f, 0.5f, 0.5f};
            values[static_cast<std::size_t>(band.knob)] = 0.5f * static_cast<float>(setting);
            AmpRun run(values, 0, 0);
            level[setting] = 20.0 * std::log10(rms(run.sine(band.hz, 0.01f, 9600)));
        }
        EXPECT_LT(level[0] - level[1], -12.0) << band.hz << " Hz cut";
        EXPECT_GT(level[2] - level[1], 12.0) << band.hz << " Hz boost";
    }
}

// Hits of decaying dark noise peaking at -6 dBFS, four a second, as a drum loop gives them: at any drive the
// output stays within 4 dB of the input's RMS level and well under full scale.
TEST(AFMetalAmpT, DriveKeepsTheLevelAndHeadroom) {
    const int total = 2 * static_cast<int>(kRate);
    std::vector<float> hits(static_cast<std::size_t>(total));
    uint32_t seed = 7;
    float dark = 0.0f;
    float peak = 0.0f;
    for (int n = 0; n < total; ++n) {
        seed = seed * 1664525u + 1013904223u;
        dark += 0.1f * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f - dark);
        hits[static_cast<std::size_t>(n)] = dark * std::exp(-static_cast<float>(n % 12000) / 2000.0f);
        peak = std::max(peak, std::fabs(hits[static_cast<std::size_t>(n)]));
    }
    for (float& x : hits)
        x *= 0.5f / peak;
    const std::vector<float> second(hits.begin() + total / 2, hits.end());
    for (float drive : {0.0f, 0.5f, 1.0f}) {
        AmpRun run({drive, 0.5f, 0.5f, 0.5f}, 1, 0);
        std::vector<float> left = hits, right = hits;
        run.driver.run(left, right);
        const std::vector<float> out(left.begin() + total / 2, left.end());
        peak = 0.0f;
        for (float x : out)
            peak = std::max(peak, std::fabs(x));
        EXPECT_NEAR(20.0 * std::log10(rms(out) / rms(second)), 0.0, 4.0) << "drive " << drive;
        EXPECT_LT(peak, 0.8f) << "drive " << drive;
    }
}

// Clean, with every tone band turned up and a full-scale input, "Normal" goes over full scale and the
// limiting modes keep every sample under it, still loud.
TEST(AFMetalAmpT, LimitersHoldTheOutputUnderFullScale) {
    for (int mode = 0; mode <= 3; ++mode) {
        AmpRun run({0.0f, 1.0f, 1.0f, 1.0f}, 1, mode);
        for (double hz : {82.0, 440.0, 3100.0}) {
            const std::vector<float> out = run.sine(hz, 1.0f, 24000);
            float peak = 0.0f;
            for (float x : out)
                peak = std::max(peak, std::fabs(x));
            if (mode == 0) {
                EXPECT_GT(peak, 1.0f) << hz << " Hz";
                continue;
            }
            EXPECT_LT(peak, 1.0f) << "mode " << mode << " at " << hz << " Hz";
            EXPECT_GT(peak, 0.5f) << "mode " << mode << " at " << hz << " Hz";
        }
    }
}

TEST(AFMetalAmpT, DisplaysDriveAndToneInDecibels) {
    AFSystemInfo system(64.0f, nullptr);
    AFMetalAmpT amp(23, &system, 0);
    char text[kEffectTextSize];
    amp.formatParameter(0, 1.0f, text);
    EXPECT_STREQ(text, "45.0 dB");
    amp.formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "+0.0 dB");
    amp.formatParameter(2, 0.0f, text);
    EXPECT_STREQ(text, "-15.0 dB");
    amp.formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "+15.0 dB");
}
