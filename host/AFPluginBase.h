#pragma once

#include "host/AFPluginTypes.h"

#include <cstdint>

// The plug-in surface: what a host calls on the plug-in and what the plug-in asks of its host through the
// callback. A host adapter (the DPF wrapper, the offline renderer, a test host) owns one object and plays the
// host's part.
class AFPluginBase {
public:
    AFPluginBase(AFHostCallback callback, void* hostUser, int32_t numPrograms, int32_t numParams);
    AFPluginBase(const AFPluginBase&) = delete;
    AFPluginBase& operator=(const AFPluginBase&) = delete;
    // Host thread, after the audio has stopped.
    virtual ~AFPluginBase();

    // Audio thread: stereo in place or out of place.
    virtual void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) = 0;

    // Parameters: any thread (the audio thread when driven by MIDI or automation inside a block).
    virtual void setParameter(int32_t index, float value) = 0;
    virtual float getParameter(int32_t index) = 0;
    // Sets the parameter and reports it to the host as automation. Editor thread.
    virtual void setParameterAutomated(int32_t index, float value);
    // Programs and chunks: host thread.
    virtual int32_t getProgram() { return curProgram; }
    virtual void setProgram(int32_t program) { curProgram = program; }
    virtual void setProgramName(const char*) {}
    virtual void getProgramName(char* name);
    virtual void getParameterLabel(int32_t index, char* text) = 0;
    virtual void getParameterDisplay(int32_t index, char* text) = 0;
    virtual void getParameterName(int32_t index, char* text) = 0;
    // Host thread. The returned memory stays owned by the plug-in until the next call.
    virtual int32_t getChunk(void** data, bool isPreset) = 0;
    virtual int32_t setChunk(void* data, int32_t byteSize, bool isPreset) = 0;

    // Host thread, outside the audio.
    virtual void suspend() {}
    virtual void resume() {}
    virtual void setSampleRate(float rate) { sampleRate = rate; }
    virtual void setBlockSize(int32_t size) { blockSize = size; }
    // Audio thread, before the processReplacing call of the same block.
    virtual int32_t processEvents(AFEvents*) { return 0; }
    virtual bool getParameterProperties(int32_t, AFParameterProperties*) { return false; }
    virtual bool getProgramNameIndexed(int32_t, int32_t, char*) { return false; }
    // Host thread.
    virtual int32_t canDo(const char* text);
    virtual bool getVendorString(char* text);
    virtual bool getProductString(char* text);
    virtual bool getEffectName(char* text);
    virtual int32_t getVendorVersion() { return AFIdentity::kVendorVersion; }
    virtual intptr_t vendorSpecific(int32_t, intptr_t, void*, float) { return 0; }
    // Editor thread: the gesture around a parameter change.
    virtual bool beginEdit(int32_t index);
    virtual bool endEdit(int32_t index);

    int32_t getNumPrograms() const noexcept { return numPrograms; }
    int32_t getNumParams() const noexcept { return numParams; }
    int32_t getNumInputs() const noexcept { return numInputs; }
    int32_t getNumOutputs() const noexcept { return numOutputs; }
    int32_t getUniqueId() const noexcept { return uniqueId; }
    float getSampleRate() const noexcept { return sampleRate; }
    int32_t getBlockSize() const noexcept { return blockSize; }
    bool programsAreChunks() const noexcept { return chunks; }
    bool canProcessReplacing() const noexcept { return replacing; }
    bool hasNoTail() const noexcept { return noTail; }
    void* getHostUser() const noexcept { return hostUser; }

protected:
    // Calls into the host. Each is safe when the host gave no callback.
    intptr_t callHost(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                      float opt = 0.0f) const;
    // The host's time record, or null. Audio thread.
    const AFTimeInfo* getTimeInfo(int32_t filter) const;
    bool sendEventsToHost(AFEvents* events) const;
    bool getHostVendorString(char* text) const;
    void wantEvents() const { callHost(audioMasterWantMidi, 0, 1); }

    void setNumInputs(int32_t n) { numInputs = n; }
    void setNumOutputs(int32_t n) { numOutputs = n; }
    void setUniqueId(int32_t id) { uniqueId = id; }
    void setProgramsAreChunks(bool on) { chunks = on; }
    void setCanProcessReplacing(bool on) { replacing = on; }
    void setNoTail(bool on) { noTail = on; }

    AFHostCallback hostCallback;
    void* hostUser;
    float sampleRate = 44100.0f;
    int32_t blockSize = 1024;
    int32_t numPrograms;
    int32_t numParams;
    int32_t curProgram = 0;

private:
    int32_t numInputs = 0;
    int32_t numOutputs = 0;
    int32_t uniqueId = 0;
    bool chunks = false;
    bool replacing = false;
    bool noTail = false;
};
