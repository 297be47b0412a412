#include "engine/AFUniClient.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "effects/framework/TimeValueTables.h"
#include "engine/AFClientState.h"
#include "engine/AFCommandParameter.h"
#include "engine/AFCommandRememberChunk.h"
#include "engine/AFDenormalGuard.h"
#include "engine/AFGlobalSettings.h"
#include "engine/AFRandom.h"
#include "engine/AFRandomizer.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

constexpr int32_t kTimeFilter = 7682; // transport, ppq, tempo, bars, cycle
constexpr int kNoBoundary = 10000000;
// A host may hand us NaN or infinity; one such sample would poison every recursive filter in the chain.
// Tested on the exponent bits so that the loop vectorises.
void sanitize(float* buffer, int frames) noexcept {
    for (int i = 0; i < frames; ++i) {
        const auto bits = std::bit_cast<uint32_t>(buffer[i]);
        buffer[i] = (bits & 0x7F800000u) == 0x7F800000u ? 0.0f : buffer[i];
    }
}

} // namespace

AFUniClient::AFUniClient(AFHostCallback callback, void* user)
    : AFPluginBase(callback, user, AFIdentity::kInitialPrograms, kHostParameters),
      systemInfo(static_cast<float>(kSubBlock), &bpmListeners) {
    // 1-2. Tables and flags. The note-value tables are built here, never on the audio thread.
    TimeValueTables::instance();
    masterMix = 1.0f;

    // 3. The global settings, each with its default.
    AFGlobalSettings::read(settings, options);

    // 4. Who hosts us: the maker's own host does not get the default preset.
    char vendor[kHostTextSize] = {};
    getHostVendorString(vendor);
    ownHost = std::strcmp(vendor, AFIdentity::kVendor) == 0;

    // 5. Global parameters.
    for (auto& p : parameters)
        p.store(0.0f, std::memory_order_relaxed);
    for (auto& a : modulationAmounts)
        a.store(0.0f, std::memory_order_relaxed);
    parameters[kDryWet].store(1.0f, std::memory_order_relaxed);

    // 6. Slots.
    for (int s = 0; s < kSlots; ++s) {
        const auto ss = static_cast<std::size_t>(s);
        presetNames[ss] = "Default";
        slots[ss] =
            std::make_unique<KnobEngine>(&systemInfo, gate, options, processingOrder, s,
                                         &parameters[static_cast<std::size_t>(AFParameterMap::slotRow(s, 0))],
                                         &modulationAmounts[ss * KnobEngine::kAmountCount]);
        for (int row = KnobEngine::kParam1KnobAmt; row <= KnobEngine::kDryWetKnobAmt; ++row)
            parameters[static_cast<std::size_t>(AFParameterMap::slotRow(s, row))].store(
                0.5f, std::memory_order_relaxed);
        parameters[static_cast<std::size_t>(AFParameterMap::fxGain(s))].store(0.5f,
                                                                              std::memory_order_relaxed);
    }
    nameParameters();

    // 7-8. Identity.
    globalPresetName = "Global Preset";
    setNoTail(true);
    setUniqueId(AFIdentity::kUniqueId);
    setNumInputs(AFIdentity::kInputs);
    setNumOutputs(AFIdentity::kOutputs);
    setCanProcessReplacing(true);
    setProgramsAreChunks(true);

    // 9. The control tick.
    systemInfo.setControlInterval(kSubBlock);
    systemInfo.setSampleRate(sampleRate);

    // 10. Paths, counters and, the first time, the user's content tree.
    contentPaths.runFirstUse();

    // 11. The default MIDI map.
    midiBindings.attachAudioGate(&gate);
    midiBindings.attachMessageSink(&messages);
    loadDefaultMidiMap();

    // 12. The shared generator, from the clock.
    AFRandom::seed(static_cast<int32_t>(std::chrono::system_clock::now().time_since_epoch().count() & 0xFF));

    // 13-14. The global presets, and the default preset unless the maker's own host runs us.
    rescanPresetBank(contentPaths.presetPath(0));
    if (!ownHost) AFClientState::loadDefaultPreset(*this, presetBank.getFolder());
}

