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

    Grid g;
    SetupDetailCycleGrid(g);
    const auto rows = BuildDetailCycleGrid(g, chs, t);
    ASSERT_EQ(g.rows(), 4);
    EXPECT_EQ(rowText(g, 0), "Ch|Signal|Total|LL|UL|Go/NG|");
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|100|Go|");
    EXPECT_EQ(rowText(g, 2), "3|Duty|5|10|100|NG|");
    EXPECT_EQ(rowText(g, 3), "4|Gate|1|||NG|");  // the gate shows no limits
    EXPECT_TRUE(t.at(0, Measure::PulseWidth).Go);
    EXPECT_FALSE(t.at(2, Measure::PulseWidth).Go);
    EXPECT_EQ(g.cellColour(1, 5)->back, 0x00FF00u);
    EXPECT_EQ(g.cellColour(2, 5)->back, kNgBackColour);

    // LL down to the count: Go; UL below the count: NG.
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 2, 3, "5"));
    EXPECT_EQ(rowText(g, 2), "3|Duty|5|5|100|Go|");
    EXPECT_TRUE(t.at(2, Measure::PulseWidth).Go);
    EXPECT_EQ(g.cellColour(2, 5)->back, chs[2].backColour);
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, 4, "49"));
    EXPECT_EQ(rowText(g, 1), "1|Period|50|10|49|NG|");
    EXPECT_EQ(t.at(0, Measure::PulseWidth).UL, 49);
    // Not a limit column, the gate row, the header.
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 1, 2, "7"));
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 3, 3, "0"));
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 0, 3, "0"));
    EXPECT_THROW(EditDetailCycleLimit(g, rows, chs, t, 1, 3, "3e9"), RuntimeError);
}

}  // namespace
}  // namespace mervasto
