// A small CLAP host of our own: loads the built orvanto.clap the way a DAW does and checks what the adapter
// presents (parameters, ports, state) and how it plays (pass-through, events, MIDI, bad input, lifecycle).
#include "clap/entry.h"
#include "clap/ext/audio-ports.h"
#include "clap/ext/note-ports.h"
#include "clap/ext/params.h"
#include "clap/ext/state.h"
#include "clap/plugin-factory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

// Every heap request of the process, the plug-in's included (the executable exports these, so the loaded
// plug-in binds to them), counted while a plug-in call is under way.
std::atomic<bool> countingAllocations{false};
std::atomic<int64_t> allocationsCounted{0};

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);

void* malloc(std::size_t size) {
    if (countingAllocations.load(std::memory_order_relaxed)) allocationsCounted.fetch_add(1);
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    if (countingAllocations.load(std::memory_order_relaxed)) allocationsCounted.fetch_add(1);
    return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) {
    if (countingAllocations.load(std::memory_order_relaxed)) allocationsCounted.fetch_add(1);
    return __libc_realloc(pointer, size);
}
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    if (countingAllocations.load(std::memory_order_relaxed)) allocationsCounted.fetch_add(1);
    const auto a = static_cast<std::size_t>(alignment);
    if (void* p = std::aligned_alloc(a, (size + a - 1) / a * a)) return p;
    throw std::bad_alloc();
}
void operator delete(void* pointer, std::align_val_t) noexcept {
    std::free(pointer);
}
void operator delete(void* pointer, std::size_t, std::align_val_t) noexcept {
    std::free(pointer);
}

namespace {

constexpr double kRate = 48000.0;
constexpr uint32_t kFrames = 512;
constexpr uint32_t kParameterCount = 253;
constexpr clap_id kControl1 = 0;
constexpr clap_id kControl2 = 1;
constexpr clap_id kDryWet = 9;
constexpr clap_id kFx1Parameter1 = 12;
constexpr clap_id kFx2FxGain = 245;
constexpr clap_id kMasterBypass = 252;

// ---- The plug-in file, loaded once per test process ------------------------------------------------------

// The plug-in writes settings and installs its content on first use: it gets a private home and the compiled
// factory tree, set before the entry is initialised because initialising it already builds an engine.
class LoadedPlugin : public ::testing::Environment {
public:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "orvanto-clap-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        home = pattern;
        std::filesystem::create_directories(home / "config");
        std::filesystem::create_directories(home / "data");
        setenv("HOME", home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
        setenv("ORVANTO_CONTENT_SOURCE", ORVANTO_CONTENT_DIR, 1);

        library = dlopen(ORVANTO_CLAP_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        entry = static_cast<const clap_plugin_entry_t*>(dlsym(library, "clap_entry"));
        ASSERT_NE(entry, nullptr) << "no clap_entry in " << ORVANTO_CLAP_PLUGIN;
        ASSERT_TRUE(clap_version_is_compatible(entry->clap_version));
        ASSERT_TRUE(entry->init(ORVANTO_CLAP_PLUGIN));
        initialised = true;
        factory = static_cast<const clap_plugin_factory_t*>(entry->get_factory(CLAP_PLUGIN_FACTORY_ID));
        ASSERT_NE(factory, nullptr);
    }

    void TearDown() override {
        if (initialised) entry->deinit();
        if (library != nullptr) dlclose(library);
        std::error_code ignored;
        if (!home.empty()) std::filesystem::remove_all(home, ignored);
    }

    std::filesystem::path home;
    void* library = nullptr;
    const clap_plugin_entry_t* entry = nullptr;
    const clap_plugin_factory_t* factory = nullptr;
    bool initialised = false;
};

LoadedPlugin* loaded = nullptr;

// ---- Audio and events ------------------------------------------------------------------------------------

struct Stereo {
    std::vector<float> left;
    std::vector<float> right;
};

// A full-band test signal: two tones and a fixed noise, different on each side.
Stereo testSignal(uint32_t frames, uint32_t seed = 1) {
    Stereo s{std::vector<float>(frames), std::vector<float>(frames)};
    uint32_t state = seed * 2654435761u + 12345u;
    for (uint32_t i = 0; i < frames; ++i) {
        state = state * 1664525u + 1013904223u;
        const float noise = static_cast<float>(state >> 8) / 16777216.0f - 0.5f;
        const double t = i / kRate;
        s.left[i] = static_cast<float>(0.4 * std::sin(2.0 * M_PI * 220.0 * t)) + 0.1f * noise;
        s.right[i] = static_cast<float>(0.3 * std::sin(2.0 * M_PI * 1375.0 * t)) - 0.1f * noise;
    }
    return s;
}

bool allFinite(const Stereo& s) {
    const auto finite = [](float v) { return std::isfinite(v); };
    return std::all_of(s.left.begin(), s.left.end(), finite) &&
           std::all_of(s.right.begin(), s.right.end(), finite);
}

// The first frame where two signals differ at all, or -1.
int64_t firstDifference(const Stereo& a, const Stereo& b, uint32_t from = 0) {
    const std::size_t n = std::min(a.left.size(), b.left.size());
    for (std::size_t i = from; i < n; ++i)
        if (a.left[i] != b.left[i] || a.right[i] != b.right[i]) return static_cast<int64_t>(i);
    return a.left.size() == b.left.size() ? -1 : static_cast<int64_t>(n);
}

// One block's input events, kept sorted by time as CLAP asks.
class EventList {
public:
    EventList() {
        list.ctx = this;
        list.size = [](const clap_input_events_t* l) {
            return static_cast<uint32_t>(static_cast<const EventList*>(l->ctx)->events.size());
        };
        list.get = [](const clap_input_events_t* l, uint32_t index) -> const clap_event_header_t* {
            const auto& events = static_cast<const EventList*>(l->ctx)->events;
            return index < events.size() ? &events[index]->header : nullptr;
        };
    }

