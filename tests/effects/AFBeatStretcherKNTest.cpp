#include "SlotDriver.h"

#include "effects/loop/AFBeatStretcherKN.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <numbers>
#include <string>

namespace {

// The granulizer written out plainly: buffers really resized on a tempo change, every voice rendered into the
// scratch pair with the end test on each sample.
struct ReferenceGranulizer {
    struct Voice {
        const float* window;
        double inverse = 1, offset = 0, position = 0, step = 1;
        uint32_t length = 0;
        bool active = false;
    };
    AFSystemInfo& sys;
    std::array<float, 4> p{0.5f, 0.7f, 0.2f, 0.5f};
    std::array<Voice, 10> voices{};
    std::vector<float> lb, rb;
    float sl[64], sr[64];
    int32_t until = 0, index = 0, cap = 0;
    double ratio = 1, play = 0, distance = 0, amount = 0.5;
    uint32_t grainSize = 0, margin = 0, wp = 0;
    int recording = 0, alternate = 0, positionMode = 0, direction = 0;
    float lastPosition = 0;

    explicit ReferenceGranulizer(AFSystemInfo& s) : sys(s) {
        for (int i = 0; i < 4; ++i)
            setParameter(i, p[static_cast<std::size_t>(i)]);
        cap = static_cast<int32_t>(std::lround(sys.samplesPerBeat * 8.0));
        margin = static_cast<uint32_t>(std::lround(sys.sampleRate / 44100.0 * 5512.0));
        lb.resize(static_cast<std::size_t>(cap) + margin);
        rb.resize(lb.size());
        setWindow(0);
    }
    void setWindow(int w) {
        for (auto& v : voices)
            v.window = AFBeatStretcherKN::windowTables()[static_cast<std::size_t>(w)].data();
    }
    float getParameterValue(int i) const { return p[static_cast<std::size_t>(i)]; }
    void setParameter(int i, float v) {
        p[static_cast<std::size_t>(i)] = v;
        const double rate = sys.sampleRate;
        if (i == 0) amount = v;
        if (i == 1) grainSize = static_cast<uint32_t>(std::round(rate * 0.005 + rate * 0.095 * v));
        if (i == 2) distance = rate * 0.01 + rate * 0.09 * v;
        if (i == 3) ratio = v <= 0.5 ? v + 0.5 : 2.0 * v;
    }
    void controlTick() {}
    void tempoChanged(int) {
        const auto c = static_cast<int32_t>(std::lround(sys.samplesPerBeat * 8.0));
        if (c == cap) return;
        cap = c;
        margin = static_cast<uint32_t>(std::lround(sys.sampleRate / 44100.0 * 5512.0));
        lb.resize(static_cast<std::size_t>(cap) + margin);
        rb.resize(lb.size());
        setWindow(2);
    }
    void activate() {
        play = 0;
        recording = 1;
        wp = 0;
        for (auto& v : voices)
            v.active = false;
        std::fill(lb.begin(), lb.end(), 0.0f);
        std::fill(rb.begin(), rb.end(), 0.0f);
        until = static_cast<int32_t>(std::lround(distance));
        index = 0;
        alternate = 0;
    }
    float at(const std::vector<float>& b, uint32_t i) const { return i < b.size() ? b[i] : 0.0f; }
    void render(Voice& v, float* l, float* r, int n) {
        int j = 0;
        for (; j < n; ++j) {
            const double pos = v.position + v.offset;
            const auto i = static_cast<uint32_t>(pos);
            const auto f = static_cast<float>(pos - i);
            const double w = (v.position - 0.0) * (v.inverse * 255.0);
            const auto wi = static_cast<uint32_t>(w);
            const float g = v.window[wi] + (v.window[wi + 1] - v.window[wi]) * static_cast<float>(w - wi);
            l[j] = (at(lb, i) + (at(lb, i + 1) - at(lb, i)) * f) * g;
            r[j] = (at(rb, i) + (at(rb, i + 1) - at(rb, i)) * f) * g;
            v.position += v.step;
            if (v.position >= v.length || v.position < 0) {
                v.active = false;
                ++j;
                break;
            }
        }
        for (; j < n; ++j)
            l[j] = r[j] = 0.0f;
    }
    void process(float* l, float* r, int n) {
        for (int i = 0; recording && i < n; ++i) {
            lb[wp] = l[i];
            rb[wp] = r[i];
            if (++wp == static_cast<uint32_t>(cap) - 1 + margin) recording = 0;
        }
        until -= n;
        if (until < 0) {
            const bool backward = direction == 2 ? alternate != 0 : direction != 0;
            double start = play, need = 0, available = 0;
            bool test = false;
            if (ratio <= 1.0) {
                test = backward && recording;
                need = grainSize;
                available = wp;
            } else if (recording) {
                test = true;
                need = std::round(grainSize * ratio);
                available = static_cast<double>(wp) - n;
            }
            bool skip = false;
            if (test && !(need < available - play)) {
                if (play <= need)
                    skip = true;
                else
                    start = play - need;
            }
            if (!skip && start >= 0) {
                Voice& v = voices[static_cast<std::size_t>(index)];
                if (!v.active) {
                    v.inverse = 1.0 / grainSize;
                    v.length = grainSize;
                    v.offset = start;
                    v.step = backward ? -ratio : ratio;
                    v.position = backward ? grainSize - 1.0 : 0.0;
                    v.active = true;
                }
                index = (index + 1) % 10;
                until = static_cast<int32_t>(std::lround(distance));
                alternate ^= 1;
            }
        }
        bool first = true;
        for (auto& v : voices) {
            if (!v.active) continue;
            if (first) {
                render(v, l, r, n);
                first = false;
                continue;
            }
            render(v, sl, sr, n);
            for (int j = 0; j < n; ++j) {
                l[j] += sl[j];
                r[j] += sr[j];
            }
        }
        if (first) {
            std::fill(l, l + n, 0.0f);
            std::fill(r, r + n, 0.0f);
        }
        if (positionMode == 1) {
            if (amount != lastPosition) {
                play = std::min<double>(wp, cap) * amount;
                lastPosition = static_cast<float>(amount);
            }
        } else {
            play += (1 - amount) * n;
        }
        if (play >= cap) play -= cap;
    }
};

std::string text(AFEffect& e, int index, float v) {
    char buffer[kEffectTextSize];
    e.formatParameter(index, v, buffer);
    return buffer;
}

void runBlocks(AFBeatStretcherKN& g, int blocks) {
    std::vector<float> l(64, 0.25f), r(64, -0.25f);
    for (int b = 0; b < blocks; ++b) {
        g.controlTick();
        g.process(l.data(), r.data(), 64);
    }
}

} // namespace

