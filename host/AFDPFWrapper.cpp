#include "host/AFDPFWrapper.h"

#include "engine/AFDenormalGuard.h"
#include "engine/AFUniClient.h"
#include "host/AFBase64.h"
#include "host/AFParameterSymbols.h"

#include "DistrhoPluginUtils.hpp"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>

START_NAMESPACE_DISTRHO

namespace {
constexpr const char* kStateKey = "chunk";
// A host that gives no musical time still gets a tempo: 120 BPM, counted from its frame position.
constexpr double kDefaultTempo = 120.0;

// Branch-free, so the copy runs as wide as the machine allows: infinities and NaN fail the comparison.
inline float finiteOrZero(float x) noexcept {
    return std::fabs(x) <= std::numeric_limits<float>::max() ? x : 0.0f;
}

// True when every sample is a number (no exponent of all ones): a read-only scan made of the masks and
// compares that even plain SSE2 runs four at a time.
inline bool allFinite(const float* x, uint32_t frames) noexcept {
    constexpr uint32_t kExponent = 0x7f800000u;
    uint32_t bad = 0;
    for (uint32_t i = 0; i < frames; ++i)
        bad |= static_cast<uint32_t>((std::bit_cast<uint32_t>(x[i]) & kExponent) == kExponent);
    return bad == 0;
}

// How often the program loader looks for a program asked for on the audio thread.
constexpr auto kProgramPoll = std::chrono::milliseconds(10);

// LV2 hosts send the transport only when it changes, and DPF moves it on in between.
bool isLv2() noexcept {
    return std::strcmp(getPluginFormatName(), "LV2") == 0;
}
} // namespace

AFDPFClientHolder::AFDPFClientHolder(void* host)
    : client(std::make_unique<AFUniClient>(&AFDPFWrapper::hostCallbackEntry, host)) {}

AFDPFClientHolder::~AFDPFClientHolder() = default;

AFDPFWrapper::AFDPFWrapper()
    : AFDPFClientHolder(this), Plugin(kParameterCount, static_cast<uint32_t>(client->getNumPrograms()), 1),
      songPosition(isLv2()) {
    bypass.setSampleRate(getSampleRate());
    client->setSampleRate(static_cast<float>(getSampleRate()));
    sizeBuffers(std::max<uint32_t>(getBufferSize(), 64));
    client->setBlockSize(static_cast<int32_t>(capacity));
    for (uint32_t i = 0; i < kMasterBypass; ++i)
        hostValues[i] = client->hostParameter(static_cast<int>(i));
    // This DPF hands an LV2 host the parameter index where the port change request wants the port index:
    // the audio ports and the two event ports come first.
    if (isLv2()) requestOffset = DISTRHO_PLUGIN_NUM_INPUTS + DISTRHO_PLUGIN_NUM_OUTPUTS + 2;
    programLoader = std::jthread([this](std::stop_token stop) { loadPrograms(stop); });
}

AFDPFWrapper::~AFDPFWrapper() = default;

const char* AFDPFWrapper::getDescription() const {
    return "Eight effect slots in series, each gated and swept by one main control with two LFOs and an "
           "envelope follower, and the Dictator playing all eight controls.";
}

void AFDPFWrapper::initAudioPort(bool input, uint32_t index, AudioPort& port) {
    port.groupId = kPortGroupStereo;
    Plugin::initAudioPort(input, index, port);
}

void AFDPFWrapper::initParameter(uint32_t index, Parameter& parameter) {
    if (index == kMasterBypass) {
        parameter.initDesignation(kParameterDesignationBypass);
        parameter.name = "Master Bypass";
        parameter.shortName = "Bypass";
        return;
    }
    char text[kHostTextSize] = {};
    client->getParameterName(static_cast<int32_t>(index), text);
    parameter.name = text;
    parameter.symbol = AFParameterSymbols::fromName(text).c_str();
    parameter.hints = kParameterIsAutomatable;
    AFParameterProperties properties;
    client->getParameterProperties(static_cast<int32_t>(index), &properties);
    if ((properties.flags & kVstParameterIsSwitch) != 0) parameter.hints |= kParameterIsBoolean;
    parameter.ranges.min = 0.0f;
    parameter.ranges.max = 1.0f;
    parameter.ranges.def = std::clamp(client->getParameter(static_cast<int32_t>(index)), 0.0f, 1.0f);
}

