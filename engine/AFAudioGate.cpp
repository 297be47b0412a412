#include "engine/AFAudioGate.h"

#include <chrono>
#include <ctime>
#include <functional>
#include <thread>

namespace {

// How long a hold waits for the gap between two blocks before it closes the gate during one.
constexpr auto kGapPatience = std::chrono::milliseconds(2);
// How long a hold closed during a block watches for its end before it waits in sleeps of 1 ms: a block ends
// in well under a millisecond, and the audio is out until the hold notices.
constexpr auto kBlockPatience = std::chrono::milliseconds(1);

int64_t now() noexcept {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The calling thread's own CPU time: what a hold costs, apart from the time the thread waited for a core.
int64_t threadCpu() noexcept {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

std::size_t threadKey() noexcept {
    return std::hash<std::thread::id>{}(std::this_thread::get_id());
}

} // namespace

void AFAudioGate::waitForGap() const noexcept {
    if (isHeld()) return; // the audio is out already
    const auto until = std::chrono::steady_clock::now() + kGapPatience;
    while (inProcess.load() && std::chrono::steady_clock::now() < until)
        std::this_thread::yield();
}

void AFAudioGate::waitForBlock() const noexcept {
    // Spinning, not yielding: a thread that gives up its core with the gate closed may not get it back for a
    // whole time slice.
    const auto until = std::chrono::steady_clock::now() + kBlockPatience;
    while (inProcess.load() && std::chrono::steady_clock::now() < until) {
    }
}

void AFAudioGate::close() noexcept {
    if (holds.fetch_add(1) != 0) return;
    closedAt.store(now());
    closer.store(threadKey());
    holdStarted.store(false);
}

void AFAudioGate::hold() noexcept {
    waitForGap();
    close();
    waitForBlock();
    while (inProcess.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    startCpuCount();
}

void AFAudioGate::startCpuCount() noexcept {
    // From the moment the audio is out: the wait for a running block is not the holder's work.
    if (closer.load() == threadKey() && !holdStarted.exchange(true)) closedCpuAt.store(threadCpu());
}

bool AFAudioGate::holdWithin(int sleeps) noexcept {
    waitForGap();
    close();
    waitForBlock();
    for (int waited = 0; inProcess.load(); ++waited) {
        if (waited == sleeps) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    startCpuCount();
    return true;
}

void AFAudioGate::release() noexcept {
    // An unbalanced release must not leave the count below zero, where it would hold nothing and the next
    // hold would not stop the audio.
    int count = holds.load();
    while (count > 0 && !holds.compare_exchange_weak(count, count - 1)) {
    }
    if (count != 1) return;
    const int64_t closed = now() - closedAt.load();
    int64_t longest = longestClosed.load();
    while (closed > longest && !longestClosed.compare_exchange_weak(longest, closed)) {
    }
    if (closer.load() != threadKey() || !holdStarted.load()) return;
    const int64_t cpu = threadCpu() - closedCpuAt.load();
    int64_t most = longestCpu.load();
    while (cpu > most && !longestCpu.compare_exchange_weak(most, cpu)) {
    }
}

int64_t AFAudioGate::takeLongestHold() noexcept {
    return longestClosed.exchange(0);
}

int64_t AFAudioGate::takeLongestHoldCpu() noexcept {
    return longestCpu.exchange(0);
}

bool AFAudioGate::enter() noexcept {
    if (isHeld()) return false;
    inProcess.store(true);
    if (isHeld()) { // a hold taken between the two loads wins
        inProcess.store(false);
        return false;
    }
    return true;
}
