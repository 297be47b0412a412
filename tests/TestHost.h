#pragma once

#include "engine/AFUniClient.h"
#include "host/AFPluginTypes.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A small host for tests: answers the plug-in's calls, supplies a time record that advances with the
// transport, and records what the plug-in reports. Nothing in its callback allocates, so it can stand in for
// a real-time host in the allocation test.
class TestHost {
public:
    explicit TestHost(float rate = 44100.0f, int block = 512, const char* vendor = "Orvanto Test Host");

    AFUniClient& client() { return *plugin; }

    // Renders `frames` samples of `left`/`right` in place in blocks of `block`, advancing the transport.
    void render(float* left, float* right, int frames, int block);
    // One host block, out of place when `in` differs from `out`.
    void processBlock(float* left, float* right, int frames);

    // Time record the next block sees; `playing` and the cycle follow the flags.
    AFTimeInfo time{};
    bool provideTime = true;
    bool playing = true;
    bool cycle = false;
    float sampleRate;
    std::string vendor;

    int automateCount = 0;
    int lastAutomatedIndex = -1;
    int wantMidiCount = 0;
    static constexpr int kMaxMidiOut = 4096;
    std::array<AFMidiEvent, kMaxMidiOut> midiOut{};
    int midiOutCount = 0;

private:
    static intptr_t callback(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                             float opt);
    std::unique_ptr<AFUniClient> plugin;
};

// A buffer of `frames` samples, all `value`.
std::vector<float> constantSignal(int frames, float value);
