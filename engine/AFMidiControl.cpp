#include "engine/AFMidiControl.h"

#include "effects/framework/AFSystemInfo.h"
#include "engine/AFGlobalOptions.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFUniClient.h"

#include <algorithm>

namespace {

// Event types of the queue.
enum : int32_t {
    kNoteOn = 200,
    kNoteOff = 201,
    kAllNotesOff = 202,
    kController = 203,
    kPitchBend = 204,
    kProgramChange = 205,
    kAftertouch = 206,
};

} // namespace

AFMidiControl::AFMidiControl(AFUniClient& client, AFMidiBindings& bindings, const AFGlobalOptions& options,
                             AFSystemInfo& system) noexcept
    : client(client), bindings(bindings), options(options), system(system) {}

void AFMidiControl::queue(const AFEvents* events) noexcept {
    if (events == nullptr || events->events == nullptr) return;
    for (int32_t e = 0; e < events->numEvents; ++e) {
        const AFMidiEvent& event = events->events[e];
        if (event.type != kVstMidiType) continue;
        const int status = event.midiData[0] & 0xF0;
        const int channel = event.midiData[0] & 0x0F;
        const int data1 = event.midiData[1] & 0x7F;
        const int data2 = event.midiData[2] & 0x7F;
        int32_t type = 0;
        if (status == 0x80 || (status == 0x90 && data2 == 0))
            type = kNoteOff;
        else if (status == 0x90)
            type = kNoteOn;
        else if (status == 0xB0 && data1 == 123 && channel == 0)
            type = kAllNotesOff;
        else if (status == 0xB0 && !bindings.isCcBusy())
            type = kController;
        else if (status == 0xE0)
            type = kPitchBend;
        else if (status == 0xC0 && !bindings.isCcBusy() &&
                 !options.ignorePrgChange.load(std::memory_order_relaxed))
            type = kProgramChange;
        else if (status == 0xD0 && !bindings.isCcBusy())
            type = kAftertouch;
        if (type == 0) continue;
        eventQueue.insert(std::max(event.deltaFrames, 0), type, data1, data2);
    }
}

void AFMidiControl::handleDue() noexcept {
    while (!eventQueue.empty() && eventQueue.front().delay < 1) {
        const AFEventQueue::Record record = eventQueue.front();
        eventQueue.popFront();
        handleEvent(record);
    }
}

void AFMidiControl::advance(int frames) noexcept {
    if (!eventQueue.empty()) eventQueue.front().delay -= frames;
}

template <typename List>
void AFMidiControl::applyBindings(const List& list, float value) noexcept {
    // Straight through setParameter: a MIDI move is never reported to the host as automation.
    const int n = list.size();
    for (int i = 0; i < n; ++i)
        client.setParameter(list[i], value);
}

void AFMidiControl::handleEvent(const AFEventQueue::Record& record) noexcept {
    // While a whole map is being replaced no binding runs, and learn waits for the next event.
    const bool mapUsable = !bindings.isLoading();
    switch (record.type) {
    case kNoteOn:
        if (!mapUsable) break;
        bindings.learnNote(record.data1);
        // 1/128: a note never reaches 1.0.
        applyBindings(bindings.notes(record.data1), static_cast<float>(record.data2) * 0.0078125f);
        break;
    case kNoteOff:
        if (mapUsable) applyBindings(bindings.notes(record.data1), 0.0f);
        break;
    case kController: {
        if (bindings.isCcBusy()) break;
        const float value = static_cast<float>(record.data2) * 0.007874016f;
        ccValues[static_cast<std::size_t>(record.data1 & 0x7F)] = value;
        bindings.learnController(record.data1);
        applyBindings(bindings.controllers(record.data1), value);
        break;
    }
    case kAftertouch:
        if (!mapUsable) break;
        bindings.learnAftertouch();
        applyBindings(bindings.aftertouch(), static_cast<float>(record.data1) * 0.007874016f);
        break;
    case kPitchBend:
        system.pitchBend = record.data2 > 63 ? static_cast<float>(record.data2 - 64) * 0.015873017f
                                             : static_cast<float>(record.data2 - 64) * 0.015625f;
        break;
    case kProgramChange:
        system.lastProgramChange = record.data1;
        programChangeRequest.store(true, std::memory_order_relaxed);
        break;
    default:
        break;
    }
}

void AFMidiControl::addOutEvent(int delta, int number, int value, int channel) noexcept {
    if (midiOutCount >= kOutCapacity) return;
    AFMidiEvent event{};
    event.deltaFrames = delta;
    const auto v = static_cast<uint8_t>(value & 0x7F);
    const auto ch = static_cast<uint8_t>(channel & 0x0F);
    if (number >= 0 && number <= 127) {
        event.midiData[0] = static_cast<uint8_t>(0xB0 | ch), event.midiData[1] = static_cast<uint8_t>(number),
        event.midiData[2] = v;
    } else if (number == 128) {
        event.midiData[0] = static_cast<uint8_t>(0xD0 | ch), event.midiData[1] = v, event.midiData[2] = 0x7F;
    } else if (number == 129) {
        event.midiData[0] = static_cast<uint8_t>(0xC0 | ch), event.midiData[1] = v, event.midiData[2] = v;
    } else if (number == 130) {
        event.midiData[0] = static_cast<uint8_t>(0xE0 | ch), event.midiData[1] = 0, event.midiData[2] = v;
    } else {
        return;
    }
    midiOut[static_cast<std::size_t>(midiOutCount++)] = event;
}

AFEvents* AFMidiControl::collectOut(const std::atomic<float>* controls, int count) noexcept {
    if (options.midiOut.load(std::memory_order_relaxed)) {
        for (int i = 0; i < std::min(count, static_cast<int>(lastSentControls.size())); ++i) {
            const float value = controls[i].load(std::memory_order_relaxed);
            if (value == lastSentControls[static_cast<std::size_t>(i)]) continue;
            lastSentControls[static_cast<std::size_t>(i)] = value;
            addOutEvent(0, i + 1, static_cast<int>(value * 127.0f), 0);
        }
    }
    if (midiOutCount == 0) return nullptr;
    outBlock = AFEvents{midiOutCount, midiOut.data()};
    midiOutCount = 0;
    return &outBlock;
}
