#pragma once

#include <cstdint>

// The host's bypass: a linear crossfade between the processed and the dry signal over 10 ms, so that
// switching mid-phrase never clicks.
class AFMasterBypass {
public:
    // Host thread, outside the audio.
    void setSampleRate(double rate) noexcept;
    // Any thread. On from 0.5 up.
    void setValue(float value) noexcept { on = value >= 0.5f; }
    float getValue() const noexcept { return on ? 1.0f : 0.0f; }
    // Host thread at activation: no fade under way, the output as the switch stands.
    void reset() noexcept { step = on ? length : 0; }
    // Audio thread: out = wet + (dry - wet) * step / length, one step a sample towards the switch.
    void process(const float* dryL, const float* dryR, float* outL, float* outR, uint32_t frames) noexcept;
    // Audio thread: true while the output is exactly the processed signal.
    bool isIdle() const noexcept { return step == 0 && !on; }

private:
    bool on = false;
    int32_t length = 441;
    int32_t step = 0;
};
