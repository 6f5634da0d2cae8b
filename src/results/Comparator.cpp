#include "results/Comparator.h"

#include <array>
#include <cmath>
#include <limits>
#include <optional>

#include "analysis/CycleQuantity.h"
#include "common/LineScanner.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "results/SiFormat.h"

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

// The header and the width (in base widths) of each column, in column order.
struct Column {
    const char* header;
    double width;
};
constexpr std::array<Column, kCycleGridCols> kColumns = {{{"Ch", 0.5},
                                                          {"Signal", 1.2},
                                                          {"Total", 1.0},
                                                          {"LL", 1.0},
                                                          {"UL", 1.0},
                                                          {"Go/NG", 0.8},
                                                          {"Value LL", 1.1},
                                                          {"Value UL", 1.1}}};

bool isLimitColumn(int32_t col) {
    return col == kCycleColLL || col == kCycleColUL || col == kCycleColValueLL || col == kCycleColValueUL;
}

const char* rowUnit(const CycleGridRow& row, const ChannelDisplays& channels) {
    return QuantityOf(row.kind, channels[static_cast<size_t>(row.channel)].typeIndex).unit;
}

// Value limits as the grid shows them: empty while neither is set, so a
// row without them reads as it always did.
std::string valueLimitText(float limit, const ChannelResult& r, const char* unit) {
    if (r.ValueLimit1 == 0 && r.ValueLimit2 == 0) return {};
    return SiText(limit, unit, 6);
}

void writeRow(Grid& grid, int32_t row, const CycleGridRow& ref, const ChannelDisplays& channels,
              const ChannelResult& r) {
    const ChannelDisplay& cd = channels[static_cast<size_t>(ref.channel)];
    std::vector<std::string> texts(kCycleGridCols);
    texts[kCycleColCh] = std::to_string(ref.channel + 1);
    texts[kCycleColSignal] = cd.typeText;
    texts[kCycleColTotal] = std::to_string(r.Counts);
    if (ref.limits) {
        if (ref.countJudged) {
            texts[kCycleColLL] = std::to_string(r.LL);
            texts[kCycleColUL] = std::to_string(r.UL);
        }
        const char* unit = rowUnit(ref, channels);
        texts[kCycleColValueLL] = valueLimitText(r.ValueLimit1, r, unit);
        texts[kCycleColValueUL] = valueLimitText(r.ValueLimit2, r, unit);
    }
    const bool go = CheckLimits(r, ref.countJudged).go();
    texts[kCycleColVerdict] = go ? kVerdictGo : kVerdictNg;
    SetGridRow(grid, row, 0, kCycleGridCols - 1, texts);
    for (int32_t c = 0; c < kCycleGridCols; ++c) grid.setCellColour(row, c, channelColour(cd));
    if (!go) grid.setCellColour(row, kCycleColVerdict, {kNgBackColour, kNgForeColour});
}

// A limit typed into a cell, or why it cannot be one.
std::optional<std::string> readLimit(int32_t col, std::string_view text, const char* unit, ChannelResult& r) {
    const char* name = kColumns[static_cast<size_t>(col)].header;
    const std::string refused = std::string(name) + " cannot be \"" + std::string(text) + "\": ";
    if (col == kCycleColLL || col == kCycleColUL) {
        double v = 0;
        try {
            v = NumberText(text);
        } catch (const RuntimeError&) {
            return refused + kLimitTakesWhole;
        }
        if (!(v >= INT32_MIN && v <= INT32_MAX) || v != RoundHalfEven(v)) return refused + kLimitTakesWhole;
        (col == kCycleColLL ? r.LL : r.UL) = static_cast<int32_t>(v);
        return std::nullopt;
    }
    const std::optional<double> v = TrimBlanks(text).empty() ? 0.0 : ReadSiText(text, unit);
    if (!v || std::fabs(*v) > std::numeric_limits<float>::max())
        return refused + kLimitTakesValueHead + (*unit ? unit : "plain numbers") + kLimitTakesValueTail;
    (col == kCycleColValueLL ? r.ValueLimit1 : r.ValueLimit2) = static_cast<float>(*v);
    return std::nullopt;
}

}  // namespace

std::string CycleRowName(const CycleGridRow& row, const ChannelDisplays& channels) {
    // By Measure; the kind of the channel's own type is named after it.
    static constexpr std::array<const char*, kKinds> kNames = {"Pulse width", "Duty",      "",   "Period",
                                                               "Frequency",   "Amplitude", "RMS"};
    const ChannelDisplay& cd = channels[static_cast<size_t>(row.channel)];
    std::string name =
        row.kind == Measure::OfType ? "Ch Type: " + cd.typeText : std::string(kNames[static_cast<size_t>(row.kind)]);
    if (const char* unit = rowUnit(row, channels); *unit) name += std::string(" (") + unit + ")";
    return name;
}

std::string CycleRowTip(const CycleGridRow& row, const ChannelDisplays& channels) {
    std::string tip = "Ch" + std::to_string(row.channel + 1) + ", " + CycleRowName(row, channels);
    if (!row.limits) return tip + ": no limits on this channel.";
    if (row.countJudged) tip += ": LL and UL judge the count of cycles (Total)";
    return tip + (row.countJudged ? "; " : ": ") + "Value LL and Value UL judge every cycle's value.";
}

