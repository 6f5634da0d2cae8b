#include "results/ResultGrids.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "analysis/CycleQuantity.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "results/SiFormat.h"

namespace mervasto {

namespace {

constexpr int32_t kResultHeaderRows = 2;
constexpr int32_t kNoteCol = 8;

int32_t width(double factor) { return static_cast<int32_t>(kBaseColumnWidth * factor); }

std::string channelLabel(int ch) { return "Ch" + std::to_string(ch + 1); }

// The grids show values in single precision. One beyond it (a frequency from
// an absurd sample interval, a voltage from an absurd V Rate) is refused by
// its channel, what it is and its value, not as a bare overflow.
float shownSingle(double v, int ch, const ChannelDisplay& cd, const std::string& what, const char* suffix) {
    if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max())
        throw RuntimeError(ErrorCode::Overflow, channelLabel(ch) + " " + cd.typeText + ": " + what + " " +
                                                    ShortestText(v) + suffix +
                                                    " does not fit the single precision the results are shown in.");
    return static_cast<float>(v);
}

std::string siText(double v, int ch, const ChannelDisplay& cd, const char* what, const char* suffix) {
    return FormatSiValue(shownSingle(v, ch, cd, what, suffix)) + suffix;
}

// The unit without its leading blank.
std::string bareUnit(const char* suffix) { return std::string(suffix + (suffix[0] == ' ' ? 1 : 0)); }

}  // namespace

UnitPair ResultUnits(int32_t typeIndex) {
    switch (typeIndex) {
    case kTypePwPercent: return {" %", " s"};
    case kTypePeriod: return {" s", " s"};
    case kTypeDuty: return {" %", " %"};
    case kTypeAmple: return {" V", " V"};
    case kTypePw: return {" s", " s"};
    case kTypeFreq: return {" Hz", " Hz"};
    case kTypeRms:
    case kTypeMax:
    case kTypeMin: return {" V", " V"};
    default: return {"", ""};
    }
}

const char* DetailUnit(int32_t typeIndex) { return QuantityOfType(typeIndex).unit; }

void SetupResultGrid1(Grid& grid) {
    RedrawOff off(grid);
    grid = Grid(kResultGridRows, kResultGridCols, kResultHeaderRows, 1);
    const std::vector<std::string> head = {"Channel", "Sig. Name", "Sig. Type", "Min", "Max", "Mean", "σ", "Counts"};
    SetGridRow(grid, 0, 0, static_cast<int32_t>(head.size()) - 1, head);
    SetGridCell(grid, 1, 2, "Unit");
    for (int ch = 0; ch < kChannels; ++ch) {
        SetGridCell(grid, 2 * ch + 2, 0, channelLabel(ch));
        SetGridCell(grid, 2 * ch + 3, 2, "Total");
    }
    for (int32_t c = 0; c < kResultGridCols; ++c) grid.colWidth[static_cast<size_t>(c)] = width(1.1);
    grid.colWidth[1] = width(1.2);
    grid.colWidth[2] = width(1.2);
    grid.colWidth[kNoteCol] = width(2.4);
}

void SetupLogGrid(Grid& grid, int32_t TotalRepeats) {
    RedrawOff off(grid);
    grid = Grid(std::max(TotalRepeats, int32_t{1}) + 5, kLogGridCols, kLogHeaderRows, 1);
    SetGridCell(grid, 0, 0, "Signal Name");
    SetGridCell(grid, 1, 0, "Type");
    SetGridCell(grid, 3, 0, "Unit");
    static const std::vector<std::string> block = {"Min", "Max", "Mean", "Total Counts"};
    for (int ch = 0; ch < kChannels; ++ch) SetGridRow(grid, 2, 1 + 4 * ch, 4 + 4 * ch, block);
    for (int32_t c = 0; c < kLogGridCols; ++c) grid.colWidth[static_cast<size_t>(c)] = width(1.1);
    grid.colWidth[0] = width(1.2);
    grid.nextRow = kLogHeaderRows;
}

