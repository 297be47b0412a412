#include "editor/AFGuiTimer.h"

#include "editor/AFTimerReceiver.h"

#include <chrono>
#include <system_error>

AFGuiTimer::AFGuiTimer(AFTimerReceiver* receiver, int periodMs) : receiver(receiver), periodMs(periodMs) {}

AFGuiTimer::~AFGuiTimer() {
    stop();
}

bool AFGuiTimer::start() {
    if (thread.joinable()) return true;
    stopping = false;
    try {
        thread = std::thread(&AFGuiTimer::run, this);
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void AFGuiTimer::stop() {
    if (!thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    thread.join();
}

void AFGuiTimer::run() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!wake.wait_for(lock, std::chrono::milliseconds(periodMs), [this] { return stopping; })) {
        lock.unlock();
        receiver->timerFired(this);
        lock.lock();
    }
}

bool AFGuiTimer::poll(double nowMs) {
    if (nowMs - lastFired < periodMs) return false;
    lastFired = nowMs;
    receiver->timerFired(this);
    return true;
}
