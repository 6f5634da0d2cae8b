#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wavefile/GenericCsvLayout.h"

// The words of a capture's head as the layout rules read them: lines that
// hold numbers or comments, separators, numbers with either decimal mark,
// units, column names and metadata keys. Only the layout rules use these.
namespace mervasto::csvhead {

// Rows read past the first before the layout is decided: enough to see
// whether a column steps like a time.
constexpr size_t kDataRunToTrust = 8;
constexpr size_t kNone = static_cast<size_t>(-1);
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

enum class UnitKind : uint8_t { None, Volt, Time, Rate, Count };

struct Unit {
    double factor = 1;
    UnitKind kind = UnitKind::None;
    bool known() const { return kind != UnitKind::None; }
};

struct Column {
    std::string name;  // lower case, without its unit
    Unit unit;
};

enum class MetaKind : uint8_t { None, Interval, Rate, Start };

struct MetaKey {
    MetaKind kind = MetaKind::None;
    Unit unit;  // "Sample Rate (kHz)"
};

struct Pair {
    std::string_view key;
    std::string_view value;
};

[[noreturn]] void fail(const std::string& text);

// A row of numbers: digits, signs, points, commas, exponents and separators;
// empty leading cells are allowed.
bool isDataLike(std::string_view line);

bool isCommentLine(std::string_view line);

const char* delimName(Delim d);

void splitLine(std::string_view line, Delim d, std::vector<std::string_view>& out);

// Parses a whole field as a number; nullopt when it is not one.
std::optional<double> parseNumber(std::string_view field, bool decimalComma);

Unit unitOf(std::string_view text);

// "Time(s)", "CH1 [mV]", "Time in ms", "t/s", "Volt" or "µs" (a unit alone).
Column parseColumnName(std::string_view text);

bool isTimeName(const Column& c);

bool isIndexColumn(const Column& c);

// The key of a metadata line or cell ("Sample Interval", "; Samplerate:",
// "#dt=", "tInc").
MetaKey metaKeyOf(std::string_view key);

// Keys of setup lines that exports write above their columns; such a line is
// never the header, even when its fields are units ("Vertical Units,V").
bool isMetadataLine(const std::vector<std::string_view>& fields);

// Seconds from the value of a metadata key: "2e-05", "20 us", "1 MHz" (a
// rate), "-0.01s"; nullopt when it is none.
std::optional<double> metaSeconds(std::string_view text, const MetaKey& key, bool decimalComma);

// The key/value pairs of a metadata line: "Key,value" (or with ";" or a
// tab), and every "key=value" or "key: value" among its cells.
std::vector<Pair> pairsOf(std::string_view line, bool& decimalComma);

Delim detectDelim(std::string_view row, std::string_view header);

bool looksLikeUnitsLine(const std::vector<std::string_view>& fields);

}  // namespace mervasto::csvhead
