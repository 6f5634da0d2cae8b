#include "store/ResultStore.h"

#include <gtest/gtest.h>

#include <cmath>

#include "store/StoreSamples.h"
#include "support/TestFolder.h"

using namespace mervasto;

namespace {

const SummaryRow* find(const std::vector<SummaryRow>& rows, int channel, Measure kind) {
    for (const SummaryRow& r : rows)
        if (r.channel == channel && r.kind == kind) return &r;
    return nullptr;
}

// Three passes of Ch1's period, worked by hand. Cycles 1, 1 | 1.0, 1.2 |
// 0.9, 0.9, 1.0, 1.0: mean 8.0 / 8 = 1.0, sigma sqrt(8.06 / 8 - 1) =
// sqrt(0.0075). Value limits 0.75 .. 1.5: Cp = 0.75 / (6 sigma) = 1.443376,
// Cpk = (1.0 - 0.75) / (3 sigma) = 0.962250. Count limits set, pass 3 NG:
// yield 2 / 3. A kind without limits has no yield, none without value
// limits a Cp; a later pass without value limits leaves the kind without.
TEST(StoreSummary, YieldCpAndCpkOfASmallCaseByHand) {
    const auto dir = test::FreshTestFolder("mervasto-summary-");
    ResultStore store;
    ASSERT_TRUE(store.open({false, (dir / "s.sqlite").string()}, true).ok());
    const RunInfo run = test::SampleRun("line-1");
    struct Cycles {
        int32_t counts;
        double min, max, mean, sigma;
        bool go;
    };
    const Cycles passes[] = {
        {2, 1.0, 1.0, 1.0, 0.0, true}, {2, 1.0, 1.2, 1.1, 0.1, true}, {4, 0.9, 1.0, 0.95, 0.05, false}};
    int32_t n = 0;
    for (const Cycles& c : passes) {
        PassRecord p = test::SamplePass(++n, 5);
        ChannelResult& r = p.table.at(0, Measure::Period);
        r = {c.min, c.max, c.mean, c.sigma, c.counts, c.go, true};
        r.LL = 1;
        r.UL = 5;
        r.ValueLimit1 = 0.75f;
        r.ValueLimit2 = 1.5f;
        p.table.at(0, Measure::Freq).ValueLimit1 = n < 3 ? 1.0f : 0.0f;  // value limits only at first
        p.table.at(0, Measure::Freq).ValueLimit2 = n < 3 ? 9.0f : 0.0f;
        ASSERT_TRUE(store.storePass(run, p).ok());
    }
    std::vector<SummaryRow> rows;
    ASSERT_TRUE(store.summarise({}, rows).ok());
    EXPECT_EQ(rows.size(), static_cast<size_t>(kChannels * kKinds));
    const SummaryRow* period = find(rows, 1, Measure::Period);
    ASSERT_NE(period, nullptr);
    EXPECT_EQ(period->passes, 3);
    EXPECT_EQ(period->cycles, 8);
    EXPECT_EQ(period->min, 0.9);
    EXPECT_EQ(period->max, 1.2);
    EXPECT_NEAR(period->mean, 1.0, 1e-12);
    EXPECT_NEAR(period->sigma, std::sqrt(0.0075), 1e-12);
    EXPECT_EQ(period->judged, 3);
    EXPECT_EQ(period->go, 2);
    ASSERT_TRUE(period->cp && period->cpk);
    EXPECT_NEAR(*period->cp, 1.443376, 1e-6);
    EXPECT_NEAR(*period->cpk, 0.962250, 1e-6);
    EXPECT_EQ(period->unit, "s");
    const SummaryRow* freq = find(rows, 1, Measure::Freq);
    ASSERT_NE(freq, nullptr);
    EXPECT_EQ(freq->judged, 2);
    EXPECT_FALSE(freq->cp);
    const SummaryRow* duty = find(rows, 2, Measure::Duty);
    ASSERT_NE(duty, nullptr);
    EXPECT_EQ(duty->judged, 0);
    EXPECT_NEAR(duty->mean, 5.1 + 0.01, 1e-12);
    EXPECT_EQ(duty->unit, "%");
}

// A production store: 16,000 passes of four channels and every kind, built
// in one transaction, then summarised. Half the passes read mean - 0.01,
// half mean + 0.01, each with sigma 0.002: the pooled sigma is
// sqrt(0.002^2 + 0.01^2) (the spread of the means counts too, and the digits
// survive a mean a thousand times the sigma). Every eighth pass is NG.
TEST(StoreSummary, SixteenThousandPassesInOneTransaction) {
    const auto dir = test::FreshTestFolder("mervasto-summary-");
    ResultStore store;
    ASSERT_TRUE(store.open({false, (dir / "line.sqlite").string()}, true).ok());
    const RunInfo run = test::SampleRun("line-1");
    constexpr int32_t kPasses = 16000;
    ASSERT_TRUE(store.beginBatch().ok());
    PassRecord p = test::SamplePass(1, 10);
    for (int32_t n = 1; n <= kPasses; ++n) {
        p.passNumber = n;
        for (int ch = 0; ch < kChannels; ++ch)
            for (Measure kind : kMeasures) {
                ChannelResult& r = p.table.at(ch, kind);
                r.Mean = 10 + (n % 2 ? -0.01 : 0.01);
                r.Sigma = 0.002;
                r.Go = n % 8 != 0;
                r.LL = 1;
                r.UL = 1000;
                r.ValueLimit1 = 9.75f;
                r.ValueLimit2 = 10.5f;
            }
        ASSERT_TRUE(store.storePass(run, p).ok()) << n;
    }
    ASSERT_TRUE(store.commitBatch().ok());
    std::vector<RunRow> runs;
    ASSERT_TRUE(store.listRuns(runs).ok());
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].passes, kPasses);
    EXPECT_EQ(YieldText(runs[0].judged, runs[0].go), "87.50 %");

    std::vector<SummaryRow> rows;
    ASSERT_TRUE(store.summarise({{runs[0].id}, {}, {}}, rows).ok());
    ASSERT_EQ(rows.size(), static_cast<size_t>(kChannels * kKinds));
    const double sigma = std::sqrt(0.002 * 0.002 + 0.01 * 0.01);
    for (const SummaryRow& r : rows) {
        EXPECT_EQ(r.passes, kPasses);
        EXPECT_EQ(r.judged, kPasses);
        EXPECT_EQ(r.go, kPasses / 8 * 7);
        EXPECT_NEAR(r.mean, 10.0, 1e-12);
        EXPECT_NEAR(r.sigma, sigma, 1e-12);
        ASSERT_TRUE(r.cp && r.cpk);
        EXPECT_NEAR(*r.cp, 0.75 / (6 * sigma), 1e-9);
        EXPECT_NEAR(*r.cpk, 0.25 / (3 * sigma), 1e-9);
    }
    // The time filter: every pass started at one moment.
    ASSERT_TRUE(store.summarise({{}, std::string("2024-05-01T08:00:01"), {}}, rows).ok());
    EXPECT_TRUE(rows.empty());
}

}  // namespace
