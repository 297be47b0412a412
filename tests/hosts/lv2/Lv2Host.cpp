#include "Lv2Host.h"

#include ORVANTO_LV2_PROGRAMS_HEADER

#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/midi/midi.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>
#include <lv2/time/time.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

namespace lv2host {

namespace {

constexpr std::size_t kEventBytes = 1 << 16;

LV2_URID mapUri(LV2_URID_Map_Handle handle, const char* uri) {
    return static_cast<UridTable*>(handle)->map(uri);
}

const char* unmapUri(LV2_URID_Unmap_Handle handle, LV2_URID urid) {
    return static_cast<UridTable*>(handle)->unmap(urid);
}

// What the raw restore hands the plug-in: one string under one key.
struct ChunkSource {
    LV2_URID key;
    LV2_URID type;
    std::string text;
};

const void* retrieveChunk(LV2_State_Handle handle, uint32_t key, size_t* size, uint32_t* type,
                          uint32_t* flags) {
    const auto* source = static_cast<const ChunkSource*>(handle);
    if (key != source->key) return nullptr;
    *size = source->text.size() + 1;
    *type = source->type;
    *flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
    return source->text.c_str();
}

} // namespace

UridTable::UridTable() : names(1) {
    mapData = {this, &mapUri};
    unmapData = {this, &unmapUri};
}

LV2_URID UridTable::map(const char* uri) {
    const auto found = ids.find(uri);
    if (found != ids.end()) return found->second;
    const auto id = static_cast<LV2_URID>(names.size());
    names.emplace_back(uri);
    ids.emplace(uri, id);
    return id;
}

const char* UridTable::unmap(LV2_URID urid) const {
    return urid > 0 && urid < names.size() ? names[urid].c_str() : nullptr;
}

World::World(const std::string& bundleDir) : world(lilv_world_new()) {
    std::string dir = bundleDir;
    if (dir.empty() || dir.back() != '/') dir += '/';
    LilvNode* bundle = lilv_new_file_uri(world, nullptr, dir.c_str());
    lilv_world_load_bundle(world, bundle);
    lilv_node_free(bundle);
    LilvNode* uri = lilv_new_uri(world, kPluginUri);
    found = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
    lilv_node_free(uri);
}

World::~World() {
    lilv_world_free(world);
}

Instance::Instance(World& w, double sampleRate, uint32_t block)
    : world(w), rate(sampleRate), optionBlock(static_cast<int32_t>(block)),
      optionRate(static_cast<float>(sampleRate)) {
    UridTable& t = world.urids();
    u.atomFloat = t.map(LV2_ATOM__Float);
    u.atomDouble = t.map(LV2_ATOM__Double);
    u.atomInt = t.map(LV2_ATOM__Int);
    u.atomString = t.map(LV2_ATOM__String);
    u.atomSequence = t.map(LV2_ATOM__Sequence);
    u.atomChunk = t.map(LV2_ATOM__Chunk);
    u.midiEvent = t.map(LV2_MIDI__MidiEvent);
    u.timePosition = t.map(LV2_TIME__Position);
    u.timeFrame = t.map(LV2_TIME__frame);
    u.timeSpeed = t.map(LV2_TIME__speed);
    u.timeBpm = t.map(LV2_TIME__beatsPerMinute);
    u.timeBar = t.map(LV2_TIME__bar);
    u.timeBarBeat = t.map(LV2_TIME__barBeat);
    u.timeBeatsPerBar = t.map(LV2_TIME__beatsPerBar);
    u.timeBeatUnit = t.map(LV2_TIME__beatUnit);
    u.blockNominal = t.map(LV2_BUF_SIZE__nominalBlockLength);
    u.blockMax = t.map(LV2_BUF_SIZE__maxBlockLength);
    u.sampleRate = t.map(LV2_PARAMETERS__sampleRate);
    lv2_atom_forge_init(&forge, t.mapFeature());

    const LilvPlugin* plugin = world.plugin();
    if (plugin == nullptr) return;

    options = {
        {LV2_OPTIONS_INSTANCE, 0, u.blockNominal, sizeof(int32_t), u.atomInt, &optionBlock},
        {LV2_OPTIONS_INSTANCE, 0, u.blockMax, sizeof(int32_t), u.atomInt, &optionBlock},
        {LV2_OPTIONS_INSTANCE, 0, u.sampleRate, sizeof(float), u.atomFloat, &optionRate},
        {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
    };
    worker = {this, &Instance::scheduleWork};
    mapFeature = {LV2_URID__map, t.mapFeature()};
    unmapFeature = {LV2_URID__unmap, t.unmapFeature()};
    optionsFeature = {LV2_OPTIONS__options, options.data()};
    workerFeature = {LV2_WORKER__schedule, &worker};
    boundedFeature = {LV2_BUF_SIZE__boundedBlockLength, nullptr};
    changeRequest = {this, &Instance::requestChange};
    changeFeature = {LV2_CONTROL_INPUT_PORT_CHANGE_REQUEST_URI, &changeRequest};
    features = {&mapFeature,     &unmapFeature,  &optionsFeature, &workerFeature,
                &boundedFeature, &changeFeature, nullptr};

    instance = lilv_plugin_instantiate(plugin, rate, features.data());
    if (instance == nullptr) return;

    LilvWorld* lw = world.get();
    LilvNode* audioClass = lilv_new_uri(lw, LV2_CORE__AudioPort);
    LilvNode* controlClass = lilv_new_uri(lw, LV2_CORE__ControlPort);
    LilvNode* atomClass = lilv_new_uri(lw, LV2_ATOM__AtomPort);
    LilvNode* inputClass = lilv_new_uri(lw, LV2_CORE__InputPort);
    const uint32_t count = lilv_plugin_get_num_ports(plugin);
    std::vector<float> defaults(count, 0.0f);
    lilv_plugin_get_port_ranges_float(plugin, nullptr, nullptr, defaults.data());
    int audioIns = 0;
    int audioOuts = 0;
    std::vector<uint32_t> outputControlPorts;
    for (uint32_t p = 0; p < count; ++p) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, p);
        const bool input = lilv_port_is_a(plugin, port, inputClass);
        if (lilv_port_is_a(plugin, port, audioClass)) {
            if (input && audioIns < 2)
                audioIn[audioIns++] = p;
            else if (!input && audioOuts < 2)
                audioOut[audioOuts++] = p;
        } else if (lilv_port_is_a(plugin, port, atomClass)) {
            (input ? eventsIn : eventsOut) = p;
        } else if (lilv_port_is_a(plugin, port, controlClass)) {
            if (!input) {
                outputControlPorts.push_back(p);
                continue;
            }
            const char* symbol = lilv_node_as_string(lilv_port_get_symbol(plugin, port));
            symbols[symbol] = static_cast<uint32_t>(controls.size());
            controls.push_back(std::isnan(defaults[p]) ? 0.0f : defaults[p]);
            controlPorts.push_back(p);
        }
    }
    lilv_node_free(audioClass);
    lilv_node_free(controlClass);
    lilv_node_free(atomClass);
    lilv_node_free(inputClass);

