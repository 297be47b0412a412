#pragma once

#include "editor/AFBitmap.h"

#include <array>
#include <memory>

// The editor's 113 images by number, decoded from the plug-in's own PNG data when the editor opens. GUI
// thread.
class AFBitmapStore {
public:
    // Decodes all images; false if any is missing or unreadable (the views then draw without it).
    bool load();
    // Null for an id outside the set or an image that did not decode.
    const AFBitmap* get(int id) const noexcept;

private:
    std::array<std::unique_ptr<AFBitmap>, 113> bitmaps;
};
