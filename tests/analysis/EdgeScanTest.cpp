#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "analysis/EdgeScan.h"
#include "analysis/Smoothing.h"
#include "common/RuntimeError.h"

namespace mervasto {
namespace {

using Edges = std::tuple<int32_t, int32_t, int32_t>;

// Levels 0 / 10, decision level 5, hysteresis 20 %: band 4..6, h = 1.
ChannelResultTable levelsTable(int ch, float low = 0, float high = 10, float level = 5) {
    ChannelResultTable t;
    t.at(ch, 0).LowLevel = low;
    t.at(ch, 0).HighLevel = high;
    t.at(ch, 0).Level = level;
    return t;
}

ScanSettings settings(int32_t type = kTypePeriod) {
    ScanSettings s;
    s.signalType = type;
    s.Histerisis = 20;
    s.MaxCycles = 1000;
    s.SampleSec = 1;
    return s;
}

// The cycles' edges, read back from the records of a period type.
std::vector<Edges> edgesOf(const std::vector<CycleRecord>& cycles) {
    std::vector<Edges> e;
    for (const auto& c : cycles) {
        const int32_t e1 = c.MidEdge;
        const int32_t e0 = e1 - static_cast<int32_t>(c.PulseWidth);
        e.emplace_back(e0, e1, e0 + static_cast<int32_t>(c.Period));
    }
    return e;
}

std::vector<float> squareWave(int32_t n, int32_t lowRun, int32_t highRun) {
    std::vector<float> v;
    while (static_cast<int32_t>(v.size()) < n) {
        for (int32_t k = 0; k < lowRun && static_cast<int32_t>(v.size()) < n; ++k) v.push_back(0);
        for (int32_t k = 0; k < highRun && static_cast<int32_t>(v.size()) < n; ++k) v.push_back(10);
    }
    return v;
}

TEST(ExtractCycles, EdgePositions) {
    struct Case {
        const char* name;
        std::vector<float> v;
        std::vector<Edges> want;
    };
    const std::vector<Case> cases = {
        {"jump: rounded midpoint, halves to even",
         {0, 0, 0, 10, 10, 10, 0, 0, 0, 10, 10, 10, 0, 0, 0, 10},
         {{2, 6, 8}, {8, 12, 14}}},
        {"band: midpoint of entry and the sample before the exit",
         {0, 0, 4.5f, 5, 5.5f, 6.5f, 10, 10, 10, 0, 0, 0, 10, 10},
         {{3, 8, 12}}},
        {"dead zone swallows ripple smaller than h",
         {0, 0, 4.5f, 5, 5.5f, 6.5f, 5.8f, 5.6f, 6.2f, 10, 10, 0, 0, 0, 10, 10},
         {{3, 10, 14}}},
        {"ripple larger than h gives an extra edge",
         {0, 0, 4.5f, 5, 5.5f, 6.5f, 4.8f, 10, 10, 0, 0, 0, 10, 10},
         {{3, 6, 8}}},
        {"starting high waits for the first fall below the band",
         {10, 10, 10, 0, 0, 0, 10, 10, 10, 0, 0, 0, 10, 10},
         {{6, 8, 12}}},
        {"never below the band: nothing", {10, 10, 4.5f, 10, 10, 4.2f, 10, 10}, {}},
    };
    for (const auto& c : cases) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        const int32_t n = ExtractCycles(0, c.v, 0, settings(), table, cycles);
        EXPECT_EQ(n, static_cast<int32_t>(c.want.size())) << c.name;
        EXPECT_EQ(edgesOf(cycles), c.want) << c.name;
    }
}

TEST(ExtractCycles, WindowStartShiftsMidEdgeOnly) {
    const std::vector<float> v = {0, 0, 0, 10, 10, 10, 0, 0, 0, 10, 10, 10, 0, 0, 0, 10};
    auto table = levelsTable(2);
    std::vector<CycleRecord> cycles;
    ExtractCycles(2, v, 1000, settings(), table, cycles);
    ASSERT_EQ(cycles.size(), 2u);
    EXPECT_EQ(cycles[0].MidEdge, 1006);
    EXPECT_EQ(cycles[0].Period, 6);
}

TEST(ExtractCycles, PulseModeShiftsPeriodsByOneRecord) {
    // Edges 2, 4, 6, 10, 14, 16.
    const std::vector<float> v = {0, 0, 10, 10, 0, 0, 0, 10, 10, 10, 0, 0, 0, 0, 10, 10, 0, 0};
    for (int32_t type : {kTypePw, kTypePwPercent}) {
        auto table = levelsTable(1);
        std::vector<CycleRecord> c;
        ASSERT_EQ(ExtractCycles(1, v, 0, settings(type), table, c), 3) << type;
        const double pw[] = {2, 4, 2}, period[] = {0, 4, 8}, duty[] = {0, 50, 50};
        const int32_t mid[] = {0, 4, 10};
        for (size_t k = 0; k < 3; ++k) {
            EXPECT_EQ(c[k].PulseWidth, pw[k]) << k;
            EXPECT_EQ(c[k].Period, period[k]) << k;
            EXPECT_EQ(c[k].Duty, duty[k]) << k;
            EXPECT_EQ(c[k].MidEdge, mid[k]) << k;
        }
    }
    auto table = levelsTable(1);
    std::vector<CycleRecord> c;
    ASSERT_EQ(ExtractCycles(1, v, 0, settings(kTypePeriod), table, c), 2);
    EXPECT_EQ(edgesOf(c), (std::vector<Edges>{{2, 4, 6}, {6, 10, 14}}));
}

TEST(ExtractCycles, CycleLimit) {
    const auto v = squareWave(200, 5, 5);
    struct Case {
        int32_t type, maxCycles, want;
    };
    const Case cases[] = {{kTypePeriod, 1, 1},  {kTypePw, 1, 1},       {kTypePeriod, 3, 3},
                          {kTypePeriod, 0, 1},  {kTypePeriod, 1000, 19}, {kTypePw, 1000, 19}};
    for (const auto& c : cases) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        ScanSettings s = settings(c.type);
        s.MaxCycles = c.maxCycles;
        EXPECT_EQ(ExtractCycles(0, v, 0, s, table, cycles), c.want) << c.type << " " << c.maxCycles;
        EXPECT_EQ(static_cast<int32_t>(cycles.size()), c.want);
        EXPECT_EQ(table.at(0, 2).Counts, c.want);
    }
    EXPECT_EQ(CycleLimit(499999), 499999);
    EXPECT_EQ(CycleLimit(500000), 500000);
    EXPECT_EQ(CycleLimit(2000000000), 500000);
    EXPECT_EQ(CycleLimit(-4), 1);
}