    void param(clap_id id, double value, uint32_t time = 0) {
        clap_event_param_value_t e{};
        e.header = {sizeof(e), time, CLAP_CORE_EVENT_SPACE_ID, CLAP_EVENT_PARAM_VALUE, 0};
        e.param_id = id;
        e.note_id = -1;
        e.port_index = -1;
        e.channel = -1;
        e.key = -1;
        e.value = value;
        add(&e.header);
    }

    void midi(uint8_t status, uint8_t data1, uint8_t data2, uint32_t time = 0) {
        clap_event_midi_t e{};
        e.header = {sizeof(e), time, CLAP_CORE_EVENT_SPACE_ID, CLAP_EVENT_MIDI, 0};
        e.port_index = 0;
        e.data[0] = status;
        e.data[1] = data1;
        e.data[2] = data2;
        add(&e.header);
    }

    void note(bool on, int16_t key, double velocity, uint32_t time = 0) {
        clap_event_note_t e{};
        e.header = {sizeof(e), time, CLAP_CORE_EVENT_SPACE_ID,
                    static_cast<uint16_t>(on ? CLAP_EVENT_NOTE_ON : CLAP_EVENT_NOTE_OFF), 0};
        e.note_id = -1;
        e.port_index = 0;
        e.channel = 0;
        e.key = key;
        e.velocity = velocity;
        add(&e.header);
    }

    const clap_input_events_t* get() const { return &list; }

private:
    // Every event copied into storage big enough for the largest core event.
    union Storage {
        clap_event_header_t header;
        clap_event_param_value_t param;
        clap_event_midi_t midi;
        clap_event_note_t note;
    };

    void add(const clap_event_header_t* header) {
        auto copy = std::make_unique<Storage>();
        std::memcpy(copy.get(), header, header->size);
        const auto at = std::upper_bound(events.begin(), events.end(), header->time,
                                         [](uint32_t t, const auto& e) { return t < e->header.time; });
        events.insert(at, std::move(copy));
    }

    std::vector<std::unique_ptr<Storage>> events;
    clap_input_events_t list{};
};

// Whatever the plug-in sends back, counted by type.
class OutputEvents {
public:
    OutputEvents() {
        list.ctx = this;
        list.try_push = [](const clap_output_events_t* l, const clap_event_header_t* event) {
            auto* self = static_cast<OutputEvents*>(l->ctx);
            if (event->type == CLAP_EVENT_MIDI && event->size == sizeof(clap_event_midi_t)) {
                clap_event_midi_t midi;
                std::memcpy(&midi, event, sizeof(midi));
                self->midi.push_back(midi);
            }
            ++self->total;
            return true;
        };
    }
    const clap_output_events_t* get() const { return &list; }