bool JudgeCount(int32_t count, int32_t LL, int32_t UL) { return !(count > UL || count < LL); }

bool ValueLimitsSet(const ChannelResult& r) { return r.ValueLimit1 < r.ValueLimit2; }

LimitCheck CheckLimits(const ChannelResult& r, bool countJudged) {
    LimitCheck c;
    if (countJudged) {
        c.belowLL = r.Counts < r.LL;
        c.aboveUL = r.Counts > r.UL;
    }
    if (ValueLimitsSet(r) && r.Measured > 0) {
        c.belowValueLL = static_cast<float>(r.Lowest) < r.ValueLimit1;
        c.aboveValueUL = static_cast<float>(r.Highest) > r.ValueLimit2;
    }
    return c;
}

void JudgeAll(ChannelResultTable& table) {
    for (ChannelResult& r : table.cell) r.Go = CheckLimits(r).go();
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
    for (int32_t c = 0; c < kCycleGridCols; ++c) {
        const Column& column = kColumns[static_cast<size_t>(c)];
        SetGridCell(grid, 0, c, column.header);
        grid.colWidth[static_cast<size_t>(c)] = static_cast<int32_t>(kBaseColumnWidth * column.width);
    }
}

namespace {

std::vector<CycleGridRow> fillGrid(Grid& grid, const ChannelDisplays& channels, std::vector<CycleGridRow> rows,
                                   ChannelResultTable& table) {
    RedrawOff off(grid);
    if (grid.cols() != kCycleGridCols || grid.rows() < 1) SetupDetailCycleGrid(grid);
    grid.clearColours();
    grid.setRows(1 + static_cast<int32_t>(rows.size()));
    for (size_t i = 0; i < rows.size(); ++i) {
        ChannelResult& r = table.at(rows[i].channel, rows[i].kind);
        if (rows[i].countJudged) r.Go = CheckLimits(r).go();
        writeRow(grid, 1 + static_cast<int32_t>(i), rows[i], channels, r);
    }
    return rows;
}

}  // namespace

std::vector<CycleGridRow> BuildDetailCycleGrid(Grid& grid, const ChannelDisplays& channels, ChannelResultTable& table,
                                               std::span<const Measure> kinds) {
    std::vector<CycleGridRow> rows;
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        if (!cd.shown()) continue;
        for (Measure kind : kinds) rows.push_back({ch, kind, !cd.isGate() && cd.typeText != kRowNoLimits});
    }
    return fillGrid(grid, channels, std::move(rows), table);
}

std::vector<CycleGridRow> BuildVerdictGrid(Grid& grid, const ChannelDisplays& channels,
                                           const ChannelResultTable& table) {
    std::vector<CycleGridRow> rows;
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        if (!cd.shown()) continue;
        const bool limits = !cd.isGate() && cd.typeText != kRowNoLimits;
        rows.push_back({ch, kLimitKinds[0], limits});
        for (Measure kind : kMeasures)
            if (limits && kind != kLimitKinds[0] && ValueLimitsSet(table.at(ch, kind)))
                rows.push_back({ch, kind, true, false});
    }
    ChannelResultTable judged = table;
    return fillGrid(grid, channels, std::move(rows), judged);
}

Outcome EditDetailCycleLimit(Grid& grid, const std::vector<CycleGridRow>& rows, const ChannelDisplays& channels,
                             ChannelResultTable& table, int32_t row, int32_t col, std::string_view text) {
    if (!isLimitColumn(col) || row < 1 || static_cast<size_t>(row) > rows.size() ||
        !rows[static_cast<size_t>(row - 1)].limits)
        return {ErrorCode::Canceled, "This cell takes no limit."};
    const CycleGridRow& ref = rows[static_cast<size_t>(row - 1)];
    ChannelResult& r = table.at(ref.channel, ref.kind);
    RedrawOff off(grid);
    if (const std::optional<std::string> refused = readLimit(col, text, rowUnit(ref, channels), r)) {
        SetGridCell(grid, row, col, text);
        grid.setCellColour(row, col, {kNgBackColour, kNgForeColour});
        grid.setCellNote(row, col, *refused);
        return {ErrorCode::BadOption, *refused};
    }
    r.Go = CheckLimits(r).go();
    writeRow(grid, row, ref, channels, r);
    if (!r.Go) GenNGPulse(0, true);
    return Outcome::Ok();
}

std::vector<std::string> LimitWarnings(const std::vector<CycleGridRow>& rows, const ChannelResultTable& table) {
    std::vector<std::string> warnings;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!rows[i].limits) continue;
        const ChannelResult& r = table.at(rows[i].channel, rows[i].kind);
        const std::string where = "Row " + std::to_string(i + 1) + " (Ch" + std::to_string(rows[i].channel + 1) + "): ";
        if (rows[i].countJudged && r.LL > r.UL)
            warnings.push_back(where + "LL " + std::to_string(r.LL) + " is above UL " + std::to_string(r.UL) +
                               ", so every count is NG.");
        if (!ValueLimitsSet(r) && !(r.ValueLimit1 == 0 && r.ValueLimit2 == 0))
            warnings.push_back(where + "Value LL is not below Value UL, so the values are not judged.");
    }
    return warnings;
}

void GenNGPulse(int32_t DeviceId, bool flag) {}

}  // namespace mervasto
