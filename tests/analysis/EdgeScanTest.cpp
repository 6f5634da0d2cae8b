#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "analysis/EdgeScan.h"
#include "analysis/Smoothing.h"

namespace mervasto {
namespace {

using Edges = std::tuple<int32_t, int32_t, int32_t>;

// Levels 0 / 10, decision level 5, hysteresis 20 %: band 4..6, h = 1.
ChannelResultTable levelsTable(int ch, float low = 0, float high = 10, float level = 5) {
    ChannelResultTable t;
    t.levels(ch).LowLevel = low;
    t.levels(ch).HighLevel = high;
    t.levels(ch).Level = level;
    return t;
}

ScanSettings settings(int32_t type = kTypePeriod) {
    ScanSettings s;
    s.signalType = type;
    s.Histerisis = 20;
    s.SampleSec = 1;
    return s;
}

// Runs the scan on channel 0 and gives the cycles' edges (period types).
std::vector<Edges> scanEdges(const std::vector<float>& v, const ScanSettings& s, int32_t start = 0) {
    auto table = levelsTable(0);
    std::vector<CycleRecord> cycles;
    EXPECT_EQ(ExtractCycles(0, v, start, s, table, cycles), table.at(0, Measure::OfType).Counts);
    std::vector<Edges> e;
    for (const auto& c : cycles) {
        const int32_t e0 = c.MidEdge - static_cast<int32_t>(c.PulseWidth);
        e.emplace_back(e0, c.MidEdge, e0 + static_cast<int32_t>(c.Period));
    }
    return e;
}

std::vector<float> squareWave(int32_t n, int32_t run) {
    std::vector<float> v(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) v[static_cast<size_t>(i)] = (i / run) % 2 ? 10.0f : 0.0f;
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
    for (const auto& c : cases) EXPECT_EQ(scanEdges(c.v, settings()), c.want) << c.name;
    // The window's first sample is sample `start`: MidEdge counts from the record.
    EXPECT_EQ(scanEdges(cases[0].v, settings(), 1000), (std::vector<Edges>{{1002, 1006, 1008}, {1008, 1012, 1014}}));
}

// Edges are rounded on record sample numbers: a window that starts at an odd
// sample must find the same edges (and so the same rms) as one that starts at
// an even sample.
TEST(ExtractCycles, EdgesDoNotDependOnWhereTheWindowStarts) {
    // Jumps with midpoints x.5, and slow rises whose band walk ends on a tie.
    std::vector<float> rec(8, 0.0f);
    for (int rep = 0; rep < 3; ++rep) {
        for (float x : {10.0f, 10.0f, 10.0f, 0.0f, 0.0f, 0.0f, 4.5f, 5.0f, 5.5f, 7.0f, 10.0f, 10.0f, 0.0f, 0.0f})
            rec.push_back(x);
    }
    struct Cycle {
        int32_t e0, e1, e2;
        double rms;
        bool operator==(const Cycle&) const = default;
    };
    auto scan = [&](int32_t start) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        const std::span<const float> window(rec.data() + start, rec.size() - static_cast<size_t>(start));
        ExtractCycles(0, window, start, settings(), table, cycles);
        std::vector<Cycle> out;
        for (const auto& c : cycles) {
            const int32_t e0 = c.MidEdge - static_cast<int32_t>(c.PulseWidth);
            out.push_back({e0, c.MidEdge, e0 + static_cast<int32_t>(c.Period), c.Rms});
        }
        return out;
    };
    const auto whole = scan(0);
    ASSERT_EQ(whole.size(), 5u);
    EXPECT_EQ(whole[0].e0, 8);   // 7.5 rounds to 8
    EXPECT_EQ(whole[0].e1, 10);  // 10.5 rounds to 10
    for (int32_t start = 1; start < 8; ++start) EXPECT_EQ(scan(start), whole) << "window from " << start;
}

// What a wave view needs to mark "cycle n": the edges each record holds, and
// for pulse types the one-record shift between the pulse and the cycle: the
// first pulse has no period and record n's period ends at its own pulse.
TEST(ExtractCycles, FirstAndLastEdgeOfEachRecord) {
    using Rec = std::array<double, 6>;  // FirstEdge, MidEdge, LastEdge, Period, PulseWidth, Duty
    const std::vector<float> pulses = {0, 0, 10, 10, 0, 0, 0, 10, 10, 10, 0, 0, 0, 0, 10, 10, 0, 0};  // 2 4 6 10 14 16
    struct Case {
        const char* name;
        std::vector<float> v;
        int32_t type, start;
        bool reject;
        std::vector<Rec> want;
    };
    const std::vector<Case> cases = {
        {"period", pulses, kTypePeriod, 0, false, {{2, 4, 6, 4, 2, 50}, {6, 10, 14, 8, 4, 50}}},
        {"late duty", pulses, kTypeDuty, 1000, false, {{1002, 1004, 1006, 4, 2, 50}, {1006, 1010, 1014, 8, 4, 50}}},
        {"pulse", pulses, kTypePw, 0, false, {{2, 0, 4, 0, 2, 0}, {6, 4, 10, 4, 4, 50}, {14, 10, 16, 8, 2, 50}}},
        {"late pulse",
         pulses,
         kTypePwPercent,
         500,
         false,
         {{502, 0, 504, 0, 2, 0}, {506, 504, 510, 4, 4, 50}, {514, 510, 516, 8, 2, 50}}},
        // Edges 4 10 14 20 | rejected 22..37 | 44 50 54: no cycle before the pulse after the range.
        {"reject",
         squareWave(60, 5),
         kTypePw,
         0,
         true,
         {{4, 0, 10, 0, 6, 0}, {14, 10, 20, 10, 6, 60}, {44, 0, 50, 0, 6, 0}}},
    };
    for (const auto& c : cases) {
        ScanSettings s = settings(c.type);
        s.OmitRangeEffect = s.rejectFlag = c.reject;
        s.rejectStart = 22;
        s.rejectEnd = 37;
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        ExtractCycles(0, c.v, c.start, s, table, cycles);
        std::vector<Rec> got;
        for (const auto& r : cycles)
            got.push_back({double(r.FirstEdge), double(r.MidEdge), double(r.LastEdge), r.Period, r.PulseWidth, r.Duty});
        EXPECT_EQ(got, c.want) << c.name;
        // The rule a view relies on: a pulse record's cycle runs from the
        // previous record's first edge to its own.
        const bool pulse = c.type == kTypePw || c.type == kTypePwPercent;
        for (size_t n = 1; pulse && n < cycles.size(); ++n) {
            if (cycles[n].Period == 0) continue;
            EXPECT_EQ(cycles[n].Period, cycles[n].FirstEdge - cycles[n - 1].FirstEdge) << c.name << n;
            EXPECT_EQ(cycles[n].Duty * cycles[n].Period / 100, cycles[n].MidEdge - cycles[n - 1].FirstEdge)
                << c.name << n;
        }
    }
}

// At the cycle limit the scan looks one cycle (or pulse) further, recording
// nothing, to tell whether the window held more. A limit below 1 keeps one.
TEST(ExtractCycles, CycleLimitKeepsTheFirstCyclesAndTellsWhetherMoreWereLeft) {
    const auto v = squareWave(200, 5);  // 19 cycles, 19 pulses
    for (int32_t type : {kTypePeriod, kTypePw, kTypePwPercent}) {
        auto table = levelsTable(0);
        std::vector<CycleRecord> all;
        bool more = true;
        const int32_t n = ExtractCycles(0, v, 0, settings(type), table, all, &more);
        ASSERT_EQ(n, 19) << type;
        EXPECT_FALSE(more);
        const std::pair<int32_t, int32_t> limits[] = {{0, 1},         {1, 1}, {2, 2},     {3, 3},
                                                      {n - 1, n - 1}, {n, n}, {n + 1, n}, {1000, n}};
        for (const auto& [limit, want] : limits) {
            ScanSettings s = settings(type);
            s.MaxCycles = limit;
            std::vector<CycleRecord> cut;
            more = !(want < n);
            EXPECT_EQ(ExtractCycles(0, v, 0, s, table, cut, &more), want) << type << " " << limit;
            EXPECT_EQ(static_cast<int32_t>(cut.size()), want) << type << " " << limit;
            EXPECT_EQ(more, want < n) << type << " " << limit;
            for (size_t k = 0; k < cut.size(); ++k)
                EXPECT_EQ(std::make_tuple(cut[k].PulseWidth, cut[k].Period, cut[k].MidEdge, cut[k].Rms),
                          std::make_tuple(all[k].PulseWidth, all[k].Period, all[k].MidEdge, all[k].Rms))
                    << type << " " << limit << " record " << k;
        }
    }
    EXPECT_EQ(CycleLimit(499999), 499999);
    EXPECT_EQ(CycleLimit(500000), 500000);
    EXPECT_EQ(CycleLimit(2000000000), 500000);
    EXPECT_EQ(CycleLimit(-4), 1);
}

// A reject range restarts the scan unarmed after it; a smoothing margin ends
// a walk through the band early, at halfSmooth + 2 samples before the window
// end, where the averages stop.
TEST(ExtractCycles, RejectRangeAndSmoothingMargin) {
    // Rising edges at 4, 14, 24, ...; falling at 10, 20, 30, ...
    const auto square = squareWave(60, 5);
    const std::vector<Edges> all = {{4, 10, 14}, {14, 20, 24}, {24, 30, 34}, {34, 40, 44}, {44, 50, 54}};
    // A slow rise through the band, left at 13.
    const std::vector<float> rise = {0, 0, 0, 10, 10, 0, 0, 4.5f, 5, 5.5f, 5.8f, 6.0f, 6.4f, 6.6f, 10, 10};
    struct Case {
        const char* name;
        const std::vector<float>& v;
        bool omit, flag;
        int32_t first, last, halfSmooth;
        std::vector<Edges> want;
    };
    const Case cases[] = {
        {"in force", square, true, true, 22, 37, 0, {{4, 10, 14}, {44, 50, 54}}},
        {"box not ticked", square, false, true, 22, 37, 0, all},
        {"nothing read", square, true, false, 22, 37, 0, all},
        {"first index 0 drops it", square, true, true, 0, 37, 0, all},
        {"last index past the window drops it", square, true, true, 22, 60, 0, all},
        {"exit at 13: (12 + 7) / 2 = 9.5 -> 10", rise, false, false, 0, 0, 0, {{2, 4, 10}}},
        {"stops at 16 - 4 = 12: (11 + 7) / 2", rise, false, false, 0, 0, 2, {{2, 4, 9}}},
        {"stops at 11: (10 + 7) / 2 = 8.5 -> 8", rise, false, false, 0, 0, 3, {{2, 4, 8}}},
    };
    for (const auto& c : cases) {
        ScanSettings s = settings();
        s.OmitRangeEffect = c.omit;
        s.rejectFlag = c.flag;
        s.rejectStart = c.first;
        s.rejectEnd = c.last;
        s.halfSmooth = c.halfSmooth;
        EXPECT_EQ(scanEdges(c.v, s), c.want) << c.name;
    }
}

TEST(ExtractCycles, MeasurementsAndStatisticsByHand) {
    // Levels 2 / 12: edges 2, 4, 8, 12, 14 -> cycles (2, 4, 8) and (8, 12, 14);
    // pulse types: pulses (2, 4) and (8, 12), record 1 has cycle (2, 4, 8).
    const std::vector<float> v = {2, 2, 2, 12, 12, 2, 2, 2, 2, 12, 12, 12, 12, 2, 2, 12, 12};
    const double rms0 = std::sqrt(308.0 / 6), rms1 = std::sqrt(588.0 / 6), third = 100.0 / 3;
    using Row = std::array<double, 4>;  // Min, Max, Mean, Sigma
    const std::pair<int32_t, Row> cases[] = {
        {kTypePwPercent, {0, third, third / 2, third / 2}},
        {kTypePeriod, {3, 3, 3, 0}},
        {kTypeDuty, {third, 2 * third, 50, third / 2}},
        {kTypeAmple, {20, 20, 20, 0}},
        {kTypePw, {1, 2, 1.5, 0.5}},
        {kTypeFreq, {1.0 / 3, 1.0 / 3, 1.0 / 3, 0}},
        {kTypeRms, {2 * rms0, 2 * rms1, rms0 + rms1, rms1 - rms0}},
        {kTypeMax, {24, 24, 24, 0}},
        {kTypeMin, {0, 4, 4, 0}},  // the running minimum of "Min" starts at 0
    };
    auto rowOf = [](const ChannelResult& r) { return Row{r.Min, r.Max, r.Mean, r.Sigma}; };
    auto near = [](const Row& a, const Row& b) {
        for (size_t k = 0; k < 4; ++k)
            if (std::fabs(a[k] - b[k]) > 1e-9) return false;
        return true;
    };
    for (const auto& [type, row2] : cases) {
        auto table = levelsTable(0, 2, 12, 7);
        std::vector<CycleRecord> cycles;
        ScanSettings s = settings(type);
        s.SampleSec = 0.5f;
        s.VRate = 2;
        ASSERT_EQ(ExtractCycles(0, v, 0, s, table, cycles), 2) << type;
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::OfType)), row2)) << type;
        const bool pulse = type == kTypePw || type == kTypePwPercent;
        const Row duty = pulse ? Row{0, third, third / 2, third / 2} : Row{third, 2 * third, 50, third / 2};
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::Duty)), duty)) << type;
        // What the value limits are held against: no seeds, and a pulse's
        // first record, which has no cycle before it, left out.
        const ChannelResult& d = table.at(0, Measure::Duty);
        EXPECT_EQ(d.Measured, pulse ? 1 : 2) << type;
        EXPECT_NEAR(d.Lowest, third, 1e-9) << type;
        if (type == kTypeMin) {
            EXPECT_EQ(table.at(0, Measure::OfType).Lowest, 4);
        }
        for (Measure kind : kMeasures) {
            EXPECT_EQ(table.at(0, kind).Counts, 2);
            EXPECT_TRUE(table.at(0, kind).Valid);
        }
        if (type != kTypePeriod) continue;
        EXPECT_EQ(cycles[0].MaxValue, 12);
        EXPECT_EQ(cycles[0].MinValue, 2);
        EXPECT_EQ(cycles[0].Ample, 10);
        EXPECT_NEAR(cycles[1].Rms, rms1, 1e-12);
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::PulseWidth)), Row{1, 2, 1.5, 0.5}));          // pulse width, s
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::Period)), Row{3, 3, 3, 0}));                  // period, s
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::Freq)), Row{1.0 / 3, 1.0 / 3, 1.0 / 3, 0}));  // Hz
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::Ample)), Row{20, 20, 20, 0}));                // amplitude x VRate
        EXPECT_TRUE(near(rowOf(table.at(0, Measure::Rms)), Row{2 * rms0, 2 * rms1, rms0 + rms1, rms1 - rms0}));
    }
}