TEST(AFBeatStretcherKN, MatchesReferenceAcrossWindowsDirectionsPitchesAndTempoChanges) {
    const auto input = slot::testSignal(150000);
    struct Case {
        float rate;
        double bpm;
        int mode, window, direction;
        std::array<float, 4> p;
    };
    const Case cases[] = {
        {48000.0f, 120.0, 0, 0, 0, {0.5f, 0.7f, 0.2f, 0.5f}},
        {44100.0f, 180.0, 0, 1, 1, {0.2f, 0.4f, 0.0f, 0.9f}},
        {96000.0f, 45.0, 0, 3, 2, {1.0f, 1.0f, 0.1f, 0.2f}},
        {48000.0f, 180.0, 1, 4, 2, {0.3f, 0.6f, 0.05f, 1.0f}},
        {44100.0f, 120.0, 1, 2, 1, {0.8f, 0.2f, 0.5f, 0.7f}},
        {48000.0f, 45.0, 0, 1, 0, {0.0f, 0.9f, 0.0f, 0.75f}},
    };
    for (const auto& c : cases) {
        slot::Rig a(c.rate, c.bpm), b(c.rate, c.bpm);
        AFBeatStretcherKN granulizer(4, &a.system, 0);
        ReferenceGranulizer reference(b.system);
        granulizer.setOption(0, c.mode);
        granulizer.setOption(1, c.window);
        granulizer.setOption(2, c.direction);
        reference.positionMode = c.mode;
        reference.setWindow(c.window);
        reference.direction = c.direction;
        auto script = [&](auto& fx, AFSystemInfo& sys, int tick, std::array<float, 4>& p) {
            p = c.p;
            if (tick > 1100) p[0] = 1.0f - c.p[0];
            if (tick > 1600) p[3] = 1.0f - c.p[3];
            if (tick == 800 || tick == 1500) {
                sys.setTempo(tick == 800 ? c.bpm * 1.3 : c.bpm * 0.9);
                fx.tempoChanged(1);
            }
        };
        for (int i = 0; i < 4; ++i) {
            granulizer.setParameter(i, c.p[static_cast<std::size_t>(i)]);
            reference.setParameter(i, c.p[static_cast<std::size_t>(i)]);
        }
        granulizer.activate();
        reference.activate();
        const auto got =
            slot::drive(granulizer, input, [&](int t, auto& p) { script(granulizer, a.system, t, p); });
        const auto want =
            slot::drive(reference, input, [&](int t, auto& p) { script(reference, b.system, t, p); });
        // Window gains may be stepped rather than looked up, a few ulps apart; a wrong grain start or window
        // is far larger.
        EXPECT_LT(slot::maxDifference(got, want), 1e-5) << c.rate << " " << c.bpm << " window " << c.window;
    }
}

