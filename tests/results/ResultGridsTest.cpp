#include <gtest/gtest.h>

#include <cmath>

#include "results/ResultGrids.h"

namespace mervasto {
namespace {

ChannelDisplay channel(int32_t type, const char* name = "sig", bool off = false) {
    ChannelDisplay cd;
    cd.typeIndex = type;
    cd.typeText = kSignalTypeText[static_cast<size_t>(type)];
    cd.SigName = name;
    cd.DispOffCheck = off;
    return cd;
}

ChannelResult result(double mn, double mx, double mean, double sigma, int32_t counts) {
    return {.Min = mn, .Max = mx, .Mean = mean, .Sigma = sigma, .Counts = counts, .Valid = true};
}

std::string rowText(const Grid& g, int32_t row, int32_t c1, int32_t c2) {
    std::string s;
    for (int32_t c = c1; c <= c2; ++c) s += g.text(row, c) + "|";
    return s;
}

TEST(DispResult, UnitPairsByType) {
    const char* expected[] = {
        "500m %|500m %|250m s|250m s|", "500m s|500m s|250m s|250m s|", "500m %|500m %|250m %|250m %|",
        "500m V|500m V|250m V|250m V|", "500m s|500m s|250m s|250m s|", "500m Hz|500m Hz|250m Hz|250m Hz|",
        "500m V|500m V|250m V|250m V|", "500m V|500m V|250m V|250m V|", "500m V|500m V|250m V|250m V|"};
    for (int32_t type = 0; type < 9; ++type) {
        Grid g;
        SetupResultGrid1(g);
        ChannelResultTable t;
        t.at(0, Measure::OfType) = result(0.5, 0.5, 0.25, 0.25, 3);
        Disp_Result(g, 10, {channel(type), channel(0, "", true), channel(0, "", true), channel(0, "", true)}, t);
        EXPECT_EQ(rowText(g, 2, 3, 6), expected[type]) << type;
    }
}

TEST(DispResult, RowsPerChannelGateAndChannelsWithoutResults) {
    Grid g;
    SetupResultGrid1(g);
    EXPECT_EQ(rowText(g, 0, 0, 7), "Channel|Sig. Name|Sig. Type|Min|Max|Mean|σ|Counts|");
    ChannelDisplays chs{channel(kTypePeriod, "clk"), channel(kTypeFreq), channel(kTypeDuty), channel(kTypeGate)};
    chs[1].note = "levels closer than 1/3 div";
    chs[2].channelState = "OFF";
    chs[3].note = "gate levels closer than 1/3 div";
    ChannelResultTable t;
    t.at(0, Measure::OfType) = result(0.001, 0.0123, 1, 2e-7, 812);
    t.at(0, Measure::PulseWidth) = result(9, 9, 9, 9, 9);  // only OfType is shown
    t.at(2, Measure::OfType) = result(50, 50, 50, 0, 4);
    for (int c = 3; c <= 14; ++c) g.text(4, c) = g.text(6, c) = g.text(8, c) = "stale";

    EXPECT_EQ(Disp_Result(g, 100000, chs, t), "Wave Length=100000");
    EXPECT_EQ(rowText(g, 2, 0, 8), "Ch1|clk|Period|1.0000m s|12.299m s|1000m s|0.2000u s|812||");
    EXPECT_EQ(rowText(g, 3, 2, 7), "Total|s|s|s|s|812|");
    EXPECT_EQ(rowText(g, 4, 3, 11), "|||||levels closer than 1/3 div||||");  // no results
    EXPECT_EQ(rowText(g, 6, 3, 11), "|||||||||");                            // state not "ON"
    EXPECT_EQ(rowText(g, 8, 2, 14), "Gate||||||gate levels closer than 1/3 div|||||||");
}

TEST(CopyResultToLog, AppendsOneRowPerPassAndGrows) {
    Grid res, log;
    SetupResultGrid1(res);
    SetupLogGrid(log, 1);
    ASSERT_EQ(log.rows(), 6);
    ChannelDisplays chs{channel(kTypePeriod, "A"), channel(kTypeFreq, "B"), channel(0, "", true), channel(0, "", true)};
    ChannelResultTable t;
    t.at(0, Measure::OfType) = result(0.0123, 0.0125, 0.0124, 1e-5, 7);
    t.at(1, Measure::OfType) = result(10200, 10300, 10250, 5, 9);
    Disp_Result(res, 10, chs, t);

    for (int p = 1; p <= 10; ++p) CopyResultToLog(p, res, log, chs);
    ASSERT_GE(log.rows(), kLogHeaderRows + 10);
    EXPECT_EQ(rowText(log, 0, 0, 5), "Signal Name|A||||B|");
    EXPECT_EQ(rowText(log, 2, 1, 4), "Min|Max|Mean|Total Counts|");
    EXPECT_EQ(rowText(log, 3, 0, 3), "Unit|s|s|s|");
    // Values as GetValUnit reads them back.
    EXPECT_EQ(rowText(log, 13, 0, 9), "10|12.299m e-3|12.500m e-3|12.400m e-3|7|10.2k Hz|10.3k Hz|10.25k Hz|9||");
    EXPECT_EQ(log.text(14, 0), "");

    CopyResultToLog(1, res, log, chs);  // a new series starts at the top
    EXPECT_EQ(log.text(4, 0) + "|" + log.text(5, 0), "1|");
}

TEST(ResizeLogGrid, NeverDropsFilledRowsOrTheirTexts) {
    struct Case {
        int32_t filled;   // passes already in the log
        int32_t repeats;  // the new Total Repeats
        int32_t rows;     // rows afterwards
    };
    const std::vector<Case> cases = {
        {3, 1, kLogHeaderRows + 3}, {3, 50, kLogHeaderRows + 50}, {0, 2, kLogHeaderRows + 2}};
    for (const auto& c : cases) {
        Grid log;
        SetupLogGrid(log, 10);
        log.nextRow = kLogHeaderRows + c.filled;
        if (c.filled > 0) log.text(kLogHeaderRows + c.filled - 1, 0) = "last";
        ResizeLogGrid(log, c.repeats);
        EXPECT_GE(log.rows(), c.rows) << c.filled << " " << c.repeats;
        EXPECT_EQ(log.nextRow, kLogHeaderRows + c.filled);
        if (c.filled > 0) {
            EXPECT_EQ(log.text(kLogHeaderRows + c.filled - 1, 0), "last");
        }
    }
}

TEST(DispDetailData, OneRowPerCycleWithUnits) {
    Grid g;
    SetupDetailDataGrid(g, kDetailStartCycles);
    EXPECT_EQ(g.rows(), kDetailStartCycles + 5);
    ChannelDisplays chs{channel(kTypePeriod, "p"), channel(kTypeAmple), channel(kTypeFreq),
                        channel(kTypeDuty, "", true)};
    chs[1].VRate = 10;
    CycleTable cycles;
    const CycleRecord c{.Ample = 0.5, .Period = 256, .Freq = 4000};
    cycles.channel[0] = {c, c, c};
    cycles.channel[1] = {c};
    cycles.channel[3] = std::vector<CycleRecord>(50, c);  // switched off: no rows
    DispDetailData(g, chs, cycles, std::ldexp(1.0f, -20));

    ASSERT_EQ(g.rows(), 3 + kDetailHeaderRows);
    const char* expected[] = {"Channel|Ch1|Ch2|Ch3|Ch4|", "Sig. Name|p|sig|sig||", "Sig. Type|Period|Ample|Freq.||",
                              "Total No.|3|1|0||",        "Unit|s|V|Hz||",         "1|244.14u s|5 V|||",
                              "2|244.14u s||||",          "3|244.14u s||||"};
    for (int32_t r = 0; r < g.rows(); ++r) EXPECT_EQ(rowText(g, r, 0, 4), expected[r]) << r;
}

}  // namespace
}  // namespace mervasto
