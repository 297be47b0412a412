#include "host/AFVst3Shim.h"

#include "travesty/component.h"
#include "travesty/edit_controller.h"
#include "travesty/factory.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

// DPF's own VST3 entry, renamed where DPF's main file is compiled for this module.
extern "C" const void* AFDpfPluginFactory(void);

namespace {
using CreateInstance = decltype(v3_plugin_factory::create_instance);
using QueryInterface = decltype(v3_funknown::query_interface);
using ParameterCount = decltype(v3_edit_controller::get_parameter_count);
using ParameterInfo = decltype(v3_edit_controller::get_parameter_info);
using SetNormalised = decltype(v3_edit_controller::set_parameter_normalised);
using SetHandler = decltype(v3_edit_controller::set_component_handler);

// DPF's functions, the same for every object of a kind: each object carries its table as data, and the
// entries below are replaced in place on the objects DPF hands out.
struct Originals {
    CreateInstance createInstance = nullptr;
    QueryInterface componentQuery = nullptr;
    ParameterCount parameterCount = nullptr;
    ParameterInfo parameterInfo = nullptr;
    SetNormalised setNormalised = nullptr;
    SetHandler setHandler = nullptr;
};
Originals originals;

// The host's index of each parameter shown, as DPF counts them, and the id of the program parameter.
std::once_flag layoutOnce;
std::vector<int32_t> shown;
v3_param_id programId = UINT32_MAX;

// Each controller's handler from the host, so that it can be held back during a program change.
std::mutex handlersMutex;
std::map<void*, v3_component_handler**> handlers;

void learnLayout(void* self) {
    const int32_t count = originals.parameterCount(self);
    for (int32_t i = 0; i < count; ++i) {
        v3_param_info info{};
        if (originals.parameterInfo(self, i, &info) != V3_OK) continue;
        // DPF marks its controller stand-ins hidden; the program parameter is hidden too, but hosts list
        // programs through it.
        if ((info.flags & V3_PARAM_PROGRAM_CHANGE) != 0) programId = info.param_id;
        if ((info.flags & V3_PARAM_IS_HIDDEN) == 0 || (info.flags & V3_PARAM_PROGRAM_CHANGE) != 0)
            shown.push_back(i);
    }
}

int32_t V3_API parameterCount(void* self) {
    std::call_once(layoutOnce, learnLayout, self);
    return static_cast<int32_t>(shown.size());
}

v3_result V3_API parameterInfo(void* self, int32_t index, v3_param_info* info) {
    std::call_once(layoutOnce, learnLayout, self);
    if (index < 0 || index >= static_cast<int32_t>(shown.size())) return V3_INVALID_ARG;
    return originals.parameterInfo(self, shown[static_cast<std::size_t>(index)], info);
}

v3_result V3_API setHandler(void* self, v3_component_handler** handler) {
    {
        const std::lock_guard<std::mutex> lock(handlersMutex);
        if (handler != nullptr)
            handlers[self] = handler;
        else
            handlers.erase(self);
    }
    return originals.setHandler(self, handler);
}

v3_result V3_API setNormalised(void* self, v3_param_id id, double value) {
    std::call_once(layoutOnce, learnLayout, self);
    if (id != programId) return originals.setNormalised(self, id, value);
    // DPF asks the host to re-read all values before this returns; without a handler it cannot.
    v3_component_handler** handler = nullptr;
    {
        const std::lock_guard<std::mutex> lock(handlersMutex);
        const auto found = handlers.find(self);
        if (found != handlers.end()) handler = found->second;
    }
    originals.setHandler(self, nullptr);
    const v3_result result = originals.setNormalised(self, id, value);
    originals.setHandler(self, handler);
    return result;
}

void patchController(void* object) {
    auto* controller = *static_cast<v3_edit_controller_cpp**>(object);
    if (originals.parameterCount == nullptr) {
        originals.parameterCount = controller->ctrl.get_parameter_count;
        originals.parameterInfo = controller->ctrl.get_parameter_info;
        originals.setNormalised = controller->ctrl.set_parameter_normalised;
        originals.setHandler = controller->ctrl.set_component_handler;
    }
    controller->ctrl.get_parameter_count = parameterCount;
    controller->ctrl.get_parameter_info = parameterInfo;
    controller->ctrl.set_parameter_normalised = setNormalised;
    controller->ctrl.set_component_handler = setHandler;
}

v3_result V3_API componentQuery(void* self, const v3_tuid iid, void** iface) {
    const v3_result result = originals.componentQuery(self, iid, iface);
    if (result == V3_OK && v3_tuid_match(iid, v3_edit_controller_iid) && *iface != nullptr)
        patchController(*iface);
    return result;
}

v3_result V3_API createInstance(void* self, const v3_tuid classId, const v3_tuid iid, void** instance) {
    const v3_result result = originals.createInstance(self, classId, iid, instance);
    if (result != V3_OK || *instance == nullptr) return result;
    auto* component = *static_cast<v3_component_cpp**>(*instance);
    if (originals.componentQuery == nullptr) originals.componentQuery = component->query_interface;
    component->query_interface = componentQuery;
    return result;
}
} // namespace

const void* AFVst3Shim::wrapFactory(const void* factory) {
    if (factory == nullptr) return nullptr;
    auto* table = *static_cast<v3_plugin_factory_cpp* const*>(factory);
    if (originals.createInstance == nullptr) originals.createInstance = table->v1.create_instance;
    table->v1.create_instance = createInstance;
    return factory;
}

extern "C" __attribute__((visibility("default"))) const void* GetPluginFactory(void) {
    return AFVst3Shim::wrapFactory(AFDpfPluginFactory());
}
