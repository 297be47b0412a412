#pragma once

// Marker base: objects that carry it are allocated on a 32-byte boundary, so their lane arrays can be loaded
// with aligned vector instructions.
struct alignas(32) AFAligned {};
