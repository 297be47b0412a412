#include "SlotDriver.h"

#include "effects/framework/ParamRamp.h"
#include "effects/framework/TimeValueTables.h"
#include "effects/loop/AFTriggerLooper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace {

// The looper written out plainly, with buffers that really are resized on a tempo change.
struct ReferenceLooper {
    AFSystemInfo& sys;
    std::array<float, 4> p{0.5f, 0.5f, 0.0f, 1.0f};
    std::vector<float> lb, rb;
    double segmentEnd = 0, gridAcc = 0, length = 400, nextLength = 400, cycleClock = 0;
    uint32_t gridTicks = 0, wp = 0, cap = 0;
    int32_t readPos = 0, readStep = 1;
    int syncMode = 0, direction = 0;
    float fadeGain = 1, lastTrigger = 0, latchedSwing = 0.5f;
    ParamRamp amp{&sys};
    bool running = false, secondHalf = false, recording = false, fadingOut = false, retrigger = false;

    explicit ReferenceLooper(AFSystemInfo& s) : sys(s) {
        amp.setTarget(1.0);
        amp.jump();
        tempoChanged(0);
    }
    float getParameterValue(int i) const { return p[static_cast<std::size_t>(i)]; }
    double lengthFor(float v) const {
        const auto& t = TimeValueTables::instance();
        if (syncMode == 0 || syncMode == 3) return t.syncTable.intervalSamplesExact(sys, v);
        if (syncMode == 1) return t.syncDottedTable.intervalSamples(sys, v);
        return (sys.samplesPerBeat - 88.0) * v + 88.0;
    }
    void setParameter(int i, float v) {
        p[static_cast<std::size_t>(i)] = v;
        if (i == 0) nextLength = lengthFor(v);
        if (i == 2 && v != lastTrigger) {
            if (lastTrigger < 0.5f && v > 0.5f) retrigger = true;
            lastTrigger = v;
        }
        if (i == 3) amp.setTarget(v);
    }
    void controlTick() { amp.controlTick(); }
    void tempoChanged(int) {
        cap = static_cast<uint32_t>(sys.samplesPerBeat * 4.0);
        lb.resize(cap);
        rb.resize(cap);
        if (wp >= cap) wp = 0;
    }
    void activate() {
        cycleClock = 0;
        fadeGain = 1;
        fadingOut = false;
        length = nextLength;
        retrigger = recording = running = true;
        secondHalf = false;
        lastTrigger = p[2];
        wp = 0;
        segmentEnd = (length - 44) + length * 0.5 * p[1];
        readPos = 0;
        readStep = 1;
        amp.jump();
        latchedSwing = p[1];
        gridTicks = 0;
        gridAcc = 0;
    }
    void process(float* l, float* r, int n) {
        if (!running) return;
        if (retrigger && recording && wp < length) retrigger = false;
        for (int i = 0; recording && i < n; ++i) {
            lb[wp] = l[i];
            rb[wp] = r[i];
            if (++wp == cap) recording = false;
        }
        const double g32 = sys.samplesPerBeat * 0.03125;
        for (int i = 0; i < n; ++i) {
            const double d = fadingOut ? -1.0 / 44.0 : 1.0 / 44.0;
            const double gain = amp.advance() * fadeGain;
            if (readPos < 0) readPos = 0;
            const float inL = l[i], inR = r[i];
            const bool inside = static_cast<std::size_t>(readPos) < lb.size();
            l[i] = static_cast<float>((inside ? lb[static_cast<std::size_t>(readPos)] : 0.0f) * gain);
            r[i] = static_cast<float>((inside ? rb[static_cast<std::size_t>(readPos)] : 0.0f) * gain);
            fadeGain = static_cast<float>(fadeGain + d);
            if (fadeGain >= 1.0f) fadeGain = 1.0f;
            if (++gridAcc >= g32) {
                ++gridTicks;
                gridAcc -= g32;
            }
            readPos += readStep;
            cycleClock += 1;
            if (cycleClock > segmentEnd) fadingOut = true;
            const double e = segmentEnd + 44;
            if (cycleClock < e) continue;
            const bool c = retrigger;
            if (c) {
                recording = true;
                retrigger = false;
                wp = 0;
                lb[wp] = inL;
                rb[wp++] = inR;
                for (int j = i + 1; j < n; ++j, ++wp) {
                    lb[wp] = l[j];
                    rb[wp] = r[j];
                }
            }
            cycleClock -= e;
            if (nextLength != length) {
                const auto k = static_cast<uint32_t>((nextLength + nextLength) / g32);
                if (syncMode != 3 || (secondHalf && (nextLength <= length || k == 0 || gridTicks % k == 0))) {
                    length = nextLength;
                    cycleClock = gridAcc;
                    secondHalf = true;
                }
            }
            fadingOut = false;
            secondHalf = !secondHalf;
            segmentEnd = length - 44;
            if (secondHalf) {
                segmentEnd -= length * 0.5 * latchedSwing;
                if (segmentEnd < 44) segmentEnd = 44;
            } else {
                latchedSwing = p[1];
                segmentEnd += length * 0.5 * latchedSwing;
            }
            if (direction == 0) {
                readPos = 0;
                readStep = 1;
            } else if (direction == 1) {
                readStep = -1;
                readPos = static_cast<int32_t>(segmentEnd + 43);
            } else {
                readStep = -readStep;
                readPos = readStep == 1 ? 0 : static_cast<int32_t>(segmentEnd + 43);
            }
            if (c) {
                readPos = 0;
                readStep = 1;
            }
        }
    }
};

