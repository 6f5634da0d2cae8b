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

// The columns of the comparator grid, in order. A column is one entry here
// and one in the header table of Comparator.cpp; rows refer to columns only
// by these names.
enum CycleGridCol : int32_t {
    kCycleColCh,
    kCycleColSignal,
    kCycleColTotal,
    kCycleColLL,
    kCycleColUL,
    kCycleColVerdict,
    kCycleColValueLL,  // the lower value limit, in the kind's unit with a prefix
    kCycleColValueUL,
    kCycleGridCols
};

// Reasons the grid gives beside a refused or doubtful limit.
inline constexpr const char* kLimitTakesWhole = "it takes a whole number from -2147483648 to 2147483647.";
inline constexpr const char* kLimitTakesValueHead = "it takes a number in ";
inline constexpr const char* kLimitTakesValueTail = ", with a prefix if wanted (1.5 us, 1.5u, 1.5e-6).";

// True unless count > UL or count < LL (both limits belong to "Go").
bool JudgeCount(int32_t count, int32_t LL, int32_t UL);

// The value limits of a record (ValueLimit1 the lower, ValueLimit2 the
// upper) are set when the lower lies below the upper; both 0 is "not set".
bool ValueLimitsSet(const ChannelResult& r);

// Which limits a record breaks: its count against LL/UL (unless the count
// is not judged), and, when its value limits are set, the smallest and the
// largest value of any cycle against them (in single precision, the limits'
// own; both limits belong to "Go").
struct LimitCheck {
    bool belowLL = false;
    bool aboveUL = false;
    bool belowValueLL = false;
    bool aboveValueUL = false;
    bool go() const { return !(belowLL || aboveUL || belowValueLL || aboveValueUL); }
};
LimitCheck CheckLimits(const ChannelResult& r, bool countJudged = true);

// Recomputes every record's verdict from its count, values and limits.
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
    bool limits = true;       // false for the gate and rows marked "No"
    bool countJudged = true;  // false: only the value limits decide its verdict
};

// The kind a row judges, as its row header names it ("Pulse width (s)"),
// and, as its tip, the channel and what its limits judge: rows of one
// channel differ in nothing else.
std::string CycleRowName(const CycleGridRow& row, const ChannelDisplays& channels);
std::string CycleRowTip(const CycleGridRow& row, const ChannelDisplays& channels);

// Header "Ch" "Signal" "Total" "LL" "UL" "Go/NG" "Value LL" "Value UL" and an
// empty body.
void SetupDetailCycleGrid(Grid& grid);

// Every kind counts the same cycles, and the comparator file holds the
// count limits of the first: one row per channel.
inline constexpr std::array<Measure, 1> kLimitKinds = {Measure::PulseWidth};

// One row per shown channel and kind in `kinds`, with verdicts recomputed
// and stored in the records. Returns what each body row (from row 1) shows.
std::vector<CycleGridRow> BuildDetailCycleGrid(Grid& grid, const ChannelDisplays& channels, ChannelResultTable& table,
                                               std::span<const Measure> kinds = kLimitKinds);

// The rows the command line judges: each shown channel's first kind, whose
// count limits the comparator file sets, and every other kind of it whose
// value limits are set (judged on those alone). The verdicts are left in
// the grid, not in the records.
std::vector<CycleGridRow> BuildVerdictGrid(Grid& grid, const ChannelDisplays& channels,
                                           const ChannelResultTable& table);

// An edit of a limit cell: LL and UL take a whole number, Value LL and Value
// UL a number in the row's unit (empty: 0). A taken limit is stored, the row
// judged again and its cells rewritten. A refused text stays in its cell,
// marked, with the reason as its note, and the record keeps its limit: the
// outcome is BadOption with the reason. A cell that takes no limit (another
// column, the gate, the header) is Canceled and changes nothing.
Outcome EditDetailCycleLimit(Grid& grid, const std::vector<CycleGridRow>& rows, const ChannelDisplays& channels,
                             ChannelResultTable& table, int32_t row, int32_t col, std::string_view text);

// What is doubtful about the limits of the rows: an LL above its UL (every
// count is "NG"), value limits not in order (not judged). One text per row.
std::vector<std::string> LimitWarnings(const std::vector<CycleGridRow>& rows, const ChannelResultTable& table);

// Pulse on a digital output for an "NG" verdict; there is no such output.
void GenNGPulse(int32_t DeviceId, bool flag);

}  // namespace mervasto
