#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "analysis/Encoder.h"
#include "results/Grid.h"
#include "results/ResultFiles.h"

// The encoder's results file ("EncoderData.csv") and its grid.
namespace mervasto {

inline constexpr const char* kEncoderFileName = "EncoderData.csv";
inline constexpr const char* kFailedToSaveEncoderData = "Failed to save Encoder Data.";

// The statistics in the order of the grid's rows and the JSON's keys (the
// phase over all A cycles, "phase", is in the JSON and the file only).
struct EncoderStatisticRow {
    const char* name;  // as the grid and the table form show it
    const char* key;   // as the JSON and the csv form name it
    const char* unit;  // "deg", "s", "%" or "" (a count)
    const EncoderStatistic EncoderResult::*member;
};
const std::vector<EncoderStatisticRow>& EncoderStatisticRows();

// The file's columns: "Sample Name", Phase (all A cycles), State Width, A
// and B Duty, Z Width (five columns each: Min, Max, Mean, σ, Counts), then
// Position, Reversals, Dropped Bounces, Index Count: the first layout, whose
// kEncoderFirstFields columns every line starts with. Then Phase+, Phase- and
// Illegal.
inline constexpr int kEncoderFirstFields = 30;
std::string EncoderHeaderLine1();
std::string EncoderHeaderLine2();
// An analysis that was left out writes zeros, so that the columns stay aligned.
std::string EncoderDataLine(std::string_view sampleName, const EncoderResult& r);

// A line (or header) cut to the first layout's columns.
std::string FirstEncoderColumns(std::string_view line);
// The file exists and began with the first layout's header: its lines keep
// those columns.
bool EncoderFileHasFirstColumns(std::string_view fileName);

// "<file> keeps its first columns: Phase+, Phase- and Illegal are left out of it."
std::string EncoderFirstColumnsNotice(std::string_view fileName);

// Like SaveResultLines, with the encoder file's own header; lines for a file
// of the first layout are cut to its columns.
Outcome SaveEncoderLines(std::string_view fileName, std::vector<std::string>& lines);

// The grid of the window's Encoder tab: a header row, a row per statistic
// (Min, Max, Mean, σ, Counts with units), then Position, Reversals, Dropped
// Bounces, Index Count, Revolutions, Speed and Illegal (the note beside it);
// a left-out analysis shows its reason in place of the values.
void FillEncoderGrid(Grid& grid, const EncoderResult& r, bool on);

}  // namespace mervasto