AFUniClient::~AFUniClient() {
    // The last instance closed decides what the next start reads.
    AFGlobalSettings::write(settings, options);
    settings.flush();
    saveDefaultMidiMap();
}

void AFUniClient::nameParameters() {
    static constexpr const char* kGlobalNames[kSlotBlockStart] = {
        "Control 1", "Control 2", "Control 3", "Control 4", "Control 5", "Control 6",
        "Control 7", "Control 8", "Dictator",  "Dry/Wet",   "Randomize", "Reserved3"};
    for (int i = 0; i < kSlotBlockStart; ++i)
        parameterNames[static_cast<std::size_t>(i)] = kGlobalNames[i];
    char text[kHostTextSize];
    for (int s = 0; s < kSlots; ++s) {
        for (int k = 0; k < KnobEngine::kParameterCount; ++k) {
            std::snprintf(text, sizeof(text), "FX%d %s", s + 1, KnobEngine::kRowNames[k]);
            parameterNames[static_cast<std::size_t>(AFParameterMap::slotRow(s, k))] = text;
        }
        std::snprintf(text, sizeof(text), "FX%d FX Gain", s + 1);
        parameterNames[static_cast<std::size_t>(AFParameterMap::fxGain(s))] = text;
    }
}

// ---- Host surface -----------------------------------------------------------------------------------------

void AFUniClient::suspend() {}

void AFUniClient::resume() {
    wantEvents();
}

void AFUniClient::setSampleRate(float rate) {
    AFPluginBase::setSampleRate(rate);
    systemInfo.setSampleRate(rate);
    if (blockSize > dryCapacity) ensureDryCapacity(blockSize);
}

void AFUniClient::setBlockSize(int32_t size) {
    AFPluginBase::setBlockSize(size);
    // Sized here, off the audio thread; the block loop only grows them for a host that breaks its promise.
    if (size > dryCapacity) ensureDryCapacity(size);
}

void AFUniClient::ensureDryCapacity(int frames) {
    dryLeft = std::make_unique<float[]>(static_cast<std::size_t>(frames));
    dryRight = std::make_unique<float[]>(static_cast<std::size_t>(frames));
    dryCapacity = frames;
}

intptr_t AFUniClient::vendorSpecific(int32_t, intptr_t, void*, float) {
    return 0;
}

int32_t AFUniClient::getChunk(void** data, bool) {
    const AFAudioGate::Reader turn(gate);
    writeState(hostChunk, -1);
    hostImage = hostChunk.toBytes();
    *data = hostImage.data();
    return static_cast<int32_t>(hostImage.size());
}

int32_t AFUniClient::setChunk(void* data, int32_t byteSize, bool) {
    if (data == nullptr || byteSize <= 0) return 1;
    const AFAudioGate::Reader turn(gate);
    AFChunk image;
    if (image.loadBytes(data, static_cast<std::size_t>(byteSize), true)) readState(image, -1, true);
    return 1;
}

// ---- Parameters -------------------------------------------------------------------------------------------

float AFUniClient::getParameter(int32_t index) {
    // The modulation amounts read back through the internal indices that write them.
    if (index >= kAmountStart && index < kAmountEnd)
        return modulationAmounts[static_cast<std::size_t>(index - kAmountStart)].load(
            std::memory_order_relaxed);
    if (index < 0 || index >= kHostParameters) return 0.0f;
    return parameters[static_cast<std::size_t>(index)].load(std::memory_order_relaxed);
}

float AFUniClient::getModulationAmount(int slot, int amount) const noexcept {
    return modulationAmounts[static_cast<std::size_t>(slot * KnobEngine::kAmountCount + amount)].load(
        std::memory_order_relaxed);
}

void AFUniClient::getParameterName(int32_t index, char* text) {
    if (index < 0 || index >= kHostParameters) {
        text[0] = '\0';
        return;
    }
    std::snprintf(text, kHostTextSize, "%s", parameterNames[static_cast<std::size_t>(index)].c_str());
}

void AFUniClient::getParameterLabel(int32_t index, char* text) {
    getParameterName(index, text);
}

void AFUniClient::getParameterDisplay(int32_t index, char* text) {
    std::snprintf(text, kHostTextSize, "%3.2f ", static_cast<double>(getParameter(index)) * 100.0);
}

