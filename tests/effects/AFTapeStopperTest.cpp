#include "SlotDriver.h"

#include "effects/framework/TimeValueTables.h"
#include "effects/loop/AFTapeStopper.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

// The tape stopper written out plainly, with buffers that really are resized on a tempo change.
struct ReferenceTape {
    AFSystemInfo& sys;
    std::array<float, 4> p{0.44f, 0.0f, 0.23f, 0.0f};
    std::vector<float> lb, rb;
    uint32_t cap = 0, wp = 0, cycleLength = 0, cycleCount = 0;
    double readPos = 0, speed = 1;
    int rising = 0, firstCycle = 1, syncMode = 0, playMode = 0;
    float dil = 0, dir = 0, dol = 0, dor = 0;

    explicit ReferenceTape(AFSystemInfo& s) : sys(s) { tempoChanged(0); }
    float getParameterValue(int i) const { return p[static_cast<std::size_t>(i)]; }
    void setParameter(int i, float v) { p[static_cast<std::size_t>(i)] = v; }
    void controlTick() {}
    void tempoChanged(int) {
        cap = static_cast<uint32_t>(std::lround(sys.samplesPerBeat * 4.0));
        lb.resize(cap + 1);
        rb.resize(cap + 1);
    }
    uint32_t wanted() const {
        const auto& t = TimeValueTables::instance();
        if (syncMode == 0) return t.offSyncTable.intervalSamples(sys, p[0]);
        if (syncMode == 1) return t.offDottedTable.intervalSamples(sys, p[0]);
        const double lo = 88.0 * sys.rateRatio;
        return static_cast<uint32_t>(std::lround((2.0 * sys.samplesPerBeat - lo) * p[0] + lo));
    }
    void activate() {
        readPos = 0;
        speed = 1;
        rising = 0;
        wp = cycleCount = 0;
        dil = dir = dol = dor = 0;
        std::fill(lb.begin(), lb.end(), 0.0f);
        std::fill(rb.begin(), rb.end(), 0.0f);
        cycleLength = wanted();
        firstCycle = 1;
    }
    static double fade(double pos, double len) { return pos < len - 64 ? 1.0 : (len - pos) / 64.0; }
    float at(const std::vector<float>& b, std::size_t i) const { return i < b.size() ? b[i] : 0.0f; }
    void process(float* l, float* r, int n) {
        const uint32_t w = wanted();
        const double beat = 1.0 / sys.samplesPerBeat;
        const double v = p[1];
        for (int i = 0; i < n; ++i) {
            if (wp < cap) {
                lb[wp] = l[i];
                rb[wp] = r[i];
                ++wp;
            }
            double gain = 1.0;
            if (cycleLength == 0) {
                if (w != 0 && cycleCount < 0xFFFFFFC0u) cycleLength = w;
                if (cap > readPos) {
                    gain = fade(readPos, cap);
                } else {
                    l[i] = r[i] = 0;
                    if (w != 0) {
                        cycleCount = 0;
                        speed = 1;
                        wp = 0;
                        rising = 0;
                        readPos = 0;
                    }
                    continue;
                }
            }
            const auto k = static_cast<std::size_t>(readPos);
            const std::size_t k1 = k + 1 == cap ? 0 : k + 1;
            const auto f = static_cast<float>(readPos - static_cast<double>(k));
            const float outL = at(lb, k) + (at(lb, k1) - at(lb, k)) * f;
            const float outR = at(rb, k) + (at(rb, k1) - at(rb, k)) * f;
            const double slope = rising ? p[3] : p[2];
            const double s = speed;
            double step;
            if (slope <= 0.5) {
                const double a = 1 - (1 - s) * (1 - s) * (1 - s);
                step = a + 2 * slope * (s - a);
            } else {
                step = s + 2 * (slope - 0.5) * (s * s * s - s);
            }
            if (playMode == 2) step = v;
            readPos += step;
            const double delta = v * v * (0.025 * beat - 16 * beat) + 16 * beat;
            speed += rising ? delta : -delta;
            const double floor = playMode == 0 ? 0.0 : -1.0;
            if (speed < floor) {
                speed = floor;
                rising = playMode == 0 ? 0 : 1;
            }
            if (speed > 1.0) rising = 0;
            if (readPos >= cap) {
                rising = 0;
                readPos = cap - 1.0;
                speed = -0.25;
            }
            if (readPos < 0) {
                readPos = 0;
                rising = 1;
                speed = 0.25;
            }
            double g = (cycleLength != 0 ? fade(cycleCount, cycleLength) : 1.0) * gain;
            if (cycleCount < 64 && firstCycle == 0) g *= cycleCount * 0.015625;
            l[i] = outL * static_cast<float>(g);
            r[i] = outR * static_cast<float>(g);
            if (cycleLength != 0 && ++cycleCount == cycleLength) {
                speed = 1;
                readPos = 0;
                cycleLength = w;
                cycleCount = 0;
                wp = 0;
                rising = 0;
                firstCycle = 0;
            }
        }
        for (int i = 0; i < n; ++i) {
            const float x = l[i], y = r[i];
            dol = 0.998f * dol + (x - dil);
            dor = 0.998f * dor + (y - dir);
            dil = x;
            dir = y;
            l[i] = dol;
            r[i] = dor;
        }
    }
};

