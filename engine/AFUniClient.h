#pragma once

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "engine/AFAudioGate.h"
#include "engine/AFCommandHistory.h"
#include "engine/AFCommandPrepare.h"
#include "engine/AFDictator.h"
#include "engine/AFGlobalOptions.h"
#include "engine/AFMidiBindings.h"
#include "engine/AFMidiControl.h"
#include "engine/AFParameterMap.h"
#include "engine/AFProcessingOrder.h"
#include "engine/AFTransport.h"
#include "engine/KnobEngine.h"
#include "host/AFPluginBase.h"
#include "state/AFChunk.h"
#include "state/AFContentPaths.h"
#include "state/AFMessageSink.h"
#include "state/AFPresetBank.h"
#include "state/AFSettingsStore.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class AFChunk;
class AFEffect;

// The whole effect as the host sees it, and the owner of everything in it: eight slots in series, the host
// parameter table, the block loop and the master Dry/Wet. Transport tracking (AFTransport), MIDI in and out
// (AFMidiControl) and the state's capture and apply (AFClientState) are classes of their own.
class AFUniClient : public AFPluginBase, public AFCommandPrepare {
public:
    // The table's layout, from AFParameterMap.
    static constexpr int kSlots = AFParameterMap::kSlots;
    static constexpr int kHostParameters = AFParameterMap::kHostParameters;
    static constexpr int kDictator = AFParameterMap::kDictator;
    static constexpr int kDryWet = AFParameterMap::kDryWet;
    static constexpr int kRandomize = AFParameterMap::kRandomize;
    static constexpr int kSlotBlockStart = AFParameterMap::kSlotBlockStart;
    static constexpr int kFxGainStart = AFParameterMap::kFxGainStart;
    static constexpr int kAmountStart = AFParameterMap::kAmountStart;
    static constexpr int kAmountEnd = AFParameterMap::kAmountEnd;
    static constexpr int kTriggerAllRows = 2000000;
    static constexpr int kSubBlock = 64;
    static constexpr int kEditorStateCount = 16;

    // Host thread. Builds the whole state; the first audio block finds it complete.
    AFUniClient(AFHostCallback callback, void* hostUser);
    ~AFUniClient() override;

    // Audio thread.
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override;
    int32_t processEvents(AFEvents* events) override;

    // Any thread (audio thread for queued MIDI and transport stops).
    void setParameter(int32_t index, float value) override;
    float getParameter(int32_t index) override;
    // Any thread: host parameter `index` (0..251) without the call through the surface, for hosts that scan
    // the whole table every block.
    float hostParameter(int index) const noexcept {
        return parameters[static_cast<std::size_t>(index)].load(std::memory_order_relaxed);
    }
    void setParameterAutomated(int32_t index, float value) override;
    // Editor thread: the gesture around a parameter change. A gesture that moved the value becomes one undo
    // step; the host hears of it for host parameters only.
    bool beginEdit(int32_t index) override;
    bool endEdit(int32_t index) override;
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

    // Programs are the global presets of the bank. Host thread.
    void setProgram(int32_t program) override;
    void getProgramName(char* name) override;
    bool getProgramNameIndexed(int32_t category, int32_t index, char* text) override;

    // The one state writer and reader. Slot 0..7 is that slot's effect preset, -1 the global preset (all
    // eight slots and the global section), which is also the host state. Any thread but the audio thread; the
    // reader holds the audio off while it changes the slots.
    void writeState(AFChunk& chunk, int slot);
    // One slot record at the chunk's position, for tools that measure records. Any thread but the audio
    // thread.
    void writeSlotRecord(AFChunk& chunk, int slot);
    bool readState(AFChunk& chunk, int slot, bool silent);
    // Dictator presets: the eight rows and the name. Any thread but the audio thread.
    void writeDictator(AFChunk& chunk);
    bool readDictator(AFChunk& chunk, bool silent);
    // Files. GUI or host thread. Failures report the system's messages; loads unless `silent`.
    bool loadPreset(const std::string& path, int slot, bool silent);
    bool savePreset(const std::string& path, int slot);
    bool loadDictatorPreset(const std::string& path, bool silent);
    bool saveDictatorPreset(const std::string& path);
    // GUI thread: rescans the global preset folder; the program count follows the bank.
    void rescanPresetBank(const std::string& folder);
    const AFPresetBank& getPresetBank() const noexcept { return presetBank; }