void AFDPFWrapper::initProgramName(uint32_t index, String& name) {
    char text[kHostTextSize] = {};
    if (!client->getProgramNameIndexed(0, static_cast<int32_t>(index), text))
        std::snprintf(text, sizeof(text), "Program %u", index + 1);
    name = text;
}

void AFDPFWrapper::initState(uint32_t index, State& state) {
    if (index != 0) return;
    state.key = kStateKey;
    state.label = "Orvanto state";
    state.hints = kStateIsOnlyForDSP;
}

float AFDPFWrapper::getParameterValue(uint32_t index) const {
    if (index == kMasterBypass) return bypass.getValue();
    return index < kMasterBypass ? client->getParameter(static_cast<int32_t>(index)) : 0.0f;
}

void AFDPFWrapper::setParameterValue(uint32_t index, float value) {
    if (!std::isfinite(value)) return;
    value = std::clamp(value, 0.0f, 1.0f);
    if (index == kMasterBypass) {
        bypass.setValue(value);
    } else if (index < kMasterBypass) {
        hostValues[index] = value;
        // A host restating a value, as hosts do when they restore a session around its state, changes
        // nothing: a Control written again would otherwise count as moved.
        if (client->getParameter(static_cast<int32_t>(index)) == value) return;
        client->setParameter(static_cast<int32_t>(index), value);
    }
}

void AFDPFWrapper::loadProgram(uint32_t index) {
    if (std::this_thread::get_id() == audioThread.load(std::memory_order_relaxed)) {
        pendingProgram.store(static_cast<int32_t>(index));
        return;
    }
    const std::lock_guard<std::mutex> lock(stateMutex);
    pendingProgram.store(-1);
    client->setProgram(static_cast<int32_t>(index));
}

void AFDPFWrapper::loadPrograms(std::stop_token stop) {
    while (!stop.stop_requested()) {
        std::this_thread::sleep_for(kProgramPoll);
        if (pendingProgram.load() < 0) continue;
        const std::lock_guard<std::mutex> lock(stateMutex);
        const int32_t program = pendingProgram.exchange(-1);
        if (program >= 0) client->setProgram(program);
    }
}

String AFDPFWrapper::getState(const char* key) const {
    if (std::strcmp(key, kStateKey) != 0) return String();
    const std::lock_guard<std::mutex> lock(stateMutex);
    void* data = nullptr;
    const int32_t size = client->getChunk(&data, false);
    if (data == nullptr || size <= 0) return String();
    return String(
        AFBase64::encode(static_cast<const uint8_t*>(data), static_cast<std::size_t>(size)).c_str());
}

void AFDPFWrapper::setState(const char* key, const char* value) {
    if (std::strcmp(key, kStateKey) != 0 || value == nullptr || value[0] == '\0') return;
    // Text that is no base64 is no state of ours: the plug-in stays as it is.
    auto bytes = AFBase64::decode(value);
    if (!bytes || bytes->empty()) return;
    // The state is the newer word: a program still waiting for the loader is dropped.
    const std::lock_guard<std::mutex> lock(stateMutex);
    pendingProgram.store(-1);
    client->setChunk(bytes->data(), static_cast<int32_t>(bytes->size()), false);
}

void AFDPFWrapper::activate() {
    bypass.reset();
    songPosition.reset();
    client->resume();
}

void AFDPFWrapper::deactivate() {
    client->suspend();
}

void AFDPFWrapper::bufferSizeChanged(uint32_t newBufferSize) {
    sizeBuffers(newBufferSize);
    client->setBlockSize(static_cast<int32_t>(capacity));
}

void AFDPFWrapper::sampleRateChanged(double newSampleRate) {
    bypass.setSampleRate(newSampleRate);
    client->setSampleRate(static_cast<float>(newSampleRate));
}

void AFDPFWrapper::sizeBuffers(uint32_t frames) {
    if (frames <= capacity) return;
    dryLeft.assign(frames, 0.0f);
    dryRight.assign(frames, 0.0f);
    capacity = frames;
}

