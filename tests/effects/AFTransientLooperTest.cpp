#include "effects/loop/AFTransientLooper.h"

#include "EffectTimingFixture.h"
#include "PitchMeasure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

struct AFTransientLooperFixture : EffectTimingFixture<AFTransientLooper, 3> {
    // As a slot: a tick every 64 samples, pieces of 1 to 64 samples, the host position kept up. Calls
    // `each(n)` after sample n when `single` asks for one sample per call.
    template <class Each>
    void drive(AFTransientLooper& fx, std::vector<float>& left, std::vector<float>& right, double startBeat,
               bool single, Each each) {
        const auto total = static_cast<int>(left.size());
        for (int start = 0; start < total; start += 64) {
            fx.controlTick();
            const int end = std::min(start + 64, total);
            for (int n = start; n < end;) {
                const int piece = single ? 1 : std::min(end - n, 1 + (n * 7) % 37);
                system.ppqPosition =
                    static_cast<float>(startBeat + n / static_cast<double>(system.samplesPerBeat));
                fx.process(left.data() + n, right.data() + n, piece);
                n += piece;
                if (single) each(n - 1);
            }
        }
    }

    static float largestStep(const std::vector<float>& v, std::size_t from, std::size_t to) {
        float worst = 0.0f;
        for (std::size_t n = std::max<std::size_t>(from, 1); n < std::min(to, v.size()); ++n)
            worst = std::max(worst, std::fabs(v[n] - v[n - 1]));
        return worst;
    }
};

TEST_F(AFTransientLooperFixture, LoopsStartOnTheGridAndLastTheirLengthToTheSample) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (double bpm : {45.0, 133.0, 333.3}) {
            setTiming(rate, bpm);
            for (int mode = 0; mode < 3; ++mode) {
                const float value = mode == 0 ? 0.6f : (mode == 1 ? 0.55f : 0.4f);
                auto fx = make({0.5f, value, 0.5f, 0.5f}, {1, mode, 2, 0});
                const double perBeat = system.samplesPerBeat;
                double length = (perBeat - 88.0) * value + 88.0;
                if (mode == 0) length = perBeat * kSyncBeats[4];
                if (mode == 1) length = perBeat * 4.0 * 0.04166666666;
                const double startBeat = 0.37;
                const int total = static_cast<int>(length * 4.5) + static_cast<int>(perBeat);
                std::vector<float> left(static_cast<std::size_t>(total), 0.1f), right = left;
                std::vector<int64_t> starts;
                uint32_t seen = 0;
                drive(*fx, left, right, startBeat, true, [&](int n) {
                    if (fx->getLoopCount() != seen) {
                        seen = fx->getLoopCount();
                        starts.push_back(n + 1);
                    }
                });
                ASSERT_NEAR(fx->getLoopLength(), length, 1e-6 * length) << rate << " " << bpm << " " << mode;
                const int64_t first = fx->getLoopStartSample();
                ASSERT_EQ(fx->getHitSample(), 0);
                if (mode == 2) {
                    EXPECT_EQ(first, 0);
                } else {
                    // On a line of the loop's own grid, a beat apart at most.
                    const double grid = std::min(length / perBeat, 1.0);
                    const double lines = (startBeat + first / perBeat) / grid;
                    EXPECT_NEAR(lines, std::round(lines), 0.5 / (grid * perBeat))
                        << rate << " " << bpm << mode;
                    EXPECT_LT(first, grid * perBeat + 1.0);
                }
                ASSERT_GE(starts.size(), 3u);
                for (std::size_t k = 0; k < starts.size(); ++k)
                    ASSERT_EQ(starts[k], first + static_cast<int64_t>(std::ceil((k + 1.0) * length - 1e-9)))
                        << rate << " " << bpm << " " << mode << " " << k;
            }
        }
    }
}

TEST_F(AFTransientLooperFixture, ListensUntilAHitAndPassesTheInputThroughTillThen) {
    auto fx = make({0.5f, 0.3f, 0.5f, 0.5f}, {0, 2, 2, 0});
    std::vector<float> left(12000, 0.0f), right(12000, 0.0f);
    for (std::size_t n = 0; n < left.size(); ++n)
        left[n] = right[n] = 0.02f * std::sin(0.05f * static_cast<float>(n)); // -34 dB: below the threshold
    left[3000] = 0.028f;                                                      // louder, still below -30 dB
    left[7001] = 0.5f;
    const auto input = left;
    drive(*fx, left, right, 0.0, false, [](int) {});
    EXPECT_EQ(fx->getHitSample(), 7001);
    for (std::size_t n = 0; n < 7001; ++n)
        ASSERT_EQ(left[n], input[n]) << n;
}

