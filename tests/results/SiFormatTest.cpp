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
