// Draws the editor for a given state into a PNG, with no display: orvanto-editor-shot [--state FILE]
// [--preset FILE[@SLOT]] [--scale S] [--page PAGE] [--slot N] -o FILE.png
#include "editor/AFEditorHost.h"
#include "editor/AFEditorSnapshot.h"
#include "editor/AFUniClientEditor.h"
#include "engine/AFUniClient.h"
#include "host/AFPluginTypes.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

intptr_t answer(AFPluginBase*, int32_t opcode, int32_t, intptr_t, void* ptr, float) {
    if (opcode == audioMasterGetSampleRate) return 44100;
    if (opcode != audioMasterGetVendorString || ptr == nullptr) return 0;
    std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", "Orvanto Editor Shot");
    return 1;
}

int usage() {
    std::fprintf(stderr, "usage: orvanto-editor-shot [--state FILE] [--preset FILE[@SLOT]]... [--scale S] "
                         "[--page PAGE] [--slot N] "
                         "-o FILE.png\n"
                         "pages: main, modulators, dictator, midi, settings, about\n");
    return 2;
}

// Runs a second of a sine through the engine, so that started slots run and modulators move.
void play(AFUniClient& client) {
    constexpr int kBlock = 512;
    std::vector<float> left(kBlock), right(kBlock), outLeft(kBlock), outRight(kBlock);
    float* inputs[2] = {left.data(), right.data()};
    float* outputs[2] = {outLeft.data(), outRight.data()};
    client.setSampleRate(44100.0f);
    client.setBlockSize(kBlock);
    client.resume();
    double phase = 0.0;
    for (int block = 0; block < 86; ++block) {
        for (int i = 0; i < kBlock; ++i) {
            left[static_cast<std::size_t>(i)] = right[static_cast<std::size_t>(i)] =
                0.5f * static_cast<float>(std::sin(phase));
            phase += 2.0 * 3.14159265358979 * 220.0 / 44100.0;
        }
        client.processReplacing(inputs, outputs, kBlock);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::string statePath;
    std::vector<std::string> presets;
    std::string output;
    double scale = 1.0;
    std::string page = "main";
    int slot = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) return usage();
        if (arg == "--state")
            statePath = argv[++i];
        else if (arg == "--preset")
            presets.emplace_back(argv[++i]);
        else if (arg == "--scale")
            scale = std::atof(argv[++i]);
        else if (arg == "--slot")
            slot = std::atoi(argv[++i]);
        else if (arg == "--page")
            page = argv[++i];
        else if (arg == "-o")
            output = argv[++i];
        else
            return usage();
    }
    if (output.empty() || !(scale >= 0.5 && scale <= 4.0) || slot < 1 || slot > AFUniClient::kSlots)
        return usage();

    AFUniClient client(answer, nullptr);
    if (!statePath.empty()) {
        std::ifstream file(statePath, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (bytes.empty() || client.setChunk(bytes.data(), static_cast<int32_t>(bytes.size()), false) == 0) {
            std::fprintf(stderr, "orvanto-editor-shot: cannot read state %s\n", statePath.c_str());
            return 1;
        }
    }
    for (const std::string& preset : presets) {
        std::string path = preset;
        int slot = -1;
        if (const auto at = preset.rfind('@'); at != std::string::npos) {
            path = preset.substr(0, at);
            slot = std::atoi(preset.c_str() + at + 1) - 1;
            if (slot < 0 || slot >= AFUniClient::kSlots) return usage();
        }
        if (!client.loadPreset(path, slot, false)) {
            std::fprintf(stderr, "orvanto-editor-shot: cannot load %s\n", path.c_str());
            return 1;
        }
    }
    play(client);

    bool written = false;
    {
        AFEditorHost host;
        AFUniClientEditor editor(client, host);
        editor.open();
        editor.selectSlot(slot - 1);
        if (!editor.showPage(page)) {
            std::fprintf(stderr, "orvanto-editor-shot: no page %s\n", page.c_str());
            return usage();
        }
        editor.idle(0.0);
        editor.idle(AFUniClientEditor::kTimerPeriodMs);
        written = AFEditorSnapshot::write(editor, scale, output);
    }
    // The font caches go back too, so a leak checker sees only our own allocations.
    cairo_debug_reset_static_data();
    FcFini();
    if (!written) {
        std::fprintf(stderr, "orvanto-editor-shot: cannot write %s\n", output.c_str());
        return 1;
    }
    return 0;
}