struct Setup {
    float rate;
    double bpm;
};
constexpr Setup kSetups[] = {{44100.0f, 45.0},  {44100.0f, 120.0}, {48000.0f, 120.0},
                             {48000.0f, 180.0}, {96000.0f, 45.0},  {96000.0f, 180.0}};

std::string text(AFEffect& e, int index, float v) {
    char buffer[kEffectTextSize];
    e.formatParameter(index, v, buffer);
    return buffer;
}

} // namespace

TEST(AFTriggerLooper, LengthsToTheSampleInEveryModeTempoAndRate) {
    for (const auto& s : kSetups) {
        slot::Rig rig(s.rate, s.bpm);
        AFTriggerLooper looper(1, &rig.system, 0);
        const double beat = rig.system.samplesPerBeat;
        EXPECT_EQ(looper.getCapacity(), static_cast<uint32_t>(beat * 4.0));
        looper.setParameter(0, 0.5f); // "1\16"
        EXPECT_DOUBLE_EQ(looper.getNextLength(), beat * 0.25);
        looper.setOption(0, 3);
        looper.setParameter(0, 1.0f); // "1\128"
        EXPECT_DOUBLE_EQ(looper.getNextLength(), beat * 0.03125);
        looper.setOption(0, 1);
        looper.setParameter(0, 0.25f); // row 5 of 21: "1\4T", four times 0.16666666 quarter notes
        EXPECT_DOUBLE_EQ(looper.getNextLength(), std::trunc(beat * (4.0 * 0.16666666)));
        looper.setOption(0, 2);
        looper.setParameter(0, 0.3f);
        EXPECT_DOUBLE_EQ(looper.getNextLength(), (beat - 88.0) * 0.3f + 88.0);
        looper.activate();
        EXPECT_DOUBLE_EQ(looper.getLength(), (beat - 88.0) * 0.3f + 88.0);
    }
}

TEST(AFTriggerLooper, FirstBoundaryAndFadesFallOnTheirSamples) {
    slot::Rig rig(48000.0f, 120.0);
    AFTriggerLooper looper(1, &rig.system, 0);
    looper.setOption(0, 2);
    looper.setParameter(0, 0.0f); // "Free" floor: 88 samples
    looper.setParameter(1, 0.0f);
    looper.activate();
    float left[128], right[128];
    for (int i = 0; i < 128; ++i)
        left[i] = right[i] = static_cast<float>(i + 1);
    looper.process(left, right, 64);
    looper.process(left + 64, right + 64, 64);
    // 45 samples at full gain, 43 fading out by 1/44 each, then the loop restarts at sample 88 fading in.
    EXPECT_FLOAT_EQ(left[44], 45.0f);
    EXPECT_NEAR(left[87], 88.0f * 2.0f / 44.0f, 1e-4);
    EXPECT_NEAR(left[88], 1.0f / 44.0f, 1e-5);
    EXPECT_NEAR(right[89], 2.0f * 2.0f / 44.0f, 1e-5);
}

