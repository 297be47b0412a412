#include "DelaySlotDriver.h"

#include "effects/delay/AFReverb3.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace {

// A plain Schroeder reverb written out from its equations, one channel pair, for comparison.
class ReferenceVerb {
public:
    ReferenceVerb(float size, float damping, double startWidth, double corner)
        : width(startWidth), f(corner) {
        feedback = size * 0.28f + 0.7f;
        damp = damping * 0.4f;
        const int combLengths[2][8] = {{1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617},
                                       {1139, 1211, 1300, 1379, 1445, 1514, 1580, 1640}};
        const int allpassLengths[2][4] = {{556, 441, 341, 225}, {579, 464, 364, 248}};
        for (int ch = 0; ch < 2; ++ch) {
            for (int k = 0; k < 8; ++k)
                combs[ch][k].buffer.assign(static_cast<std::size_t>(combLengths[ch][k]), 0.0f);
            for (int k = 0; k < 4; ++k) {
                allpasses[ch][k].buffer.assign(static_cast<std::size_t>(allpassLengths[ch][k]), 0.0f);
            }
        }
    }

    void process(float& left, float& right) {
        const float x = (left + right) * 0.015f + 1e-10f;
        float out[2];
        for (int ch = 0; ch < 2; ++ch) {
            float sum = 0.0f;
            for (Comb& c : combs[ch]) {
                c.index = (c.index + 1) % static_cast<int>(c.buffer.size());
                const float o = c.buffer[static_cast<std::size_t>(c.index)];
                c.store = o * (1.0f - damp) + c.store * damp;
                c.buffer[static_cast<std::size_t>(c.index)] = c.store * feedback + x;
                sum += o;
            }
            float s = sum;
            for (Allpass& a : allpasses[ch]) {
                a.index = (a.index + 1) % static_cast<int>(a.buffer.size());
                const float o = a.buffer[static_cast<std::size_t>(a.index)];
                a.buffer[static_cast<std::size_t>(a.index)] = o * 0.5f + s;
                s = o - s;
            }
            out[ch] = s;
        }
        const double wet1 = (width + 1.0) * 0.5 * 1.05;
        const double wet2 = (1.0 - width) * 0.5 * 1.05;
        const double yL = wet1 * out[0] + wet2 * out[1];
        const double yR = wet2 * out[0] + wet1 * out[1];
        left = static_cast<float>(highPass(0, yL));
        right = static_cast<float>(highPass(1, yR));
    }

    double width;

private:
    struct Comb {
        std::vector<float> buffer;
        int index = 0;
        float store = 0.0f;
    };
    struct Allpass {
        std::vector<float> buffer;
        int index = 0;
    };

    double highPass(int ch, double y) {
        const double e = 1.000000013351432e-10;
        high[ch] = y - 0.89 * band[ch] - low[ch] + e;
        band[ch] = high[ch] * f + band[ch] + e;
        low[ch] = band[ch] * f - e + low[ch];
        return high[ch];
    }

    Comb combs[2][8];
    Allpass allpasses[2][4];
    float feedback, damp;
    double f;
    double low[2] = {}, high[2] = {}, band[2] = {};
};

struct AFReverb3Fixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override {
        system.setControlInterval(64);
        system.setSampleRate(48000.0f);
    }

    // Parameters 4 and 5 are set once; the slot only ever pushes the first four. A negative corner keeps the
    // high-pass at its start setting.
    std::unique_ptr<AFReverb3> make(float size, float damp, float width, float freeze, float corner = -1.0f) {
        auto fx = std::make_unique<AFReverb3>(26, &system, 0);
        if (corner >= 0.0f) fx->setParameter(4, corner);
        fx->setParameter(5, freeze);
        const float values[] = {size, damp, width, freeze};
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, values[i]);
        fx->activate();
        return fx;
    }

    static DelaySlotDriver driverFor(AFReverb3& fx, float size, float damp, float width, float freeze) {
        DelaySlotDriver driver(fx);
        driver.values = {size, damp, width, freeze};
        return driver;
    }
};

std::vector<float> noise(std::size_t count, uint32_t seed) {
    std::vector<float> v(count);
    for (float& s : v) {
        seed = seed * 1664525u + 1013904223u;
        s = static_cast<float>(static_cast<int32_t>(seed)) * (0.5f / 2147483648.0f);
    }
    return v;
}

