#include "fuzz/FuzzRig.h"

#include "engine/AFUniClient.h"
#include "state/AFMessageSink.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

std::string makeHome() {
    char pattern[] = "/tmp/orvanto-fuzz-XXXXXX";
    const char* folder = mkdtemp(pattern);
    const std::string home = folder != nullptr ? folder : "/tmp";
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    unsetenv("ORVANTO_CONTENT_SOURCE");
    return home;
}

RenderHost::Transport transport() {
    RenderHost::Transport t;
    t.sampleRate = 48000.0;
    t.tempo = 133.0;
    return t;
}

void quiet(void*, const char*) {}

} // namespace

// A state load that builds a delay line allocates and frees megabytes; by default the sanitizer gives the
// shadow of such a block back to the system each time and faults it in again on the next. Kept mapped, it is
// only rewritten. Options given in ASAN_OPTIONS still win.
extern "C" const char* __asan_default_options() {
    return "clear_shadow_mmap_threshold=1073741824";
}

FuzzRig& FuzzRig::get() {
    static FuzzRig rig;
    return rig;
}

FuzzRig::FuzzRig() : homeFolder(makeHome()), host(transport()) {
    // Hostile files make the engine speak; the fuzzer's output stays readable.
    plugin = std::make_unique<AFUniClient>(&RenderHost::callback, &host);
    plugin->getMessageSink().setHandler(&quiet, nullptr);
    plugin->setSampleRate(48000.0f);
    plugin->setBlockSize(kBlock);
    plugin->resume();
    for (int i = 0; i < kBlock; ++i) {
        left[i] = 0.0f;
        right[i] = 0.0f;
    }
}

void FuzzRig::play(int blocks) {
    float* io[2] = {left, right};
    for (int b = 0; b < blocks; ++b) {
        // A click train with a tone: enough for followers, transient detectors and loopers to react.
        for (int i = 0; i < kBlock; ++i) {
            const float tone = 0.3f * std::sin(0.05f * static_cast<float>(i + b * kBlock));
            left[i] = i == 0 ? 0.9f : tone;
            right[i] = -tone;
        }
        plugin->processReplacing(io, io, kBlock);
        host.advance(kBlock);
    }
}

const std::string& FuzzRig::scratch(const uint8_t* data, std::size_t size, const char* extension) {
    scratchPath = homeFolder + "/input" + extension;
    if (FILE* f = std::fopen(scratchPath.c_str(), "wb")) {
        if (size > 0) std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return scratchPath;
}
