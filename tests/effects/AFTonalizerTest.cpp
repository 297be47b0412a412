#include "effects/filter/AFTonalizer.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

constexpr int kTick = 64;
using Params = std::array<float, 4>;
using Options = std::array<int32_t, 4>;

struct TonalizerFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    TonalizerFixture() {
        system.setControlInterval(kTick);
        system.setSampleRate(48000.0f);
        system.setTempo(120.0);
    }

    std::unique_ptr<AFTonalizer> make(const Params& params, const Options& options = {}) {
        auto fx = std::make_unique<AFTonalizer>(7, &system, 0);
        for (int i = 0; i < 4; ++i)
            fx->setOption(i, options[static_cast<std::size_t>(i)]);
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, params[static_cast<std::size_t>(i)]);
        fx->activate();
        return fx;
    }

    // As a slot drives it: parameters and controlTick at each tick, then uneven pieces within the tick.
    static void run(AFTonalizer& fx, const Params& params, float* l, float* r, std::size_t count) {
        static constexpr int kPieces[] = {5, 30, 1, 28};
        std::size_t pos = 0;
        while (pos < count) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, params[static_cast<std::size_t>(i)]);
            fx.controlTick();
            for (int piece : kPieces) {
                const auto n = std::min<std::size_t>(static_cast<std::size_t>(piece), count - pos);
                fx.process(l + pos, r + pos, static_cast<int>(n));
                pos += n;
            }
        }
    }

    // Comb period in samples for a note number of the frequency table.
    double period(float note) const {
        const int row = static_cast<int>(note);
        const auto& e = system.noteLadder[static_cast<std::size_t>(row)];
        return system.sampleRate / (e.value + (note - static_cast<float>(row)) * e.delta);
    }
};

// Centroid of the impulse response around an expected position: with positive feedback every echo is
// positive, and linear interpolation keeps the k-th echo's centroid at exactly k periods.
double centroid(const std::vector<float>& y, double around) {
    double sum = 0.0, moment = 0.0;
    const auto lo = static_cast<std::size_t>(around - 12.0);
    for (std::size_t n = lo; n < lo + 25 && n < y.size(); ++n) {
        sum += y[n];
        moment += y[n] * static_cast<double>(n);
    }
    return moment / sum;
}

// Semitones within the octave that each scale word allows, nearest one wins.
const std::vector<std::vector<int>> kGridSteps = {{},     {0, 2, 4, 6, 8, 10}, {0, 4, 7}, {0, 5, 10},
                                                  {0, 7}, {0, 4, 7, 10},       {0}};

float expectedNote(float v, int scale, int root) {
    const float x = v * 60.0f;
    if (scale == 0) return x + static_cast<float>(root + 24);
    float best = 1e9f;
    for (int octave = 0; octave <= 5; ++octave)
        for (int step : kGridSteps[static_cast<std::size_t>(scale)]) {
            const auto candidate = static_cast<float>(octave * 12 + step);
            if (std::fabs(candidate - x) < std::fabs(best - x)) best = candidate;
        }
    if (std::fabs(60.0f - x) < std::fabs(best - x)) best = 60.0f;
    return best + static_cast<float>(root + 24);
}

} // namespace

TEST_F(TonalizerFixture, CombPeriodFollowsTheNoteOfEachSide) {
    struct Case {
        float left, right;
    };
    for (const Case c : {Case{0.0f, 0.31f}, Case{0.55f, 1.0f}, Case{0.83f, 0.17f}}) {
        const Params params{c.left, c.right, 0.3f, 0.0f};
        auto fx = make(params);
        const double dL = period(c.left * 60.0f + 24.0f);
        const double dR = period(c.right * 60.0f + 24.0f);
        const auto count = static_cast<std::size_t>(4.0 * std::max(dL, dR) + 64.0);
        std::vector<float> l(count, 0.0f), r(count, 0.0f);
        l[0] = 1.0f;
        r[0] = 1.0f;
        run(*fx, params, l.data(), r.data(), count);
        const double fb = (0.3 + 1.0) * 0.5;
        // Each pass through the loop's DC blocker adds a small negative tail behind the echo, which leans its
        // centroid early by under a twentieth of a sample; the first echo has not passed it.
        for (int k = 1; k <= 3; ++k) {
            const double tolerance = 2e-3 * k + 0.05 * (k - 1);
            EXPECT_NEAR(centroid(l, k * dL), k * dL, tolerance) << c.left << " echo " << k;
            EXPECT_NEAR(centroid(r, k * dR), k * dR, tolerance) << c.right << " echo " << k;
        }
        // First echo: the impulse itself scaled by the output gain 1.5 - feedback.
        double energy = 0.0;
        for (std::size_t n = 0; n < static_cast<std::size_t>(dL + 2.0); ++n)
            energy += l[n];
        EXPECT_NEAR(energy, 1.5 - fb, 1e-5);
    }
}

