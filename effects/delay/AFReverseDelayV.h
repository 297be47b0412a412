#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/ParamRamp.h"
#include "effects/framework/SampleBlock.h"

#include <array>
#include <cstdint>

// Reverse delay: each side replays its last stretch of input backwards, faded at both ends, and feeds the
// reversed sound back into its own ring with inverted sign. Wet only; the slot adds the dry path.
class AFReverseDelayV : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Registers for tempo changes when the list exists.
    AFReverseDelayV(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFReverseDelayV() override;

    // Audio thread: in place, at most 64 samples.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread; re-sends the parameter so a new sync mode takes effect at once.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread, once per tick before process.
    void controlTick() noexcept override;
    // Audio thread, through bpmChanged.
    void tempoChanged(int32_t) override;
    // Audio thread when the slot starts.
    int32_t activate() override;
    // Nobody in the running system.
    bool hasFlag() override { return true; }
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() override { tempoChanged(0); }

    // Any thread: ring capacity in force and the wanted stretch of each side, in samples.
    uint32_t getCapacity() const noexcept { return capacity; }
    uint32_t getLengthLeft() const noexcept { return lengthLeft; }
    uint32_t getLengthRight() const noexcept { return lengthRight; }

    // Ring size for the slowest tempo at the highest rate: six beats of 45 BPM at 196 kHz.
    static constexpr uint32_t kMaxCapacity = 1568001;

private:
    struct Side {
        float* buffer = nullptr;
        int32_t stretch = 0;
        int32_t fadeLength = 64;
        double readPosition = 0.0;
        int32_t remaining = 0;
    };

    uint32_t intervalByMode(int32_t mode, float v) const noexcept;
    // Per-sample steps, on the caller's local copies of the running state.
    [[gnu::always_inline]] static void startStretch(Side& side, uint32_t wanted, uint32_t position,
                                                    bool first, float fade) noexcept;
    [[gnu::always_inline]] static float processSide(Side& side, float input, double feedback,
                                                    uint32_t position, uint32_t size) noexcept;
    // One side through a chunk from the write position at its start; returns the write position after it.
    static uint32_t runSide(Side& side, uint32_t wanted, float* io, const double* feedback, int count,
                            uint32_t position, bool& first, uint32_t size, float fade) noexcept;

    // Samples per pass of the side loops.
    static constexpr int kChunk = 64;

    SampleBlock leftBuffer;
    SampleBlock rightBuffer;
    ParamRamp feedbackRamp;
    uint32_t writePosition = 0;
    uint32_t capacity = 0;
    uint32_t lengthLeft = 0;
    uint32_t lengthRight = 0;
    std::array<Side, 2> sides{};
    bool firstPass = true;
    std::array<int32_t, 2> options{};
};