std::string text(AFEffect& e, int index, float v) {
    char buffer[kEffectTextSize];
    e.formatParameter(index, v, buffer);
    return buffer;
}

// Runs `count` single samples of silence, one tick of parameters first.
void runSamples(AFTapeStopper& tape, int count) {
    float l = 0.0f, r = 0.0f;
    for (int i = 0; i < count; ++i) {
        if (i % 64 == 0) tape.controlTick();
        tape.process(&l, &r, 1);
    }
}

} // namespace

TEST(AFTapeStopper, MatchesReferenceInEveryModeWithTempoChanges) {
    const auto input = slot::testSignal(120000);
    struct Case {
        float rate;
        double bpm;
        int sync, play;
        float size, slow, down, up;
    };
    const Case cases[] = {
        {44100.0f, 120.0, 0, 0, 0.44f, 0.0f, 0.23f, 0.0f}, {48000.0f, 45.0, 1, 0, 0.3f, 0.6f, 0.8f, 0.2f},
        {48000.0f, 180.0, 0, 1, 0.2f, 0.3f, 0.1f, 0.9f},   {96000.0f, 120.0, 2, 1, 0.7f, 0.05f, 0.6f, 0.4f},
        {44100.0f, 180.0, 1, 2, 0.5f, 0.7f, 0.23f, 0.0f},  {96000.0f, 45.0, 2, 2, 0.1f, 0.35f, 0.5f, 0.5f},
        {48000.0f, 120.0, 0, 1, 0.0f, 0.1f, 0.3f, 0.3f},
    };
    for (const auto& c : cases) {
        slot::Rig a(c.rate, c.bpm), b(c.rate, c.bpm);
        AFTapeStopper tape(16, &a.system, 0);
        ReferenceTape reference(b.system);
        tape.setOption(0, c.sync);
        tape.setOption(1, c.play);
        reference.syncMode = c.sync;
        reference.playMode = c.play;
        auto script = [&](auto& fx, AFSystemInfo& sys, int tick, std::array<float, 4>& p) {
            p = {c.size, c.slow, c.down, c.up};
            if (tick > 900) p[1] = c.slow * 0.5f;
            if (tick == 700 || tick == 1400) {
                sys.setTempo(tick == 700 ? c.bpm * 1.7 : c.bpm * 0.8);
                fx.tempoChanged(1);
            }
        };
        tape.setParameter(0, c.size);
        reference.setParameter(0, c.size);
        tape.activate();
        reference.activate();
        const auto got = slot::drive(
            tape, input, [&](int t, auto& p) { script(tape, a.system, t, p); }, 3);
        const auto want = slot::drive(
            reference, input, [&](int t, auto& p) { script(reference, b.system, t, p); }, 3);
        EXPECT_EQ(slot::maxDifference(got, want), 0.0) << c.rate << " " << c.bpm << " " << c.sync << c.play;
    }
}

TEST(AFTapeStopper, CycleLengthsAndCapacityToTheSample) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (double bpm : {45.0, 120.0, 180.0}) {
            slot::Rig rig(rate, bpm);
            AFTapeStopper tape(16, &rig.system, 0);
            const double beat = rig.system.samplesPerBeat;
            EXPECT_EQ(tape.getCapacity(), static_cast<uint32_t>(std::lround(beat * 4.0)));
            EXPECT_EQ(tape.cycleLengthFor(0.0f), 0u);                                 // "Off"
            EXPECT_EQ(tape.cycleLengthFor(0.44f), static_cast<uint32_t>(beat * 0.5)); // "1\8"
            tape.setOption(0, 1);
            EXPECT_EQ(tape.cycleLengthFor(1.0f / 21.0f), static_cast<uint32_t>(beat * 3.0)); // "1\2P"
            tape.setOption(0, 2);
            EXPECT_EQ(tape.cycleLengthFor(1.0f), static_cast<uint32_t>(std::lround(2.0 * beat)));
        }
    }
}

