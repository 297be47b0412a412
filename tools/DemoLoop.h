#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The built-in test signal: two bars of kick, snare, hats and a bass line at the host tempo, synthesised once
// without any clock or system random source, so that every run gives the same samples. The loop is seamless:
// tails that ring past its end continue at its start.
class DemoLoop {
public:
    static constexpr int kBeats = 8;     // two bars of 4/4
    static constexpr float kPeak = 0.5f; // -6 dBFS, headroom for the effects

    // Main thread.
    DemoLoop(double sampleRate, double tempo);

    // Any thread: fills `frames` samples from position `frame` of the endless repetition.
    void render(int64_t frame, float* left, float* right, std::size_t frames) const;

    std::size_t length() const { return left.size(); }
    // Main thread: the largest magnitude of both channels.
    float peak() const;

private:
    void kick(double beat, float velocity);
    void snare(double beat, float velocity);
    void hat(double beat, float velocity, bool open);
    void bass(double beat, double beats, int midiNote, float velocity);
    // Adds one mono voice, panned, wrapping at the loop end.
    void add(std::size_t start, const std::vector<float>& voice, float pan);
    void normalise();
    float noise();

    double rate;
    double samplesPerBeat;
    std::vector<float> left;
    std::vector<float> right;
    uint32_t noiseState = 0x9E3779B9u;
};
