#include "effects/delay/AFReverb3.h"

#include "effects/framework/AFSystemInfo.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double kHighPassDamp = 1.0 - 0.11;
constexpr double kHighPassFrequency = 0.1;
constexpr int kChunk = 64;

float unitClamp(float v) noexcept {
    return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

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

} // namespace

AFReverb3::AFReverb3(uint32_t type, AFSystemInfo* system, uint32_t flag)
    : AFEffect(type, 6, system, flag), storage(totalLength(), 0.0f), widthRamp(system),
      highPassLeft(kHighPassFrequency, kHighPassDamp, StateVariableHP::Output::High),
      highPassRight(kHighPassFrequency, kHighPassDamp, StateVariableHP::Output::High) {
    setName("Reverb");
    defineParameter(0, "Size", 0.5f);
    defineParameter(1, "Damp", 0.5f);
    defineParameter(2, "Width", 0.5f);
    defineParameter(3, "Freeze", 1.0f);
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
        feedback = unitClamp(value) * 0.28f + 0.7f;
        break;
    case 1:
        damp = unitClamp(value) * 0.4f;
        blockUpdate();
        break;
    case 2:
        width = unitClamp(value);
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

// The eight combs run side by side so that their one-pole recursions overlap; the block is cut wherever a
// comb's ring wraps, so the inner loop needs no index test.
void AFReverb3::runCombs(std::array<Comb, kCombs>& bank, const float* input, float* out, int count, float fb,
                         float c1, float c2) noexcept {
    for (int n = 0; n < count;) {
        int run = count - n;
        for (Comb& comb : bank) {
            if (comb.index == comb.length - 1) comb.index = -1;
            run = std::min(run, comb.length - 1 - comb.index);
        }
        float* ring[kCombs];
        float store[kCombs];
        for (int k = 0; k < kCombs; ++k) {
            ring[k] = bank[k].buffer + bank[k].index + 1;
            store[k] = bank[k].store;
        }
        for (int j = 0; j < run; ++j) {
            const float x = input[n + j];
            float sum = 0.0f;
#pragma GCC unroll 8
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
// the loop has no recursion and vectorises.
void AFReverb3::runAllpass(Allpass& allpass, float* out, int count) noexcept {
    for (int n = 0; n < count;) {
        if (allpass.index == allpass.length - 1) allpass.index = -1;
        const int run = std::min(count - n, allpass.length - 1 - allpass.index);
        float* __restrict ring = allpass.buffer + allpass.index + 1;
        float* __restrict s = out + n;
        for (int j = 0; j < run; ++j) {
            const float o = ring[j];
            const float v = s[j];
            ring[j] = o * 0.5f + v;
            s[j] = o - v;
        }
        allpass.index += run;
        n += run;
    }
}

void AFReverb3::processChunk(float* left, float* right, int count) noexcept {
    // Freeze closes the input and turns every comb into a lossless loop.
    const bool frozen = freeze > 0.5f;
    const float gain = frozen ? 0.0f : kInputGain;
    const float fb = frozen ? 1.0f : feedback;
    const float c1 = frozen ? 1.0f : dampInverse;
    const float c2 = frozen ? 0.0f : damp;

    float input[kChunk];
    for (int n = 0; n < count; ++n)
        input[n] = (left[n] + right[n]) * gain + 1e-10f;

    float wetOut[2][kChunk];
    for (int ch = 0; ch < 2; ++ch) {
        runCombs(combs[ch], input, wetOut[ch], count, fb, c1, c2);
        for (Allpass& allpass : allpasses[ch])
            runAllpass(allpass, wetOut[ch], count);
    }

    for (int n = 0; n < count; ++n) {
        const double w = widthRamp.advance();
        const double wet1 = (w + 1.0) * 0.5 * kWet;
        const double wet2 = (1.0 - w) * 0.5 * kWet;
        const double outL = wetOut[0][n];
        const double outR = wetOut[1][n];
        left[n] = static_cast<float>(highPassLeft.process(wet1 * outL + wet2 * outR, kFilterOffset));
        right[n] = static_cast<float>(highPassRight.process(wet2 * outL + wet1 * outR, kFilterOffset));
    }
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
