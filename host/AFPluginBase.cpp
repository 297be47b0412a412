#include "host/AFPluginBase.h"

#include <cstdio>
#include <cstring>

AFPluginBase::AFPluginBase(AFHostCallback callback, void* user, int32_t programs, int32_t params)
    : hostCallback(callback), hostUser(user), numPrograms(programs), numParams(params) {}

AFPluginBase::~AFPluginBase() = default;

void AFPluginBase::setParameterAutomated(int32_t index, float value) {
    setParameter(index, value);
    callHost(audioMasterAutomate, index, 0, nullptr, value);
}

void AFPluginBase::getProgramName(char* name) {
    name[0] = '\0';
}

int32_t AFPluginBase::canDo(const char* text) {
    static constexpr const char* kYes[] = {"receiveVstEvents", "receiveVstMidiEvent", "sendVstMidiEvent",
                                           "sendVstEvent", "receiveVstTimeInfo"};
    if (text == nullptr) return -1;
    for (const char* yes : kYes)
        if (std::strcmp(text, yes) == 0) return 1;
    if (std::strcmp(text, "isDemoVersion") == 0) return 0;
    return -1;
}

bool AFPluginBase::getVendorString(char* text) {
    std::snprintf(text, kHostTextSize, "%s", AFIdentity::kVendor);
    return true;
}

bool AFPluginBase::getProductString(char* text) {
    std::snprintf(text, kHostTextSize, "%s", AFIdentity::kProduct);
    return true;
}

bool AFPluginBase::getEffectName(char* text) {
    std::snprintf(text, kHostTextSize, "%s", AFIdentity::kEffectName);
    return true;
}

bool AFPluginBase::beginEdit(int32_t index) {
    return callHost(audioMasterBeginEdit, index) != 0;
}

bool AFPluginBase::endEdit(int32_t index) {
    return callHost(audioMasterEndEdit, index) != 0;
}

intptr_t AFPluginBase::callHost(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) const {
    if (hostCallback == nullptr) return 0;
    return hostCallback(const_cast<AFPluginBase*>(this), opcode, index, value, ptr, opt);
}

const AFTimeInfo* AFPluginBase::getTimeInfo(int32_t filter) const {
    return reinterpret_cast<const AFTimeInfo*>(callHost(audioMasterGetTime, 0, filter));
}

bool AFPluginBase::sendEventsToHost(AFEvents* events) const {
    return callHost(audioMasterProcessEvents, 0, 0, events) != 0;
}

bool AFPluginBase::getHostVendorString(char* text) const {
    text[0] = '\0';
    return callHost(audioMasterGetVendorString, 0, 0, text) != 0;
}