    // Connected once: the vectors never move after this.
    for (std::size_t i = 0; i < controls.size(); ++i)
        lilv_instance_connect_port(instance, controlPorts[i], &controls[i]);
    controlOutputs.assign(outputControlPorts.size(), 0.0f);
    for (std::size_t i = 0; i < outputControlPorts.size(); ++i)
        lilv_instance_connect_port(instance, outputControlPorts[i], &controlOutputs[i]);
    eventsInBuffer.assign(kEventBytes / sizeof(uint64_t), 0);
    eventsOutBuffer.assign(kEventBytes / sizeof(uint64_t), 0);
    lilv_instance_connect_port(instance, eventsIn, eventsInBuffer.data());
    lilv_instance_connect_port(instance, eventsOut, eventsOutBuffer.data());
    sent.reserve(1024);
}

Instance::~Instance() {
    if (instance == nullptr) return;
    if (active) lilv_instance_deactivate(instance);
    lilv_instance_free(instance);
}

void Instance::activate() {
    if (active) return;
    lilv_instance_activate(instance);
    active = true;
}

LV2_Worker_Status Instance::scheduleWork(LV2_Worker_Schedule_Handle, uint32_t, const void*) {
    // The plug-in only asks for work when a UI or a patch message sets a state value; this host sends
    // neither.
    return LV2_WORKER_ERR_UNKNOWN;
}

