#include "effects/loop/AFStutter.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr int kTick = 64;

struct Output {
    std::vector<float> left;
    std::vector<float> right;
    std::vector<bool> pieceStart;
};

// Drives the effect the way a slot does: at every 64-sample tick the four knobs are pushed and controlTick
// runs, then process works in pieces that never straddle a tick.
struct Rig {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
    AFStutter fx{9, &system, 0};
    std::array<float, 4> knobs{0.5f, 1.0f, 0.0f, 0.3f};
    std::vector<int> pieces{kTick};
    std::size_t nextPiece = 0;
    // Samples from the last tick to activation: a slot starts on its quantise grid, not on a tick.
    int tickPhase = 0;
    int64_t clock = 0;
    // When set, ppqPosition follows a running transport; assigning songPosition jumps.
    bool transport = false;
    double songStart = 0.0;
    double songPosition = 0.0;

    Rig(float rate, double bpm, int sync = AFStutter::kSync, int swing = AFStutter::kNormal) {
        system.setControlInterval(64);
        system.setSampleRate(rate);
        system.setTempo(bpm);
        fx.setOption(0, sync);
        fx.setOption(1, swing);
    }

    void start() {
        for (int i = 0; i < 4; ++i)
            fx.setParameter(i, knobs[static_cast<std::size_t>(i)]);
        fx.activate();
        clock = tickPhase;
        nextPiece = 0;
        songPosition = songStart;
    }

    Output run(int samples, float input = 1.0f) {
        Output out{std::vector<float>(samples, input), std::vector<float>(samples, input),
                   std::vector<bool>(samples, false)};
        int done = 0;
        while (done < samples) {
            if (clock % kTick == 0) {
                for (int i = 0; i < 4; ++i)
                    fx.setParameter(i, knobs[static_cast<std::size_t>(i)]);
                fx.controlTick();
            }
            const int wanted = pieces[nextPiece++ % pieces.size()];
            const int n = std::min({wanted, static_cast<int>(kTick - clock % kTick), samples - done});
            if (transport) system.ppqPosition = static_cast<float>(songPosition);
            out.pieceStart[static_cast<std::size_t>(done)] = true;
            fx.process(out.left.data() + done, out.right.data() + done, n);
            done += n;
            clock += n;
            songPosition += n / static_cast<double>(system.samplesPerBeat);
        }
        return out;
    }
};

float gateFraction(float decay) {
    return static_cast<float>(decay * 0.85 + 0.15);
}

uint32_t gateFor(double period, float decay) {
    return static_cast<uint32_t>((period - 128.0) * gateFraction(decay) + 128.0);
}

// Period lengths from activation on, for a base period B and a swing mode, as the patterns read.
std::vector<double> swungPeriods(float base, int swing, int count) {
    std::vector<double> factors;
    switch (swing) {
    case AFStutter::kRhythm1:
        factors = {0.5, 0.5, 1.0};
        break;
    case AFStutter::kShuffle:
        factors = {1.5, 0.5};
        break;
    case AFStutter::kSwingSoft:
        factors = {1.2, 0.8};
        break;
    case AFStutter::kSwingHard:
        factors = {1.33333333, 0.66666666};
        break;
    default:
        factors = {1.0};
        break;
    }
    std::vector<double> periods;
    for (int k = 0; k < count; ++k)
        periods.push_back(static_cast<float>(base * factors[static_cast<std::size_t>(k) % factors.size()]));
    return periods;
}

