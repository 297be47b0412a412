#pragma once

// Listener for host tempo changes. Effects and LFOs that size or derive something from the tempo register
// themselves in the list that AFSystemInfo points to.
class AFBPMChangeInterface {
public:
    virtual ~AFBPMChangeInterface() = default;
    // Audio thread, from the block loop, right after the tempo was stored.
    virtual void bpmChanged() {}
};
