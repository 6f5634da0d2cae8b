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

// The statistics in the order of the file's columns and the grid's rows.
struct EncoderStatisticRow {
    const char* name;  // as the grid and the table form show it
    const char* key;   // as the JSON and the csv form name it
    const char* unit;  // "deg", "s", "%" or "" (a count)
    const EncoderStatistic EncoderResult::*member;
};
const std::vector<EncoderStatisticRow>& EncoderStatisticRows();
// The five statistics of the results file (phase, state width, A and B duty,
// Z width); the direction and the index position live in the grid and JSON only.
inline constexpr int kEncoderFileStatistics = 5;

// Header line 1: "Sample Name", each statistic's name over its five columns,
// then "Position,Reversals,Dropped Bounces,Index Count".
std::string EncoderHeaderLine1();
// Header line 2: ",Min,Max,Mean,σ,Counts" per statistic, then four empty columns.
std::string EncoderHeaderLine2();
// The sample name, Min, Max, Mean, σ and Counts of each statistic, then the
// final position, reversals, dropped bounces and index count. An analysis
// that was left out writes zeros, so that the columns stay aligned.
std::string EncoderDataLine(std::string_view sampleName, const EncoderResult& r);

// Like SaveResultLines, with the encoder file's own header.
Outcome SaveEncoderLines(std::string_view fileName, std::vector<std::string>& lines);

// The grid of the window's Encoder tab: a header row, a row per statistic
// (Min, Max, Mean, σ, Counts with units), then Position, Reversals, Dropped
// Bounces, Index Count, Revolutions and Speed; a left-out analysis shows its
// reason in place of the values.
void FillEncoderGrid(Grid& grid, const EncoderResult& r, bool on);

}  // namespace mervasto