TEST(ExtractCycles, NoCyclesClearsTheStatisticsOnly) {
    auto table = levelsTable(0);
    table.at(0, Measure::OfType) = ChannelResult{5, 6, 7, 8, 9, true, true};
    table.at(0, Measure::OfType).UL = 77;
    std::vector<CycleRecord> cycles(3);
    EXPECT_EQ(ExtractCycles(0, std::vector<float>(50, 10.0f), 0, settings(), table, cycles), 0);
    EXPECT_TRUE(cycles.empty());
    const ChannelResult& r = table.at(0, Measure::OfType);
    EXPECT_EQ(std::make_tuple(r.Min, r.Max, r.Mean, r.Sigma, r.Counts, r.Go, r.Valid),
              std::make_tuple(0.0, 0.0, 0.0, 0.0, 0, false, false));
    EXPECT_EQ(r.UL, 77);
    EXPECT_EQ(table.levels(0).Level, 5);
}

// The scan straight from the record (averages worked out on the way, in a
// buffer of limited reach) must give exactly what smoothing first and then
// scanning gives: short and long averages, a cycle longer than the buffer
// reaches, a window that starts late, a reject range that sends the scan back.
TEST(ExtractCyclesFromRecord, SameAsSmoothingFirst) {
    const int32_t n = 400000;
    std::vector<float> rec(static_cast<size_t>(n));
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> noise(-0.6f, 0.6f);
    for (int32_t i = 0; i < n; ++i) {
        const bool high = i < 100000 ? (i % 700) < 300 : i < 250000 ? i < 175000 : (i % 333) < 100;
        rec[static_cast<size_t>(i)] = (high ? 10.0f : 0.0f) + noise(rng);
    }
    const std::array<int32_t, 4> cases[] = {{1, 0, n, 0},  {3, 0, n, 0},          {5, 17, n - 40, 1},
                                            {15, 0, n, 1}, {17, 1000, 300000, 0}, {9, n - 5000, 5000, 0}};
    for (const auto& [smoothingNo, start, count, reject] : cases) {
        ScanSettings s = settings(kTypeRms);
        s.MaxCycles = 500000;
        s.halfSmooth = HalfSmooth(smoothingNo);
        s.OmitRangeEffect = s.rejectFlag = reject != 0;
        s.rejectStart = 120000;
        s.rejectEnd = 90000;
        auto tableA = levelsTable(0), tableB = levelsTable(0);
        std::vector<float> smoothed(static_cast<size_t>(count)), scratch;
        SmoothSamples(rec, start, count, smoothingNo, smoothed);
        std::vector<CycleRecord> a, b;
        const int32_t na = ExtractCycles(0, smoothed, start, s, tableA, a);
        ASSERT_EQ(na, ExtractCyclesFromRecord(0, rec, start, count, smoothingNo, s, tableB, b, scratch)) << smoothingNo;
        ASSERT_GT(na, 10);
        for (size_t k = 0; k < a.size(); ++k) {
            ASSERT_EQ(std::make_tuple(a[k].MidEdge, a[k].Period, a[k].Rms, a[k].MaxValue, a[k].MinValue),
                      std::make_tuple(b[k].MidEdge, b[k].Period, b[k].Rms, b[k].MaxValue, b[k].MinValue))
                << smoothingNo << " cycle " << k;
        }
    }
}

