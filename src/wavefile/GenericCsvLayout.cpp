#include "wavefile/GenericCsvLayout.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <optional>

#include "common/DecimalScan.h"
#include "wavefile/GenericCsvHead.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

using namespace csvhead;

// What the rules have found so far in a head.
struct LayoutScan {
    struct Found {
        double value;
        uint64_t line;
    };
    enum class Use : uint8_t { Signal, Skip, Time };

    LayoutScan(const CsvHead& h, const std::string& n, double g, CsvLayout& layout)
        : head(h), name(n), given(g), L(layout), dataAt(h.dataAt), comment(h.lines.size(), 0) {}

    const CsvHead& head;
    const std::string& name;
    double given;  // the interval the user gave
    CsvLayout& L;
    size_t dataAt;
    size_t skip = 0;  // leading columns that hold no samples
    std::vector<uint8_t> comment;
    size_t headerFrom = kNone;  // the first header line
    size_t namesAt = kNone;     // the line naming the columns
    std::vector<Column> cols;   // per column; empty without a header
    std::vector<Use> use;
    size_t time = kNone;
    std::vector<Found> intervals;
    std::optional<Found> start;
    std::optional<uint64_t> unreadTimeLine;  // an interval, rate or start not understood

    std::string at(uint64_t lineNumber) const { return name + ", line " + std::to_string(lineNumber); }
    std::string atLine(size_t i) const { return at(head.lineNumbers[i]); }

    std::vector<std::string_view> fields(size_t i) const {
        std::vector<std::string_view> f;
        splitLine(head.lines[i], L.delim, f);
        return f;
    }
    // A header line's names: "Time (s)" split at its blank is one name.
    std::vector<std::string_view> headerFields(size_t i) const {
        std::vector<std::string_view> f = fields(i);
        if (L.delim != Delim::Blanks) return f;
        std::vector<std::string_view> merged;
        for (auto part : f) {
            if (!merged.empty() && (part.front() == '(' || part.front() == '['))
                merged.back() = std::string_view(merged.back().data(),
                                                 static_cast<size_t>(part.data() + part.size() - merged.back().data()));
            else
                merged.push_back(part);
        }
        return merged;
    }

    // A key and its value from line i; only the time base's keys are kept.
    void take(size_t i, std::string_view key, std::string_view value, bool decimalComma) {
        const MetaKey k = metaKeyOf(key);
        if (k.kind == MetaKind::None) return;
        const uint64_t line = head.lineNumbers[i];
        const std::optional<double> v = metaSeconds(value, k, decimalComma);
        if (!v) {
            if (!unreadTimeLine) unreadTimeLine = line;
        } else if (k.kind == MetaKind::Start) {
            if (!start) start = Found{*v, line};
        } else {
            intervals.push_back({*v, line});
        }
    }
    void takeLine(size_t i) {
        bool decimalComma = false;
        for (const Pair& p : pairsOf(head.lines[i], decimalComma)) take(i, p.key, p.value, decimalComma);
    }

    // The header: names on line n, their units on line u (or none); width
    // columns of it are the rows' columns.
    void setHeader(size_t n, size_t u, const std::vector<std::string_view>& names,
                   const std::vector<std::string_view>& units, size_t width) {
        headerFrom = std::min(n, u);
        namesAt = n;
        L.columns = std::max(L.columns, width);
        for (size_t c = 0; c < width; ++c) {
            Column col = parseColumnName(c < names.size() ? names[c] : std::string_view());
            if (c < units.size()) {
                if (const Unit unit = unitOf(units[c]); unit.known()) col.unit = unit;
            }
            cols.push_back(col);
            L.names.emplace_back(c < names.size() ? TrimCell(names[c]) : std::string_view());
        }
    }

    double knownInterval() const { return given > 0 ? given : L.interval; }
    // Refuses a head without a time base: with the line that tried to give
    // one, if any, else with text.
    [[noreturn]] void noInterval(const std::string& text) const {
        if (unreadTimeLine)
            fail(at(*unreadTimeLine) +
                 ": the sample interval (or rate) is not understood: expected seconds or a rate, such as 2e-05, "
                 "20 us or 50 kHz.");
        fail(text);
    }
    std::string label(size_t c) const { return ColumnLabel(L, c); }

