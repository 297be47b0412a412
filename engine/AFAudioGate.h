#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

// Keeps the audio thread out of what other threads free or replace (an effect object, a whole state, the MIDI
// tables). Holds count: any number of threads may hold the gate, nested or at once, and the audio runs again
// only when the last hold is released. The threads that change slot structure take turns through a lock that
// the audio thread never touches; readers of that structure off the audio thread take the same turn.
class AFAudioGate {
public:
    AFAudioGate() = default;
    AFAudioGate(const AFAudioGate&) = delete;
    AFAudioGate& operator=(const AFAudioGate&) = delete;

    // Any thread but the audio thread: holds the audio off and waits, 1 ms at a time, for a running block to
    // end.
    void hold() noexcept;
    // Any thread but the audio thread: as hold, giving up after `sleeps` waits. The hold is taken either way,
    // so a false return leaves the audio off until the hold is released.
    bool holdWithin(int sleeps) noexcept;
    // Any thread but the audio thread.
    void release() noexcept;
    // Any thread.
    bool isHeld() const noexcept { return holds.load() > 0; }
    // Any thread: the longest time in ns the gate stayed closed since the last call.
    int64_t takeLongestHold() noexcept;
    // Any thread: the most CPU time in ns a thread spent holding the gate since the last call, from the
    // moment the audio was out to the release, counted for holds that one thread closed and opened.
    int64_t takeLongestHoldCpu() noexcept;

    // Audio thread: false when the gate is held, and the block must then leave everything alone. After a true
    // return, leave() at the block's end.
    bool enter() noexcept;
    void leave() noexcept { inProcess.store(false); }

    // Any thread but the audio thread: the turn among the threads that change or read slot structure.
    std::recursive_mutex& turn() noexcept { return writers; }

    // The turn and a hold, for a writer that frees or replaces what the audio thread walks.
    class Writer {
    public:
        explicit Writer(AFAudioGate& gate) : lock(gate.writers), gate(gate) { gate.hold(); }
        ~Writer() { gate.release(); }
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;

    private:
        std::lock_guard<std::recursive_mutex> lock;
        AFAudioGate& gate;
    };

    // The turn alone, for a reader of slot structure off the audio thread (a state save, the editor drawing).
    class Reader {
    public:
        explicit Reader(AFAudioGate& gate) : lock(gate.writers) {}

    private:
        std::lock_guard<std::recursive_mutex> lock;
    };

private:
    // A hold closes the gate between two blocks when it can: closed during a block, it keeps the audio out
    // for the rest of that block and then a whole 1 ms sleep.
    void waitForGap() const noexcept;
    void close() noexcept;
    void waitForBlock() const noexcept;
    void startCpuCount() noexcept;

    std::atomic<int> holds{0};
    std::atomic<bool> inProcess{false};
    std::atomic<int64_t> closedAt{0};
    std::atomic<int64_t> longestClosed{0};
    std::atomic<int64_t> closedCpuAt{0};
    std::atomic<std::size_t> closer{0};
    std::atomic<bool> holdStarted{false};
    std::atomic<int64_t> longestCpu{0};
    std::recursive_mutex writers;
};