// Pulses on levels 0 / 10 (band 4..6): each period is 5 samples low, the
// rise's samples, 5 high, the fall's samples; a low stretch ends the record,
// then `end` (samples the record ends on).
std::vector<float> pulses(int periods, const std::vector<float>& rise, const std::vector<float>& fall,
                          const std::vector<float>& end = {}) {
    std::vector<float> v;
    for (int k = 0; k < periods; ++k) {
        v.insert(v.end(), 5, 0.0f);
        v.insert(v.end(), rise.begin(), rise.end());
        v.insert(v.end(), 5, 10.0f);
        v.insert(v.end(), fall.begin(), fall.end());
    }
    v.insert(v.end(), 5, 0.0f);
    v.insert(v.end(), end.begin(), end.end());
    return v;
}

// The legacy rule ignores the sample that ends the quiet stretch after a walk
// through the band; the Schmitt rule looks at it. Auto gives the legacy
// results exactly where nothing was passed over, the Schmitt ones otherwise.
TEST(ExtractCycles, EdgeRules) {
    struct Case {
        const char* name;
        std::vector<float> v;
        int32_t legacy, schmitt;  // cycles
        int32_t passed;           // what the legacy rule passed over
        double period;            // of every Schmitt cycle (0: not one period)
    };
    const Case cases[] = {
        {"clean jumps", pulses(10, {}, {}), 9, 9, 0, 10},
        {"a sample at the level on each rise: each fall is passed over", pulses(10, {5}, {}), 4, 9, 10, 11},
        {"and inside the band past the level on each fall", pulses(10, {5}, {4.5f}), 4, 9, 10, 12},
        // Each dip is an edge either way (ripple larger than h).
        {"past the level inside the band and back up: nothing passed over", pulses(10, {5}, {4.5f, 10, 0}), 14, 14, 0,
         0},
        {"the record ends inside the band", pulses(10, {}, {}, {5.5f, 5.5f, 5.5f}), 10, 9, 1, 10},
    };
    auto run = [](const std::vector<float>& v, EdgeRule rule, EdgeTiming timing, int32_t& passed) {
        ScanSettings s = settings();
        s.edgeRule = rule;
        s.edgeTiming = timing;
        auto table = levelsTable(0);
        std::vector<CycleRecord> cycles;
        ExtractCycles(0, v, 0, s, table, cycles, nullptr, &passed);
        return cycles;
    };
    using Fields = std::tuple<int32_t, int32_t, int32_t, double, double, double>;
    auto fields = [](const std::vector<CycleRecord>& cycles) {
        std::vector<Fields> f;
        for (const auto& c : cycles) f.emplace_back(c.FirstEdge, c.MidEdge, c.LastEdge, c.Period, c.Rms, c.MidCrossing);
        return f;
    };
    for (const auto& c : cases) {
        for (EdgeTiming timing : {EdgeTiming::Samples, EdgeTiming::Interpolated}) {
            int32_t passed = -1, schmittPassed = -1, autoPassed = -1;
            const auto legacy = run(c.v, EdgeRule::Legacy, timing, passed);
            const auto schmitt = run(c.v, EdgeRule::Schmitt, timing, schmittPassed);
            const auto automatic = run(c.v, EdgeRule::Auto, timing, autoPassed);
            EXPECT_EQ(static_cast<int32_t>(legacy.size()), c.legacy) << c.name;
            EXPECT_EQ(static_cast<int32_t>(schmitt.size()), c.schmitt) << c.name;
            EXPECT_EQ(passed, c.passed) << c.name;
            EXPECT_EQ(autoPassed, c.passed) << c.name;
            EXPECT_EQ(schmittPassed, 0) << c.name;
            EXPECT_EQ(fields(automatic), fields(c.passed ? schmitt : legacy)) << c.name;
            for (const auto& cycle : schmitt) {
                if (timing == EdgeTiming::Samples && c.period > 0) {
                    EXPECT_EQ(cycle.Period, c.period) << c.name;
                }
            }
        }
    }
}