void AFDPFWrapper::run(const float** inputs, float** outputs, uint32_t frames, const MidiEvent* midiEvents,
                       uint32_t midiEventCount) {
    audioThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    // Denormals flushed for the whole block, the bypass fade included, not only inside the engine.
    const AFDenormalGuard denormals;
    // A host that breaks its own block size promise is served in pieces rather than by allocating here.
    uint32_t nextEvent = 0;
    readTime(frames);
    for (uint32_t start = 0; start < frames; start += capacity)
        runPiece(inputs, outputs, start, std::min(capacity, frames - start), midiEvents, midiEventCount,
                 nextEvent);
    if (canRequestParameterValueChanges()) reportEngineMoves(frames);
}

void AFDPFWrapper::reportEngineMoves(uint32_t frames) {
    // Part of the table each block, so that the host's own scan of its ports stays the larger cost: every
    // parameter is looked at within 16 blocks, or within a tenth of a second where blocks are long.
    const double perBlock = std::ceil(kMasterBypass * (frames / (kReportSeconds * getSampleRate())));
    const auto stride =
        static_cast<uint32_t>(std::clamp(perBlock, double{kMinScanStride}, double{kMasterBypass}));
    const uint32_t end = std::min<uint32_t>(scanCursor + stride, kMasterBypass);
    for (uint32_t i = scanCursor; i < end; ++i) {
        const float value = client->hostParameter(static_cast<int>(i));
        if (value != hostValues[i] && requestParameterValueChange(i + requestOffset, value))
            hostValues[i] = value;
    }
    scanCursor = end == kMasterBypass ? 0 : end;
}

void AFDPFWrapper::runPiece(const float** inputs, float** outputs, uint32_t start, uint32_t frames,
                            const MidiEvent* midiEvents, uint32_t midiEventCount, uint32_t& nextEvent) {
    // The input goes to the outputs, where the engine works in place, with anything that is not a number
    // silenced before the engine sees it. While a state load holds the engine off, the outputs so carry the
    // input rather than whatever the host's buffers held. The bypass fade also needs the dry input apart.
    float* outL = outputs[0] + start;
    float* outR = outputs[1] + start;
    const float* inL = inputs[0] + start;
    const float* inR = inputs[1] + start;
    const bool keepDry = !bypass.isIdle();
    // Most hosts process in place, and their input is numbers: then there is nothing to move or silence.
    const bool asTheyAre =
        outL == inL && outR == inR && !keepDry && allFinite(inL, frames) && allFinite(inR, frames);
    if (keepDry) {
        // Hosts may hand the same buffer in and out, even crossed: each sample is read before it is written.
        for (uint32_t i = 0; i < frames; ++i) {
            outL[i] = dryLeft[i] = finiteOrZero(inL[i]);
            outR[i] = dryRight[i] = finiteOrZero(inR[i]);
        }
    } else if (!asTheyAre) {
        for (uint32_t i = 0; i < frames; ++i) {
            outL[i] = finiteOrZero(inL[i]);
            outR[i] = finiteOrZero(inR[i]);
        }
    }

    // MIDI of this piece, at offsets within it. Only short channel messages reach the engine.
    int32_t count = 0;
    for (; nextEvent < midiEventCount && midiEvents[nextEvent].frame < start + frames; ++nextEvent) {
        const MidiEvent& event = midiEvents[nextEvent];
        if (event.size > 3 || event.size == 0 || count == static_cast<int32_t>(kMidiCapacity)) continue;
        AFMidiEvent& out = midiIn[static_cast<std::size_t>(count++)];
        out = AFMidiEvent{};
        out.deltaFrames = static_cast<int32_t>(event.frame >= start ? event.frame - start : 0);
        std::memcpy(out.midiData, event.data, event.size);
    }
    if (count > 0) {
        AFEvents events{count, midiIn.data()};
        client->processEvents(&events);
    }

    fillTime(start);
    float* out[2] = {outL, outR};
    client->processReplacing(out, out, static_cast<int32_t>(frames));
    if (keepDry) bypass.process(dryLeft.data(), dryRight.data(), outL, outR, frames);
}

