#pragma once

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "engine/AFDictator.h"
#include "engine/AFEventQueue.h"
#include "engine/AFGlobalOptions.h"
#include "engine/AFMidiBindings.h"
#include "engine/KnobEngine.h"
#include "host/AFPluginBase.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>

class AFEffect;

// The whole effect as the host sees it: eight slots in series, the host parameter table, the block loop with
// its transport tracking, the incoming MIDI queue and the master Dry/Wet.
class AFUniClient : public AFPluginBase {
public:
    static constexpr int kSlots = 8;
    static constexpr int kHostParameters = 252;
    static constexpr int kDictator = 8;
    static constexpr int kDryWet = 9;
    static constexpr int kRandomize = 10;
    static constexpr int kSlotBlockStart = 12;
    static constexpr int kFxGainStart = 244;
    static constexpr int kAmountStart = 261;
    static constexpr int kAmountEnd = 381; // 381 is guarded and unused
    static constexpr int kTriggerAllRows = 2000000;
    static constexpr int kSubBlock = 64;
    static constexpr int kMidiOutCapacity = 256;

    // Host thread. Builds the whole state; the first audio block finds it complete.
    AFUniClient(AFHostCallback callback, void* hostUser);
    ~AFUniClient() override;

    // Audio thread.
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override;
    int32_t processEvents(AFEvents* events) override;

    // Any thread (audio thread for queued MIDI and transport stops).
    void setParameter(int32_t index, float value) override;
    float getParameter(int32_t index) override;
    void setParameterAutomated(int32_t index, float value) override;
    // Host or GUI thread.
    void getParameterName(int32_t index, char* text) override;
    void getParameterLabel(int32_t index, char* text) override;
    void getParameterDisplay(int32_t index, char* text) override;
    bool getParameterProperties(int32_t index, AFParameterProperties* properties) override;
    int32_t getChunk(void** data, bool isPreset) override;
    int32_t setChunk(void* data, int32_t byteSize, bool isPreset) override;

    // Host thread, outside the audio.
    void suspend() override;
    void resume() override;
    void setSampleRate(float rate) override;
    void setBlockSize(int32_t size) override;
    intptr_t vendorSpecific(int32_t index, intptr_t value, void* ptr, float opt) override;

    // Holds the audio thread off: sets the blocked flag and waits for a running block to end. Any thread but
    // the audio thread.
    void lockAudioThread();
    void unlockAudioThread();

    // Any thread but the audio thread: the effect of a slot, by catalogue id.
    void setSlotEffect(int slot, int typeId);
    // Any thread: option `option` of the slot's effect.
    void setSlotOption(int slot, int option, int value);
    AFEffect* slotEffect(int slot) const;
    KnobEngine& getSlot(int slot) const { return *slots[static_cast<std::size_t>(slot)]; }
    // Any thread: switches the chain between start order and fixed order, holding the audio off when asked.
    void setDynamicSignalFlow(bool on, bool holdAudio = true);

    AFGlobalOptions& getOptions() noexcept { return options; }
    const AFSystemInfo& getSystemInfo() const noexcept { return systemInfo; }
    double getPosition() const noexcept { return position; }
    float getMasterMix() const noexcept { return masterMix; }
    int getProcessingOrder(int i) const noexcept { return processingOrder[static_cast<std::size_t>(i)]; }
    float getModulationAmount(int slot, int amount) const noexcept;
    const std::string& getPresetName(int slot) const { return presetNames[static_cast<std::size_t>(slot)]; }
    // Editor requests raised by the engine and polled by the editor's timer.
    bool takeRandomizeRequest() noexcept { return randomizeRequest.exchange(false); }
    bool takeProgramChangeRequest() noexcept { return programChangeRequest.exchange(false); }
    bool hostIsMaker() const noexcept { return ownHost; }

