#pragma once

#include ORVANTO_LV2_PORT_CHANGE_HEADER
#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// A minimal LV2 host on lilv, enough to play the Orvanto bundle as a DAW would: stereo audio, every control
// input, MIDI and the transport in through the atom input, MIDI out through the atom output.
namespace lv2host {

inline constexpr const char* kPluginUri = "urn:amberforge:orvanto";
// The one state value the adapter keeps, under the key DPF gives DSP-only state.
inline constexpr const char* kChunkKey = "urn:distrho:chunk";

// Interns URIs for the plug-in and for lilv; one per world, shared by all its instances.
class UridTable {
public:
    UridTable();
    LV2_URID map(const char* uri);
    const char* unmap(LV2_URID urid) const;
    LV2_URID_Map* mapFeature() { return &mapData; }
    LV2_URID_Unmap* unmapFeature() { return &unmapData; }

private:
    std::map<std::string, LV2_URID> ids;
    std::vector<std::string> names;
    LV2_URID_Map mapData;
    LV2_URID_Unmap unmapData;
};

// The world with nothing but the bundle loaded, so that no plug-in or preset of the machine gets in.
class World {
public:
    explicit World(const std::string& bundleDir);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Null when the bundle did not load or holds no Orvanto.
    const LilvPlugin* plugin() const { return found; }
    LilvWorld* get() const { return world; }
    UridTable& urids() { return table; }

private:
    LilvWorld* world;
    const LilvPlugin* found = nullptr;
    UridTable table;
};

struct MidiEvent {
    uint32_t frame; // within the block
    uint8_t data[3];
    uint8_t size;
};

struct Transport {
    double bpm = 120.0;
    float beatsPerBar = 4.0f;
    int32_t beatUnit = 4;
    bool playing = true;
    // Ardour writes a time:Position only when the transport jumps, starts, stops or changes tempo, and the
    // plug-in moves its position on by itself in between; some hosts write one with every block.
    bool positionEveryBlock = false;
};

class Instance {
public:
    // `maxBlock` is promised to the plug-in as both its nominal and its largest block.
    Instance(World& world, double sampleRate, uint32_t maxBlock);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    bool valid() const { return instance != nullptr; }
    void activate();

    // Host thread: hands the plug-in a host state image through its state interface, as base64 under the
    // chunk key. The raw text variant feeds it any string, to see what it makes of bad input.
    bool restoreChunk(const std::vector<uint8_t>& image);
    bool restoreChunkText(const std::string& text);
    // Host thread: the plug-in's state through lilv (control ports and the chunk), and back.
    LilvState* saveState();
    void restoreState(const LilvState* state);

    // Control input by symbol; false for an unknown symbol.
    // The plug-in's program interface, which LV2 lets hosts call from the thread that runs the plug-in.
    bool selectProgram(uint32_t program);

    bool setControl(const std::string& symbol, float value);
    float control(const std::string& symbol) const;

    // One block of at most maxBlock frames. The transport (a time:Position at frame 0) is sent with the first
    // block and whenever it changed as Transport says, and then moves on by the block; `events` must be in
    // time order.
    void run(const float* inLeft, const float* inRight, float* outLeft, float* outRight, uint32_t frames,
             const std::vector<MidiEvent>& events = {});

    Transport& transport() { return playhead; }
    // Moves the playhead to `at` frames from the song start.
    void locate(int64_t at) { frame = at; }
    // MIDI the plug-in sent in the last block, and what the output port held that was not MIDI.
    const std::vector<MidiEvent>& midiOut() const { return sent; }
    uint32_t foreignEventsOut() const { return foreign; }

private:
    struct Urids {
        LV2_URID atomFloat, atomDouble, atomInt, atomString, atomSequence, atomChunk, midiEvent, timePosition,
            timeFrame, timeSpeed, timeBpm, timeBar, timeBarBeat, timeBeatsPerBar, timeBeatUnit, blockNominal,
            blockMax, sampleRate;
    };

    static const void* portValue(const char* symbol, void* user, uint32_t* size, uint32_t* type);
    static void setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t type);
    static LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data);
    static LV2_ControlInputPort_Change_Status requestChange(LV2_ControlInputPort_Change_Request_Handle handle,
                                                            uint32_t port, float value);

    void writeEvents(uint32_t frames, const std::vector<MidiEvent>& events);
    void readEvents();

    World& world;
    Urids u{};
    double rate;
    int32_t optionBlock;
    float optionRate;
    LilvInstance* instance = nullptr;
    bool active = false;

    std::vector<LV2_Options_Option> options;
    LV2_Worker_Schedule worker{};
    LV2_ControlInputPort_Change_Request changeRequest{};
    LV2_Feature mapFeature{}, unmapFeature{}, optionsFeature{}, workerFeature{}, boundedFeature{},
        changeFeature{};
    std::vector<const LV2_Feature*> features;

    std::map<std::string, uint32_t> symbols; // control inputs by symbol, to their index in `controls`
    std::vector<float> controls;
    std::vector<uint32_t> controlPorts;
    std::vector<float> controlOutputs;
    uint32_t audioIn[2] = {0, 0};
    uint32_t audioOut[2] = {0, 0};
    uint32_t eventsIn = 0;
    uint32_t eventsOut = 0;
    std::vector<uint64_t> eventsInBuffer; // 64-bit words keep the atoms aligned
    std::vector<uint64_t> eventsOutBuffer;
    LV2_Atom_Forge forge{};

    int64_t frame = 0;
    // What the plug-in was last told, to know when it must be told again.
    struct Sent {
        int64_t nextFrame = -1;
        double bpm = 0.0;
        bool playing = false;
    } told;
    Transport playhead;
    std::vector<MidiEvent> sent;
    uint32_t foreign = 0;
};

// Standard base64 with padding, written here rather than borrowed from the adapter so that its decoder is
// checked against an independent encoder.
std::string base64(const std::vector<uint8_t>& bytes);

// Points HOME, XDG_CONFIG_HOME and XDG_DATA_HOME at a fresh folder, removed with the object, and
// ORVANTO_CONTENT_SOURCE at the compiled content: the engine reads them when it is built.
class PrivateHome {
public:
    explicit PrivateHome(const std::string& contentDir);
    ~PrivateHome();
    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;
    const std::string& path() const { return root; }

private:
    std::string root;
};

} // namespace lv2host
