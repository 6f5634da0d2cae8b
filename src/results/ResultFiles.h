#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "common/Outcome.h"
#include "results/Grid.h"

// The cumulative results file ("ResultData.csv") and the detail files.
namespace mervasto {

inline constexpr const char* kResultFileName = "ResultData.csv";
inline constexpr const char* kSavedTestResults = "Saved Test Results to the ";  // + path + "."
inline constexpr const char* kFailedToSaveTestResults = "Failed to save Test Results.";
inline constexpr const char* kResultHeaderBlock = ",Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse";

// The detail file choice and the save dialogs of the other save commands.
inline constexpr const char* kDetailSaveTitle = "Select Path to store Detail Data.";
inline constexpr const char* kCsvFilter = "*.csv";
inline constexpr const char* kMayIOverwrite = "May I Overwrite?";
inline constexpr const char* kCanceled = "Canceled.";

// The two header lines a new results file starts with.
std::string ResultHeaderLine1(const std::array<std::string, kChannels>& typeTexts);
std::string ResultHeaderLine2();
// The run's line: the sample name, then per channel the OfType Min, Max,
// Mean, Sigma and Counts followed by an empty column.
std::string ResultDataLine(std::string_view sampleName, const ChannelResultTable& table);
// Appends ",Min,Max,Mean,Sigma,Counts", the five columns of one statistic in
// the results files.
void AppendStatisticColumns(std::string& line, double min, double max, double mean, double sigma, int64_t counts);

// Appends lines to a CSV file in one write, the two header lines first when
// the file does not exist yet, and empties lines when they are written. On a
// failure the file is left as it was and lines keep every line.
Outcome AppendCsvLines(std::string_view fileName, const std::string& header1, const std::string& header2,
                       std::vector<std::string>& lines);

// Appends lines to the results file in one write, the header first when the
// file does not exist yet, and empties lines when they are written. On a
// failure the file is left as it was and lines keep every line, so that the
// caller can try again with the next run's line added. A failure says
// "Failed to save Test Results.".
Outcome SaveResultLines(std::string_view fileName, const std::array<std::string, kChannels>& typeTexts,
                        std::vector<std::string>& lines);

// Appends the run's line to the results file, writing the header first when
// the file does not exist yet. Nothing outside the file is changed.
Outcome SaveTestResults(std::string_view fileName, std::string_view sampleName,
                        const std::array<std::string, kChannels>& typeTexts, const ChannelResultTable& table);

// A chosen detail file path split at its last folder separator; the wave
// files saved with the details take the name without its 4-character
// extension and "_Wave": C:\out\a.csv gives C:\out, a.csv and a_Wave.
struct DetailSavePath {
    std::string folder;
    std::string fileName;
    std::string waveBaseName;
};
DetailSavePath SplitDetailSavePath(std::string_view path);

// Writes the grid as a CSV image (every row, every column, no quoting)
// through a temporary file, so that a failed write leaves the old file whole.
// The outcome names the file and the reason.
Outcome SaveDetailData(std::string_view fileName, Grid& grid);

}  // namespace mervasto
