#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/SampleBlock.h"

#include <array>
#include <cstdint>

// Slicearranger: captures the first bar (or two) after the slot starts, cut into sixteenth-note slices on the
// song's grid, and from then on plays the slices re-ordered by a bank of patterns from subtle
// to wild. Fills roll the last steps of a bar, "Decay" gates and shapes every slice, and the character option
// picks slices by their low or mid energy, transposes or reverses them, or keeps re-recording the result.
// Slice edges are faded over 44 samples unless the next slice continues the audio without a seam.
class AFSliceArranger : public AFEffect, public AFBPMChangeInterface {
public:
    // Any thread with the audio held off. Sizes the buffers for two bars at the slowest tempo and highest
    // rate.
    AFSliceArranger(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFSliceArranger() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // Audio thread when the slot starts: a fresh capture begins on this sample.
    int32_t activate() noexcept override;
    // Audio thread.
    void deactivate() noexcept override;
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;

    // Any thread; for inspection.
    int currentStep() const noexcept { return step; }
    bool isCapturing() const noexcept { return capturing; }

    // Two bars and a sixteenth at 45 BPM and 196 kHz, plus the sample interpolation reads past a slice.
    static const uint32_t kMaxCapacity;
    static constexpr int kMaxSlices = 32;

private:
    // How one step sounds: which slice, cut into how many repeats, at which rate and direction, how gated.
    struct Plan {
        int source = 0;
        int segments = 1;
        float rate = 1.0f;
        bool reverse = false;
        bool pong = false;
        float gate = 1.0f;
        float slope = 0.0f;
        float gain = 1.0f;
    };

    Plan planFor(int index, int steps, uint32_t cycle, uint32_t available, int live) const noexcept;
    int patternSource(int index, int steps) const noexcept;
    void applyCharacter(Plan& plan, int index) const noexcept;
    bool continues(const Plan& from, int64_t length, const Plan& to, int64_t toStart) const noexcept;
    void beginStep() noexcept;
    void beginSegment() noexcept;
    void finishSlice() noexcept;
    int64_t sourceStart(int source) const noexcept;
    int64_t sourceLength(int source) const noexcept;

    std::array<int32_t, 4> options{};

    SampleBlock leftBuffer;
    SampleBlock rightBuffer;
    std::array<int64_t, kMaxSlices> sliceStart{};
    std::array<int64_t, kMaxSlices> sliceLength{};
    std::array<double, kMaxSlices> bassEnergy{};
    std::array<double, kMaxSlices> midEnergy{};
    std::array<int, kMaxSlices> bassRank{};
    std::array<int, kMaxSlices> snareRank{};
    // Slices holding audio, and those captured from their first sample; the capture runs until every slice
    // of `captureMask` is whole.
    uint32_t availableMask = 0;
    uint32_t wholeMask = 0;
    uint32_t captureMask = 0;
    int rankedSlices = 0;
    int64_t writePosition = 0;
    bool capturingStep = false;
    bool partialStep = false;

    // The step grid, counted in samples from the start of the running cycle.
    double gridClock = 0.0;
    int64_t cyclePosition = 0;
    int64_t stepStart = 0;
    int64_t stepEnd = 0;
    int step = 0;
    int cycleSteps = 16;
    int pendingSteps = 16;
    uint32_t cycle = 0;
    bool capturing = false;
    bool running = false;

    // The slice playing now and the one lined up after it, so its seam can be left unfaded.
    Plan current;
    Plan upcoming;
    bool fadeInCurrent = false;
    bool fadeOutCurrent = true;

    // The repeat of the current slice being played.
    int segment = 0;
    int64_t segmentPosition = 0;
    int64_t segmentLength = 0;
    int64_t segmentPlayed = 0;
    int64_t readStart = 0;
    int64_t readLength = 0;
    double readPhase = 0.0;
    float readRate = 1.0f;
    bool readReverse = false;
    bool fadeIn = false;
    bool fadeOut = true;
    float gainLeft = 1.0f;
    float gainRight = 1.0f;
    float playedInverse = 0.0f;

    // Band energies of the slice being captured.
    double lowState = 0.0;
    double midLowState = 0.0;
    double midHighState = 0.0;
    double lowSum = 0.0;
    double midSum = 0.0;
};