TEST(AFTriggerLooper, MatchesReferenceAcrossModesDirectionsTriggersAndTempoChanges) {
    const auto input = slot::testSignal(200000);
    for (int mode = 0; mode < 4; ++mode) {
        for (int direction = 0; direction < 3; ++direction) {
            const auto& s = kSetups[static_cast<std::size_t>((mode * 3 + direction) % 6)];
            auto script = [&](auto& fx, AFSystemInfo& sys, int tick, std::array<float, 4>& p) {
                p[0] = tick < 1000 ? 0.5f : (tick < 2000 ? 0.17f : 0.66f);
                p[1] = tick < 1500 ? 0.5f : 0.2f;
                p[2] = (tick % 900) < 450 ? 1.0f : 0.0f;
                p[3] = tick < 700 ? 1.0f : 0.6f;
                if (tick == 1200 || tick == 2600) {
                    sys.setTempo(tick == 1200 ? s.bpm * 1.5 : s.bpm * 0.7);
                    fx.tempoChanged(1);
                }
            };
            slot::Rig a(s.rate, s.bpm), b(s.rate, s.bpm);
            AFTriggerLooper looper(1, &a.system, 0);
            ReferenceLooper reference(b.system);
            looper.setOption(0, mode);
            looper.setOption(3, direction);
            reference.syncMode = mode;
            reference.direction = direction;
            looper.setParameter(0, 0.5f);
            reference.setParameter(0, 0.5f);
            looper.activate();
            reference.activate();
            const auto got = slot::drive(
                looper, input, [&](int t, auto& p) { script(looper, a.system, t, p); }, 77u + mode);
            const auto want = slot::drive(
                reference, input, [&](int t, auto& p) { script(reference, b.system, t, p); }, 77u + mode);
            EXPECT_EQ(slot::maxDifference(got, want), 0.0) << "mode " << mode << " direction " << direction;
            EXPECT_EQ(looper.getLength(), reference.length);
        }
    }
}

TEST(AFTriggerLooper, SteadyTriggerFiresOnceAndHalfNeverFires) {
    slot::Rig rig(44100.0f, 180.0);
    AFTriggerLooper looper(1, &rig.system, 0);
    looper.activate();
    const auto input = slot::testSignal(300000); // the first bar records until sample 58800
    bool wasRecording = false;
    std::vector<int> starts;
    slot::drive(looper, input, [&](int tick, auto& p) {
        // 0.5 is no crossing, nor is 0.5 to 1.0; 0.2 to 1.0 is, and 1.0 held afterwards is not.
        p[2] = tick < 1200 ? 0.5f : (tick < 2000 || tick >= 2100 ? 1.0f : 0.2f);
        const bool now = looper.isRecording();
        if (now && !wasRecording) starts.push_back(tick);
        wasRecording = now;
    });
    ASSERT_EQ(starts.size(), 2u);
    EXPECT_EQ(starts[0], 0);
    EXPECT_GE(starts[1], 2100);
    EXPECT_LE(starts[1], 2100 + 3675 / 64 + 2); // at the next loop boundary
}