TEST(AFBeatStretcherKN, SizesFollowTempoAndRate) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (double bpm : {45.0, 120.0, 180.0}) {
            slot::Rig rig(rate, bpm);
            AFBeatStretcherKN g(4, &rig.system, 0);
            EXPECT_EQ(g.getCapacity(), std::lround(rig.system.samplesPerBeat * 8.0));
            EXPECT_EQ(g.getMargin(), static_cast<uint32_t>(std::lround(rate / 44100.0 * 5512.0)));
            EXPECT_EQ(g.getGrainSize(),
                      static_cast<uint32_t>(std::round(rate * 0.005 + rate * 0.095 * 0.7f)));
            EXPECT_DOUBLE_EQ(g.getDistance(), rate * 0.01 + rate * 0.09 * 0.2f);
            EXPECT_EQ(g.getPitchRatio(), 1.0);
        }
    }
    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    g.setParameter(3, 0.0f);
    EXPECT_EQ(g.getPitchRatio(), 0.5);
    g.setParameter(3, 1.0f);
    EXPECT_EQ(g.getPitchRatio(), 2.0);
}

TEST(AFBeatStretcherKN, FirstGrainStartsWhenTheDistanceHasPassed) {
    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    g.activate();
    EXPECT_EQ(g.getUntilNextGrain(), 1344); // 28 ms
    runBlocks(g, 21);
    EXPECT_EQ(g.activeVoices(), 0); // 1344 - 21 * 64 = 0: not yet
    runBlocks(g, 1);
    EXPECT_EQ(g.activeVoices(), 1);
    EXPECT_EQ(g.getUntilNextGrain(), 1344);
}

TEST(AFBeatStretcherKN, TenVoicesAtMostAndABusyVoiceRefusesItsStart) {
    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    g.setParameter(1, 1.0f); // 4800 samples
    g.setParameter(2, 0.0f); // a start every 480 samples, taken at block granularity
    g.setParameter(3, 0.0f); // half speed: each grain sounds 9600 samples
    g.activate();
    int most = 0;
    double firstOffset = -1.0;
    for (int b = 0; b < 200; ++b) {
        runBlocks(g, 1);
        most = std::max(most, g.activeVoices());
        if (firstOffset < 0.0 && g.voiceActive(0)) firstOffset = g.voiceOffset(0);
        if (firstOffset >= 0.0 && !g.voiceActive(0)) break;
        // The eleventh start, near block 87, finds voice 0 still sounding and is dropped.
        if (firstOffset >= 0.0) {
            EXPECT_EQ(g.voiceOffset(0), firstOffset) << b;
        }
    }
    EXPECT_EQ(most, 10);
    EXPECT_EQ(firstOffset, 7 * 32.0); // started in block 8; Amount 0.5 moves 32 samples a block
}

TEST(AFBeatStretcherKN, HighPitchWaitsForEnoughRecording) {
    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    g.setParameter(0, 0.0f); // the play position runs with the recording
    g.setParameter(3, 1.0f);
    g.activate();
    for (int b = 0; b < 300; ++b) {
        runBlocks(g, 1);
        for (int v = 0; v < AFBeatStretcherKN::kVoices; ++v) {
            if (!g.voiceActive(v)) continue;
            // A grain at double speed reads 2 x grain size samples past its offset: all already recorded.
            EXPECT_LE(g.voiceOffset(v) + 2.0 * g.getGrainSize(), g.getWritePosition()) << b;
        }
    }
}

