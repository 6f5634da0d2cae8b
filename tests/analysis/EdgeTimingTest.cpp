#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <vector>

#include "analysis/EdgeScan.h"
#include "analysis/Jitter.h"
#include "sim/ClockWave.h"

// Edge timing checked against records whose edge times are known: trapezoid
// clocks with sub-sample jitter, noise and quantisation.
namespace mervasto {
namespace {

constexpr int32_t kLength = 100000;

struct Scan {
    std::vector<CycleRecord> cycles;
    ChannelResultTable table;
};

Scan scan(const ClockWave& w, const ClockWaveParams& p, EdgeTiming timing, int32_t type = kTypePeriod,
          int32_t rejectStart = 0, int32_t rejectEnd = 0) {
    Scan r;
    r.table.levels(0).LowLevel = p.low;
    r.table.levels(0).HighLevel = p.high;
    r.table.levels(0).Level = (p.low + p.high) / 2;
    ScanSettings s;
    s.signalType = type;
    s.Histerisis = 10;
    s.SampleSec = 1;
    s.MaxCycles = kCycleLimitMax;
    s.edgeTiming = timing;
    s.OmitRangeEffect = s.rejectFlag = rejectEnd > 0;
    s.rejectStart = rejectStart;
    s.rejectEnd = rejectEnd;
    ExtractCycles(0, w.samples, 0, s, r.table, r.cycles);
    return r;
}

double sigmaOf(const std::vector<double>& v) {
    const double mean = std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size());
    double ss = 0;
    for (double x : v) ss += (x - mean) * (x - mean);
    return std::sqrt(ss / static_cast<double>(v.size()));
}

// The true edge nearest to t.
double nearest(const std::vector<double>& edges, double t) {
    double best = 1e300;
    for (double e : edges)
        if (std::fabs(e - t) < std::fabs(best - t)) best = e;
    return best;
}

TEST(EdgeTiming, CleanTrapezoidGivesTheTrueEdges) {
    struct Case {
        const char* name;
        double period;
        double rise;
        int32_t type;
    };
    const Case cases[] = {
        {"period 100.37, rise 6", 100.37, 6, kTypePeriod},
        {"period 33.3, rise 2", 33.3, 2, kTypePeriod},
        {"slow rise of 20 samples", 250.01, 20, kTypePeriod},
        {"pulse widths", 100.37, 6, kTypePw},
    };
    for (const Case& c : cases) {
        ClockWaveParams p;
        p.period = c.period;
        p.rise = c.rise;
        const ClockWave w = MakeClockWave(p, kLength);
        const Scan got = scan(w, p, EdgeTiming::Interpolated, c.type);
        ASSERT_GT(got.cycles.size(), 100u) << c.name;
        for (size_t n = 0; n < got.cycles.size(); ++n) {
            const CycleRecord& r = got.cycles[n];
            EXPECT_NEAR(r.FirstCrossing, nearest(w.rising, r.FirstCrossing), 1e-3) << c.name << " cycle " << n;
            EXPECT_NEAR(r.PulseWidth, p.duty * p.period, 1e-3) << c.name << " cycle " << n;
            if (c.type == kTypePeriod || n > 0) {
                EXPECT_NEAR(r.Period, p.period, 1e-3) << c.name << " cycle " << n;
                EXPECT_NEAR(r.Duty, 100 * p.duty, 1e-3) << c.name << " cycle " << n;
                EXPECT_NEAR(r.Freq, 1 / p.period, 1e-7) << c.name << " cycle " << n;
            }
        }
    }
}

// Whole-sample edges carry up to a sample of quantisation per period, which
// interpolation removes; everything not a time stays on the whole samples.
TEST(EdgeTiming, SamplesKeepWholeEdgesAndInterpolationLeavesTheRestAlone) {
    ClockWaveParams p;
    p.noise = 0.01;
    p.bits = 8;
    const ClockWave w = MakeClockWave(p, kLength);
    const Scan whole = scan(w, p, EdgeTiming::Samples);
    const Scan fine = scan(w, p, EdgeTiming::Interpolated);
    ASSERT_EQ(whole.cycles.size(), fine.cycles.size());
    std::vector<double> periods;
    for (size_t n = 0; n < whole.cycles.size(); ++n) {
        const CycleRecord& a = whole.cycles[n];
        const CycleRecord& b = fine.cycles[n];
        EXPECT_EQ(a.Period, a.LastEdge - a.FirstEdge) << n;
        EXPECT_EQ(std::tie(a.FirstCrossing, a.MidCrossing, a.LastCrossing),
                  std::make_tuple(static_cast<double>(a.FirstEdge), static_cast<double>(a.MidEdge),
                                  static_cast<double>(a.LastEdge)))
            << n;
        EXPECT_EQ(std::tie(a.FirstEdge, a.MidEdge, a.LastEdge, a.Rms, a.Ample, a.MaxValue, a.MinValue),
                  std::tie(b.FirstEdge, b.MidEdge, b.LastEdge, b.Rms, b.Ample, b.MaxValue, b.MinValue))
            << n;
        EXPECT_LE(std::fabs(b.FirstCrossing - b.FirstEdge), 1.0);
        periods.push_back(a.Period);
    }
    // 100.37 samples read as 100 and 101: a spread the signal does not have.
    EXPECT_NEAR(sigmaOf(periods), std::sqrt(0.37 * 0.63), 0.05);
    // What is left is the noise: 10 mV on a slope of 1/6 V per sample moves
    // each edge by 0.06 sample.
    EXPECT_LT(fine.table.at(0, Measure::OfType).Sigma, 0.15);
}

TEST(EdgeTiming, MeasuredSpreadFollowsTheInjectedOne) {
    struct Case {
        const char* name;
        double jitter;  // samples
        double noise;   // volts, on a 1 V step
        int bits;
        double meanTolerance;  // samples
        double sigmaBound;     // samples; 0: compare with the injected jitter
    };
    const Case cases[] = {
        {"16-bit words", 0, 0, 16, 1e-3, 0.02},
        {"8-bit words", 0, 0, 8, 1e-3, 0.02},
        {"half a sample of jitter", 0.5, 0, 0, 0.01, 0},
        {"jitter, noise and 8-bit words", 0.5, 0.005, 8, 0.01, 0},
        {"jitter of a tenth of a sample", 0.1, 0, 16, 0.01, 0},
    };
    for (const Case& c : cases) {
        ClockWaveParams p;
        p.jitter = c.jitter;
        p.noise = c.noise;
        p.bits = c.bits;
        p.seed = 7;
        const ClockWave w = MakeClockWave(p, kLength);
        const Scan got = scan(w, p, EdgeTiming::Interpolated);
        const ChannelResult& periods = got.table.at(0, Measure::OfType);
        ASSERT_GT(periods.Counts, 900) << c.name;
        // The mean period rests on the first and last edge only.
        const CycleRecord& first = got.cycles.front();
        const CycleRecord& last = got.cycles.back();
        const double trueMean = (nearest(w.rising, last.LastCrossing) - nearest(w.rising, first.FirstCrossing)) /
                                static_cast<double>(got.cycles.size());
        EXPECT_NEAR(periods.Mean, trueMean, c.meanTolerance) << c.name;
        EXPECT_NEAR(periods.Mean, p.period, 0.01 + 3 * c.jitter / periods.Counts) << c.name;

        const JitterResult j = MeasureJitter(kTypePeriod, got.cycles, 1);
        if (c.sigmaBound > 0) {
            EXPECT_LT(periods.Sigma, c.sigmaBound) << c.name;
            EXPECT_LT(j.TieRms, c.sigmaBound) << c.name;
            continue;
        }
        // Independent edge displacements of sigma s: periods spread by
        // s * sqrt(2), their differences by s * sqrt(6), the edges about the
        // fitted line by s.
        EXPECT_NEAR(periods.Sigma, c.jitter * std::sqrt(2.0), 0.1 * c.jitter * std::sqrt(2.0)) << c.name;
        EXPECT_NEAR(j.Sigma, c.jitter * std::sqrt(6.0), 0.1 * c.jitter * std::sqrt(6.0)) << c.name;
        EXPECT_NEAR(j.TieRms, c.jitter, 0.1 * c.jitter) << c.name;
        EXPECT_EQ(j.Runs, 1) << c.name;
        EXPECT_EQ(j.TieCounts, periods.Counts + 1) << c.name;
    }
}

// Two clean clocks of different period and phase, a reject range over the
// seam: each side is a clock of its own, so the time interval error fitted
// per run is nil, where one line through both would miss by many samples.
TEST(EdgeTiming, RejectRangeSplitsTheJitterRuns) {
    ClockWaveParams first, second;
    first.period = 100.37;
    second.period = 97.13;
    second.firstEdge = 41.7;
    const ClockWave a = MakeClockWave(first, 20000);
    const ClockWave b = MakeClockWave(second, 20000);
    ClockWave joined = a;
    std::copy(b.samples.begin() + 10000, b.samples.end(), joined.samples.begin() + 10000);
    for (int32_t type : {kTypePeriod, kTypePw}) {
        const Scan got = scan(joined, first, EdgeTiming::Interpolated, type, 9900, 10300);
        ASSERT_GT(got.cycles.size(), 150u);
        const JitterResult j = MeasureJitter(type, got.cycles, 1);
        EXPECT_EQ(j.Runs, 2) << type;
        EXPECT_LT(j.TieRms, 1e-3) << type;
        EXPECT_LT(j.Sigma, 1e-3) << type;
        // The cycles on either side of the range have their own periods.
        EXPECT_NEAR(got.cycles[5].Period, first.period, 1e-3) << type;
        EXPECT_NEAR(got.cycles.back().Period, second.period, 1e-3) << type;
    }
}

}  // namespace
}  // namespace mervasto
