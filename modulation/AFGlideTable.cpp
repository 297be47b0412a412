#include "modulation/AFGlideTable.h"

#include "state/AFChunk.h"
#include "state/AFGlideTableRecord.h"

#include <algorithm>
#include <cmath>

AFGlideTable::AFGlideTable(uint32_t columns, uint32_t rows)
    : values(std::max(rows, 1u), std::vector<float>(std::max(columns, 1u), 0.0f)),
      glides(std::max(rows, 1u), std::vector<int32_t>(std::max(columns, 1u), 0)),
      columnCount(std::max(columns, 1u)), rowCount(std::max(rows, 1u)) {}

bool AFGlideTable::read(AFChunk& chunk, bool silent) {
    AFGlideTableRecord record;
    const bool ok = record.read(chunk, silent);
    take(record);
    return ok;
}

void AFGlideTable::take(AFGlideTableRecord& record) {
    if (!record.hasCells) return;
    values = std::move(record.values);
    glides = std::move(record.glides);
    rowCount = record.rows;
    columnCount = record.columns;
    rangeValue = static_cast<float>(record.range);
    glideRow = std::clamp(record.glideRow, 0, static_cast<int32_t>(rowCount - 1));
    valueRow = std::clamp(valueRow, 0, static_cast<int32_t>(rowCount - 1));
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