// The plug-in asks to move one of its control inputs, as a DAW's mixer follows it: the port takes the value
// from the next block on, and a session saved afterwards keeps it.
LV2_ControlInputPort_Change_Status Instance::requestChange(LV2_ControlInputPort_Change_Request_Handle handle,
                                                           uint32_t port, float value) {
    auto* self = static_cast<Instance*>(handle);
    for (std::size_t i = 0; i < self->controlPorts.size(); ++i) {
        if (self->controlPorts[i] != port) continue;
        self->controls[i] = value;
        return LV2_CONTROL_INPUT_PORT_CHANGE_SUCCESS;
    }
    return LV2_CONTROL_INPUT_PORT_CHANGE_ERR_INVALID_INDEX;
}

bool Instance::restoreChunk(const std::vector<uint8_t>& image) {
    return restoreChunkText(base64(image));
}

bool Instance::restoreChunkText(const std::string& text) {
    const auto* state = static_cast<const LV2_State_Interface*>(
        lilv_instance_get_extension_data(instance, LV2_STATE__interface));
    if (state == nullptr || state->restore == nullptr) return false;
    ChunkSource source{world.urids().map(kChunkKey), u.atomString, text};
    return state->restore(lilv_instance_get_handle(instance), &retrieveChunk, &source,
                          LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, features.data()) == LV2_STATE_SUCCESS;
}

LilvState* Instance::saveState() {
    // The plug-in keeps no files, so lilv needs no folders to copy or link them into.
    return lilv_state_new_from_instance(world.plugin(), instance, world.urids().mapFeature(), nullptr,
                                        nullptr, nullptr, nullptr, &Instance::portValue, this,
                                        LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, features.data());
}

void Instance::restoreState(const LilvState* state) {
    lilv_state_restore(state, instance, &Instance::setPortValue, this,
                       LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, features.data());
}

const void* Instance::portValue(const char* symbol, void* user, uint32_t* size, uint32_t* type) {
    auto* self = static_cast<Instance*>(user);
    const auto found = self->symbols.find(symbol);
    if (found == self->symbols.end()) return nullptr;
    *size = sizeof(float);
    *type = self->u.atomFloat;
    return &self->controls[found->second];
}

void Instance::setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t type) {
    auto* self = static_cast<Instance*>(user);
    std::optional<float> v;
    if (type == self->u.atomFloat && size == sizeof(float))
        v = *static_cast<const float*>(value);
    else if (type == self->u.atomDouble && size == sizeof(double))
        v = static_cast<float>(*static_cast<const double*>(value));
    else if (type == self->u.atomInt && size == sizeof(int32_t))
        v = static_cast<float>(*static_cast<const int32_t*>(value));
    if (v) self->setControl(symbol, *v);
}

bool Instance::selectProgram(uint32_t program) {
    const auto* programs = static_cast<const LV2_Programs_Interface*>(
        lilv_instance_get_extension_data(instance, LV2_PROGRAMS__Interface));
    if (programs == nullptr || programs->select_program == nullptr) return false;
    programs->select_program(lilv_instance_get_handle(instance), program / 128, program % 128);
    return true;
}

bool Instance::setControl(const std::string& symbol, float value) {
    const auto found = symbols.find(symbol);
    if (found == symbols.end()) return false;
    controls[found->second] = value;
    return true;
}

float Instance::control(const std::string& symbol) const {
    const auto found = symbols.find(symbol);
    return found == symbols.end() ? NAN : controls[found->second];
}

