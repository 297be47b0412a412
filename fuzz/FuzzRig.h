#pragma once

#include "tools/RenderHost.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

class AFUniClient;

// What every fuzz target shares: one engine built once per process behind an offline host, a private home
// folder so no run touches the user's settings or content, and a scratch file for loaders that take a path.
// Fuzzing thread only.
class FuzzRig {
public:
    static FuzzRig& get();

    AFUniClient& client() { return *plugin; }
    // Runs `blocks` host blocks of a fixed test signal through the engine, the transport moving on.
    void play(int blocks);
    // Writes the input to the scratch file with the given extension (".afo", ".AFS", …) and returns its path.
    const std::string& scratch(const uint8_t* data, std::size_t size, const char* extension);
    const std::string& home() const { return homeFolder; }

private:
    FuzzRig();

    static constexpr int kBlock = 128;
    std::string homeFolder;
    std::string scratchPath;
    RenderHost host;
    std::unique_ptr<AFUniClient> plugin;
    float left[kBlock];
    float right[kBlock];
};
