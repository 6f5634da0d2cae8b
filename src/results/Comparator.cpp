#include "results/Comparator.h"

#include <optional>

#include "common/LineScanner.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

// One parsed line; absent fields keep the stored values.
struct LimitLine {
    int channel = 0;
    std::optional<int32_t> LL, UL;
    std::optional<float> limit[4];  // PulseWidth first/second, Duty first/second
};

// Too many fields is no bad character: SplitFields' fault goes to the caller.
std::optional<LimitLine> parseLine(std::string_view line) {
    const std::vector<std::string> f = SplitFields(line);
    try {
        LimitLine out;
        const int32_t ch = ToInt32(NumberText(f[0]));
        if (ch < 1 || ch > kResultChannels) return std::nullopt;
        out.channel = ch - 1;
        auto field = [&](size_t i) -> const std::string* { return i < f.size() && !f[i].empty() ? &f[i] : nullptr; };
        if (auto s = field(1)) out.LL = ToInt32(NumberText(*s));
        if (auto s = field(2)) out.UL = ToInt32(NumberText(*s));
        for (size_t i = 0; i < 4; ++i) {
            if (auto s = field(3 + i)) out.limit[i] = ToSingle(NumberText(*s));
        }
        return out;
    } catch (const RuntimeError&) {
        return std::nullopt;
    }
}

void apply(const LimitLine& l, ChannelResultTable& table) {
    ChannelResult& k0 = table.at(l.channel, Measure::PulseWidth);
    ChannelResult& k1 = table.at(l.channel, Measure::Duty);
    if (l.LL) k0.LL = *l.LL;
    if (l.UL) k0.UL = *l.UL;
    if (l.limit[0]) k0.ValueLimit1 = *l.limit[0];
    if (l.limit[1]) k0.ValueLimit2 = *l.limit[1];
    if (l.limit[2]) k1.ValueLimit1 = *l.limit[2];
    if (l.limit[3]) k1.ValueLimit2 = *l.limit[3];
}

CellColour channelColour(const ChannelDisplay& cd) { return {cd.backColour, cd.foreColour}; }

void writeRow(Grid& grid, int32_t row, const CycleGridRow& ref, const ChannelDisplay& cd, const ChannelResult& r) {
    std::vector<std::string> texts(kCycleGridCols);
    texts[0] = std::to_string(ref.channel + 1);
    texts[1] = cd.typeText;
    texts[2] = std::to_string(r.Counts);
    if (ref.limits) {
        texts[kCycleColLL] = std::to_string(r.LL);
        texts[kCycleColUL] = std::to_string(r.UL);
    }
    const bool go = r.Go;
    texts[kCycleColVerdict] = go ? kVerdictGo : kVerdictNg;
    SetGridRow(grid, row, 0, kCycleGridCols - 1, texts);
    for (int32_t c = 0; c < kCycleGridCols; ++c) grid.setCellColour(row, c, channelColour(cd));
    if (!go) grid.setCellColour(row, kCycleColVerdict, {kNgBackColour, kNgForeColour});
}

}  // namespace

bool JudgeCount(int32_t count, int32_t LL, int32_t UL) { return !(count > UL || count < LL); }

void JudgeAll(ChannelResultTable& table) {
    for (ChannelResult& r : table.cell) r.Go = JudgeCount(r.Counts, r.LL, r.UL);
}

