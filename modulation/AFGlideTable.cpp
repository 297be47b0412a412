#include "modulation/AFGlideTable.h"

#include "state/AFChunk.h"
#include "state/AFGlideTableRecord.h"

#include <algorithm>
#include <cmath>

AFGlideTable::AFGlideTable(uint32_t columns, uint32_t rows)
    : columnCount(std::max(columns, 1u)), rowCount(std::max(rows, 1u)) {
    values.assign(static_cast<std::size_t>(rowCount) * columnCount, 0.0f);
    glides.assign(values.size(), 0);
}

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
    for (std::size_t i = 0; i < values.size(); ++i) {
        chunk.writeFloat(values[i]);
        chunk.writeInt(glides[i]);
    }
}

void AFGlideTable::init() {
    std::fill(values.begin(), values.end(), 0.0f);
    std::fill(glides.begin(), glides.end(), 0);
}

float AFGlideTable::valueAt(float p) const noexcept {
    const auto columns = static_cast<float>(columnCount);
    if (!(p >= 0.0f && p < columns)) {
        p = std::isfinite(p) ? p - columns * std::floor(p / columns) : 0.0f;
        if (!(p < columns)) p = 0.0f;
    }
    const auto i = std::min(static_cast<uint32_t>(p), columnCount - 1);
    const float* row = values.data() + cell(static_cast<uint32_t>(valueRow), 0);
    if (glides[cell(static_cast<uint32_t>(glideRow), i)] == 0) return row[i];
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
    if (row < rowCount && column < columnCount)
        values[cell(row, column)] = std::isfinite(value) ? value : 0.0f;
}

float AFGlideTable::getValue(uint32_t row, uint32_t column) const noexcept {
    return row < rowCount && column < columnCount ? values[cell(row, column)] : 0.0f;
}

void AFGlideTable::setGlide(uint32_t row, uint32_t column, int32_t flag) noexcept {
    if (row < rowCount && column < columnCount) glides[cell(row, column)] = flag;
}

int32_t AFGlideTable::getGlide(uint32_t row, uint32_t column) const noexcept {
    return row < rowCount && column < columnCount ? glides[cell(row, column)] : 0;
}

void AFGlideTable::setGlideRow(int32_t row) noexcept {
    if (row >= 0 && static_cast<uint32_t>(row) < rowCount) glideRow = row;
}

void AFGlideTable::setValueRow(int32_t row) noexcept {
    if (row >= 0 && static_cast<uint32_t>(row) < rowCount) valueRow = row;
}
