#include "wavefile/GenericCsvLayout.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "common/DecimalScan.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

constexpr size_t kDataRunToTrust = 3;

[[noreturn]] void fail(const std::string& text) { throw RuntimeError(ErrorCode::TypeMismatch, text); }

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// A row of numbers: digits, signs, points, commas, exponents and separators.
bool isDataLike(std::string_view line) {
    line = TrimCell(line);
    if (line.empty()) return false;
    bool digit = false;
    for (char c : line) {
        if (c >= '0' && c <= '9')
            digit = true;
        else if (!(c == '+' || c == '-' || c == '.' || c == ',' || c == ';' || c == 'e' || c == 'E' || IsCellBlank(c)))
            return false;
    }
    const char first = line.front();
    return digit && ((first >= '0' && first <= '9') || first == '+' || first == '-' || first == '.');
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

struct Unit {
    double factor = 1;
    bool time = false;
    bool known = false;
};

Unit unitOf(std::string_view text) {
    const std::string u = lower(TrimCell(text));
    // Spellings of each unit; "µ" as UTF-8 (micro sign or Greek mu) or Latin-1.
    struct Entry {
        const char* names[4];
        double factor;
        bool time;
    };
    static const Entry kUnits[] = {
        {{"v", "volt", "volts"}, 1, false},
        {{"mv"}, 1e-3, false},
        {{"uv", "\xC2\xB5v", "\xCE\xBCv", "\xB5v"}, 1e-6, false},
        {{"kv"}, 1e3, false},
        {{"s", "sec", "second", "seconds"}, 1, true},
        {{"ms"}, 1e-3, true},
        {{"us", "\xC2\xB5s", "\xCE\xBCs", "\xB5s"}, 1e-6, true},
        {{"ns"}, 1e-9, true},
        {{"ps"}, 1e-12, true},
    };
    for (const auto& e : kUnits)
        for (const char* name : e.names)
            if (name != nullptr && u == name) return {e.factor, e.time, true};
    return {};
}

struct Column {
    std::string name;  // without its unit
    Unit unit;
};

// "Time(s)", "CH1 [mV]", "Volt" (a unit alone).
Column parseColumnName(std::string_view text) {
    Column c;
    std::string_view t = TrimCell(text);
    if (!t.empty() && (t.back() == ')' || t.back() == ']')) {
        const size_t open = t.find_last_of(t.back() == ')' ? '(' : '[');
        if (open != std::string_view::npos) {
            c.unit = unitOf(t.substr(open + 1, t.size() - open - 2));
            t = TrimCell(t.substr(0, open));
        }
    }
    c.name = lower(t);
    if (!c.unit.known) {
        const Unit alone = unitOf(t);
        if (alone.known && alone.factor == 1) c.unit = alone;
    }
    return c;
}

bool isTimeName(const Column& c) {
    static const char* kNames[] = {"time", "x-axis", "second", "seconds", "sec", "s", "t"};
    for (const char* n : kNames)
        if (c.name == n) return true;
    return c.name.starts_with("time") || (c.name.empty() && c.unit.known && c.unit.time);
}

// The key of a metadata line that gives the sample interval.
bool isIntervalKey(std::string_view key) {
    const std::string k = parseColumnName(key).name;
    return k == "sample interval" || k == "sampleinterval" || k == "delta" || k == "dt" || k == "delta t" ||
           k == "increment" || k.ends_with(" increment") || k.ends_with("sample interval");
}

// "1e-6", "1 us", "0,5 ms": a number with an optional time unit.
std::optional<double> intervalValue(std::string_view text, bool decimalComma) {
    text = TrimCell(text);
    size_t split = text.size();
    while (split > 0 && !(text[split - 1] >= '0' && text[split - 1] <= '9') && text[split - 1] != '.') --split;
    const auto number = parseNumber(text.substr(0, split), decimalComma);
    if (!number) return std::nullopt;
    const std::string_view unitText = TrimCell(text.substr(split));
    if (unitText.empty()) return *number;
    const Unit u = unitOf(unitText);
    if (!u.known || !u.time) return std::nullopt;
    return *number * u.factor;
}

Delim detectDelim(std::string_view row, std::string_view header) {
    if (row.find('\t') != std::string_view::npos) return Delim::Tab;
    if (row.find(';') != std::string_view::npos) return Delim::Semicolon;
    std::vector<std::string_view> fields;
    if (row.find(',') != std::string_view::npos) {
        splitLine(row, Delim::Comma, fields);
        bool plain = true;
        for (auto f : fields) {
            const std::string_view t = TrimCell(f);
            if (t.empty() || std::any_of(t.begin(), t.end(), IsCellBlank)) plain = false;
        }
        // "0,5" alone is one value with a decimal comma when the header names one column.
        if (plain && !header.empty()) {
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
        if (!unitOf(f).known) return false;
        ++units;
    }
    return units > 0;
}

}  // namespace

std::string_view TrimCell(std::string_view s) {
    while (!s.empty() && (IsCellBlank(s.front()) || s.front() == '"')) s.remove_prefix(1);
    while (!s.empty() && (IsCellBlank(s.back()) || s.back() == '"')) s.remove_suffix(1);
    return s;
}

CsvHead ReadCsvHead(LineScanner& in, const std::string& name) {
    CsvHead head;
    size_t run = 0;
    std::string_view line;
    bool more = true;
    while (run < kDataRunToTrust && head.lines.size() < kCsvHeadLines && (more = in.next(line))) {
        if (TrimCell(line).empty()) continue;
        head.lines.emplace_back(line);
        head.lineNumbers.push_back(in.lineNumber());
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
             ": not a wave file: neither the program's own header nor rows of numbers under a header were found.");
    return head;
}

CsvLayout ReadCsvLayout(const CsvHead& csvHead, double givenInterval, const std::string& name) {
    const std::vector<std::string>& head = csvHead.lines;
    const size_t dataAt = csvHead.dataAt;
    CsvLayout L;
    const std::string_view firstRow = head[dataAt];
    const std::string_view headerGuess = dataAt > 0 ? std::string_view(head[dataAt - 1]) : std::string_view();
    L.delim = detectDelim(firstRow, headerGuess);
    std::vector<std::string_view> fields;
    splitLine(firstRow, L.delim, fields);
    L.columns = fields.size();
    if (L.delim != Delim::Comma)
        for (size_t i = dataAt; i < head.size(); ++i)
            if (head[i].find(',') != std::string::npos) L.decimalComma = true;

    // Header: one line naming the columns, perhaps followed by one of units.
    size_t metaEnd = dataAt;
    std::vector<Column> cols;
    auto splitHeader = [&](size_t i) {
        std::vector<std::string_view> f;
        splitLine(head[i], L.delim, f);
        if (L.delim == Delim::Blanks) {
            // "Time (s)": a unit standing apart belongs to the name before it.
            std::vector<std::string_view> merged;
            for (auto part : f) {
                if (!merged.empty() && (part.front() == '(' || part.front() == '['))
                    merged.back() = std::string_view(
                        merged.back().data(), static_cast<size_t>(part.data() + part.size() - merged.back().data()));
                else
                    merged.push_back(part);
            }
            f = std::move(merged);
        }
        return f;
    };
    auto isHeader = [&](const std::vector<std::string_view>& f, size_t i) {
        // A header may name columns whose cells are all empty (and so were cut
        // from the rows), but a metadata line is no header.
        return f.size() == L.columns ||
               (f.size() > L.columns && L.delim != Delim::Blanks && !isDataLike(head[i]) && !isIntervalKey(f[0]));
    };
    if (dataAt > 0) {
        auto last = splitHeader(dataAt - 1);
        if (isHeader(last, dataAt - 1)) {
            L.columns = last.size();
            metaEnd = dataAt - 1;
            std::vector<std::string_view> namesLine = last;
            std::vector<std::string_view> unitsLine;
            if (dataAt > 1 && looksLikeUnitsLine(last)) {
                auto before = splitHeader(dataAt - 2);
                if (before.size() == L.columns && !isDataLike(head[dataAt - 2])) {
                    namesLine = before;
                    unitsLine = last;
                    metaEnd = dataAt - 2;
                }
            }
            for (size_t c = 0; c < L.columns; ++c) {
                Column col = parseColumnName(namesLine[c]);
                if (c < unitsLine.size()) {
                    if (const Unit u = unitOf(unitsLine[c]); u.known) col.unit = u;
                }
                cols.push_back(col);
                L.names.emplace_back(TrimCell(namesLine[c]));
            }
        }
    }

    // Metadata: any line before the header whose key names the interval.
    for (size_t i = 0; i < metaEnd && L.interval == 0; ++i) {
        for (Delim d : {Delim::Comma, Delim::Semicolon, Delim::Tab}) {
            std::vector<std::string_view> kv;
            splitLine(head[i], d, kv);
            if (kv.size() < 2) {
                // "dt: 1e-6" and "Sample Interval = 2 us"
                const size_t colon = head[i].find_first_of(":=");
                if (colon == std::string::npos) continue;
                kv = {std::string_view(head[i]).substr(0, colon), std::string_view(head[i]).substr(colon + 1)};
            }
            if (!isIntervalKey(kv[0])) continue;
            if (auto v = intervalValue(kv[1], d != Delim::Comma && L.delim != Delim::Comma); v && *v > 0) {
                L.interval = *v;
                break;
            }
        }
    }

    if (!cols.empty())
        L.timeColumn = isTimeName(cols[0]);
    else
        L.timeColumn = givenInterval <= 0 && L.interval <= 0 && L.columns >= 2;
    if (L.timeColumn && !cols.empty() && cols[0].unit.known && cols[0].unit.time) L.timeFactor = cols[0].unit.factor;

    const size_t firstSignal = L.timeColumn ? 1 : 0;
    if (L.columns <= firstSignal) fail(name + ": no signal column follows the time column.");
    size_t signals = L.columns - firstSignal;
    if (signals > static_cast<size_t>(kMaxImportSignals)) {
        L.ignoredColumns = signals - kMaxImportSignals;
        signals = kMaxImportSignals;
    }
    for (size_t s = 0; s < signals; ++s) {
        const size_t c = firstSignal + s;
        L.signalFactor.push_back(c < cols.size() && cols[c].unit.known && !cols[c].unit.time ? cols[c].unit.factor
                                                                                             : 1.0);
    }
    return L;
}

std::string ColumnLabel(const CsvLayout& L, size_t c) {
    std::string s = "column " + std::to_string(c + 1);
    if (c < L.names.size() && !L.names[c].empty()) s += " (\"" + FromNarrow(L.names[c]) + "\")";
    return s;
}

std::string LayoutText(const CsvLayout& L, double interval) {
    const size_t signals = L.signalFactor.size();
    return std::string("generic CSV (") + delimName(L.delim) + " separated, decimal " +
           (L.decimalComma ? "comma" : "point") + ", " +
           (L.timeColumn ? "time column" : "interval " + ShortestText(interval) + " s") + ", " +
           std::to_string(signals) + " signal column" + (signals == 1 ? "" : "s") + ")";
}

}  // namespace mervasto
