#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/Jitter.h"

namespace mervasto {
namespace {

// Period-type cycles from a list of rising edges; a NaN starts a new run
// (as after a reject range: the next cycle does not begin where one ended).
std::vector<CycleRecord> periodCycles(const std::vector<double>& edges) {
    std::vector<CycleRecord> out;
    for (size_t i = 0; i + 1 < edges.size(); ++i) {
        if (std::isnan(edges[i]) || std::isnan(edges[i + 1])) continue;
        out.push_back({.Period = edges[i + 1] - edges[i],
                       .FirstEdge = static_cast<int32_t>(std::lround(edges[i])),
                       .LastEdge = static_cast<int32_t>(std::lround(edges[i + 1])),
                       .FirstCrossing = edges[i],
                       .LastCrossing = edges[i + 1]});
    }
    return out;
}

// Pulse-type records: one per rising edge, without a period where no cycle
// leads up to it.
std::vector<CycleRecord> pulseCycles(const std::vector<double>& edges) {
    std::vector<CycleRecord> out;
    bool afterBreak = true;
    for (size_t i = 0; i < edges.size(); ++i) {
        if (std::isnan(edges[i])) {
            afterBreak = true;
            continue;
        }
        out.push_back({.Period = afterBreak ? 0 : edges[i] - edges[i - 1],
                       .FirstEdge = static_cast<int32_t>(std::lround(edges[i])),
                       .FirstCrossing = edges[i]});
        afterBreak = false;
    }
    return out;
}

TEST(MeasureJitter, CycleToCycleAndTimeIntervalError) {
    const double nan = std::nan("");
    struct Case {
        const char* name;
        std::vector<double> edges;
        double sampleSec;
        JitterResult want;
    };
    // Edges 0 10 21 30 40: periods 10 11 9 10, differences 1 -2 1; the line
    // fitted through them is 0.2 late at each edge but the third, which is
    // 0.8 early.
    const Case cases[] = {
        {"one displaced edge", {0, 10, 21, 30, 40}, 1, {-2, 1, 0, std::sqrt(2.0), 3, 0.4, 1.0, 5, 1, true}},
        {"in seconds", {0, 10, 21, 30, 40}, 1e-6, {-2e-6, 1e-6, 0, std::sqrt(2.0) * 1e-6, 3, 0.4e-6, 1e-6, 5, 1, true}},
        {"late in a long record",
         {4e6, 4e6 + 10, 4e6 + 21, 4e6 + 30, 4e6 + 40},
         1,
         {-2, 1, 0, std::sqrt(2.0), 3, 0.4, 1.0, 5, 1, true}},
        // Each run is a clean clock of its own; fitted over both at once they
        // would show a large error.
        {"a break between two clean runs",
         {0, 10, 20, 30, nan, 1000.5, 1013.5, 1026.5, 1039.5},
         1,
         {0, 0, 0, 0, 4, 0, 0, 8, 2, true}},
        {"one cycle", {5, 15}, 1, {0, 0, 0, 0, 0, 0, 0, 0, 1, false}},
        {"two cycles", {5, 15, 26}, 1, {1, 1, 1, 0, 1, 1 / std::sqrt(18.0), 0.5, 3, 1, true}},
        {"no cycles", {}, 1, {0, 0, 0, 0, 0, 0, 0, 0, 0, false}},
    };
    for (const Case& c : cases) {
        for (int32_t type : {kTypePeriod, kTypePw}) {
            const auto cycles = type == kTypePeriod ? periodCycles(c.edges) : pulseCycles(c.edges);
            const JitterResult got = MeasureJitter(type, cycles, c.sampleSec);
            const double tol = 1e-9 * c.sampleSec;
            const std::string what = std::string(c.name) + (type == kTypePeriod ? " (periods)" : " (pulses)");
            EXPECT_NEAR(got.Min, c.want.Min, tol) << what;
            EXPECT_NEAR(got.Max, c.want.Max, tol) << what;
            EXPECT_NEAR(got.Mean, c.want.Mean, tol) << what;
            EXPECT_NEAR(got.Sigma, c.want.Sigma, tol) << what;
            EXPECT_EQ(got.Counts, c.want.Counts) << what;
            EXPECT_NEAR(got.TieRms, c.want.TieRms, tol) << what;
            EXPECT_NEAR(got.TiePeakToPeak, c.want.TiePeakToPeak, tol) << what;
            EXPECT_EQ(got.TieCounts, c.want.TieCounts) << what;
            EXPECT_EQ(got.Runs, c.want.Runs) << what;
            EXPECT_EQ(got.Valid, c.want.Valid) << what;

            // The trend holds each fitted edge and its error: the same errors
            // the RMS and peak-to-peak summarise.
            TieTrend trend;
            trend.at = {1, 2, 3};  // what a run before left is replaced
            (void)MeasureJitter(type, cycles, c.sampleSec, &trend);
            ASSERT_EQ(trend.at.size(), static_cast<size_t>(c.want.TieCounts)) << what;
            ASSERT_EQ(trend.error.size(), trend.at.size()) << what;
            double squares = 0;
            for (double e : trend.error) squares += e * e;
            if (!trend.error.empty()) {
                EXPECT_NEAR(std::sqrt(squares / static_cast<double>(trend.error.size())), c.want.TieRms, tol) << what;
                EXPECT_TRUE(std::is_sorted(trend.at.begin(), trend.at.end())) << what;
            }
        }
    }
}

}  // namespace
}  // namespace mervasto