    // The first column that may be the time: not skipped, no sample numbers.
    size_t timeCandidate() const {
        for (size_t c = skip; c < L.columns; ++c)
            if (c >= cols.size() || !isIndexColumn(cols[c])) return c;
        return kNone;
    }

    // Whether column c of the rows in the head steps by dt, as a time
    // column of that interval would: within 1 % and the finest digit printed
    // (exports drop trailing zeros), which must be fine enough to show it.
    bool stepsBy(size_t c, double dt) const {
        std::vector<double> values;
        int finest = INT_MAX;
        for (size_t i = dataAt; i < head.lines.size(); ++i) {
            const auto f = fields(i);
            if (c >= f.size()) return false;
            const std::string_view t = TrimCell(f[c]);
            Decimal d;
            const auto v = parseNumber(t, L.decimalComma);
            if (!v || ScanDecimal(t.data(), t.data() + t.size(), L.point(), d) == nullptr) return false;
            if (d.mantissa != 0) finest = std::min(finest, d.unitExp);
            values.push_back(*v);
        }
        const double unit = finest == INT_MAX ? 0.0 : PowerOfTen(finest);
        if (values.size() < 3 || unit > dt) return false;
        for (size_t i = 1; i < values.size(); ++i)
            if (std::fabs(values[i] - values[i - 1] - dt) > 0.01 * dt + unit) return false;
        return true;
    }
};

