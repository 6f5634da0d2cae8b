#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Fast paths for the sample columns of the wave CSV file, where millions of
// numbers pass through. Each gives exactly what the general routines of
// common/Numeric.h give (AppendPrintForm, ValSingle) and hands every case it
// cannot settle cheaply and exactly to them.
namespace mervasto {

// The longest print form of a float (" -1.23456789E-38 " and the like).
inline constexpr size_t kSampleTextMax = 24;

void AppendSampleText(std::string& out, float x);
// Writes the print form at out (room for kSampleTextMax characters) and
// returns the end.
char* WriteSampleText(char* out, float x);
float SampleValue(std::string_view text);

// WriteSampleText with a memory of recent values. Samples come from 16-bit
// instrument codes, so a record of millions of samples holds few distinct
// values per channel; each is formatted once.
class SampleTextCache {
public:
    SampleTextCache();
    // Writes at out as WriteSampleText does (room for kSampleTextMax
    // characters) and returns the end.
    char* write(char* out, float x);

private:
    struct Entry {
        uint32_t bits;
        uint8_t length;  // 0: empty
        char text[19];
    };
    std::vector<Entry> entries_;
};

}  // namespace mervasto
