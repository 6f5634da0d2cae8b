#include "wavefile/GenericCsvLayout.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <optional>

#include "common/DecimalScan.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

// Rows read past the first before the layout is decided: enough to see
// whether a column steps like a time.
constexpr size_t kDataRunToTrust = 8;
constexpr size_t kNone = static_cast<size_t>(-1);
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void fail(const std::string& text) { throw RuntimeError(ErrorCode::TypeMismatch, text); }

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// A row of numbers: digits, signs, points, commas, exponents and separators;
// empty leading cells are allowed.
bool isDataLike(std::string_view line) {
    line = TrimCell(line);
    if (line.empty()) return false;
    bool digit = false;
    for (char c : line) {
        if (isDigit(c))
            digit = true;
        else if (!(c == '+' || c == '-' || c == '.' || c == ',' || c == ';' || c == 'e' || c == 'E' || IsCellBlank(c)))
            return false;
    }
    const char first = line.front();
    return digit && (isDigit(first) || first == '+' || first == '-' || first == '.' || first == ',' || first == ';');
}

bool isCommentLine(std::string_view line) {
    line = TrimCell(line);
    return line.starts_with('#') || line.starts_with("//") || line.starts_with('%') ||
           (line.starts_with(';') && !isDataLike(line));
}

std::string_view withoutCommentMark(std::string_view s) {
    s = TrimCell(s);
    while (!s.empty() && (s.front() == '#' || s.front() == ';' || s.front() == '/' || s.front() == '%'))
        s = TrimCell(s.substr(1));
    return s;
}

const char* delimName(Delim d) {
    switch (d) {
    case Delim::Comma: return "comma";
    case Delim::Semicolon: return "semicolon";
    case Delim::Tab: return "tab";
    case Delim::Blanks: return "blanks";
    }
    return "";
}

void splitLine(std::string_view line, Delim d, std::vector<std::string_view>& out) {
    out.clear();
    if (d == Delim::Blanks) {
        size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && IsCellBlank(line[i])) ++i;
            if (i == line.size()) break;
            size_t j = i;
            while (j < line.size() && !IsCellBlank(line[j])) ++j;
            out.push_back(line.substr(i, j - i));
            if (out.size() > kMaxFields) TooManyFields();
            i = j;
        }
        return;
    }
    const char sep = d == Delim::Comma ? ',' : d == Delim::Semicolon ? ';' : '\t';
    size_t start = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == sep) {
            out.push_back(line.substr(start, i - start));
            start = i + 1;
        }
    }
    out.push_back(line.substr(start));
    if (out.size() > kMaxFields) TooManyFields();
    // Some exports end every line with the separator.
    while (out.size() > 1 && TrimCell(out.back()).empty()) out.pop_back();
}

// Parses a whole field as a number; nullopt when it is not one.
std::optional<double> parseNumber(std::string_view field, bool decimalComma) {
    field = TrimCell(field);
    double value = 0;
    if (!ParseDecimal(field.data(), field.data() + field.size(), decimalComma ? ',' : '.', value) ||
        !std::isfinite(value))
        return std::nullopt;
    return value;
}

enum class UnitKind : uint8_t { None, Volt, Time, Rate, Count };

struct Unit {
    double factor = 1;
    UnitKind kind = UnitKind::None;
    bool known() const { return kind != UnitKind::None; }
};

Unit unitOf(std::string_view text) {
    const std::string u = lower(TrimCell(text));
    // Spellings of each unit; "µ" as UTF-8 (micro sign or Greek mu) or Latin-1.
    struct Entry {
        std::array<const char*, 4> names;
        double factor;
        UnitKind kind;
    };
    static const Entry kUnits[] = {
        {{"v", "volt", "volts"}, 1, UnitKind::Volt},
        {{"mv"}, 1e-3, UnitKind::Volt},
        {{"uv", "\xC2\xB5v", "\xCE\xBCv", "\xB5v"}, 1e-6, UnitKind::Volt},
        {{"kv"}, 1e3, UnitKind::Volt},
        {{"s", "sec", "second", "seconds"}, 1, UnitKind::Time},
        {{"ms"}, 1e-3, UnitKind::Time},
        {{"us", "\xC2\xB5s", "\xCE\xBCs", "\xB5s"}, 1e-6, UnitKind::Time},
        {{"ns"}, 1e-9, UnitKind::Time},
        {{"ps"}, 1e-12, UnitKind::Time},
        {{"hz", "sa/s", "s/s", "sps"}, 1, UnitKind::Rate},
        {{"khz", "ksa/s", "ks/s", "ksps"}, 1e3, UnitKind::Rate},
        // Lower case makes "MHz" "mhz"; no sample rate is in millihertz.
        {{"mhz", "msa/s", "msps"}, 1e6, UnitKind::Rate},
        {{"ghz", "gsa/s", "gs/s", "gsps"}, 1e9, UnitKind::Rate},
        {{"sequence"}, 1, UnitKind::Count},
    };
    for (const auto& e : kUnits)
        for (const char* name : e.names)
            if (name != nullptr && u == name) return {e.factor, e.kind};
    return {};
}