// Checks every sample against the gate pattern: period k starts at ceil(sum of the earlier periods), its gate
// closes gate[k] - 1 samples later and stays shut (both channels exactly 0) until the next start. With "Pan"
// at 1 only the left channel sounds in even periods and only the right in odd ones. The first sample of a
// period sits at x = 0, where every shape is near silent, so it is not judged.
::testing::AssertionResult followsGates(const Output& out, const std::vector<double>& periods,
                                        const std::vector<uint32_t>& gates) {
    const auto size = static_cast<int64_t>(out.left.size());
    double sum = 0.0;
    for (std::size_t k = 0; k < periods.size(); ++k) {
        const auto start = static_cast<int64_t>(std::ceil(sum));
        sum += periods[k];
        const auto next = static_cast<int64_t>(std::ceil(sum));
        const int64_t close = start + gates[k] - 1;
        for (int64_t n = start + 1; n < next && n < size; ++n) {
            const float l = out.left[static_cast<std::size_t>(n)];
            const float r = out.right[static_cast<std::size_t>(n)];
            const bool open = n < close;
            const float sounding = k % 2 == 0 ? l : r;
            const float silent = k % 2 == 0 ? r : l;
            if ((open && (sounding == 0.0f || silent != 0.0f)) || (!open && (l != 0.0f || r != 0.0f)))
                return ::testing::AssertionFailure()
                       << "period " << k << " [" << start << ", " << next << ") closing at " << close
                       << ": sample " << n << " is " << l << " / " << r;
        }
        if (next >= size) return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "run longer than the expected periods";
}

// Period starts as heard: a sounding sample after a shut one. The x = 0 sample that begins a period may come
// out silent only when a piece begins there too; runs read this way use whole-tick pieces and an odd tick
// phase, so that no piece begins on the even sample counts where their periods start.
std::vector<int64_t> heardStarts(const Output& out) {
    std::vector<int64_t> starts{0};
    for (std::size_t n = 1; n < out.left.size(); ++n) {
        const bool now = out.left[n] != 0.0f || out.right[n] != 0.0f;
        const bool before = out.left[n - 1] != 0.0f || out.right[n - 1] != 0.0f;
        if (now && !before) starts.push_back(static_cast<int64_t>(n));
    }
    return starts;
}

Output joined(Output a, const Output& b) {
    a.left.insert(a.left.end(), b.left.begin(), b.left.end());
    a.right.insert(a.right.end(), b.right.begin(), b.right.end());
    a.pieceStart.insert(a.pieceStart.end(), b.pieceStart.begin(), b.pieceStart.end());
    return a;
}

double referenceEnvelope(double x, double s) {
    const double sine = std::sin(x * 3.1415927);
    if (s < 0.33333333333) {
        const double m = 1.0 - x;
        const double a = m <= 0.95 ? m * 1.05263 : 1.0 - (m - 0.95) * 20.0;
        return a + (sine - a) * s * 3.0;
    }
    if (s >= 0.6666666666) {
        const double a = x < 0.05 ? x * 20.0 : (x > 0.95 ? 1.0 - (x - 0.95) * 20.0 : 1.0);
        const double b = x <= 0.95 ? x * 1.05263 : 1.0 - (x - 0.95) * 20.0;
        return a + (b - a) * (s - 0.6665999889373779) * 3.0;
    }
    const double d = s - 0.33329999446868896;
    if (x < 0.05) return sine + (x * 20.0 - sine) * d * 3.0;
    if (x <= 0.95) return sine + (1.0 - sine) * d * 3.0;
    return sine + (1.0 - (x - 0.95) * 20.0 - sine) * d * 3.0;
}

struct Tempo {
    float rate;
    double bpm;
};
constexpr Tempo kTempos[] = {{44100.0f, 90.0}, {44100.0f, 120.0}, {44100.0f, 174.0},
                             {48000.0f, 90.0}, {48000.0f, 120.0}, {48000.0f, 174.0},
                             {96000.0f, 90.0}, {96000.0f, 120.0}, {96000.0f, 174.0}};

// Base period each mode gives, written from the note values and the free formula, not from the tables.
float basePeriod(const AFSystemInfo& system, int sync, float size) {
    const double beat = system.samplesPerBeat;
    switch (sync) {
    case AFStutter::kSyncTriplet: // 0.5 of 14 rows: "1\16T"
        return static_cast<float>(beat * 4.0 * 0.04166666666);
    case AFStutter::kFree:
        return std::trunc(((1.0f - size) * 497.0f + 3.0f) * system.samplesPerMillisecond);
    case AFStutter::kSyncDotted: // 0.5 of 21 rows: "1\16", whole samples
        return std::trunc(static_cast<float>(beat * 0.25));
    default: // 0.5 of 7 rows: "1\16"
        return static_cast<float>(beat * 0.25);
    }
}

} // namespace

TEST(AFStutterTiming, PeriodsAndGatesToTheSampleInEveryMode) {
    for (const Tempo& tempo : kTempos) {
        for (int sync : {AFStutter::kSync, AFStutter::kSyncTriplet, AFStutter::kFree, AFStutter::kSyncX,
                         AFStutter::kSyncDotted}) {
            for (float decay : {0.0f, 0.5f}) {
                Rig rig(tempo.rate, tempo.bpm, sync);
                rig.knobs = {0.5f, decay, 0.0f, 1.0f};
                rig.pieces = {17, 30, 17, 64, 5};
                rig.start();
                const float base = basePeriod(rig.system, sync, 0.5f);
                const auto periods = swungPeriods(base, AFStutter::kNormal, 12);
                std::vector<uint32_t> gates;
                for (double p : periods)
                    gates.push_back(gateFor(p, decay));
                const Output out = rig.run(static_cast<int>(base * 7.5f));
                EXPECT_TRUE(followsGates(out, periods, gates))
                    << "rate " << tempo.rate << " bpm " << tempo.bpm << " mode " << sync << " decay "
                    << decay;
            }
        }
    }
}