TEST(ExtractCycles, RejectRangeRestartsUnarmed) {
    // Rising edges at 4, 14, 24, ...; falling at 10, 20, 30, ...
    const auto v = squareWave(60, 5, 5);
    struct Case {
        const char* name;
        bool omit, flag;
        int32_t first, last;
        std::vector<Edges> want;
    };
    const std::vector<Edges> all = {{4, 10, 14}, {14, 20, 24}, {24, 30, 34}, {34, 40, 44}, {44, 50, 54}};
    const std::vector<Case> cases = {
        {"in force", true, true, 22, 37, {{4, 10, 14}, {44, 50, 54}}},
        {"box not ticked", false, true, 22, 37, all},
        {"nothing read", true, false, 22, 37, all},
        {"first index 0 drops it", true, true, 0, 37, all},
        {"last index past the window drops it", true, true, 22, 60, all},
    };
    for (const auto& c : cases) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        ScanSettings s = settings();
        s.OmitRangeEffect = c.omit;
        s.rejectFlag = c.flag;
        s.rejectStart = c.first;
        s.rejectEnd = c.last;
        ExtractCycles(0, v, 0, s, table, cycles);
        EXPECT_EQ(edgesOf(cycles), c.want) << c.name;
    }
}

TEST(ExtractCycles, SmoothingMarginStopsTheBandWalk) {
    // A slow rise through the band: the walk ends at the exit distance or,
    // earlier, at halfSmooth + 2 samples before the window end.
    const std::vector<float> v = {0, 0, 0, 10, 10, 0, 0, 4.5f, 5, 5.5f, 5.8f, 6.0f, 6.4f, 6.6f, 10, 10};
    const std::pair<int32_t, Edges> cases[] = {
        {0, {2, 4, 10}},  // exit at 13: (12 + 7) / 2 = 9.5 -> 10
        {2, {2, 4, 9}},   // stops at 16 - 4 = 12: (11 + 7) / 2
        {3, {2, 4, 8}},   // stops at 11: (10 + 7) / 2 = 8.5 -> 8
    };
    for (const auto& [hs, want] : cases) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        ScanSettings s = settings();
        s.halfSmooth = hs;
        ExtractCycles(0, v, 0, s, table, cycles);
        ASSERT_EQ(cycles.size(), 1u) << hs;
        EXPECT_EQ(edgesOf(cycles)[0], want) << hs;
    }
}