    std::vector<clap_event_midi_t> midi;
    uint32_t total = 0;

private:
    clap_output_events_t list{};
};

// ---- One plug-in instance and the host it sees ----------------------------------------------------------

class Instance {
public:
    Instance() {
        host.clap_version = CLAP_VERSION;
        host.host_data = this;
        host.name = "orvanto-clap-host-tests";
        host.vendor = "Amber Forge";
        host.url = "";
        host.version = "1";
        host.get_extension = &Instance::hostExtension;
        host.request_restart = [](const clap_host_t*) {};
        host.request_process = [](const clap_host_t*) {};
        host.request_callback = [](const clap_host_t*) {};

        plugin = loaded->factory->create_plugin(loaded->factory, &host, "com.amberforge.orvanto");
        if (plugin == nullptr) return;
        initialised = plugin->init(plugin);
        params = static_cast<const clap_plugin_params_t*>(plugin->get_extension(plugin, CLAP_EXT_PARAMS));
        state = static_cast<const clap_plugin_state_t*>(plugin->get_extension(plugin, CLAP_EXT_STATE));
    }

    ~Instance() {
        if (plugin == nullptr) return;
        if (processing) plugin->stop_processing(plugin);
        if (active) plugin->deactivate(plugin);
        plugin->destroy(plugin);
    }

    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    bool ready() const { return plugin != nullptr && initialised && params != nullptr && state != nullptr; }

    bool activate(double rate = kRate, uint32_t maxFrames = kFrames) {
        active = plugin->activate(plugin, rate, 1, maxFrames);
        return active;
    }
    void deactivate() {
        plugin->deactivate(plugin);
        active = false;
    }
    bool start() {
        processing = plugin->start_processing(plugin);
        return processing;
    }
    void stop() {
        plugin->stop_processing(plugin);
        processing = false;
    }
    // Active and processing at 48 kHz in blocks of 512.
    bool run() { return activate() && start(); }
    // The host's transport handed with each block, or none.
    const clap_event_transport_t* transport = nullptr;

    clap_process_status process(const float* inL, const float* inR, float* outL, float* outR, uint32_t frames,
                                const EventList& events, OutputEvents* out = nullptr) {
        OutputEvents ignored;
        float* inputs[2] = {const_cast<float*>(inL), const_cast<float*>(inR)};
        float* outputs[2] = {outL, outR};
        clap_audio_buffer_t in{inputs, nullptr, 2, 0, 0};
        clap_audio_buffer_t output{outputs, nullptr, 2, 0, 0};
        clap_process_t p{};
        p.steady_time = steadyTime;
        p.frames_count = frames;
        p.transport = transport;
        p.audio_inputs = &in;
        p.audio_outputs = &output;
        p.audio_inputs_count = 1;
        p.audio_outputs_count = 1;
        p.in_events = events.get();
        p.out_events = out != nullptr ? out->get() : ignored.get();
        steadyTime += frames;
        countingAllocations.store(true);
        const clap_process_status status = plugin->process(plugin, &p);
        countingAllocations.store(false);
        return status;
    }

    // The whole input through the plug-in in host blocks; the events go with the first block.
    Stereo render(const Stereo& input, const EventList& first = EventList(), uint32_t block = kFrames) {
        const EventList none;
        Stereo output{std::vector<float>(input.left.size(), -7.0f),
                      std::vector<float>(input.left.size(), -7.0f)};
        for (std::size_t at = 0; at < input.left.size(); at += block) {
            const auto n = static_cast<uint32_t>(std::min<std::size_t>(block, input.left.size() - at));
            const clap_process_status status = process(&input.left[at], &input.right[at], &output.left[at],
                                                       &output.right[at], n, at == 0 ? first : none);
            EXPECT_EQ(status, CLAP_PROCESS_CONTINUE) << "block at frame " << at;
        }
        return output;
    }

    uint32_t parameterCount() const { return params->count(plugin); }
    clap_param_info_t info(uint32_t index) const {
        clap_param_info_t i{};
        EXPECT_TRUE(params->get_info(plugin, index, &i)) << index;
        return i;
    }
    double value(clap_id id) const {
        double v = std::numeric_limits<double>::quiet_NaN();
        EXPECT_TRUE(params->get_value(plugin, id, &v)) << id;
        return v;
    }
    std::vector<double> values() const {
        std::vector<double> all;
        for (uint32_t i = 0; i < parameterCount(); ++i)
            all.push_back(value(info(i).id));
        return all;
    }
    // Parameter changes outside the audio, as a host does while nothing plays.
    void flush(const EventList& events) {
        OutputEvents out;
        params->flush(plugin, events.get(), out.get());
    }

    std::vector<uint8_t> save() const {
        std::vector<uint8_t> bytes;
        clap_ostream_t stream{&bytes,
                              [](const clap_ostream_t* s, const void* buffer, uint64_t size) -> int64_t {
                                  auto* to = static_cast<std::vector<uint8_t>*>(s->ctx);
                                  const auto* from = static_cast<const uint8_t*>(buffer);
                                  to->insert(to->end(), from, from + size);
                                  return static_cast<int64_t>(size);
                              }};
        EXPECT_TRUE(state->save(plugin, &stream));
        return bytes;
    }

