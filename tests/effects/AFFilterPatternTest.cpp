#include "effects/filter/AFFilterPattern.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFDirectFilter.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

struct AFFilterPatternFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override { system.setControlInterval(64); }

    void setTiming(float rate, double bpm) {
        system.setSampleRate(rate);
        system.setTempo(bpm);
        listeners.notifyAll();
    }

    std::unique_ptr<AFFilterPattern> make(std::array<int32_t, 4> options) {
        auto fx = std::make_unique<AFFilterPattern>(25, &system, 0);
        for (int i = 0; i < 4; ++i)
            fx->setOption(i, options[static_cast<std::size_t>(i)]);
        fx->setParameter(1, 0.7f);
        fx->setParameter(3, 0.3f);
        fx->activate();
        return fx;
    }

    // One sample per call, the host position advancing with it and a tick every 64 samples; returns the first
    // sample of each step after the first.
    std::vector<int64_t> stepStarts(AFFilterPattern& fx, double startBeat, int samples) {
        std::vector<int64_t> starts;
        int64_t seen = fx.getStepIndex();
        float l = 0.1f, r = -0.1f;
        for (int n = 0; n < samples; ++n) {
            system.ppqPosition =
                static_cast<float>(startBeat + n / static_cast<double>(system.samplesPerBeat));
            if (n % 64 == 0) fx.controlTick();
            fx.process(&l, &r, 1);
            if (fx.getStepIndex() != seen) {
                seen = fx.getStepIndex();
                starts.push_back(n + 1);
            }
        }
        return starts;
    }
};

TEST_F(AFFilterPatternFixture, StepsStartToTheSampleFreeAndOnTheHostGrid) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (double bpm : {45.0, 133.0, 333.3}) {
            setTiming(rate, bpm);
            for (int stretch : {0, 2}) {
                const double length = static_cast<double>(system.samplesPerBeat) * 0.25 * (stretch + 1);
                const int samples = static_cast<int>(length * 5.5);

                system.ppqPosition = 0.0f;
                auto fx = make({0, stretch, 1, 0});
                ASSERT_EQ(fx->getStepLength(), length);
                auto starts = stepStarts(*fx, 0.0, samples);
                ASSERT_EQ(starts.size(), 5u);
                for (std::size_t k = 0; k < starts.size(); ++k)
                    ASSERT_EQ(starts[k], static_cast<int64_t>(static_cast<double>(k + 1) * length))
                        << rate << " " << bpm << " " << stretch << " " << k;

                // Locked to the host: the first step starts where the position crosses the grid.
                const double startBeat = 0.1003;
                system.ppqPosition = static_cast<float>(startBeat);
                fx = make({0, stretch, 2, 0});
                const double stepBeats = 0.25 * (stretch + 1);
                starts = stepStarts(*fx, startBeat, samples);
                ASSERT_EQ(starts.size(), 5u);
                for (std::size_t k = 0; k < starts.size(); ++k) {
                    const double beat = (static_cast<double>(k) + 1.0) * stepBeats;
                    const auto want =
                        static_cast<int64_t>(std::ceil((beat - startBeat) * system.samplesPerBeat));
                    ASSERT_EQ(starts[k], want) << rate << " " << bpm << " " << stretch << " " << k;
                }
            }
        }
    }
}

TEST_F(AFFilterPatternFixture, TempoChangeKeepsTheStepInProgressAndEveryModeStaysFinite) {
    setTiming(48000.0f, 120.0);
    auto fx = make({4, 0, 1, 0});
    auto starts = stepStarts(*fx, 0.0, 9000);
    ASSERT_EQ(starts, std::vector<int64_t>{6000});
    setTiming(48000.0f, 240.0);
    // 3000 samples into the second step, which now lasts 1500: the third starts at once.
    EXPECT_EQ(fx->getStepIndex(), 2);
    starts = stepStarts(*fx, 0.0, 4000);
    ASSERT_EQ(starts, (std::vector<int64_t>{3000}));

    std::vector<float> left(4096), right(4096);
    for (int pattern = 0; pattern < 11; ++pattern) {
        for (int run = 0; run < 4; ++run) {
            for (int shape = 0; shape < 3; ++shape) {
                fx = make({pattern, 1, run, shape});
                fx->setParameter(3, 1.0f);
                for (std::size_t n = 0; n < left.size(); ++n) {
                    left[n] = std::sin(0.3f * static_cast<float>(n)) * 0.8f;
                    right[n] = -left[n];
                }
                for (std::size_t at = 0; at < left.size(); at += 64) {
                    system.ppqPosition = static_cast<float>(at) / system.samplesPerBeat;
                    fx->controlTick();
                    fx->process(left.data() + at, right.data() + at, 64);
                }
                for (std::size_t n = 0; n < left.size(); ++n)
                    ASSERT_TRUE(std::fabs(left[n]) < 8.0f && std::fabs(right[n]) < 8.0f) << pattern << run;
            }
        }
    }
}