TEST(AFBeatStretcherKN, WindowTablesAndTheSineAfterATempoChange) {
    const auto& t = AFBeatStretcherKN::windowTables();
    EXPECT_EQ(t[0][1], 1.0f / 128.0f);
    EXPECT_EQ(t[0][127], 127.0f / 128.0f);
    EXPECT_EQ(t[0][128], 127.0f / 128.0f);
    EXPECT_EQ(t[0][255], 0.0f);
    EXPECT_EQ(t[1][0], 0.0f);
    EXPECT_NEAR(t[1][255], 0.0f, 1e-7);
    EXPECT_NEAR(t[1][100], (1.0 - std::cos(2.0 * std::numbers::pi * 100.0 / 255.0)) / 2.0, 1e-7);
    EXPECT_NEAR(t[2][60], std::sin(std::numbers::pi * 60.0 / 255.0), 1e-7);
    EXPECT_EQ(t[3][12], 0.5f);
    EXPECT_EQ(t[3][24], 1.0f);
    EXPECT_EQ(t[3][243], 0.5f);
    EXPECT_EQ(t[4][10], t[1][20]);
    EXPECT_EQ(t[4][64], 1.0f);
    EXPECT_EQ(t[4][245], t[1][20]);

    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    g.setOption(1, 3);
    EXPECT_EQ(g.voiceWindow(7), 3);
    rig.system.setTempo(120.0);
    rig.listeners.notifyAll(); // same capacity: the window stays
    EXPECT_EQ(g.voiceWindow(7), 3);
    rig.system.setTempo(97.0);
    rig.listeners.notifyAll();
    EXPECT_EQ(g.voiceWindow(0), 2);
    EXPECT_EQ(g.getOption(1), 3);
    g.setOption(1, 1);
    EXPECT_EQ(g.voiceWindow(9), 1);
}

TEST(AFBeatStretcherKN, DisplaysAndNames) {
    slot::Rig rig(48000.0f, 120.0);
    AFBeatStretcherKN g(4, &rig.system, 0);
    EXPECT_STREQ(g.getName(), "Stretcher");
    EXPECT_EQ(text(g, 0, 0.5f), "50.00");
    EXPECT_EQ(text(g, 1, 0.0f), "5 ms");
    EXPECT_EQ(text(g, 1, 1.0f), "100 ms");
    EXPECT_EQ(text(g, 2, 0.2f), "28 ms");
    EXPECT_EQ(text(g, 3, 0.5f), "0");
    EXPECT_EQ(text(g, 3, 1.0f), "12");
    EXPECT_EQ(text(g, 3, 0.0f), "-12");
    EXPECT_EQ(text(g, 4, 0.5f), "unknown parameter called in AFBeatStretcherKN");
    char name[kEffectTextSize];
    g.setOption(0, 1);
    g.getParameterName(0, name);
    EXPECT_STREQ(name, "Position");
    g.setOption(0, 0);
    g.getParameterName(0, name);
    EXPECT_STREQ(name, "Amount");
}

TEST(AFBeatStretcherKN, HostileValuesStayInBoundsAndOutputIsDeterministic) {
    slot::Rig rig(44100.0f, 45.0);
    AFBeatStretcherKN g(4, &rig.system, 0), twin(4, &rig.system, 0);
    g.setOption(1, 42);
    EXPECT_EQ(g.getOption(1), 4);
    g.setOption(2, -3);
    EXPECT_EQ(g.getOption(2), 0);
    g.setOption(3, 1);
    EXPECT_EQ(g.getOption(3), 0);
    const auto input = slot::testSignal(40000);
    const float wild[] = {-5.0f, 7.0f, std::numeric_limits<float>::quiet_NaN(),
                          -std::numeric_limits<float>::infinity()};
    for (float w : wild) {
        for (int mode = 0; mode < 2; ++mode) {
            g.setOption(0, mode);
            g.activate();
            const auto out = slot::drive(
                g, input,
                [&](int, auto& p) {
                    p = {w, w, w, w};
                },
                4);
            for (float x : out.left)
                ASSERT_TRUE(std::isfinite(x));
        }
    }
    g.setOption(0, 0);
    g.setOption(1, 0);
    g.setOption(2, 0);
    for (int i = 0; i < 4; ++i)
        g.setParameter(i, twin.getParameterValue(i));
    g.activate();
    twin.activate();
    // Grains start at block granularity, so equal output needs equal cuts.
    const auto first = slot::drive(
        g, input, [](int, auto&) {}, 8);
    const auto second = slot::drive(
        twin, input, [](int, auto&) {}, 8);
    EXPECT_EQ(slot::maxDifference(first, second), 0.0);
}