bool AFUniClient::getParameterProperties(int32_t index, AFParameterProperties* properties) {
    if (index < 0 || index >= kHostParameters || properties == nullptr) return false;
    properties->flags =
        AFParameterMap::isSlotRow(index) && AFParameterMap::rowOf(index) == KnobEngine::kBypass
            ? kVstParameterIsSwitch
            : 0;
    std::snprintf(properties->label, sizeof(properties->label), "%s",
                  parameterNames[static_cast<std::size_t>(index)].c_str());
    properties->reserved = index == kDictator ? 3 : 0;
    return false;
}

void AFUniClient::setParameterAutomated(int32_t index, float value) {
    // The first value of a gesture counts as its old value.
    if (index >= 0 && index == gestureIndex) {
        if (gestureOld == -1.0f) gestureOld = value;
        gestureNew = value;
    }
    if (index < kHostParameters)
        AFPluginBase::setParameterAutomated(index, value);
    else
        setParameter(index, value);
}

void AFUniClient::setParameter(int32_t index, float value) {
    if (index < 0) return;
    if (index >= kHostParameters) {
        if (index >= kAmountStart && index < kAmountEnd) {
            modulationAmounts[static_cast<std::size_t>(index - kAmountStart)].store(
                value, std::memory_order_relaxed);
            return;
        }
        if (index < kTriggerAllRows) return;
        if (index == kTriggerAllRows) {
            if (dictatorTriggers[kSlots] < 0.5f && value >= 0.5f)
                for (int row = 0; row < kSlots; ++row)
                    randomiseDictatorRow(row);
            dictatorTriggers[kSlots] = value;
        } else if (index < kTriggerAllRows + 8) {
            // Row 7 has no trigger of its own: the last index stops at row 6.
            const auto row = static_cast<std::size_t>(index - kTriggerAllRows - 1);
            if (dictatorTriggers[row] < 0.5f && value >= 0.5f) randomiseDictatorRow(static_cast<int>(row));
            dictatorTriggers[row] = value;
        }
        // Play the new rows at once, even though the Dictator has not moved.
        const float saved = parameters[kDictator].load(std::memory_order_relaxed);
        parameters[kDictator].store(0.0f, std::memory_order_relaxed);
        setParameter(kDictator, saved);
        return;
    }

    const auto i = static_cast<std::size_t>(index);
    const float old = parameters[i].load(std::memory_order_relaxed);
    parameters[i].store(value, std::memory_order_relaxed);

    if (index >= kFxGainStart) {
        slots[i - kFxGainStart]->setGain(value < 0.5f ? value + 0.5f : value + value);
        return;
    }
    if (index >= kSlotBlockStart) {
        const int slot = AFParameterMap::slotOf(index);
        const int row = AFParameterMap::rowOf(index);
        auto& engine = *slots[static_cast<std::size_t>(slot)];
        engine.parameterChanged(row);
        if (row >= KnobEngine::kLfoRateKA) engine.setModulatorKnobAmount(row - KnobEngine::kLfoRateKA, value);
        return;
    }
    if (index == kDictator) {
        if (old != value) applyDictator(value);
        return;
    }
    if (index < kSlots) {
        if (old == value) return;
        slots[i]->controlMoved(value);
        slots[i]->applyGate(value);
        const float dictatorValue = parameters[kDictator].load(std::memory_order_relaxed);
        if (dictatorRecord.load() && !batch.load() &&
            dictatorValue > options.threshold.load(std::memory_order_relaxed))
            dictator.record(index, dictatorValue, value);
        return;
    }
    if (index == kRandomize && old < 0.5f && value >= 0.5f) randomizeRequest.store(true);
}

bool AFUniClient::beginEdit(int32_t index) {
    // A gesture on another parameter that never ended must not lend its first value to this one.
    if (index != gestureIndex) gestureOld = -1.0f;
    gestureIndex = index;
    return index >= 0 && index < kHostParameters && AFPluginBase::beginEdit(index);
}

