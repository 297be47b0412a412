// Records the stereo impulse response of any installed LV2 plug-in at 48 kHz, for orvanto-reverb-measure to
// compare other reverbs with ours:
//
//   orvanto-lv2-impulse URI OUT.wav SECONDS [SYMBOL=VALUE ...] [--input=IN.wav]
//
// A unit impulse on every audio input at the first sample (or, with --input, the file's channels in turn),
// control inputs at their defaults unless set, atom inputs empty, and a worker that runs its jobs at once.
#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>
#include <sndfile.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

std::map<std::string, LV2_URID> ids;
LV2_URID mapUri(LV2_URID_Map_Handle, const char* uri) {
    auto it = ids.find(uri);
    if (it != ids.end()) return it->second;
    const LV2_URID id = static_cast<LV2_URID>(ids.size() + 1);
    ids[uri] = id;
    return id;
}

const LV2_Worker_Interface* workerIface = nullptr;
LV2_Handle pluginHandle = nullptr;
std::vector<std::vector<uint8_t>> responses;
LV2_Worker_Status respond(LV2_Worker_Respond_Handle, uint32_t size, const void* data) {
    const auto* b = static_cast<const uint8_t*>(data);
    responses.emplace_back(b, b + size);
    return LV2_WORKER_SUCCESS;
}
LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle, uint32_t size, const void* data) {
    if (!workerIface) return LV2_WORKER_ERR_UNKNOWN;
    workerIface->work(pluginHandle, respond, nullptr, size, data);
    return LV2_WORKER_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr,
                     "usage: orvanto-lv2-impulse URI OUT.wav SECONDS [SYMBOL=VALUE ...] [--input=IN.wav]\n");
        return 2;
    }
    const double rate = 48000.0;
    const int total = static_cast<int>(std::atof(argv[3]) * rate);
    std::map<std::string, float> settings;
    std::vector<float> source;
    int sourceChannels = 1;
    for (int i = 4; i < argc; ++i) {
        std::string a = argv[i];
        if (a.rfind("--input=", 0) == 0) {
            SF_INFO in{};
            SNDFILE* f = sf_open(a.c_str() + 8, SFM_READ, &in);
            if (f == nullptr) return 5;
            sourceChannels = in.channels;
            source.resize(static_cast<size_t>(in.frames * in.channels));
            sf_readf_float(f, source.data(), in.frames);
            sf_close(f);
            continue;
        }
        const auto eq = a.find('=');
        settings[a.substr(0, eq)] = std::strtof(a.c_str() + eq + 1, nullptr);
    }
    LilvWorld* world = lilv_world_new();
    lilv_world_load_all(world);
    LilvNode* uri = lilv_new_uri(world, argv[1]);
    const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
    if (plugin == nullptr) {
        std::fprintf(stderr, "no plug-in %s\n", argv[1]);
        return 3;
    }
    LV2_URID_Map map{nullptr, mapUri};
    LV2_Feature mapFeature{LV2_URID__map, &map};
    static int32_t blockLength = 256;
    static float sampleRateValue = 48000.0f;
    const LV2_URID intType = mapUri(nullptr, LV2_ATOM__Int);
    const LV2_URID floatType = mapUri(nullptr, LV2_ATOM__Float);
    LV2_Options_Option options[] = {{LV2_OPTIONS_INSTANCE, 0, mapUri(nullptr, LV2_BUF_SIZE__maxBlockLength),
                                     sizeof(int32_t), intType, &blockLength},
                                    {LV2_OPTIONS_INSTANCE, 0, mapUri(nullptr, LV2_BUF_SIZE__minBlockLength),
                                     sizeof(int32_t), intType, &blockLength},
                                    {LV2_OPTIONS_INSTANCE, 0,
                                     mapUri(nullptr, LV2_BUF_SIZE__nominalBlockLength), sizeof(int32_t),
                                     intType, &blockLength},
                                    {LV2_OPTIONS_INSTANCE, 0, mapUri(nullptr, LV2_PARAMETERS__sampleRate),
                                     sizeof(float), floatType, &sampleRateValue},
                                    {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
    LV2_Feature optionsFeature{LV2_OPTIONS__options, options};
    LV2_Feature boundedFeature{LV2_BUF_SIZE__boundedBlockLength, nullptr};
    LV2_Worker_Schedule schedule{nullptr, scheduleWork};
    LV2_Feature workerFeature{LV2_WORKER__schedule, &schedule};
    const LV2_Feature* features[] = {&mapFeature, &optionsFeature, &boundedFeature, &workerFeature, nullptr};
    LilvInstance* instance = lilv_plugin_instantiate(plugin, rate, features);
    if (instance == nullptr) {
        std::fprintf(stderr, "%s did not instantiate\n", argv[1]);
        return 4;
    }
    workerIface = static_cast<const LV2_Worker_Interface*>(
        lilv_instance_get_extension_data(instance, LV2_WORKER__interface));
    pluginHandle = lilv_instance_get_handle(instance);
    LilvNode* audio = lilv_new_uri(world, LILV_URI_AUDIO_PORT);
    LilvNode* control = lilv_new_uri(world, LILV_URI_CONTROL_PORT);
    LilvNode* input = lilv_new_uri(world, LILV_URI_INPUT_PORT);
    LilvNode* atom = lilv_new_uri(world, LV2_ATOM__AtomPort);
    const uint32_t ports = lilv_plugin_get_num_ports(plugin);
    constexpr int kBlock = 256;
    std::vector<std::vector<float>> audioIn, audioOut;
    std::vector<float> controls(ports, 0.0f);
    std::vector<std::vector<uint8_t>> atoms;
    for (uint32_t p = 0; p < ports; ++p) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, p);
        const bool in = lilv_port_is_a(plugin, port, input);
        if (lilv_port_is_a(plugin, port, audio)) {
            auto& list = in ? audioIn : audioOut;
            list.emplace_back(kBlock, 0.0f);
            lilv_instance_connect_port(instance, p, list.back().data());
        } else if (lilv_port_is_a(plugin, port, control)) {
            LilvNode* def = nullptr;
            lilv_port_get_range(plugin, port, &def, nullptr, nullptr);
            controls[p] = def ? lilv_node_as_float(def) : 0.0f;
            const std::string symbol = lilv_node_as_string(lilv_port_get_symbol(plugin, port));
            if (settings.count(symbol)) controls[p] = settings[symbol];
            lilv_instance_connect_port(instance, p, &controls[p]);
        } else if (lilv_port_is_a(plugin, port, atom)) {
            atoms.emplace_back(8192, 0);
        }
    }
    std::vector<std::pair<uint32_t, bool>> atomPorts;
    {
        size_t k = 0;
        for (uint32_t p = 0; p < ports; ++p) {
            const LilvPort* port = lilv_plugin_get_port_by_index(plugin, p);
            if (lilv_port_is_a(plugin, port, atom)) {
                lilv_instance_connect_port(instance, p, atoms[k].data());
                atomPorts.push_back({static_cast<uint32_t>(k), lilv_port_is_a(plugin, port, input)});
                ++k;
            }
        }
    }
    lilv_instance_activate(instance);
    std::vector<float> out(static_cast<size_t>(total) * 2);
    for (int done = 0; done < total; done += kBlock) {
        const int n = std::min(kBlock, total - done);
        for (auto& a : audioIn)
            std::fill(a.begin(), a.end(), 0.0f);
        if (source.empty() && done == 0)
            for (auto& a : audioIn)
                a[0] = 1.0f;
        for (size_t c = 0; c < audioIn.size() && !source.empty(); ++c)
            for (int i = 0; i < n; ++i) {
                const size_t at = static_cast<size_t>(done + i) * sourceChannels + c % sourceChannels;
                audioIn[c][i] = at < source.size() ? source[at] : 0.0f;
            }
        for (auto [k, in] : atomPorts) {
            auto* seq = reinterpret_cast<LV2_Atom_Sequence*>(atoms[k].data());
            seq->atom.type = in ? mapUri(nullptr, LV2_ATOM__Sequence) : 0;
            seq->atom.size = in ? sizeof(LV2_Atom_Sequence_Body) : 8192 - sizeof(LV2_Atom);
            seq->body.unit = 0;
            seq->body.pad = 0;
        }
        lilv_instance_run(instance, n);
        if (workerIface)
            for (auto& r : responses)
                workerIface->work_response(pluginHandle, static_cast<uint32_t>(r.size()), r.data());
        responses.clear();
        for (int i = 0; i < n; ++i) {
            out[2 * (done + i)] = audioOut[0][i];
            out[2 * (done + i) + 1] = audioOut.size() > 1 ? audioOut[1][i] : audioOut[0][i];
        }
    }
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* f = sf_open(argv[2], SFM_WRITE, &info);
    sf_writef_float(f, out.data(), total);
    sf_close(f);
    return 0;
}
