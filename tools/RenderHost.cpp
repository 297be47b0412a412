#include "tools/RenderHost.h"

#include "host/AFPluginBase.h"

#include <cmath>
#include <cstdio>
#include <cstring>

RenderHost::RenderHost(const Transport& t) : transport(t), samplesPerBeat(t.sampleRate * 60.0 / t.tempo) {
    time.ppqPos = 0.0;
    fillRecord();
}

intptr_t RenderHost::callback(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                              float opt) {
    if (plugin == nullptr || plugin->getHostUser() == nullptr) return opcode == audioMasterVersion ? 2 : 0;
    return static_cast<RenderHost*>(plugin->getHostUser())->answer(opcode, index, value, ptr, opt);
}

intptr_t RenderHost::answer(int32_t opcode, int32_t, intptr_t, void* ptr, float) {
    switch (opcode) {
    case audioMasterVersion:
        return 2;
    case audioMasterWantMidi:
        return 1;
    case audioMasterGetTime:
        ++queries;
        return reinterpret_cast<intptr_t>(&time);
    case audioMasterProcessEvents:
        if (ptr != nullptr) midiOut += static_cast<const AFEvents*>(ptr)->numEvents;
        return 1;
    case audioMasterGetSampleRate:
        return static_cast<intptr_t>(transport.sampleRate);
    case audioMasterGetVendorString:
        if (ptr == nullptr) return 0;
        std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", kVendor);
        return 1;
    case audioMasterGetProductString:
        if (ptr == nullptr) return 0;
        std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", kProduct);
        return 1;
    case audioMasterCanDo: {
        static constexpr const char* kYes[] = {"sendVstEvents",    "sendVstMidiEvent",    "sendVstTimeInfo",
                                               "receiveVstEvents", "receiveVstMidiEvent", "offline",
                                               "startStopProcess"};
        if (ptr == nullptr) return -1;
        for (const char* yes : kYes)
            if (std::strcmp(static_cast<const char*>(ptr), yes) == 0) return 1;
        return -1;
    }
    default: // automate, begin and end edit: nothing listens offline
        return 0;
    }
}

void RenderHost::advance(int32_t frames) {
    if (!transport.playing) return;
    played += frames;
    // From the sample count rather than summed increments, so that hours of blocks gather no rounding drift.
    double ppq = static_cast<double>(played) / samplesPerBeat;
    if (transport.cycle && ppq >= transport.cycleEnd) {
        // Past the end the playhead has jumped back by whole cycles, keeping the overshoot, as looped
        // playback does; the block that crosses the end still reports where it began.
        const double length = transport.cycleEnd - transport.cycleStart;
        ppq = transport.cycleStart + std::fmod(ppq - transport.cycleEnd, length);
    }
    time.ppqPos = ppq;
    fillRecord();
}

void RenderHost::fillRecord() {
    time.sampleRate = transport.sampleRate;
    time.tempo = transport.tempo;
    time.samplePos = transport.playing ? time.ppqPos * samplesPerBeat : 0.0;
    time.barStartPos = std::floor(time.ppqPos / 4.0) * 4.0;
    time.timeSigNumerator = 4;
    time.timeSigDenominator = 4;
    time.flags = kVstPpqPosValid | kVstTempoValid | kVstBarsValid | kVstTimeSigValid;
    if (transport.playing) time.flags |= kVstTransportPlaying;
    if (transport.cycle) {
        time.flags |= kVstTransportCycleActive | kVstCyclePosValid;
        time.cycleStartPos = transport.cycleStart;
        time.cycleEndPos = transport.cycleEnd;
    }
}