void Instance::writeEvents(uint32_t frames, const std::vector<MidiEvent>& events) {
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<uint8_t*>(eventsInBuffer.data()), kEventBytes);
    LV2_Atom_Forge_Frame sequence;
    lv2_atom_forge_sequence_head(&forge, &sequence, 0);

    const bool tell = playhead.positionEveryBlock || frame != told.nextFrame || playhead.bpm != told.bpm ||
                      playhead.playing != told.playing;
    if (tell) {
        const double beats = static_cast<double>(frame) * playhead.bpm / (60.0 * rate);
        const double bar = std::floor(beats / playhead.beatsPerBar);
        LV2_Atom_Forge_Frame object;
        lv2_atom_forge_frame_time(&forge, 0);
        lv2_atom_forge_object(&forge, &object, 0, u.timePosition);
        lv2_atom_forge_key(&forge, u.timeFrame);
        lv2_atom_forge_long(&forge, frame);
        lv2_atom_forge_key(&forge, u.timeSpeed);
        lv2_atom_forge_float(&forge, playhead.playing ? 1.0f : 0.0f);
        lv2_atom_forge_key(&forge, u.timeBpm);
        lv2_atom_forge_float(&forge, static_cast<float>(playhead.bpm));
        lv2_atom_forge_key(&forge, u.timeBar);
        lv2_atom_forge_long(&forge, static_cast<int64_t>(bar));
        lv2_atom_forge_key(&forge, u.timeBarBeat);
        lv2_atom_forge_float(&forge, static_cast<float>(beats - bar * playhead.beatsPerBar));
        lv2_atom_forge_key(&forge, u.timeBeatsPerBar);
        lv2_atom_forge_float(&forge, playhead.beatsPerBar);
        lv2_atom_forge_key(&forge, u.timeBeatUnit);
        lv2_atom_forge_int(&forge, playhead.beatUnit);
        lv2_atom_forge_pop(&forge, &object);
        told.bpm = playhead.bpm;
        told.playing = playhead.playing;
    }
    told.nextFrame = frame + (playhead.playing ? frames : 0);

    for (const MidiEvent& e : events) {
        if (e.frame >= frames) break;
        lv2_atom_forge_frame_time(&forge, e.frame);
        lv2_atom_forge_atom(&forge, e.size, u.midiEvent);
        lv2_atom_forge_write(&forge, e.data, e.size);
    }
    lv2_atom_forge_pop(&forge, &sequence);

    // The output port's size is its capacity until the plug-in writes its sequence there.
    auto* out = reinterpret_cast<LV2_Atom_Sequence*>(eventsOutBuffer.data());
    out->atom.size = static_cast<uint32_t>(kEventBytes - sizeof(LV2_Atom));
    out->atom.type = u.atomChunk;
}

void Instance::readEvents() {
    sent.clear();
    foreign = 0;
    const auto* out = reinterpret_cast<const LV2_Atom_Sequence*>(eventsOutBuffer.data());
    if (out->atom.type != u.atomSequence) return;
    LV2_ATOM_SEQUENCE_FOREACH(out, event) {
        if (event->body.type != u.midiEvent || event->body.size == 0 || event->body.size > 3) {
            ++foreign;
            continue;
        }
        MidiEvent m{
            static_cast<uint32_t>(event->time.frames), {0, 0, 0}, static_cast<uint8_t>(event->body.size)};
        std::memcpy(m.data, LV2_ATOM_BODY_CONST(&event->body), event->body.size);
        sent.push_back(m);
    }
}

void Instance::run(const float* inLeft, const float* inRight, float* outLeft, float* outRight,
                   uint32_t frames, const std::vector<MidiEvent>& events) {
    writeEvents(frames, events);
    lilv_instance_connect_port(instance, audioIn[0], const_cast<float*>(inLeft));
    lilv_instance_connect_port(instance, audioIn[1], const_cast<float*>(inRight));
    lilv_instance_connect_port(instance, audioOut[0], outLeft);
    lilv_instance_connect_port(instance, audioOut[1], outRight);
    lilv_instance_run(instance, frames);
    readEvents();
    if (playhead.playing) frame += frames;
}

std::string base64(const std::vector<uint8_t>& bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t n = std::min<std::size_t>(3, bytes.size() - i);
        uint32_t word = static_cast<uint32_t>(bytes[i]) << 16;
        if (n > 1) word |= static_cast<uint32_t>(bytes[i + 1]) << 8;
        if (n > 2) word |= bytes[i + 2];
        text += kDigits[(word >> 18) & 63];
        text += kDigits[(word >> 12) & 63];
        text += n > 1 ? kDigits[(word >> 6) & 63] : '=';
        text += n > 2 ? kDigits[word & 63] : '=';
    }
    return text;
}

PrivateHome::PrivateHome(const std::string& contentDir) {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvanto-lv2-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) return;
    root = pattern;
    setenv("HOME", root.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (root + "/config").c_str(), 1);
    setenv("XDG_DATA_HOME", (root + "/data").c_str(), 1);
    setenv("ORVANTO_CONTENT_SOURCE", contentDir.c_str(), 1);
}

PrivateHome::~PrivateHome() {
    if (root.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

} // namespace lv2host
