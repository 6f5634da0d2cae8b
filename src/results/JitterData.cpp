#include "results/JitterData.h"

#include "common/Numeric.h"
#include "common/TextFile.h"
#include "results/SiFormat.h"

namespace mervasto {

namespace {

// The values of one channel as numbers; counts are whole.
std::array<double, kJitterColumns.size()> values(const JitterResult& j) {
    return {j.Min,
            j.Max,
            j.Mean,
            j.Sigma,
            static_cast<double>(j.Counts),
            j.TieRms,
            j.TiePeakToPeak,
            static_cast<double>(j.TieCounts)};
}

bool isCount(size_t column) { return column == 4 || column == 7; }

// Jitter lives in picoseconds to microseconds, where the result grid's
// fixed six characters show little but zeros: a fourth significant digit.
constexpr int kJitterDigits = 4;

}  // namespace

std::string JitterHeaderLine1(const std::array<std::string, kChannels>& typeTexts) {
    std::string line = "Sample Name";
    for (int ch = 0; ch < kChannels; ++ch) {
        line += ",Ch" + std::to_string(ch + 1) + "," + typeTexts[static_cast<size_t>(ch)];
        line += std::string(kJitterBlock - 2, ',');
    }
    return line;
}

std::string JitterHeaderLine2() {
    std::string line;
    for (int ch = 0; ch < kChannels; ++ch) {
        for (size_t c = 0; c < kJitterColumns.size(); ++c)
            line += std::string(",") + kJitterColumns[c] + (isCount(c) ? "" : "(s)");
        line += ',';
    }
    return line;
}

std::string JitterDataLine(std::string_view sampleName, const JitterResults& jitter) {
    std::string line(sampleName);
    for (const JitterResult& j : jitter) {
        const auto v = values(j);
        for (size_t c = 0; c < v.size(); ++c) {
            line += ',';
            line += isCount(c) ? std::to_string(static_cast<int64_t>(v[c])) : ShortestText(v[c]);
        }
        line += ',';
    }
    return line;
}

Outcome SaveJitterLines(std::string_view fileName, const std::array<std::string, kChannels>& typeTexts,
                        std::vector<std::string>& lines) {
    if (!AppendCsvLines(fileName, JitterHeaderLine1(typeTexts), JitterHeaderLine2(), lines))
        return {ErrorCode::FileIo, kFailedToSaveJitterData};
    return Outcome::Ok();
}

void DispJitter(Grid& grid, const ChannelDisplays& channels, const JitterResults& jitter) {
    RedrawOff off(grid);
    if (grid.rows() != 1 + kChannels || grid.cols() != kJitterGridCols) {
        grid = Grid(1 + kChannels, kJitterGridCols, 1, 1);
        grid.colWidth.assign(static_cast<size_t>(kJitterGridCols), kBaseColumnWidth);
    }
    grid.text(0, 0) = "Channel";
    grid.text(0, 1) = "Sig. Name";
    grid.text(0, 2) = "Sig. Type";
    for (size_t c = 0; c < kJitterColumns.size(); ++c) grid.text(0, static_cast<int32_t>(3 + c)) = kJitterColumns[c];
    grid.text(0, kJitterGridCols - 1) = "Note";
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& d = channels[static_cast<size_t>(ch)];
        const JitterResult& j = jitter[static_cast<size_t>(ch)];
        const int32_t row = 1 + ch;
        for (int32_t c = 0; c < kJitterGridCols; ++c) grid.text(row, c).clear();
        grid.text(row, 0) = "Ch" + std::to_string(ch + 1);
        if (!d.shown()) continue;
        grid.text(row, 1) = d.SigName;
        grid.text(row, 2) = d.typeText;
        if (d.isGate() || !j.Valid) continue;
        const auto v = values(j);
        for (size_t c = 0; c < v.size(); ++c)
            grid.text(row, static_cast<int32_t>(3 + c)) =
                isCount(c) ? std::to_string(static_cast<int64_t>(v[c])) : SiText(v[c], "s", kJitterDigits);
        if (j.withinOneSample) grid.text(row, kJitterGridCols - 1) = kJitterWholeSampleHint;
    }
}

}  // namespace mervasto
