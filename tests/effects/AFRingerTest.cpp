#include "effects/filter/AFRinger.h"
#include "effects/filter/WaveTables.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

constexpr int kTick = 64;

struct RingerFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};

    RingerFixture() {
        system.setControlInterval(kTick);
        system.setSampleRate(48000.0f);
    }

    // Drives the effect as a slot does: parameters and controlTick at every tick, then process in uneven
    // pieces that never straddle a tick.
    static void run(AFRinger& fx, const std::array<float, 4>& params, std::vector<float>& l,
                    std::vector<float>& r) {
        static constexpr int kPieces[] = {1, 7, 20, 36};
        std::size_t pos = 0;
        while (pos < l.size()) {
            for (int i = 0; i < 4; ++i)
                fx.setParameter(i, params[static_cast<std::size_t>(i)]);
            fx.controlTick();
            for (int piece : kPieces) {
                const auto n = std::min<std::size_t>(static_cast<std::size_t>(piece), l.size() - pos);
                fx.process(l.data() + pos, r.data() + pos, static_cast<int>(n));
                pos += n;
            }
        }
    }

    std::unique_ptr<AFRinger> make(const std::array<float, 4>& params, int range = 0) {
        auto fx = std::make_unique<AFRinger>(8, &system, 0);
        fx->setOption(0, range);
        for (int i = 0; i < 4; ++i)
            fx->setParameter(i, params[static_cast<std::size_t>(i)]);
        fx->activate();
        return fx;
    }
};

// The carrier rebuilt from the equations: three partials read from the morph order sine, triangle, square,
// saw, saw; summed with the partial level; smoothed by the state-variable low-pass.
struct CarrierReference {
    double frequency;
    float level;
    float waveform;
    float rate;
    float p1 = 0.0f, p2 = 0.0f, p3 = 0.0f;
    double low = 0.0, band = 0.0;

    float next() {
        static constexpr int kOrder[] = {3, 1, 2, 0, 0};
        const WaveTables& t = WaveTables::instance();
        float m = std::min(waveform * 5.0f, 3.0f);
        const int idx = static_cast<int>(m);
        const float mf = m - static_cast<float>(idx);
        auto read = [&](float phase) {
            auto one = [&](int shape) {
                const float p = phase * 1023.5f;
                const int i = static_cast<int>(p);
                return t.wave(kOrder[shape])[i] + (p - static_cast<float>(i)) * t.delta(kOrder[shape])[i];
            };
            const float a = one(idx);
            return a + (one(idx + 1) - a) * mf;
        };
        const auto step = static_cast<float>(frequency / rate);
        auto wrap = [](float& p, float s) {
            p += s;
            if (p >= 1.0f) p -= 1.0f;
        };
        wrap(p1, step);
        wrap(p2, 2.0f * step);
        wrap(p3, 3.0f * step);
        const double signal = read(p1) + level * (read(p2) + read(p3));
        const float w2 = waveform * waveform;
        const double c = (1.0f - w2 * w2) * 0.92f + 0.08f;
        const double e = 1.000000013351432e-10;
        const double high = signal - band * AFRinger::kFilterDamping - low + e;
        band = high * c + band + e;
        low = band * c - e + low;
        return static_cast<float>(low);
    }
};

double ladderHz(const AFSystemInfo& s, float n) {
    const int row = static_cast<int>(n);
    return s.noteLadder[static_cast<std::size_t>(row)].value +
           (n - static_cast<float>(row)) * s.noteLadder[static_cast<std::size_t>(row)].delta;
}

// Positive-going zero crossings, interpolated, give the carrier's frequency. The table read leaves a tiny
// step where the phase wraps, so a crossing counts only after the signal has gone clearly negative.
double measuredHz(const std::vector<float>& y, float rate) {
    double first = -1.0, last = -1.0;
    int crossings = 0;
    bool armed = false;
    for (std::size_t n = 1; n < y.size(); ++n) {
        if (y[n] < -0.1f) armed = true;
        if (armed && y[n - 1] < 0.0f && y[n] >= 0.0f) {
            armed = false;
            const double t = static_cast<double>(n - 1) + y[n - 1] / (y[n - 1] - y[n]);
            if (first < 0.0) first = t;
            last = t;
            ++crossings;
        }
    }
    return crossings > 1 ? (crossings - 1) * rate / (last - first) : 0.0;
}

} // namespace

