#include <gtest/gtest.h>

#include <cmath>

#include "results/ResultGrids.h"

namespace mervasto {
namespace {

ChannelDisplay channel(int32_t type, const char* name = "sig") {
    ChannelDisplay cd;
    cd.typeIndex = type;
    cd.typeText = kSignalTypeText[static_cast<size_t>(type)];
    cd.SigName = name;
    return cd;
}

ChannelResult result(double mn, double mx, double mean, double sigma, int32_t counts) {
    ChannelResult r;
    r.Min = mn;
    r.Max = mx;
    r.Mean = mean;
    r.Sigma = sigma;
    r.Counts = counts;
    r.Valid = -1;
    return r;
}

TEST(DispResult, UnitPairsByType) {
    struct Case {
        int32_t type;
        const char* min;
        const char* mean;
    };
    const Case cases[] = {
        {kTypePwPercent, "500m %", "250m s"}, {kTypePeriod, "500m s", "250m s"}, {kTypeDuty, "500m %", "250m %"},
        {kTypeAmple, "500m V", "250m V"},     {kTypePw, "500m s", "250m s"},     {kTypeFreq, "500m Hz", "250m Hz"},
        {kTypeRms, "500m V", "250m V"},       {kTypeMax, "500m V", "250m V"},    {kTypeMin, "500m V", "250m V"},
    };
    for (const Case& c : cases) {
        Grid g;
        SetupResultGrid1(g);
        ChannelDisplays chs{channel(c.type), channel(0), channel(0), channel(0)};
        chs[1].DispOffCheck = chs[2].DispOffCheck = chs[3].DispOffCheck = true;
        ChannelResultTable t;
        t.at(0, 2) = result(0.5, 0.5, 0.25, 0.25, 3);
        Disp_Result(g, 10, chs, t);
        EXPECT_EQ(g.text(2, 3), c.min) << c.type;
        EXPECT_EQ(g.text(2, 4), c.min) << c.type;
        EXPECT_EQ(g.text(2, 5), c.mean) << c.type;
        EXPECT_EQ(g.text(2, 6), c.mean) << c.type;
    }
}

TEST(DispResult, RowsPerChannelGateAndChannelsWithoutResults) {
    Grid g;
    SetupResultGrid1(g);
    ASSERT_EQ(g.rows(), 10);
    EXPECT_EQ(g.text(0, 0), "Channel");
    EXPECT_EQ(g.text(0, 6), "σ");
    EXPECT_EQ(g.text(0, 7), "Counts");
    EXPECT_EQ(g.text(3, 2), "Total");
    EXPECT_EQ(g.text(9, 2), "Total");

    ChannelDisplays chs{channel(kTypePeriod, "clk"), channel(kTypeFreq), channel(kTypeDuty), channel(kTypeRms)};
    chs[3].typeIndex = kTypeGate;
    chs[3].typeText = "Gate";
    chs[3].note = "gate levels closer than 1/3 div";
    chs[2].channelState = "OFF";
    ChannelResultTable t;
    t.at(0, 2) = result(0.001, 0.0123, 1, 2e-7, 812);
    t.at(0, 0) = result(9, 9, 9, 9, 9);  // other kinds are not shown
    t.at(2, 2) = result(50, 50, 50, 0, 4);
    // Ch2 has no results: stale texts must go.
    for (int c = 3; c <= 14; ++c) g.text(4, c) = g.text(8, c) = "stale";
    chs[1].note = "levels closer than 1/3 div";

    EXPECT_EQ(Disp_Result(g, 100000, chs, t), "Wave Length=100000");
    const char* ch1[] = {"Ch1", "clk", "Period", "1.0000m s", "12.299m s", "1000m s", "0.2000u s", "812", ""};
    for (int c = 0; c < 9; ++c) EXPECT_EQ(g.text(2, c), ch1[c]) << c;
    EXPECT_EQ(g.text(3, 3), "s");
    EXPECT_EQ(g.text(3, 7), "812");

    for (int c = 3; c <= 7; ++c) EXPECT_EQ(g.text(4, c), "") << c;
    EXPECT_EQ(g.text(4, 8), "levels closer than 1/3 div");
    for (int c = 3; c <= 11; ++c) EXPECT_EQ(g.text(6, c), "") << c;  // state not "ON"
    for (int c = 3; c <= 14; ++c) {
        EXPECT_EQ(g.text(8, c), c == 8 ? "gate levels closer than 1/3 div" : "") << c;
    }
    EXPECT_EQ(g.text(8, 2), "Gate");
}

TEST(CopyResultToLog, AppendsOneRowPerPassAndGrows) {
    Grid res, log;
    SetupResultGrid1(res);
    SetupLogGrid(log, 1);
    ASSERT_EQ(log.rows(), 6);
    ChannelDisplays chs{channel(kTypePeriod, "A"), channel(kTypeFreq, "B"), channel(0), channel(0)};
    chs[2].DispOffCheck = chs[3].DispOffCheck = true;
    ChannelResultTable t;
    t.at(0, 2) = result(0.0123, 0.0125, 0.0124, 1e-5, 7);
    t.at(1, 2) = result(10200, 10300, 10250, 5, 9);
    Disp_Result(res, 10, chs, t);

    const int passes = 10;
    for (int p = 1; p <= passes; ++p) CopyResultToLog(p, res, log, chs);
    ASSERT_GE(log.rows(), kLogHeaderRows + passes);
    EXPECT_EQ(log.text(0, 0), "Signal Name");
    EXPECT_EQ(log.text(0, 1), "A");
    EXPECT_EQ(log.text(1, 5), "Freq.");
    EXPECT_EQ(log.text(2, 4), "Total Counts");
    EXPECT_EQ(log.text(3, 1), "s");
    const int last = kLogHeaderRows + passes - 1;
    EXPECT_EQ(log.text(last, 0), std::to_string(passes));
    EXPECT_EQ(log.text(last, 1), "12.299m e-3");  // kept as GetValUnit reads it
    EXPECT_EQ(log.text(last, 4), "7");
    EXPECT_EQ(log.text(last, 5), "10.2k Hz");
    EXPECT_EQ(log.text(last, 8), "9");
    EXPECT_EQ(log.text(last, 9), "");
    EXPECT_EQ(log.text(last + 1, 0), "");

    CopyResultToLog(1, res, log, chs);  // a new series starts at the top
    EXPECT_EQ(log.text(kLogHeaderRows, 0), "1");
    EXPECT_EQ(log.text(kLogHeaderRows + 1, 0), "");
}

TEST(DispDetailData, OneRowPerCycleWithUnits) {
    Grid g;
    SetupDetailDataGrid(g, kDetailStartCycles);
    EXPECT_EQ(g.rows(), kDetailStartCycles + 5);
    ChannelDisplays chs{channel(kTypePeriod, "p"), channel(kTypeAmple), channel(kTypeFreq), channel(kTypeDuty)};
    chs[1].VRate = 10;
    chs[3].DispOffCheck = true;
    CycleTable cycles;
    CycleRecord c;
    c.Period = 256;
    c.Ample = 0.5;
    c.Freq = 4000;
    cycles.channel[0] = {c, c, c};
    cycles.channel[1] = {c};
    cycles.channel[3] = std::vector<CycleRecord>(50, c);  // switched off: not shown, no rows
    DispDetailData(g, chs, cycles, std::ldexp(1.0f, -20));

    ASSERT_EQ(g.rows(), 3 + kDetailHeaderRows);
    const char* head[] = {"Channel", "Sig. Name", "Sig. Type", "Total No.", "Unit"};
    for (int r = 0; r < 5; ++r) EXPECT_EQ(g.text(r, 0), head[r]);
    EXPECT_EQ(g.text(0, 1), "Ch1");
    EXPECT_EQ(g.text(1, 1), "p");
    EXPECT_EQ(g.text(3, 1), "3");
    EXPECT_EQ(g.text(4, 1), "s");
    EXPECT_EQ(g.text(4, 3), "Hz");
    EXPECT_EQ(g.text(3, 3), "0");
    EXPECT_EQ(g.text(5, 0), "1");
    EXPECT_EQ(g.text(7, 0), "3");
    EXPECT_EQ(g.text(7, 1), "244.14u s");  // 256 samples of 2^-20 s
    EXPECT_EQ(g.text(5, 2), "5 V");
    EXPECT_EQ(g.text(6, 2), "");
    EXPECT_EQ(g.text(5, 4), "");
}

}  // namespace
}  // namespace mervasto
