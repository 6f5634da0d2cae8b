#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The result grids as plain tables of cell texts. The windows show them
// through a table model; everything else reads and writes the texts here.
namespace mervasto {

// Colours are 24-bit blue-green-red values, as the colour choice gives them.
struct CellColour {
    uint32_t back = 0xFFFFFF;
    uint32_t fore = 0x000000;
};

class Grid {
public:
    Grid() = default;
    Grid(int32_t rows, int32_t cols, int32_t fixedRows = 1, int32_t fixedCols = 1);

    int32_t rows() const { return rows_; }
    int32_t cols() const { return cols_; }
    // Resizing keeps the texts of the cells that stay; new cells are empty.
    void setRows(int32_t rows);
    void setCols(int32_t cols);

    // Unchecked access; the Get/Set routines below check the bounds.
    const std::string& text(int32_t row, int32_t col) const { return cells_[index(row, col)]; }
    std::string& text(int32_t row, int32_t col) { return cells_[index(row, col)]; }
    bool contains(int32_t row, int32_t col) const { return row >= 0 && row < rows_ && col >= 0 && col < cols_; }

    // All texts emptied and colours dropped; size and layout stay.
    void clearTexts();

    void setCellColour(int32_t row, int32_t col, CellColour colour);
    std::optional<CellColour> cellColour(int32_t row, int32_t col) const;
    // A word about a cell (why its text was refused), shown when the pointer
    // rests on it; dropped with the colours.
    void setCellNote(int32_t row, int32_t col, std::string note);
    const std::string* cellNote(int32_t row, int32_t col) const;
    void clearColours() {
        colours_.clear();
        notes_.clear();
    }

    int32_t fixedRows = 1;
    int32_t fixedCols = 1;
    std::vector<int32_t> colWidth;  // one per column, in the view's width units
    // Off while a routine fills the grid; the view repaints when it turns on.
    bool redraw = true;
    // Where the next appended row goes (the log grid's running position).
    int32_t nextRow = 0;

private:
    size_t index(int32_t row, int32_t col) const {
        return static_cast<size_t>(row) * static_cast<size_t>(cols_) + static_cast<size_t>(col);
    }

    int32_t rows_ = 0;
    int32_t cols_ = 0;
    std::vector<std::string> cells_;
    std::unordered_map<int64_t, CellColour> colours_;
    std::unordered_map<int64_t, std::string> notes_;
};

// Switches a grid's redraw off for the lifetime of the guard.
class RedrawOff {
public:
    explicit RedrawOff(Grid& grid) : grid_(grid) { grid_.redraw = false; }
    ~RedrawOff() { grid_.redraw = true; }
    RedrawOff(const RedrawOff&) = delete;
    RedrawOff& operator=(const RedrawOff&) = delete;

private:
    Grid& grid_;
};

// Cell routines. A cell outside the grid, or a text index past the end of
// the text list, is a Subscript RuntimeError (and nothing is written).
void SetGridCell(Grid& grid, int32_t row, int32_t col, std::string_view text);
const std::string& GetGridCell(const Grid& grid, int32_t row, int32_t col);
// texts[c - firstCol] into (row, c) for c = firstCol..lastCol.
void SetGridRow(Grid& grid, int32_t row, int32_t firstCol, int32_t lastCol, std::span<const std::string> texts);
// texts[r - firstRow] into (r, col) for r = firstRow..lastRow.
void SetGridColumn(Grid& grid, int32_t firstRow, int32_t lastRow, int32_t col, std::span<const std::string> texts);

// Copies the text of (row1, col1) of grid1 into (row2, col2) of grid2.
void CopyCell(const Grid& grid1, int32_t row1, int32_t col1, Grid& grid2, int32_t row2, int32_t col2);

// The clipboard form of a cell range (corners in any order): cells joined by
// tabs, rows by carriage returns, nothing after the last row.
std::string GridClipboardText(const Grid& grid, int32_t row1, int32_t col1, int32_t row2, int32_t col2);

}  // namespace mervasto
