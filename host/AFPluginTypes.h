#pragma once

#include <cstdint>

// The records and numbers that pass between the plug-in object and its host.

class AFPluginBase;

// Host calls, by the number the host callback receives.
enum AFHostOpcode : int32_t {
    audioMasterAutomate = 0,
    audioMasterVersion = 1,
    audioMasterWantMidi = 6,
    audioMasterGetTime = 7,
    audioMasterProcessEvents = 8,
    audioMasterGetSampleRate = 16,
    audioMasterGetVendorString = 32,
    audioMasterGetProductString = 33,
    audioMasterCanDo = 37,
    audioMasterBeginEdit = 43,
    audioMasterEndEdit = 44,
};

// The host's side: answers one call. `index`, `value`, `ptr` and `opt` carry the arguments of each call as in
// the table of host calls (automate: index and opt; get time: value is the filter; process events: ptr is an
// AFEvents*; vendor and product: ptr is a 64-byte text; can-do: ptr is the question).
using AFHostCallback = intptr_t (*)(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value,
                                    void* ptr, float opt);

enum AFTimeInfoFlags : int32_t {
    kVstTransportChanged = 1,
    kVstTransportPlaying = 2,
    kVstTransportCycleActive = 4,
    kVstTransportRecording = 8,
    kVstNanosValid = 256,
    kVstPpqPosValid = 512,
    kVstTempoValid = 1024,
    kVstBarsValid = 2048,
    kVstCyclePosValid = 4096,
    kVstTimeSigValid = 8192,
};

struct AFTimeInfo {
    double samplePos = 0.0;
    double sampleRate = 0.0;
    double nanoSeconds = 0.0;
    double ppqPos = 0.0;
    double tempo = 120.0;
    double barStartPos = 0.0;
    double cycleStartPos = 0.0;
    double cycleEndPos = 0.0;
    int32_t timeSigNumerator = 4;
    int32_t timeSigDenominator = 4;
    int32_t smpteOffset = 0;
    int32_t smpteFrameRate = 0;
    int32_t samplesToNextClock = 0;
    int32_t flags = 0;
};

inline constexpr int32_t kVstMidiType = 1;

struct AFMidiEvent {
    int32_t type = kVstMidiType;
    int32_t byteSize = sizeof(AFMidiEvent);
    int32_t deltaFrames = 0;
    int32_t flags = 0;
    int32_t noteLength = 0;
    int32_t noteOffset = 0;
    uint8_t midiData[4] = {0, 0, 0, 0};
    int8_t detune = 0;
    uint8_t noteOffVelocity = 0;
    uint8_t reserved1 = 0;
    uint8_t reserved2 = 0;
};

// A block of events, in either direction: `events` points at `numEvents` records.
struct AFEvents {
    int32_t numEvents = 0;
    AFMidiEvent* events = nullptr;
};

inline constexpr int32_t kVstParameterIsSwitch = 1;

struct AFParameterProperties {
    float stepFloat = 0.0f;
    float smallStepFloat = 0.0f;
    float largeStepFloat = 0.0f;
    char label[64] = {};
    int32_t flags = 0;
    int32_t minInteger = 0;
    int32_t maxInteger = 0;
    int32_t stepInteger = 0;
    int32_t largeStepInteger = 0;
    char shortLabel[8] = {};
    int16_t displayIndex = 0;
    int16_t category = 0;
    int16_t numParametersInCategory = 0;
    int16_t reserved = 0;
    char categoryLabel[24] = {};
    char future[16] = {};
};

// Identity of the plug-in as every host sees it.
namespace AFIdentity {
inline constexpr int32_t kUniqueId = ('a' << 24) | ('f' << 16) | ('o' << 8) | 'u';
inline constexpr const char* kVendor = "Amber Forge";
inline constexpr const char* kProduct = "Orvanto";
inline constexpr const char* kEffectName = "Orvanto";
inline constexpr int32_t kVendorVersion = 1101;
inline constexpr int32_t kInputs = 2;
inline constexpr int32_t kOutputs = 2;
inline constexpr int32_t kParameters = 252;
inline constexpr int32_t kInitialPrograms = 128;
} // namespace AFIdentity

// Size of every text buffer handed through the surface.
inline constexpr int kHostTextSize = 64;
