#include "results/EncoderFiles.h"

#include <span>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "results/SiFormat.h"

namespace mervasto {

const std::vector<EncoderStatisticRow>& EncoderStatisticRows() {
    static const std::vector<EncoderStatisticRow> rows = {
        {"Phase+(deg)", "phasePlus", "deg", &EncoderResult::phasePlus},
        {"Phase-(deg)", "phaseMinus", "deg", &EncoderResult::phaseMinus},
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

struct FileStatistic {
    const char* name;
    const EncoderStatistic EncoderResult::*member;
};

// The first file's columns, kept in that order by every file since: a file
// that began with them goes on with them alone.
constexpr FileStatistic kFirstStatistics[] = {{"Phase(deg)", &EncoderResult::phase},
                                              {"State Width(s)", &EncoderResult::stateWidth},
                                              {"A Duty(%)", &EncoderResult::dutyA},
                                              {"B Duty(%)", &EncoderResult::dutyB},
                                              {"Z Width(s)", &EncoderResult::zWidth}};
// Added after them, with "Illegal" last.
constexpr FileStatistic kAddedStatistics[] = {{"Phase+(deg)", &EncoderResult::phasePlus},
                                              {"Phase-(deg)", &EncoderResult::phaseMinus}};

// The text of the first `fields` fields of a line.
std::string firstFields(std::string_view line, int fields) {
    size_t at = 0;
    for (int k = 0; k < fields; ++k) {
        at = line.find(',', at);
        if (at == std::string_view::npos) return std::string(line);
        ++at;
    }
    return std::string(line.substr(0, at - 1));
}

}  // namespace

std::string EncoderHeaderLine1() {
    std::string line = "Sample Name";
    for (const auto& st : kFirstStatistics) line += std::string(",") + st.name + ",,,,";
    line += ",Position,Reversals,Dropped Bounces,Index Count";
    for (const auto& st : kAddedStatistics) line += std::string(",") + st.name + ",,,,";
    return line + ",Illegal";
}

std::string EncoderHeaderLine2() {
    std::string line;
    for (size_t k = 0; k < std::size(kFirstStatistics); ++k) line += ",Min,Max,Mean,σ,Counts";
    line += ",,,,";
    for (size_t k = 0; k < std::size(kAddedStatistics); ++k) line += ",Min,Max,Mean,σ,Counts";
    return line + ",";
}

std::string EncoderDataLine(std::string_view sampleName, const EncoderResult& r) {
    std::string line(sampleName);
    auto statistic = [&](const FileStatistic& st) {
        const EncoderStatistic& s = r.*(st.member);
        AppendStatisticColumns(line, s.Min, s.Max, s.Mean, s.Sigma, s.Counts);
    };
    for (const auto& st : kFirstStatistics) statistic(st);
    line += ',' + std::to_string(r.position) + ',' + std::to_string(r.reversals) + ',' +
            std::to_string(r.droppedBounces) + ',' + std::to_string(r.indexCount);
    for (const auto& st : kAddedStatistics) statistic(st);
    return line + ',' + std::to_string(r.illegal);
}

std::string FirstEncoderColumns(std::string_view line) { return firstFields(line, kEncoderFirstFields); }

bool EncoderFileHasFirstColumns(std::string_view fileName) {
    if (!FileExists(fileName)) return false;
    try {
        TextLineReader in;
        in.open(fileName);
        std::string head;
        return in.next(head) && head == FirstEncoderColumns(EncoderHeaderLine1());
    } catch (const RuntimeError&) {
        return false;
    }
}

std::string EncoderFirstColumnsNotice(std::string_view fileName) {
    return std::string(fileName) + " keeps its first columns: Phase+, Phase- and Illegal are left out of it.";
}

Outcome SaveEncoderLines(std::string_view fileName, std::vector<std::string>& lines) {
    // The header is written once, so a file keeps the columns it began with.
    if (EncoderFileHasFirstColumns(fileName)) {
        std::vector<std::string> cut;
        cut.reserve(lines.size());
        for (const auto& line : lines) cut.push_back(FirstEncoderColumns(line));
        if (!AppendCsvLines(fileName, FirstEncoderColumns(EncoderHeaderLine1()),
                            FirstEncoderColumns(EncoderHeaderLine2()), cut))
            return {ErrorCode::FileIo, kFailedToSaveEncoderData};
        lines.clear();
        return Outcome::Ok();
    }
    // Written beside the results file, whose own status stays in view: only
    // a failure speaks, and it names this file.
    if (!AppendCsvLines(fileName, EncoderHeaderLine1(), EncoderHeaderLine2(), lines))
        return {ErrorCode::FileIo, kFailedToSaveEncoderData};
    return Outcome::Ok();
}

void FillEncoderGrid(Grid& grid, const EncoderResult& r, bool on) {
    const auto& rows = EncoderStatisticRows();
    const char* totals[] = {"Position",    "Reversals",    "Dropped Bounces", "Index Count",
                            "Revolutions", "Speed(rev/s)", "Illegal"};
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
                                      r.speed != 0 ? ShortestText(r.speed) : std::string(),
                                      std::to_string(r.illegal)};
    for (size_t k = 0; k < std::size(totals); ++k, ++row) {
        grid.text(row, 0) = totals[k];
        if (r.analysed) grid.text(row, 1) = totalsText[k];
    }
    if (!r.analysed)
        grid.text(1, 1) = on ? r.note : "Encoder off";
    else if (!r.note.empty())
        grid.text(row - 1, 2) = r.note;  // beside the illegal count
}

}  // namespace mervasto