    // The CC bindings a state carries, as (CC, parameter index) pairs, asked for when a state is written.
    // Any thread but the audio thread.
    std::vector<std::pair<int32_t, int32_t>> midiMapForState() const;

    // While on, a load keeps each slot's Dry Wet. Any thread.
    void setDryWetLock(bool on) noexcept { dryWetLock.store(on); }
    bool isDryWetLock() const noexcept { return dryWetLock.load(); }
    const std::string& getGlobalPresetName() const noexcept { return globalPresetName; }
    // Any thread but the audio thread: the names a state carries, for tools that build states.
    void setPresetName(int slot, const std::string& name) {
        presetNames[static_cast<std::size_t>(slot)] = name;
    }
    void setGlobalPresetName(const std::string& name) { globalPresetName = name; }
    void setDictatorPresetName(const std::string& name) { dictatorPresetName = name; }
    const std::string& getDictatorPresetName() const noexcept { return dictatorPresetName; }
    int getSelectedContentIndex() const noexcept { return selectedContentIndex; }
    void setSelectedContentIndex(int index) noexcept { selectedContentIndex = index; }

    // Takes the writers' turn and holds the audio thread off, waiting for a running block to end. Holds nest
    // and count across threads: the audio runs again at the last unlock. Any thread but the audio thread.
    void lockAudioThread();
    void unlockAudioThread();
    // The gate every writer of slot structure goes through, and readers of it off the audio thread.
    AFAudioGate& getAudioGate() noexcept { return gate; }

    // Any thread but the audio thread: the effect of a slot, by catalogue id.
    void setSlotEffect(int slot, int typeId);
    // Any thread: option `option` of the slot's effect.
    void setSlotOption(int slot, int option, int value);
    AFEffect* slotEffect(int slot) const;
    KnobEngine& getSlot(int slot) const { return *slots[static_cast<std::size_t>(slot)]; }
    // Any thread: switches the chain between start order and fixed order, holding the audio off when asked.
    void setDynamicSignalFlow(bool on, bool holdAudio = true);

    AFGlobalOptions& getOptions() noexcept { return options; }
    // Where this instance's messages go: the editor, a tool or a test sets the handler. Any thread but the
    // audio thread.
    AFMessageSink& getMessageSink() noexcept { return messages; }
    // GUI or host thread: the per-user store and the content folders (presets, MIDI maps, step patterns).
    AFSettingsStore& getSettings() noexcept { return settings; }
    const AFContentPaths& getContentPaths() const noexcept { return contentPaths; }
    AFContentPaths& getContentPaths() noexcept { return contentPaths; }
    const AFSystemInfo& getSystemInfo() const noexcept { return systemInfo; }
    double getPosition() const noexcept { return transport.getPosition(); }
    float getMasterMix() const noexcept { return masterMix; }
    int getProcessingOrder(int i) const noexcept { return processingOrder.at(i); }
    float getModulationAmount(int slot, int amount) const noexcept;
    const std::string& getPresetName(int slot) const { return presetNames[static_cast<std::size_t>(slot)]; }
    // Editor requests raised by the engine and polled by the editor's timer.
    bool takeRandomizeRequest() noexcept { return randomizeRequest.exchange(false); }
    // Editor thread: Randomize, with the effect presets under `contentPath`.
    void randomize(const std::string& contentPath);
    bool takeProgramChangeRequest() noexcept { return midiControl.takeProgramChangeRequest(); }
    bool hostIsMaker() const noexcept { return ownHost; }

    // The Dictator's rows and its flags. Rows are edited on the editor thread without a lock.
    AFDictator& getDictator() noexcept { return dictator; }
    int getDictatorPosition() const noexcept { return dictatorPosition.load(std::memory_order_relaxed); }
    // Editor thread: while on, Control moves are written into the row under the Dictator.
    void setDictatorRecord(bool on) noexcept { dictatorRecord.store(on); }
    bool isDictatorRecord() const noexcept { return dictatorRecord.load(); }
    // While on, Control changes are not recorded and a state load leaves the rows alone.
    void setBatch(bool on) noexcept { batch.store(on); }
    bool isBatch() const noexcept { return batch.load(); }

