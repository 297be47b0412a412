#pragma once

#include <cstdint>

// Linear ramp counted in control blocks: each call hands in the wanted value and a glide time and gets the
// smoothed value back, one step per control block.
class CountRamp {
public:
    // Audio thread, once per control block.
    float next(float value, float ms) noexcept;
    // Audio thread: control blocks per millisecond, from the current rate and control interval.
    void setBlocksPerMs(float value) noexcept { blocksPerMs = value; }
    // Audio thread: lands on the value at once.
    void jump(float value) noexcept;

    // Audio thread.
    float getCurrent() const noexcept { return current; }

private:
    float target = 0.0f;
    float step = 0.0f;
    float current = 0.0f;
    uint32_t count = 0;
    float blocksPerMs = 0.0f;
};
