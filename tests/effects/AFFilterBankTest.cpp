#include "effects/filter/AFFilterBank.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Settings {
    float delay = 0.5f, frequency = 0.5f, resonance = 0.5f, bands = 0.5f;
    int timeMode = 0, spacing = 0, pan = 0, skip = 0;
};

// The bank computed straight from its equations, in double.
struct ReferenceBank {
    static constexpr double kCurve[9][4] = {
        {0.01, 0.1, 0.2, 0.3},  {0.01, 0.2, 0.3, 0.6},  {0.1, 0.15, 0.35, 0.6},
        {0.15, 0.25, 0.4, 0.6}, {0.6, 0.01, 0.6, 0.05}, {0.55, 0.35, 0.2, 0.11},
        {0.5, 0.3, 0.2, 0.01},  {0.4, 0.2, 0.1, 0.01},  {0.1, 0.5, 0.1, 0.01}};

    double f[32] = {}, gate[32] = {}, delay[32] = {}, panL[32], panR[32];
    double damp, gain, length;
    double low[2][32] = {}, high[2][32] = {}, band[2][32] = {};
    std::vector<double> line[2];

    static double advance(int spacing, int i, double step) {
        switch (spacing) {
        case 1:
            return i < 9 ? step : step * 0.5;
        case 2:
            return i % 2 == 0 ? step : step * 0.5;
        case 3:
            return i % 3 == 0 ? step : step * 0.5;
        case 4:
            return i % 3 == 0 ? step : step * 0.33333334;
        case 5:
            return i < 9 ? step : step * 0.33333334;
        case 6:
            return i < 9 ? step : (i <= 16 ? step * 0.5 : step * 0.25);
        case 8:
            return i <= 16 ? step : step * 0.5;
        case 9:
            return i % 4 == 0 ? step : step * 0.25;
        default:
            return step;
        }
    }

    ReferenceBank(const Settings& s, double rate, double spb) {
        length = spb * 8.0;
        const int n = static_cast<int>(s.bands * 30.0f + 2.0f);
        for (int i = 0; i < n; i += 1 + s.skip)
            gate[i] = 1.0;
        const double y = s.frequency * 7.5;
        const int row = static_cast<int>(y);
        const double fy = y - row;
        for (int i = 0; i < n; ++i) {
            const double x = static_cast<double>(i) / n * 2.99;
            const int col = static_cast<int>(x);
            const double fx = x - col;
            double t[4] = {kCurve[row][col], kCurve[row][col + 1], kCurve[row + 1][col],
                           kCurve[row + 1][col + 1]};
            if (s.spacing == 9) t[0] = t[1] = t[2] = t[3] = s.frequency * 0.8;
            f[i] =
                (fx * fy * t[3] + (1 - fx) * fy * t[2] + fx * (1 - fy) * t[1] + (1 - fx) * (1 - fy) * t[0]) *
                0.5;
        }
        double step = 0.0;
        const double v = s.delay;
        if (s.timeMode == 0) step = rate / (1.02197504 * std::pow(2.0, (v + 1.0) * 60.0 / 12.0));
        if (s.timeMode == 1) step = std::trunc(v * 7.5 + 1.0) * spb * 0.125;
        if (s.timeMode == 2) step = v * 4.0 * spb * 0.0625;
        if (step < 10.0) step = 0.0;
        double pos = 0.0;
        for (int i = 0; i < 32; ++i) {
            if (pos >= length) pos -= length;
            delay[i] = pos;
            pos += s.spacing == 7 ? step : advance(s.spacing, i, step);
            if (s.spacing == 7) step *= 0.9;
        }
        const double res = static_cast<double>(s.resonance) * s.resonance * 0.99;
        damp = 1.0 - res;
        gain = (res > 0.75 ? 1.0 - (res - 0.75) * 3.75 : 1.0) * (s.bands > 0.5 ? 1.0 - (s.bands - 0.5) : 1.0);
        const double p = s.pan == 0 ? 0.0 : (s.pan == 1 ? 0.5 : 1.0);
        for (int i = 0; i < 32; ++i) {
            panL[i] = i % 2 == 0 ? 1.0 : 1.0 - p;
            panR[i] = i % 2 == 0 ? 1.0 - p : 1.0;
        }
        line[0].assign(static_cast<std::size_t>(length + 1.0), 0.0);
        line[1].assign(static_cast<std::size_t>(length + 1.0), 0.0);
    }