    // Served as much as each read asks for, as a host holding the state in memory does.
    bool load(const std::vector<uint8_t>& bytes) {
        struct Reader {
            const std::vector<uint8_t>* bytes;
            std::size_t at;
        } reader{&bytes, 0};
        clap_istream_t stream{&reader, [](const clap_istream_t* s, void* buffer, uint64_t size) -> int64_t {
                                  auto* r = static_cast<Reader*>(s->ctx);
                                  const std::size_t n = std::min<std::size_t>(size, r->bytes->size() - r->at);
                                  std::memcpy(buffer, r->bytes->data() + r->at, n);
                                  r->at += n;
                                  return static_cast<int64_t>(n);
                              }};
        return state->load(plugin, &stream);
    }

    const clap_plugin_t* plugin = nullptr;
    const clap_plugin_params_t* params = nullptr;
    const clap_plugin_state_t* state = nullptr;
    uint32_t rescans = 0;

private:
    static const void* hostExtension(const clap_host_t*, const char* id) {
        // Only the parameter callbacks: the plug-in tells the host to reread the values after a state load.
        static const clap_host_params_t hostParams{[](const clap_host_t* h, clap_param_rescan_flags) {
                                                       ++static_cast<Instance*>(h->host_data)->rescans;
                                                   },
                                                   [](const clap_host_t*, clap_id, clap_param_clear_flags) {},
                                                   [](const clap_host_t*) {}};
        return std::strcmp(id, CLAP_EXT_PARAMS) == 0 ? &hostParams : nullptr;
    }

    clap_host_t host{};
    bool initialised = false;
    bool active = false;
    bool processing = false;
    int64_t steadyTime = 0;
};

class ClapHost : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(loaded->factory != nullptr) << "the plug-in did not load"; }
};

// ---- What the plug-in presents ---------------------------------------------------------------------------

TEST_F(ClapHost, FactoryOffersOrvantoAsAStereoEffect) {
    ASSERT_EQ(loaded->factory->get_plugin_count(loaded->factory), 1u);
    const clap_plugin_descriptor_t* d = loaded->factory->get_plugin_descriptor(loaded->factory, 0);
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(d->id, "com.amberforge.orvanto");
    EXPECT_STREQ(d->name, "Orvanto");
    std::vector<std::string> features;
    for (const char* const* f = d->features; f != nullptr && *f != nullptr; ++f)
        features.emplace_back(*f);
    EXPECT_EQ(features, (std::vector<std::string>{"audio-effect", "multi-effects", "stereo"}));

    Instance instance;
    ASSERT_TRUE(instance.ready());
    EXPECT_STREQ(instance.plugin->desc->id, "com.amberforge.orvanto");
}

TEST_F(ClapHost, ParametersAreTheEnginesThenTheHostBypass) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    ASSERT_EQ(instance.parameterCount(), kParameterCount);

    const std::vector<std::pair<uint32_t, std::string>> names = {
        {0, "Control 1"},
        {7, "Control 8"},
        {8, "Dictator"},
        {9, "Dry/Wet"},
        {10, "Randomize"},
        {11, "Reserved3"},
        {12, "FX1 Parameter 1"},
        {16, "FX1 Dry Wet"},
        {17, "FX1 Bypass"},
        {27, "FX1 EF Relese"},
        {36, "FX1 EF Release KA"},
        {40, "FX1 Lfo2 Amount KA"},
        {41, "FX2 Parameter 1"},
        {12 + 29 * 4 + 15, "FX5 EF Relese"},
        {12 + 29 * 7, "FX8 Parameter 1"},
        {243, "FX8 Lfo2 Amount KA"},
        {244, "FX1 FX Gain"},
        {245, "FX2 FX Gain"},
        {251, "FX8 FX Gain"},
    };
    for (const auto& [index, name] : names) {
        const clap_param_info_t info = instance.info(index);
        EXPECT_EQ(info.id, index);
        EXPECT_STREQ(info.name, name.c_str()) << "parameter " << index;
        EXPECT_EQ(info.flags & CLAP_PARAM_IS_BYPASS, 0u) << name;
        EXPECT_NE(info.flags & CLAP_PARAM_IS_AUTOMATABLE, 0u) << name;
    }

    // Every parameter is a plain 0..1 value, one id per index, and only the last one is the bypass.
    for (uint32_t i = 0; i < kParameterCount; ++i) {
        const clap_param_info_t info = instance.info(i);
        EXPECT_EQ(info.id, i);
        EXPECT_EQ(info.min_value, 0.0) << i;
        EXPECT_EQ(info.max_value, 1.0) << i;
        EXPECT_GE(info.default_value, 0.0) << i;
        EXPECT_LE(info.default_value, 1.0) << i;
        EXPECT_EQ((info.flags & CLAP_PARAM_IS_BYPASS) != 0, i == kMasterBypass) << i;
    }

    // DPF presents the bypass designation under its own name and module, stepped and off by default.
    const clap_param_info_t bypass = instance.info(kMasterBypass);
    EXPECT_STREQ(bypass.name, "Bypass");
    EXPECT_STREQ(bypass.module, "dpf_bypass");
    EXPECT_NE(bypass.flags & CLAP_PARAM_IS_STEPPED, 0u);
    EXPECT_EQ(bypass.default_value, 0.0);
    EXPECT_EQ(instance.value(kMasterBypass), 0.0);
}