// The scan straight from the record scans again from its start when Auto
// takes the Schmitt rule: the averages worked out on the way start over too.
TEST(ExtractCyclesFromRecord, AutoScansAgainFromTheStart) {
    // Falls that ring below the low level: averaged over three samples the
    // first sample after the top lies beyond the band at once.
    std::vector<float> rec;
    for (int k = 0; k < 3000; ++k)
        for (float x : {0.0f, 0.0f, 0.0f, 0.0f, 7.5f, 10.0f, 10.0f, 10.0f, 10.0f, 10.0f, -10.0f, 0.0f, 0.0f})
            rec.push_back(x);
    const auto n = static_cast<int32_t>(rec.size());
    std::array<std::vector<CycleRecord>, 2> got;
    int32_t passed = 0;
    for (EdgeRule rule : {EdgeRule::Auto, EdgeRule::Schmitt}) {
        ScanSettings s = settings();
        s.MaxCycles = 500000;
        s.edgeRule = rule;
        auto table = levelsTable(0);
        std::vector<float> scratch;
        ExtractCyclesFromRecord(0, rec, 0, n, 3, s, table, got[rule == EdgeRule::Schmitt], scratch, nullptr,
                                rule == EdgeRule::Auto ? &passed : nullptr);
    }
    EXPECT_EQ(passed, 3000);
    ASSERT_EQ(got[0].size(), 2999u);
    ASSERT_EQ(got[0].size(), got[1].size());
    for (size_t k = 0; k < got[0].size(); ++k)
        ASSERT_EQ(std::make_tuple(got[0][k].MidEdge, got[0][k].Period, got[0][k].Rms),
                  std::make_tuple(got[1][k].MidEdge, got[1][k].Period, got[1][k].Rms))
            << "cycle " << k;
}

}  // namespace
}  // namespace mervasto
