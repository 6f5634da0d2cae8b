#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "analysis/AnalysisTypes.h"
#include "results/Grid.h"

// The main window's result grids: the current run (ResultGrid1), the log of
// runs (LogGrid) and the per-cycle detail values (DetailDataGrid).
//
// ResultGrid1, 10 rows x 15 columns, 2 header rows and 1 header column:
//   row 0      "Channel" "Sig. Name" "Sig. Type" "Min" "Max" "Mean" "σ" "Counts"
//   row 1      col 2 "Unit" (the units of a channel stand in its second row)
//   row 2ch+2  "Ch<n>", name, type, Min..Counts in cols 3..7, note in col 8
//   row 2ch+3  col 2 "Total", cols 3..6 the unit of Min, Max, Mean and σ,
//              col 7 the count again (the cycles the statistics cover)
// LogGrid, TotalRepeats + 5 rows (grows when more passes come), 17 columns,
// 4 header rows; channel k (0..3) owns cols 1+4k..4+4k:
//   row 0  "Signal Name" | the channel's signal name in the block's first col
//   row 1  "Type"        | the channel's type text
//   row 2  ""            | "Min" "Max" "Mean" "Total Counts"
//   row 3  "Unit"        | unit of Min, Max, Mean
//   row 4+ pass number   | Min, Max, Mean as read back by GetValUnit, count
// DetailDataGrid, cycles + 5 rows, 5 columns, 5 header rows; Ch<n> in col n:
//   rows 0..4  "Channel" "Sig. Name" "Sig. Type" "Total No." "Unit"
//   row 5+i    cycle number i+1, then each shown channel's value of cycle i
namespace mervasto {

inline constexpr int32_t kResultGridRows = 10;
inline constexpr int32_t kResultGridCols = 15;
inline constexpr int32_t kLogHeaderRows = 4;
inline constexpr int32_t kLogGridCols = 1 + 4 * kChannels;
inline constexpr int32_t kDetailHeaderRows = 5;
inline constexpr int32_t kDetailGridCols = 1 + kChannels;
inline constexpr int32_t kDetailStartCycles = 15000;
// Column widths are multiples of one base width, in the view's units.
inline constexpr int32_t kBaseColumnWidth = 80;

inline constexpr const char* kGateTypeText = "Gate";
inline constexpr const char* kChannelStateOn = "ON";
inline constexpr const char* kWaveLengthLabel = "Wave Length=";
// The message box after a copy of a grid range to the clipboard.
inline constexpr const char* kResultCopiedText = "計算結果をクリップボードにコピーしました｡";
inline constexpr const char* kResultCopiedTitle = "確認";

// What the grids need to know of a channel, taken from the settings by the
// caller so that this layer needs no settings object.
struct ChannelDisplay {
    int32_t typeIndex = kTypePeriod;  // 0..8, 9 = "Gate" (Ch4 only)
    std::string typeText = "Period";  // as the type list shows it
    std::string SigName;
    bool DispOffCheck = false;  // ticked: channel switched off
    std::string channelState = kChannelStateOn;
    double VRate = 1;
    uint32_t backColour = 0xFFFFFF;  // blue-green-red
    uint32_t foreColour = 0x000000;
    std::string note;  // why a channel has no results; empty otherwise

    bool shown() const { return !DispOffCheck && channelState == kChannelStateOn; }
    bool isGate() const { return typeText == kGateTypeText; }
};
using ChannelDisplays = std::array<ChannelDisplay, kChannels>;

// The unit suffixes (with their leading blank) of Min/Max and of Mean/σ.
struct UnitPair {
    const char* first;
    const char* second;
};
UnitPair ResultUnits(int32_t typeIndex);
// The unit of one cycle's value in the detail grid: "%", "s", "V" or "Hz".
const char* DetailUnit(int32_t typeIndex);

void SetupResultGrid1(Grid& grid);
void SetupLogGrid(Grid& grid, int32_t TotalRepeats);
// cycles: 15000 at start-up, MaxCycles after its Enter check.
void SetupDetailDataGrid(Grid& grid, int32_t cycles);
// A new Total Repeats or Max Periods while the grid holds rows: the grid gets
// room for that many rows (and the rows a pass appends beyond it) but never
// fewer rows than it has filled, and keeps every text.
void ResizeLogGrid(Grid& grid, int32_t TotalRepeats);
void ResizeDetailDataGrid(Grid& grid, int32_t cycles);

// Fills ResultGrid1 from the Measure::OfType records and returns the text of the
// wave length box ("Wave Length=<n>").
std::string Disp_Result(Grid& grid, int32_t waveLength, const ChannelDisplays& channels,
                        const ChannelResultTable& table);

// Appends the shown channels' current results as one log row; first == 1
// starts the log afresh with its header.
void CopyResultToLog(int32_t first, const Grid& resultGrid, Grid& logGrid, const ChannelDisplays& channels);

// One row per cycle: the quantity the channel's type names, with its unit.
// The grid is sized to the longest channel.
void DispDetailData(Grid& grid, const ChannelDisplays& channels, const CycleTable& cycles, float SampleSec);

}  // namespace mervasto