TEST(ExtractCycles, MeasurementsAndStatisticsByHand) {
    // Levels 2 / 12: edges 2, 4, 8, 12, 14 -> cycles (2, 4, 8) and (8, 12, 14).
    const std::vector<float> v = {2, 2, 2, 12, 12, 2, 2, 2, 2, 12, 12, 12, 12, 2, 2, 12, 12};
    const double rms0 = std::sqrt(308.0 / 6), rms1 = std::sqrt(588.0 / 6);
    const double third = 100.0 / 3;
    struct Row {
        double min, max, mean, sigma;
    };
    struct Case {
        int32_t type;
        Row row2;
    };
    const double rmsMean = (rms0 + rms1), rmsSigma = (rms1 - rms0);
    const std::vector<Case> cases = {
        {kTypePwPercent, {third, 2 * third, 50, third / 2}},  // pulse mode: see below
        {kTypePeriod, {3, 3, 3, 0}},
        {kTypeDuty, {third, 2 * third, 50, third / 2}},
        {kTypeAmple, {20, 20, 20, 0}},
        {kTypePw, {1, 2, 1.5, 0.5}},
        {kTypeFreq, {1.0 / 3, 1.0 / 3, 1.0 / 3, 0}},
        {kTypeRms, {2 * rms0, 2 * rms1, rmsMean, rmsSigma}},
        {kTypeMax, {24, 24, 24, 0}},
        {kTypeMin, {0, 4, 4, 0}},  // the running minimum of "Min" starts at 0
    };
    for (const auto& c : cases) {
        auto table = levelsTable(0, 2, 12, 7);
        std::vector<CycleRecord> cycles;
        ScanSettings s = settings(c.type);
        s.SampleSec = 0.5f;
        s.VRate = 2;
        ASSERT_EQ(ExtractCycles(0, v, 0, s, table, cycles), 2) << c.type;
        const bool pulse = c.type == kTypePw || c.type == kTypePwPercent;
        const ChannelResult& r2 = table.at(0, 2);
        if (c.type == kTypePwPercent) {
            // Pulse records: duty 0 (record 0 has no period yet) and 33.3.
            EXPECT_NEAR(r2.Min, 0, 1e-9);
            EXPECT_NEAR(r2.Max, third, 1e-9);
        } else {
            EXPECT_NEAR(r2.Min, c.row2.min, 1e-9) << c.type;
            EXPECT_NEAR(r2.Max, c.row2.max, 1e-9) << c.type;
            EXPECT_NEAR(r2.Mean, c.row2.mean, 1e-9) << c.type;
            EXPECT_NEAR(r2.Sigma, c.row2.sigma, 1e-6) << c.type;
        }
        const ChannelResult& r1 = table.at(0, 1);
        EXPECT_NEAR(r1.Min, pulse ? 0 : third, 1e-9) << c.type;
        EXPECT_NEAR(r1.Max, pulse ? third : 2 * third, 1e-9) << c.type;
        EXPECT_NEAR(r1.Mean, pulse ? third / 2 : 50, 1e-9) << c.type;
        EXPECT_NEAR(r1.Sigma, pulse ? third / 2 : third / 2, 1e-6) << c.type;
        for (int kind = 0; kind < kKinds; ++kind) {
            EXPECT_EQ(table.at(0, kind).Counts, 2) << c.type << " kind " << kind;
            EXPECT_EQ(table.at(0, kind).Valid, -1) << c.type << " kind " << kind;
        }
    }
    // The cycle records and the other kinds, for a period type.
    auto table = levelsTable(0, 2, 12, 7);
    std::vector<CycleRecord> cycles;
    ScanSettings s = settings(kTypePeriod);
    s.SampleSec = 0.5f;
    s.VRate = 2;
    ExtractCycles(0, v, 0, s, table, cycles);
    ASSERT_EQ(cycles.size(), 2u);
    EXPECT_EQ(cycles[0].MaxValue, 12);
    EXPECT_EQ(cycles[0].MinValue, 2);
    EXPECT_EQ(cycles[0].Ample, 10);
    EXPECT_NEAR(cycles[0].Rms, rms0, 1e-12);
    EXPECT_NEAR(cycles[1].Rms, rms1, 1e-12);
    EXPECT_NEAR(cycles[0].Freq, 1.0 / 3, 1e-12);
    EXPECT_NEAR(table.at(0, 0).Min, 1, 1e-12);   // pulse width, s
    EXPECT_NEAR(table.at(0, 0).Max, 2, 1e-12);
    EXPECT_NEAR(table.at(0, 3).Mean, 3, 1e-12);  // period, s
    EXPECT_NEAR(table.at(0, 4).Mean, 1.0 / 3, 1e-12);  // Hz
    EXPECT_NEAR(table.at(0, 5).Mean, 20, 1e-12);  // amplitude x VRate
    EXPECT_NEAR(table.at(0, 6).Max, 2 * rms1, 1e-12);
}