TEST_F(RingerFixture, VcaCrossfadesThePureRingProductIntoModulationByTheMagnitude) {
    const float rate = system.sampleRate;
    for (float vca : {0.0f, 0.5f, 1.0f}) {
        for (float waveform : {0.0f, 0.1f, 0.3f, 0.47f, 0.6f, 0.8f, 1.0f}) {
            const std::array<float, 4> params{0.9f, vca, 0.7f, waveform};
            auto fx = make(params);
            std::vector<float> l(6000), r(6000);
            for (std::size_t n = 0; n < l.size(); ++n) {
                l[n] = 0.2f * std::sin(0.013f * static_cast<float>(n));
                r[n] = 0.15f * std::cos(0.0071f * static_cast<float>(n));
            }
            const std::vector<float> inL = l, inR = r;
            run(*fx, params, l, r);

            CarrierReference ref{ladderHz(system, 0.9f * 84.0f + 12.0f), 0.7f, waveform, rate};
            for (std::size_t n = 0; n < l.size(); ++n) {
                const float m = ref.next();
                const float shaped = m + (std::fabs(m) - m) * vca;
                ASSERT_NEAR(l[n], inL[n] * shaped, 2e-5f)
                    << "vca " << vca << " wave " << waveform << " @" << n;
                ASSERT_NEAR(r[n], inR[n] * shaped, 2e-5f)
                    << "vca " << vca << " wave " << waveform << " @" << n;
            }
        }
    }
}

TEST_F(RingerFixture, PitchFollowsTheNoteTableInHiAndHertzInLo) {
    struct Case {
        int range;
        float pitch;
        double hz;
    };
    const Case cases[] = {{0, 0.5f, ladderHz(system, 54.0f)},
                          {0, 1.0f, ladderHz(system, 96.0f)},
                          {0, 0.75f, ladderHz(system, 75.0f)},
                          {1, 0.0f, 3.0},
                          {1, 0.5f, 153.0},
                          {1, 1.0f, 303.0}};
    for (const Case& c : cases) {
        // A sine carrier alone, on a constant input, shows the carrier itself.
        const std::array<float, 4> params{c.pitch, 0.0f, 0.0f, 0.0f};
        auto fx = make(params, c.range);
        std::vector<float> l(96000, 0.5f), r(96000, 0.5f);
        run(*fx, params, l, r);
        const std::vector<float> settled(l.begin() + 2000, l.end());
        EXPECT_NEAR(measuredHz(settled, system.sampleRate), c.hz, c.hz * 1e-3 + 0.01)
            << "range " << c.range << " pitch " << c.pitch;
        EXPECT_EQ(l, r);
    }
}

TEST_F(RingerFixture, SettingTheRangeReappliesTheStoredPitch) {
    // No parameter is re-sent after the option: the option itself must retune the carrier.
    auto fx = make({0.5f, 0.0f, 0.0f, 0.0f});
    fx->setOption(0, 1);
    EXPECT_EQ(fx->getOption(0), 1);
    std::vector<float> l(48000, 0.5f), r(48000, 0.5f);
    for (std::size_t pos = 0; pos < l.size(); pos += kTick) {
        fx->controlTick();
        fx->process(l.data() + pos, r.data() + pos, kTick);
    }
    EXPECT_NEAR(measuredHz(std::vector<float>(l.begin() + 4800, l.end()), system.sampleRate), 153.0, 0.2);

    char text[kEffectTextSize];
    fx->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "50.00");
    fx->setOption(0, 0);
    EXPECT_EQ(fx->getOption(0), 0);
    fx->formatParameter(0, 0.5f, text);
    EXPECT_STREQ(text, "54.00");
}