TEST(AFStutterTiming, DecayOneClosesOnlyTheLastSampleOfAWholePeriod) {
    Rig rig(48000.0f, 120.0);
    rig.knobs = {0.5f, 1.0f, 0.0f, 1.0f};
    rig.start();
    const Output out = rig.run(6000 * 4);
    EXPECT_TRUE(followsGates(out, std::vector<double>(4, 6000.0), std::vector<uint32_t>(4, 6000u)));
    for (int k = 1; k <= 3; ++k) {
        EXPECT_EQ(out.left[static_cast<std::size_t>(6000 * k - 1)], 0.0f);
        const auto last = static_cast<std::size_t>(6000 * k - 2);
        EXPECT_NE(out.left[last] + out.right[last], 0.0f);
    }
}

TEST(AFStutterTiming, SwingPatternsGiveTheirSequenceOfPeriods) {
    struct Case {
        int swing;
        std::vector<int64_t> lengths;
    };
    // 1/16 at 120 BPM and 48 kHz is 6000 samples.
    const Case cases[] = {
        {AFStutter::kNormal, {6000, 6000, 6000, 6000, 6000, 6000}},
        {AFStutter::kRhythm1, {3000, 3000, 6000, 3000, 3000, 6000}},
        {AFStutter::kShuffle, {9000, 3000, 9000, 3000, 9000, 3000}},
        {AFStutter::kSwingSoft, {7200, 4800, 7200, 4800, 7200, 4800}},
        {AFStutter::kSwingHard, {8000, 4000, 8000, 4000, 8000, 4000}},
    };
    for (const Case& c : cases) {
        Rig rig(48000.0f, 120.0, AFStutter::kSync, c.swing);
        rig.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
        rig.tickPhase = 5;
        rig.start();
        const auto starts = heardStarts(rig.run(36000 + 100));
        ASSERT_GE(starts.size(), c.lengths.size() + 1) << c.swing;
        for (std::size_t k = 0; k < c.lengths.size(); ++k)
            EXPECT_EQ(starts[k + 1] - starts[k], c.lengths[k]) << "swing " << c.swing << " period " << k;

        // The same pattern to the sample with ragged pieces, and the gates shorten with their periods.
        const auto periods = swungPeriods(6000.0f, c.swing, 12);
        std::vector<uint32_t> gates;
        for (double p : periods)
            gates.push_back(gateFor(p, 0.5f));
        rig.knobs[3] = 1.0f;
        rig.tickPhase = 0;
        rig.pieces = {64, 13, 51, 1, 63};
        rig.start();
        EXPECT_TRUE(followsGates(rig.run(36000), periods, gates)) << c.swing;
    }
}

TEST(AFStutterTiming, SwingAppliesToFractionalPeriods) {
    Rig rig(44100.0f, 174.0, AFStutter::kSyncTriplet, AFStutter::kSwingHard);
    rig.knobs = {0.5f, 0.5f, 0.0f, 1.0f};
    rig.pieces = {7, 57};
    rig.start();
    const float base = basePeriod(rig.system, AFStutter::kSyncTriplet, 0.5f);
    const auto periods = swungPeriods(base, AFStutter::kSwingHard, 12);
    std::vector<uint32_t> gates;
    for (double p : periods)
        gates.push_back(gateFor(p, 0.5f));
    EXPECT_TRUE(followsGates(rig.run(static_cast<int>(base * 10)), periods, gates));
}

TEST(AFStutterTiming, FreeSpansFiveHundredDownToThreeMilliseconds) {
    struct Case {
        float rate;
        int64_t longest, shortest;
    };
    // 500 ms and 3 ms in whole samples; 500 x 44.1 lands exactly on 22050 in float.
    const Case cases[] = {{44100.0f, 22050, 132}, {48000.0f, 24000, 144}, {96000.0f, 48000, 288}};
    for (const Case& c : cases) {
        for (float size : {0.0f, 1.0f}) {
            const int64_t period = size == 0.0f ? c.longest : c.shortest;
            Rig rig(c.rate, 120.0, AFStutter::kFree);
            rig.knobs = {size, 0.0f, 0.0f, 0.0f};
            rig.tickPhase = 5;
            rig.start();
            const auto starts = heardStarts(rig.run(static_cast<int>(period * 3 + period / 2)));
            EXPECT_EQ(starts, (std::vector<int64_t>{0, period, 2 * period, 3 * period}))
                << c.rate << " " << size;
        }
    }
}