TEST(AFTriggerLooper, SyncXWaitsForTheSecondHalfAndTheGrid) {
    slot::Rig rig(48000.0f, 120.0);
    AFTriggerLooper looper(1, &rig.system, 0);
    looper.setOption(0, 3);
    looper.setParameter(0, 0.5f); // 1\16: 6000 samples
    looper.setParameter(1, 0.0f);
    looper.activate();
    looper.setParameter(0, 0.34f); // 1\8: 12000 samples, so k = 32 grid ticks of 750
    std::vector<float> l(64), r(64);
    int adoptedAt = -1;
    for (int n = 0; n < 600 && adoptedAt < 0; ++n) {
        looper.process(l.data(), r.data(), 64);
        if (looper.getLength() == 12000.0) adoptedAt = (n + 1) * 64;
    }
    // Boundaries fall every 6000 samples. At 12000 the second half ends but 16 grid ticks are no multiple of
    // 32; 18000 ends a first half; 24000 ends a second half on tick 32, and the longer length starts there.
    ASSERT_GT(adoptedAt, 0);
    EXPECT_EQ(adoptedAt / 64 - 1, (24000 - 1) / 64);
    looper.setParameter(0, 0.5f); // shorter again: waits only for the second half
    for (int n = 0; n < 400 && looper.getLength() != 6000.0; ++n)
        looper.process(l.data(), r.data(), 64);
    EXPECT_EQ(looper.getLength(), 6000.0);
}

TEST(AFTriggerLooper, DisplaysFollowTheMode) {
    slot::Rig rig(48000.0f, 120.0);
    AFTriggerLooper looper(1, &rig.system, 0);
    EXPECT_EQ(text(looper, 0, 0.5f), "1\\16");
    looper.setOption(0, 1);
    EXPECT_EQ(text(looper, 0, 0.0f), "1\\2P");
    looper.setOption(0, 3);
    EXPECT_EQ(text(looper, 0, 1.0f), "1\\128");
    looper.setOption(0, 2);
    EXPECT_EQ(text(looper, 0, 1.0f), "500 ms");
    rig.system.setTempo(45.0);
    EXPECT_EQ(text(looper, 0, 1.0f), "1.33 s");
    EXPECT_EQ(text(looper, 1, 0.5f), "50.00");
    EXPECT_EQ(text(looper, 3, 1.0f), "100.00");
    EXPECT_EQ(text(looper, 2, 0.5f), "Off");
    EXPECT_EQ(text(looper, 2, 0.51f), "On");
}

TEST(AFTriggerLooper, HostileOptionsAndParametersStayInBounds) {
    slot::Rig rig(96000.0f, 45.0);
    AFTriggerLooper looper(1, &rig.system, 0);
    looper.setOption(0, 99);
    EXPECT_EQ(looper.getOption(0), 3);
    looper.setOption(3, -4);
    EXPECT_EQ(looper.getOption(3), 0);
    looper.setOption(1, 2);
    EXPECT_EQ(looper.getOption(1), 0);
    looper.setOption(3, 2);
    looper.activate();
    const float wild[] = {-7.0f, 40.0f, std::numeric_limits<float>::quiet_NaN(),
                          std::numeric_limits<float>::infinity(), 1e30f};
    auto input = slot::testSignal(20000);
    for (float w : wild) {
        for (int mode = 0; mode < 4; ++mode) {
            looper.setOption(0, mode);
            const auto out = slot::drive(looper, input, [&](int tick, auto& p) {
                p = {w, tick % 2 ? w : -w, w, 1.0f};
            });
            for (float x : out.left)
                ASSERT_TRUE(std::isfinite(x));
        }
    }
}

TEST(AFTriggerLooper, DeterministicAndSilentUntilActivated) {
    slot::Rig rig(48000.0f, 133.0);
    const auto input = slot::testSignal(30000);
    AFTriggerLooper idle(1, &rig.system, 0);
    const auto untouched = slot::drive(idle, input, [](int, auto&) {});
    EXPECT_EQ(slot::maxDifference(untouched, input), 0.0);
    AFTriggerLooper a(1, &rig.system, 0), b(1, &rig.system, 0);
    a.activate();
    b.activate();
    EXPECT_EQ(slot::maxDifference(slot::drive(
                                      a, input, [](int, auto&) {}, 5),
                                  slot::drive(
                                      b, input, [](int, auto&) {}, 9)),
              0.0);
}
