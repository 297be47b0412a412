#pragma once

#include <cstddef>
#include <cstdint>

// The editor's PNG images, drawn by the art program at build time and compiled into the plug-in.
class AFArtImages {
public:
    // Any thread: the encoded image of bitmap `id`, or null with size 0 for an unknown id.
    static const uint8_t* find(int id, std::size_t& size) noexcept;
};
