#pragma once

#include "editor/AFFader.h"

// The Dictator, the master macro that moves all eight Controls along its key frames. GUI thread.
class DictatorFader : public AFFader {
public:
    DictatorFader(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* track,
                  const AFBitmap* handle, float* valuePointer)
        : AFFader(size, listener, tag, track, handle, valuePointer, 0.0f) {}
};
