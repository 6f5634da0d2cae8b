#include "results/Grid.h"

#include <algorithm>

#include "common/RuntimeError.h"

namespace mervasto {

namespace {

void checkCell(const Grid& grid, int32_t row, int32_t col) {
    if (!grid.contains(row, col)) {
        throw RuntimeError(ErrorCode::Subscript,
                           "Subscript out of range (cell " + std::to_string(row) + ", " + std::to_string(col) + ")");
    }
}

int64_t colourKey(int32_t row, int32_t col) { return (int64_t{row} << 32) | static_cast<uint32_t>(col); }

}  // namespace

Grid::Grid(int32_t rows, int32_t cols, int32_t fixedRowsCount, int32_t fixedColsCount)
    : fixedRows(fixedRowsCount), fixedCols(fixedColsCount) {
    rows_ = std::max(rows, int32_t{0});
    cols_ = std::max(cols, int32_t{0});
    cells_.resize(static_cast<size_t>(rows_) * static_cast<size_t>(cols_));
    colWidth.assign(static_cast<size_t>(cols_), 0);
}

void Grid::setRows(int32_t rows) {
    rows = std::max(rows, int32_t{0});
    cells_.resize(static_cast<size_t>(rows) * static_cast<size_t>(cols_));
    if (rows < rows_) {
        std::erase_if(colours_, [rows](const auto& kv) { return (kv.first >> 32) >= rows; });
        std::erase_if(notes_, [rows](const auto& kv) { return (kv.first >> 32) >= rows; });
    }
    rows_ = rows;
}

void Grid::setCols(int32_t cols) {
    cols = std::max(cols, int32_t{0});
    if (cols == cols_) return;
    std::vector<std::string> cells(static_cast<size_t>(rows_) * static_cast<size_t>(cols));
    const int32_t keep = std::min(cols, cols_);
    for (int32_t r = 0; r < rows_; ++r) {
        for (int32_t c = 0; c < keep; ++c) {
            cells[static_cast<size_t>(r) * static_cast<size_t>(cols) + static_cast<size_t>(c)] =
                std::move(cells_[index(r, c)]);
        }
    }
    cells_ = std::move(cells);
    std::erase_if(colours_, [cols](const auto& kv) { return static_cast<int32_t>(kv.first & 0xFFFFFFFF) >= cols; });
    std::erase_if(notes_, [cols](const auto& kv) { return static_cast<int32_t>(kv.first & 0xFFFFFFFF) >= cols; });
    cols_ = cols;
    colWidth.resize(static_cast<size_t>(cols), colWidth.empty() ? 0 : colWidth.back());
}

void Grid::clearTexts() {
    for (auto& c : cells_) c.clear();
    clearColours();
}

void Grid::setCellColour(int32_t row, int32_t col, CellColour colour) {
    checkCell(*this, row, col);
    colours_[colourKey(row, col)] = colour;
}

std::optional<CellColour> Grid::cellColour(int32_t row, int32_t col) const {
    auto it = colours_.find(colourKey(row, col));
    if (it == colours_.end()) return std::nullopt;
    return it->second;
}

void Grid::setCellNote(int32_t row, int32_t col, std::string note) {
    checkCell(*this, row, col);
    notes_[colourKey(row, col)] = std::move(note);
}

const std::string* Grid::cellNote(int32_t row, int32_t col) const {
    auto it = notes_.find(colourKey(row, col));
    return it == notes_.end() ? nullptr : &it->second;
}

void SetGridCell(Grid& grid, int32_t row, int32_t col, std::string_view text) {
    checkCell(grid, row, col);
    grid.text(row, col).assign(text);
}

const std::string& GetGridCell(const Grid& grid, int32_t row, int32_t col) {
    checkCell(grid, row, col);
    return grid.text(row, col);
}

void SetGridRow(Grid& grid, int32_t row, int32_t firstCol, int32_t lastCol, std::span<const std::string> texts) {
    if (lastCol < firstCol) return;
    checkCell(grid, row, firstCol);
    checkCell(grid, row, lastCol);
    if (static_cast<size_t>(lastCol - firstCol) >= texts.size()) {
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range (text list)");
    }
    for (int32_t c = firstCol; c <= lastCol; ++c) grid.text(row, c) = texts[static_cast<size_t>(c - firstCol)];
}

void SetGridColumn(Grid& grid, int32_t firstRow, int32_t lastRow, int32_t col, std::span<const std::string> texts) {
    if (lastRow < firstRow) return;
    checkCell(grid, firstRow, col);
    checkCell(grid, lastRow, col);
    if (static_cast<size_t>(lastRow - firstRow) >= texts.size()) {
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range (text list)");
    }
    for (int32_t r = firstRow; r <= lastRow; ++r) grid.text(r, col) = texts[static_cast<size_t>(r - firstRow)];
}

void CopyCell(const Grid& grid1, int32_t row1, int32_t col1, Grid& grid2, int32_t row2, int32_t col2) {
    SetGridCell(grid2, row2, col2, GetGridCell(grid1, row1, col1));
}

std::string GridClipboardText(const Grid& grid, int32_t row1, int32_t col1, int32_t row2, int32_t col2) {
    if (row1 > row2) std::swap(row1, row2);
    if (col1 > col2) std::swap(col1, col2);
    checkCell(grid, row1, col1);
    checkCell(grid, row2, col2);
    std::string out;
    for (int32_t r = row1; r <= row2; ++r) {
        if (r > row1) out += '\r';
        for (int32_t c = col1; c <= col2; ++c) {
            if (c > col1) out += '\t';
            out += grid.text(r, c);
        }
    }
    return out;
}

}  // namespace mervasto
