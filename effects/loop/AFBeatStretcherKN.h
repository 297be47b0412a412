#pragma once

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFEffect.h"

#include <array>
#include <cstdint>
#include <memory>

// Granulizer: records the input into a long stereo buffer once per activation and replays it through up to
// ten overlapping windowed grains, stretching time and shifting pitch independently.
class AFBeatStretcherKN : public AFEffect, public AFBPMChangeInterface {
public:
    static constexpr int kVoices = 10;
    static constexpr int kWindowSize = 256;

    // Any thread with the audio held off. Sizes the buffers for the slowest tempo at the highest rate.
    AFBeatStretcherKN(uint32_t effectType, AFSystemInfo* systemInfo, uint32_t constructionFlag);
    // The catalogue entry.
    static const AFEffectDescriptor descriptor;
    // Any thread with the audio held off.
    ~AFBeatStretcherKN() override;

    // Audio thread.
    void process(float* left, float* right, int count) noexcept override;
    // Audio thread at a control tick, or any thread with the audio held off.
    void setParameter(int index, float value) override;
    // Any thread.
    void setOption(int index, int32_t value) override;
    // Any thread.
    int32_t getOption(int index) override;
    // The effect's own code.
    void reset() override;
    // Audio thread, through bpmChanged: only the length in use changes.
    void tempoChanged(int32_t) noexcept override;
    // Audio thread or with the audio held off: restarts. Returns 1.
    int32_t activate() noexcept override;
    // Audio thread.
    void deactivate() noexcept override {}
    // GUI thread.
    void formatParameter(int index, float value, char* text) override;
    // Audio thread, from the block loop.
    void bpmChanged() noexcept override { tempoChanged(1); }
    // Audio thread: a fresh take, no grains sounding. Returns 1.
    virtual int32_t restart() noexcept;

    // Any thread; for inspection.
    int activeVoices() const noexcept;
    int32_t getCapacity() const noexcept { return capacity; }
    uint32_t getMargin() const noexcept { return margin; }
    uint32_t getWritePosition() const noexcept { return writePosition; }
    uint32_t getGrainSize() const noexcept { return grainSize; }
    double getDistance() const noexcept { return distance; }
    double getPitchRatio() const noexcept { return pitchRatio; }
    double getPlayPosition() const noexcept { return playPosition; }
    int32_t getUntilNextGrain() const noexcept { return untilNextGrain; }
    bool isRecording() const noexcept { return recording != 0; }
    // Index of the window table voice `voice` reads, 0..4.
    int voiceWindow(int voice) const noexcept;
    double voiceOffset(int voice) const noexcept { return grains[static_cast<std::size_t>(voice)].offset; }
    bool voiceActive(int voice) const noexcept { return grains[static_cast<std::size_t>(voice)].active; }

    // The shared window tables, each with a guard entry that repeats its last value. Any thread.
    static const std::array<std::array<float, kWindowSize + 1>, 5>& windowTables();

    // Two bars at 45 BPM and 196 kHz plus the margin at that rate.
    static const uint32_t kMaxBufferLength;

private:
    struct GrainVoice {
        const float* window = nullptr;
        double windowStart = 0.0;
        double inverseSpan = 1.0;
        double offset = 0.0;
        double position = 0.0;
        double step = 1.0;
        uint32_t length = 0;
        bool active = false;
    };

    void startGrain(int count) noexcept;
    void setWindows(int table) noexcept;
    template <bool Add>
    void render(GrainVoice& voice, float* left, float* right, int count) noexcept;
    template <bool Add>
    void renderSegments(GrainVoice& voice, float* left, float* right, int count) noexcept;
    template <bool Add, bool Checked>
    int renderRun(GrainVoice& voice, float* left, float* right, int count) noexcept;

    std::array<GrainVoice, kVoices> grains{};
    std::unique_ptr<float[]> leftBuffer;
    std::unique_ptr<float[]> rightBuffer;
    int32_t untilNextGrain = 0;
    int32_t grainIndex = 0;
    double pitchRatio = 1.0;
    double playPosition = 0.0;
    double distance = 0.0;
    double amount = 0.5;
    uint32_t grainSize = 0;
    uint32_t margin = 0;
    int32_t capacity = 0;
    uint32_t writePosition = 0;
    int32_t recording = 0;
    float lastPosition = 0.0f;
    uint8_t alternate = 0;
    // Samples below this index hold the take; above it the buffer reads as freshly cleared.
    uint32_t validEnd = 0;
    int32_t positionMode = 0;
    int32_t windowType = 0;
    int32_t direction = 0;
};