TEST_F(AFTransientLooperFixture, NoClicksAtEngagingLoopEndsOrTheBurstsEnd) {
    const int total = 96000;
    std::vector<float> source(total);
    for (int n = 0; n < total; ++n)
        source[static_cast<std::size_t>(n)] = 0.45f * std::sin(0.0577f * static_cast<float>(n)) +
                                              0.3f * std::sin(0.0121f * static_cast<float>(n));
    const float inputStep = largestStep(source, 0, source.size());
    for (int playback = 0; playback < 3; ++playback) {
        for (float speed : {0.5f, 0.8f, 0.2f}) {
            for (float pitch : {0.5f, 0.8f}) {
                auto fx = make({0.5f, 0.55f, speed, pitch}, {1, 0, playback, 0});
                std::vector<float> left = source, right = source;
                drive(*fx, left, right, 0.1, false, [](int) {});
                // A transposed copy of the input is steeper by its ratio, tape speed and pitch alike.
                float ratio = pitch > 0.5f ? std::exp2(7.0f / 12.0f) : 1.0f;
                if (playback == 2) ratio *= std::exp2((speed - 0.5f) * 2.0f);
                const float bound = 2.0f * inputStep * std::max(ratio, 1.0f);
                EXPECT_LE(largestStep(left, 0, left.size()), bound)
                    << playback << " " << speed << " " << pitch;
                EXPECT_LE(largestStep(right, 0, right.size()), bound)
                    << playback << " " << speed << " " << pitch;
            }
        }
    }
}

// Frequency of a steady tone from its rising zero crossings, each placed between samples by interpolation:
// the freeze's grains start at random phases, which bends a spectral peak but not the mean period.
double toneFrequency(const std::vector<float>& signal, std::size_t from, std::size_t to, double rate) {
    double first = -1.0, last = -1.0;
    int periods = -1;
    for (std::size_t n = from + 1; n < to; ++n) {
        if (signal[n - 1] < 0.0f && signal[n] >= 0.0f) {
            const double at = static_cast<double>(n - 1) + signal[n - 1] / (signal[n - 1] - signal[n]);
            if (first < 0.0) first = at;
            last = at;
            ++periods;
        }
    }
    return periods * rate / (last - first);
}

TEST_F(AFTransientLooperFixture, GrainsTapeSpeedAndPitchLandWithinACentOfTheInterval) {
    // A held 440 Hz sine: the freeze's grains read a fifth up, the loop's tape at half speed an octave down,
    // the loop through the pitch path a fifth up and an octave down.
    struct Case {
        int playback;
        float speed, pitch;
        double ratio;
    };
    const double fifth = std::exp2(7.0 / 12.0);
    for (const Case& c : {Case{0, 0.5f, 0.8f, fifth}, Case{2, 0.0f, 0.5f, 0.5}, Case{2, 0.5f, 0.8f, fifth},
                          Case{2, 0.5f, 0.0f, 0.5}}) {
        auto fx = make({0.5f, 0.0f, c.speed, c.pitch}, {1, 0, c.playback, 0});
        std::vector<float> left(120000), right(120000);
        for (std::size_t n = 0; n < left.size(); ++n)
            left[n] = right[n] = 0.5f * std::sin(6.283185307179586 * 440.0 * n / 48000.0);
        drive(*fx, left, right, 0.0, false, [](int) {});
        const double f = c.playback == 0 ? toneFrequency(left, 58000, 90000, 48000.0)
                                         : pitchmeasure::measure(left, 58000, 48000.0).hz;
        EXPECT_NEAR(pitchmeasure::cents(f, 440.0 * c.ratio), 0.0, 1.0) << c.playback << " " << f;
    }
}

TEST_F(AFTransientLooperFixture, DisplaysFollowTheOptions) {
    auto fx = make({0.5f, 0.5f, 0.5f, 0.5f}, {0, 0, 0, 0});
    char text[kEffectTextSize];
    fx->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "-30.0 dB");
    fx->formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "1\\16");
    fx->formatParameter(2, 0.75f, text);
    EXPECT_STREQ(text, "+50 %");
    fx->formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "+12 st");
    fx->formatParameter(3, 0.5f, text);
    EXPECT_STREQ(text, "+0 st");
    fx->setOption(1, 1);
    fx->formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "1\\2");
    fx->setOption(1, 2);
    fx->formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "500 ms");
    fx->setOption(2, 1);
    fx->formatParameter(2, 1.0f, text);
    EXPECT_STREQ(text, "500 ms");
    fx->formatParameter(2, 0.0f, text);
    EXPECT_STREQ(text, "16.00 s");
    fx->setOption(2, 2);
    fx->formatParameter(2, 1.0f, text);
    EXPECT_STREQ(text, "2.00x");
}

} // namespace
