#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "common/Outcome.h"
#include "results/Grid.h"
#include "results/ResultGrids.h"

// Count limits per channel and kind, their file, and the Go/NG verdicts of
// the "Cycle's Detail Data / Select Comparator" window.
namespace mervasto {

inline constexpr const char* kSelectComparatorTitle = "Select Comparator file";
inline constexpr const char* kComparatorFilter = "*.txt;*.csv";
inline constexpr const char* kComparatorFolder = "\\Comparator";  // under the data folder
inline constexpr const char* kIllegalCharacter = "Illegal Character.";
inline constexpr const char* kNoFile = "No File.";
inline constexpr const char* kVerdictGo = "Go";
inline constexpr const char* kVerdictNg = "NG";
inline constexpr const char* kRowNoLimits = "No";
// Colours of an "NG" cell (blue-green-red): white on red.
inline constexpr uint32_t kNgBackColour = 0x0000FF;
inline constexpr uint32_t kNgForeColour = 0xFFFFFF;

inline constexpr int32_t kCycleGridCols = 6;
inline constexpr int32_t kCycleColLL = 3;
inline constexpr int32_t kCycleColUL = 4;
inline constexpr int32_t kCycleColVerdict = 5;

// True unless count > UL or count < LL (both limits belong to "Go").
bool JudgeCount(int32_t count, int32_t LL, int32_t UL);

// Recomputes every record's verdict from its count and limits.
void JudgeAll(ChannelResultTable& table);

// Reads a comparator file into the table: per line channel (1..6), LL and
// UL of kind 0 (PulseWidth), its two value limits, the two of kind 1 (Duty).
// Empty lines and lines starting with "%" are skipped, an empty field keeps
// the stored value. A bad line stops the reading; earlier lines stay in
// force. Lines end at LF; carriage returns inside a line are dropped. A
// failure says "No File.", "Illegal Character." or, for a line too long or of
// too many fields, names the file and the line.
Outcome LoadComparatorFile(std::string_view path, ChannelResultTable& table);
// The same over text already in memory.
Outcome LoadComparatorText(std::string_view text, ChannelResultTable& table);

// Which record a row of the cycle grid shows.
struct CycleGridRow {
    int channel = 0;
    Measure kind = Measure::PulseWidth;
    bool limits = true;  // false for the gate and rows marked "No"
};

// Header "Ch" "Signal" "Total" "LL" "UL" "Go/NG" and an empty body.
void SetupDetailCycleGrid(Grid& grid);

// Every kind counts the same cycles, and the comparator file holds the
// count limits of the first: one row per channel.
inline constexpr std::array<Measure, 1> kLimitKinds = {Measure::PulseWidth};

// One row per shown channel and kind in `kinds`, with verdicts recomputed
// and stored in the records. Returns what each body row (from row 1) shows.
std::vector<CycleGridRow> BuildDetailCycleGrid(Grid& grid, const ChannelDisplays& channels, ChannelResultTable& table,
                                               std::span<const Measure> kinds = kLimitKinds);

// An edit of the LL (column 3) or UL (column 4) cell: stores the whole
// number, judges the row again and rewrites its cells. Other cells and rows
// without limits are left alone; returns false then.
bool EditDetailCycleLimit(Grid& grid, const std::vector<CycleGridRow>& rows, const ChannelDisplays& channels,
                          ChannelResultTable& table, int32_t row, int32_t col, std::string_view text);

// Pulse on a digital output for an "NG" verdict; there is no such output.
void GenNGPulse(int32_t DeviceId, bool flag);

}  // namespace mervasto