void AFDPFWrapper::readTime(uint32_t frames) {
    const TimePosition& position = getTimePosition();
    time = AFTimeInfo{};
    time.sampleRate = getSampleRate();
    time.tempo = kDefaultTempo;
    AFSongPosition::Reading reading;
    reading.playing = position.playing;
    reading.frame = static_cast<int64_t>(position.frame);
    double quarterPerBeat = 1.0;
    if (position.bbt.valid && position.bbt.beatsPerMinute > 0.0 && position.bbt.beatType > 0.0f) {
        const auto& bbt = position.bbt;
        time.tempo = bbt.beatsPerMinute;
        time.timeSigNumerator = static_cast<int32_t>(bbt.beatsPerBar);
        time.timeSigDenominator = static_cast<int32_t>(bbt.beatType);
        const double tick = bbt.ticksPerBeat > 0.0 ? bbt.tick / bbt.ticksPerBeat : 0.0;
        const double beats = (bbt.bar - 1) * static_cast<double>(bbt.beatsPerBar) + (bbt.beat - 1) + tick;
        quarterPerBeat = 4.0 / bbt.beatType;
        reading.quarters = beats * quarterPerBeat;
        reading.barQuarters = static_cast<double>(bbt.beatsPerBar) * quarterPerBeat;
        time.flags |= kVstBarsValid | kVstTimeSigValid;
    } else {
        reading.quarters = static_cast<double>(position.frame) / time.sampleRate * (time.tempo / 60.0);
    }
    reading.quartersPerFrame = time.tempo / 60.0 * quarterPerBeat / time.sampleRate;
    blockQuarters = songPosition.follow(reading, frames);
    quartersPerFrame = reading.quartersPerFrame;
    if (reading.barQuarters > 0.0)
        time.barStartPos = std::floor(blockQuarters / reading.barQuarters) * reading.barQuarters;
    if (position.playing) time.flags |= kVstTransportPlaying;
    time.flags |= kVstPpqPosValid | kVstTempoValid;
}

void AFDPFWrapper::fillTime(uint32_t offset) {
    const TimePosition& position = getTimePosition();
    const bool playing = position.playing;
    time.ppqPos = blockQuarters + (playing ? offset * quartersPerFrame : 0.0);
    time.samplePos = static_cast<double>(position.frame) + (playing ? offset : 0);
}

intptr_t AFDPFWrapper::hostCallbackEntry(AFPluginBase* plugin, int32_t opcode, int32_t, intptr_t, void* ptr,
                                         float) {
    // The fixed answers first: the engine asks them while it is being built, before the wrapper exists.
    switch (opcode) {
    case audioMasterVersion:
        return 2;
    case audioMasterGetVendorString:
    case audioMasterGetProductString:
        if (ptr == nullptr) return 0;
        std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", kHostVendor);
        return 1;
    case audioMasterCanDo:
        if (ptr == nullptr) return 0;
        return std::strcmp(static_cast<const char*>(ptr), "sendVstMidiEvent") == 0 ||
               std::strcmp(static_cast<const char*>(ptr), "receiveVstMidiEvent") == 0;
    default:
        break;
    }
    if (plugin == nullptr || plugin->getHostUser() == nullptr) return 0;
    return static_cast<AFDPFWrapper*>(plugin->getHostUser())->answer(opcode, ptr);
}

intptr_t AFDPFWrapper::answer(int32_t opcode, void* ptr) {
    switch (opcode) {
    case audioMasterWantMidi:
        return 1;
    case audioMasterGetTime:
        return reinterpret_cast<intptr_t>(&time);
    case audioMasterGetSampleRate:
        return static_cast<intptr_t>(getSampleRate());
    case audioMasterProcessEvents: {
        const auto* events = static_cast<const AFEvents*>(ptr);
        if (events == nullptr || events->events == nullptr) return 0;
        for (int32_t i = 0; i < events->numEvents; ++i) {
            const AFMidiEvent& in = events->events[i];
            MidiEvent out{};
            out.frame = static_cast<uint32_t>(std::max(in.deltaFrames, 0));
            out.size = (in.midiData[0] & 0xF0) == 0xC0 || (in.midiData[0] & 0xF0) == 0xD0 ? 2 : 3;
            std::memcpy(out.data, in.midiData, out.size);
            if (!writeMidiEvent(out)) return 0;
        }
        return 1;
    }
    default: // automate, begin and end edit: the host reads parameter values itself
        return 0;
    }
}

Plugin* createPlugin() {
    return new AFDPFWrapper();
}

END_NAMESPACE_DISTRHO