TEST(AFStutterTiming, PeriodBelowPivotNeverCloses) {
    // "Free" at 1 and 22.05 kHz: 66 samples, a gate of 118 (Decay 0) or 92 (Decay 0.5).
    for (float decay : {0.0f, 0.5f}) {
        Rig rig(22050.0f, 120.0, AFStutter::kFree);
        rig.knobs = {1.0f, decay, 0.0f, 0.0f};
        rig.pieces = {64, 9, 55, 1, 63};
        rig.start();
        const Output out = rig.run(66 * 200);
        for (std::size_t n = 0; n < out.left.size(); ++n) {
            if (out.left[n] == 0.0f) {
                // Only the x = 0 sample of a period that a piece begins with may come out silent.
                EXPECT_TRUE(out.pieceStart[n]) << "decay " << decay << " sample " << n;
            }
        }
    }
    // With Decay 1 the same period gives a gate of exactly 66 and shuts once per period.
    Rig rig(22050.0f, 120.0, AFStutter::kFree);
    rig.knobs = {1.0f, 1.0f, 0.0f, 0.0f};
    rig.start();
    const Output out = rig.run(66 * 20);
    for (int k = 1; k < 20; ++k)
        EXPECT_EQ(out.left[static_cast<std::size_t>(66 * k - 1)], 0.0f) << k;
}

TEST(AFStutterTiming, TempoChangeIsHeardInTheClosedStretch) {
    // 1/16 at 120 BPM and 48 kHz is 6000 samples; at 90 BPM it is 8000. The tempo drops at 3200, before
    // the gate shuts at 3503: the shut stretch looks the period up again and runs to 8000, where the new
    // length is adopted with the period position taken from the 1/128 grid (exactly on a tick here).
    Rig rig(48000.0f, 120.0);
    rig.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output first = rig.run(3200);
    rig.system.setTempo(90.0);
    EXPECT_EQ(heardStarts(joined(first, rig.run(30000))),
              (std::vector<int64_t>{0, 8000, 16000, 24000, 32000}));
}

TEST(AFStutterTiming, AdoptedPeriodKeepsThePhaseOfTheGrid) {
    // "Free" at 48 kHz: Size 0.5 gives 12072 samples, 0.25 gives 18036. Moved during the second period, the
    // new length is heard in its shut stretch, so that period ends at 12072 + 18036 = 30108. There the length
    // is adopted and the period position restarts from the 1/128 grid: 30108 lies 108 samples past a tick
    // of 750, so the next period is 108 samples short.
    Rig rig(48000.0f, 120.0, AFStutter::kFree);
    rig.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output before = rig.run(13000);
    rig.knobs[0] = 0.25f;
    EXPECT_EQ(heardStarts(joined(before, rig.run(50000 - 13000))),
              (std::vector<int64_t>{0, 12072, 30108, 48036}));
}

TEST(AFStutterSyncX, LongerValueWaitsForItsGridMultiple) {
    // 1/16 = 6000 samples at 120 BPM and 48 kHz; the grid tick is 750 samples. Switching to 1/8 (12000) just
    // after 6400 needs k = 32 ticks: the period starts at ticks 16 and 24 pass, the one at 32 (24000) adopts.
    Rig rig(48000.0f, 120.0, AFStutter::kSyncX);
    rig.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output before = rig.run(6400);
    rig.knobs[0] = 0.33f;
    EXPECT_EQ(heardStarts(joined(before, rig.run(60000 - 6400))),
              (std::vector<int64_t>{0, 6000, 12000, 18000, 24000, 36000, 48000}));

    // "Sync" hears the move in the shut stretch: the running period stretches to 12000 at once.
    Rig sync(48000.0f, 120.0, AFStutter::kSync);
    sync.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
    sync.tickPhase = 5;
    sync.start();
    const Output heard = sync.run(6400);
    sync.knobs[0] = 0.33f;
    EXPECT_EQ(heardStarts(joined(heard, sync.run(60000 - 6400))),
              (std::vector<int64_t>{0, 6000, 18000, 30000, 42000, 54000}));
}

