#include "wavefile/GenericCsvHead.h"

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

namespace mervasto::csvhead {

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

}  // namespace mervasto::csvhead
