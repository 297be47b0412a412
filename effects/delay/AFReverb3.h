#pragma once

#include "effects/delay/StateVariableHP.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"

#include <array>
#include <vector>

// FreezeVerb: eight parallel damped combs and four serial allpasses per channel, a width stage and a
// high-pass on each output. Freeze turns the combs into endless loops that take no new input. Delay lengths
// are fixed in samples, so the room scales with the sample rate. Wet only; the slot adds the dry path.
class AFReverb3 : public AFEffect {
public:
    static constexpr int kCombs = 8;
    static constexpr int kAllpasses = 4;
    static constexpr std::array<std::array<int, kCombs>, 2> kCombLengths{{
        {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617},
        {1139, 1211, 1300, 1379, 1445, 1514, 1580, 1640},
    }};
    static constexpr std::array<std::array<int, kAllpasses>, 2> kAllpassLengths{{
        {556, 441, 341, 225},
        {579, 464, 364, 248},
    }};
    static constexpr float kInputGain = 0.015f;
    static constexpr double kWet = 1.05;
    // Offset fed into the output high-passes to keep them out of denormals.
    static constexpr double kFilterOffset = 1.000000013351432e-10;

    // Any thread with the audio held off.
    AFReverb3(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off. Indices 0..5; others are
    // ignored.
    void setParameter(int index, float value) override;
    // Audio thread, from activate and deactivate: silences every comb, allpass and filter.
    void reset() override;
    // Audio thread, once per tick before process.
    void controlTick() noexcept override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Audio thread when the slot's fade-out ends: the tail is dropped.
    void deactivate() override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

private:
    struct Comb {
        float* buffer;
        int length;
        int index;
        float store;
    };
    struct Allpass {
        float* buffer;
        int length;
        int index;
    };

    void blockUpdate() noexcept;
    void updateWidthDelta() noexcept;
    void processChunk(float* left, float* right, int count) noexcept;
    static void runCombs(std::array<Comb, kCombs>& bank, const float* input, float* out, int count, float fb,
                         float c1, float c2) noexcept;
    static void runAllpasses(std::array<Allpass, kAllpasses>& bank, float* out, int count) noexcept;

    std::vector<float> storage;
    std::array<std::array<Comb, kCombs>, 2> combs{};
    std::array<std::array<Allpass, kAllpasses>, 2> allpasses{};
    float feedback = 0.84f;
    float width = 1.0f;
    float damp = 0.0f;
    float dampInverse = 1.0f;
    float freeze = 0.0f;
    ParamRamp widthRamp;
    StateVariableHP highPassLeft;
    StateVariableHP highPassRight;
};
