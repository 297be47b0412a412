#include "TestHost.h"

#include <cstring>

TestHost::TestHost(float rate, int block, const char* vendorString) : sampleRate(rate), vendor(vendorString) {
    time.tempo = 120.0;
    time.sampleRate = rate;
    plugin = std::make_unique<AFUniClient>(&TestHost::callback, this);
    plugin->setSampleRate(rate);
    plugin->setBlockSize(block);
    plugin->resume();
}

intptr_t TestHost::callback(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t, void* ptr, float) {
    auto* host = plugin != nullptr ? static_cast<TestHost*>(plugin->getHostUser()) : nullptr;
    if (host == nullptr) return 0;
    switch (opcode) {
    case audioMasterAutomate:
        ++host->automateCount;
        host->lastAutomatedIndex = index;
        return 1;
    case audioMasterVersion:
        return 2;
    case audioMasterWantMidi:
        ++host->wantMidiCount;
        return 1;
    case audioMasterGetTime: {
        if (!host->provideTime) return 0;
        host->time.flags = kVstPpqPosValid | kVstTempoValid;
        if (host->playing) host->time.flags |= kVstTransportPlaying;
        if (host->cycle) host->time.flags |= kVstTransportCycleActive | kVstCyclePosValid;
        return reinterpret_cast<intptr_t>(&host->time);
    }
    case audioMasterProcessEvents: {
        const auto* events = static_cast<const AFEvents*>(ptr);
        for (int i = 0; i < events->numEvents && host->midiOutCount < kMaxMidiOut; ++i)
            host->midiOut[static_cast<std::size_t>(host->midiOutCount++)] = events->events[i];
        return 1;
    }
    case audioMasterGetSampleRate:
        return static_cast<intptr_t>(host->sampleRate);
    case audioMasterGetVendorString:
        std::strncpy(static_cast<char*>(ptr), host->vendor.c_str(), kHostTextSize - 1);
        return 1;
    case audioMasterGetProductString:
        std::strncpy(static_cast<char*>(ptr), "Test", kHostTextSize - 1);
        return 1;
    default:
        return 0;
    }
}

void TestHost::processBlock(float* left, float* right, int frames) {
    float* io[2] = {left, right};
    plugin->processReplacing(io, io, frames);
    if (playing) {
        time.ppqPos += frames / (sampleRate * 60.0 / time.tempo);
        if (cycle && time.ppqPos >= time.cycleEndPos)
            time.ppqPos = time.cycleStartPos + (time.ppqPos - time.cycleEndPos);
    }
}

void TestHost::render(float* left, float* right, int frames, int block) {
    for (int done = 0; done < frames; done += block) {
        const int n = frames - done < block ? frames - done : block;
        processBlock(left + done, right + done, n);
    }
}

std::vector<float> constantSignal(int frames, float value) {
    return std::vector<float>(static_cast<std::size_t>(frames), value);
}