double rms(const std::vector<float>& v, std::size_t from, std::size_t count) {
    double sum = 0.0;
    for (std::size_t n = from; n < from + count; ++n)
        sum += static_cast<double>(v[n]) * v[n];
    return std::sqrt(sum / static_cast<double>(count));
}

TEST_F(AFReverb3Fixture, ImpulseResponseMatchesTheCombAllpassEquations) {
    struct Case {
        float size, damp, width, corner;
    };
    for (const Case c : {Case{0.5f, 0.5f, 0.5f, -1.0f}, Case{0.1f, 0.0f, 0.3f, 0.0f},
                         Case{0.9f, 0.2f, 1.0f, 0.55f}, Case{0.1f, 1.0f, 0.0f, 0.3f}}) {
        auto fx = make(c.size, c.damp, c.width, 0.0f, c.corner);
        const double corner = static_cast<double>(c.corner) * c.corner * c.corner * c.corner;
        ReferenceVerb reference(c.size, c.damp, c.width, c.corner < 0.0f ? 0.1 : corner);
        const std::size_t count = 12000;
        std::vector<float> left(count, 0.0f);
        std::vector<float> right(count, 0.0f);
        left[0] = 1.0f;
        right[3] = -0.5f;
        std::vector<float> wantL = left;
        std::vector<float> wantR = right;
        auto driver = driverFor(*fx, c.size, c.damp, c.width, 0.0f);
        driver.run(left, right);
        for (std::size_t n = 0; n < count; ++n)
            reference.process(wantL[n], wantR[n]);
        double peak = 0.0;
        for (std::size_t n = 0; n < count; ++n) {
            ASSERT_NEAR(left[n], wantL[n], 1e-6 * std::fabs(wantL[n]) + 1e-9) << n << " size " << c.size;
            ASSERT_NEAR(right[n], wantR[n], 1e-6 * std::fabs(wantR[n]) + 1e-9) << n << " size " << c.size;
            peak = std::max(peak, std::fabs(static_cast<double>(left[n])));
        }
        EXPECT_GT(peak, 1e-3);
    }
}

TEST_F(AFReverb3Fixture, WidthRampsAcrossOneTickAndLandsWithoutFurtherCalls) {
    auto fx = make(0.6f, 0.3f, 1.0f, 0.0f);
    ReferenceVerb reference(0.6f, 0.3f, 1.0, 0.1);
    auto left = noise(2560, 11);
    auto right = noise(2560, 12);
    auto wantL = left;
    auto wantR = right;
    // Once the tail sounds, the width is set once; the ticks after it come with no parameter calls, as for a
    // resting knob.
    double increment = 0.0;
    for (int tick = 0; tick < 40; ++tick) {
        if (tick == 30) fx->setParameter(2, 0.2f);
        fx->controlTick();
        const double target = tick < 30 ? 1.0 : static_cast<double>(0.2f);
        increment = (target - reference.width) / 64.0;
        if (increment > -1e-07 && increment < 1e-08) {
            reference.width = target;
            increment = 0.0;
        }
        fx->process(left.data() + tick * 64, right.data() + tick * 64, 64);
        for (int n = tick * 64; n < tick * 64 + 64; ++n) {
            reference.width += increment;
            reference.process(wantL[static_cast<std::size_t>(n)], wantR[static_cast<std::size_t>(n)]);
        }
    }
    EXPECT_EQ(reference.width, static_cast<double>(0.2f));
    EXPECT_GT(std::fabs(left[1950] - right[1950]), 1e-4f);
    for (std::size_t n = 0; n < left.size(); ++n) {
        ASSERT_NEAR(left[n], wantL[n], 1e-6 * std::fabs(wantL[n]) + 1e-9) << n;
        ASSERT_NEAR(right[n], wantR[n], 1e-6 * std::fabs(wantR[n]) + 1e-9) << n;
    }
}