void SetupDetailDataGrid(Grid& grid, int32_t cycles) {
    RedrawOff off(grid);
    grid = Grid(std::max(cycles, int32_t{0}) + kDetailHeaderRows, kDetailGridCols, kDetailHeaderRows, 1);
    const std::vector<std::string> head = {"Channel", "Sig. Name", "Sig. Type", "Total No.", "Unit"};
    SetGridColumn(grid, 0, kDetailHeaderRows - 1, 0, head);
    for (int ch = 0; ch < kChannels; ++ch) SetGridCell(grid, 0, 1 + ch, channelLabel(ch));
    for (int32_t c = 0; c < kDetailGridCols; ++c) grid.colWidth[static_cast<size_t>(c)] = width(1.2);
}

void ResizeLogGrid(Grid& grid, int32_t TotalRepeats) {
    if (grid.rows() == 0) return SetupLogGrid(grid, TotalRepeats);
    RedrawOff off(grid);
    grid.setRows(std::max(std::max(TotalRepeats, int32_t{1}) + 5, grid.nextRow));
}

void ResizeDetailDataGrid(Grid& grid, int32_t cycles) {
    if (grid.rows() == 0) return SetupDetailDataGrid(grid, cycles);
    int32_t filled = grid.rows();
    while (filled > kDetailHeaderRows) {
        bool empty = true;
        for (int32_t c = 1; c < grid.cols() && empty; ++c) empty = grid.text(filled - 1, c).empty();
        if (!empty) break;
        --filled;
    }
    RedrawOff off(grid);
    grid.setRows(std::max(std::max(cycles, int32_t{0}) + kDetailHeaderRows, filled));
}

std::string Disp_Result(Grid& grid, int32_t waveLength, const ChannelDisplays& channels,
                        const ChannelResultTable& table) {
    if (grid.rows() < kResultGridRows || grid.cols() < kResultGridCols) SetupResultGrid1(grid);
    RedrawOff off(grid);
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        const int32_t row = 2 * ch + 2;
        SetGridCell(grid, row, 0, channelLabel(ch));
        SetGridCell(grid, row, 1, cd.SigName);
        SetGridCell(grid, row, 2, cd.typeText);

        std::vector<std::string> texts(kResultGridCols - 3);  // cols 3..14, all ""
        std::vector<std::string> units(5);                    // second row, cols 3..7
        if (ch == kChannels - 1 && cd.isGate()) {
            if (cd.shown()) texts[kNoteCol - 3] = cd.note;
            SetGridRow(grid, row, 3, kResultGridCols - 1, texts);
            SetGridRow(grid, row + 1, 3, 7, units);
            continue;
        }
        if (cd.shown()) {
            const ChannelResult& r = table.at(ch, Measure::OfType);
            if (r.Valid) {
                const UnitPair u = ResultUnits(cd.typeIndex);
                texts[0] = siText(r.Min, ch, cd, "Min", u.first);
                texts[1] = siText(r.Max, ch, cd, "Max", u.first);
                texts[2] = siText(r.Mean, ch, cd, "Mean", u.second);
                texts[3] = siText(r.Sigma, ch, cd, "σ", u.second);
                texts[4] = std::to_string(r.Counts);
                units = {bareUnit(u.first), bareUnit(u.first), bareUnit(u.second), bareUnit(u.second),
                         std::to_string(r.Counts)};
            }
            texts[kNoteCol - 3] = cd.note;
        }
        SetGridRow(grid, row, 3, 11, texts);
        SetGridRow(grid, row + 1, 3, 7, units);
    }
    return kWaveLengthLabel + std::to_string(waveLength);
}

