// A small editor host of our own: opens the built CLAP or VST2 plug-in's editor inside an X11 window of its
// own, as a DAW embeds it, keeps it running until SIGTERM, and then writes what the engine holds: Control 1's
// value and the format's saved state.
//
//   orvanto-editor-host clap|vst2 PLUGIN OUT
//
// OUT.control gets Control 1's value at the close as text, OUT-opened.state and OUT-closed.state the saved
// state's bytes as the editor opened and at the close.
#include "clap/entry.h"
#include "clap/ext/gui.h"
#include "clap/ext/params.h"
#include "clap/ext/state.h"
#include "clap/ext/timer-support.h"
#include "clap/plugin-factory.h"
// The VST2 header names the calling convention of other systems.
#define __cdecl
#include "xaymar-vst2/vst.h"

#include <X11/Xlib.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kWidth = 1200;
constexpr int kHeight = 700;
constexpr int32_t kVstMagic = 0x56737450; // 'VstP'
constexpr auto kIdlePeriod = std::chrono::milliseconds(16);

// The window is shown once the editor inside it has had this many idle turns to draw its first frame.
constexpr int kIdlesBeforeShowing = 5;

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int) {
    stopRequested = 1;
}

// What the engine holds: its state as the editor opened, and Control 1 and the state when the host closes.
struct Outcome {
    std::vector<char> opened;
    double control1 = -1.0;
    std::vector<char> closed;
};

// ---- CLAP ----------------------------------------------------------------------------------------------

struct ClapTimer {
    clap_id id;
    uint32_t periodMs;
};

std::vector<ClapTimer> clapTimers;
bool clapCallbackRequested = false;

const clap_host_gui_t clapHostGui = {
    [](const clap_host_t*) {},
    [](const clap_host_t*, uint32_t, uint32_t) { return true; },
    [](const clap_host_t*) { return true; },
    [](const clap_host_t*) { return true; },
    [](const clap_host_t*, bool) {},
};

const clap_host_timer_support_t clapHostTimers = {
    [](const clap_host_t*, uint32_t periodMs, clap_id* id) {
        *id = static_cast<clap_id>(clapTimers.size());
        clapTimers.push_back({*id, periodMs});
        return true;
    },
    [](const clap_host_t*, clap_id id) {
        std::erase_if(clapTimers, [id](const ClapTimer& timer) { return timer.id == id; });
        return true;
    },
};

const clap_host_params_t clapHostParams = {
    [](const clap_host_t*, clap_param_rescan_flags) {},
    [](const clap_host_t*, clap_id, clap_param_clear_flags) {},
    [](const clap_host_t*) {},
};

const void* clapHostExtension(const clap_host_t*, const char* id) {
    if (std::strcmp(id, CLAP_EXT_GUI) == 0) return &clapHostGui;
    if (std::strcmp(id, CLAP_EXT_TIMER_SUPPORT) == 0) return &clapHostTimers;
    if (std::strcmp(id, CLAP_EXT_PARAMS) == 0) return &clapHostParams;
    return nullptr;
}

const clap_host_t clapHost = {
    CLAP_VERSION,
    nullptr,
    "orvanto-editor-host",
    "Orvanto",
    "",
    "1.0",
    clapHostExtension,
    [](const clap_host_t*) {},
    [](const clap_host_t*) {},
    [](const clap_host_t*) { clapCallbackRequested = true; },
};

bool runClap(void* library, const char* path, Window parent, const std::function<void()>& shown,
             Outcome& outcome) {
    const auto* entry = static_cast<const clap_plugin_entry_t*>(dlsym(library, "clap_entry"));
    if (entry == nullptr || !entry->init(path)) return false;
    const auto* factory =
        static_cast<const clap_plugin_factory_t*>(entry->get_factory(CLAP_PLUGIN_FACTORY_ID));
    if (factory == nullptr || factory->get_plugin_count(factory) < 1) return false;
    const clap_plugin_t* plugin =
        factory->create_plugin(factory, &clapHost, factory->get_plugin_descriptor(factory, 0)->id);
    if (plugin == nullptr || !plugin->init(plugin)) return false;
    const auto* gui = static_cast<const clap_plugin_gui_t*>(plugin->get_extension(plugin, CLAP_EXT_GUI));
    const auto* timers = static_cast<const clap_plugin_timer_support_t*>(
        plugin->get_extension(plugin, CLAP_EXT_TIMER_SUPPORT));
    if (gui == nullptr || timers == nullptr || !gui->is_api_supported(plugin, CLAP_WINDOW_API_X11, false) ||
        !gui->create(plugin, CLAP_WINDOW_API_X11, false))
        return false;
    clap_window_t window{};
    window.api = CLAP_WINDOW_API_X11;
    window.x11 = parent;
    if (!gui->set_parent(plugin, &window) || !gui->show(plugin)) return false;

    const auto* params =
        static_cast<const clap_plugin_params_t*>(plugin->get_extension(plugin, CLAP_EXT_PARAMS));
    const auto* state =
        static_cast<const clap_plugin_state_t*>(plugin->get_extension(plugin, CLAP_EXT_STATE));
    if (params == nullptr || state == nullptr) return false;
    const auto save = [plugin, state](std::vector<char>& into) {
        clap_ostream_t stream{&into, [](const clap_ostream_t* self, const void* data, uint64_t size) {
                                  auto* bytes = static_cast<std::vector<char>*>(self->ctx);
                                  bytes->insert(bytes->end(), static_cast<const char*>(data),
                                                static_cast<const char*>(data) + size);
                                  return static_cast<int64_t>(size);
                              }};
        state->save(plugin, &stream);
    };
    save(outcome.opened);
    for (int idles = 0; stopRequested == 0; ++idles) {
        if (idles == kIdlesBeforeShowing) shown();
        for (const ClapTimer& timer : std::vector<ClapTimer>(clapTimers))
            timers->on_timer(plugin, timer.id);
        if (clapCallbackRequested) {
            clapCallbackRequested = false;
            plugin->on_main_thread(plugin);
        }
        std::this_thread::sleep_for(kIdlePeriod);
    }
    params->get_value(plugin, 0, &outcome.control1);
    save(outcome.closed);
    gui->destroy(plugin);
    plugin->destroy(plugin);
    entry->deinit();
    return true;
}

