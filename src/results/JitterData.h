#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/Jitter.h"
#include "results/Grid.h"
#include "results/ResultFiles.h"
#include "results/ResultGrids.h"

// The jitter of each channel as a file ("JitterData.csv", one line per
// analysis like the results file) and as a grid (the "Jitter" tab).
namespace mervasto {

inline constexpr const char* kJitterFileName = "JitterData.csv";
inline constexpr const char* kFailedToSaveJitterData = "Failed to save Jitter Data.";
// The values of one channel, in the order of the file's blocks and the
// grid's columns; all but the counts in seconds.
inline constexpr std::array<const char*, 8> kJitterColumns = {"C2C Min",    "C2C Max", "C2C Mean", "C2C σ",
                                                              "C2C Counts", "TIE RMS", "TIE p-p",  "TIE Edges"};
// A channel takes one column per value and an empty one.
inline constexpr int kJitterBlock = static_cast<int>(kJitterColumns.size()) + 1;

using JitterResults = std::array<JitterResult, kChannels>;

// Header lines of a new file: "Sample Name" and per channel "Ch<n>" and its
// type text; then the value names with their units.
std::string JitterHeaderLine1(const std::array<std::string, kChannels>& typeTexts);
std::string JitterHeaderLine2();
// The analysis's line: the sample name, then per channel its eight values
// and an empty column.
std::string JitterDataLine(std::string_view sampleName, const JitterResults& jitter);

// As SaveResultLines, for the jitter file.
Outcome SaveJitterLines(std::string_view fileName, const std::array<std::string, kChannels>& typeTexts,
                        std::vector<std::string>& lines);

// The "Jitter" grid: a header row, then one row per channel: "Ch<n>", its
// name and type, then the values with a prefix and four significant digits
// ("1.235 ns") and a note (kJitterWholeSampleHint); a channel not shown, the
// gate, or one without a difference of periods has empty values.
inline constexpr int32_t kJitterGridCols = 4 + static_cast<int32_t>(kJitterColumns.size());
void DispJitter(Grid& grid, const ChannelDisplays& channels, const JitterResults& jitter);

}  // namespace mervasto