namespace {

bool byteOrderMark(LayoutScan& s) { return s.head.byteOrderMark; }

bool commentLines(LayoutScan& s) {
    bool any = false;
    for (size_t i = 0; i < s.dataAt; ++i)
        if (isCommentLine(s.head.lines[i])) {
            s.comment[i] = 1;
            s.takeLine(i);
            any = true;
        }
    return any;
}

// ",,,-0.0096,3.29": the samples sit in later columns, and the first ones
// hold key/value rows beside the samples of the first rows.
bool metadataBesideTheSamples(LayoutScan& s) {
    const auto row = s.fields(s.dataAt);
    size_t k = 0;
    while (k < row.size() && TrimCell(row[k]).empty()) ++k;
    if (k == 0 || k == row.size()) return false;
    s.skip = k;
    size_t top = s.dataAt;
    for (; top > 0 && !s.comment[top - 1]; --top) {
        const auto f = s.fields(top - 1);
        if (f.size() < row.size()) break;
        bool numbers = true;
        for (size_t c = k; c < row.size() && numbers; ++c) numbers = parseNumber(f[c], s.L.decimalComma).has_value();
        if (!numbers) break;
    }
    for (size_t i = top; i < s.dataAt; ++i) {
        const auto f = s.fields(i);
        if (k >= 2) s.take(i, f[0], f[1], s.L.decimalComma);
    }
    const bool found = top < s.dataAt;
    s.dataAt = top;
    return found;
}

// "X,CH1,CH2,Start,Increment" over "Sequence,Volt,Volt,-1e-02,2e-05": the
// names and units of the columns, then keys whose values stand below them.
bool startAndIncrementUnderTheNames(LayoutScan& s) {
    if (s.dataAt < 2) return false;
    const size_t n = s.dataAt - 2;
    const size_t u = s.dataAt - 1;
    if (s.comment[n] || s.comment[u] || s.head.blankAbove[u]) return false;
    const auto names = s.fields(n);
    const auto values = s.fields(u);
    const size_t w = s.L.columns;
    if (names.size() != values.size() || names.size() <= w) return false;
    for (size_t c = w; c < names.size(); ++c)
        if (metaKeyOf(names[c]).kind == MetaKind::None || TrimCell(values[c]).empty()) return false;
    for (size_t c = 0; c < w; ++c)
        if (!TrimCell(values[c]).empty() && !unitOf(values[c]).known()) return false;
    for (size_t c = w; c < names.size(); ++c) s.take(u, names[c], values[c], s.L.decimalComma);
    s.setHeader(n, u, names, values, w);
    return true;
}

// "CH1,CH2,t0 = -0.01s, tInc = 2e-05": keys and values after the names.
bool startAndIncrementInTheHeader(LayoutScan& s) {
    if (s.headerFrom != kNone || s.dataAt < 1 || s.comment[s.dataAt - 1]) return false;
    const size_t h = s.dataAt - 1;
    const auto f = s.fields(h);
    const size_t w = s.L.columns;
    if (f.size() <= w || s.L.delim == Delim::Blanks) return false;
    bool any = false;
    for (size_t c = w; c < f.size(); ++c) {
        const std::string_view cell = TrimCell(f[c]);
        if (cell.empty()) continue;
        const size_t eq = cell.find_first_of("=:");
        if (eq == std::string_view::npos) return false;
        any |= metaKeyOf(cell.substr(0, eq)).kind != MetaKind::None;
    }
    if (!any) return false;
    for (size_t c = w; c < f.size(); ++c) {
        const std::string_view cell = TrimCell(f[c]);
        if (const size_t eq = cell.find_first_of("=:"); eq != std::string_view::npos)
            s.take(h, cell.substr(0, eq), cell.substr(eq + 1), s.L.decimalComma);
    }
    s.setHeader(h, h, f, {}, w);
    return true;
}

// "Time,CH1" over "s,V".
bool unitsUnderTheNames(LayoutScan& s) {
    if (s.headerFrom != kNone || s.dataAt < 2) return false;
    const size_t n = s.dataAt - 2;
    const size_t u = s.dataAt - 1;
    if (s.comment[n] || s.comment[u] || s.head.blankAbove[u]) return false;
    const auto units = s.headerFields(u);
    const auto names = s.headerFields(n);
    if (units.size() < s.L.columns || names.size() != units.size() || !looksLikeUnitsLine(units) ||
        isDataLike(s.head.lines[n]) || isMetadataLine(names))
        return false;
    s.setHeader(n, u, names, units, names.size());
    return true;
}

// "Time(s),CH1(V),CH2(mV)". It may name columns whose cells are all empty
// (and so were cut from the rows): those are refused with the first row.
bool oneHeaderLine(LayoutScan& s) {
    if (s.headerFrom != kNone || s.dataAt < 1 || s.comment[s.dataAt - 1]) return false;
    const size_t h = s.dataAt - 1;
    const auto f = s.headerFields(h);
    if (isDataLike(s.head.lines[h]) || isMetadataLine(f) ||
        !(f.size() == s.L.columns || (f.size() > s.L.columns && s.L.delim != Delim::Blanks)))
        return false;
    s.setHeader(h, h, f, {}, f.size());
    return true;
}

// "Record Length,20000", "Sample Interval,2e-05" above the header.
bool metadataAboveTheHeader(LayoutScan& s) {
    const size_t end = s.headerFrom != kNone ? s.headerFrom : s.dataAt;
    bool any = false;
    for (size_t i = 0; i < end; ++i)
        if (!s.comment[i]) {
            s.takeLine(i);
            any = true;
        }
    return any;
}

// "; Samplerate: 1 MHz", "Sample Interval,2.0E-05", "dt: 1 us". Two that
// disagree leave the time base unknown.
bool intervalOrRateInTheHead(LayoutScan& s) {
    if (s.intervals.empty()) return false;
    const LayoutScan::Found& first = s.intervals.front();
    for (const LayoutScan::Found& f : s.intervals)
        if (std::fabs(f.value - first.value) > 0.01 * first.value)
            fail(s.at(f.line) + ": the sample interval is " + ShortestText(f.value) + " s here but " +
                 ShortestText(first.value) + " s in line " + std::to_string(first.line) +
                 "; which one holds cannot be told.");
    s.L.interval = first.value;
    s.L.intervalLine = first.line;
    return true;
}

bool timeColumnNamed(LayoutScan& s, bool byUnitAlone) {
    const size_t c = s.timeCandidate();
    if (s.time != kNone || c == kNone || c >= s.cols.size()) return false;
    const Column& col = s.cols[c];
    if (!isTimeName(col) || col.name.empty() != byUnitAlone) return false;
    s.time = c;
    return true;
}

// "Time(s)", "TIME", "x-axis", "t".
bool timeColumnByName(LayoutScan& s) { return timeColumnNamed(s, false); }

// "s", "ms", "(s)", "[µs]", "in s", "Second".
bool timeColumnByItsUnit(LayoutScan& s) { return timeColumnNamed(s, true); }

// "index", "No.", "Sequence", "Sample": never a signal. It is the time base
// when the interval is known and no column gives the time.
bool sampleNumberColumn(LayoutScan& s) {
    s.use.resize(s.L.columns);
    size_t first = kNone;
    for (size_t c = s.skip; c < s.cols.size(); ++c)
        if (isIndexColumn(s.cols[c])) {
            if (first == kNone) first = c;
            s.use[c] = LayoutScan::Use::Skip;
        }
    if (first == kNone || s.time != kNone) return first != kNone;
    const double dt = s.knownInterval();
    if (!(dt > 0))
        s.noInterval(s.atLine(s.namesAt) + ": " + s.label(first) +
                     " numbers the samples, and no line gives the sample interval: expected a \"Sample Interval\" "
                     "or \"Sample Rate\" line, an \"Increment\" column, or the interval given with "
                     "--import-interval.");
    s.time = first;
    s.L.timeFromIndex = true;
    s.L.timeFactor = dt;
    return true;
}

// Columns of numbers alone: the first is the time unless the interval is
// known, and then only when it steps by that interval.
bool timeInTheFirstColumn(LayoutScan& s) {
    if (s.headerFrom != kNone || s.time != kNone || s.L.columns < s.skip + 2) return false;
    if (const double dt = s.knownInterval(); dt > 0 && !s.stepsBy(s.skip, dt)) return false;
    s.time = s.skip;
    return true;
}

constexpr LayoutRule kRules[] = {
    {"byte-order mark", byteOrderMark},
    {"comment lines", commentLines},
    {"metadata beside the samples", metadataBesideTheSamples},
    {"start and increment under the names", startAndIncrementUnderTheNames},
    {"start and increment in the header line", startAndIncrementInTheHeader},
    {"units under the names", unitsUnderTheNames},
    {"one header line", oneHeaderLine},
    {"metadata above the header", metadataAboveTheHeader},
    {"interval or rate in the head", intervalOrRateInTheHead},
    {"time column by name", timeColumnByName},
    {"time column by its unit", timeColumnByItsUnit},
    {"sample-number column", sampleNumberColumn},
    {"time in the first column", timeInTheFirstColumn},
};

// The columns' uses into the layout, once every rule has had its say.
void settleColumns(LayoutScan& s) {
    CsvLayout& L = s.L;
    for (size_t c = 0; c < s.skip; ++c) s.use[c] = LayoutScan::Use::Skip;
    if (s.time != kNone) s.use[s.time] = LayoutScan::Use::Time;
    L.timeColumn = s.time != kNone;
    if (L.timeColumn && !L.timeFromIndex && s.time < s.cols.size() && s.cols[s.time].unit.kind == UnitKind::Time)
        L.timeFactor = s.cols[s.time].unit.factor;

    size_t signals = 0;
    size_t used = 0;
    for (size_t c = 0; c < L.columns; ++c) {
        if (s.use[c] == LayoutScan::Use::Skip) continue;
        if (s.use[c] == LayoutScan::Use::Signal && signals == static_cast<size_t>(kMaxImportSignals)) {
            ++L.ignoredColumns;
            continue;
        }
        L.roles.resize(c + 1, kSkipColumn);
        if (s.use[c] == LayoutScan::Use::Time) {
            L.roles[c] = kTimeColumn;
        } else {
            L.roles[c] = static_cast<int8_t>(signals++);
            L.signalFactor.push_back(c < s.cols.size() && s.cols[c].unit.kind == UnitKind::Volt ? s.cols[c].unit.factor
                                                                                                : 1.0);
        }
        used = c + 1;
    }
    L.roles.resize(used);
    if (signals == 0) fail(s.name + ": no signal column follows the time column.");

    const bool needsStart = !L.timeColumn || L.timeFromIndex;
    if (needsStart && s.start) {
        L.start = s.start->value;
        L.hasStart = true;
    }
    if (L.timeColumn || s.knownInterval() > 0) return;
    if (s.namesAt != kNone)
        s.noInterval(s.atLine(s.namesAt) +
                     ": no column here is the time (such as \"Time\", \"s\" or \"Time [ms]\") and no line gives "
                     "the sample interval: expected one of them, or the interval given with --import-interval.");
    s.noInterval(s.name +
                 ": no time column and no sample interval: give it with --import-interval or a \"Sample Interval\" "
                 "line.");
}

}  // namespace

