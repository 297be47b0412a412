#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/PitchShifter.h"
#include "effects/framework/SampleBlock.h"

#include <array>
#include <cstdint>

// Reactor: waits for a hit above "Threshold" (or, "Active", takes the sound at once), records from it and
// plays what it holds: "Freeze" a cloud of grains drawn from the first "HoldTime" of it, "Reverb" the hit
// for "HoldTime" and then only its dense tail, "Looper" a loop of "HoldTime" that starts on the beat grid.
// "Speed" is the loop's tape speed, the freeze's drift through the hold or the tail's length; "Pitch"
// transposes by up to an octave. Until it engages it passes the input through, so switching on is silent.
class AFTransientLooper : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes every buffer for the slowest tempo at the highest rate.
    AFTransientLooper(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFTransientLooper() override;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    void setOption(int index, int32_t value) override;
    int32_t getOption(int index) override;
    // Audio thread, once per control tick.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged: the record length follows the tempo.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread when the slot starts: listening again, nothing held.
    int32_t activate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }

    // Any thread, for inspection: samples from activation to the hit (-1 while listening), from activation to
    // the loop's first start, the loop length in force and the loops completed.
    int64_t getHitSample() const noexcept { return hitSample; }
    int64_t getLoopStartSample() const noexcept { return hitSample < 0 ? -1 : hitSample + wait; }
    double getLoopLength() const noexcept { return loopLength; }
    uint32_t getLoopCount() const noexcept { return loopCount; }
    // Record length for two beats at the slowest tempo and the highest rate.
    static const uint32_t kMaxRecord;

private:
    enum class State { Listening, Holding };
    static constexpr int kLines = 8;
    static constexpr int32_t kLineSize = 16384;
    // Rings spaced off the power of two, so that the lines do not share cache sets.
    static constexpr std::size_t kLineStride = kLineSize + 144;
    static constexpr int kGrains = 2;
    // The pitch path's rings: longer than the shifter reads back at the highest rate, so a sound has left it
    // this many samples after it went in.
    static constexpr int kPitchRing = 16384;
    struct Grain {
        uint32_t start = 0;
        float age = 0.0f;
        float length = 1.0f;
        float scale = 1.0f; // window rows per sample
        float ratio = 1.0f; // kept from its start, so that it never reads past the hold
        bool on = false;
    };

    double holdFor(float value) const noexcept;
    void startHold(int offset) noexcept;
    void recordBlock(const float* l, const float* r, int count) noexcept;
    [[gnu::always_inline]] void read(double position, float& l, float& r) const noexcept;
    void runLooper(float* left, float* right, int from, int count) noexcept;
    // A grain's read at its age, weighted by w, added to yL and yR.
    [[gnu::always_inline]] void addGrain(const Grain& g, float w, float& yL, float& yR) const noexcept;
    void runFreeze(float* left, float* right, int from, int count) noexcept;
    // Samples from..count of the frozen sound once fully faded in, as far as no grain starts or ends: how
    // many it rendered (0: none, the next sample needs the full step).
    int freezeStretch(float* left, float* right, int from, int count, float into) noexcept;
    void runReverb(float* left, float* right, int from, int count) noexcept;
    // The reverb's tail over n samples, added to the output; send is what enters it.
    void runTail(float* left, float* right, const float* sendL, const float* sendR, int n) noexcept;
    void spawnGrain() noexcept;
    // In place: the block into the pitch rings and, while pitched or fading out, the shifted sound over it.
    void transpose(float* left, float* right, int count) noexcept;
    uint32_t random() noexcept;

    std::array<int32_t, 4> options{};
    SampleBlock recordL;
    SampleBlock recordR;
    uint32_t capacity = 0;
    uint32_t written = 0;
    State state = State::Listening;
    int64_t sampleCount = 0;
    int64_t hitSample = -1;
    int64_t sinceHit = 0;
    int64_t wait = 0;
    float slowLevel = 0.0f;
    float threshold = 0.0f;
    double hold = 0.0;
    float pitchRatio = 1.0f;
    bool pitched = false;
    float pitchMix = 0.0f;
    PitchShifter shifter;

    // Looper
    double loopLength = 0.0;
    double cycleClock = 0.0;
    double runPosition = 0.0;
    double runEnd = 0.0;
    double runSpeed = 1.0;
    double speedRatio = 1.0;
    uint32_t loopCount = 0;

    // Freeze
    std::array<Grain, kGrains> grains{};
    std::array<float, 1025> hann{};
    double head = 0.0;
    double drift = 0.0;
    float grainLength = 2048.0f;
    float untilGrain = 0.0f;
    int nextGrain = 0;
    uint32_t seed = 1;

    // Reverb
    SampleBlock lines;
    std::array<int32_t, kLines> lineLength{};
    std::array<float, kLines> lineGain{};
    std::array<float, kLines> lineLow{};
    int32_t lineWrite = 0;
    float tailSeconds = 0.0f;
    int32_t lineMask = kLineSize - 1;

    SampleBlock pitchRingL;
    SampleBlock pitchRingR;
    int64_t pitchWrite = 0;
};
