#pragma once

#include <array>
#include <climits>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/DecimalScan.h"
#include "wavefile/GenericCsvLayout.h"

// The rows of a generic capture, taken one by one into sample arrays.
namespace mervasto {

inline constexpr int kNoExp = INT_MAX;

// A fault in one row; whoever knows the row's line number tells it.
struct RowFault {
    enum Kind { Empty, NotNumber, TooMany } kind;
    size_t column;
    std::string text;
};

// What a run of rows gave.
struct Rows {
    static constexpr float kInf = std::numeric_limits<float>::infinity();

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

    // Where the second reader stopped at a fault.
    std::optional<RowFault> fault;
    uint64_t faultLine = 0;  // counted from its first line, 1-based

    // Appends the rows of more (read after these).
    void append(const Rows& more, size_t signals);
};

class RowParser {
public:
    explicit RowParser(const CsvLayout& L);

    // The columns a row must have: up to the last one used.
    size_t needed() const { return needed_; }

    // Takes one row into rows; bytesLeft sizes the arrays when they fill up.
    // Throws a RowFault.
    void take(std::string_view line, Rows& rows, uint64_t bytesLeft) const;

private:
    static void grow(Rows& rows, size_t lineBytes, uint64_t bytesLeft);
    void parseField(size_t c, const char* p, const char* e, Rows& rows) const;
    void store(size_t c, const Decimal& d, const char* p, const char* e, Rows& rows) const;
    template <class T>
    void fromChars(size_t c, const char* p, const char* e, T& value) const;
    [[gnu::noinline]] float signalValue(size_t c, size_t s, const Decimal& d, const char* p, const char* e) const;
    void storeTime(size_t c, const Decimal& d, const char* p, const char* e, Rows& rows) const;

    const CsvLayout& L_;
    std::array<bool, kMaxImportSignals> unscaled_{};
    const int8_t* roles_;  // the layout's, per column
    size_t needed_;
    char point_;
    char sep_;
};

}  // namespace mervasto
