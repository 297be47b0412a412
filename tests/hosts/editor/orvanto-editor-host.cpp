// A small editor host of our own: opens the built CLAP, VST2 or VST3 plug-in's editor inside an X11 window of
// its own, as a DAW embeds it, and keeps it running until SIGTERM. It saves the plug-in's state, in the
// format's own way, as the editor opens (OUT-opened.state) and when the host closes (OUT-closed.state).
//
//   orvanto-editor-host clap|vst2|vst3 PLUGIN OUT
#include "clap/entry.h"
#include "clap/ext/gui.h"
#include "clap/ext/params.h"
#include "clap/ext/state.h"
#include "clap/ext/timer-support.h"
#include "clap/plugin-factory.h"
#include "travesty/component.h"
#include "travesty/edit_controller.h"
#include "travesty/factory.h"
#include "travesty/host.h"
#include "travesty/view.h"
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

// The plug-in's saved state as the editor opened and when the host closes.
struct Outcome {
    std::vector<char> opened;
    std::vector<char> closed;
};

// ---- CLAP ----------------------------------------------------------------------------------------------

// Every timer the plug-in asks for fires at the host's idle period.
std::vector<clap_id> clapTimers;
clap_id nextClapTimer = 0;
bool clapCallbackRequested = false;

const clap_host_gui_t clapHostGui = {
    [](const clap_host_t*) {},
    [](const clap_host_t*, uint32_t, uint32_t) { return true; },
    [](const clap_host_t*) { return true; },
    [](const clap_host_t*) { return true; },
    [](const clap_host_t*, bool) {},
};

const clap_host_timer_support_t clapHostTimers = {
    [](const clap_host_t*, uint32_t, clap_id* id) {
        *id = nextClapTimer++;
        clapTimers.push_back(*id);
        return true;
    },
    [](const clap_host_t*, clap_id id) {
        std::erase(clapTimers, id);
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

    const auto* state =
        static_cast<const clap_plugin_state_t*>(plugin->get_extension(plugin, CLAP_EXT_STATE));
    if (state == nullptr) return false;
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
        for (const clap_id id : std::vector<clap_id>(clapTimers))
            timers->on_timer(plugin, id);
        if (clapCallbackRequested) {
            clapCallbackRequested = false;
            plugin->on_main_thread(plugin);
        }
        std::this_thread::sleep_for(kIdlePeriod);
    }
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
    save(outcome.closed);
    effect->control(effect, VST_EFFECT_OPCODE_WINDOW_DESTROY, 0, 0, nullptr, 0.0f);
    effect->control(effect, VST_EFFECT_OPCODE_DESTROY, 0, 0, nullptr, 0.0f);
    return true;
}

// ---- VST3 ----------------------------------------------------------------------------------------------

// The host's objects: each starts with its table, as the plug-in expects of an object pointer.
v3_result V3_API noInterface(void*, const v3_tuid, void** object) {
    *object = nullptr;
    return V3_NO_INTERFACE;
}

uint32_t V3_API staticReference(void*) {
    return 1;
}

std::vector<v3_timer_handler_cpp**> vst3Timers;

v3_run_loop_cpp runLoopTable = [] {
    v3_run_loop_cpp table{};
    table.query_interface = noInterface;
    table.ref = staticReference;
    table.unref = staticReference;
    table.loop.register_event_handler = [](void*, v3_event_handler**, int) -> v3_result { return V3_OK; };
    table.loop.unregister_event_handler = [](void*, v3_event_handler**) -> v3_result { return V3_OK; };
    table.loop.register_timer = [](void*, v3_timer_handler** handler, uint64_t) -> v3_result {
        vst3Timers.push_back(reinterpret_cast<v3_timer_handler_cpp**>(handler));
        return V3_OK;
    };
    table.loop.unregister_timer = [](void*, v3_timer_handler** handler) -> v3_result {
        std::erase(vst3Timers, reinterpret_cast<v3_timer_handler_cpp**>(handler));
        return V3_OK;
    };
    return table;
}();
v3_run_loop_cpp* runLoop = &runLoopTable;

v3_plugin_frame_cpp frameTable = [] {
    v3_plugin_frame_cpp table{};
    table.query_interface = [](void* self, const v3_tuid iid, void** object) -> v3_result {
        if (v3_tuid_match(iid, v3_run_loop_iid)) {
            *object = &runLoop;
            return V3_OK;
        }
        if (v3_tuid_match(iid, v3_plugin_frame_iid) || v3_tuid_match(iid, v3_funknown_iid)) {
            *object = self;
            return V3_OK;
        }
        return noInterface(self, iid, object);
    };
    table.ref = staticReference;
    table.unref = staticReference;
    table.frame.resize_view = [](void*, v3_plugin_view**, v3_view_rect*) -> v3_result { return V3_OK; };
    return table;
}();
v3_plugin_frame_cpp* frame = &frameTable;