struct Column {
    std::string name;  // lower case, without its unit
    Unit unit;
};

// "Time(s)", "CH1 [mV]", "Time in ms", "t/s", "Volt" or "µs" (a unit alone).
Column parseColumnName(std::string_view text) {
    Column c;
    std::string_view t = TrimCell(text);
    if (const Unit alone = unitOf(t); alone.known()) {
        c.unit = alone;
        return c;
    }
    if (!t.empty() && (t.back() == ')' || t.back() == ']')) {
        const size_t open = t.find_last_of(t.back() == ')' ? '(' : '[');
        if (open != std::string_view::npos) {
            c.unit = unitOf(t.substr(open + 1, t.size() - open - 2));
            t = TrimCell(t.substr(0, open));
        }
    }
    c.name = lower(t);
    if (c.unit.known()) return c;
    const std::string& n = c.name;
    auto unitAfter = [&](size_t at, size_t mark) {
        if (const Unit u = unitOf(std::string_view(n).substr(at + mark)); u.known()) {
            c.unit = u;
            c.name = std::string(TrimCell(std::string_view(n).substr(0, at)));
        }
    };
    if (n.starts_with("in "))
        unitAfter(0, 3);
    else if (const size_t in = n.rfind(" in "); in != std::string::npos)
        unitAfter(in, 4);
    else if (const size_t slash = n.rfind('/'); slash != std::string::npos && slash > 0)
        unitAfter(slash, 1);
    return c;
}

bool isTimeName(const Column& c) {
    static const char* kNames[] = {"time", "x-axis", "t"};
    for (const char* n : kNames)
        if (c.name == n) return true;
    return c.name.starts_with("time") || (c.name.empty() && c.unit.kind == UnitKind::Time);
}

bool isIndexColumn(const Column& c) {
    static const char* kNames[] = {"index",  "no.",     "no",         "nr.",           "sequence",
                                   "sample", "samples", "sample no.", "sample number", "sample index"};
    for (const char* n : kNames)
        if (c.name == n) return true;
    return c.unit.kind == UnitKind::Count;
}

enum class MetaKind : uint8_t { None, Interval, Rate, Start };

struct MetaKey {
    MetaKind kind = MetaKind::None;
    Unit unit;  // "Sample Rate (kHz)"
};

// The key of a metadata line or cell ("Sample Interval", "; Samplerate:",
// "#dt=", "tInc").
MetaKey metaKeyOf(std::string_view key) {
    key = withoutCommentMark(key);
    while (!key.empty() && (key.back() == ':' || key.back() == '=' || IsCellBlank(key.back()))) key.remove_suffix(1);
    const Column c = parseColumnName(key);
    const std::string& k = c.name;
    MetaKey m{MetaKind::None, c.unit};
    if (k == "sample interval" || k == "sampleinterval" || k == "sampling interval" || k == "delta" || k == "dt" ||
        k == "delta t" || k == "tinc" || k == "xinc" || k.ends_with("increment") || k.ends_with(" sample interval"))
        m.kind = MetaKind::Interval;
    else if (k == "sample rate" || k == "samplerate" || k == "sampling rate" || k == "samplingrate" ||
             k.ends_with(" sample rate"))
        m.kind = MetaKind::Rate;
    else if (k == "start" || k == "t0" || k == "start time" || k == "xstart" || k == "x start")
        m.kind = MetaKind::Start;
    return m;
}

// Keys of setup lines that exports write above their columns; such a line is
// never the header, even when its fields are units ("Vertical Units,V").
bool isMetadataLine(const std::vector<std::string_view>& fields) {
    if (fields.empty()) return false;
    if (metaKeyOf(fields[0]).kind != MetaKind::None) return true;
    static const char* kKeys[] = {"source",           "record length",    "trigger point",     "trigger time",
                                  "trigger level",    "vertical units",   "vertical scale",    "vertical offset",
                                  "horizontal units", "horizontal scale", "probe attenuation", "model number",
                                  "serial number",    "firmware version"};
    const std::string k = lower(withoutCommentMark(fields[0]));
    return std::any_of(std::begin(kKeys), std::end(kKeys), [&](const char* name) { return k == name; });
}

