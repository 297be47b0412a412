#pragma once

#include "DistrhoPlugin.hpp"
#include "host/AFEditorLink.h"
#include "host/AFMasterBypass.h"
#include "host/AFPluginTypes.h"
#include "host/AFSongPosition.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class AFUniClient;

START_NAMESPACE_DISTRHO

// Owns the engine before DPF's base is built, so that the program count the base needs can come from the
// engine's preset bank.
struct AFDPFClientHolder {
    // `host` is the wrapper under construction: the engine may only ask it the fixed answers meanwhile.
    explicit AFDPFClientHolder(void* host);
    ~AFDPFClientHolder();
    std::unique_ptr<AFUniClient> client;
};

// The host adapter: presents one AFUniClient to LV2, VST3, CLAP, VST2 and JACK through DPF, and plays the
// host's part towards it through the plug-in surface's callback. It only forwards; the sound is the engine's.
class AFDPFWrapper : private AFDPFClientHolder, public Plugin {
public:
    // Parameters 0..251 are the engine's; one more is the host's bypass.
    static constexpr uint32_t kMasterBypass = AFIdentity::kParameters;
    static constexpr uint32_t kParameterCount = AFIdentity::kParameters + 1;
    static constexpr uint32_t kMidiCapacity = 512;
    // The vendor we give the engine: not the maker's, so the default preset loads as in any other host.
    static constexpr const char* kHostVendor = "AFDPF";

    // Host thread.
    AFDPFWrapper();
    // The engine's host callback. Audio thread for time and MIDI out, any thread for the fixed answers.
    static intptr_t hostCallbackEntry(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value,
                                      void* ptr, float opt);
    ~AFDPFWrapper() override;

    // The editor reaches the engine directly (GUI thread).
    AFUniClient& getEditorClient() noexcept { return *client; }
    AFEditorLink& getEditorLink() noexcept { return editorLink; }

protected:
    const char* getLabel() const override { return "Orvanto"; }
    const char* getDescription() const override;
    const char* getMaker() const override { return AFIdentity::kVendor; }
    const char* getHomePage() const override { return "https://amberforge.com/orvanto"; }
    const char* getLicense() const override { return "Proprietary"; }
    uint32_t getVersion() const override { return d_version(1, 1, 1); }
    int64_t getUniqueId() const override { return d_cconst('a', 'f', 'o', 'u'); }

    // Host thread, at instantiation.
    void initAudioPort(bool input, uint32_t index, AudioPort& port) override;
    void initParameter(uint32_t index, Parameter& parameter) override;
    void initProgramName(uint32_t index, String& name) override;
    void initState(uint32_t index, State& state) override;

    // Any thread, as the host calls them.
    float getParameterValue(uint32_t index) const override;
    void setParameterValue(uint32_t index, float value) override;
    // Any thread: a global preset of the bank. On a host thread it loads before this returns; from the audio
    // thread it is only noted, and the program loader reads and applies it.
    void loadProgram(uint32_t index) override;
    // Host thread: the whole plug-in as one value, the base64 of the host chunk.
    String getState(const char* key) const override;
    void setState(const char* key, const char* value) override;

    // Host thread, outside the audio.
    void activate() override;
    void deactivate() override;
    void bufferSizeChanged(uint32_t newBufferSize) override;
    void sampleRateChanged(double newSampleRate) override;

    // Audio thread.
    void run(const float** inputs, float** outputs, uint32_t frames, const MidiEvent* midiEvents,
             uint32_t midiEventCount) override;

private:
    intptr_t answer(int32_t opcode, void* ptr);
    void readTime(uint32_t frames);
    void fillTime(uint32_t offset);
    void runPiece(const float** inputs, float** outputs, uint32_t start, uint32_t frames,
                  const MidiEvent* midiEvents, uint32_t midiEventCount, uint32_t& nextEvent);
    void sizeBuffers(uint32_t frames);
    void reportEngineMoves(uint32_t frames);
    // Program loader thread.
    void loadPrograms(std::stop_token stop);

    AFMasterBypass bypass;
    AFSongPosition songPosition;
    // The block's transport as the engine sees it; each piece moves the position on from the block start.
    AFTimeInfo time{};
    double blockQuarters = 0.0;
    double quartersPerFrame = 0.0;
    std::array<AFMidiEvent, kMidiCapacity> midiIn{};
    std::vector<float> dryLeft;
    std::vector<float> dryRight;
    uint32_t capacity = 0;
    // What the host last set or was told of each engine parameter: the engine moves Controls itself (MIDI,
    // the Dictator, a state load), and a host that hears of it keeps its own copy, and so its sessions, true.
    std::array<float, AFIdentity::kParameters> hostValues{};
    uint32_t requestOffset = 0;
    static constexpr uint32_t kMinScanStride = (AFIdentity::kParameters + 15) / 16;
    static constexpr double kReportSeconds = 0.1;
    uint32_t scanCursor = 0;
    // The thread that ran the last block: a program asked for there is left to the program loader.
    std::atomic<std::thread::id> audioThread{};
    // A program asked for on the audio thread, -1 when none; state loads and program loads take turns.
    std::atomic<int32_t> pendingProgram{-1};
    mutable std::mutex stateMutex;
    std::jthread programLoader;
    // Last, so that its timer stops before anything it serves goes away.
    AFEditorLink editorLink{*client};
};

END_NAMESPACE_DISTRHO
