#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "results/CycleSeries.h"
#include "results/ResultGrids.h"

namespace mervasto {
namespace {

std::vector<double> scaled(std::vector<double> v, double by) {
    for (double& x : v) x *= by;
    return v;
}

TEST(CycleSeries, HistogramBarsMeanAndSpread) {
    const double us = 1e-6;
    const struct {
        const char* name;
        std::vector<double> values;
        int32_t bins;
        double quantum;
        std::vector<int32_t> counts;
        double low, width;
    } cases[] = {
        {"even bins, last one closed", {1, 2, 2, 3, 3, 3, 4}, 3, 0, {1, 2, 4}, 1, 1},
        // Sample steps of 1 us: bins of two steps centred on the steps.
        {"steps", scaled({100, 101, 101, 102, 105}, us), 3, us, {3, 1, 1}, 99.5 * us, 2 * us},
        {"more bins than steps", scaled({10, 11, 12}, us), 50, us, {1, 1, 1}, 9.5 * us, us},
        {"a constant is one bar", {5, 5, 5}, 4, 0, {3}, 4.9975, 0.005},
        {"nothing", {}, 4, 0, {}, 0, 0},
    };
    for (const auto& c : cases) {
        const Histogram h = MakeHistogram(c.values, c.bins, c.quantum);
        EXPECT_EQ(h.counts, c.counts) << c.name;
        EXPECT_NEAR(h.low, c.low, 1e-12) << c.name;
        EXPECT_NEAR(h.width, c.width, 1e-12) << c.name;
        EXPECT_EQ(h.total, static_cast<int32_t>(c.values.size())) << c.name;
        EXPECT_FALSE(h.chosen);
    }
    const Histogram h = MakeHistogram(std::vector<double>{1, 2, 2, 3, 3, 3, 4}, 0);
    EXPECT_TRUE(h.chosen);
    EXPECT_DOUBLE_EQ(h.mean, 18.0 / 7);
    EXPECT_NEAR(h.sigma, std::sqrt(52.0 / 7 - (18.0 / 7) * (18.0 / 7)), 1e-12);
    EXPECT_EQ(HistogramBinOf(h, 4), static_cast<int32_t>(h.counts.size()) - 1);
    EXPECT_EQ(HistogramBinOf(h, 0.5), -1);
    EXPECT_EQ(HistogramBinOf(h, 4.5), -1);
}

TEST(CycleSeries, BinCountChosenFromTheData) {
    std::vector<double> uniform;
    for (int i = 1; i <= 1000; ++i) uniform.push_back(i);
    std::vector<double> steps;  // four sample steps, many cycles
    for (int i = 0; i < 4000; ++i) steps.push_back((i % 4) * 1e-8 + 1e-6);
    std::vector<double> outlier(99, 0.0);
    outlier.push_back(10);
    const struct {
        const char* name;
        std::vector<double> values;
        double quantum;
        int32_t bins;
    } cases[] = {
        {"quartile rule", uniform, 0, 10},
        {"no more bins than steps", steps, 1e-8, 4},
        {"equal quartiles: Sturges", outlier, 0, 8},
        {"a constant", {3, 3}, 0, 1},
        {"nothing", {}, 0, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(ChosenBinCount(c.values, c.quantum), c.bins) << c.name;
}

TEST(CycleSeries, ValuesTimesAndCsv) {
    CycleRecord a, b;
    a.PulseWidth = 30;
    a.FirstEdge = 10;
    b.PulseWidth = 50;
    b.FirstEdge = 110;
    const std::vector<CycleRecord> cycles = {a, b};
    const auto values = CycleValues(kTypePw, cycles, 1e-6, 1);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_DOUBLE_EQ(values[1], 50e-6);
    const auto times = CycleTimes(cycles, 1e-6);
    EXPECT_DOUBLE_EQ(times[1], 110e-6);
    EXPECT_EQ(CycleNumbers(3), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(SampleTimes(std::vector<double>{0, 2.5}, 1e-3, -1), (std::vector<double>{-1, 2.5e-3 - 1}));
    EXPECT_EQ(TrendCsv(values, times, "s"), "Cycle,Time (s),Value (s)\r\n1,1e-05,3e-05\r\n2,0.00011,5e-05\r\n");
    EXPECT_EQ(HistogramCsv(MakeHistogram(values, 2), "s"),
              "Bin low (s),Bin high (s),Count\r\n3e-05,4e-05,1\r\n4e-05,5e-05,1\r\n");

    // Times between whole-sample edges move in sample steps; interpolated
    // times and other quantities do not.
    std::vector<CycleRecord> whole = cycles;
    for (auto& c : whole) {
        c.FirstCrossing = c.FirstEdge;
        c.LastCrossing = c.LastEdge;
    }
    EXPECT_EQ(ValueQuantum("s", whole, 1e-6), 1e-6);
    EXPECT_EQ(ValueQuantum("Hz", whole, 1e-6), 0);
    whole[1].FirstCrossing += 0.4;
    EXPECT_EQ(ValueQuantum("s", whole, 1e-6), 0);
}

}  // namespace
}  // namespace mervasto

namespace mervasto {
namespace {

// Cycles 0 and 5 hold no edges, as the pulse types' first and last records.
std::vector<CycleRecord> stretches(size_t n) {
    std::vector<CycleRecord> cycles(n);
    for (size_t i = 1; i + 1 < n; ++i) {
        cycles[i].FirstEdge = static_cast<int32_t>(10 * i);
        cycles[i].LastEdge = static_cast<int32_t>(10 * i + 5);
    }
    return cycles;
}

TEST(CycleSeries, BarClicksStepThroughTheBarsShowableCycles) {
    const std::vector<double> values = {0.5, 1, 3, 1.5, 1, 4};
    const auto cycles = stretches(values.size());
    const Histogram h = MakeHistogram(values, 2);  // [0.5, 2.25) and [2.25, 4]
    EXPECT_EQ(CyclesInBin(h, values, cycles, 0), (std::vector<int32_t>{1, 3, 4}));
    EXPECT_EQ(CyclesInBin(h, values, cycles, 1), (std::vector<int32_t>{2}));
    EXPECT_TRUE(CyclesInBin(h, values, cycles, 7).empty());

    BinSelection sel;
    std::vector<int32_t> shown;
    for (int i = 0; i < 4; ++i) shown.push_back(sel.click(h, values, cycles, 0));
    EXPECT_EQ(shown, (std::vector<int32_t>{1, 3, 4, 1}));  // wraps
    EXPECT_EQ(sel.size(), 3u);
    EXPECT_EQ(sel.position(), 0u);
    // Another bar starts at its own first cycle, and going back starts over.
    EXPECT_EQ(sel.click(h, values, cycles, 1), 2);
    EXPECT_EQ(sel.click(h, values, cycles, 1), 2);
    EXPECT_EQ(sel.click(h, values, cycles, 0), 1);
    EXPECT_EQ(sel.click(h, values, cycles, -1), -1);

    // The edgeless records hold the smallest and largest values, but only
    // showable cycles are marked; ties go to the first.
    const ExtremeCycles e = FindExtremeCycles(values, cycles);
    EXPECT_EQ(e.min, 1);
    EXPECT_EQ(e.max, 2);
    EXPECT_EQ(FindExtremeCycles({}, {}).min, -1);
}

}  // namespace
}  // namespace mervasto
