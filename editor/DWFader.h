#pragma once

#include "editor/AFFader.h"

// The master Dry/Wet: 0 is the input, 1 the processed chain. GUI thread.
class DWFader : public AFFader {
public:
    DWFader(const AFRect& size, AFControlListener* listener, int tag, const AFBitmap* track,
            const AFBitmap* handle, float* valuePointer)
        : AFFader(size, listener, tag, track, handle, valuePointer, 1.0f) {}
};