TEST_F(ClapHost, PortsAreOneStereoPairAndMidiBothWays) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    const auto* audio = static_cast<const clap_plugin_audio_ports_t*>(
        instance.plugin->get_extension(instance.plugin, CLAP_EXT_AUDIO_PORTS));
    ASSERT_NE(audio, nullptr);
    for (const bool input : {true, false}) {
        ASSERT_EQ(audio->count(instance.plugin, input), 1u) << input;
        clap_audio_port_info_t port{};
        ASSERT_TRUE(audio->get(instance.plugin, 0, input, &port));
        EXPECT_EQ(port.channel_count, 2u);
        EXPECT_NE(port.flags & CLAP_AUDIO_PORT_IS_MAIN, 0u);
    }

    const auto* notes = static_cast<const clap_plugin_note_ports_t*>(
        instance.plugin->get_extension(instance.plugin, CLAP_EXT_NOTE_PORTS));
    ASSERT_NE(notes, nullptr);
    for (const bool input : {true, false}) {
        ASSERT_EQ(notes->count(instance.plugin, input), 1u) << input;
        clap_note_port_info_t port{};
        ASSERT_TRUE(notes->get(instance.plugin, 0, input, &port));
        EXPECT_NE(port.supported_dialects & CLAP_NOTE_DIALECT_MIDI, 0u);
    }
}

// ---- How it plays ----------------------------------------------------------------------------------------

TEST_F(ClapHost, DefaultPresetPassesAudioThroughUntouched) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    // The default preset starts clean: every Control at 0.
    for (clap_id c = kControl1; c < 8; ++c)
        EXPECT_EQ(instance.value(c), 0.0) << "Control " << c + 1;
    ASSERT_TRUE(instance.run());

    const Stereo input = testSignal(kFrames * 20);
    EXPECT_EQ(firstDifference(instance.render(input), input), -1);
    // Blocks smaller and larger than promised change nothing.
    EXPECT_EQ(firstDifference(instance.render(input, EventList(), 100), input), -1);
    EXPECT_EQ(firstDifference(instance.render(input, EventList(), kFrames * 3), input), -1);
}

TEST_F(ClapHost, ParameterEventsReachTheEngineAndTheOutputStaysFinite) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    ASSERT_TRUE(instance.run());
    const Stereo input = testSignal(kFrames * 40);

    EventList up;
    for (clap_id c = kControl1; c < 8; ++c)
        up.param(c, 1.0, c * 16);
    up.param(kFx1Parameter1, 0.25, 200);
    up.param(kFx2FxGain, 0.75, 300);
    const Stereo output = instance.render(input, up);

    for (clap_id c = kControl1; c < 8; ++c)
        EXPECT_EQ(instance.value(c), 1.0) << "Control " << c + 1;
    EXPECT_FLOAT_EQ(instance.value(kFx1Parameter1), 0.25);
    EXPECT_FLOAT_EQ(instance.value(kFx2FxGain), 0.75);
    EXPECT_TRUE(allFinite(output));
    // With every Control up the default preset's slots are all open: the sound must change.
    EXPECT_NE(firstDifference(output, input), -1);

    // Out-of-range and non-finite values leave a parameter in range or as it was.
    EventList wild;
    wild.param(kControl2, 7.0);
    wild.param(kDryWet, -3.0);
    wild.param(kFx1Parameter1, std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(allFinite(instance.render(testSignal(kFrames * 4, 2), wild)));
    EXPECT_EQ(instance.value(kControl2), 1.0);
    EXPECT_EQ(instance.value(kDryWet), 0.0);
    EXPECT_FLOAT_EQ(instance.value(kFx1Parameter1), 0.25);
}

