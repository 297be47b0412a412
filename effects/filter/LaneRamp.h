#pragma once

// A linear ramp on 32 float lanes: the slope is set once per control block so each sample costs one add.
class LaneRamp {
public:
    static constexpr int kLanes = 32;

    // Audio thread, once per control block: spreads the remaining distance over the block; lanes that would
    // move by less than 1e-10 a sample land at once.
    void controlTick(float invBlockSize) noexcept {
        for (int i = 0; i < kLanes; ++i) {
            const float d = (target[i] - current[i]) * invBlockSize;
            const bool still = d < 1e-10f && d > -1e-10f;
            delta[i] = still ? 0.0f : d;
            current[i] = still ? target[i] : current[i];
        }
    }
    // Audio thread, once per sample.
    void advance() noexcept {
        for (int i = 0; i < kLanes; ++i)
            current[i] += delta[i];
    }
    // Audio thread: every lane lands on its target.
    void snap() noexcept;
    // Control side: all lanes of target and current at once.
    void fill(float value) noexcept;

    alignas(32) float target[kLanes] = {};
    alignas(32) float current[kLanes] = {};
    alignas(32) float delta[kLanes] = {};
};