TEST_F(AFReverb3Fixture, FreezeHoldsItsLevelAndIgnoresTheInput) {
    std::vector<std::vector<float>> frozenOutputs;
    for (uint32_t seed : {7u, 99u}) {
        auto fx = make(0.5f, 0.5f, 1.0f, 0.0f);
        auto driver = driverFor(*fx, 0.5f, 0.5f, 1.0f, 0.0f);
        auto left = noise(24000, 1);
        auto right = noise(24000, 2);
        driver.run(left, right);
        driver.values[3] = 1.0f;
        left = noise(240000, seed);
        right = noise(240000, seed + 1);
        driver.run(left, right);
        // One-second windows: the loops beat against each other, but the level neither grows nor decays.
        const double early = rms(left, 4800, 48000);
        const double late = rms(left, 190000, 48000);
        EXPECT_GT(early, 1e-3);
        EXPECT_NEAR(late / early, 1.0, 0.02);
        frozenOutputs.push_back(left);

        // Released, the tail decays from the held state.
        driver.values[3] = 0.0f;
        std::vector<float> quietL(96000, 0.0f);
        std::vector<float> quietR(96000, 0.0f);
        driver.run(quietL, quietR);
        EXPECT_LT(rms(quietL, 86400, 9600), early * 0.01);
    }
    EXPECT_EQ(frozenOutputs[0], frozenOutputs[1]);
}

TEST_F(AFReverb3Fixture, WidthZeroGivesBothOutputsTheSameMix) {
    auto fx = make(0.7f, 0.3f, 0.0f, 0.0f);
    auto driver = driverFor(*fx, 0.7f, 0.3f, 0.0f, 0.0f);
    auto left = noise(5000, 3);
    std::vector<float> right(5000, 0.0f);
    driver.run(left, right);
    EXPECT_EQ(left, right);
    EXPECT_GT(rms(left, 2000, 3000), 1e-4);
}

TEST_F(AFReverb3Fixture, ResetAndDeactivateSilenceTheTail) {
    auto fx = make(0.9f, 0.1f, 1.0f, 0.0f);
    auto driver = driverFor(*fx, 0.9f, 0.1f, 1.0f, 0.0f);
    auto left = noise(4000, 4);
    auto right = noise(4000, 5);
    driver.run(left, right);
    fx->deactivate();
    std::vector<float> quietL(4000, 0.0f);
    std::vector<float> quietR(4000, 0.0f);
    driver.run(quietL, quietR);
    for (float v : quietL)
        ASSERT_LT(std::fabs(v), 1e-8f);
}

TEST_F(AFReverb3Fixture, SixParametersNamesDefaultsAndDisplays) {
    AFReverb3 fx(26, &system, 0);
    EXPECT_EQ(fx.getParameterCount(), 6);
    EXPECT_STREQ(fx.getName(), "Reverb");
    EXPECT_TRUE(fx.hasFlag());
    const char* names[] = {"Size", "Damp", "Width", "Freeze", "no name set", "no name set"};
    const float defaults[] = {0.5f, 0.5f, 0.5f, 1.0f, 0.0f, 1.0f};
    char text[kEffectTextSize];
    for (int i = 0; i < 6; ++i) {
        fx.getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fx.getParameterValue(i), defaults[i]);
    }
    fx.formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    fx.formatParameter(4, 0.123f, text);
    EXPECT_STREQ(text, "12.30");
    fx.formatParameter(3, 0.51f, text);
    EXPECT_STREQ(text, "On");
    fx.formatParameter(3, 0.5f, text);
    EXPECT_STREQ(text, "Off");
    fx.formatParameter(5, 1.0f, text);
    EXPECT_STREQ(text, "");
    AFWordList words;
    for (int i = 0; i < 4; ++i)
        fx.getOptionList(i, words);
    EXPECT_TRUE(words.empty());
}

TEST_F(AFReverb3Fixture, HostileParametersChangeNothingOrStayBounded) {
    auto reference = make(0.5f, 0.5f, 0.5f, 0.0f, 0.2f);
    auto fx = make(0.5f, 0.5f, 0.5f, 0.0f, 0.2f);
    fx->setParameter(6, 1.0f);
    fx->setParameter(-1, 1.0f);
    fx->setParameter(4, 1.5f); // a corner above 1 is refused
    auto a = noise(3000, 6);
    auto b = noise(3000, 7);
    auto c = a;
    auto d = b;
    driverFor(*reference, 0.5f, 0.5f, 0.5f, 0.0f).run(a, b);
    driverFor(*fx, 0.5f, 0.5f, 0.5f, 0.0f).run(c, d);
    EXPECT_EQ(a, c);
    EXPECT_EQ(b, d);

    auto wild = make(1e30f, -1e30f, std::nanf(""), 0.0f);
    auto l = noise(48000, 8);
    auto r = noise(48000, 9);
    driverFor(*wild, 1e30f, -1e30f, std::nanf(""), 0.0f).run(l, r);
    for (float v : l)
        ASSERT_TRUE(std::isfinite(v) && std::fabs(v) < 10.0f);
}

} // namespace
