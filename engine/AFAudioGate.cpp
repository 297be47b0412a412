#include "engine/AFAudioGate.h"

#include <chrono>
#include <thread>

void AFAudioGate::hold() noexcept {
    holds.fetch_add(1);
    while (inProcess.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool AFAudioGate::holdWithin(int sleeps) noexcept {
    holds.fetch_add(1);
    for (int waited = 0; inProcess.load(); ++waited) {
        if (waited == sleeps) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void AFAudioGate::release() noexcept {
    // An unbalanced release must not leave the count below zero, where it would hold nothing and the next
    // hold would not stop the audio.
    int now = holds.load();
    while (now > 0 && !holds.compare_exchange_weak(now, now - 1)) {
    }
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