TEST_F(AFFilterPatternFixture, Displays) {
    setTiming(48000.0f, 120.0);
    auto fx = make({0, 0, 0, 0});
    char text[kEffectTextSize];
    fx->formatParameter(0, 0.25f, text);
    EXPECT_STREQ(text, "25.00");
    fx->formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    fx->formatParameter(2, 0.0f, text);
    EXPECT_STREQ(text, "2 bars");
    fx->formatParameter(2, 0.5f, text);
    EXPECT_STREQ(text, "1\\8");
    fx->formatParameter(2, 1.0f, text);
    EXPECT_STREQ(text, "1\\128");
    fx->formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "100.00");
}

} // namespace

// The mirrored "Smart" run takes each side's low-pass and high-pass in one pass: the same samples, bit for
// bit, as the two passes one after the other, through glides that end inside a call.
TEST_F(AFFilterPatternFixture, PairBandMatchesTheTwoPassesItJoins) {
    setTiming(48000.0f, 120.0);
    AFDirectFilter joinedLeft(&system), joinedRight(&system), left(&system), right(&system);
    for (AFDirectFilter* f : {&joinedLeft, &left}) {
        f->reset(AFDirectFilter::Lowpass, 0.3f, 0.7f);
        f->reset(AFDirectFilter::Highpass, 0.0f, 0.0f);
    }
    for (AFDirectFilter* f : {&joinedRight, &right}) {
        f->reset(AFDirectFilter::Lowpass, 1.0f, 0.0f);
        f->reset(AFDirectFilter::Highpass, 0.6f, 0.7f);
    }
    uint32_t seed = 3;
    for (int block = 0; block < 12; ++block) {
        const float c = 0.1f * static_cast<float>(block % 7);
        for (AFDirectFilter* f : {&joinedLeft, &left}) {
            f->set(AFDirectFilter::Lowpass, c, 0.7f);
            f->set(AFDirectFilter::Highpass, 0.5f * c, 0.3f);
        }
        for (AFDirectFilter* f : {&joinedRight, &right}) {
            f->set(AFDirectFilter::Lowpass, 1.0f - c, 0.2f);
            f->set(AFDirectFilter::Highpass, c, 0.7f);
        }
        std::vector<float> l(96), r(96);
        for (std::size_t i = 0; i < l.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            l[i] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
            r[i] = -0.5f * l[i];
        }
        std::vector<float> jl = l, jr = r;
        for (int at : {0, 40}) {
            const int n = at == 0 ? 40 : 56;
            AFDirectFilter::processPairBand(joinedLeft, jl.data() + at, joinedRight, jr.data() + at, n);
            AFDirectFilter::processPair(AFDirectFilter::Lowpass, left, l.data() + at, right, r.data() + at,
                                        n);
            AFDirectFilter::processPair(AFDirectFilter::Highpass, left, l.data() + at, right, r.data() + at,
                                        n);
        }
        ASSERT_EQ(jl, l) << "block " << block;
        ASSERT_EQ(jr, r) << "block " << block;
    }
}

// The two-step path is the same filter rounded differently: every core mode, low and high cutoffs, resonant,
// through glides and standing blocks of odd length, stays within rounding of the one-step path.
TEST_F(AFFilterPatternFixture, TwoStepPathFollowsTheOneStepPath) {
    setTiming(48000.0f, 120.0);
    for (const int mode : {AFDirectFilter::Lowpass, AFDirectFilter::Bandpass, AFDirectFilter::Highpass}) {
        for (const float cutoff : {0.05f, 0.5f, 0.95f}) {
            AFDirectFilter one(&system), two(&system);
            one.reset(mode, cutoff, 0.8f);
            two.reset(mode, cutoff, 0.8f);
            uint32_t seed = 5;
            double worst = 0.0;
            for (int block = 0; block < 40; ++block) {
                const float c = block % 10 == 0 ? cutoff * 0.9f : cutoff;
                one.set(mode, c, 0.8f);
                two.set(mode, c, 0.8f);
                std::vector<float> l(63), r(63);
                for (std::size_t i = 0; i < l.size(); ++i) {
                    seed = seed * 1664525u + 1013904223u;
                    l[i] = static_cast<float>(seed >> 9) / 8388608.0f - 1.0f;
                    r[i] = 0.5f * l[i] * l[i];
                }
                std::vector<float> tl = l, tr = r;
                one.processStereo(mode, l.data(), r.data(), 63);
                two.processStereoTwoStep(mode, tl.data(), tr.data(), 63);
                for (std::size_t i = 0; i < l.size(); ++i)
                    worst = std::max({worst, std::fabs(static_cast<double>(l[i] - tl[i])),
                                      std::fabs(static_cast<double>(r[i] - tr[i]))});
            }
            EXPECT_LT(worst, 1e-4) << "mode " << mode << " cutoff " << cutoff;
        }
    }
}
