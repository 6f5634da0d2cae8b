#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/LineScanner.h"

// How a capture exported as plain CSV is laid out: where its rows start, the
// separator and decimal mark, which column holds the time and the units of
// the columns. Worked out from the lines before and at the start of the rows
// (docs/file-formats.md has the rules).
namespace mervasto {

inline constexpr int kMaxImportSignals = 4;
// Lines looked at before the rows start: metadata blocks of exports are a few
// dozen lines at most.
inline constexpr size_t kCsvHeadLines = 200;

enum class Delim { Comma, Semicolon, Tab, Blanks };

struct CsvLayout {
    Delim delim = Delim::Comma;
    bool decimalComma = false;
    size_t columns = 0;  // fields of a data row
    bool timeColumn = false;
    double timeFactor = 1;
    std::vector<double> signalFactor;  // per signal column used
    std::vector<std::string> names;    // header names as written, per column; empty without a header
    double interval = 0;               // from a metadata line
    size_t ignoredColumns = 0;

    char point() const { return decimalComma ? ',' : '.'; }
    // The separator; a tab for Blanks, where it is never looked for.
    char separator() const { return delim == Delim::Comma ? ',' : delim == Delim::Semicolon ? ';' : '\t'; }
};

// The non-empty lines of a file up to its first rows of numbers.
struct CsvHead {
    std::vector<std::string> lines;
    std::vector<uint64_t> lineNumbers;
    size_t dataAt = 0;  // the first row
};

inline bool IsCellBlank(char c) { return c == ' ' || c == '\t'; }
// A cell without the blanks and quotes around it.
std::string_view TrimCell(std::string_view s);

// Reads the head from in, which is left after its last line. A file without
// rows of numbers is refused (a TypeMismatch RuntimeError).
CsvHead ReadCsvHead(LineScanner& in, const std::string& name);
// givenInterval is the interval the user gave for a file without a time
// column (0 when none). Refuses a file without a signal column.
CsvLayout ReadCsvLayout(const CsvHead& head, double givenInterval, const std::string& name);
// "column 3 (\"CH2\")", for the texts of faults.
std::string ColumnLabel(const CsvLayout& layout, size_t column);
// What was recognised, for the load result.
std::string LayoutText(const CsvLayout& layout, double interval);

}  // namespace mervasto