    void run(std::vector<float>& left, std::vector<float>& right) {
        std::size_t w = 0;
        for (std::size_t s = 0; s < left.size(); ++s) {
            line[0][w] = left[s];
            line[1][w] = right[s];
            double out[2] = {0.0, 0.0};
            for (int c = 0; c < 2; ++c) {
                for (int i = 0; i < 32; ++i) {
                    double p = static_cast<double>(w) - delay[i];
                    while (p < 0)
                        p += length;
                    const auto whole = static_cast<std::size_t>(p);
                    const std::vector<double>& buf = line[c];
                    const double x =
                        p < length - 1
                            ? buf[whole] + (buf[whole + 1] - buf[whole]) * (p - whole)
                            : buf[static_cast<std::size_t>(length - 1)] +
                                  (buf[0] - buf[static_cast<std::size_t>(length - 1)]) * (p - whole);
                    const double t = x - damp * band[c][i];
                    high[c][i] = t - (low[c][i] + 1e-10);
                    band[c][i] = band[c][i] + (high[c][i] * f[i] + 1e-10);
                    low[c][i] = low[c][i] + (band[c][i] * f[i] - 1e-10);
                    out[c] += band[c][i] * gate[i] * gain * (c == 0 ? panL[i] : panR[i]);
                }
            }
            left[s] = static_cast<float>(out[0]);
            right[s] = static_cast<float>(out[1]);
            if (static_cast<double>(++w) >= length) w = 0;
        }
    }
};

struct FilterBankFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    void SetUp() override {
        system.setControlInterval(64);
        system.setSampleRate(48000.0f);
        system.setTempo(120.0);
        listeners.notifyAll();
    }

    std::unique_ptr<AFFilterBank> make(const Settings& s) {
        auto fx = std::make_unique<AFFilterBank>(5, &system, 0);
        fx->setOption(0, s.timeMode);
        fx->setOption(1, s.spacing);
        fx->setOption(2, s.pan);
        fx->setOption(3, s.skip);
        const float values[4] = {s.delay, s.frequency, s.resonance, s.bands};
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, values[i]);
        fx->activate();
        return fx;
    }

    // As the slot drives it: parameters and a tick every 64 samples, pieces that never straddle a tick.
    static void drive(AFFilterBank& fx, std::vector<float>& left, std::vector<float>& right, int piece = 64) {
        float values[4];
        for (int i = 0; i < 4; ++i)
            values[i] = fx.getParameterValue(i);
        for (std::size_t start = 0; start < left.size(); start += 64) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, values[i]);
            fx.controlTick();
            const int block = static_cast<int>(std::min<std::size_t>(64, left.size() - start));
            for (int done = 0; done < block; done += piece) {
                const int n = std::min(piece, block - done);
                fx.process(left.data() + start + done, right.data() + start + done, n);
            }
        }
    }

    static void noise(std::vector<float>& left, std::vector<float>& right, std::size_t n) {
        left.assign(n, 0.0f);
        right.assign(n, 0.0f);
        uint32_t seed = 12345;
        for (std::size_t i = 0; i < n; ++i) {
            seed = seed * 1664525u + 1013904223u;
            left[i] = static_cast<float>(seed >> 8) / 16777216.0f - 0.5f;
            seed = seed * 1664525u + 1013904223u;
            right[i] = static_cast<float>(seed >> 8) / 16777216.0f - 0.5f;
        }
        left[0] = 1.0f;
    }

    void expectMatchesReference(const Settings& s, std::size_t n) {
        std::vector<float> left, right;
        noise(left, right, n);
        std::vector<float> refL = left, refR = right;
        auto fx = make(s);
        drive(*fx, left, right);
        ReferenceBank ref(s, system.sampleRate, system.samplesPerBeat);
        ref.run(refL, refR);
        double peak = 0.0;
        for (float v : refL)
            peak = std::max(peak, static_cast<double>(std::fabs(v)));
        ASSERT_GT(peak, 0.01);
        for (std::size_t i = 0; i < n; ++i) {
            ASSERT_NEAR(left[i], refL[i], 2e-4 * peak) << "spacing " << s.spacing << " left @" << i;
            ASSERT_NEAR(right[i], refR[i], 2e-4 * peak) << "spacing " << s.spacing << " right @" << i;
        }
    }
};

} // namespace