TEST_F(RingerFixture, DisplaysAndOptionWords) {
    AFRinger fx(8, &system, 0);
    EXPECT_STREQ(fx.getName(), "Ringmodulator");
    const char* names[] = {"Pitch", "VCA", "Amt", "Waveform"};
    char text[kEffectTextSize];
    for (int i = 0; i < 4; ++i) {
        fx.getParameterName(i, text);
        EXPECT_STREQ(text, names[i]);
        EXPECT_EQ(fx.getParameterValue(i), 0.5f);
    }
    fx.formatParameter(0, 0.25f, text);
    EXPECT_STREQ(text, "33.00");
    fx.formatParameter(1, 0.125f, text);
    EXPECT_STREQ(text, "12.50");
    fx.formatParameter(3, 1.0f, text);
    EXPECT_STREQ(text, "100.00");
    AFWordList words;
    fx.getOptionList(0, words);
    EXPECT_EQ(words, (AFWordList{"Hi", "Lo"}));
    words.clear();
    for (int i = 1; i < 5; ++i)
        fx.getOptionList(i, words);
    EXPECT_TRUE(words.empty());
    EXPECT_FALSE(fx.hasFlag());
}

TEST_F(RingerFixture, HostileValuesStayBoundedAndTheLimiterHoldsFullScale) {
    AFRinger fx(8, &system, 0);
    for (int32_t v : {-7, 99, std::numeric_limits<int32_t>::min()}) {
        fx.setOption(0, v);
        EXPECT_EQ(fx.getOption(0), 1) << v; // any value but 0 is "Lo"
    }
    fx.setOption(3, 5);
    EXPECT_EQ(fx.getOption(3), 0);
    fx.setParameter(7, 0.3f); // outside the parameters: ignored
    fx.activate();

    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::array<std::array<float, 4>, 4> hostile{{{nan, nan, nan, nan},
                                                       {-inf, inf, -3.0f, 12.0f},
                                                       {40.0f, -2.0f, 9.0f, -6.0f},
                                                       {1.0f, 0.0f, 1.0f, 0.0f}}};
    std::vector<float> l(64), r(64);
    float peak = 0.0f;
    for (int block = 0; block < 400; ++block) {
        const auto& p = hostile[static_cast<std::size_t>(block / 100)];
        for (int i = 0; i < 4; ++i)
            fx.setParameter(i, p[static_cast<std::size_t>(i)]);
        fx.controlTick();
        for (int k = 0; k < 64; ++k) {
            l[static_cast<std::size_t>(k)] = 8.0f * std::sin(0.05f * static_cast<float>(block * 64 + k));
            r[static_cast<std::size_t>(k)] = -l[static_cast<std::size_t>(k)];
        }
        // Several blocks without a tick: ramps overrun their targets and must still stay in range.
        for (int extra = 0; extra < 2; ++extra) {
            fx.process(l.data(), r.data(), 64);
            for (std::size_t k = 0; k < 64; ++k) {
                ASSERT_TRUE(std::isfinite(l[k]) && std::isfinite(r[k])) << block;
                peak = std::max({peak, std::fabs(l[k]), std::fabs(r[k])});
            }
        }
    }
    EXPECT_LE(peak, 1.0f);
    EXPECT_GT(peak, 0.9f);
    fx.process(l.data(), r.data(), 0);
}

TEST_F(RingerFixture, OutputIsDeterministicAndActivateRestartsIt) {
    const std::array<float, 4> params{0.62f, 0.3f, 0.8f, 0.35f};
    auto a = make(params);
    auto b = make(params);
    std::vector<float> in(3000);
    for (std::size_t n = 0; n < in.size(); ++n)
        in[n] = std::sin(0.021f * static_cast<float>(n)) * 1.5f;
    auto la = in, ra = in, lb = in, rb = in;
    run(*a, params, la, ra);
    run(*b, params, lb, rb);
    EXPECT_EQ(0, std::memcmp(la.data(), lb.data(), la.size() * sizeof(float)));
    EXPECT_EQ(0, std::memcmp(ra.data(), rb.data(), ra.size() * sizeof(float)));

    a->activate();
    auto lc = in, rc = in;
    run(*a, params, lc, rc);
    EXPECT_EQ(la, lc);
    EXPECT_EQ(ra, rc);

    // A call longer than a slot's piece is worked through exactly as the same samples in pieces.
    a->activate();
    b->activate();
    a->controlTick();
    b->controlTick();
    auto ld = in, rd = in, le = in, re = in;
    a->process(ld.data(), rd.data(), 150);
    for (int done = 0; done < 150; done += 50)
        b->process(le.data() + done, re.data() + done, 50);
    EXPECT_EQ(ld, le);
    EXPECT_EQ(rd, re);
}