TEST_F(TonalizerFixture, EveryScaleWordSnapsToItsGridAndRootnoteTransposes) {
    const float values[] = {0.51f, 0.52f, 0.58f, 0.63f, 0.71f, 0.77f, 0.86f, 0.93f, 1.0f};
    for (int scale = 0; scale < 7; ++scale) {
        for (int root : {0, 7}) {
            for (float v : values) {
                const float rootKnob = static_cast<float>(root) / 11.0f;
                const Params params{v, v, 0.0f, rootKnob};
                auto fx = make(params, {scale, scale, 0, root == 0 ? 0 : 2});
                const double d = period(expectedNote(v, scale, root));
                const auto count = static_cast<std::size_t>(d + 40.0);
                std::vector<float> l(count, 0.0f), r(count, 0.0f);
                l[0] = 1.0f;
                run(*fx, params, l.data(), r.data(), count);
                EXPECT_NEAR(centroid(l, d), d, 2e-3) << "scale " << scale << " root " << root << " v " << v;
            }
        }
    }
}

TEST_F(TonalizerFixture, ScaledNotesGlideATenthOfTheWayPerTickChromaticJumps) {
    const Params high{1.0f, 1.0f, 0.0f, 0.0f};
    const Params low{0.9f, 0.9f, 0.0f, 0.0f};
    const double from = period(84.0f);
    const double to = period(78.0f);
    for (int scale : {0, 1}) {
        auto fx = make(high, {scale, scale, 0, 0});
        std::vector<float> l(64), r(64);
        run(*fx, high, l.data(), r.data(), 64);

        // An impulse right at the note change; its echo returns where n - delay(n) = 0 (the moving read
        // stretches the echo a little, hence the tolerance). The delay moves by
        // ticks: each tick's target is a tenth of the way (all of it for "Chromatic"), reached linearly.
        const double glide = scale == 0 ? 1.0 : 0.1;
        std::vector<double> delay;
        double d = from;
        while (delay.size() < 1024) {
            const double step = (d + (to - d) * glide - d) / kTick;
            for (int j = 0; j < kTick; ++j)
                delay.push_back(d += step);
        }
        double arrival = 0.0;
        for (std::size_t n = 1; n < delay.size(); ++n) {
            const double a = static_cast<double>(n - 1) - delay[n - 1];
            const double b = static_cast<double>(n) - delay[n];
            if (a < 0.0 && b >= 0.0) {
                arrival = static_cast<double>(n - 1) - a / (b - a);
                break;
            }
        }
        std::vector<float> cl(1024, 0.0f), cr(1024, 0.0f);
        cl[0] = 1.0f;
        run(*fx, low, cl.data(), cr.data(), cl.size());
        EXPECT_NEAR(centroid(cl, arrival), arrival, 0.25) << "scale " << scale;
        EXPECT_GT(std::fabs(arrival - (scale == 0 ? from : to)), 20.0);
    }
}

TEST_F(TonalizerFixture, DisplaysNamesAndOptionWords) {
    AFTonalizer fx(7, &system, 0);
    EXPECT_STREQ(fx.getName(), "Tonalize");
    char text[kEffectTextSize];
    const char* names[] = {"Note Left", "Note Right", "Feedback", "Hold"};
    const float defaults[] = {0.0f, 0.0f, 0.85f, 0.25f};
    for (int i = 0; i < 4; ++i) {
        fx.getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fx.getParameterValue(i), defaults[i]);
    }
    fx.formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "C0");
    fx.formatParameter(1, 1.0f, text);
    EXPECT_STREQ(text, "C5");
    fx.formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "F#2");
    fx.setOption(0, 4); // "5th": 30 semitones up snaps to 31
    fx.formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "G2");
    fx.formatParameter(1, 0.5f, text);
    EXPECT_STREQ(text, "F#2");
    fx.formatParameter(2, 0.85f, text);
    EXPECT_STREQ(text, "85.00");
    fx.formatParameter(3, 0.25f, text);
    EXPECT_STREQ(text, "25.00");

    fx.setOption(3, 2);
    fx.getParameterName(3, text);
    EXPECT_STREQ(text, "Rootnote");
    const char* roots[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    for (int k = 0; k < 12; ++k) {
        fx.formatParameter(3, static_cast<float>(k) / 11.0f, text);
        EXPECT_STREQ(text, roots[k]);
    }
    fx.setParameter(3, 1.0f);
    fx.formatParameter(1, 0.0f, text);
    EXPECT_STREQ(text, "B0");
    fx.setOption(3, 1);
    fx.getParameterName(3, text);
    EXPECT_STREQ(text, "Hold");

    const std::vector<AFWordList> lists = {{"Chromatic", "Whole", "3rd", "4rd", "5th", "7th", "Octave"},
                                           {"Chromatic", "Whole", "3rd", "4rd", "5th", "7th", "Octave"},
                                           {"Normal", "Inverse"},
                                           {"Flat", "Sweep", "Rootnote"}};
    for (int i = 0; i < 5; ++i) {
        AFWordList words;
        fx.getOptionList(i, words);
        EXPECT_EQ(words, i < 4 ? lists[static_cast<std::size_t>(i)] : AFWordList{}) << i;
    }
}

