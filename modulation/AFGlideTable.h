#pragma once

#include "state/AFChunkableClass.h"
#include "state/AFInitInterface.h"

#include <cstdint>
#include <memory>
#include <vector>

struct AFGlideTableRecord;

// Editable step pattern: a grid of cell values, each with a glide flag that slides the value towards the next
// column. Serves the pattern editor, its preset files and old slot state.
class AFGlideTable : public AFChunkableClass, public AFInitInterface {
public:
    static constexpr int32_t kMagic = 918221533;
    static constexpr int32_t kVersion = 1;
    static constexpr int kHeaderWords = 6;

    // Any thread; sizes below 1 become 1.
    explicit AFGlideTable(uint32_t columns = 16, uint32_t rows = 1);

    // Thread of the load. Silent: consumes the same words and leaves the table alone. False for a size that
    // cannot be there; the table then stays as it was.
    bool read(AFChunk& chunk, bool silent) override;
    // Thread of the load: the cells of a record that holds them, moved in; a record without cells changes
    // nothing.
    void take(AFGlideTableRecord& record);
    // Thread of the save.
    void write(AFChunk& chunk) override;
    // GUI thread, or with the audio held off: all cells 0, no glides.
    void init() override;

    // Thread of the reader: value at position p of 0..columns; p wraps around the pattern. A glide on cell i
    // slides linearly to cell i + 1, the last cell to the first.
    float valueAt(float p) const noexcept;
    // Any thread: a new table of the same size, cells, flags and glide row.
    std::unique_ptr<AFGlideTable> clone() const;

    // GUI thread; cells outside the grid are ignored on set and read as 0.
    void setValue(uint32_t row, uint32_t column, float value) noexcept;
    float getValue(uint32_t row, uint32_t column) const noexcept;
    void setGlide(uint32_t row, uint32_t column, int32_t flag) noexcept;
    int32_t getGlide(uint32_t row, uint32_t column) const noexcept;
    // GUI thread; rows outside the grid are ignored.
    void setGlideRow(int32_t row) noexcept;
    void setValueRow(int32_t row) noexcept;

    // Any thread.
    uint32_t getColumnCount() const noexcept { return columnCount; }
    uint32_t getRowCount() const noexcept { return rowCount; }
    int32_t getGlideRow() const noexcept { return glideRow; }
    int32_t getValueRow() const noexcept { return valueRow; }
    float getRangeValue() const noexcept { return rangeValue; }

private:
    std::size_t cell(uint32_t row, uint32_t column) const noexcept {
        return static_cast<std::size_t>(row) * columnCount + column;
    }

    // Row after row, columnCount cells each.
    std::vector<float> values;
    std::vector<int32_t> glides;
    uint32_t columnCount;
    uint32_t rowCount;
    float rangeValue = 1.0f;
    int32_t glideRow = 0;
    int32_t valueRow = 0;
};