// Seconds from the value of a metadata key: "2e-05", "20 us", "1 MHz" (a
// rate), "-0.01s"; nullopt when it is none.
std::optional<double> metaSeconds(std::string_view text, const MetaKey& key, bool decimalComma) {
    text = TrimCell(text);
    size_t split = text.size();
    while (split > 0 && !isDigit(text[split - 1]) && text[split - 1] != '.') --split;
    const auto number = parseNumber(text.substr(0, split), decimalComma);
    if (!number) return std::nullopt;
    const std::string_view unitText = TrimCell(text.substr(split));
    const Unit u = unitText.empty() ? key.unit : unitOf(unitText);
    const UnitKind want = key.kind == MetaKind::Rate ? UnitKind::Rate : UnitKind::Time;
    if ((!unitText.empty() && !u.known()) || (u.known() && u.kind != want)) return std::nullopt;
    double v = *number * u.factor;
    if (key.kind == MetaKind::Rate) v = 1 / v;
    if (!std::isfinite(v) || (key.kind != MetaKind::Start && !(v > 0))) return std::nullopt;
    return v;
}

struct Pair {
    std::string_view key;
    std::string_view value;
};

// The key/value pairs of a metadata line: "Key,value" (or with ";" or a
// tab), and every "key=value" or "key: value" among its cells.
std::vector<Pair> pairsOf(std::string_view line, bool& decimalComma) {
    line = withoutCommentMark(line);
    const char sep = line.find('\t') != std::string_view::npos  ? '\t'
                     : line.find(';') != std::string_view::npos ? ';'
                                                                : ',';
    decimalComma = sep != ',';
    std::vector<std::string_view> cells;
    size_t from = 0;
    for (size_t i = 0; i <= line.size(); ++i)
        if (i == line.size() || line[i] == sep) {
            cells.push_back(line.substr(from, i - from));
            from = i + 1;
        }
    std::vector<Pair> pairs;
    for (std::string_view cell : cells) {
        cell = withoutCommentMark(cell);
        const size_t at = cell.find_first_of("=:");
        if (at == std::string_view::npos || at == 0) continue;
        if (const std::string_view value = TrimCell(cell.substr(at + 1)); !value.empty())
            pairs.push_back({cell.substr(0, at), value});
    }
    if (cells.size() >= 2) {
        const std::string_view key = TrimCell(cells[0]);
        const size_t at = key.find_first_of("=:");
        if (at == std::string_view::npos || at + 1 == key.size()) pairs.push_back({key, cells[1]});
    }
    return pairs;
}

Delim detectDelim(std::string_view row, std::string_view header) {
    if (row.find('\t') != std::string_view::npos) return Delim::Tab;
    if (row.find(';') != std::string_view::npos) return Delim::Semicolon;
    std::vector<std::string_view> fields;
    if (row.find(',') != std::string_view::npos) {
        splitLine(row, Delim::Comma, fields);
        bool plain = true;
        bool value = false;
        for (auto f : fields) {
            const std::string_view t = TrimCell(f);
            value |= !t.empty();
            // An empty cell is only taken before the first value (samples
            // beside a metadata block); "0,5 1,25" is blank separated.
            if ((t.empty() && value) || std::any_of(t.begin(), t.end(), IsCellBlank)) plain = false;
        }
        // "0,5" alone is one value with a decimal comma when the header names one column.
        if (plain && !header.empty() && row.find('.') == std::string_view::npos) {
            std::vector<std::string_view> names;
            splitLine(header, Delim::Comma, names);
            if (names.size() < fields.size()) {
                splitLine(header, Delim::Semicolon, names);
                if (names.size() < fields.size()) plain = false;
            }
        }
        return plain ? Delim::Comma : Delim::Blanks;
    }
    return Delim::Blanks;
}

bool looksLikeUnitsLine(const std::vector<std::string_view>& fields) {
    size_t units = 0;
    for (auto f : fields) {
        if (TrimCell(f).empty()) continue;
        if (!unitOf(f).known()) return false;
        ++units;
    }
    return units > 0;
}

}  // namespace

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