    // Editor thread: the command history. Undo and redo return whether the slot strip must be rebuilt.
    bool undo();
    bool redo();
    bool canUndo() const noexcept { return history.canUndo(); }
    bool canRedo() const noexcept { return history.canRedo(); }
    AFCommandHistory& getHistory() noexcept { return history; }
    // Editor thread: the effect swap of the effect menu, as one undo step. Choosing the effect the slot
    // already has, or an id without a class, changes nothing and leaves no step.
    void changeSlotEffect(int slot, int typeId);
    // Editor thread: the parameter of the gesture under way, or -1.
    int32_t getGestureIndex() const noexcept { return gestureIndex; }

    // Editor thread: what the editor shows (selected slot, open page...), kept here so that it survives the
    // editor and can be undone. Ids outside the table read 0 and are not stored.
    int getEditorState(int id) const noexcept;
    void setEditorState(int id, int value) noexcept;

    // Audio thread, or with the audio held off: takes a slot that ended out of the processing order.
    void removeFromOrder(int slot) noexcept { processingOrder.remove(slot); }

    // MIDI bindings. GUI thread: the editor's learn target (-1 = none) and binding edits; see AFMidiBindings
    // for which edits hold the audio off.
    void setLearnTarget(int parameter) noexcept { midiBindings.setLearnTarget(parameter); }
    int getLearnTarget() const noexcept { return midiBindings.getLearnTarget(); }
    AFMidiBindings& getMidiBindings() noexcept { return midiBindings; }
    // Any thread: last value of each controller, 0..1.
    float getControllerValue(int cc) const noexcept { return midiControl.controllerValue(cc); }
    // Host or GUI thread, from a state load: the loaded controller pairs replace the map unless
    // "CCRecallLock" is on and the caller does not force it.
    void applyLoadedMidiMap(const AFMidiBindings& loaded, bool force);
    // Where the map lives that construction loads and destruction saves.
    std::string defaultMidiMapPath() const;

private:
    friend class AFClientState;

    void nameParameters();
    void applyDictator(float value);
    void randomiseDictatorRow(int row);
    int runQuantiser() noexcept;
    void runSlots(float* left, float* right, int frames) noexcept;
    void applyMasterMix(float* left, float* right, int frames) noexcept;
    void ensureDryCapacity(int frames);
    void loadDefaultMidiMap();
    void saveDefaultMidiMap() const;

    AFBpmListenerList bpmListeners;
    AFSystemInfo systemInfo;
    std::array<std::atomic<float>, kHostParameters> parameters{};
    std::array<std::atomic<float>, kSlots * KnobEngine::kAmountCount> modulationAmounts{};
    std::array<std::string, kHostParameters> parameterNames;
    std::array<std::unique_ptr<KnobEngine>, kSlots> slots;
    std::array<std::string, kSlots> presetNames;
    std::string globalPresetName;
    AFMessageSink messages;
    AFMidiBindings midiBindings;
    AFGlobalOptions options;
    AFTransport transport;
    AFMidiControl midiControl{*this, midiBindings, options, systemInfo};
    AFProcessingOrder processingOrder;
    std::unique_ptr<float[]> dryLeft;
    std::unique_ptr<float[]> dryRight;
    int dryCapacity = 0;
    AFDictator dictator;
    std::atomic<int> dictatorPosition{0};
    std::atomic<bool> dictatorRecord{false};
    std::atomic<bool> batch{false};
    std::array<float, kSlots + 1> dictatorTriggers{};
    float masterMix = 1.0f;
    // The parameter gesture, editor thread only: index -1 when none, old -1 until the first value arrives.
    int32_t gestureIndex = -1;
    float gestureOld = -1.0f;
    float gestureNew = 0.0f;
    AFCommandHistory history{this};
    std::array<int, kEditorStateCount> editorState{};
    AFAudioGate gate;
    std::atomic<bool> dryWetLock{false};
    std::string dictatorPresetName;
    int selectedContentIndex = 0;
    AFPresetBank presetBank;
    // The host state: rewritten at every get chunk and after every set chunk, and kept alive for the host.
    AFChunk hostChunk;
    std::vector<uint8_t> hostImage;
    std::atomic<bool> randomizeRequest{false};
    bool ownHost = false;
    AFSettingsStore settings;
    AFContentPaths contentPaths{settings};
};