bool AFUniClient::endEdit(int32_t index) {
    const auto inRange = [](float v) { return v >= 0.0f && v <= 1.0f; };
    const bool moved = gestureOld != gestureNew && inRange(gestureOld) && inRange(gestureNew);
    if (index >= 0 && index == gestureIndex && moved)
        history.add(std::make_unique<AFCommandParameter>(index, gestureOld, gestureNew));
    gestureIndex = -1;
    gestureOld = -1.0f;
    return index >= 0 && index < kHostParameters && AFPluginBase::endEdit(index);
}

// ---- History ----------------------------------------------------------------------------------------------

bool AFUniClient::undo() {
    return history.undo(*this);
}

bool AFUniClient::redo() {
    return history.redo(*this);
}

void AFUniClient::changeSlotEffect(int slot, int typeId) {
    if (slot < 0 || slot >= kSlots || !EffectFactory::hasClass(typeId)) return;
    if (slots[static_cast<std::size_t>(slot)]->getEffectType() == typeId) return;
    history.add(std::make_unique<AFCommandRememberChunk>(*this, slot));
    setSlotEffect(slot, typeId);
}

int AFUniClient::getEditorState(int id) const noexcept {
    return id >= 0 && id < kEditorStateCount ? editorState[static_cast<std::size_t>(id)] : 0;
}

void AFUniClient::setEditorState(int id, int value) noexcept {
    if (id >= 0 && id < kEditorStateCount) editorState[static_cast<std::size_t>(id)] = value;
}

// ---- Dictator ---------------------------------------------------------------------------------------------

void AFUniClient::randomiseDictatorRow(int row) {
    dictator.randomise(row);
    dictator.rebuild(row);
}

void AFUniClient::applyDictator(float value) {
    const float threshold = options.threshold.load(std::memory_order_relaxed);
    dictatorPosition.store(AFDictator::positionFor(value), std::memory_order_relaxed);
    for (int r = 0; r < kSlots; ++r) {
        const float control = dictator.controlValue(r, value, threshold);
        // Straight into the table: the Dictator's own writes are neither recorded nor re-dispatched.
        parameters[static_cast<std::size_t>(r)].store(control, std::memory_order_relaxed);
        auto& slot = *slots[static_cast<std::size_t>(r)];
        const float upper = options.offOnTop.load(std::memory_order_relaxed) ? 1.0f - threshold : 2.0f;
        if (threshold < control && control < upper) slot.controlMoved(control);
        slot.applyGate(control);
    }
}

// ---- Slots ------------------------------------------------------------------------------------------------

void AFUniClient::lockAudioThread() {
    gate.turn().lock();
    gate.hold();
}

void AFUniClient::unlockAudioThread() {
    gate.release();
    gate.turn().unlock();
}

void AFUniClient::setSlotEffect(int slot, int typeId) {
    if (slot < 0 || slot >= kSlots) return;
    slots[static_cast<std::size_t>(slot)]->setEffect(typeId);
}

void AFUniClient::randomize(const std::string& contentPath) {
    AFRandomizer::randomize(*this, contentPath);
}

void AFUniClient::setSlotOption(int slot, int option, int value) {
    if (slot < 0 || slot >= kSlots || option < 0 || option > 3) return;
    const AFAudioGate::Reader turn(gate); // the effect stays while its option is written
    slots[static_cast<std::size_t>(slot)]->getEffect()->setOption(option, value);
}

AFEffect* AFUniClient::slotEffect(int slot) const {
    if (slot < 0 || slot >= kSlots) return nullptr;
    return slots[static_cast<std::size_t>(slot)]->getEffect();
}

void AFUniClient::setDynamicSignalFlow(bool on, bool holdAudio) {
    const AFAudioGate::Reader turn(gate);
    if (holdAudio) lockAudioThread();
    options.dynamicSigFlow.store(on);
    processingOrder.clear();
    for (auto& slot : slots)
        slot->restartThroughQuantiser();
    if (holdAudio) unlockAudioThread();
}

int AFUniClient::runQuantiser() noexcept {
    int next = kNoBoundary;
    for (auto& slot : slots) {
        if (slot->getPending() != 1) continue;
        const int samples = slot->samplesToGrid(transport.getPosition());
        if (samples == 0)
            slot->arm();
        else
            next = std::min(next, samples);
    }
    const bool dynamic = options.dynamicSigFlow.load(std::memory_order_relaxed);
    for (auto& slot : slots) {
        const int pending = slot->getPending();
        if (pending == 0) continue;
        if (slot->isArmed() && !slot->isRunning()) {
            slot->start();
            if (dynamic) processingOrder.append(slot->getIndex());
        } else if (pending != -1) {
            continue;
        } else {
            slot->stop();
        }
        slot->clearRequest();
    }
    return next;
}

