#pragma once

#include <bit>
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

// How many of the eight characters in chunk (first character in the lowest
// byte) are digits before the first that is not.
inline int LeadingDigits(uint64_t chunk) {
    constexpr uint64_t kHigh = 0xF0F0F0F0F0F0F0F0u;
    constexpr uint64_t kZeros = 0x3030303030303030u;
    constexpr uint64_t kSix = 0x0606060606060606u;
    // A byte is a digit when its high nibble is 3 both before and after
    // adding 6; a carry out of a non-digit only disturbs later bytes.
    const uint64_t notDigit = ((chunk & kHigh) ^ kZeros) | (((chunk + kSix) & kHigh) ^ kZeros);
    return std::countr_zero(notDigit) >> 3;  // 8 when all are digits
}

// The number of eight digit characters, the first in the lowest byte; zero
// bytes count as leading zeros.
inline uint64_t EightDigits(uint64_t chunk) {
    uint64_t v = chunk & 0x0F0F0F0F0F0F0F0Fu;
    v = (v * 10 + (v >> 8)) & 0x00FF00FF00FF00FFu;
    v = (v * 100 + (v >> 16)) & 0x0000FFFF0000FFFFu;
    v = (v * 10000 + (v >> 32)) & 0x00000000FFFFFFFFu;
    return v;
}

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
