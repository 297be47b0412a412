#include "host/AFSongPosition.h"

#include <cmath>

namespace {
// Far above what a single-precision bar-beat loses between two blocks, far below any move a user makes.
constexpr double kSameQuarter = 1.0e-3;
} // namespace

void AFSongPosition::anchor(const Reading& reading) noexcept {
    anchored = true;
    anchorFrame = reading.frame;
    anchorQuarters = reading.quarters;
    quartersPerFrame = reading.quartersPerFrame;
}

double AFSongPosition::follow(const Reading& reading, uint32_t frames) noexcept {
    if (!repair || !reading.playing) {
        anchored = false;
        return reading.quarters;
    }
    bool steady = anchored && reading.frame == expectedFrame && reading.quartersPerFrame == quartersPerFrame;
    if (steady) {
        // How far the reading moved beyond the time that passed, less the whole bars the format may miscount.
        const double jump = reading.quarters - lastReported - lastStep;
        const double bars = reading.barQuarters > 0.0 ? std::round(jump / reading.barQuarters) : 0.0;
        steady = std::fabs(jump - bars * reading.barQuarters) < kSameQuarter;
    }
    if (!steady) anchor(reading);
    lastReported = reading.quarters;
    lastStep = static_cast<double>(frames) * reading.quartersPerFrame;
    expectedFrame = reading.frame + static_cast<int64_t>(frames);
    return anchorQuarters + static_cast<double>(reading.frame - anchorFrame) * quartersPerFrame;
}
