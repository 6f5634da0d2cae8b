#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "results/Grid.h"

// Short value texts with an SI prefix letter, and their reading back.
namespace mervasto {

// The texts of the newer views (wave and plot labels, the jitter tab), not
// of the result grids: `digits` significant digits, trailing zeros dropped,
// and the prefix (p n u m k M G) that keeps the mantissa from 1 to 999:
// "1.25 ms", "500 us", "0 s". Below 1 p the digits stay significant
// ("0.455 ps"). "%" takes no prefix ("52.5 %").
std::string SiText(double value, std::string_view unit, int digits = 3);

// A value as typed in the unit, with a prefix letter and the unit both
// optional: "1.5 us", "1.5u", "1.5e-6" (s); "52.5 %"; "10 kHz", "10k" (Hz).
// Anything else, and a value that is not finite, gives nothing.
std::optional<double> ReadSiText(std::string_view text, std::string_view unit);

// At most 6 characters of the number (cut, not rounded; a minus sign counts)
// and a prefix letter: "M" above 1e6, "k" above 1000, none above 1, "m" up
// to and including 1 (so 1 is "1000m"), "u" above 1e-9, "n" below; "0.0"
// under 1e-30. "M" and "k" go through the float's shortest text so no
// conversion noise shows; "m", "u" and "n" scale the float's exact value, so
// 0.0123 is "12.299m".
std::string FormatSiValue(float x);

// Splits a cell text such as "12.5m s" into a number text and a unit letter
// ("%", "s", "V" or "A"; anything else stays in the number text, so "10.2k
// Hz" comes back whole with no unit), then turns a trailing prefix letter
// into an exponent. The exponent is appended to the cell text without its
// last character, not to the number text: "12.34m s" gives "12.34m e-3" and
// "s", while "5m" gives "5e-3". The log has always held values in this form.
// An empty cell leaves val1 and unit1 as they are.
void GetValUnit(std::string_view cellText, std::string& val1, std::string& unit1);
void GetValUnit(const Grid& grid, int32_t row1, int32_t col1, std::string& val1, std::string& unit1);

}  // namespace mervasto
