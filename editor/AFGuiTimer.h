#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

class AFTimerReceiver;

// A periodic notification. Either driven by the owner's event loop (poll, on the GUI thread, fires when the
// period has passed) or running on its own thread (start), for owners without an event loop. GUI or host
// thread.
class AFGuiTimer {
public:
    AFGuiTimer(AFTimerReceiver* receiver, int periodMs);
    ~AFGuiTimer();
    AFGuiTimer(const AFGuiTimer&) = delete;
    AFGuiTimer& operator=(const AFGuiTimer&) = delete;

    // Runs the receiver on a thread of its own every period; fails quietly (false) if the thread cannot be
    // made. The receiver then runs on that thread.
    bool start();
    void stop();
    // Called from the owner's loop with a monotonic time in milliseconds; fires at most once per call.
    bool poll(double nowMs);

private:
    void run();

    AFTimerReceiver* receiver;
    int periodMs;
    double lastFired = -1e300;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
};
