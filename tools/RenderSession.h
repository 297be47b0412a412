#pragma once

#include "tools/RenderAutomation.h"
#include "tools/RenderHost.h"
#include "tools/RenderOptions.h"

#include <memory>
#include <string>

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

    // Main thread: construct, seed, set rate and block size, resume, then effects, options and parameter
    // names. False with a one-line reason for an option or parameter the plug-in does not have.
    bool start(std::string& error);
    // Main thread: prints every host parameter after the values due at time 0.
    void listParameters();
    // Render thread: one host block of `frames` samples, out of place.
    void processBlock(float** inputs, float** outputs, int32_t frames, double seconds);
    // Main thread, after the last block.
    void stop();

private:
    bool applyOption(const RenderOptions::OptionChoice& choice, std::string& error);

    const RenderOptions& options;
    int sampleRate;
    RenderHost host;
    std::unique_ptr<AFUniClient> plugin;
    RenderAutomation automation;
};
