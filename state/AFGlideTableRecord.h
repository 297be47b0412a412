#pragma once

#include <cstdint>
#include <vector>

class AFChunk;

// A step pattern grid as a chunk holds it: the size words and, when read, the cells.
struct AFGlideTableRecord {
    uint32_t rows = 0;
    uint32_t columns = 0;
    int32_t glideRow = 0;
    int32_t range = 0;
    // Filled only by a read that took the cells: row after row, columns long each.
    std::vector<float> values;
    std::vector<int32_t> glides;
    bool hasCells = false;

    // Thread of the load. Silent consumes the same words and takes no cells. False for a size that cannot be
    // there; a shortfall marks the chunk as overrun.
    bool read(AFChunk& chunk, bool silent);
};