std::span<const LayoutRule> LayoutRules() { return kRules; }

std::string_view TrimCell(std::string_view s) {
    while (!s.empty() && (IsCellBlank(s.front()) || s.front() == '"')) s.remove_prefix(1);
    while (!s.empty() && (IsCellBlank(s.back()) || s.back() == '"')) s.remove_suffix(1);
    return s;
}

CsvHead ReadCsvHead(LineScanner& in, const std::string& name) {
    CsvHead head;
    size_t run = 0;
    bool blank = false;
    std::string_view line;
    bool more = true;
    bool cut = false;  // at the end of the bytes the layout is told from
    while (run < kDataRunToTrust && !(cut = in.position() >= kLayoutBytes) && (more = in.next(line))) {
        if (in.lineNumber() == 1 && line.starts_with(kByteOrderMark)) {
            line.remove_prefix(kByteOrderMark.size());
            head.byteOrderMark = true;
        }
        if (TrimCell(line).empty()) {
            blank = true;
            continue;
        }
        head.lines.emplace_back(line);
        head.lineNumbers.push_back(in.lineNumber());
        head.blankAbove.push_back(blank ? 1 : 0);
        blank = false;
        run = isDataLike(line) ? run + 1 : 0;
    }
    // The rows start at the first two rows of numbers in a row (or a last
    // one); a stray numeric line in a metadata block is taken for neither.
    const std::vector<std::string>& lines = head.lines;
    head.dataAt = lines.size();
    for (size_t i = 0; i < lines.size(); ++i)
        if (isDataLike(lines[i]) && (i + 1 == lines.size() || isDataLike(lines[i + 1]))) {
            head.dataAt = i;
            break;
        }
    if (head.dataAt == lines.size() || (run == 0 && more))
        fail(name +
             ": not a wave file: neither the program's own header nor rows of numbers under a header were "
             "found" +
             (cut ? " in its first 64 KiB." : "."));
    return head;
}