void AFUniClient::runSlots(float* left, float* right, int frames) noexcept {
    const bool dynamic = options.dynamicSigFlow.load(std::memory_order_relaxed);
    int i = 0;
    while (i < kSlots) {
        const int s = dynamic ? processingOrder.at(i) : i;
        if (s < 0 || !slots[static_cast<std::size_t>(s)]->isRunning()) {
            ++i;
            continue;
        }
        const bool stillRunning = slots[static_cast<std::size_t>(s)]->process(left, right, frames);
        if (stillRunning || !dynamic) ++i; // a removal shifted the next slot into place i
    }
}

// ---- MIDI -------------------------------------------------------------------------------------------------

int32_t AFUniClient::processEvents(AFEvents* events) {
    midiControl.queue(events);
    return 1;
}

void AFUniClient::applyLoadedMidiMap(const AFMidiBindings& loaded, bool force) {
    if (force || !options.ccRecallLock.load()) midiBindings.replaceControllers(loaded);
}

std::string AFUniClient::defaultMidiMapPath() const {
    return contentPaths.defaultMidiMapPath();
}

void AFUniClient::loadDefaultMidiMap() {
    // A missing default is no error, and a host must not see a message box while it builds us.
    midiBindings.loadMidiMap(defaultMidiMapPath(), true);
}

void AFUniClient::saveDefaultMidiMap() const {
    const std::filesystem::path path = defaultMidiMapPath();
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    midiBindings.saveMidiMap(path.string());
}

// ---- The block loop ---------------------------------------------------------------------------------------

void AFUniClient::applyMasterMix(float* left, float* right, int n) noexcept {
    const float wanted = parameters[kDryWet].load(std::memory_order_relaxed);
    int done = 0;
    if (masterMix != wanted) {
        const int length = static_cast<int>(systemInfo.rateRatio * 64.0);
        if (length > 0) {
            const float step = (wanted - masterMix) / static_cast<float>(length);
            const int m = std::min(n, length);
            for (int i = 0; i < m; ++i) {
                masterMix += step;
                left[i] = (left[i] - dryLeft[static_cast<std::size_t>(i)]) * masterMix +
                          dryLeft[static_cast<std::size_t>(i)];
                right[i] = (right[i] - dryRight[static_cast<std::size_t>(i)]) * masterMix +
                           dryRight[static_cast<std::size_t>(i)];
            }
            done = m;
            if (m == length) masterMix = wanted;
        } else {
            masterMix = wanted;
        }
    }
    if (masterMix == 1.0f) return;
    const float mix = masterMix;
    for (int i = done; i < n; ++i) {
        left[i] =
            (left[i] - dryLeft[static_cast<std::size_t>(i)]) * mix + dryLeft[static_cast<std::size_t>(i)];
        right[i] =
            (right[i] - dryRight[static_cast<std::size_t>(i)]) * mix + dryRight[static_cast<std::size_t>(i)];
    }
}

