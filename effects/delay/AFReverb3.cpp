#include "effects/delay/AFReverb3.h"

#include "effects/delay/StateVariableHPPair.h"
#include "effects/filter/LaneFilter.h"
#include "effects/framework/ClampUnit.h"

#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/LaneTranspose.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kChunk = 64;
constexpr double kHighPassDamp = 1.0 - 0.11;
constexpr double kHighPassFrequency = 0.1;

constexpr int totalLength() {
    int total = 0;
    for (const auto& side : AFReverb3::kCombLengths)
        for (int length : side)
            total += length;
    for (const auto& side : AFReverb3::kAllpassLengths)
        for (int length : side)
            total += length;
    return total;
}

constexpr AFParameterInfo kParameters[] = {{"Size", 0.5f}, {"Damp", 0.5f}, {"Width", 0.5f}, {"Freeze", 1.0f}};
constexpr AFSlotDefault kSlotDefaults[] = {
    {"Parameter 1", 0.5f}, {"Dry Wet", 0.1f}, {"DryWet Knob Amt", 0.8f}};

} // namespace

const AFEffectDescriptor AFReverb3::descriptor{.typeId = 26,
                                               .displayName = "FreezeVerb",
                                               .className = "Reverb",
                                               .create = makeEffect<AFReverb3>,
                                               .parameters = kParameters,
                                               .menuPosition = 7,
                                               .slotDefaults = kSlotDefaults};

