#pragma once

#include "tools/MidiSchedule.h"
#include "tools/RenderAutomation.h"
#include "tools/RenderHost.h"
#include "tools/RenderOptions.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class AFUniClient;

// One plug-in instance under the offline host, brought to the state the options ask for: built and started as
// a DAW starts it, effects and their options chosen, automation resolved.
class RenderSession {
public:
    // Main thread.
    RenderSession(const RenderOptions& options, int sampleRate);
    RenderSession(const RenderSession&) = delete;
    RenderSession& operator=(const RenderSession&) = delete;
    ~RenderSession();

    // Main thread: construct, seed, set rate and block size, resume, then the state image and the presets,
    // then effects, options and parameter names, and the MIDI file. False with a one-line reason for a file
    // that is missing or not what its option takes, or an option or parameter the plug-in does not have.
    bool start(std::string& error);
    // Main thread: prints every host parameter after the values due at time 0.
    void listParameters();
    // Render thread: one host block of `frames` samples, out of place.
    void processBlock(float** inputs, float** outputs, int32_t frames, double seconds);
    // Main thread, after the last block.
    void stop();
    // Main thread: the host state image, as a host saves it with its project.
    std::vector<uint8_t> stateImage();

private:
    bool loadState(std::string& error);
    bool loadPreset(const RenderOptions::Preset& preset, std::string& error);
    bool applyOption(const RenderOptions::OptionChoice& choice, std::string& error);

    const RenderOptions& options;
    int sampleRate;
    RenderHost host;
    std::unique_ptr<AFUniClient> plugin;
    RenderAutomation automation;
    MidiSchedule midi;
    int64_t played = 0; // samples handed to the plug-in so far
};