    // The Dictator's rows and its flags. Rows are edited on the editor thread without a lock.
    AFDictator& getDictator() noexcept { return dictator; }
    int getDictatorPosition() const noexcept { return dictatorPosition.load(std::memory_order_relaxed); }
    // Editor thread: while on, Control moves are written into the row under the Dictator.
    void setDictatorRecord(bool on) noexcept { dictatorRecord.store(on); }
    // While on, Control changes are not recorded and a state load leaves the rows alone.
    void setBatch(bool on) noexcept { batch.store(on); }
    bool isBatch() const noexcept { return batch.load(); }

    // Audio thread, from a slot that ended: takes it out of the processing order.
    void removeFromOrder(int slot) noexcept;

    // MIDI bindings. GUI thread: the editor's learn target (-1 = none) and binding edits; see AFMidiBindings
    // for which edits hold the audio off.
    void setLearnTarget(int parameter) noexcept { midiBindings.setLearnTarget(parameter); }
    int getLearnTarget() const noexcept { return midiBindings.getLearnTarget(); }
    AFMidiBindings& getMidiBindings() noexcept { return midiBindings; }
    // Any thread: last value of each controller, 0..1.
    float getControllerValue(int cc) const noexcept { return ccValues[static_cast<std::size_t>(cc & 0x7F)]; }
    // Host or GUI thread, from a state load: the loaded controller pairs replace the map unless
    // "CCRecallLock" is on and the caller does not force it.
    void applyLoadedMidiMap(const AFMidiBindings& loaded, bool force);
    // Where the map lives that construction loads and destruction saves.
    std::string defaultMidiMapPath() const;

private:
    void nameParameters();
    void applyDictator(float value);
    void randomiseDictatorRow(int row);
    int runQuantiser() noexcept;
    void handleDueEvents() noexcept;
    void handleEvent(const AFEventQueue::Record& record) noexcept;
    void runSlots(float* left, float* right, int frames) noexcept;
    void applyMasterMix(float* left, float* right, int frames) noexcept;
    void sendMidiOut() noexcept;
    void addOutEvent(int delta, int number, int value, int channel) noexcept;
    void ensureDryCapacity(int frames);
    template <typename List>
    void applyBindings(const List& list, float value) noexcept;
    void loadDefaultMidiMap();
    void saveDefaultMidiMap() const;

    std::array<AFMidiEvent, kMidiOutCapacity> midiOut{};
    int midiOutCount = 0;
    std::array<float, kSlots> lastSentControls{};
    AFBpmListenerList bpmListeners;
    AFSystemInfo systemInfo;
    std::array<std::atomic<float>, kHostParameters> parameters{};
    std::array<std::atomic<float>, kSlots * KnobEngine::kAmountCount> modulationAmounts{};
    std::array<std::string, kHostParameters> parameterNames;
    std::array<std::unique_ptr<KnobEngine>, kSlots> slots;
    AFEventQueue eventQueue;
    std::array<std::string, kSlots> presetNames;
    std::string globalPresetName;
    std::array<float, 128> ccValues{};
    AFMidiBindings midiBindings;
    AFGlobalOptions options;
    std::array<int, kSlots> processingOrder{};
    std::unique_ptr<float[]> dryLeft;
    std::unique_ptr<float[]> dryRight;
    int dryCapacity = 0;
    AFDictator dictator;
    std::atomic<int> dictatorPosition{0};
    std::atomic<bool> dictatorRecord{false};
    std::atomic<bool> batch{false};
    std::array<float, kSlots + 1> dictatorTriggers{};
    float masterMix = 1.0f;
    // The engine's own count of the position in quarters. Kept in double so that long sessions still land on
    // the grid to the sample; the float copy in the timing record is what effects read.
    double position = 0.0;
    std::atomic<bool> inProcess{false};
    std::atomic<bool> blocked{false};
    std::atomic<bool> randomizeRequest{false};
    std::atomic<bool> programChangeRequest{false};
    bool ownHost = false;
};
