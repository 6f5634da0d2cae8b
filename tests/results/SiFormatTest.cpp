#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "results/SiFormat.h"

namespace mervasto {
namespace {

TEST(FormatSiValue, PrefixBoundariesAndCutting) {
    const std::pair<float, const char*> cases[] = {
        {0.0f, "0.0"},
        {-0.0f, "0.0"},
        {std::ldexp(1.0f, -100), "0.0"},     // 7.9e-31: under the floor
        {std::ldexp(1.0f, -99), "1.5777n"},  // 1.58e-30: just over it
        {std::ldexp(1.0f, -30), "0.9313n"},  // 9.3e-10: at or below 1e-9 is "n"
        {std::ldexp(1.0f, -20), "0.9536u"},  // 9.5e-7: "u" with a mantissa below 1
        {std::ldexp(1.0f, -10), "976.56u"},  // just under 1e-3
        {0.0123f, "12.299m"},                // the float's noise digits show
        {-0.25f, "-250m"},
        {1.0f, "1000m"},          // exactly 1 is still "m"
        {123.456789f, "123.45"},  // cut, not rounded
        {-98.76543f, "-98.76"},   // the minus sign counts
        {1000.0f, "1000"},
        {1000.5f, "1.0005k"},
        {-1234.5f, "-1.234k"},
        {1e6f, "1000k"},          // exactly 1e6 is still "k"
        {1234567.0f, "1.2345M"},  // through the float's text: no noise
        {3e38f, "3E+32M"},
    };
    for (const auto& [x, text] : cases) EXPECT_EQ(FormatSiValue(x), text) << x;
}

TEST(SiText, PrefixAndSignificantDigits) {
    const struct {
        double value;
        const char* unit;
        int digits;
        const char* text;
    } cases[] = {
        {0.00125, "s", 3, "1.25 ms"},
        {5e-4, "s", 3, "500 us"},
        {2, "V", 3, "2 V"},
        {0, "s", 3, "0 s"},
        {999.7, "Hz", 3, "1 kHz"},  // rounded before the prefix is chosen
        {1e-9, "s", 3, "1 ns"},
        {-0.02, "V", 3, "-20 mV"},
        {12.5e-6, "s", 3, "12.5 us"},
        {0.1, "s", 3, "100 ms"},
        {1.5e-13, "s", 3, "0.15 ps"},  // below the smallest prefix
        {2.5e6, "Hz", 3, "2.5 MHz"},
        {52.5, "%", 3, "52.5 %"},  // no prefix for a share
        {999.6e-9, "s", 4, "999.6 ns"},
        {999.96e-9, "s", 4, "1 us"},
        {0.5e-15, "s", 4, "0.0005 ps"},
        {4.55e-13, "s", 3, "0.455 ps"},
        {-7.479e-23, "s", 4, "-7.479e-11 ps"},
    };
    for (const auto& c : cases) EXPECT_EQ(SiText(c.value, c.unit, c.digits), c.text) << c.value;
}

TEST(GetValUnit, SplitsUnitAndPrefix) {
    const std::array<const char*, 3> cases[] = {
        {"5.1 V", "5.1", "V"},
        {"10.2k Hz", "10.2k Hz", ""},     // "z" is no unit: the whole text stays
        {"12.34m s", "12.34m e-3", "s"},  // exponent after the cell text, prefix kept
        {"7u V", "7u e-6", "V"},
        {"3n A", "3n e-9", "A"},
        {"2.5K %", "2.5K e3", "%"},
        {"5m", "5e-3", ""},  // short text without unit: clean exponent
        {"3.3k", "3.3e3", ""},
        {"2M", "2e6", ""},
        {"12", "12", ""},
        {"0.0 %", "0.0", "%"},
    };
    for (const auto& [cell, val, unit] : cases) {
        std::string v = "old", u = "old";
        GetValUnit(cell, v, u);
        EXPECT_EQ(v, val) << cell;
        EXPECT_EQ(u, unit) << cell;
    }
    Grid grid(1, 1);
    std::string v = "keep", u = "u";
    GetValUnit(grid, 0, 0, v, u);  // an empty cell changes nothing
    EXPECT_EQ(v + u, "keepu");
}

}  // namespace
}  // namespace mervasto
