#pragma once

#include <atomic>

// The options that change how the engine behaves. Written by the settings page and preset loads on the GUI or
// host thread, read on the audio thread: each is a single atomic word, so no lock is needed.
struct AFGlobalOptions {
    std::atomic<bool> dynamicSigFlow{true};
    std::atomic<bool> offOnTop{false};
    std::atomic<bool> resetAfterLoad{false};
    std::atomic<bool> ccRecallLock{true};
    std::atomic<bool> midiOut{false};
    std::atomic<bool> syncedHostStop{false};
    std::atomic<bool> ignorePrgChange{true};
    std::atomic<bool> bypassLock{false};
    // Per-preset twins: when on, a loaded state brings its own value of the option.
    std::atomic<bool> dynamicSigFlowPP{true};
    std::atomic<bool> offOnTopPP{false};
    std::atomic<bool> resetAfterLoadPP{false};
    std::atomic<bool> thresholdPP{false};
    std::atomic<bool> ccRecallLockPP{false};
    std::atomic<bool> midiOutPP{false};
    // The switching threshold of the main controls.
    std::atomic<float> threshold{0.01f};
};
