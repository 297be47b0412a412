#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

class AFAudioGate;
class AFMessageSink;
class AFChunk;

// Which parameters each MIDI source drives: a list per controller number, a list per note and one list for
// channel aftertouch. Every list has a fixed capacity, so the audio thread reads them without allocating, and
// each word is atomic, so a reader racing an edit sees only indices that were really bound. Edits from other
// threads take their turn at the client's audio gate and hold the audio off, or raise the CC table busy flag.
class AFMidiBindings {
public:
    static constexpr int kSources = 128;
    static constexpr int kListCapacity = 32;
    static constexpr int kNoTarget = -1;
    // Notes may only learn the eight Controls and the Dictator.
    static constexpr int kLastNoteTarget = 8;
    static constexpr int32_t kMapVersion = 102;
    static constexpr int32_t kFirstListVersion = 101;
    static constexpr int32_t kMapMagic = 18467;
    static constexpr int32_t kPairsEnd = -2;
    static constexpr int kWaitSleeps = 499;
    static constexpr int kControllerNameCount = 127;

    // A list of parameter indices of one source. `T` is the stored width.
    template <typename T>
    class List {
    public:
        // Any thread; the audio thread reads while others may edit.
        int size() const noexcept;
        int32_t operator[](int i) const noexcept;
        bool contains(int32_t parameter) const noexcept;
        // Editing thread.
        bool add(int32_t parameter) noexcept;
        void remove(int32_t parameter) noexcept;
        void clear() noexcept { count.store(0, std::memory_order_release); }
        void copyFrom(const List& other) noexcept;

    private:
        std::array<std::atomic<T>, kListCapacity> items{};
        std::atomic<int> count{0};
    };
    using IndexList = List<int32_t>;
    using ShortList = List<int16_t>;

    AFMidiBindings() = default;
    AFMidiBindings(const AFMidiBindings&) = delete;
    AFMidiBindings& operator=(const AFMidiBindings&) = delete;

    // Construction thread: the client's audio gate. Without it (a map being loaded, a test) edits are direct.
    void attachAudioGate(AFAudioGate* gate) noexcept { audioGate = gate; }
    // Construction thread: where the map files' messages go; without it, to standard error.
    void attachMessageSink(AFMessageSink* sink) noexcept { messages = sink; }

    // Audio thread reads.
    const IndexList& controllers(int cc) const noexcept { return cc_[static_cast<std::size_t>(cc & 0x7F)]; }
    const IndexList& notes(int note) const noexcept { return notes_[static_cast<std::size_t>(note & 0x7F)]; }
    const ShortList& aftertouch() const noexcept { return aftertouch_; }
    // Any thread: while set, controllers, aftertouch and program changes are dropped.
    bool isCcBusy() const noexcept { return ccBusy.load(std::memory_order_acquire); }
    // Any thread: while set, a whole map is being replaced and no binding is executed.
    bool isLoading() const noexcept { return loading.load(std::memory_order_acquire); }

    // GUI thread writes the target; the audio thread takes it.
    void setLearnTarget(int parameter) noexcept { learnTarget.store(parameter, std::memory_order_release); }
    int getLearnTarget() const noexcept { return learnTarget.load(std::memory_order_acquire); }
    // Audio thread: the learn rules of each source; each clears the target when it binds.
    void learnNote(int note) noexcept;
    void learnController(int cc) noexcept;
    void learnAftertouch() noexcept;

    // GUI thread edits. Controller edits raise the busy flag; note and aftertouch edits hold the audio off.
    // False when the list is full, the source or the index is out of range, or the audio did not stop.
    bool addControllerBinding(int cc, int32_t parameter);
    bool addNoteBinding(int note, int32_t parameter);
    bool addAftertouchBinding(int32_t parameter);
    // Takes the parameter out of every list. Waits at most 499 ms for the audio; when that runs out it
    // returns false and keeps its hold of the gate, so the audio stays off until the next edit succeeds.
    bool removeParameter(int32_t parameter);
    // The controller the parameter is bound to, or -1.
    int controllerFor(int32_t parameter) const noexcept;
    // Takes every list of `other`. No binding is executed meanwhile.
    void replaceMap(const AFMidiBindings& other);
    // Takes only the controller lists of `other`: a state load brings controller pairs and nothing else.
    void replaceControllers(const AFMidiBindings& other);
    void clear();

    // Any thread but the audio thread. Maps are chunk files: version 102 lists, or below 101 the older form
    // of controller/parameter pairs. A bad file leaves the current map untouched.
    bool loadMidiMap(const std::string& path, bool silent);
    bool saveMidiMap(const std::string& path) const;
    // The map body after the chunk header; false for a wrong version or magic or a body cut short.
    bool readMapBody(AFChunk& chunk);
    void writeMapBody(AFChunk& chunk) const;
    // Controller pairs (controller, parameter) closed by -2, as presets and old maps hold them.
    bool readControllerPairs(AFChunk& chunk);
    void writeControllerPairs(AFChunk& chunk) const;

    // Any thread. Names shown on the MIDI page: 127 controller names (index 127 has none), then the three
    // other sources.
    static const char* controllerName(int cc) noexcept;
    static const char* otherSourceName(int source) noexcept;
    // Any thread. Indices a binding may drive: host parameters, modulation amounts and the Dictator triggers.
    static bool isBindable(int32_t parameter) noexcept;

private:
    // Takes the turn and holds the audio off for an edit; false when the wait ran out (the hold then stays
    // until an edit gets through).
    bool holdAudio() noexcept;
    void releaseAudio() noexcept;
    void removeFromNotes(int32_t parameter) noexcept;
    void removeFromControllers(int32_t parameter) noexcept;

    std::array<IndexList, kSources> cc_;
    std::array<IndexList, kSources> notes_;
    ShortList aftertouch_;
    std::atomic<int> learnTarget{kNoTarget};
    std::atomic<bool> ccBusy{false};
    std::atomic<bool> loading{false};
    AFAudioGate* audioGate = nullptr;
    AFMessageSink* messages = nullptr;
    // Holds left by edits whose wait ran out.
    int strandedHolds = 0;
};