TEST(ExtractCycles, NoCyclesClearsTheStatistics) {
    auto table = levelsTable(0);
    table.at(0, 2).Mean = 5;
    table.at(0, 2).Counts = 9;
    table.at(0, 2).Valid = -1;
    table.at(0, 2).UL = 77;
    std::vector<CycleRecord> cycles(3);
    const std::vector<float> v(50, 10.0f);
    EXPECT_EQ(ExtractCycles(0, v, 0, settings(), table, cycles), 0);
    EXPECT_TRUE(cycles.empty());
    EXPECT_EQ(table.at(0, 2).Mean, 0);
    EXPECT_EQ(table.at(0, 2).Counts, 0);
    EXPECT_EQ(table.at(0, 2).Valid, 0);
    EXPECT_EQ(table.at(0, 2).UL, 77);
    EXPECT_EQ(table.at(0, 0).Level, 5);
}

TEST(WaveHelpers, MaxMinAndMaxPeriod) {
    const std::vector<float> w = {5, 1, 3, 3, 2};
    int32_t at = 77;
    EXPECT_EQ(Get_Wave_Max(w, 0, 4, at), 3);  // sample 0 is never looked at
    EXPECT_EQ(at, 3);                         // the later of equal values
    EXPECT_EQ(Get_Wave_Max(w, 0, 1, at), -1e30);
    EXPECT_EQ(at, 0);
    EXPECT_EQ(Get_Wave_Max(std::vector<float>{0, 1, 2, 9}, 0, 3, at), 2);  // end excluded
    at = 77;
    EXPECT_EQ(Get_Wave_Max(std::vector<float>{}, 0, 3, at), 0);
    EXPECT_EQ(at, 77);
    EXPECT_THROW(Get_Wave_Max(w, 0, 9, at), RuntimeError);

    double mx = 0, mn = 0;
    GetMinMaxInRange(std::vector<float>{3, -1, 4, 1, 5}, 1, 3, mx, mn);
    EXPECT_EQ(mx, 4);
    EXPECT_EQ(mn, -1);
    EXPECT_THROW(GetMinMaxInRange(w, 2, 5, mx, mn), RuntimeError);

    ChannelResultTable t;
    EXPECT_EQ(GetMaxPeriod(t), 1);
    t.at(2, 3).Counts = 42;
    t.at(4, 1).Counts = 100;  // rows past Ch4 do not count
    EXPECT_EQ(GetMaxPeriod(t), 42);
}

}  // namespace
}  // namespace mervasto