TEST_F(ClapHost, SharedInputAndOutputBuffersSoundTheSame) {
    // Hosts may hand the same buffers in and out; the result must not depend on it.
    Instance apart;
    Instance shared;
    ASSERT_TRUE(apart.ready() && shared.ready());
    ASSERT_TRUE(apart.run() && shared.run());
    for (uint32_t block = 0; block < 24; ++block) {
        EventList events;
        if (block == 0)
            for (clap_id c = kControl1; c < 8; ++c)
                events.param(c, 0.8);
        const Stereo input = testSignal(kFrames, 20 + block);
        Stereo separate{std::vector<float>(kFrames), std::vector<float>(kFrames)};
        ASSERT_EQ(apart.process(input.left.data(), input.right.data(), separate.left.data(),
                                separate.right.data(), kFrames, events),
                  CLAP_PROCESS_CONTINUE);
        Stereo inPlace = input;
        ASSERT_EQ(shared.process(inPlace.left.data(), inPlace.right.data(), inPlace.left.data(),
                                 inPlace.right.data(), kFrames, events),
                  CLAP_PROCESS_CONTINUE);
        ASSERT_EQ(firstDifference(separate, inPlace), -1) << "block " << block;
        ASSERT_TRUE(allFinite(separate));
    }
}

TEST_F(ClapHost, MasterBypassFadesToTheExactDryInput) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    ASSERT_TRUE(instance.run());
    EventList up;
    for (clap_id c = kControl1; c < 8; ++c)
        up.param(c, 1.0);
    const Stereo warm = instance.render(testSignal(kFrames * 8), up);
    ASSERT_NE(firstDifference(warm, testSignal(kFrames * 8)), -1);

    EventList bypass;
    bypass.param(kMasterBypass, 1.0);
    const Stereo input = testSignal(kFrames * 8, 3);
    const Stereo output = instance.render(input, bypass);
    EXPECT_EQ(instance.value(kMasterBypass), 1.0);
    EXPECT_TRUE(allFinite(output));
    // The fade lasts 10 ms (480 frames at 48 kHz); from there on the output is the input, bit for bit.
    EXPECT_NE(firstDifference(output, input), -1);
    EXPECT_EQ(firstDifference(output, input, 480), -1);
}

TEST_F(ClapHost, NonFiniteInputGivesFiniteOutput) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    Stereo input = testSignal(kFrames * 8);
    for (const uint32_t at : {0u, 1u, 100u, 511u, 512u, 2000u, 3000u})
        input.left[at] = nan;
    for (const uint32_t at : {3u, 700u, 1500u})
        input.right[at] = inf;
    for (const uint32_t at : {5u, 2500u})
        input.right[at] = -inf;
    std::fill(input.left.begin() + 3500, input.left.begin() + 3700, nan);

    {
        // At the default preset the plug-in passes the input with every non-number silenced.
        Instance instance;
        ASSERT_TRUE(instance.ready());
        ASSERT_TRUE(instance.run());
        Stereo expected = input;
        for (auto* side : {&expected.left, &expected.right})
            for (float& v : *side)
                if (!std::isfinite(v)) v = 0.0f;
        EXPECT_EQ(firstDifference(instance.render(input), expected), -1);

        // The same from a host that processes in place, where a clean block is taken as it stands.
        Instance inPlace;
        ASSERT_TRUE(inPlace.ready());
        ASSERT_TRUE(inPlace.run());
        Stereo shared = input;
        for (std::size_t at = 0; at < shared.left.size(); at += kFrames) {
            ASSERT_EQ(inPlace.process(shared.left.data() + at, shared.right.data() + at,
                                      shared.left.data() + at, shared.right.data() + at, kFrames,
                                      EventList{}),
                      CLAP_PROCESS_CONTINUE);
        }
        EXPECT_EQ(firstDifference(shared, expected), -1);
    }
    {
        // With every slot open nothing poisons the effects' memories: the clean input after stays finite.
        Instance instance;
        ASSERT_TRUE(instance.ready());
        ASSERT_TRUE(instance.run());
        EventList up;
        for (clap_id c = kControl1; c < 8; ++c)
            up.param(c, 1.0);
        EXPECT_TRUE(allFinite(instance.render(input, up)));
        const Stereo after = instance.render(testSignal(kFrames * 16, 4));
        EXPECT_TRUE(allFinite(after));
        EXPECT_GT(*std::max_element(after.left.begin(), after.left.end()), 0.0f);
    }
}

