#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "common/RuntimeError.h"
#include "results/Comparator.h"

namespace mervasto {
namespace {

TEST(JudgeCount, LimitsBelongToGo) {
    struct Case {
        int32_t count, LL, UL;
        bool go;
    };
    const Case cases[] = {
        {10, 10, 20, true},  {20, 10, 20, true},  {15, 10, 20, true},
        {9, 10, 20, false},  {21, 10, 20, false}, {0, 0, 0, true},
        {15, 20, 10, false}, {20, 20, 10, false}, {10, 20, 10, false},  // LL > UL: never Go
        {INT32_MIN, INT32_MIN, INT32_MAX, true},  {INT32_MAX, INT32_MIN, INT32_MAX, true},
    };
    for (const Case& c : cases) EXPECT_EQ(JudgeCount(c.count, c.LL, c.UL), c.go) << c.count << " " << c.LL << " " << c.UL;
}

ChannelResultTable preset() {
    ChannelResultTable t;
    for (int ch = 0; ch < kResultChannels; ++ch) {
        for (int k = 0; k < 2; ++k) {
            ChannelResult& r = t.at(ch, k);
            r.LL = 100 + ch;
            r.UL = 200 + ch;
            r.ValueLimit1 = 1.0f + ch;
            r.ValueLimit2 = 2.0f + ch;
        }
    }
    return t;
}

bool same(const ChannelResult& a, const ChannelResult& b) {
    return a.LL == b.LL && a.UL == b.UL && a.ValueLimit1 == b.ValueLimit1 && a.ValueLimit2 == b.ValueLimit2;
}

TEST(LoadComparator, ReadsFieldsAndStopsAtTheFirstBadLine) {
    struct Case {
        const char* text;
        bool ok;
        // Expected changes: channel, kind, LL, UL, limit1, limit2 (rest as preset).
        std::vector<std::tuple<int, int, int32_t, int32_t, float, float>> changed;
    };
    const Case cases[] = {
        {"% only comments\r\n%1,2,3\r\n\r\n", true, {}},
        {"", true, {}},
        {"2,,,1.5", true, {{1, 0, 101, 201, 1.5f, 3.0f}}},
        {"1,5,9,0.25,0.75,3,4\n6,-1,1", true,
         {{0, 0, 5, 9, 0.25f, 0.75f}, {0, 1, 100, 200, 3.0f, 4.0f}, {5, 0, -1, 1, 6.0f, 7.0f}}},
        {"3,7,8,,,,,junk,more", true, {{2, 0, 7, 8, 3.0f, 4.0f}}},  // past the seventh: ignored
        {"4,1\r2,3", true, {{3, 0, 12, 3, 4.0f, 5.0f}}},             // CR inside the line dropped
        {"1,5,9\n0,1,2\n2,1,1", false, {{0, 0, 5, 9, 1.0f, 2.0f}}},  // earlier lines stay
        {"7,1,2", false, {}},
        {"x,1,2", false, {}},
        {",1,2", false, {}},
        {"1,abc,2", false, {}},
        {"1,2,3x", false, {}},
        {"1,2,3,1e-3,oops", false, {}},   // a bad field stops the whole line
        {"1,2147483648", false, {}},      // 32-bit overflow
        {"1,1,2,1e39", false, {}},        // beyond single precision
        {"1,-2147483648,2147483647", true, {{0, 0, INT32_MIN, INT32_MAX, 1.0f, 2.0f}}},
    };
    for (const Case& c : cases) {
        ChannelResultTable t = preset();
        ChannelResultTable expect = preset();
        for (const auto& [ch, kind, LL, UL, l1, l2] : c.changed) {
            ChannelResult& r = expect.at(ch, kind);
            r.LL = LL;
            r.UL = UL;
            r.ValueLimit1 = l1;
            r.ValueLimit2 = l2;
        }
        const ComparatorLoad load = LoadComparatorText(c.text, t);
        EXPECT_EQ(load.ok, c.ok) << c.text;
        EXPECT_EQ(load.message, c.ok ? "" : "Illegal Character.") << c.text;
        for (size_t i = 0; i < t.cell.size(); ++i) EXPECT_TRUE(same(t.cell[i], expect.cell[i])) << c.text << " cell " << i;
    }
}

TEST(LoadComparator, FileOrNoFile) {
    namespace fs = std::filesystem;
    const fs::path file = fs::temp_directory_path() / "mervasto_comparator_test.txt";
    {
        std::ofstream out(file, std::ios::binary);
        out << "% ch,LL,UL\r\n2,10,20\r\n";
    }
    ChannelResultTable t;
    EXPECT_TRUE(LoadComparatorFile(file.string(), t).ok);
    EXPECT_EQ(t.at(1, 0).LL, 10);
    EXPECT_EQ(t.at(1, 0).UL, 20);
    fs::remove(file);
    const ComparatorLoad missing = LoadComparatorFile(file.string(), t);
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.message, "No File.");
    EXPECT_EQ(t.at(1, 0).LL, 10);
}

TEST(DetailCycleGrid, BuildsJudgesAndEditsLimits) {
    ChannelDisplays chs;
    chs[0].typeIndex = kTypePeriod;
    chs[0].typeText = "Period";
    chs[0].backColour = 0x00FF00;
    chs[1].DispOffCheck = true;
    chs[2].typeIndex = kTypeDuty;
    chs[2].typeText = "Duty";
    chs[3].typeIndex = kTypeGate;
    chs[3].typeText = "Gate";
    ChannelResultTable t;
    t.at(0, 0).Counts = 50;
    t.at(0, 0).LL = 10;
    t.at(0, 0).UL = 100;
    t.at(2, 0).Counts = 5;
    t.at(2, 0).LL = 10;
    t.at(2, 0).UL = 100;
    t.at(3, 0).Counts = 1;
    t.at(3, 0).LL = 3;
    t.at(3, 0).UL = 2;

    Grid g;
    SetupDetailCycleGrid(g);
    const auto rows = BuildDetailCycleGrid(g, chs, t);
    ASSERT_EQ(rows.size(), 3u);
    ASSERT_EQ(g.rows(), 4);
    const char* head[] = {"Ch", "Signal", "Total", "LL", "UL", "Go/NG"};
    for (int c = 0; c < 6; ++c) EXPECT_EQ(g.text(0, c), head[c]);
    const char* r1[] = {"1", "Period", "50", "10", "100", "Go"};
    const char* r2[] = {"3", "Duty", "5", "10", "100", "NG"};
    const char* r3[] = {"4", "Gate", "1", "", "", "NG"};
    for (int c = 0; c < 6; ++c) {
        EXPECT_EQ(g.text(1, c), r1[c]);
        EXPECT_EQ(g.text(2, c), r2[c]);
        EXPECT_EQ(g.text(3, c), r3[c]);
    }
    EXPECT_EQ(t.at(0, 0).Go, -1);
    EXPECT_EQ(t.at(2, 0).Go, 0);
    EXPECT_EQ(g.cellColour(1, 5)->back, 0x00FF00u);
    EXPECT_EQ(g.cellColour(2, 5)->back, kNgBackColour);
    EXPECT_EQ(g.cellColour(2, 0)->back, chs[2].backColour);

    // Lowering LL to the count turns the row Go; raising it past the count NG again.
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 2, 3, "5"));
    EXPECT_EQ(t.at(2, 0).LL, 5);
    EXPECT_EQ(g.text(2, 5), "Go");
    EXPECT_EQ(t.at(2, 0).Go, -1);
    EXPECT_NE(g.cellColour(2, 5)->back, kNgBackColour);
    EXPECT_TRUE(EditDetailCycleLimit(g, rows, chs, t, 1, 4, "49"));
    EXPECT_EQ(g.text(1, 4), "49");
    EXPECT_EQ(g.text(1, 5), "NG");
    EXPECT_EQ(t.at(0, 0).Go, 0);
    // Not a limit column, the gate row, the header.
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 1, 2, "7"));
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 3, 3, "0"));
    EXPECT_FALSE(EditDetailCycleLimit(g, rows, chs, t, 0, 3, "0"));
    EXPECT_EQ(t.at(0, 0).Counts, 50);
    EXPECT_THROW(EditDetailCycleLimit(g, rows, chs, t, 1, 3, "3e9"), RuntimeError);

    JudgeAll(t);
    EXPECT_EQ(t.at(5, 6).Go, -1);  // empty records: 0 within 0..0
}

}  // namespace
}  // namespace mervasto
