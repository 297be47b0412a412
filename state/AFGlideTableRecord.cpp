#include "state/AFGlideTableRecord.h"

#include "state/AFChunk.h"

#include <cmath>

namespace {

// Words of cell data for a stored size, or -1 when they cannot fit into the words left.
int64_t cellWords(uint32_t rows, uint32_t columns, int64_t wordsLeft) {
    if (rows == 0 || columns == 0) return 0;
    if (wordsLeft <= 0) return -1;
    const auto perRow = static_cast<int64_t>(columns) * 2;
    if (static_cast<int64_t>(rows) > wordsLeft / perRow) return -1;
    return static_cast<int64_t>(rows) * perRow;
}

// Moves past cells that may not all be there; a shortfall marks the chunk as overrun.
void skipWords(AFChunk& chunk, int64_t count, int64_t wordsLeft) {
    if (count >= 0 && count <= wordsLeft) {
        chunk.setPosition(chunk.getPosition() + static_cast<int32_t>(count));
        return;
    }
    chunk.setPosition(static_cast<int32_t>(chunk.wordCount()));
    chunk.readInt();
}

} // namespace

bool AFGlideTableRecord::read(AFChunk& chunk, bool silent) {
    // The magic and version words carry nothing a reader acts on.
    chunk.readInt();
    chunk.readInt();
    rows = static_cast<uint32_t>(chunk.readInt());
    columns = static_cast<uint32_t>(chunk.readInt());
    glideRow = chunk.readInt();
    range = chunk.readInt();
    hasCells = false;
    const int64_t wordsLeft = static_cast<int64_t>(chunk.wordCount()) - chunk.getPosition();
    const int64_t words = cellWords(rows, columns, wordsLeft);
    if (silent || words <= 0) {
        skipWords(chunk, words < 0 ? wordsLeft + 1 : words, wordsLeft);
        return silent ? words >= 0 : false;
    }
    // One block per grid, not one per row: a hostile size of millions of one-cell rows costs no more than
    // the words it claims.
    const auto cells = static_cast<std::size_t>(words / 2);
    values.assign(cells, 0.0f);
    glides.assign(cells, 0);
    for (std::size_t i = 0; i < cells; ++i) {
        const float v = chunk.readFloat();
        values[i] = std::isfinite(v) ? v : 0.0f;
        glides[i] = chunk.readInt();
    }
    hasCells = true;
    return true;
}