TEST_F(ClapHost, MidiFromTheFactoryMapPlaysTheControls) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    ASSERT_TRUE(instance.run());
    const Stereo input = testSignal(kFrames);

    // CC 20 plays Control 1, CC 27 Control 8; channel 1 as most controllers send.
    EventList cc;
    cc.midi(0xB0, 20, 127, 10);
    cc.midi(0xB0, 27, 127, 20);
    instance.render(input, cc);
    EXPECT_EQ(instance.value(kControl1), 1.0);
    EXPECT_EQ(instance.value(7), 1.0);
    EXPECT_EQ(instance.value(kControl2), 0.0);

    EventList down;
    down.midi(0xB0, 20, 0);
    instance.render(input, down);
    EXPECT_EQ(instance.value(kControl1), 0.0);
    EXPECT_EQ(instance.value(7), 1.0);

    // A CLAP note on the note port: pad 37 holds Control 2 open with its velocity while pressed.
    EventList press;
    press.note(true, 37, 1.0, 5);
    instance.render(input, press);
    EXPECT_FLOAT_EQ(instance.value(kControl2), 127.0 / 128.0);
    EventList release;
    release.note(false, 37, 0.0, 5);
    instance.render(input, release);
    EXPECT_EQ(instance.value(kControl2), 0.0);
}

// ---- State -----------------------------------------------------------------------------------------------

TEST_F(ClapHost, StateRoundTripsIntoASecondInstance) {
    std::vector<uint8_t> saved;
    std::vector<double> before;
    auto a = std::make_unique<Instance>();
    ASSERT_TRUE(a->ready());
    EventList edits;
    edits.param(kControl1, 0.7);
    edits.param(4, 0.375);
    edits.param(kDryWet, 0.6);
    edits.param(kFx1Parameter1, 0.123456);
    edits.param(12 + 29 * 3 + 11, 0.9); // FX4 Lfo Rate
    edits.param(kFx2FxGain, 0.33);
    a->flush(edits);
    saved = a->save();
    ASSERT_FALSE(saved.empty());
    before = a->values();
    EXPECT_FLOAT_EQ(before[kControl1], 0.7);
    EXPECT_FLOAT_EQ(before[kFx1Parameter1], 0.123456);

    Instance b;
    ASSERT_TRUE(b.ready());
    ASSERT_NE(b.values(), before);
    const uint32_t rescans = b.rescans;
    ASSERT_TRUE(b.load(saved));
    EXPECT_GT(b.rescans, rescans) << "the host was not told to reread the values";
    EXPECT_EQ(b.values(), before);
    // Saving what was loaded gives the same state again.
    EXPECT_EQ(b.save(), saved);

    // Same state, same input, same history: the same output, sample for sample.
    ASSERT_TRUE(a->run());
    ASSERT_TRUE(b.run());
    for (uint32_t block = 0; block < 16; ++block) {
        const Stereo input = testSignal(kFrames, 10 + block);
        const Stereo fromA = a->render(input);
        const Stereo fromB = b.render(input);
        ASSERT_EQ(firstDifference(fromA, fromB), -1) << "block " << block;
        ASSERT_TRUE(allFinite(fromA));
    }

    // The state outlives the instance that wrote it.
    a.reset();
    Instance c;
    ASSERT_TRUE(c.ready());
    ASSERT_TRUE(c.load(saved));
    EXPECT_EQ(c.values(), before);
}

TEST_F(ClapHost, GarbageStateIsRefusedAndThePluginKeepsWorking) {
    auto framed = [](const std::string& chunk) {
        std::string s = "__dpf_state_begin__";
        s += '\0';
        s += "chunk";
        s += '\0';
        s += chunk;
        s += '\0';
        s += "__dpf_state_end__";
        s += '\0';
        s += '\xfe';
        s += '\0';
        return std::vector<uint8_t>(s.begin(), s.end());
    };
    std::vector<uint8_t> noise(5000);
    uint32_t x = 99;
    for (auto& b : noise) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 16);
    }
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> garbage = {
        {"random bytes", noise},
        {"empty", {}},
        {"text that is no base64", framed("this is not base64 at all!")},
        {"base64 of nothing we wrote", framed("AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=")},
        {"a truncated header", framed("T3J2")},
    };

    const Stereo input = testSignal(kFrames * 10);
    for (const auto& [what, bytes] : garbage) {
        SCOPED_TRACE(what);
        Instance instance;
        ASSERT_TRUE(instance.ready());
        EventList edit;
        edit.param(kFx1Parameter1, 0.4);
        instance.flush(edit);
        const std::vector<double> before = instance.values();
        instance.load(bytes);
        EXPECT_EQ(instance.values(), before);

        // Still the default preset: it passes audio through, and still answers events.
        ASSERT_TRUE(instance.run());
        EXPECT_EQ(firstDifference(instance.render(input), input), -1);
        EventList up;
        up.param(kControl1, 1.0);
        EXPECT_TRUE(allFinite(instance.render(input, up)));
        EXPECT_EQ(instance.value(kControl1), 1.0);
        EXPECT_FALSE(instance.save().empty());
    }
}

