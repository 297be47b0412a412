#pragma once

#include "host/AFPluginTypes.h"

#include <cstdint>

// The host's side of the plug-in surface for an offline render: answers the plug-in's calls and keeps the
// transport a DAW would report, advancing it block by block and wrapping it at the cycle end.
class RenderHost {
public:
    static constexpr const char* kVendor = "Orvanto Render";
    static constexpr const char* kProduct = "orvanto-render";

    struct Transport {
        double sampleRate = 48000.0;
        double tempo = 120.0;
        bool playing = true;
        bool cycle = false;
        double cycleStart = 0.0; // quarter notes
        double cycleEnd = 0.0;
    };

    // Main thread, before the plug-in is built.
    explicit RenderHost(const Transport& transport);

    // Any thread: the callback handed to the plug-in; the plug-in's host user must be this object.
    static intptr_t callback(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                             float opt);
    // The same call, answered by this host.
    intptr_t answer(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);

    // Render thread, after each processed block: moves the transport on by `frames` samples.
    void advance(int32_t frames);

    const AFTimeInfo& timeInfo() const { return time; }
    int64_t midiEventsReceived() const { return midiOut; }
    int64_t timeQueries() const { return queries; }

private:
    void fillRecord();

    Transport transport;
    AFTimeInfo time;
    double samplesPerBeat;
    int64_t played = 0; // samples since the transport started
    int64_t midiOut = 0;
    int64_t queries = 0;
};