v3_host_application_cpp hostApplicationTable = [] {
    v3_host_application_cpp table{};
    table.query_interface = [](void* self, const v3_tuid iid, void** object) -> v3_result {
        if (v3_tuid_match(iid, v3_host_application_iid) || v3_tuid_match(iid, v3_funknown_iid)) {
            *object = self;
            return V3_OK;
        }
        return noInterface(self, iid, object);
    };
    table.ref = staticReference;
    table.unref = staticReference;
    table.app.get_name = [](void*, v3_str_128 name) -> v3_result {
        const char* text = "orvanto-editor-host";
        for (std::size_t i = 0; i <= std::strlen(text); ++i)
            name[i] = static_cast<int16_t>(text[i]);
        return V3_OK;
    };
    table.app.create_instance = [](void*, v3_tuid, v3_tuid, void** object) -> v3_result {
        *object = nullptr;
        return V3_NOT_IMPLEMENTED;
    };
    return table;
}();
v3_host_application_cpp* hostApplication = &hostApplicationTable;

// A stream that keeps what the plug-in writes.
struct Vst3Stream {
    struct Table : v3_funknown {
        v3_bstream stream;
    };
    const Table* table;
    std::vector<char>* bytes;
};

const Vst3Stream::Table streamTable = [] {
    Vst3Stream::Table table{};
    table.query_interface = noInterface;
    table.ref = staticReference;
    table.unref = staticReference;
    table.stream.read = [](void*, void*, int32_t, int32_t* done) -> v3_result {
        if (done != nullptr) *done = 0;
        return V3_NOT_IMPLEMENTED;
    };
    table.stream.write = [](void* self, void* data, int32_t size, int32_t* done) -> v3_result {
        auto* bytes = static_cast<Vst3Stream*>(self)->bytes;
        bytes->insert(bytes->end(), static_cast<const char*>(data), static_cast<const char*>(data) + size);
        if (done != nullptr) *done = size;
        return V3_OK;
    };
    table.stream.seek = [](void*, int64_t, int32_t, int64_t*) -> v3_result { return V3_NOT_IMPLEMENTED; };
    table.stream.tell = [](void* self, int64_t* position) -> v3_result {
        *position = static_cast<int64_t>(static_cast<Vst3Stream*>(self)->bytes->size());
        return V3_OK;
    };
    return table;
}();

bool runVst3(void* library, Window parent, const std::function<void()>& shown, Outcome& outcome) {
    using Entry = bool (*)(void*);
    if (auto entry = reinterpret_cast<Entry>(dlsym(library, "ModuleEntry"));
        entry != nullptr && !entry(library))
        return false;
    using GetFactory = v3_plugin_factory_cpp** (*)();
    auto getFactory = reinterpret_cast<GetFactory>(dlsym(library, "GetPluginFactory"));
    if (getFactory == nullptr) return false;
    v3_plugin_factory_cpp** factory = getFactory();
    v3_component_cpp** component = nullptr;
    for (int32_t i = 0; factory != nullptr && i < (*factory)->v1.num_classes(factory); ++i) {
        v3_class_info info{};
        if ((*factory)->v1.get_class_info(factory, i, &info) != V3_OK ||
            std::strcmp(info.category, "Audio Module Class") != 0)
            continue;
        (*factory)->v1.create_instance(factory, info.class_id, v3_component_iid,
                                       reinterpret_cast<void**>(&component));
        break;
    }
    if (component == nullptr ||
        (*component)->base.initialize(component, reinterpret_cast<v3_funknown**>(&hostApplication)) != V3_OK)
        return false;
    v3_edit_controller_cpp** controller = nullptr;
    (*component)->query_interface(component, v3_edit_controller_iid, reinterpret_cast<void**>(&controller));
    if (controller == nullptr) return false;
    auto** view =
        reinterpret_cast<v3_plugin_view_cpp**>((*controller)->ctrl.create_view(controller, "editor"));
    if (view == nullptr) return false;
    (*view)->view.set_frame(view, reinterpret_cast<v3_plugin_frame**>(&frame));
    if ((*view)->view.attached(view, reinterpret_cast<void*>(parent), "X11EmbedWindowID") != V3_OK)
        return false;

    const auto save = [component](std::vector<char>& into) {
        Vst3Stream stream{&streamTable, &into};
        Vst3Stream* object = &stream;
        (*component)->comp.get_state(component, reinterpret_cast<v3_bstream**>(object));
    };
    save(outcome.opened);
    for (int idles = 0; stopRequested == 0; ++idles) {
        if (idles == kIdlesBeforeShowing) shown();
        for (v3_timer_handler_cpp** timer : std::vector<v3_timer_handler_cpp**>(vst3Timers))
            (*timer)->timer.on_timer(timer);
        std::this_thread::sleep_for(kIdlePeriod);
    }
    save(outcome.closed);
    (*view)->view.removed(view);
    (*view)->unref(view);
    (*controller)->unref(controller);
    (*component)->base.terminate(component);
    (*component)->unref(component);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: orvanto-editor-host clap|vst2|vst3 PLUGIN OUT\n", stderr);
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
                     : format == "vst3" ? runVst3(library, parent, show, outcome)
                                        : false;
    if (!ran) {
        std::fprintf(stderr, "the %s editor did not open\n", format.c_str());
        return 1;
    }
    const std::string out = argv[3];
    std::ofstream(out + "-opened.state", std::ios::binary)
        .write(outcome.opened.data(), static_cast<std::streamsize>(outcome.opened.size()));
    std::ofstream(out + "-closed.state", std::ios::binary)
        .write(outcome.closed.data(), static_cast<std::streamsize>(outcome.closed.size()));
    XDestroyWindow(display, parent);
    XCloseDisplay(display);
    return 0;
}
