#pragma once

#include "engine/AFEventQueue.h"
#include "host/AFPluginTypes.h"

#include <array>
#include <atomic>
#include <cstdint>

class AFMidiBindings;
class AFSystemInfo;
class AFUniClient;
struct AFGlobalOptions;

// MIDI in and out of one instance: the host's events queued to the sample, then run through the bindings
// into the parameters (with learn), pitch bend and program change into the timing record, and the Controls
// sent back out when MIDI out is on. Everything here runs on the audio thread.
class AFMidiControl {
public:
    static constexpr int kOutCapacity = 256;
    static constexpr int32_t kNoEvent = 1000000;

    // Construction thread.
    AFMidiControl(AFUniClient& client, AFMidiBindings& bindings, const AFGlobalOptions& options,
                  AFSystemInfo& system) noexcept;

    // Audio thread: the host's events of the coming block into the queue.
    void queue(const AFEvents* events) noexcept;
    // Audio thread: runs the events due before the next frame.
    void handleDue() noexcept;
    // Audio thread: frames until the next queued event, or kNoEvent.
    int32_t nextEvent() const noexcept { return eventQueue.headDelay(kNoEvent); }
    // Audio thread: `frames` have passed.
    void advance(int frames) noexcept;
    // Audio thread, at the block end: the Controls that changed (when MIDI out is on) after the events
    // already queued; null when there is nothing to send. Valid until the next block.
    AFEvents* collectOut(const std::atomic<float>* controls, int count) noexcept;

    // Any thread: the last value of each controller, 0..1.
    float controllerValue(int cc) const noexcept { return ccValues[static_cast<std::size_t>(cc & 0x7F)]; }
    // Editor thread: whether a program change arrived since the last call.
    bool takeProgramChangeRequest() noexcept { return programChangeRequest.exchange(false); }

private:
    void handleEvent(const AFEventQueue::Record& record) noexcept;
    template <typename List>
    void applyBindings(const List& list, float value) noexcept;
    void addOutEvent(int delta, int number, int value, int channel) noexcept;

    AFUniClient& client;
    AFMidiBindings& bindings;
    const AFGlobalOptions& options;
    AFSystemInfo& system;
    AFEventQueue eventQueue;
    std::array<float, 128> ccValues{};
    std::array<AFMidiEvent, kOutCapacity> midiOut{};
    int midiOutCount = 0;
    AFEvents outBlock;
    std::array<float, 8> lastSentControls{};
    std::atomic<bool> programChangeRequest{false};
};