AFReverb3::AFReverb3(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(descriptor, type, system, flag, 6), storage(totalLength(), 0.0f), widthRamp(system),
      highPassLeft(kHighPassFrequency, kHighPassDamp, StateVariableHP::Output::High),
      highPassRight(kHighPassFrequency, kHighPassDamp, StateVariableHP::Output::High) {
    AFEffect::setParameter(4, 0.0f);
    AFEffect::setParameter(5, 1.0f);

    float* next = storage.data();
    for (int ch = 0; ch < 2; ++ch) {
        for (int k = 0; k < kCombs; ++k) {
            const int length = kCombLengths[ch][k];
            combs[ch][k] = {next, length, 0, 0.0f};
            next += length;
        }
        for (int k = 0; k < kAllpasses; ++k) {
            const int length = kAllpassLengths[ch][k];
            allpasses[ch][k] = {next, length, 0};
            next += length;
        }
    }
    widthRamp.setTarget(width);
    widthRamp.jump();
}

void AFReverb3::setParameter(int index, float value) {
    if (index < 0 || index >= parameterCount) return;
    AFEffect::setParameter(index, value);
    switch (index) {
    case 0:
        feedback = clampUnit(value) * 0.28f + 0.7f;
        break;
    case 1:
        damp = clampUnit(value) * 0.4f;
        blockUpdate();
        break;
    case 2:
        width = clampUnit(value);
        blockUpdate();
        break;
    case 4: {
        const double v = value;
        const double corner = v * v * v * v;
        if (corner <= 1.0) {
            highPassLeft.f = corner;
            highPassRight.f = corner;
        }
        break;
    }
    case 3:
    case 5:
        freeze = value;
        break;
    default:
        break;
    }
}

void AFReverb3::blockUpdate() noexcept {
    dampInverse = 1.0f - damp;
    updateWidthDelta();
}

void AFReverb3::updateWidthDelta() noexcept {
    // The width ramp snaps inside a dead zone that is wider below the target than above it.
    widthRamp.setTarget(width);
    const double delta =
        (widthRamp.getTarget() - widthRamp.getCurrent()) * static_cast<double>(systemInfo->rampFactor);
    if (delta > -1e-07 && delta < 1e-08) {
        widthRamp.jump();
    } else {
        widthRamp.controlTick();
    }
}

// Renewed every tick as well, so that a width set once lands on its target: a resting knob sends nothing.
void AFReverb3::controlTick() noexcept {
    updateWidthDelta();
}

void AFReverb3::reset() {
    std::fill(storage.begin(), storage.end(), 0.0f);
    for (auto& side : combs) {
        for (Comb& comb : side) {
            comb.index = 0;
            comb.store = 0.0f;
        }
    }
    for (auto& side : allpasses) {
        for (Allpass& allpass : side)
            allpass.index = 0;
    }
    highPassLeft.reset();
    highPassRight.reset();
}

int32_t AFReverb3::activate() {
    reset();
    widthRamp.setTarget(width);
    widthRamp.jump();
    return 1;
}

void AFReverb3::deactivate() {
    reset();
}

void AFReverb3::process(float* left, float* right, int count) noexcept {
    for (int done = 0; done < count; done += kChunk) {
        processChunk(left + done, right + done, std::min(kChunk, count - done));
    }
}

namespace {

// Four lanes of floats; lane arithmetic is the scalar arithmetic, so results match a one-by-one run exactly.
using Lanes = float __attribute__((vector_size(16)));

Lanes loadLanes(const float* p) noexcept {
    Lanes v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void storeLanes(float* p, Lanes v) noexcept {
    std::memcpy(p, &v, sizeof(v));
}

// Eight lanes: all eight combs of a channel, or eight samples, in one vector; one register with AVX.
using Lanes8 = float __attribute__((vector_size(32)));

// Eight combs by eight samples, as transpose does for four. Vectors by reference: by value, a 32-byte vector
// would change the calling convention with AVX.
inline void transpose8(Lanes8 (&r)[8]) noexcept {
    Lanes8 t[8];
    for (int k = 0; k < 8; k += 2) {
        t[k] = __builtin_shufflevector(r[k], r[k + 1], 0, 8, 1, 9, 4, 12, 5, 13);
        t[k + 1] = __builtin_shufflevector(r[k], r[k + 1], 2, 10, 3, 11, 6, 14, 7, 15);
    }
    Lanes8 u[8];
    for (int h = 0; h < 8; h += 4) {
        u[h] = __builtin_shufflevector(t[h], t[h + 2], 0, 1, 8, 9, 4, 5, 12, 13);
        u[h + 1] = __builtin_shufflevector(t[h], t[h + 2], 2, 3, 10, 11, 6, 7, 14, 15);
        u[h + 2] = __builtin_shufflevector(t[h + 1], t[h + 3], 0, 1, 8, 9, 4, 5, 12, 13);
        u[h + 3] = __builtin_shufflevector(t[h + 1], t[h + 3], 2, 3, 10, 11, 6, 7, 14, 15);
    }
    for (int k = 0; k < 4; ++k) {
        r[k] = __builtin_shufflevector(u[k], u[k + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        r[k + 4] = __builtin_shufflevector(u[k], u[k + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}

// Eight-lane steps pay only where one register holds eight floats; elsewhere each is split into halves and
// the eight-lane transpose into single moves, so the four-lane steps do the whole run.
bool eightLanes() noexcept {
#if defined(__x86_64__) && defined(__GNUC__)
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

} // namespace

// The eight combs of a channel run as the eight lanes of one vector, eight samples at a time where the
// processor has AVX2, and what is left of a run as two groups of four lanes, four samples at a time; the
// block is cut wherever a comb's ring wraps, so no inner loop tests an index.
LANE_WIDE_CLONES void AFReverb3::runCombs(std::array<Comb, kCombs>& bank, const float* input, float* out,
                                          int count, float fb, float c1, float c2) noexcept {
    const Lanes c1Lanes = {c1, c1, c1, c1};
    const Lanes c2Lanes = {c2, c2, c2, c2};
    const Lanes fbLanes = {fb, fb, fb, fb};
    const bool wide = eightLanes();
    for (int n = 0; n < count;) {
        int run = count - n;
        for (Comb& comb : bank) {
            if (comb.index == comb.length - 1) comb.index = -1;
            run = std::min(run, comb.length - 1 - comb.index);
        }
        float* ring[kCombs];
        for (int k = 0; k < kCombs; ++k)
            ring[k] = bank[k].buffer + bank[k].index + 1;
        Lanes8 store8 = {bank[0].store, bank[1].store, bank[2].store, bank[3].store,
                         bank[4].store, bank[5].store, bank[6].store, bank[7].store};
        const Lanes8 c1Lanes8 = Lanes8{} + c1;
        const Lanes8 c2Lanes8 = Lanes8{} + c2;
        const Lanes8 fbLanes8 = Lanes8{} + fb;
        int j = 0;
        for (; wide && j + 8 <= run; j += 8) {
            Lanes8 v[kCombs];
            std::memcpy(&v[0], ring[0] + j, sizeof(Lanes8));
            Lanes8 sum = Lanes8{} + v[0];
            for (int k = 1; k < kCombs; ++k) {
                std::memcpy(&v[k], ring[k] + j, sizeof(Lanes8));
                sum += v[k];
            }
            std::memcpy(out + n + j, &sum, sizeof(sum));
            transpose8(v);
            for (auto& row : v) {
                store8 = row * c1Lanes8 + store8 * c2Lanes8;
                row = store8;
            }
            transpose8(v);
            Lanes8 x;
            std::memcpy(&x, input + n + j, sizeof(x));
            for (int k = 0; k < kCombs; ++k) {
                const Lanes8 w = v[k] * fbLanes8 + x;
                std::memcpy(ring[k] + j, &w, sizeof(w));
            }
        }
        Lanes storeLo = {store8[0], store8[1], store8[2], store8[3]};
        Lanes storeHi = {store8[4], store8[5], store8[6], store8[7]};
        for (; j + 4 <= run; j += 4) {
            Lanes lo[4];
            Lanes hi[4];
            for (int k = 0; k < 4; ++k) {
                lo[k] = loadLanes(ring[k] + j);
                hi[k] = loadLanes(ring[k + 4] + j);
            }
            Lanes sum = Lanes{} + lo[0];
            sum += lo[1];
            sum += lo[2];
            sum += lo[3];
            sum += hi[0];
            sum += hi[1];
            sum += hi[2];
            sum += hi[3];
            storeLanes(out + n + j, sum);
            transposeFour(lo[0], lo[1], lo[2], lo[3]);
            transposeFour(hi[0], hi[1], hi[2], hi[3]);
            // The damping recursion runs across the combs; the feedback and the input are added back in
            // per-comb runs, where the four input samples are one load.
            for (int m = 0; m < 4; ++m) {
                storeLo = lo[m] * c1Lanes + storeLo * c2Lanes;
                lo[m] = storeLo;
                storeHi = hi[m] * c1Lanes + storeHi * c2Lanes;
                hi[m] = storeHi;
            }
            transposeFour(lo[0], lo[1], lo[2], lo[3]);
            transposeFour(hi[0], hi[1], hi[2], hi[3]);
            const Lanes x = loadLanes(input + n + j);
            for (int k = 0; k < 4; ++k) {
                storeLanes(ring[k] + j, lo[k] * fbLanes + x);
                storeLanes(ring[k + 4] + j, hi[k] * fbLanes + x);
            }
        }
        float store[kCombs];
        for (int k = 0; k < 4; ++k) {
            store[k] = storeLo[k];
            store[k + 4] = storeHi[k];
        }
        for (; j < run; ++j) {
            const float x = input[n + j];
            float sum = 0.0f;
            for (int k = 0; k < kCombs; ++k) {
                const float o = ring[k][j];
                store[k] = o * c1 + store[k] * c2;
                ring[k][j] = store[k] * fb + x;
                sum += o;
            }
            out[n + j] = sum;
        }
        for (int k = 0; k < kCombs; ++k) {
            bank[k].index += run;
            bank[k].store = store[k];
        }
        n += run;
    }
}

// An allpass is longer than a block, so no sample of a block reads what the same block wrote: between wraps
// the four stages run in one loop with no recursion, eight samples at a time where the processor has AVX2,
// then four.
LANE_WIDE_CLONES void AFReverb3::runAllpasses(std::array<Allpass, kAllpasses>& bank, float* out,
                                              int count) noexcept {
    const bool wide = eightLanes();
    for (int n = 0; n < count;) {
        int run = count - n;
        for (Allpass& allpass : bank) {
            if (allpass.index == allpass.length - 1) allpass.index = -1;
            run = std::min(run, allpass.length - 1 - allpass.index);
        }
        float* ring[kAllpasses];
        for (int k = 0; k < kAllpasses; ++k)
            ring[k] = bank[k].buffer + bank[k].index + 1;
        float* s = out + n;
        const Lanes8 half8 = Lanes8{} + 0.5f;
        int j = 0;
        for (; wide && j + 8 <= run; j += 8) {
            Lanes8 v;
            std::memcpy(&v, s + j, sizeof(v));
            for (float* r : ring) {
                Lanes8 o;
                std::memcpy(&o, r + j, sizeof(o));
                const Lanes8 w = o * half8 + v;
                std::memcpy(r + j, &w, sizeof(w));
                v = o - v;
            }
            std::memcpy(s + j, &v, sizeof(v));
        }
        const Lanes half = {0.5f, 0.5f, 0.5f, 0.5f};
        for (; j + 4 <= run; j += 4) {
            Lanes v = loadLanes(s + j);
            for (float* r : ring) {
                const Lanes o = loadLanes(r + j);
                storeLanes(r + j, o * half + v);
                v = o - v;
            }
            storeLanes(s + j, v);
        }
        for (; j < run; ++j) {
            float v = s[j];
            for (float* r : ring) {
                const float o = r[j];
                r[j] = o * 0.5f + v;
                v = o - v;
            }
            s[j] = v;
        }
        for (Allpass& allpass : bank)
            allpass.index += run;
        n += run;
    }
}

// Cloned for wider processors as well: their three-operand forms save the register copies of the high-pass
// pair.
LANE_WIDE_CLONES void AFReverb3::processChunk(float* left, float* right, int count) noexcept {
    // Freeze closes the input and turns every comb into a lossless loop.
    const bool frozen = freeze > 0.5f;
    const float gain = frozen ? 0.0f : kInputGain;
    const float fb = frozen ? 1.0f : feedback;
    const float c1 = frozen ? 1.0f : dampInverse;
    const float c2 = frozen ? 0.0f : damp;

    float input[kChunk] = {};
    for (int n = 0; n < count; ++n)
        input[n] = (left[n] + right[n]) * gain + 1e-10f;

    float wetOut[2][kChunk];
    for (int ch = 0; ch < 2; ++ch) {
        runCombs(combs[ch], input, wetOut[ch], count, fb, c1, c2);
        runAllpasses(allpasses[ch], wetOut[ch], count);
    }

    // Width, mix and both output high-passes in one pass, left and right in the two lanes of a pair. A
    // resting width ramp keeps its mix gains for the whole chunk.
    using Pair = StateVariableHPPair::Pair;
    StateVariableHPPair highPass(highPassLeft, highPassRight, kFilterOffset);
    if (widthRamp.getIncrement() == 0.0) {
        const double w = widthRamp.advance();
        const double wet1 = (w + 1.0) * 0.5 * kWet;
        const double wet2 = (1.0 - w) * 0.5 * kWet;
        for (int n = 0; n < count; ++n) {
            const double outL = wetOut[0][n];
            const double outR = wetOut[1][n];
            const Pair y =
                highPass.stepHigh(Pair{wet1, wet1} * Pair{outL, outR} + Pair{wet2, wet2} * Pair{outR, outL});
            left[n] = static_cast<float>(y[0]);
            right[n] = static_cast<float>(y[1]);
        }
    } else {
        for (int n = 0; n < count; ++n) {
            const double w = widthRamp.advance();
            const double wet1 = (w + 1.0) * 0.5 * kWet;
            const double wet2 = (1.0 - w) * 0.5 * kWet;
            const double outL = wetOut[0][n];
            const double outR = wetOut[1][n];
            const Pair y =
                highPass.stepHigh(Pair{wet1, wet1} * Pair{outL, outR} + Pair{wet2, wet2} * Pair{outR, outL});
            left[n] = static_cast<float>(y[0]);
            right[n] = static_cast<float>(y[1]);
        }
    }
    highPass.finish();
}

void AFReverb3::formatParameter(int index, float value, char* text) {
    if (index == 3) {
        std::snprintf(text, kEffectTextSize, "%s", value > 0.5f ? "On" : "Off");
        return;
    }
    if (index == 5) {
        text[0] = '\0';
        return;
    }
    std::snprintf(text, kEffectTextSize, "%3.2f", static_cast<double>(value) * 100.0);
}
