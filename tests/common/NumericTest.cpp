#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

using namespace mervasto;

TEST(Val, TakesTheLongestLeadingNumber) {
    struct Case {
        const char* text;
        double want;
    };
    const Case cases[] = {
        {"", 0},         {"abc", 0}, {"  12.5 V", 12.5},  {".5", 0.5},   {"-.25", -0.25}, {"1e-6", 1e-6},
        {"1E+3x", 1000}, {"+7", 7},  {"1e", 1},           {"1e+", 1},    {"\t3", 3},      {" .125 ", 0.125},
        {"-", 0},        {".", 0},   {"1.5.5", 1.5},      {"2D3", 2000}, {"0x10", 0},     {"inf", 0},
        {"nan", 0},      {"-0", 0},  {"1e400", INFINITY}, {"1e-400", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(Val(c.text), c.want) << c.text;
}

TEST(NumberText, IsStrictAboutTheWholeText) {
    EXPECT_EQ(NumberText(" 1.5 "), 1.5);
    EXPECT_EQ(NumberText("-.5"), -0.5);
    for (const char* bad : {"", " ", "abc", "1.5V", "1 2"}) EXPECT_THROW(NumberText(bad), RuntimeError) << bad;
}

TEST(ToInt, RoundsHalvesToEvenAndReportsOverflow) {
    struct Case {
        double x;
        int32_t want;
    };
    const Case cases[] = {{0.5, 0},  {1.5, 2},       {2.5, 2},     {-2.5, -2},
                          {-0.5, 0}, {1234.5, 1234}, {123.5, 124}, {2.4999, 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(ToInt32(c.x), c.want) << c.x;
        EXPECT_EQ(ToInt16(c.x), c.want) << c.x;
    }
    EXPECT_EQ(ToInt16(32767.4), 32767);
    EXPECT_EQ(ToInt16(-32768.5), -32768);
    EXPECT_THROW(ToInt16(32767.5), RuntimeError);
    EXPECT_THROW(ToInt16(-32769), RuntimeError);
    EXPECT_THROW(ToInt16(NAN), RuntimeError);
    EXPECT_EQ(ToInt32(2147483647.0), 2147483647);
    EXPECT_THROW(ToInt32(2147483647.5), RuntimeError);
    EXPECT_THROW(ToSingle(1e39), RuntimeError);
    EXPECT_EQ(ToSingle(0.1), 0.1f);
}

TEST(PrintForm, KeepsTheBlankRuleAndDropsTheLeadingZero) {
    struct Case {
        float x;
        const char* want;
    };
    const Case cases[] = {
        {0.001f, " .001 "},
        {-0.5f, "-.5 "},
        {0.0f, " 0 "},
        {1e-5f, " 1E-05 "},
        {0.125f, " .125 "},
        {1.25f, " 1.25 "},
        {100000.0f, " 100000 "},
        {1234567.0f, " 1234567 "},
        {12345678.0f, " 1.2345678E+07 "},
        {0.0001f, " .0001 "},
        {-3.0f, "-3 "},
        {1e20f, " 1E+20 "},
        {2.5e-7f, " 2.5E-07 "},
    };
    for (const auto& c : cases) EXPECT_EQ(PrintForm(c.x), c.want) << c.x;
    EXPECT_EQ(PrintForm(int32_t{16711680}), " 16711680 ");
    EXPECT_EQ(PrintForm(int32_t{-1}), "-1 ");
    EXPECT_EQ(PrintForm(1e-5), " 1E-05 ");
    EXPECT_EQ(PrintForm(123456789012.0), " 123456789012 ");
}

TEST(PrintForm, ReadsBackToTheSameFloat) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> bits;
    int checked = 0;
    while (checked < 200000) {
        uint32_t b = bits(rng);
        float x;
        std::memcpy(&x, &b, sizeof x);
        if (!std::isfinite(x)) continue;
        ++checked;
        std::string s = PrintForm(x);
        ASSERT_EQ(ValSingle(s), x) << s;
        ASSERT_EQ(static_cast<float>(Val(s)), x) << s;
        ASSERT_TRUE(s.back() == ' ');
        ASSERT_TRUE(s[0] == ' ' || s[0] == '-');
    }
}

TEST(ShortestText, UsesTheDisplayPrecision) {
    EXPECT_EQ(ShortestText(0.25f), "0.25");
    EXPECT_EQ(ShortestText(1234567.0f), "1234567");
    EXPECT_EQ(ShortestText(1e-5f), "1E-05");
    EXPECT_EQ(ShortestText(-0.5f), "-0.5");
    EXPECT_EQ(ShortestText(0.0f), "0");
    EXPECT_EQ(ShortestText(0.1f), "0.1");
    EXPECT_EQ(ShortestText(1.2345678f), "1.234568");
    EXPECT_EQ(ShortestText(12.299999594688416), "12.2999995946884");
    EXPECT_EQ(ShortestText(0.1), "0.1");
    EXPECT_EQ(ShortestText(1e15), "1E+15");
    EXPECT_EQ(ShortestText(double{0.0123f} * 1e3), "12.2999995946884");
}

TEST(Bool, PrintsAndReadsTheWords) {
    EXPECT_EQ(BoolText(true), "True");
    EXPECT_TRUE(BoolFromText("True"));
    EXPECT_FALSE(BoolFromText("false"));
    EXPECT_TRUE(BoolFromText(" -1 "));
    EXPECT_THROW(BoolFromText("maybe"), RuntimeError);
}

TEST(TextUtil, SplitsAndClamps) {
    EXPECT_EQ(SplitFields("a,,b"), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(SplitFields(""), (std::vector<std::string>{""}));
    std::vector<std::string> table{"x", "y", "z", "w"};
    EXPECT_EQ(SplitFieldsInto("1,2", table), 2u);
    EXPECT_EQ(table, (std::vector<std::string>{"1", "2", "z", "w"}));
    EXPECT_EQ(FirstLine("1\r\n"), "1");
    EXPECT_EQ(FirstLine("abc"), "abc");
    EXPECT_EQ(FirstLine("a\nb"), "a");
    struct Case {
        const char* text;
        const char* want;
    };
    const Case cases[] = {{"0", "1"},   {"20000", "16000"}, {"abc", "1"},    {"16000", "16000"},
                          {"2.5", "2"}, {"3.5", "4"},       {"1e9", "16000"}};
    for (const auto& c : cases) EXPECT_EQ(LimitValueText(c.text, 1, 16000), c.want) << c.text;
    EXPECT_EQ(MidText("DS-5354", 7, 1), "4");
    EXPECT_EQ(MidText("DS-53", 7, 1), "");
    EXPECT_EQ(RightText("abc", 5), "abc");
}
