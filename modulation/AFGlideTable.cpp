#include "modulation/AFGlideTable.h"

#include "state/AFChunk.h"

#include <algorithm>
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

AFGlideTable::AFGlideTable(uint32_t columns, uint32_t rows)
    : values(std::max(rows, 1u), std::vector<float>(std::max(columns, 1u), 0.0f)),
      glides(std::max(rows, 1u), std::vector<int32_t>(std::max(columns, 1u), 0)),
      columnCount(std::max(columns, 1u)), rowCount(std::max(rows, 1u)) {}

bool AFGlideTable::read(AFChunk& chunk, bool silent) {
    // The magic and version words carry nothing a reader acts on.
    chunk.readInt();
    chunk.readInt();
    const auto rows = static_cast<uint32_t>(chunk.readInt());
    const auto columns = static_cast<uint32_t>(chunk.readInt());
    const int32_t storedGlideRow = chunk.readInt();
    const int32_t storedRange = chunk.readInt();
    const int64_t wordsLeft = static_cast<int64_t>(chunk.wordCount()) - chunk.getPosition();
    const int64_t words = cellWords(rows, columns, wordsLeft);
    if (silent || words <= 0) {
        skipWords(chunk, words < 0 ? wordsLeft + 1 : words, wordsLeft);
        return silent ? words >= 0 : false;
    }

    std::vector<std::vector<float>> newValues(rows, std::vector<float>(columns));
    std::vector<std::vector<int32_t>> newGlides(rows, std::vector<int32_t>(columns));
    for (uint32_t r = 0; r < rows; ++r)
        for (uint32_t c = 0; c < columns; ++c) {
            const float v = chunk.readFloat();
            newValues[r][c] = std::isfinite(v) ? v : 0.0f;
            newGlides[r][c] = chunk.readInt();
        }
    values = std::move(newValues);
    glides = std::move(newGlides);
    rowCount = rows;
    columnCount = columns;
    rangeValue = static_cast<float>(storedRange);
    glideRow = std::clamp(storedGlideRow, 0, static_cast<int32_t>(rows - 1));
    valueRow = std::clamp(valueRow, 0, static_cast<int32_t>(rows - 1));
    return true;
}

void AFGlideTable::write(AFChunk& chunk) {
    chunk.writeInt(kMagic);
    chunk.writeInt(kVersion);
    chunk.writeInt(static_cast<int32_t>(rowCount));
    chunk.writeInt(static_cast<int32_t>(columnCount));
    chunk.writeInt(glideRow);
    chunk.writeInt(static_cast<int32_t>(rangeValue));
    for (uint32_t r = 0; r < rowCount; ++r)
        for (uint32_t c = 0; c < columnCount; ++c) {
            chunk.writeFloat(values[r][c]);
            chunk.writeInt(glides[r][c]);
        }
}

void AFGlideTable::init() {
    for (auto& row : values)
        std::fill(row.begin(), row.end(), 0.0f);
    for (auto& row : glides)
        std::fill(row.begin(), row.end(), 0);
}

float AFGlideTable::valueAt(float p) const noexcept {
    const auto columns = static_cast<float>(columnCount);
    if (!(p >= 0.0f && p < columns)) {
        p = std::isfinite(p) ? p - columns * std::floor(p / columns) : 0.0f;
        if (!(p < columns)) p = 0.0f;
    }
    const auto i = std::min(static_cast<uint32_t>(p), columnCount - 1);
    const auto& row = values[static_cast<std::size_t>(valueRow)];
    if (glides[static_cast<std::size_t>(glideRow)][i] == 0) return row[i];
    const uint32_t next = i + 1 < columnCount ? i + 1 : 0;
    return row[i] + (row[next] - row[i]) * (p - static_cast<float>(i));
}

std::unique_ptr<AFGlideTable> AFGlideTable::clone() const {
    auto copy = std::make_unique<AFGlideTable>(columnCount, rowCount);
    copy->values = values;
    copy->glides = glides;
    copy->glideRow = glideRow;
    return copy;
}

void AFGlideTable::setValue(uint32_t row, uint32_t column, float value) noexcept {
    if (row < rowCount && column < columnCount) values[row][column] = std::isfinite(value) ? value : 0.0f;
}

float AFGlideTable::getValue(uint32_t row, uint32_t column) const noexcept {
    return row < rowCount && column < columnCount ? values[row][column] : 0.0f;
}

void AFGlideTable::setGlide(uint32_t row, uint32_t column, int32_t flag) noexcept {
    if (row < rowCount && column < columnCount) glides[row][column] = flag;
}

int32_t AFGlideTable::getGlide(uint32_t row, uint32_t column) const noexcept {
    return row < rowCount && column < columnCount ? glides[row][column] : 0;
}

void AFGlideTable::setGlideRow(int32_t row) noexcept {
    if (row >= 0 && static_cast<uint32_t>(row) < rowCount) glideRow = row;
}

void AFGlideTable::setValueRow(int32_t row) noexcept {
    if (row >= 0 && static_cast<uint32_t>(row) < rowCount) valueRow = row;
}
