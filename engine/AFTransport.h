#pragma once

class AFSystemInfo;
struct AFTimeInfo;

// The engine's own count of the host's position in quarters, and its tempo and play state, followed once per
// block from the host's time record and advanced per sub-block. The position is kept in double so that long
// sessions still land on the grid to the sample; the float copy in the timing record is what effects read.
class AFTransport {
public:
    // Audio thread: follows the time record (null when the host gives none) for a block of `frames`, and
    // writes tempo, step and position into `system`. Returns true when the host's transport has just stopped.
    bool follow(const AFTimeInfo* time, int frames, AFSystemInfo& system) noexcept;
    // Audio thread: after a sub-block of `frames`, wrapping at the end of the host's loop.
    void advance(int frames, AFSystemInfo& system) noexcept;
    // Any thread.
    double getPosition() const noexcept { return position; }

private:
    double position = 0.0;
    double increment = 0.0;
    bool loopWrap = false;
    float wrapPoint = 0.0f;
    double cycleStart = 0.0;
};
