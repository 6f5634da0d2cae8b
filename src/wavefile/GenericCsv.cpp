#include "wavefile/GenericCsv.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <limits>
#include <optional>
#include <thread>
#include <type_traits>
#include <atomic>
#include <bit>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/LineScanner.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "wavefile/SampleText.h"

namespace mervasto {

namespace {

// Lines looked at before the rows start: metadata blocks of exports are a few
// dozen lines at most.
constexpr size_t kHeadLines = 200;
constexpr size_t kDataRunToTrust = 3;
constexpr int kMaxImportSignals = 4;
constexpr double kMinVoltsPerDiv = 1e-3;
// A channel is scaled no finer than a fifth of the coarsest channel's scale,
// so that noise beside a real signal stays below a third of a division.
constexpr double kFloorRatio = 5;

[[noreturn]] void fail(ErrorCode code, const std::string& text) { throw RuntimeError(code, text); }

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trim(std::string_view s) {
    while (!s.empty() && (isBlank(s.front()) || s.front() == '"')) s.remove_prefix(1);
    while (!s.empty() && (isBlank(s.back()) || s.back() == '"')) s.remove_suffix(1);
    return s;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// A row of numbers: digits, signs, points, commas, exponents and separators.
bool isDataLike(std::string_view line) {
    line = trim(line);
    if (line.empty()) return false;
    bool digit = false;
    for (char c : line) {
        if (c >= '0' && c <= '9')
            digit = true;
        else if (!(c == '+' || c == '-' || c == '.' || c == ',' || c == ';' || c == 'e' || c == 'E' || isBlank(c)))
            return false;
    }
    const char first = line.front();
    return digit && ((first >= '0' && first <= '9') || first == '+' || first == '-' || first == '.');
}

enum class Delim { Comma, Semicolon, Tab, Blanks };

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
            while (i < line.size() && isBlank(line[i])) ++i;
            if (i == line.size()) break;
            size_t j = i;
            while (j < line.size() && !isBlank(line[j])) ++j;
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
    while (out.size() > 1 && trim(out.back()).empty()) out.pop_back();
}

// Parses a whole field as a number; nullopt when it is not one.
template <class T>
std::optional<T> parseNumber(std::string_view field, bool decimalComma) {
    field = trim(field);
    if (!field.empty() && field.front() == '+') field.remove_prefix(1);
    if (field.empty()) return std::nullopt;
    char buf[64];
    if (decimalComma) {
        if (field.size() >= sizeof buf) return std::nullopt;
        std::copy(field.begin(), field.end(), buf);
        std::replace(buf, buf + field.size(), ',', '.');
        field = std::string_view(buf, field.size());
    }
    T value{};
    const auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (ec != std::errc() || end != field.data() + field.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

struct Unit {
    double factor = 1;
    bool time = false;
    bool known = false;
};

Unit unitOf(std::string_view text) {
    const std::string u = lower(trim(text));
    struct Entry {
        const char* name;
        double factor;
        bool time;
    };
    static const Entry kUnits[] = {
        {"v", 1, false},
        {"volt", 1, false},
        {"volts", 1, false},
        {"mv", 1e-3, false},
        {"uv", 1e-6, false},
        {"\xC2\xB5v", 1e-6, false},
        {"\xCE\xBCv", 1e-6, false},
        {"\xB5v", 1e-6, false},
        {"kv", 1e3, false},
        {"s", 1, true},
        {"sec", 1, true},
        {"second", 1, true},
        {"seconds", 1, true},
        {"ms", 1e-3, true},
        {"us", 1e-6, true},
        {"\xC2\xB5s", 1e-6, true},
        {"\xCE\xBCs", 1e-6, true},
        {"\xB5s", 1e-6, true},
        {"ns", 1e-9, true},
        {"ps", 1e-12, true},
    };
    for (const auto& e : kUnits)
        if (u == e.name) return {e.factor, e.time, true};
    return {};
}

struct Column {
    std::string name;  // without its unit
    Unit unit;
};

// "Time(s)", "CH1 [mV]", "Volt" (a unit alone).
Column parseColumnName(std::string_view text) {
    Column c;
    std::string_view t = trim(text);
    if (!t.empty() && (t.back() == ')' || t.back() == ']')) {
        const size_t open = t.find_last_of(t.back() == ')' ? '(' : '[');
        if (open != std::string_view::npos) {
            c.unit = unitOf(t.substr(open + 1, t.size() - open - 2));
            t = trim(t.substr(0, open));
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
    text = trim(text);
    size_t split = text.size();
    while (split > 0 && !(text[split - 1] >= '0' && text[split - 1] <= '9') && text[split - 1] != '.') --split;
    const auto number = parseNumber<double>(text.substr(0, split), decimalComma);
    if (!number) return std::nullopt;
    const std::string_view unitText = trim(text.substr(split));
    if (unitText.empty()) return *number;
    const Unit u = unitOf(unitText);
    if (!u.known || !u.time) return std::nullopt;
    return *number * u.factor;
}

struct Layout {
    Delim delim = Delim::Comma;
    bool decimalComma = false;
    size_t columns = 0;  // fields of a data row
    bool timeColumn = false;
    double timeFactor = 1;
    std::vector<double> signalFactor;  // per signal column used
    std::vector<std::string> names;    // header names as written, per column; empty without a header
    double interval = 0;               // from a metadata line
    size_t ignoredColumns = 0;
};

Delim detectDelim(std::string_view row, std::string_view header) {
    if (row.find('\t') != std::string_view::npos) return Delim::Tab;
    if (row.find(';') != std::string_view::npos) return Delim::Semicolon;
    std::vector<std::string_view> fields;
    if (row.find(',') != std::string_view::npos) {
        splitLine(row, Delim::Comma, fields);
        bool plain = true;
        for (auto f : fields) {
            const std::string_view t = trim(f);
            if (t.empty() || std::any_of(t.begin(), t.end(), isBlank)) plain = false;
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
        if (trim(f).empty()) continue;
        if (!unitOf(f).known) return false;
        ++units;
    }
    return units > 0;
}

// Works out the layout from the lines before and at the start of the rows.
Layout readLayout(const std::vector<std::string>& head, size_t dataAt, const WaveImportOptions& options,
                  std::string_view name) {
    Layout L;
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
                L.names.emplace_back(trim(namesLine[c]));
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
        L.timeColumn = options.sampleInterval <= 0 && L.interval <= 0 && L.columns >= 2;
    if (L.timeColumn && !cols.empty() && cols[0].unit.known && cols[0].unit.time) L.timeFactor = cols[0].unit.factor;

    const size_t firstSignal = L.timeColumn ? 1 : 0;
    if (L.columns <= firstSignal)
        fail(ErrorCode::TypeMismatch, std::string(name) + ": no signal column follows the time column.");
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

std::string columnLabel(const Layout& L, size_t c) {
    std::string s = "column " + std::to_string(c + 1);
    if (c < L.names.size() && !L.names[c].empty()) s += " (\"" + FromNarrow(L.names[c]) + "\")";
    return s;
}

std::string fileDate(const std::string& fileName) {
    std::error_code ec;
    const auto stamp = std::filesystem::last_write_time(PathFromText(fileName), ec);
    if (ec) return "";
    const auto sys = std::chrono::file_clock::to_sys(stamp);
    const std::time_t t = std::chrono::system_clock::to_time_t(sys);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &t);
#else
    localtime_r(&t, &local);
#endif
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y/%m/%d %H:%M:%S", &local);
    return buf;
}

struct Source {
    std::string name;
    std::string_view bytes;
    bool memory = false;
    void open(LineScanner& in, uint64_t offset = 0) const {
        if (memory)
            in.openBytes(bytes, offset);
        else
            in.open(name, offset);
    }
};

constexpr int kNoExp = INT_MAX;
constexpr float kInf = std::numeric_limits<float>::infinity();

// A fault in one row; whoever knows the row's line number tells it.
struct RowFault {
    enum Kind { Empty, NotNumber, TooMany } kind;
    size_t column;
    std::string text;
};

// What a run of rows gave.
struct Rows {
    // Where the samples go: the record's arrays for the first reader, arrays
    // of its own (left uninitialised, as every entry is written) for the second.
    std::array<float*, kMaxImportSignals> values{};
    size_t capacity = 0;
    std::function<void(size_t)> growTo;
    std::vector<double> times;
    std::array<float, kMaxImportSignals> lo{kInf, kInf, kInf, kInf};
    std::array<float, kMaxImportSignals> hi{-kInf, -kInf, -kInf, -kInf};
    size_t count = 0;
    // How the time column is printed: exports drop trailing zeros ("0.1"
    // among "0.100002"), so one row's text says little on its own.
    int timeDigits = 0;
    int finestExp = kNoExp;

    // The second reader's part.
    uint64_t seekTo = 0;  // where it began (inside some line)
    uint64_t start = 0;   // the first line it took
    bool started = false;
    std::optional<RowFault> fault;
    uint64_t faultLine = 0;  // counted from start, 1-based
    std::atomic<bool> cancel{false};

    void append(const Rows& more, size_t signals) {
        const size_t total = count + more.count;
        if (capacity < total) growTo(total);
        for (size_t c = 0; c < signals; ++c) {
            std::copy_n(more.values[c], more.count, values[c] + count);
            lo[c] = std::min(lo[c], more.lo[c]);
            hi[c] = std::max(hi[c], more.hi[c]);
        }
        // A row that failed part-way may have left its time behind.
        times.insert(times.end(), more.times.begin(),
                     more.times.begin() + static_cast<std::ptrdiff_t>(std::min(more.times.size(), more.count)));
        timeDigits = std::max(timeDigits, more.timeDigits);
        finestExp = std::min(finestExp, more.finestExp);
        count = total;
    }
};

// 10^0 .. 10^19: every power of ten a uint64_t holds.
constexpr auto kTens = [] {
    std::array<uint64_t, 20> t{};
    uint64_t v = 1;
    for (uint64_t& x : t) {
        x = v;
        v *= 10;  // wraps after the last, unused
    }
    return t;
}();

// How many decimal digits m has (0 for 0).
int decimalLength(uint64_t m) {
    // log10 from the bit length (1233/4096 is just over log10 2), one less
    // where that overshoots.
    const int guess = (static_cast<int>(std::bit_width(m)) * 1233) >> 12;
    return guess - (m < kTens[static_cast<size_t>(guess)] ? 1 : 0) + 1;
}

// One decimal number as written: [sign] digits [point digits] [e [sign]
// digits]. value = mantissa x 10^unitExp when the mantissa took every digit.
struct Decimal {
    uint64_t mantissa = 0;
    int unitExp = 0;  // the power of ten of the last digit
    int dropped = 0;  // digits beyond what the mantissa holds
    bool negative = false;

    bool exact() const { return dropped == 0; }
    // Significant digits printed: leading zeros are never in the mantissa.
    int digits() const { return decimalLength(mantissa) + dropped; }
};

// A run of digits into d; places counts them. Up to 18 digits go into the
// mantissa; later ones are dropped (and counted).
const char* digitRun(const char* p, const char* e, Decimal& d, int& places) {
    // Eight characters at a time while the mantissa has room for eight more.
    while (e - p >= 8 && d.mantissa < 10000000000u) {
        uint64_t chunk;
        std::memcpy(&chunk, p, sizeof chunk);
        const int n = LeadingDigits(chunk);
        if (n == 0) return p;
        d.mantissa = d.mantissa * kTens[n] + EightDigits(chunk << (8 * (8 - n)));
        places += n;
        p += n;
        if (n < 8) return p;
    }
    for (; p < e && *p >= '0' && *p <= '9'; ++p) {
        if (d.mantissa >= 1000000000000000000u)
            ++d.dropped;
        else
            d.mantissa = d.mantissa * 10 + static_cast<unsigned>(*p - '0');
        ++places;
    }
    return p;
}

// The usual shape of exported numbers, one digit, the point and one to
// sixteen decimals with no exponent ("0.24871826", "0.0049999982375"), read
// eight characters at a time. Gives what the general scan gives, or nullptr
// to leave the number to it. Needs eight characters after the point to read
// from, which every field but a row's last has.
const char* plainDecimal(const char* p, const char* e, char point, Decimal& d) {
    if (e - p < 10 || static_cast<unsigned>(p[0] - '0') > 9 || p[1] != point) return nullptr;
    uint64_t chunk;
    std::memcpy(&chunk, p + 2, sizeof chunk);
    int n = LeadingDigits(chunk);
    if (n == 0) return nullptr;
    uint64_t m = static_cast<uint64_t>(p[0] - '0') * kTens[n] + EightDigits(chunk << (8 * (8 - n)));
    int decimals = n;
    const char* q = p + 2 + n;
    if (n == 8 && e - q >= 8) {
        std::memcpy(&chunk, q, sizeof chunk);
        n = LeadingDigits(chunk);
        if (n == 8) return nullptr;
        if (n > 0) {
            m = m * kTens[n] + EightDigits(chunk << (8 * (8 - n)));
            decimals += n;
            q += n;
        }
    }
    if (q < e && (static_cast<unsigned>(*q - '0') <= 9 || *q == 'e' || *q == 'E')) return nullptr;
    d.mantissa = m;
    d.unitExp = -decimals;
    return q;
}

// The number at the start of [p, e) into d: where it ends, or nullptr when
// there is none (no digit, or an exponent without one).
const char* scanNumberPrefix(const char* p, const char* e, char point, Decimal& d) {
    if (p < e && (*p == '+' || *p == '-')) d.negative = *p++ == '-';
    if (const char* end = plainDecimal(p, e, point, d)) return end;
    int places = 0;
    p = digitRun(p, e, d, places);
    int decimals = 0;
    if (p < e && *p == point) {
        const int before = places;
        p = digitRun(p + 1, e, d, places);
        decimals = places - before;
    }
    if (places == 0) return nullptr;
    int exponent = 0;
    if (p < e && (*p == 'e' || *p == 'E')) {
        ++p;
        bool negative = false;
        if (p < e && (*p == '+' || *p == '-')) negative = *p++ == '-';
        if (p == e || !(*p >= '0' && *p <= '9')) return nullptr;
        for (; p < e && *p >= '0' && *p <= '9'; ++p)
            if (exponent < 10000) exponent = exponent * 10 + (*p - '0');
        if (negative) exponent = -exponent;
    }
    d.unitExp = exponent - decimals;
    return p;
}

// The whole of [p, e) is one number.
bool scanNumber(const char* p, const char* e, char point, Decimal& d) { return scanNumberPrefix(p, e, point, d) == e; }

// The nearest double or float to a decimal whose mantissa and power of ten
// are both exact in that type: one exact operation, rounded once. Anything
// else is left to from_chars.
template <class T>
bool fastValue(const Decimal& d, T& out) {
    constexpr uint64_t kMaxMantissa = std::is_same_v<T, float> ? (uint64_t{1} << 24) : (uint64_t{1} << 53);
    constexpr int kMaxPower = std::is_same_v<T, float> ? 10 : 22;
    static constexpr T kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (!d.exact() || d.mantissa > kMaxMantissa || d.unitExp < -kMaxPower || d.unitExp > kMaxPower) return false;
    T v = static_cast<T>(d.mantissa);
    v = d.unitExp < 0 ? v / kPowers[-d.unitExp] : v * kPowers[d.unitExp];
    out = d.negative ? -v : v;
    return true;
}

// A float from a decimal of up to 16 digits (most exports print 8 or 9,
// beyond the float fast path): the nearest double, rounded once more to
// float. That second rounding can only go wrong when the double lies on or
// next to a point halfway between two floats; those few go to from_chars.
bool fastSingle(const Decimal& d, float& out) {
    if (fastValue(d, out)) return true;
    double x = 0;
    if (!fastValue(d, x)) return false;
    const double a = std::fabs(x);
    if (!(a >= 1.1754943508222875e-38 && a < 3.4028234663852886e38)) return false;
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    const uint64_t low = bits & ((uint64_t{1} << 29) - 1);
    constexpr uint64_t kHalf = uint64_t{1} << 28;
    if (low + 8 >= kHalf && low <= kHalf + 8) return false;
    out = static_cast<float>(x);
    return true;
}

class RowParser {
public:
    explicit RowParser(const Layout& L)
        : L_(L),
          firstSignal_(L.timeColumn ? 1 : 0),
          signals_(L.signalFactor.size()),
          point_(L.decimalComma ? ',' : '.'),
          sep_(L.delim == Delim::Comma       ? ','
               : L.delim == Delim::Semicolon ? ';'
                                             : '\t') {
        for (size_t s = 0; s < signals_; ++s) unscaled_[s] = L.signalFactor[s] == 1.0;
    }

    size_t needed() const { return firstSignal_ + signals_; }

    // Takes one row into rows; bytesLeft sizes the arrays when they fill up.
    void take(std::string_view line, Rows& rows, uint64_t bytesLeft) const {
        if (rows.count >= static_cast<size_t>(kMaxSamples)) throw RowFault{RowFault::TooMany, 0, {}};
        if (rows.count >= rows.capacity) grow(rows, line.size(), bytesLeft);
        const char* p = line.data();
        const char* const end = p + line.size();
        const bool blanks = L_.delim == Delim::Blanks;
        for (size_t c = 0; c < needed(); ++c) {
            while (p < end && (*p == ' ' || *p == '"' || (*p == '\t' && sep_ != '\t'))) ++p;
            if (!blanks) {
                // The usual field, a number and the separator (or the row's
                // end after the last column), read in one pass; anything
                // else is split off first and then read, to be told apart.
                Decimal d;
                if (const char* q = scanNumberPrefix(p, end, point_, d)) {
                    const char* r = q;
                    while (r < end && (*r == ' ' || *r == '"' || (*r == '\t' && sep_ != '\t'))) ++r;
                    if (r < end ? *r == sep_ : c + 1 == needed()) {
                        store(c, d, p, q, rows);
                        p = r < end ? r + 1 : end;
                        continue;
                    }
                }
            }
            const char* fe;
            const char* next;
            if (blanks) {
                fe = p;
                while (fe < end && !isBlank(*fe)) ++fe;
                next = fe;
            } else {
                fe = FindByte(p, end, sep_);
                next = fe < end ? fe + 1 : end;
                if (fe == end && c + 1 < needed()) {
                    // The row ends before the columns it needs.
                    const char* t = fe;
                    while (t > p && (isBlank(t[-1]) || t[-1] == '"')) --t;
                    if (t == p) throw RowFault{RowFault::Empty, c, {}};
                    parseField(c, p, t, rows);
                    throw RowFault{RowFault::Empty, c + 1, {}};
                }
            }
            while (fe > p && (isBlank(fe[-1]) || fe[-1] == '"')) --fe;
            if (fe == p) throw RowFault{RowFault::Empty, c, {}};
            parseField(c, p, fe, rows);
            p = next;
        }
        ++rows.count;
    }

private:
    static void grow(Rows& rows, size_t lineBytes, uint64_t bytesLeft) {
        // Room for the rest, estimated from this row's length with a margin.
        const uint64_t estimate = bytesLeft / (lineBytes + 1);
        const size_t want = static_cast<size_t>(
            std::min<uint64_t>(rows.count + estimate + estimate / 8 + 4096, static_cast<uint64_t>(kMaxSamples)));
        rows.growTo(std::max(want, rows.count + 1));
    }

    void parseField(size_t c, const char* p, const char* e, Rows& rows) const {
        Decimal d;
        if (!scanNumber(p, e, point_, d))
            throw RowFault{RowFault::NotNumber, c, std::string(p, static_cast<size_t>(e - p))};
        store(c, d, p, e, rows);
    }

    // Column c's number, scanned into d from its text [p, e). Kept small,
    // as it runs for every field: what most fields never need is out of line.
    void store(size_t c, const Decimal& d, const char* p, const char* e, Rows& rows) const {
        if (c < firstSignal_) return storeTime(d, p, e, rows);
        const size_t s = c - firstSignal_;
        float v = 0;
        if (!(unscaled_[s] && fastSingle(d, v))) v = signalValue(s, d, p, e);
        if (!std::isfinite(v)) notNumber(c, p, e);
        rows.values[s][rows.count] = v;
        rows.lo[s] = std::min(rows.lo[s], v);
        rows.hi[s] = std::max(rows.hi[s], v);
    }

    [[noreturn]] static void notNumber(size_t c, const char* p, const char* e) {
        throw RowFault{RowFault::NotNumber, c, std::string(p, static_cast<size_t>(e - p))};
    }

    // The rare number the fast path cannot take exactly.
    template <class T>
    void fromChars(size_t c, const char* p, const char* e, T& value) const {
        const char* const text = p;
        const char* const textEnd = e;
        if (*p == '+') ++p;  // from_chars takes no plus sign
        char buf[64];
        if (L_.decimalComma) {
            if (static_cast<size_t>(e - p) > sizeof buf) notNumber(c, text, textEnd);
            char* o = std::copy(p, e, buf);
            std::replace(buf, o, ',', '.');
            p = buf;
            e = o;
        }
        const auto r = std::from_chars(p, e, value);
        if (r.ec != std::errc() || r.ptr != e) notNumber(c, text, textEnd);
    }

    [[gnu::noinline]] float signalValue(size_t s, const Decimal& d, const char* p, const char* e) const {
        const size_t c = s + firstSignal_;
        if (unscaled_[s]) {
            float v = 0;
            fromChars(c, p, e, v);
            return v;
        }
        double x = 0;
        if (!fastValue(d, x)) fromChars(c, p, e, x);
        return static_cast<float>(x * L_.signalFactor[s]);
    }

    void storeTime(const Decimal& d, const char* p, const char* e, Rows& rows) const {
        double t = 0;
        if (!fastValue(d, t)) fromChars(0, p, e, t);
        if (!std::isfinite(t)) notNumber(0, p, e);
        rows.times.push_back(t * L_.timeFactor);
        if (t != 0) {
            rows.timeDigits = std::max(rows.timeDigits, d.digits());
            rows.finestExp = std::min(rows.finestExp, d.unitExp);
        }
    }

    const Layout& L_;
    std::array<bool, kMaxImportSignals> unscaled_{};
    size_t firstSignal_;
    size_t signals_;
    char point_;
    char sep_;
};

void readTail(const Source& source, const RowParser& parser, Rows& rows) noexcept {
    try {
        LineScanner in;
        source.open(in, rows.seekTo);
        std::string_view line;
        if (!in.next(line)) return;  // the part-line seekTo fell into
        const uint64_t size = in.size();
        uint64_t lines = 0;
        while (in.next(line)) {
            if (lines++ == 0) {
                rows.start = in.lineStart();
                rows.started = true;
            }
            if ((rows.count & 0xFFFF) == 0 && rows.cancel.load(std::memory_order_relaxed)) return;
            if (trim(line).empty()) continue;
            try {
                parser.take(line, rows, size > in.lineStart() ? size - in.lineStart() : 0);
            } catch (const RowFault& f) {
                rows.fault = f;
                rows.faultLine = lines;
                return;
            }
        }
    } catch (...) {
        // Read again by the first thread, which then meets the fault itself.
        rows.started = false;
    }
}

void loadGeneric(const Source& source, DsoSetup& setup, WaveRecord& record, const WaveImportOptions& options,
                 WaveCsvLoadResult& result) {
    LineScanner in;
    source.open(in);
    const std::string& name = source.name;

    // The head: lines up to a run of rows of numbers.
    std::vector<std::string> head;
    std::vector<uint64_t> headLine;
    size_t run = 0;
    std::string_view line;
    bool more = true;
    while (run < kDataRunToTrust && head.size() < kHeadLines && (more = in.next(line))) {
        if (trim(line).empty()) continue;
        head.emplace_back(line);
        headLine.push_back(in.lineNumber());
        run = isDataLike(line) ? run + 1 : 0;
    }
    // The rows start at the first two rows of numbers in a row (or a last
    // one); a stray numeric line in a metadata block is taken for neither.
    size_t dataAt = head.size();
    for (size_t i = 0; i < head.size(); ++i)
        if (isDataLike(head[i]) && (i + 1 == head.size() || isDataLike(head[i + 1]))) {
            dataAt = i;
            break;
        }
    if (dataAt == head.size() || (run == 0 && more))
        fail(ErrorCode::TypeMismatch, name +
                                          ": not a wave file: neither the program's own header nor rows of numbers "
                                          "under a header were found.");
    const Layout L = readLayout(head, dataAt, options, name);
    if (L.ignoredColumns > 0)
        result.warnings.push_back(name + ": the file has " + std::to_string(L.ignoredColumns + kMaxImportSignals) +
                                  " signal columns; the first 4 are taken.");

    const size_t signals = L.signalFactor.size();
    const RowParser parser(L);
    Rows first;
    first.growTo = [&](size_t n) {
        record.ensureLength(static_cast<int32_t>(n));
        for (size_t c = 0; c < signals; ++c) first.values[c] = record.wave[c].data();
        first.capacity = n;
    };
    const uint64_t size = in.size();
    if (L.timeColumn && size > 0)
        first.times.reserve(std::min<uint64_t>(size / (4 * parser.needed()) + 16, kMaxSamples));

    auto faultText = [&](const RowFault& f, uint64_t lineNo) {
        // The row limit is said without a line: the second reader cannot
        // tell which line would have been one row too many.
        const bool atLine = lineNo > 0 && f.kind != RowFault::TooMany;
        std::string where = name + (atLine ? ", line " + std::to_string(lineNo) : std::string()) + ": ";
        switch (f.kind) {
        case RowFault::Empty: return where + columnLabel(L, f.column) + " is empty.";
        case RowFault::NotNumber:
            return where + "\"" + FromNarrow(f.text) + "\" in " + columnLabel(L, f.column) + " is not a number.";
        case RowFault::TooMany: break;
        }
        return where + "more than " + std::to_string(kMaxSamples) + " rows; the longest record the program takes is " +
               std::to_string(kMaxSamples) + " samples.";
    };
    auto take = [&](std::string_view row, uint64_t lineNo) {
        try {
            parser.take(row, first, size > in.lineStart() ? size - in.lineStart() : 0);
        } catch (const RowFault& f) {
            result.rowsRead = static_cast<int32_t>(first.count);
            fail(f.kind == RowFault::TooMany ? ErrorCode::Subscript : ErrorCode::TypeMismatch, faultText(f, lineNo));
        }
    };

    // A long file is read by two threads: the second takes the rows after
    // the middle while this one reads up to there.
    std::unique_ptr<Rows> tail;
    std::thread tailThread;
    struct JoinTail {
        std::unique_ptr<Rows>& tail;
        std::thread& thread;
        ~JoinTail() {
            if (tail) tail->cancel = true;
            if (thread.joinable()) thread.join();
        }
    } joinTail{tail, tailThread};
    if (size >= options.own.splitBytes && in.lineStart() < size / 2) {
        tail = std::make_unique<Rows>();
        tail->seekTo = size / 2;
        tail->growTo = [rows = tail.get(),
                        store = std::make_shared<std::array<std::unique_ptr<float[]>, kMaxImportSignals>>(),
                        signals](size_t n) {
            for (size_t c = 0; c < signals; ++c) {
                std::unique_ptr<float[]> bigger(new float[n]);
                std::copy_n(rows->values[c], rows->count, bigger.get());
                (*store)[c] = std::move(bigger);
                rows->values[c] = (*store)[c].get();
            }
            rows->capacity = n;
        };
        if (L.timeColumn) tail->times.reserve(std::min<uint64_t>(size / (8 * parser.needed()) + 16, kMaxSamples));
        tailThread = std::thread([&source, &parser, rows = tail.get()] { readTail(source, parser, *rows); });
    }

    for (size_t i = dataAt; i < head.size(); ++i) take(head[i], headLine[i]);
    // Kept here, not read from *tail on every line: the second thread writes
    // next to it all the time, and each read would pull the cache line over.
    const uint64_t tailFrom = tail ? tail->seekTo : UINT64_MAX;
    while (in.next(line)) {
        if (in.lineStart() > tailFrom && tail) {
            tailThread.join();
            if (tail->start == in.lineStart() && tail->started) {
                // The second thread's rows before its fault are kept, and so
                // is the row limit, just as one reader would have kept them.
                std::optional<RowFault> fault = tail->fault;
                const uint64_t faultLine = fault ? in.lineNumber() + tail->faultLine - 1 : 0;
                const size_t room = static_cast<size_t>(kMaxSamples) - first.count;
                if (tail->count > room) {
                    tail->count = room;
                    fault = RowFault{RowFault::TooMany, 0, {}};
                }
                first.append(*tail, signals);
                tail.reset();
                if (fault) {
                    result.rowsRead = static_cast<int32_t>(first.count);
                    fail(fault->kind == RowFault::TooMany ? ErrorCode::Subscript : ErrorCode::TypeMismatch,
                         faultText(*fault, faultLine));
                }
                break;
            }
            tail.reset();
        }
        if (trim(line).empty()) continue;
        take(line, in.lineNumber());
    }
    const size_t rows = first.count;
    const std::vector<double>& times = first.times;
    const int timeDigits = first.timeDigits;
    const double finestUnit = first.finestExp == kNoExp ? std::numeric_limits<double>::infinity()
                                                        : std::pow(10.0, first.finestExp) * L.timeFactor;
    std::array<double, kMaxImportSignals> lo{}, hi{};
    for (size_t c = 0; c < signals; ++c) {
        lo[c] = first.lo[c];
        hi[c] = first.hi[c];
    }
    result.rowsRead = static_cast<int32_t>(rows);

    // The interval, and the rows checked against it.
    double dt = 0;
    double t0 = 0;
    if (L.timeColumn) {
        if (rows < 2) fail(ErrorCode::TypeMismatch, name + ": one row gives no sample interval.");
        t0 = times.front();
        dt = (times.back() - t0) / static_cast<double>(rows - 1);
        if (!(dt > 0) || !std::isfinite(dt))
            fail(ErrorCode::TypeMismatch, name + ": the time column does not increase from its first to its last row.");
        // Half a unit of the last digit: the finest unit printed anywhere in
        // the column, or the column's digits at this row's magnitude when
        // that is coarser (a fixed count of significant digits).
        const double fixed = std::isfinite(finestUnit) ? finestUnit : 0.0;
        double decadeLo = 1, decadeHi = 0, decadeUnit = 0;  // the last decade met, so that most rows cost no log
        auto unitAt = [&](double t) {
            const double a = std::fabs(t);
            if (a == 0 || timeDigits == 0) return fixed;
            if (!(a >= decadeLo && a < decadeHi)) {
                const double e = std::floor(std::log10(a));
                decadeLo = std::pow(10.0, e);
                decadeHi = decadeLo * 10;
                decadeUnit = std::max(fixed, std::pow(10.0, e - timeDigits + 1));
            }
            return decadeUnit;
        };
        // The ends set the interval, so their rounding moves every place.
        const double endSlack = 0.5 * std::max(unitAt(times.front()), unitAt(times.back()));
        for (size_t k = 1; k + 1 < rows; ++k) {
            const double place = t0 + dt * static_cast<double>(k);
            const double allowed = 0.01 * dt + 0.5 * unitAt(times[k]) + endSlack;
            if (std::fabs(times[k] - place) > allowed)
                fail(ErrorCode::TypeMismatch, name + ": row " + std::to_string(k + 1) + " is at time " +
                                                  ShortestText(times[k]) + " s, not at " + ShortestText(place) +
                                                  " s: the rows are not evenly spaced (interval " + ShortestText(dt) +
                                                  " s), so the capture cannot be analysed as one record.");
        }
    } else {
        dt = options.sampleInterval > 0 ? options.sampleInterval : L.interval;
        if (!(dt > 0))
            fail(ErrorCode::TypeMismatch,
                 name +
                     ": no time column and no sample interval: give it with --import-interval or a "
                     "\"Sample Interval\" line.");
    }
    const float sampleSec = ToSingle(dt);
    if (!(sampleSec > 0)) fail(ErrorCode::TypeMismatch, name + ": the sample interval is too small.");

    // The record.
    DsoSetup s;
    const int channels = signals <= 2 ? 2 : 4;
    s.Model = channels == 2 ? kImportModel2 : kImportModel4;
    s.ChannelCount = static_cast<int16_t>(channels);
    s.DateTime = source.memory ? "" : fileDate(name);
    s.SampleInterval = sampleSec;
    s.RecordLength = static_cast<int32_t>(RoundHalfEven(static_cast<double>(rows) / 10.0)) * 10;
    s.TimePerDiv = ToSingle(static_cast<double>(s.RecordLength) * dt / 10.0);
    // The trigger sits where the file's time 0 is, so that times read as the file's own.
    s.TriggerDelay = ToSingle(-t0 - 5.0 * static_cast<double>(s.TimePerDiv));
    std::array<float, kMaxImportSignals> own{};
    double coarsest = 0;
    for (size_t c = 0; c < signals; ++c) {
        own[c] = VoltsPerDivFor(hi[c] - lo[c], 0);
        coarsest = std::max<double>(coarsest, own[c]);
    }
    const double floor = VoltsPerDivFor(coarsest / kFloorRatio * 8.0, kMinVoltsPerDiv);
    for (int ch = 1; ch <= channels; ++ch) {
        const auto c = static_cast<size_t>(ch - 1);
        const bool used = c < signals;
        s.TraceOn[ch] = used ? kTraceOn : kTraceOff;
        s.VoltsPerDiv[ch] = used ? std::max(own[c], static_cast<float>(floor)) : static_cast<float>(floor);
        s.Offset[ch] = used ? ToSingle(-(hi[c] + lo[c]) / 2.0) : 0.0f;
        s.Coupling[ch] = "DC";
    }
    record.ensureLength(std::max<int32_t>(s.RecordLength, static_cast<int32_t>(rows)));
    for (size_t c = signals; c < static_cast<size_t>(channels); ++c)
        std::fill(record.wave[c].begin(), record.wave[c].begin() + static_cast<std::ptrdiff_t>(rows), 0.0f);
    setup = std::move(s);

    result.generic = true;
    result.layout = std::string("generic CSV (") + delimName(L.delim) + " separated, decimal " +
                    (L.decimalComma ? "comma" : "point") + ", " +
                    (L.timeColumn ? "time column" : "interval " + ShortestText(dt) + " s") + ", " +
                    std::to_string(signals) + " signal column" + (signals == 1 ? "" : "s") + ")";
}

WaveCsvLoadResult guardedGeneric(const Source& source, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options) {
    WaveCsvLoadResult result;
    result.generic = true;  // also when refused: the setup was left as it was
    try {
        loadGeneric(source, setup, record, options, result);
    } catch (const RuntimeError& e) {
        std::string text = e.what();
        if (text.rfind(source.name, 0) != 0) text = source.name + ": " + text;
        result.outcome = Outcome(e.code(), std::move(text));
    } catch (const std::bad_alloc&) {
        result.outcome = Outcome(ErrorCode::OutOfMemory, source.name + ": out of memory.");
    }
    return result;
}

// The first lines of a file, enough to tell its layout.
std::string headOf(const Source& source) {
    LineScanner in;
    source.open(in);
    std::string head;
    std::string_view line;
    for (size_t n = 0; n < kHeadLines && in.next(line);) {
        if (line.empty()) continue;
        head.append(line);
        head.push_back('\n');
        ++n;
        if (line.starts_with("Ch1 V")) break;
    }
    return head;
}

// The program's own layout goes to loadOwn, any other to the generic reader.
template <class LoadOwn>
WaveCsvLoadResult loadAny(const Source& source, DsoSetup& setup, WaveRecord& record, const WaveImportOptions& options,
                          LoadOwn loadOwn) {
    std::string head;
    try {
        head = headOf(source);
    } catch (const RuntimeError& e) {
        WaveCsvLoadResult r;
        r.outcome = Outcome(e.code(), source.name + ": " + e.what());
        return r;
    }
    if (IsOwnWaveLayout(head)) return loadOwn();
    return guardedGeneric(source, setup, record, options);
}

}  // namespace

bool IsOwnWaveLayout(std::string_view head) {
    bool first = true;
    bool delta = false;
    bool points = false;
    while (!head.empty()) {
        const size_t end = head.find_first_of("\r\n");
        std::string_view line = head.substr(0, end);
        head = end == std::string_view::npos ? std::string_view() : head.substr(end + 1);
        if (line.empty()) continue;
        const std::string_view key = line.substr(0, line.find(','));
        if (first) {
            if (!key.starts_with("Model")) return false;
            first = false;
            continue;
        }
        if (key.starts_with("Delta")) delta = true;
        if (key.starts_with("Points")) points = true;
        if (key == "Ch1 V") return delta && points;
    }
    return false;
}

float VoltsPerDivFor(double range, double floor) {
    const double need = std::max(range / 8.0, floor);
    if (!(need > 0) || !std::isfinite(need)) return static_cast<float>(floor > 0 ? floor : kMinVoltsPerDiv);
    double decade = std::pow(10.0, std::floor(std::log10(need)));
    for (int i = 0; i < 8; ++i) {
        for (double step : {1.0, 2.0, 5.0}) {
            // Slack for the decade's own rounding: 0.3 / 8 must give 0.05, not 0.1.
            const double v = step * decade;
            if (v * (1 + 1e-9) >= need) return static_cast<float>(v);
        }
        decade *= 10;
    }
    return static_cast<float>(need);
}

WaveCsvLoadResult LoadGenericCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options) {
    return guardedGeneric(Source{std::string(fileName), {}, false}, setup, record, options);
}

WaveCsvLoadResult LoadGenericCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, const WaveImportOptions& options) {
    return guardedGeneric(Source{std::string(name), bytes, true}, setup, record, options);
}

WaveCsvLoadResult LoadAnyWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record, WaveFieldTable& table,
                                 const WaveImportOptions& options) {
    return loadAny(Source{std::string(fileName), {}, false}, setup, record, options,
                   [&] { return LoadWaveCsv(fileName, setup, record, table, options.own); });
}

WaveCsvLoadResult LoadAnyWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, WaveFieldTable& table, const WaveImportOptions& options) {
    return loadAny(Source{std::string(name), bytes, true}, setup, record, options,
                   [&] { return LoadWaveCsvBytes(bytes, name, setup, record, table, options.own); });
}

Outcome SaveGenericCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record) {
    FileReplacer out(fileName);
    const int columns = setup.ChannelCount == 2 ? 2 : 4;
    std::string buf = "Time(s)";
    for (int c = 1; c <= columns; ++c) buf += ",CH" + std::to_string(c) + "(V)";
    buf += "\r\n";
    size_t rows = setup.RecordLength > 0 ? static_cast<size_t>(setup.RecordLength) : 0;
    for (int c = 0; c < columns; ++c) rows = std::min(rows, record.wave[c].size());
    const double dt = setup.SampleInterval;
    const double t0 = -(static_cast<double>(setup.TriggerDelay) + 5.0 * static_cast<double>(setup.TimePerDiv));
    // Enough digits that the last one is well below the interval.
    const double span = std::max(std::fabs(t0), std::fabs(t0 + dt * static_cast<double>(rows)));
    int digits = 9;
    if (dt > 0 && span > 0) digits = std::clamp(static_cast<int>(std::ceil(std::log10(span / dt))) + 4, 6, 17);
    char text[64];
    for (size_t k = 0; k < rows; ++k) {
        const double t = t0 + dt * static_cast<double>(k);
        const auto r = std::to_chars(text, text + sizeof text, t, std::chars_format::general, digits);
        buf.append(text, r.ptr);
        for (int c = 0; c < columns; ++c) {
            buf.push_back(',');
            // The shortest text that reads back to the same float.
            const auto v = std::to_chars(text, text + sizeof text, record.wave[c][k]);
            buf.append(text, v.ptr);
        }
        buf.append("\r\n");
        if (buf.size() >= (size_t{4} << 20)) {
            out.write(buf);
            buf.clear();
        }
    }
    out.write(buf);
    return out.commit();
}

}  // namespace mervasto