// ---- VST2 ----------------------------------------------------------------------------------------------

intptr_t vstHostCallback(vst_effect*, VST_HOST_OPCODE opcode, int32_t, int64_t, void*, int32_t) {
    switch (opcode) {
    case VST_HOST_OPCODE_01: // host version
        return 2400;
    case VST_HOST_OPCODE_10: // sample rate
        return 48000;
    case VST_HOST_OPCODE_11: // block size
        return 512;
    default:
        return 0;
    }
}

bool runVst2(void* library, Window parent, const std::function<void()>& shown, Outcome& outcome) {
    using Main = vst_effect* (*)(vst_host_callback);
    // Linux hosts look for either name.
    void* symbol = dlsym(library, "VSTPluginMain");
    if (symbol == nullptr) symbol = dlsym(library, "main");
    auto main = reinterpret_cast<Main>(symbol);
    if (main == nullptr) return false;
    vst_effect* effect = main(vstHostCallback);
    if (effect == nullptr || effect->magic_number != kVstMagic) return false;
    effect->control(effect, VST_EFFECT_OPCODE_CREATE, 0, 0, nullptr, 0.0f);
    if (effect->control(effect, VST_EFFECT_OPCODE_WINDOW_CREATE, 0, 0, reinterpret_cast<void*>(parent),
                        0.0f) == 0)
        return false;
    const auto save = [effect](std::vector<char>& into) {
        void* chunk = nullptr;
        const intptr_t size = effect->control(effect, VST_EFFECT_OPCODE_17, 0, 0, &chunk, 0.0f); // get chunk
        if (chunk != nullptr && size > 0)
            into.assign(static_cast<const char*>(chunk), static_cast<const char*>(chunk) + size);
    };
    save(outcome.opened);
    for (int idles = 0; stopRequested == 0; ++idles) {
        if (idles == kIdlesBeforeShowing) shown();
        effect->control(effect, VST_EFFECT_OPCODE_13, 0, 0, nullptr, 0.0f); // editor idle
        std::this_thread::sleep_for(kIdlePeriod);
    }
    outcome.control1 = effect->get_parameter(effect, 0);
    save(outcome.closed);
    effect->control(effect, VST_EFFECT_OPCODE_WINDOW_DESTROY, 0, 0, nullptr, 0.0f);
    effect->control(effect, VST_EFFECT_OPCODE_DESTROY, 0, 0, nullptr, 0.0f);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: orvanto-editor-host clap|vst2 PLUGIN OUT\n", stderr);
        return 2;
    }
    const std::string format = argv[1];
    std::signal(SIGTERM, requestStop);
    std::signal(SIGINT, requestStop);

    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        std::fputs("no X display\n", stderr);
        return 1;
    }
    const Window parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, kWidth, kHeight, 0,
                                              0, BlackPixel(display, DefaultScreen(display)));
    XStoreName(display, parent, ("Orvanto " + format + " host").c_str());
    // The plug-in reaches the window through a connection of its own.
    XSync(display, False);
    const auto show = [display, parent] {
        XMapWindow(display, parent);
        XSync(display, False);
    };

    void* library = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "cannot load %s: %s\n", argv[2], dlerror());
        return 1;
    }
    Outcome outcome;
    const bool ran = format == "clap"   ? runClap(library, argv[2], parent, show, outcome)
                     : format == "vst2" ? runVst2(library, parent, show, outcome)
                                        : false;
    if (!ran) {
        std::fprintf(stderr, "the %s editor did not open\n", format.c_str());
        return 1;
    }
    const std::string out = argv[3];
    std::ofstream(out + ".control") << outcome.control1 << '\n';
    std::ofstream(out + "-opened.state", std::ios::binary)
        .write(outcome.opened.data(), static_cast<std::streamsize>(outcome.opened.size()));
    std::ofstream(out + "-closed.state", std::ios::binary)
        .write(outcome.closed.data(), static_cast<std::streamsize>(outcome.closed.size()));
    XDestroyWindow(display, parent);
    XCloseDisplay(display);
    return 0;
}