namespace {

// Lines end at LF only; a CR anywhere in a line is dropped.
Outcome loadLines(LineScanner& in, ChannelResultTable& table) {
    in.setLineEnds(LineScanner::LineEnds::LfOnly);
    std::string_view raw;
    std::string line;
    while (in.next(raw)) {
        line.clear();
        for (char c : raw)
            if (c != '\r') line += c;
        if (line.empty() || line[0] == '%') continue;
        const std::optional<LimitLine> parsed = parseLine(FromNarrow(line));
        if (!parsed) return {ErrorCode::TypeMismatch, kIllegalCharacter};
        apply(*parsed, table);
    }
    return Outcome::Ok();
}

Outcome guardedLoad(LineScanner& in, std::string_view name, ChannelResultTable& table) {
    try {
        return loadLines(in, table);
    } catch (const RuntimeError& e) {
        // A line too long or of too many fields: the limits before it stay.
        std::string where = name.empty() ? "Line " : std::string(name) + ", line ";
        return {e.code(), where + std::to_string(in.lineNumber()) + ": " + e.what()};
    }
}

}  // namespace

Outcome LoadComparatorText(std::string_view text, ChannelResultTable& table) {
    LineScanner in;
    in.openBytes(text);
    return guardedLoad(in, {}, table);
}

Outcome LoadComparatorFile(std::string_view path, ChannelResultTable& table) {
    LineScanner in;
    try {
        in.open(path);
    } catch (const RuntimeError&) {
        return {ErrorCode::FileNotFound, kNoFile};
    }
    return guardedLoad(in, path, table);
}

void SetupDetailCycleGrid(Grid& grid) {
    RedrawOff off(grid);
    grid = Grid(1, kCycleGridCols, 1, 0);
    const std::vector<std::string> head = {"Ch", "Signal", "Total", "LL", "UL", "Go/NG"};
    SetGridRow(grid, 0, 0, kCycleGridCols - 1, head);
    const double factor[kCycleGridCols] = {0.5, 1.2, 1.0, 1.0, 1.0, 0.8};
    for (int32_t c = 0; c < kCycleGridCols; ++c) {
        grid.colWidth[static_cast<size_t>(c)] = static_cast<int32_t>(kBaseColumnWidth * factor[c]);
    }
}

std::vector<CycleGridRow> BuildDetailCycleGrid(Grid& grid, const ChannelDisplays& channels, ChannelResultTable& table,
                                               std::span<const Measure> kinds) {
    RedrawOff off(grid);
    if (grid.cols() != kCycleGridCols || grid.rows() < 1) SetupDetailCycleGrid(grid);
    std::vector<CycleGridRow> rows;
    for (int ch = 0; ch < kAnaChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        if (!cd.shown()) continue;
        for (Measure kind : kinds) {
            rows.push_back({ch, kind, !cd.isGate() && cd.typeText != kRowNoLimits});
        }
    }
    grid.clearColours();
    grid.setRows(1 + static_cast<int32_t>(rows.size()));
    for (size_t i = 0; i < rows.size(); ++i) {
        ChannelResult& r = table.at(rows[i].channel, rows[i].kind);
        r.Go = JudgeCount(r.Counts, r.LL, r.UL);
        writeRow(grid, 1 + static_cast<int32_t>(i), rows[i], channels[static_cast<size_t>(rows[i].channel)], r);
    }
    return rows;
}

bool EditDetailCycleLimit(Grid& grid, const std::vector<CycleGridRow>& rows, const ChannelDisplays& channels,
                          ChannelResultTable& table, int32_t row, int32_t col, std::string_view text) {
    if (col != kCycleColLL && col != kCycleColUL) return false;
    if (row < 1 || static_cast<size_t>(row) > rows.size()) return false;
    const CycleGridRow& ref = rows[static_cast<size_t>(row - 1)];
    if (!ref.limits) return false;
    const int32_t value = ToInt32(Val(text));
    ChannelResult& r = table.at(ref.channel, ref.kind);
    (col == kCycleColLL ? r.LL : r.UL) = value;
    r.Go = JudgeCount(r.Counts, r.LL, r.UL);
    RedrawOff off(grid);
    writeRow(grid, row, ref, channels[static_cast<size_t>(ref.channel)], r);
    if (!r.Go) GenNGPulse(0, true);
    return true;
}

void GenNGPulse(int32_t DeviceId, bool flag) {}

}  // namespace mervasto
