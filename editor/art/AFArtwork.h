#pragma once

#include <cstdint>
#include <vector>

// Draws each of the editor's images from code, at twice the logical size, and encodes it as PNG. Used by the
// art program at build time only.
class AFArtwork {
public:
    // The PNG bytes of image `id`; empty for an id outside the set.
    static std::vector<uint8_t> render(int id);
};