namespace mervasto {
namespace {

// The scan straight from the record (averages worked out on the way, in a
// buffer of limited reach) must give exactly what smoothing first and then
// scanning gives: short and long averages, cycles longer than the buffer
// reaches, a window that starts late, a reject range.
TEST(ExtractCyclesFromRecord, SameAsSmoothingFirst) {
    const int32_t n = 400000;
    std::vector<float> rec(static_cast<size_t>(n));
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> noise(-0.6f, 0.6f);
    for (int32_t i = 0; i < n; ++i) {
        // Short pulses, then one cycle of 150,000 samples, then short again.
        const bool high = i < 100000 ? (i % 700) < 300 : i < 250000 ? i < 175000 : (i % 333) < 100;
        rec[static_cast<size_t>(i)] = (high ? 10.0f : 0.0f) + noise(rng);
    }
    struct Case {
        int32_t smoothingNo, start, count;
        bool reject;
    };
    const Case cases[] = {{1, 0, n, false},       {3, 0, n, false},     {5, 17, n - 40, false},
                          {15, 0, n, true},       {17, 1000, 300000, false}, {5, 0, n, true},
                          {9, n - 5000, 5000, false}};
    for (const auto& c : cases) {
        ScanSettings s;
        s.signalType = kTypeRms;
        s.Histerisis = 20;
        s.MaxCycles = 500000;
        s.SampleSec = 1e-6f;
        s.halfSmooth = HalfSmooth(c.smoothingNo);
        s.OmitRangeEffect = c.reject;
        s.rejectFlag = c.reject;
        s.rejectStart = 120000;
        s.rejectEnd = 90000;  // a restart behind the point reached
        auto tableA = levelsTable(0);
        auto tableB = levelsTable(0);
        std::vector<float> smoothed(static_cast<size_t>(c.count));
        SmoothSamples(rec, c.start, c.count, c.smoothingNo, smoothed);
        std::vector<CycleRecord> a, b;
        std::vector<float> scratch;
        const int32_t na = ExtractCycles(0, smoothed, c.start, s, tableA, a);
        const int32_t nb = ExtractCyclesFromRecord(0, rec, c.start, c.count, c.smoothingNo, s, tableB, b, scratch);
        ASSERT_EQ(na, nb) << c.smoothingNo << " " << c.start;
        ASSERT_GT(na, 10);
        for (size_t k = 0; k < a.size(); ++k) {
            ASSERT_EQ(a[k].MidEdge, b[k].MidEdge) << k;
            ASSERT_EQ(a[k].Period, b[k].Period) << k;
            ASSERT_EQ(a[k].Rms, b[k].Rms) << k;
            ASSERT_EQ(a[k].MaxValue, b[k].MaxValue) << k;
            ASSERT_EQ(a[k].MinValue, b[k].MinValue) << k;
        }
        EXPECT_EQ(tableA.at(0, 2).Mean, tableB.at(0, 2).Mean);
    }
}

}  // namespace
}  // namespace mervasto
