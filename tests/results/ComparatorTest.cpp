#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>

#include "common/RuntimeError.h"
#include "results/Comparator.h"

namespace mervasto {
namespace {

TEST(JudgeCount, LimitsBelongToGo) {
    const std::array<int32_t, 4> cases[] = {
        // count, LL, UL, Go
        {10, 10, 20, 1},
        {20, 10, 20, 1},
        {9, 10, 20, 0},
        {21, 10, 20, 0},
        {0, 0, 0, 1},
        {15, 20, 10, 0},
        {20, 20, 10, 0},
        {10, 20, 10, 0},  // LL > UL: never Go
        {INT32_MIN, INT32_MIN, INT32_MAX, 1},
        {INT32_MAX, INT32_MIN, INT32_MAX, 1},
    };
    for (const auto& [count, LL, UL, go] : cases) EXPECT_EQ(JudgeCount(count, LL, UL), go != 0) << count << " " << LL;
}

// Limits of one record as text, for comparing whole tables.
std::string limits(const ChannelResultTable& t) {
    std::string s;
    for (int ch = 0; ch < kResultChannels; ++ch)
        for (Measure k : {Measure::PulseWidth, Measure::Duty}) {
            const ChannelResult& r = t.at(ch, k);
            s += std::to_string(r.LL) + "," + std::to_string(r.UL) + "," + std::to_string(r.ValueLimit1) + "," +
                 std::to_string(r.ValueLimit2) + ";";
        }
    return s;
}

TEST(LoadComparator, ReadsFieldsAndStopsAtTheFirstBadLine) {
    struct Case {
        const char* text;
        bool ok;
        std::vector<std::tuple<int, int, int32_t, int32_t, float, float>> changed;  // ch, kind, LL, UL, l1, l2
    };
    const Case cases[] = {
        {"% only comments\r\n%1,2,3\r\n\r\n", true, {}},
        {"2,,,1.5", true, {{1, 0, 1, 2, 1.5f, 4}}},  // empty fields keep their values
        {"1,5,9,0.25,0.75,3,4\n6,-1,1", true, {{0, 0, 5, 9, 0.25f, 0.75f}, {0, 1, 1, 2, 3, 4}, {5, 0, -1, 1, 3, 4}}},
        {"3,7,8,,,,,junk", true, {{2, 0, 7, 8, 3, 4}}},        // past the seventh field: ignored
        {"4,1\r2,3", true, {{3, 0, 12, 3, 3, 4}}},             // CR inside a line dropped
        {"1,5,9\n0,1,2\n2,1,1", false, {{0, 0, 5, 9, 3, 4}}},  // earlier lines stay
        {"7,1,2", false, {}},
        {"x,1,2", false, {}},
        {",1,2", false, {}},
        {"1,abc,2", false, {}},
        {"1,2,3x", false, {}},
        {"1,2,3,1e-3,oops", false, {}},  // a bad field stops the whole line
        {"1,2147483648", false, {}},     // 32-bit overflow
        {"1,1,2,1e39", false, {}},       // beyond single precision
        {"1,-2147483648,2147483647", true, {{0, 0, INT32_MIN, INT32_MAX, 3, 4}}},
    };
    ChannelResultTable preset;
    for (ChannelResult& r : preset.cell) r = {.LL = 1, .UL = 2, .ValueLimit1 = 3, .ValueLimit2 = 4};
    for (const Case& c : cases) {
        ChannelResultTable t = preset, expect = preset;
        for (const auto& [ch, kind, LL, UL, l1, l2] : c.changed)
            expect.at(ch, static_cast<Measure>(kind)) = {.LL = LL, .UL = UL, .ValueLimit1 = l1, .ValueLimit2 = l2};
        const Outcome load = LoadComparatorText(c.text, t);
        EXPECT_EQ(load.ok(), c.ok) << c.text;
        EXPECT_EQ(load.text(), c.ok ? "" : "Illegal Character.") << c.text;
        EXPECT_EQ(limits(t), limits(expect)) << c.text;
    }

    const std::filesystem::path file = std::filesystem::temp_directory_path() / "mervasto_comparator_test.txt";
    std::ofstream(file, std::ios::binary) << "% ch,LL,UL\r\n2,10,20\r\n";
    ChannelResultTable t;
    EXPECT_TRUE(LoadComparatorFile(file.string(), t).ok());
    EXPECT_EQ(t.at(1, Measure::PulseWidth).UL, 20);
    std::filesystem::remove(file);
    EXPECT_EQ(LoadComparatorFile(file.string(), t).text(), "No File.");
}

std::string rowText(const Grid& g, int32_t row) {
    std::string s;
    for (int32_t c = 0; c < g.cols(); ++c) s += g.text(row, c) + "|";
    return s;
}

// Set value limits (lower below upper; both 0 is unset) judge the extremes
// of every cycle's value, both limits included, in single precision.
TEST(CheckLimits, CountsAndValuesBreakTheirOwnLimits) {
    struct Case {
        float lower, upper;
        double lowest, highest;
        int32_t measured;
        bool belowValueLL, aboveValueUL;
    };
    const Case cases[] = {
        {0, 0, -5, 5, 3, false, false},                 // not set
        {2e-9f, 1e-9f, 10e-6, 10e-6, 3, false, false},  // not in order: not set
        {1e-9f, 2e-9f, 10e-6, 10e-6, 3, false, true},   // pulse widths of 10 us against 1..2 ns
        {1e-9f, 2e-9f, 0.5e-9, 1e-9, 3, true, false},
        {1.5e-6f, 2.5e-6f, 1.5e-6, 2.5e-6, 3, false, false},  // the limits themselves pass
        {40, 60, 39.999, 60, 3, true, false},
        {1, 2, 0, 5, 0, false, false},  // no cycle has a value
    };
    for (const auto& c : cases) {
        ChannelResult r{.Counts = 3, .LL = 0, .UL = 10, .ValueLimit1 = c.lower, .ValueLimit2 = c.upper};
        r.Lowest = c.lowest;
        r.Highest = c.highest;
        r.Measured = c.measured;
        const LimitCheck check = CheckLimits(r);
        EXPECT_EQ(check.belowValueLL, c.belowValueLL) << c.lower << " " << c.lowest;
        EXPECT_EQ(check.aboveValueUL, c.aboveValueUL) << c.upper << " " << c.highest;
        EXPECT_EQ(check.go(), !c.belowValueLL && !c.aboveValueUL);
        r.UL = 2;
        EXPECT_TRUE(CheckLimits(r).aboveUL);
        EXPECT_FALSE(CheckLimits(r, false).aboveUL);  // a row judged on its values only
    }
}

TEST(DetailCycleGrid, BuildsJudgesAndEditsLimits) {
    ChannelDisplays chs;
    chs[0].backColour = 0x00FF00;
    chs[1].DispOffCheck = true;
    chs[2].typeText = "Duty";
    chs[3].typeText = "Gate";
    ChannelResultTable t;
    t.at(0, Measure::PulseWidth) = {.Counts = 50, .LL = 10, .UL = 100};
    t.at(2, Measure::PulseWidth) = {.Counts = 5, .LL = 10, .UL = 100};
    t.at(3, Measure::PulseWidth) = {.Counts = 1, .LL = 3, .UL = 2};
    t.at(0, Measure::PulseWidth).Lowest = 9e-6;
    t.at(0, Measure::PulseWidth).Highest = 10e-6;
    t.at(0, Measure::PulseWidth).Measured = 50;

    Grid g;
    SetupDetailCycleGrid(g);
    const auto rows = BuildDetailCycleGrid(g, chs, t);
    ASSERT_EQ(g.rows(), 4);
    EXPECT_EQ(rowText(g, 0), "Ch|Signal|Total|LL|UL|Go/NG|Value LL|Value UL|");
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|100|Go|||");
    EXPECT_EQ(rowText(g, 2), "3|Duty|5|10|100|NG|||");
    EXPECT_EQ(rowText(g, 3), "4|Gate|1|||NG|||");  // the gate shows no limits
    EXPECT_TRUE(t.at(0, Measure::PulseWidth).Go);
    EXPECT_FALSE(t.at(2, Measure::PulseWidth).Go);
    EXPECT_EQ(g.cellColour(1, kCycleColVerdict)->back, 0x00FF00u);
    EXPECT_EQ(g.cellColour(2, kCycleColVerdict)->back, kNgBackColour);

    // LL down to the count: Go; UL below the count: NG.
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 2, kCycleColLL, "5"));
    EXPECT_EQ(rowText(g, 2), "3|Duty|5|5|100|Go|||");
    EXPECT_TRUE(t.at(2, Measure::PulseWidth).Go);
    EXPECT_EQ(g.cellColour(2, kCycleColVerdict)->back, chs[2].backColour);
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColUL, "49"));
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|49|NG|||");
    EXPECT_EQ(t.at(0, Measure::PulseWidth).UL, 49);
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColUL, "1e2"));
    // Pulse widths of 9 to 10 us against value limits in seconds, typed with
    // a prefix or an exponent: NG above 9.5 us, Go again up to 10 us.
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColValueLL, "1n"));
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColValueUL, "9.5 us"));
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|100|NG|1 ns|9.5 us|");
    EXPECT_FALSE(t.at(0, Measure::PulseWidth).Go);
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColValueUL, "1e-5"));
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|100|Go|1 ns|10 us|");
    EXPECT_FLOAT_EQ(t.at(0, Measure::PulseWidth).ValueLimit2, 1e-5f);

    // Not a limit column, the gate row, the header: nothing to edit.
    for (auto [row, col] : {std::pair{1, kCycleColTotal}, {3, kCycleColLL}, {0, kCycleColLL}})
        EXPECT_EQ(EditDetailCycleLimit(g, rows, chs, t, row, col, "0").code(), ErrorCode::Canceled);
    // Text that is no limit stays in its cell, marked with the reason; the
    // record keeps its limit and its verdict.
    const std::pair<int32_t, const char*> refused[] = {
        {kCycleColLL, "abc"},    {kCycleColLL, "12abc"}, {kCycleColUL, "2.7"},      {kCycleColUL, "3e9"},
        {kCycleColLL, "-1e300"}, {kCycleColLL, ""},      {kCycleColValueUL, "5 V"}, {kCycleColValueLL, "1e39"}};
    for (const auto& [col, text] : refused) {
        const Outcome edit = EditDetailCycleLimit(g, rows, chs, t, 2, col, text);
        EXPECT_EQ(edit.code(), ErrorCode::BadOption) << text;
        EXPECT_EQ(g.text(2, col), text);
        ASSERT_NE(g.cellNote(2, col), nullptr) << text;
        EXPECT_EQ(*g.cellNote(2, col), edit.text());
        EXPECT_EQ(g.cellColour(2, col)->back, kNgBackColour);
    }
    EXPECT_EQ(std::make_tuple(t.at(2, Measure::PulseWidth).LL, t.at(2, Measure::PulseWidth).UL),
              std::make_tuple(5, 100));
    EXPECT_TRUE(t.at(2, Measure::PulseWidth).Go);
    EXPECT_EQ(EditDetailCycleLimit(g, rows, chs, t, 2, kCycleColLL, "3e9").text(),
              "LL cannot be \"3e9\": it takes a whole number from -2147483648 to 2147483647.");

    // Limits that cannot pass, or are not judged, are said beside the grid.
    EXPECT_TRUE(LimitWarnings(rows, t).empty());
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 2, kCycleColLL, "200"));
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, kCycleColValueLL, "20u"));
    const auto warnings = LimitWarnings(rows, t);
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0], "Row 1 (Ch1): Value LL is not below Value UL, so the values are not judged.");
    EXPECT_EQ(warnings[1], "Row 2 (Ch3): LL 200 is above UL 100, so every count is NG.");
}

}  // namespace
}  // namespace mervasto
