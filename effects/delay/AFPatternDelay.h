#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>
#include <memory>

// Pattern Delay: a tempo-synced multi-tap echo. "Delay Time" is the step of a grid, "Pattern" picks a rhythm
// of tap levels on that grid, and the whole pattern repeats through a feedback loop as long as the pattern,
// decaying by "Decay" per step. "Fade" lets the taps of each pass fade step by step; "2nd" and "3rd" send
// every second or third echo to the other side. Wet only; the slot adds the dry path.
class AFPatternDelay : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the rings for the slowest tempo at the highest rate.
    AFPatternDelay(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFPatternDelay() override;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    // Audio thread, once per control tick: rebuilds the taps when a setting moved.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: the ring follows the tempo.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread when the slot starts: empty rings, taps in place.
    int32_t activate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }

    // Any thread, for inspection: the step in samples and the delays of the taps in force.
    double getStep() const noexcept { return builtKey.step; }
    int getTapCount() const noexcept { return taps[active].count; }
    int32_t getTapDelay(int tap) const noexcept { return taps[active].delay[static_cast<std::size_t>(tap)]; }
    int32_t getLoopDelay() const noexcept { return taps[active].loop; }
    // Ring length for eight beats at the slowest tempo and the highest rate, plus the read margin.
    static const uint32_t kMaxRing;
    // Most taps one setting can ask for; a pattern repeated for the stereo count stays within it.
    static constexpr int kMaxTaps = 12;
    // Number of patterns the "Pattern" knob walks.
    static int patternCount() noexcept;

private:
    struct TapSet {
        std::array<int32_t, kMaxTaps> delay{};
        std::array<float, kMaxTaps> gain{};
        std::array<bool, kMaxTaps> cross{};
        int count = 0;
        int32_t loop = 1;       // feedback distance in samples
        float feedback = 0.0f;  // gain of one pass of the loop
        bool loopCross = false; // the loop feeds each side into the other
    };
    // The settings a tap set was built from.
    struct Key {
        double step = -1.0;
        int pattern = -1;
        float decay = -1.0f;
        int32_t fade = -1;
        int32_t spread = -1;
        uint32_t ring = 0;
        bool operator==(const Key&) const = default;
    };

    double stepFor(float value) const noexcept;
    Key wantedKey() const noexcept;
    void build(const Key& key, TapSet& set) const noexcept;
    // One stretch that crosses neither the ring's end nor a fade's end and is no longer than the loop.
    void runChunk(float* left, float* right, int n) noexcept;
    static void addTaps(const TapSet& set, const float* ringL, const float* ringR, int32_t write,
                        int32_t ring, float* outL, float* outR, int n) noexcept;
    // The loop's pass of n samples into to, scaled by its feedback.
    static void loopFeedback(const TapSet& set, const float* ringL, const float* ringR, int32_t write,
                             int32_t ring, float* toL, float* toR, int n) noexcept;

    std::array<int32_t, 4> options{};
    std::unique_ptr<float[]> ringLeft;
    std::unique_ptr<float[]> ringRight;
    uint32_t ringSize = 0;
    int32_t writePosition = 0;
    std::array<TapSet, 2> taps{};
    int active = 0;
    Key builtKey;
    // Samples left in the crossfade from the other tap set to the active one.
    int fadeLeft = 0;
    float amount = 1.0f;
    float amountStep = 0.0f;
};
