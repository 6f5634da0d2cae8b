#include "results/ResultFiles.h"

#include "common/Numeric.h"
#include "common/TextFile.h"

namespace mervasto {

std::string ResultHeaderLine1(const std::array<std::string, kChannels>& typeTexts) {
    std::string line = "Sample Name";
    for (int ch = 0; ch < kChannels; ++ch) {
        line += ",Ch" + std::to_string(ch + 1) + ",";
        line += typeTexts[static_cast<size_t>(ch)];
        line += ch + 1 < kChannels ? ",,,," : ",,,";
    }
    return line;
}

std::string ResultHeaderLine2() {
    std::string line;
    for (int ch = 0; ch < kChannels; ++ch) {
        if (ch > 0) line += ",";
        line += kResultHeaderBlock;
    }
    return line;
}

std::string ResultDataLine(std::string_view sampleName, const ChannelResultTable& table) {
    std::string line(sampleName);
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelResult& r = table.at(ch, Measure::OfType);
        AppendStatisticColumns(line, r.Min, r.Max, r.Mean, r.Sigma, r.Counts);
        line += ',';
    }
    return line;
}

void AppendStatisticColumns(std::string& line, double min, double max, double mean, double sigma, int64_t counts) {
    for (double v : {min, max, mean, sigma}) {
        line += ',';
        line += ShortestText(v);
    }
    line += ',';
    line += std::to_string(counts);
}

Outcome AppendCsvLines(std::string_view fileName, const std::string& header1, const std::string& header2,
                       std::vector<std::string>& lines) {
    // One append of whole lines: a failed write leaves the file as it was.
    std::string text;
    if (!FileExists(fileName)) text += header1 + "\r\n" + header2 + "\r\n";
    for (const auto& line : lines) text += line + "\r\n";
    Outcome appended = AppendToFile(fileName, ToNarrow(text));
    if (appended) lines.clear();
    return appended;
}

Outcome SaveResultLines(std::string_view fileName, const std::array<std::string, kChannels>& typeTexts,
                        std::vector<std::string>& lines) {
    if (!AppendCsvLines(fileName, ResultHeaderLine1(typeTexts), ResultHeaderLine2(), lines))
        return {ErrorCode::FileIo, kFailedToSaveTestResults};
    return Outcome::Ok();
}

Outcome SaveTestResults(std::string_view fileName, std::string_view sampleName,
                        const std::array<std::string, kChannels>& typeTexts, const ChannelResultTable& table) {
    std::vector<std::string> lines{ResultDataLine(sampleName, table)};
    return SaveResultLines(fileName, typeTexts, lines);
}

DetailSavePath SplitDetailSavePath(std::string_view path) {
    const size_t cut = path.find_last_of("\\/");
    DetailSavePath out;
    if (cut != std::string_view::npos) out.folder.assign(path.substr(0, cut));
    out.fileName.assign(cut == std::string_view::npos ? path : path.substr(cut + 1));
    out.waveBaseName = out.fileName.substr(0, out.fileName.size() > 4 ? out.fileName.size() - 4 : 0) + "_Wave";
    return out;
}

Outcome SaveDetailData(std::string_view fileName, Grid& grid) {
    RedrawOff off(grid);
    FileReplacer out(fileName);
    std::string text;
    for (int32_t r = 0; r < grid.rows(); ++r) {
        for (int32_t c = 0; c < grid.cols(); ++c) {
            if (c > 0) text += ',';
            text += grid.text(r, c);
        }
        text += "\r\n";
        if (text.size() >= (size_t{1} << 20)) {
            out.write(ToNarrow(text));
            text.clear();
        }
    }
    out.write(ToNarrow(text));
    return out.commit();
}

}  // namespace mervasto