CsvLayout ReadCsvLayout(const CsvHead& head, double givenInterval, const std::string& name) {
    CsvLayout L;
    LayoutScan s(head, name, givenInterval, L);
    const std::string_view firstRow = head.lines[s.dataAt];
    const std::string_view headerGuess = s.dataAt > 0 ? std::string_view(head.lines[s.dataAt - 1]) : std::string_view();
    L.delim = detectDelim(firstRow, headerGuess);
    L.columns = s.fields(s.dataAt).size();
    if (L.delim != Delim::Comma)
        for (size_t i = s.dataAt; i < head.lines.size(); ++i)
            if (head.lines[i].find(',') != std::string::npos) L.decimalComma = true;

    for (const LayoutRule& rule : kRules)
        if (rule.applies(s)) L.recognised.push_back(rule.name);
    s.use.resize(L.columns);
    settleColumns(s);
    L.rowsAt = s.dataAt;
    return L;
}

std::string ColumnLabel(const CsvLayout& L, size_t c) {
    std::string s = "column " + std::to_string(c + 1);
    if (c < L.names.size() && !L.names[c].empty()) s += " (\"" + FromNarrow(L.names[c]) + "\")";
    return s;
}

std::string LayoutText(const CsvLayout& L, double interval) {
    const size_t signals = L.signalFactor.size();
    std::string text = std::string("generic CSV (") + delimName(L.delim) + " separated, decimal " +
                       (L.decimalComma ? "comma" : "point") + ", " +
                       (L.timeFromIndex ? "sample numbers every " + ShortestText(interval) + " s"
                        : L.timeColumn  ? std::string("time column")
                                        : "interval " + ShortestText(interval) + " s") +
                       ", " + std::to_string(signals) + " signal column" + (signals == 1 ? "" : "s") + ")";
    for (size_t i = 0; i < L.recognised.size(); ++i) text += (i ? ", " : "; ") + std::string(L.recognised[i]);
    return text;
}

}  // namespace mervasto
