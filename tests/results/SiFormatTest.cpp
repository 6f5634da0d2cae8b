#include <gtest/gtest.h>

#include <cmath>

#include "results/SiFormat.h"

namespace mervasto {
namespace {

TEST(FormatSiValue, PrefixBoundariesAndCutting) {
    struct Case {
        float x;
        const char* text;
    };
    const Case cases[] = {
        {0.0f, "0.0"},
        {-0.0f, "0.0"},
        {std::ldexp(1.0f, -100), "0.0"},          // 7.9e-31, under the floor
        {std::ldexp(1.0f, -99), "1.5777n"},       // 1.58e-30, just over it
        {std::ldexp(1.0f, -30), "0.9313n"},       // 9.3e-10: at or below 1e-9 is "n"
        {std::ldexp(1.0f, -20), "0.9536u"},       // 9.5e-7: "u" with a mantissa below 1
        {std::ldexp(1.0f, -10), "976.56u"},       // 0.00098: just under 1e-3
        {0.0123f, "12.299m"},                     // the float's noise digits show
        {-0.25f, "-250m"},
        {0.5f, "500m"},
        {1.0f, "1000m"},                          // exactly 1 is still "m"
        {1.5f, "1.5"},
        {123.456789f, "123.45"},                  // cut, not rounded
        {-98.76543f, "-98.76"},                   // the minus sign counts
        {1000.0f, "1000"},                        // exactly 1000 has no prefix
        {1000.5f, "1.0005k"},
        {-1234.5f, "-1.234k"},
        {1e6f, "1000k"},                          // exactly 1e6 is still "k"
        {1234567.0f, "1.2345M"},                  // through the float's text: no noise
        {1000001.0f, "1.0000M"},
        {3e38f, "3E+32M"},
    };
    for (const Case& c : cases) EXPECT_EQ(FormatSiValue(c.x), c.text) << c.x;
}

TEST(GetValUnit, SplitsUnitAndPrefix) {
    struct Case {
        const char* cell;
        const char* val;
        const char* unit;
    };
    const Case cases[] = {
        {"5.1 V", "5.1", "V"},
        {"10.2k Hz", "10.2k Hz", ""},     // "z" is no unit: the whole text stays
        {"12.34m s", "12.34m e-3", "s"},  // exponent after the cell text, prefix kept
        {"7u V", "7u e-6", "V"},
        {"3n A", "3n e-9", "A"},
        {"1000m %", "1000m e-3", "%"},
        {"2.5K s", "2.5K e3", "s"},
        {"5m", "5e-3", ""},               // short text without unit: clean exponent
        {"3.3k", "3.3e3", ""},
        {"2M", "2e6", ""},
        {"1.5M V", "1.5M e6", "V"},
        {"12", "12", ""},
        {"0.0 %", "0.0", "%"},
        {"1234", "1234", ""},
    };
    for (const Case& c : cases) {
        std::string val = "old", unit = "old";
        GetValUnit(c.cell, val, unit);
        EXPECT_EQ(val, c.val) << c.cell;
        EXPECT_EQ(unit, c.unit) << c.cell;
    }
}

TEST(GetValUnit, EmptyCellChangesNothing) {
    Grid grid(2, 2);
    std::string val = "keep", unit = "u";
    GetValUnit(grid, 1, 1, val, unit);
    EXPECT_EQ(val, "keep");
    EXPECT_EQ(unit, "u");
}

}  // namespace
}  // namespace mervasto