void CopyResultToLog(int32_t first, const Grid& resultGrid, Grid& logGrid, const ChannelDisplays& channels) {
    if (logGrid.cols() < kLogGridCols || logGrid.rows() <= kLogHeaderRows) {
        SetupLogGrid(logGrid, std::max(logGrid.rows() - 5, int32_t{1}));
    }
    RedrawOff off(logGrid);
    if (first == 1) {
        for (int32_t r = kLogHeaderRows; r < logGrid.rows(); ++r) {
            for (int32_t c = 0; c < logGrid.cols(); ++c) logGrid.text(r, c).clear();
        }
        for (int ch = 0; ch < kChannels; ++ch) {
            const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
            SetGridCell(logGrid, 0, 1 + 4 * ch, cd.SigName);
            SetGridCell(logGrid, 1, 1 + 4 * ch, cd.typeText);
        }
        logGrid.nextRow = kLogHeaderRows;
    }
    const int32_t row = std::max(logGrid.nextRow, kLogHeaderRows);
    if (row >= logGrid.rows()) logGrid.setRows(std::max(row + 1, logGrid.rows() + logGrid.rows() / 2));
    SetGridCell(logGrid, row, 0, std::to_string(row - kLogHeaderRows + 1));
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!channels[static_cast<size_t>(ch)].shown()) continue;
        const int32_t resRow = 2 * ch + 2;
        const int32_t col = 1 + 4 * ch;
        static constexpr std::array<int32_t, 3> kFrom = {3, 4, 5};  // Min, Max, Mean
        for (size_t i = 0; i < kFrom.size(); ++i) {
            std::string val, unit;
            GetValUnit(resultGrid, resRow, kFrom[i], val, unit);
            SetGridCell(logGrid, row, col + static_cast<int32_t>(i), val);
            if (!unit.empty()) SetGridCell(logGrid, 3, col + static_cast<int32_t>(i), unit);
        }
        CopyCell(resultGrid, resRow, 7, logGrid, row, col + 3);
    }
    logGrid.nextRow = row + 1;
}

void DispDetailData(Grid& grid, const ChannelDisplays& channels, const CycleTable& cycles, float SampleSec) {
    RedrawOff off(grid);
    size_t longest = 0;
    for (int ch = 0; ch < kChannels; ++ch) {
        if (channels[static_cast<size_t>(ch)].shown())
            longest = std::max(longest, cycles.channel[static_cast<size_t>(ch)].size());
    }
    if (grid.cols() < kDetailGridCols) grid.setCols(kDetailGridCols);
    grid.setRows(static_cast<int32_t>(longest) + kDetailHeaderRows);
    grid.clearTexts();
    const std::vector<std::string> head = {"Channel", "Sig. Name", "Sig. Type", "Total No.", "Unit"};
    SetGridColumn(grid, 0, kDetailHeaderRows - 1, 0, head);
    for (size_t i = 0; i < longest; ++i)
        grid.text(kDetailHeaderRows + static_cast<int32_t>(i), 0) = std::to_string(i + 1);

    const double ss = SampleSec;
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        const int32_t col = 1 + ch;
        SetGridCell(grid, 0, col, channelLabel(ch));
        if (!cd.shown()) continue;
        const auto& list = cycles.channel[static_cast<size_t>(ch)];
        const std::string unit = DetailUnit(cd.typeIndex);
        const std::string suffix = " " + unit;
        SetGridCell(grid, 1, col, cd.SigName);
        SetGridCell(grid, 2, col, cd.typeText);
        SetGridCell(grid, 3, col, std::to_string(list.size()));
        SetGridCell(grid, 4, col, unit);
        if (cd.isGate()) continue;
        // Times on whole-sample edges are whole sample counts, so a channel
        // has few distinct values; remembering recent texts saves most of the
        // formatting (interpolated times seldom repeat and are formatted).
        struct Slot {
            uint32_t bits = 0;
            bool used = false;
            std::string text;
        };
        std::array<Slot, 256> recent{};
        const CycleQuantity quantity = QuantityOfType(cd.typeIndex);
        for (size_t i = 0; i < list.size(); ++i) {
            const double value = quantity.of(list[i], ss, cd.VRate);
            const float v = std::fabs(value) <= std::numeric_limits<float>::max()
                                ? static_cast<float>(value)
                                : shownSingle(value, ch, cd, "cycle " + std::to_string(i + 1), suffix.c_str());
            const uint32_t bits = std::bit_cast<uint32_t>(v);
            Slot& slot = recent[(bits ^ (bits >> 8) ^ (bits >> 16) ^ (bits >> 24)) & 0xFF];
            if (!slot.used || slot.bits != bits) {
                slot.text = FormatSiValue(v) + suffix;
                slot.bits = bits;
                slot.used = true;
            }
            grid.text(kDetailHeaderRows + static_cast<int32_t>(i), col) = slot.text;
        }
    }
}

}  // namespace mervasto