TEST(AFStutterSyncX, ShorterValueTakesEffectAtTheNextBoundary) {
    Rig rig(48000.0f, 120.0, AFStutter::kSyncX);
    rig.knobs = {0.33f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output before = rig.run(12800);
    rig.knobs[0] = 0.5f;
    EXPECT_EQ(heardStarts(joined(before, rig.run(40000 - 12800))),
              (std::vector<int64_t>{0, 12000, 24000, 30000, 36000}));
}

TEST(AFStutterSyncX, ShorterValueUnderSwingWaitsForTheStepAfterTheLongHalf) {
    // "Shuffle" on 1/8 plays 18000, 6000, 18000, ... A move to 1/16 during the short period at 19200 is not
    // taken at 24000, which ends a short period, but at 42000, which ends a long one; 1/16 then starts its
    // own pattern with a long period: 9000, 3000.
    Rig rig(48000.0f, 120.0, AFStutter::kSyncX, AFStutter::kShuffle);
    rig.knobs = {0.33f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output before = rig.run(19200);
    rig.knobs[0] = 0.5f;
    EXPECT_EQ(heardStarts(joined(before, rig.run(60000 - 19200))),
              (std::vector<int64_t>{0, 18000, 24000, 42000, 51000, 54000}));
}

TEST(AFStutterSyncX, AdoptedValueStartsRhythmOneOnItsWholePeriod) {
    // "Rhythm 1" on 1/8 plays 6000, 6000, 12000. Moved to 1/16 just after 6400, the start at 12000 adopts it
    // and the pattern restarts on the whole period: 6000, then 3000, 3000, 6000.
    Rig rig(48000.0f, 120.0, AFStutter::kSyncX, AFStutter::kRhythm1);
    rig.knobs = {0.33f, 0.5f, 0.0f, 0.0f};
    rig.tickPhase = 5;
    rig.start();
    const Output before = rig.run(6400);
    rig.knobs[0] = 0.5f;
    EXPECT_EQ(heardStarts(joined(before, rig.run(44000 - 6400))),
              (std::vector<int64_t>{0, 6000, 12000, 18000, 21000, 24000, 30000, 33000, 36000, 42000}));
}

TEST(AFStutterShape, EnvelopesMatchTheirFormulas) {
    // 1/8 at 120 BPM and 44.1 kHz: one gate of 11025 samples with Decay 1. Pieces that end inside the gate
    // read x before the step, the pieces that reach its end after it.
    for (float shape : {0.0f, 1.0f / 3.0f, 2.0f / 3.0f, 1.0f, 0.2f, 0.5f, 0.8f}) {
        Rig rig(44100.0f, 120.0);
        rig.knobs = {0.33f, 1.0f, shape, 0.0f};
        rig.start();
        const Output out = rig.run(11025);
        const uint32_t gate = 11025;
        const float inverse = 1.0f / static_cast<float>(gate);
        double worst = 0.0;
        for (int n = 0; n < 11024; ++n) {
            const int pieceStart = n - n % kTick;
            const bool inside = pieceStart + kTick < static_cast<int>(gate);
            const float x = static_cast<float>(inside ? n : n + 1) * inverse;
            const double expected = referenceEnvelope(x, static_cast<double>(shape));
            worst = std::max(worst, std::fabs(out.left[static_cast<std::size_t>(n)] - expected));
            ASSERT_NEAR(out.left[static_cast<std::size_t>(n)], expected, 3e-6)
                << "shape " << shape << " n " << n;
            ASSERT_EQ(out.left[static_cast<std::size_t>(n)], out.right[static_cast<std::size_t>(n)]);
        }
        EXPECT_LT(worst, 3e-6);
    }
}

TEST(AFStutterShape, ShapeRampsThroughAllBlendsAcrossOneTick) {
    // Shape 0 -> 1 at a tick: the next 64 samples blend with s = (n + 1) / 64, crossing both thresholds.
    Rig rig(44100.0f, 120.0);
    rig.knobs = {0.33f, 1.0f, 0.0f, 0.0f};
    rig.start();
    rig.run(640);
    rig.knobs[2] = 1.0f;
    const Output out = rig.run(128);
    const float inverse = 1.0f / 11025.0f;
    for (int n = 0; n < 128; ++n) {
        const double shape = std::min(1.0, (n + 1) / 64.0);
        const double expected = referenceEnvelope(static_cast<float>(640 + n) * inverse, shape);
        EXPECT_NEAR(out.left[static_cast<std::size_t>(n)], expected, 3e-6) << n;
    }
}

TEST(AFStutterShape, FourShapesAtTheirCorners) {
    // Spot values that tell the four shapes apart: falling ramp, half sine, flat top, rising ramp.
    struct Case {
        float shape;
        double quarter, half, end;
    };
    const Case cases[] = {
        {0.0f, 0.75 * 1.05263, 0.5 * 1.05263, 0.0},
        {1.0f / 3.0f, std::sin(0.25 * 3.1415927), 1.0, 0.0},
        {2.0f / 3.0f, 1.0, 1.0, 0.0},
        {1.0f, 0.25 * 1.05263, 0.5 * 1.05263, 0.0},
    };
    for (const Case& c : cases) {
        Rig rig(48000.0f, 120.0);
        rig.knobs = {0.33f, 1.0f, c.shape, 0.0f};
        rig.start();
        const Output out = rig.run(12000); // one gate of 12000, inside-gate reads before the step
        EXPECT_NEAR(out.left[3000], c.quarter, 2e-4) << c.shape;
        EXPECT_NEAR(out.left[6000], c.half, 2e-4) << c.shape;
        EXPECT_NEAR(out.left[11998], c.end, 2e-3) << c.shape;
        EXPECT_EQ(out.left[11999], 0.0f) << c.shape;
    }
}

TEST(AFStutterPan, ZeroGatesAlikeOneAlternatesHard) {
    Rig same(48000.0f, 120.0);
    same.knobs = {0.5f, 0.5f, 0.0f, 0.0f};
    same.start();
    const Output alike = same.run(30000);
    EXPECT_EQ(alike.left, alike.right);

    Rig hard(48000.0f, 120.0);
    hard.knobs = {0.5f, 0.5f, 0.0f, 1.0f};
    hard.start();
    const Output alternating = hard.run(30000);
    EXPECT_TRUE(followsGates(alternating, std::vector<double>(6, 6000.0),
                             std::vector<uint32_t>(6, gateFor(6000.0, 0.5f))));

    // The default 0.3 leaves 0.7 on the balanced side; it swaps sides each period.
    Rig soft(48000.0f, 120.0);
    soft.knobs = {0.5f, 0.5f, 0.0f, 0.3f};
    soft.start();
    const Output balanced = soft.run(12000);
    EXPECT_NEAR(balanced.right[1000] / balanced.left[1000], 0.7, 1e-6);
    EXPECT_NEAR(balanced.left[7000] / balanced.right[7000], 0.7, 1e-6);
}

TEST(AFStutterPan, BalanceRampsAcrossOneTick) {
    Rig rig(48000.0f, 120.0);
    rig.knobs = {0.5f, 1.0f, 0.0f, 0.0f};
    rig.start();
    rig.run(640);
    rig.knobs[3] = 1.0f; // balance 1 -> 0 over the next 64 samples
    const Output out = rig.run(128);
    for (int n = 0; n < 64; ++n) {
        const double balance = 1.0 - (n + 1) / 64.0;
        EXPECT_NEAR(out.right[static_cast<std::size_t>(n)] / out.left[static_cast<std::size_t>(n)], balance,
                    1e-6)
            << n;
    }
    for (int n = 64; n < 128; ++n)
        EXPECT_EQ(out.right[static_cast<std::size_t>(n)], 0.0f) << n;
}

TEST(AFStutterPpq, FollowsThePositionThroughSmoothedGains) {
    // An independent reading of the musical-position path, run against the effect with each swing mode, a
    // transport jump halfway and a shape that ramps after it.
    for (int swing = AFStutter::kNormal; swing <= AFStutter::kSwingHard; ++swing) {
        Rig rig(48000.0f, 120.0, AFStutter::kSyncPpq, swing);
        rig.knobs = {0.5f, 0.3f, 0.6f, 0.4f};
        rig.pieces = {64, 23, 41};
        rig.transport = true;
        rig.songStart = 3.1;
        rig.start();
        const Output first = rig.run(24000);
        rig.songPosition = 9.77;
        rig.knobs[2] = 0.1f;
        const Output out = joined(first, rig.run(24000));

        const double beat = rig.system.samplesPerBeat;
        const double interval = std::trunc(beat * 0.25); // "1\16"
        const double g = (1.0 - gateFraction(0.3f)) * 4.0 + 1.0;
        const double pan = 1.0 - static_cast<double>(0.4f);
        double shape = static_cast<double>(0.6f);
        double shapeStep = 0.0;
        double smoothL = 1.0;
        double smoothR = 1.0;
        double song = 3.1;
        double worst = 0.0;
        const int pieces[] = {64, 23, 41};
        std::size_t piece = 0;
        for (int64_t clock = 0; clock < 48000;) {
            const bool jumped = clock >= 24000;
            if (clock == 24000) song = 9.77;
            if (clock % kTick == 0) {
                const double target = static_cast<double>(jumped ? 0.1f : 0.6f);
                shapeStep = (target - shape) / 64.0;
                if (std::fabs(shapeStep) < 9.99999993922529e-09) {
                    shapeStep = 0.0;
                    shape = target;
                }
            }
            const int n = std::min({pieces[piece++ % 3], kTick - static_cast<int>(clock % kTick),
                                    static_cast<int>((jumped ? 48000 : 24000) - clock)});
            double p = static_cast<float>(song);
            const double step = (n / beat) / n;
            for (int i = 0; i < n; ++i) {
                const double phase = beat * (1.0 / interval) * p;
                const auto whole = static_cast<int64_t>(std::floor(phase));
                double f = phase - static_cast<double>(whole);
                bool odd = (whole & 1) != 0;
                const bool early = swing == AFStutter::kShuffle     ? f < 0.5
                                   : swing == AFStutter::kSwingSoft ? f < 0.2
                                                                    : f < 0.33329999446868896;
                if (swing == AFStutter::kRhythm1 && !odd) {
                    f = f < 0.5 ? f * 0.2 : (f - 0.5) * 0.2;
                } else if (swing >= AFStutter::kShuffle && !odd) {
                    f *=
                        swing == AFStutter::kShuffle ? 0.666 : (swing == AFStutter::kSwingSoft ? 0.83 : 0.75);
                } else if (swing >= AFStutter::kShuffle && early) {
                    odd = false;
                    f = swing == AFStutter::kShuffle     ? 0.666 + f * 0.666
                        : swing == AFStutter::kSwingSoft ? f * 0.8500000000000001 + 0.83
                                                         : 0.75 + f * 0.75;
                } else if (swing >= AFStutter::kShuffle) {
                    f = swing == AFStutter::kShuffle     ? (f - 0.5) * 0.2
                        : swing == AFStutter::kSwingSoft ? (f - 0.2) * 1.25
                                                         : (f - 0.33333298563957214) * 1.5;
                }
                const double y = g * f;
                double e = 0.0;
                if (y <= 1.0) {
                    shape += shapeStep;
                    e = referenceEnvelope(y, shape);
                }
                smoothL = (odd ? e * pan : e) * 0.1 + smoothL * 0.8999999761581421;
                smoothR = (odd ? e : e * pan) * 0.1 + smoothR * 0.8999999761581421;
                const auto at = static_cast<std::size_t>(clock + i);
                worst =
                    std::max({worst, std::fabs(out.left[at] - smoothL), std::fabs(out.right[at] - smoothR)});
                p += step;
            }
            clock += n;
            song += n / beat;
        }
        EXPECT_LT(worst, 1e-5) << "swing " << swing;
    }
}

TEST(AFStutterPpq, ClosedGateDecaysByTheSmoothingConstant) {
    // Decay 0 gives G = 4.4: from the middle of a quarter note on the gate is shut, so the gains fall from
    // their start value 1 by exactly 0.8999999761581421 per sample.
    Rig rig(48000.0f, 120.0, AFStutter::kSyncPpq);
    rig.knobs = {0.2f, 0.0f, 0.0f, 0.0f}; // "1\4"
    rig.transport = true;
    rig.songStart = 0.5;
    rig.start();
    const Output out = rig.run(640);
    double gain = 1.0;
    for (std::size_t n = 0; n < out.left.size(); ++n) {
        gain = 0.0 * 0.1 + gain * 0.8999999761581421;
        ASSERT_EQ(out.left[n], static_cast<float>(gain)) << n;
        ASSERT_EQ(out.right[n], static_cast<float>(gain)) << n;
    }
}

TEST(AFStutterPpq, PreRollAndAbsurdPositions) {
    // A negative position keeps the pattern running: a quarter before the song start sounds like the
    // same place of the pattern two beats later.
    const auto heardFrom = [](double song) {
        Rig rig(48000.0f, 120.0, AFStutter::kSyncPpq);
        rig.knobs = {0.2f, 0.5f, 0.3f, 0.4f}; // "1\4"
        rig.transport = true;
        rig.songStart = song;
        rig.start();
        return rig.run(12000);
    };
    const Output preRoll = heardFrom(-0.25);
    const Output later = heardFrom(1.75);
    for (std::size_t n = 0; n < preRoll.left.size(); ++n) {
        ASSERT_NEAR(preRoll.left[n], later.left[n], 1e-4) << n;
        ASSERT_NEAR(preRoll.right[n], later.right[n], 1e-4) << n;
    }
    // A position no host sends reads as the song start.
    const auto heardAt = [](float position) {
        Rig rig(48000.0f, 120.0, AFStutter::kSyncPpq);
        rig.knobs = {0.2f, 0.5f, 0.3f, 0.4f};
        rig.start();
        rig.system.ppqPosition = position;
        return rig.run(640);
    };
    const Output absurd = heardAt(-1.0e30f);
    const Output start = heardAt(0.0f);
    EXPECT_EQ(absurd.left, start.left);
    EXPECT_EQ(absurd.right, start.right);
}

TEST(AFStutterBehaviour, CountZeroChangesNothing) {
    Rig plain(44100.0f, 174.0, AFStutter::kSyncX, AFStutter::kShuffle);
    Rig poked(44100.0f, 174.0, AFStutter::kSyncX, AFStutter::kShuffle);
    for (Rig* rig : {&plain, &poked}) {
        rig->knobs = {0.6f, 0.4f, 0.5f, 0.7f};
        rig->pieces = {19, 45};
        rig->start();
    }
    const Output a1 = plain.run(5000);
    const Output b1 = poked.run(5000);
    float dummy[1] = {1.0f};
    poked.system.setTempo(60.0);
    for (int i = 0; i < 10; ++i)
        poked.fx.process(dummy, dummy + 0, 0);
    poked.system.setTempo(174.0);
    EXPECT_EQ(dummy[0], 1.0f);
    const Output a2 = plain.run(40000);
    const Output b2 = poked.run(40000);
    EXPECT_EQ(a1.left, b1.left);
    EXPECT_EQ(a2.left, b2.left);
    EXPECT_EQ(a2.right, b2.right);
}

TEST(AFStutterBehaviour, DeterministicAndRestartedByActivate) {
    for (int sync = AFStutter::kSync; sync <= AFStutter::kSyncPpq; ++sync) {
        Rig one(96000.0f, 90.0, sync, AFStutter::kRhythm1);
        Rig two(96000.0f, 90.0, sync, AFStutter::kRhythm1);
        for (Rig* rig : {&one, &two}) {
            rig->knobs = {0.7f, 0.6f, 0.45f, 0.5f};
            rig->transport = true;
            rig->start();
        }
        const Output a = one.run(30000);
        const Output b = two.run(30000);
        EXPECT_EQ(a.left, b.left) << sync;
        EXPECT_EQ(a.right, b.right) << sync;
        one.run(777);
        one.pieces = {64};
        one.nextPiece = 0;
        one.start();
        two.pieces = {64};
        two.nextPiece = 0;
        two.start();
        EXPECT_EQ(one.run(20000).left, two.run(20000).left) << sync;
    }
}

TEST(AFStutterBehaviour, HostileValuesStayBounded) {
    Rig rig(48000.0f, 120.0, AFStutter::kFree);
    rig.knobs = {-3.0f, 7.0f, std::nanf(""), 40.0f};
    rig.start();
    Output out = rig.run(30000);
    for (float v : out.left)
        ASSERT_TRUE(std::isfinite(v) && std::fabs(v) <= 1.1f);
    rig.fx.setOption(0, 99);
    EXPECT_EQ(rig.fx.getOption(0), AFStutter::kSyncPpq);
    rig.fx.setOption(1, -4);
    EXPECT_EQ(rig.fx.getOption(1), AFStutter::kNormal);
    rig.system.ppqPosition = -1.0e30f;
    out = rig.run(3000);
    for (float v : out.right)
        ASSERT_TRUE(std::isfinite(v) && std::fabs(v) <= 1.1f);
}

TEST(AFStutterBehaviour, FlagsOptionsAndNoTempoRegistration) {
    Rig rig(44100.0f, 120.0);
    EXPECT_TRUE(rig.fx.hasFlag());
    EXPECT_EQ(rig.listeners.size(), 0u);
    EXPECT_EQ(rig.fx.getOption(2), 0);
    EXPECT_EQ(rig.fx.getOption(-1), 0);
    AFWordList words;
    rig.fx.getOptionList(1, words);
    EXPECT_EQ(words, (AFWordList{"Normal", "Rhythm 1", "Shuffle", "Swing Soft", "Swing Hard"}));
}

TEST(AFStutterDisplay, SizeFollowsTheSyncMode) {
    Rig rig(44100.0f, 120.0);
    char text[kEffectTextSize];
    const auto show = [&](int sync, float v) {
        rig.fx.setOption(0, sync);
        rig.fx.formatParameter(0, v, text);
        return std::string(text);
    };
    EXPECT_EQ(show(AFStutter::kSync, 0.5f), "1\\16");
    EXPECT_EQ(show(AFStutter::kSyncX, 0.0f), "1\\2");
    EXPECT_EQ(show(AFStutter::kSyncTriplet, 0.5f), "1\\16T");
    EXPECT_EQ(show(AFStutter::kSyncDotted, 0.0f), "1\\2P");
    EXPECT_EQ(show(AFStutter::kSyncPpq, 1.0f), "1\\128T");
    EXPECT_EQ(show(AFStutter::kFree, 0.0f), "500 ms");
    EXPECT_EQ(show(AFStutter::kFree, 1.0f), " 3 ms");  // 132 samples, "%2.0f ms"
    EXPECT_EQ(show(AFStutter::kFree, 0.5f), "251 ms"); // 11091 samples
    rig.system.setSampleRate(48000.0f);
    EXPECT_EQ(show(AFStutter::kFree, 0.5f), "252 ms"); // 12072 samples = 251.5 ms
}

TEST(AFStutterDisplay, PercentKnobs) {
    Rig rig(44100.0f, 120.0);
    char text[kEffectTextSize];
    for (int index : {1, 2, 3}) {
        rig.fx.formatParameter(index, 0.256f, text);
        EXPECT_STREQ(text, "25.60") << index;
    }
    rig.fx.formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "100.00");
}