TEST_F(FilterBankFixture, MatchesTheReferenceBankForEverySpacingWord) {
    for (int spacing = 0; spacing < 10; ++spacing) {
        Settings s;
        s.delay = 1.0f; // "Tonal" note 120: a fractional step of 45.87 samples
        s.frequency = 0.3f;
        s.resonance = 0.95f;
        s.bands = 1.0f;
        s.spacing = spacing;
        expectMatchesReference(s, 2048);
    }
}

TEST_F(FilterBankFixture, MatchesTheReferenceWithSyncedTapsPanAndSkippedBands) {
    Settings s;
    s.timeMode = 1;
    s.delay = 0.0f; // one eighth: 3000 samples
    s.frequency = 0.8f;
    s.resonance = 0.7f;
    s.bands = 0.7f;
    s.spacing = 6;
    s.pan = 1;
    s.skip = 2;
    expectMatchesReference(s, 7000);
}

TEST_F(FilterBankFixture, TapTargetsFollowTheSpacingWords) {
    Settings s;
    s.timeMode = 1;
    s.delay = 0.0f;
    const auto target = [&](int spacing, int tap) {
        s.spacing = spacing;
        auto fx = make(s);
        fx->controlTick();
        return fx->tapTarget(tap);
    };
    EXPECT_DOUBLE_EQ(target(0, 0), 0.0);
    EXPECT_DOUBLE_EQ(target(0, 5), 15000.0);
    EXPECT_DOUBLE_EQ(target(1, 10), 28500.0);                      // "Akea": halves after tap 9
    EXPECT_DOUBLE_EQ(target(2, 3), 7500.0);                        // "Duka": full, half, full
    EXPECT_DOUBLE_EQ(target(3, 4), 9000.0);                        // "Tria": full, half, half, full
    EXPECT_NEAR(target(4, 2), 4000.0, 1e-3);                       // "Mura": thirds
    EXPECT_NEAR(target(5, 11), 29000.0, 1e-3);                     // "Desa"
    EXPECT_DOUBLE_EQ(target(6, 18), 27000.0 + 8 * 1500.0 + 750.0); // "Sura": full, half, quarter
    EXPECT_NEAR(target(7, 2), 5700.0, 1e-3);                       // "Kora": each step 0.9 of the last
    EXPECT_DOUBLE_EQ(target(8, 18), 17 * 3000.0 + 1500.0);         // "Jona": full up to tap 16
    EXPECT_DOUBLE_EQ(target(9, 2), 3750.0);                        // "Riga": full, then three quarters
    // Eight eighths per step wrap at the line length of eight beats.
    s.delay = 1.0f;
    EXPECT_DOUBLE_EQ(target(0, 8), 0.0);
    EXPECT_DOUBLE_EQ(target(0, 9), 24000.0);
    // A step under ten samples puts every tap on the newest sample.
    s.timeMode = 2;
    s.delay = 0.0005f;
    for (int tap = 0; tap < 32; ++tap)
        EXPECT_EQ(target(0, tap), 0.0) << tap;
}

TEST_F(FilterBankFixture, BandGatesPerSkipWord) {
    const auto gates = [&](float bands, int skip) {
        Settings s;
        s.bands = bands;
        s.skip = skip;
        auto fx = make(s);
        std::string open;
        for (int i = 0; i < 32; ++i)
            open += fx->gateRamp().target[i] == 1.0f ? '1' : '.';
        return open;
    };
    EXPECT_EQ(gates(0.0f, 0), "11..............................");
    EXPECT_EQ(gates(0.5f, 0), "11111111111111111...............");
    EXPECT_EQ(gates(1.0f, 1), "1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.");
    EXPECT_EQ(gates(1.0f, 2), "1..1..1..1..1..1..1..1..1..1..1.");
    // Changing the skip word rebuilds the gates at once from the stored "Bands".
    Settings s;
    s.bands = 1.0f;
    auto fx = make(s);
    fx->setOption(3, 1);
    EXPECT_EQ(fx->gateRamp().target[1], 0.0f);
    EXPECT_EQ(fx->gateRamp().target[2], 1.0f);
}

TEST_F(FilterBankFixture, Pan2WithEveryOtherBandIsAllLeft) {
    Settings s;
    s.bands = 1.0f;
    s.skip = 1;
    s.pan = 2;
    auto fx = make(s);
    std::vector<float> left, right;
    noise(left, right, 1024);
    drive(*fx, left, right);
    double energy = 0.0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        ASSERT_EQ(right[i], 0.0f) << i;
        energy += left[i] * left[i];
    }
    EXPECT_GT(energy, 0.1);
}