TEST_F(TonalizerFixture, HoldClosesTheCombAfterSixtyFourScaledSamples) {
    for (float rate : {44100.0f, 88200.0f}) {
        system.setSampleRate(rate);
        const int close = static_cast<int>(64.0f * rate / 44100.0f); // samples until the gate is fully shut
        for (int mode : {0, 2}) {
            for (int offset : {close - 1, close - 2}) {
                const Params open{0.9f, 0.8f, 0.5f, 0.0f};
                const Params hold{0.9f, 0.8f, 0.5f, 0.75f};
                auto a = make(open, {0, 0, 0, mode});
                auto b = make(open, {0, 0, 0, mode});
                std::vector<float> la(4096), ra(4096);
                for (std::size_t n = 0; n < la.size(); ++n)
                    la[n] = ra[n] = std::sin(0.03f * static_cast<float>(n));
                auto lb = la, rb = ra;
                run(*a, open, la.data(), ra.data(), 1024);
                run(*b, open, lb.data(), rb.data(), 1024);
                // From here Hold is up; b hears other input from `offset` samples after the tick on.
                for (std::size_t n = 1024 + static_cast<std::size_t>(offset); n < lb.size(); ++n)
                    lb[n] = rb[n] = 0.7f;
                run(*a, hold, la.data() + 1024, ra.data() + 1024, 3072);
                run(*b, hold, lb.data() + 1024, rb.data() + 1024, 3072);
                // At gate 1 the line takes (r - y) + y: r up to rounding, so compare against the leak size.
                float diff = 0.0f;
                for (std::size_t n = 0; n < la.size(); ++n)
                    diff = std::max({diff, std::fabs(la[n] - lb[n]), std::fabs(ra[n] - rb[n])});
                const bool same = diff < 1e-4f;
                // "Rootnote" has no hold; otherwise only input before the gate shut reaches the line.
                EXPECT_EQ(same, mode == 0 && offset == close - 1)
                    << rate << " mode " << mode << " @" << offset;
            }
        }
    }
}

TEST_F(TonalizerFixture, SweepPulsesTheFrozenSoundOncePerBeat) {
    const Params fill{1.0f, 1.0f, 0.0f, 0.0f};
    const Params hold{1.0f, 1.0f, 0.0f, 1.0f};
    auto fx = make(fill, {0, 0, 0, 1});
    std::vector<float> l(24000, 0.4f), r(24000, 0.4f);
    run(*fx, fill, l.data(), r.data(), l.size());
    // The comb does not resonate on DC: it holds 0.4, and the gain 1.5 - 0.5 shows it as 0.4.
    EXPECT_NEAR(l.back(), 0.4f, 1e-4f);
    const double spb = system.samplesPerBeat;
    std::vector<float> hl(48000, 0.4f), hr(48000, 0.4f);
    run(*fx, hold, hl.data(), hr.data(), hl.size());
    for (std::size_t n = 0; n < hl.size(); n += 97) {
        const double k = static_cast<double>(n + 1);
        const double gate = std::min(1.0, k / (64.0 * 48000.0 / 44100.0));
        const double s = 0.5 + 0.5 * std::sin(2.0 * M_PI * (0.5 + k / spb - 0.25));
        ASSERT_NEAR(hl[n], 0.4 * ((s - 1.0) * gate + 1.0), 2e-3) << n;
        ASSERT_EQ(hl[n], hr[n]);
    }
    // Releasing the hold shuts the gate and rewinds the sweep: holding again starts the same pulse afresh.
    std::vector<float> rl(6400, 0.4f), rr(6400, 0.4f);
    run(*fx, fill, rl.data(), rr.data(), rl.size());
    std::vector<float> again(hl.size(), 0.4f), againR(hl.size(), 0.4f);
    run(*fx, hold, again.data(), againR.data(), again.size());
    for (std::size_t n = 0; n < again.size(); n += 97)
        ASSERT_NEAR(again[n], hl[n], 2e-3) << n;
}

