#pragma once

#include <array>
#include <cstdint>

class AFBpmListenerList;

// The shared timing record. One lives inside the plug-in object; every effect, LFO and envelope follower
// holds a pointer to it and reads it directly. Written by the block loop on the audio thread.
class AFSystemInfo {
public:
    struct Pair {
        float value;
        float delta; // difference to the next row
    };

    static constexpr int kSemitoneRows = 257; // -128 .. +128 semitones
    static constexpr int kSemitoneCentre = 128;
    static constexpr int kNoteLadderRows = 165;
    static constexpr float kMinSampleRate = 11050.0f;
    static constexpr float kMaxSampleRate = 196000.0f;
    static constexpr double kMinTempo = 45.0;
    static constexpr double kMaxTempo = 500.0; // exclusive

    // Any thread, before the audio runs.
    AFSystemInfo(float maxBlock, AFBpmListenerList* listeners);

    // Accepts 11050..196000 inclusive and recomputes every rate field; any other value is ignored.
    // Returns whether the rate was taken. Audio thread or with the audio held off.
    bool setSampleRate(float rate);
    // Below 45 stores 45, below 500 stores the value, from 500 on ignores it. Audio thread.
    void setTempo(double newBpm);
    // Sets the control tick length in samples and recomputes. Construction only.
    void setControlInterval(int samples);

    // Semitone ratio for -128..+128; out-of-range indices are clamped.
    float semitoneRatio(int semitones) const noexcept;

    double bpm = 120.0;
    float samplesPerBeat = 22100.0f;
    float controlRate = 200.0f;
    int32_t controlInterval = 200;
    int32_t reservedCount = 0;
    float rampFactor = 0.005f;
    float sampleRate = 44100.0f;
    float maxBlock;
    float ppqPosition = 0.0f;
    double ppqStep = 0.0;
    float ticksPerBeat = 110.5f;
    float rateRatio = 0.0f;
    float sampleTime = 0.0f;
    float twoSampleTime = 0.0f;
    float twoPiSampleTime = 0.0f;
    float piSampleTime = 0.0f;
    float controlTime = 0.0f;
    float ticksPerMillisecond = 0.0f;
    float samplesPerMillisecond = 0.0f;
    float sampleRateOverTwoPi = 0.0f;
    float inverseRate1024 = 0.0f;
    std::array<Pair, kSemitoneRows> semitoneTable{};
    AFBpmListenerList* bpmListeners;

    // Kept up to date by the block loop and the MIDI handler.
    float transportRunning = 0.0f; // 1.0 while the host plays
    int32_t lastProgramChange = 0;
    float pitchBend = 0.0f; // -1..1
    // The owner's word, copied by every effect at construction.
    uint32_t hostWord = 0;

    // Note-frequency ladder: starts at 1.021975, each value a semitone above the last.
    std::array<Pair, kNoteLadderRows> noteLadder{};

private:
    void recomputeRateFields();
    void recomputeTempoFields();
};