void AFUniClient::processReplacing(float** inputs, float** outputs, int32_t sampleFrames) {
    if (!gate.enter()) return;
    const AFDenormalGuard denormals;
    const int n = std::max(sampleFrames, 0);
    float* outL = outputs[0];
    float* outR = outputs[1];

    // 1. The outputs become the signal path.
    if (inputs[0] != outL) std::copy_n(inputs[0], n, outL);
    if (inputs[1] != nullptr && outR != nullptr && inputs[1] != outR) std::copy_n(inputs[1], n, outR);
    sanitize(outL, n);
    sanitize(outR, n);

    // 2. Dry copies of the input. Only the master mix reads them, and a mix resting at exactly 1.0 does not.
    if (n > dryCapacity) ensureDryCapacity(n);
    if (masterMix != 1.0f || parameters[kDryWet].load(std::memory_order_relaxed) != 1.0f) {
        std::copy_n(outL, n, dryLeft.get());
        std::copy_n(outR, n, dryRight.get());
    }

    // 3. Transport. A host stop zeroes the Controls and the Dictator when "SyncedHostStop" is on.
    if (transport.follow(getTimeInfo(kTimeFilter), n, systemInfo) &&
        options.syncedHostStop.load(std::memory_order_relaxed)) {
        const bool wasBatch = batch.exchange(true);
        for (int i = 0; i <= kDictator; ++i)
            setParameter(i, 0.0f);
        batch.store(wasBatch);
    }

    // 4. Due events, then the sub-blocks.
    midiControl.handleDue();
    int next = runQuantiser();
    int chunk = std::min({n, midiControl.nextEvent(), next});
    int remaining = n;
    float* left = outL;
    float* right = outR;
    while (remaining > 0) {
        if (chunk > kSubBlock && remaining > kSubBlock) chunk = kSubBlock;
        runSlots(left, right, chunk);
        remaining -= chunk;
        transport.advance(chunk, systemInfo);
        left += chunk;
        right += chunk;
        midiControl.advance(chunk);
        midiControl.handleDue();
        next = runQuantiser();
        chunk = std::min({midiControl.nextEvent(), remaining, next});
    }

    // 5. Master Dry/Wet and MIDI out.
    applyMasterMix(outL, outR, n);
    if (AFEvents* out = midiControl.collectOut(parameters.data(), kSlots)) sendEventsToHost(out);
    gate.leave();
}

// ---- State and presets ------------------------------------------------------------------------------------

void AFUniClient::writeState(AFChunk& chunk, int slot) {
    const AFAudioGate::Reader turn(gate); // no effect is freed under the writer
    AFClientState::writeState(*this, chunk, slot);
}

void AFUniClient::writeSlotRecord(AFChunk& chunk, int slot) {
    const AFAudioGate::Reader turn(gate);
    AFClientState::writeSlotRecord(*this, chunk, slot);
}

bool AFUniClient::readState(AFChunk& chunk, int slot, bool silent) {
    return AFClientState::readState(*this, chunk, slot, silent);
}

void AFUniClient::writeDictator(AFChunk& chunk) {
    AFClientState::writeDictator(*this, chunk);
}

bool AFUniClient::readDictator(AFChunk& chunk, bool silent) {
    return AFClientState::readDictator(*this, chunk, silent);
}

bool AFUniClient::loadPreset(const std::string& path, int slot, bool silent) {
    return AFClientState::loadPreset(*this, path, slot, silent);
}

bool AFUniClient::savePreset(const std::string& path, int slot) {
    return AFClientState::savePreset(*this, path, slot);
}

bool AFUniClient::loadDictatorPreset(const std::string& path, bool silent) {
    return AFClientState::loadDictatorPreset(*this, path, silent);
}

bool AFUniClient::saveDictatorPreset(const std::string& path) {
    return AFClientState::saveDictatorPreset(*this, path);
}

void AFUniClient::rescanPresetBank(const std::string& folder) {
    presetBank.scan(folder);
    // A host with no programs at all misbehaves; an empty bank still shows one.
    numPrograms = std::max(presetBank.count(), 1);
}

void AFUniClient::setProgram(int32_t program) {
    if (program < 0 || program >= presetBank.count()) return;
    if (loadPreset(presetBank.path(program), -1, true)) curProgram = program;
}

void AFUniClient::getProgramName(char* name) {
    std::snprintf(name, kHostTextSize, "%s", globalPresetName.c_str());
}

bool AFUniClient::getProgramNameIndexed(int32_t, int32_t index, char* text) {
    if (index < 0 || index >= presetBank.count()) return false;
    std::snprintf(text, kHostTextSize, "%s", presetBank.name(index).c_str());
    return true;
}

std::vector<std::pair<int32_t, int32_t>> AFUniClient::midiMapForState() const {
    std::vector<std::pair<int32_t, int32_t>> pairs;
    for (int cc = 0; cc < 128; ++cc) {
        const auto& list = midiBindings.controllers(cc);
        for (int i = 0; i < list.size(); ++i)
            pairs.emplace_back(cc, list[i]);
    }
    return pairs;
}