// ---- Lifecycle -------------------------------------------------------------------------------------------

TEST_F(ClapHost, ActivationCyclesRepeatCleanly) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    const Stereo input = testSignal(kFrames * 4);
    const std::vector<std::pair<double, uint32_t>> setups = {
        {48000.0, 512}, {44100.0, 256}, {96000.0, 1024}, {48000.0, 64}, {48000.0, 512}};
    for (const auto& [rate, frames] : setups) {
        SCOPED_TRACE(rate);
        ASSERT_TRUE(instance.activate(rate, frames));
        for (int round = 0; round < 3; ++round) {
            ASSERT_TRUE(instance.start());
            EXPECT_EQ(firstDifference(instance.render(input, EventList(), frames), input), -1);
            instance.stop();
        }
        instance.deactivate();
    }
    // Once more with the slots open, and destroyed while processing: the host's teardown order does the rest.
    ASSERT_TRUE(instance.run());
    EventList up;
    up.param(kControl1, 1.0);
    EXPECT_TRUE(allFinite(instance.render(input, up)));

    // Instances that never run are built and torn down as often as a host's scan does.
    for (int i = 0; i < 3; ++i) {
        Instance idle;
        EXPECT_TRUE(idle.ready());
    }
}

// After activation the audio path allocates nothing: not the first block, not a block that starts the
// transport, moves the tempo, wraps a loop or opens the slots, not one that carries MIDI.
TEST_F(ClapHost, ProcessingAllocatesNothingFromTheFirstBlockOn) {
    Instance instance;
    ASSERT_TRUE(instance.ready());
    const Stereo input = testSignal(kFrames);
    Stereo output = input;
    clap_event_transport_t transport{};
    transport.header = {sizeof(transport), 0, CLAP_CORE_EVENT_SPACE_ID, CLAP_EVENT_TRANSPORT, 0};
    instance.transport = &transport;

    std::vector<EventList> events(64);
    for (int s = 0; s < 8; ++s)
        events[1].param(kControl1 + static_cast<clap_id>(s), 0.9);
    events[9].midi(0xB0, 20, 30, 17);  // CC 20: Control 1 back under the threshold
    events[12].midi(0xB0, 20, 127, 3); // and up again
    events[20].note(true, 38, 1.0, 100);
    events[30].note(false, 38, 0.0, 0);
    events[40].param(kMasterBypass, 1.0);
    events[50].param(kMasterBypass, 0.0);

    ASSERT_TRUE(instance.run());
    allocationsCounted.store(0);
    double beats = 0.0;
    for (int block = 0; block < 64; ++block) {
        const bool playing = block >= 2;
        const double tempo = block < 24 ? 120.0 : 45.0 + block;
        transport.flags = CLAP_TRANSPORT_HAS_TEMPO | CLAP_TRANSPORT_HAS_BEATS_TIMELINE |
                          CLAP_TRANSPORT_HAS_TIME_SIGNATURE | (playing ? CLAP_TRANSPORT_IS_PLAYING : 0);
        transport.tempo = tempo;
        transport.tsig_num = 4;
        transport.tsig_denom = 4;
        if (block == 44) beats = 1.0; // the host jumps back, as at a loop's end
        transport.song_pos_beats = static_cast<clap_beattime>(std::llround(beats * CLAP_BEATTIME_FACTOR));
        transport.bar_start = 0;
        transport.bar_number = static_cast<int32_t>(beats / 4.0);
        ASSERT_EQ(instance.process(input.left.data(), input.right.data(), output.left.data(),
                                   output.right.data(), kFrames, events[static_cast<std::size_t>(block)]),
                  CLAP_PROCESS_CONTINUE);
        if (playing) beats += kFrames / kRate * tempo / 60.0;
    }
    EXPECT_EQ(allocationsCounted.load(), 0);
    EXPECT_TRUE(allFinite(output));
    EXPECT_EQ(instance.value(kControl1), 1.0) << "the MIDI reached the engine";
}

} // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    loaded = new LoadedPlugin;
    ::testing::AddGlobalTestEnvironment(loaded);
    return RUN_ALL_TESTS();
}
