#pragma once

#include "editor/AFBitmap.h"

#include <array>
#include <memory>

// The editor's 113 images by number, from the plug-in's own PNG data: each decodes when first drawn. GUI
// thread.
class AFBitmapStore {
public:
    // Takes every image's size from its header; false if any is missing or no PNG (the views then draw
    // without it).
    bool load();
    // Null for an id outside the set or an image that did not decode.
    const AFBitmap* get(int id) const noexcept;

private:
    std::array<std::unique_ptr<AFBitmap>, 113> bitmaps;
};