TEST(AFTapeStopper, StopModeSlowsToAStandstill) {
    slot::Rig rig(48000.0f, 120.0); // 24000 samples per beat
    AFTapeStopper tape(16, &rig.system, 0);
    tape.setParameter(0, 1.0f / 7.0f); // "1\2": 48000-sample cycles
    tape.activate();
    runSamples(tape, 750);
    EXPECT_NEAR(tape.getSpeed(), 1.0 - 750.0 * 16.0 / 24000.0, 1e-9);
    runSamples(tape, 1000);
    EXPECT_EQ(tape.getSpeed(), 0.0);
    const double parked = tape.getReadPosition();
    runSamples(tape, 1000);
    EXPECT_EQ(tape.getReadPosition(), parked);
    runSamples(tape, 48000 - 2750);
    EXPECT_EQ(tape.getSpeed(), 1.0); // the next cycle restarts the head
    EXPECT_EQ(tape.getReadPosition(), 0.0);
}

TEST(AFTapeStopper, ScratchSwingsAndBouncesOffTheStart) {
    slot::Rig rig(48000.0f, 120.0);
    AFTapeStopper tape(16, &rig.system, 0);
    tape.setOption(1, 1);
    tape.setParameter(0, 1.0f / 7.0f);
    tape.activate();
    float l = 0.0f, r = 0.0f;
    double lowest = 1.0;
    bool bounced = false;
    for (int i = 0; i < 40000 && !bounced; ++i) {
        const double before = tape.getReadPosition();
        tape.process(&l, &r, 1);
        lowest = std::min(lowest, tape.getSpeed());
        bounced = before > 0.0 && tape.getReadPosition() == 0.0;
    }
    ASSERT_TRUE(bounced);
    EXPECT_EQ(tape.getSpeed(), 0.25);
    EXPECT_TRUE(tape.isRising());
    EXPECT_LT(lowest, 0.0);
}

TEST(AFTapeStopper, ManualStepsByTheKnobAndBouncesOffTheEnd) {
    slot::Rig rig(48000.0f, 180.0);
    AFTapeStopper tape(16, &rig.system, 0);
    tape.setOption(1, 2);
    tape.setParameter(0, 0.0f); // "Off": one long pass
    tape.setParameter(1, 0.5f);
    tape.activate();
    runSamples(tape, 1000);
    EXPECT_EQ(tape.getReadPosition(), 500.0);
    tape.setParameter(1, 1.0f);
    const uint32_t capacity = tape.getCapacity();
    runSamples(tape, static_cast<int>(capacity) - 500);
    EXPECT_EQ(tape.getReadPosition(), capacity - 1.0);
    EXPECT_EQ(tape.getSpeed(), -0.25);
    EXPECT_FALSE(tape.isRising());
}

TEST(AFTapeStopper, DisplaysFollowTheMode) {
    slot::Rig rig(48000.0f, 120.0);
    AFTapeStopper tape(16, &rig.system, 0);
    EXPECT_EQ(text(tape, 0, 0.0f), "Off");
    EXPECT_EQ(text(tape, 0, 0.44f), "1\\8");
    tape.setOption(0, 1);
    EXPECT_EQ(text(tape, 0, 0.05f), "1\\2P");
    tape.setOption(0, 2);
    EXPECT_EQ(text(tape, 0, 0.5f), "501 ms"); // 2 ms + (2 beats - 2 ms) / 2
    EXPECT_EQ(text(tape, 0, 1.0f), "1.00 s");
    EXPECT_EQ(text(tape, 0, 0.0f), " 2 ms");
    EXPECT_EQ(text(tape, 2, 0.23f), "23.00");
}

TEST(AFTapeStopper, HostileValuesStayInBoundsAndOutputIsDeterministic) {
    slot::Rig rig(96000.0f, 45.0);
    AFTapeStopper tape(16, &rig.system, 0), twin(16, &rig.system, 0);
    tape.setOption(0, 7);
    EXPECT_EQ(tape.getOption(0), 2);
    tape.setOption(1, -1);
    EXPECT_EQ(tape.getOption(1), 0);
    tape.setOption(3, 1);
    EXPECT_EQ(tape.getOption(3), 0);
    const auto input = slot::testSignal(30000);
    const float wild[] = {-3.0f, 9.0f, std::numeric_limits<float>::infinity(),
                          std::numeric_limits<float>::quiet_NaN()};
    for (float w : wild) {
        for (int mode = 0; mode < 3; ++mode) {
            tape.setOption(1, mode);
            tape.activate();
            const auto out = slot::drive(
                tape, input,
                [&](int, auto& p) {
                    p = {w, w, w, w};
                },
                11);
            for (float x : out.right)
                ASSERT_TRUE(std::isfinite(x));
        }
    }
    tape.setOption(0, 0);
    tape.setOption(1, 1);
    for (int i = 0; i < 4; ++i)
        tape.setParameter(i, twin.getParameterValue(i));
    twin.setOption(1, 1);
    tape.activate();
    twin.activate();
    EXPECT_EQ(slot::maxDifference(slot::drive(
                                      tape, input, [](int, auto&) {}, 1),
                                  slot::drive(
                                      twin, input, [](int, auto&) {}, 2)),
              0.0);
}
