#include "results/EncoderFiles.h"

#include <span>

#include "common/Numeric.h"
#include "common/TextFile.h"
#include "results/SiFormat.h"

namespace mervasto {

const std::vector<EncoderStatisticRow>& EncoderStatisticRows() {
    static const std::vector<EncoderStatisticRow> rows = {
        {"Phase(deg)", "phase", "deg", &EncoderResult::phase},
        {"State Width(s)", "stateWidth", "s", &EncoderResult::stateWidth},
        {"A Duty(%)", "dutyA", "%", &EncoderResult::dutyA},
        {"B Duty(%)", "dutyB", "%", &EncoderResult::dutyB},
        {"Z Width(s)", "zWidth", "s", &EncoderResult::zWidth},
        {"Direction", "direction", "", &EncoderResult::direction},
        {"Index Position", "indexPosition", "", &EncoderResult::indexPosition},
    };
    return rows;
}

namespace {

// The statistics the results file holds, in its column order.
std::span<const EncoderStatisticRow> fileStatistics() {
    return std::span(EncoderStatisticRows()).first(static_cast<size_t>(kEncoderFileStatistics));
}

}  // namespace

std::string EncoderHeaderLine1() {
    std::string line = "Sample Name";
    for (const auto& row : fileStatistics()) {
        line += ',';
        line += row.name;
        line += ",,,,";
    }
    return line + ",Position,Reversals,Dropped Bounces,Index Count";
}

std::string EncoderHeaderLine2() {
    std::string line;
    for (int k = 0; k < kEncoderFileStatistics; ++k) line += ",Min,Max,Mean,σ,Counts";
    return line + ",,,,";
}

std::string EncoderDataLine(std::string_view sampleName, const EncoderResult& r) {
    std::string line(sampleName);
    for (const auto& row : fileStatistics()) {
        const EncoderStatistic& s = r.*(row.member);
        AppendStatisticColumns(line, s.Min, s.Max, s.Mean, s.Sigma, s.Counts);
    }
    line += ',' + std::to_string(r.position) + ',' + std::to_string(r.reversals) + ',' +
            std::to_string(r.droppedBounces) + ',' + std::to_string(r.indexCount);
    return line;
}

Outcome SaveEncoderLines(std::string_view fileName, std::vector<std::string>& lines) {
    // Written beside the results file, whose own status stays in view: only
    // a failure speaks, and it names this file.
    if (!AppendCsvLines(fileName, EncoderHeaderLine1(), EncoderHeaderLine2(), lines))
        return {ErrorCode::FileIo, kFailedToSaveEncoderData};
    return Outcome::Ok();
}

void FillEncoderGrid(Grid& grid, const EncoderResult& r, bool on) {
    const auto& rows = EncoderStatisticRows();
    const char* totals[] = {"Position", "Reversals", "Dropped Bounces", "Index Count", "Revolutions", "Speed(rev/s)"};
    const auto rowCount = static_cast<int32_t>(1 + rows.size() + std::size(totals));
    if (grid.rows() != rowCount || grid.cols() != 6) grid = Grid(rowCount, 6);
    grid.clearTexts();
    const char* heads[] = {"", "Min", "Max", "Mean", "σ", "Counts"};
    for (int32_t c = 0; c < 6; ++c) grid.text(0, c) = heads[c];
    int32_t row = 1;
    auto value = [](double v, const char* unit) {
        return *unit == 0 || std::string(unit) == "deg" || std::string(unit) == "%"
                   ? ShortestText(static_cast<float>(v)) + (*unit ? std::string(" ") + unit : "")
                   : FormatSiValue(static_cast<float>(v)) + " " + unit;
    };
    for (const auto& s : rows) {
        grid.text(row, 0) = s.name;
        const EncoderStatistic& st = r.*(s.member);
        if (r.analysed && st.Counts > 0) {
            grid.text(row, 1) = value(st.Min, s.unit);
            grid.text(row, 2) = value(st.Max, s.unit);
            grid.text(row, 3) = value(st.Mean, s.unit);
            grid.text(row, 4) = value(st.Sigma, s.unit);
        }
        if (r.analysed) grid.text(row, 5) = std::to_string(st.Counts);
        ++row;
    }
    const std::string totalsText[] = {std::to_string(r.position),
                                      std::to_string(r.reversals),
                                      std::to_string(r.droppedBounces),
                                      std::to_string(r.indexCount),
                                      r.revolutions != 0 ? ShortestText(r.revolutions) : std::string(),
                                      r.speed != 0 ? ShortestText(r.speed) : std::string()};
    for (size_t k = 0; k < std::size(totals); ++k, ++row) {
        grid.text(row, 0) = totals[k];
        if (r.analysed) grid.text(row, 1) = totalsText[k];
    }
    if (!r.analysed) grid.text(1, 1) = on ? r.note : "Encoder off";
}

}  // namespace mervasto