TEST_F(FilterBankFixture, DisplayTexts) {
    auto fx = make(Settings{});
    char text[kEffectTextSize];
    fx->formatParameter(0, 0.5f, text);
    char expected[kEffectTextSize];
    std::snprintf(expected, sizeof expected, "%3.2f hz", 1.02197504 * std::pow(2.0, 54.0 / 12.0));
    EXPECT_STREQ(text, expected); // three octaves under the sounding step
    fx->setOption(0, 1);
    fx->formatParameter(0, 0.0f, text);
    EXPECT_STREQ(text, "0");
    fx->formatParameter(0, 1.0f, text);
    EXPECT_STREQ(text, "8");
    fx->setOption(0, 2);
    fx->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "62.50 ms");
    fx->formatParameter(3, 0.25f, text);
    EXPECT_STREQ(text, "25.00");
    fx->getParameterName(0, text);
    EXPECT_STREQ(text, "Delay Time");
    fx->getParameterName(3, text);
    EXPECT_STREQ(text, "Bands");
    EXPECT_STREQ(fx->getName(), "FilterBank");
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(AFFilterBank(5, &system, 0).getParameterValue(i), 0.5f);
    AFWordList words;
    fx->getOptionList(1, words);
    ASSERT_EQ(words.size(), 10u);
    EXPECT_EQ(words[9], "Riga");
}

TEST_F(FilterBankFixture, HostileValuesStayInside) {
    auto fx = make(Settings{});
    fx->setOption(0, 99);
    fx->setOption(1, -7);
    fx->setOption(2, 1 << 30);
    fx->setOption(3, 3);
    fx->setOption(9, 1);
    EXPECT_EQ(fx->getOption(0), 2);
    EXPECT_EQ(fx->getOption(1), 0);
    EXPECT_EQ(fx->getOption(2), 2);
    EXPECT_EQ(fx->getOption(3), 2);
    EXPECT_EQ(fx->getOption(9), 0);
    const float hostile[] = {-1e9f, 1e9f, std::numeric_limits<float>::quiet_NaN(), -0.5f, 7.0f};
    std::vector<float> left, right;
    for (int mode = 0; mode < 3; ++mode) {
        fx->setOption(0, mode);
        for (float v : hostile) {
            for (int i = 0; i < 4; ++i)
                fx->setParameter(i, v);
            noise(left, right, 256);
            drive(*fx, left, right);
            for (std::size_t i = 0; i < left.size(); ++i)
                ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i]));
        }
    }
    EXPECT_GE(fx->getBandCount(), 2u);
    EXPECT_LE(fx->getBandCount(), 32u);
}

TEST_F(FilterBankFixture, DeterministicAndIndependentOfPieceSize) {
    Settings s;
    s.delay = 0.3f;
    s.spacing = 7;
    s.bands = 0.9f;
    std::vector<float> l1, r1, l2, r2, l3, r3;
    noise(l1, r1, 3000);
    l2 = l3 = l1;
    r2 = r3 = r1;
    auto a = make(s);
    drive(*a, l1, r1);
    drive(*make(s), l2, r2, 17);
    a->activate();
    drive(*a, l3, r3, 1);
    EXPECT_EQ(l1, l2);
    EXPECT_EQ(r1, r2);
    EXPECT_EQ(l1, l3);
    EXPECT_EQ(r1, r3);
}

TEST_F(FilterBankFixture, TempoSetsTheLineLengthUpToTheSlowestTempoAtTheHighestRate) {
    auto fx = make(Settings{});
    EXPECT_FLOAT_EQ(fx->getBufferLength(), 24000.0f * 8.0f);
    system.setSampleRate(196000.0f);
    system.setTempo(45.0);
    listeners.notifyAll();
    EXPECT_FLOAT_EQ(fx->getBufferLength(), system.samplesPerBeat * 8.0f);
    Settings slow;
    slow.timeMode = 1;
    slow.delay = 1.0f;
    slow.spacing = 0;
    auto big = make(slow);
    std::vector<float> left, right;
    noise(left, right, 512);
    drive(*big, left, right);
    for (float v : left)
        ASSERT_TRUE(std::isfinite(v));
    EXPECT_NEAR(big->tapTarget(7), 7.0 * system.samplesPerBeat, 0.5);
}
