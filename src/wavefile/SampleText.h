#pragma once

#include <string>
#include <string_view>

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

}  // namespace mervasto