TEST_F(TonalizerFixture, RateChangeRetunesTheCombs) {
    const Params params{0.7f, 0.7f, 0.2f, 0.0f};
    auto fx = make(params);
    std::vector<float> l(64, 0.3f), r(64, 0.3f);
    run(*fx, params, l.data(), r.data(), l.size());
    system.setSampleRate(96000.0f);
    const double d = period(0.7f * 60.0f + 24.0f);
    const auto count = static_cast<std::size_t>(2.0 * d + 64.0);
    std::vector<float> cl(count, 0.0f), cr(count, 0.0f);
    cl[0] = 1.0f;
    run(*fx, params, cl.data(), cr.data(), count);
    // The lines start empty at the new rate, so only the click comes back, one new period later.
    EXPECT_NEAR(centroid(cl, d), d, 2e-3);
    EXPECT_EQ(cl[5], 0.0f);
}

TEST_F(TonalizerFixture, HostileInputStaysInRangeAndFinite) {
    AFTonalizer fx(7, &system, 0);
    const std::pair<int, int32_t> options[] = {
        {0, 99}, {1, -4}, {2, 1000}, {3, std::numeric_limits<int32_t>::max()}};
    const int32_t expected[] = {6, 0, 1, 2};
    for (const auto& [i, v] : options)
        fx.setOption(i, v);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(fx.getOption(i), expected[i]);
    fx.setOption(9, 3);
    EXPECT_EQ(fx.getOption(9), 0);
    fx.setParameter(4, 0.2f);
    fx.activate();

    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const Params hostile[] = {{nan, nan, nan, nan}, {-inf, inf, 7.0f, -3.0f}, {40.0f, -2.0f, -9.0f, 2.0f}};
    std::vector<float> l(64), r(64);
    const float rates[] = {196000.0f, 11050.0f, 48000.0f};
    for (int phase = 0; phase < 3; ++phase) {
        system.setSampleRate(rates[phase]);
        for (int block = 0; block < 300; ++block) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, hostile[phase][static_cast<std::size_t>(i)]);
            fx.controlTick();
            for (int extra = 0; extra < 2; ++extra) {
                for (std::size_t k = 0; k < 64; ++k)
                    l[k] = r[k] = std::sin(0.1f * static_cast<float>(k + block));
                fx.process(l.data(), r.data(), 64);
                for (std::size_t k = 0; k < 64; ++k)
                    ASSERT_TRUE(std::isfinite(l[k]) && std::isfinite(r[k]));
            }
        }
    }
    fx.process(l.data(), r.data(), 0);
}

TEST_F(TonalizerFixture, StaysBoundedAtDefaultFeedbackAndIsDeterministic) {
    for (int sign : {0, 1}) {
        const Params params{0.4f, 0.6f, 0.85f, 0.25f};
        auto a = make(params, {2, 5, sign, 0});
        auto b = make(params, {2, 5, sign, 0});
        std::vector<float> in(240000);
        uint32_t seed = 12345;
        for (float& s : in) {
            seed = seed * 1664525u + 1013904223u;
            s = static_cast<float>(seed >> 8) / 8388608.0f - 1.0f;
        }
        auto la = in, ra = in, lb = in, rb = in;
        run(*a, params, la.data(), ra.data(), in.size());
        run(*b, params, lb.data(), rb.data(), in.size());
        float peak = 0.0f;
        for (float s : la)
            peak = std::max(peak, std::fabs(s));
        EXPECT_LT(peak, 30.0f);
        EXPECT_GT(peak, 0.5f);
        EXPECT_EQ(0, std::memcmp(la.data(), lb.data(), la.size() * sizeof(float)));
        EXPECT_EQ(0, std::memcmp(ra.data(), rb.data(), ra.size() * sizeof(float)));

        a->activate();
        auto lc = in, rc = in;
        run(*a, params, lc.data(), rc.data(), 20000);
        EXPECT_EQ(0, std::memcmp(la.data(), lc.data(), 20000 * sizeof(float))) << "activate starts afresh";
    }
}

TEST_F(TonalizerFixture, NoteDropAsTheSlotStopsIsNoClick) {
    // A chord, then both notes fall two octaves in one tick, as when the Control falls to 0 and the slot
    // fades out: no sample step may outgrow the ones the comb made before.
    const Params played{0.4f, 0.4f, 0.85f, 0.25f};
    auto fx = make(played);
    std::vector<float> l(48640), r(l.size());
    for (std::size_t n = 0; n < l.size(); ++n)
        for (const float w : {0.0288f, 0.0363f, 0.0431f})
            l[n] = r[n] += 0.08f * std::sin(w * static_cast<float>(n));
    run(*fx, played, l.data(), r.data(), 48000);
    run(*fx, {0.0f, 0.0f, 0.85f, 0.25f}, l.data() + 48000, r.data() + 48000, 640);
    float before = 0.0f, after = 0.0f;
    for (std::size_t n = 38400; n < l.size(); ++n) {
        float& largest = n < 48000 ? before : after;
        largest = std::max(largest, std::fabs(l[n] - l[n - 1]));
    }
    EXPECT_LT(after, 1.2f * before);
}
