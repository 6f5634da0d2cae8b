#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/LineScanner.h"

// How a capture exported as plain CSV is laid out: where its rows start, the
// separator and decimal mark, what each column holds and where the time base
// comes from. Worked out from the lines before and at the start of the rows,
// by the rules of LayoutRules() (docs/file-formats.md has them with samples).
namespace mervasto {

inline constexpr int kMaxImportSignals = 4;
// The layout is told from the first 64 KiB: the metadata blocks of exports
// are a few dozen lines, and a file whose rows start later is no capture.
inline constexpr uint64_t kLayoutBytes = uint64_t{64} << 10;

enum class Delim { Comma, Semicolon, Tab, Blanks };

// What a column of a row is used for; signal columns hold their signal's
// number, from 0.
inline constexpr int8_t kSkipColumn = -2;
inline constexpr int8_t kTimeColumn = -1;

struct CsvLayout {
    Delim delim = Delim::Comma;
    bool decimalComma = false;
    size_t columns = 0;          // fields of a data row, or the header's when it names more
    size_t rowsAt = 0;           // the line of the head the rows start at
    std::vector<int8_t> roles;   // per column, up to the last one used
    bool timeColumn = false;     // a column gives each row's time,
    double timeFactor = 1;       // in units of this many seconds
    bool timeFromIndex = false;  // a column of sample numbers, timeFactor the interval
    double start = 0;            // the first row's time, when the head gives it
    bool hasStart = false;
    std::vector<double> signalFactor;  // per signal column used
    std::vector<std::string> names;    // header names as written, per column; empty without a header
    double interval = 0;               // from a line of the head ...
    uint64_t intervalLine = 0;         // ... this one
    size_t ignoredColumns = 0;
    std::vector<const char*> recognised;  // the names of the rules that applied

    char point() const { return decimalComma ? ',' : '.'; }
    // The separator; a tab for Blanks, where it is never looked for.
    char separator() const { return delim == Delim::Comma ? ',' : delim == Delim::Semicolon ? ';' : '\t'; }
};

// The non-empty lines of a file up to its first rows of numbers and a few
// rows more.
struct CsvHead {
    std::vector<std::string> lines;
    std::vector<uint64_t> lineNumbers;
    std::vector<uint8_t> blankAbove;  // an empty line stood right above
    size_t dataAt = 0;                // the first line of numbers
    bool byteOrderMark = false;       // dropped from the first line
};

// One thing the reader recognises in a head. The rules are tried in their
// order; each takes what it finds into the scan and says whether it found it.
struct LayoutScan;
struct LayoutRule {
    const char* name;  // as the load result's layout text says it
    bool (*applies)(LayoutScan&);
};
std::span<const LayoutRule> LayoutRules();

inline bool IsCellBlank(char c) { return c == ' ' || c == '\t'; }
// A cell without the blanks and quotes around it.
std::string_view TrimCell(std::string_view s);

// Reads the head from in (at most its first kLayoutBytes), which is left
// after its last line. A file without rows of numbers there is refused (a
// TypeMismatch RuntimeError).
CsvHead ReadCsvHead(LineScanner& in, const std::string& name);
// givenInterval is the interval the user gave (0 when none). Refuses, naming
// the line, a head whose time base cannot be told for sure, and a file
// without a signal column.
CsvLayout ReadCsvLayout(const CsvHead& head, double givenInterval, const std::string& name);
// "column 3 (\"CH2\")", for the texts of faults.
std::string ColumnLabel(const CsvLayout& layout, size_t column);
// What was recognised, for the load result.
std::string LayoutText(const CsvLayout& layout, double interval);

}  // namespace mervasto
