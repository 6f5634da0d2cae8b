#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "analysis/GateWindow.h"
#include "analysis/Levels.h"
#include "analysis/Smoothing.h"

namespace mervasto {
namespace {

std::vector<int16_t> repeated(std::initializer_list<std::pair<int16_t, int>> runs) {
    std::vector<int16_t> s;
    for (auto [value, count] : runs) s.insert(s.end(), static_cast<size_t>(count), value);
    return s;
}

// Auto keeps Peaks' levels unless Halves' lie much nearer the samples: one
// code of an 8-bit instrument (or noise wider than 8 codes, see
// RunAnalysis.AutoLevelsOnANoisyImport) puts both of Peaks' levels inside
// the longer level's cluster; rare spikes do not.
TEST(FindTwoLevels, PicksPeaksOrHalvesAndAutoTakesHalvesOnlyWherePeaksMissesALevel) {
    struct Case {
        const char* name;
        std::vector<int16_t> samples;
        LevelMethod method;
        int16_t high;
        int16_t low;
        const char* note = "";
    };
    const std::vector<Case> cases = {
        {"two levels", repeated({{100, 3}, {-200, 5}}), LevelMethod::Peaks, 100, -200},
        {"two levels halves", repeated({{100, 3}, {-200, 5}}), LevelMethod::Halves, 100, -200},
        {"ties go to the lower code", repeated({{30, 2}, {10, 2}, {20, 2}}), LevelMethod::Peaks, 20, 10},
        {"second peak 8 codes away", repeated({{0, 5}, {7, 4}, {8, 3}}), LevelMethod::Peaks, 8, 0},
        {"halves split the occupied range", repeated({{0, 5}, {7, 4}, {8, 3}}), LevelMethod::Halves, 7, 0},
        {"flat: second peak at the bottom", repeated({{500, 9}}), LevelMethod::Peaks, 500, -32768},
        {"flat near the bottom", repeated({{-32765, 9}}), LevelMethod::Peaks, -32765, -32768},
        {"flat halves", repeated({{500, 9}}), LevelMethod::Halves, 500, 500},
        {"one code of noise", repeated({{500, 9}, {501, 8}}), LevelMethod::Halves, 501, 500},
        {"extremes", repeated({{32767, 2}, {-32768, 1}}), LevelMethod::Peaks, 32767, -32768},
        {"auto: two clean levels", repeated({{100, 3}, {-200, 5}}), LevelMethod::Auto, 100, -200},
        {"auto, flat: as Peaks", repeated({{500, 9}}), LevelMethod::Auto, 500, -32768},
        {"auto: rare spikes far above", repeated({{-20000, 500}, {0, 500}, {30000, 10}}), LevelMethod::Auto, 0, -20000},
        {"auto: 8-bit, one code of noise on the longer level",
         repeated({{105 * 256, 36}, {106 * 256, 34}, {-106 * 256, 16}, {-105 * 256, 14}}), LevelMethod::Auto, 105 * 256,
         -106 * 256, kNoteHalvesOneCluster},
    };
    for (const auto& c : cases) {
        TwoLevels got;
        const char* note = "unset";
        LevelHistogram histogram;
        ASSERT_TRUE(
            FindTwoLevels(c.samples, 0, static_cast<int32_t>(c.samples.size()) - 1, c.method, got, histogram, &note))
            << c.name;
        EXPECT_EQ(std::make_pair(got.high, got.low), std::make_pair(c.high, c.low)) << c.name;
        EXPECT_STREQ(note, c.note) << c.name;
    }
}

TEST(FindTwoLevels, CountsOnlyTheRange) {
    const auto s = repeated({{-900, 50}, {100, 3}, {-200, 5}, {900, 50}});
    TwoLevels got{1, 1};
    ASSERT_TRUE(FindTwoLevels(s, 50, 57, LevelMethod::Peaks, got));
    EXPECT_EQ(got.high, 100);
    EXPECT_EQ(got.low, -200);
    TwoLevels untouched{7, 3};
    EXPECT_FALSE(FindTwoLevels(s, 10, 9, LevelMethod::Peaks, untouched));
    EXPECT_EQ(untouched.high, 7);
    EXPECT_EQ(untouched.low, 3);
}

TEST(LevelConversion, RawAndVolts) {
    EXPECT_FLOAT_EQ(VoltsFromRaw(8192, 0.5f, -1.65f), 2.15f);
    EXPECT_FLOAT_EQ(VoltsFromRaw(-16384, 2.0f, 1.0f), -5.0f);
    struct Case {
        float volts, vdiv, offset;
        int16_t raw;
    };
    const Case cases[] = {
        {0.5f, 8192, 0, 0},          {1.5f, 8192, 0, 2}, {2.5f, 8192, 0, 2},   {-0.5f, 8192, 0, 0},
        {2.15f, 0.5f, -1.65f, 8192}, {100, 1, 0, 32767}, {-100, 1, 0, -32768}, {3, 0, 0, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(RawFromVolts(c.volts, c.vdiv, c.offset), c.raw) << c.volts;
}

TEST(LevelConversion, DecisionLevelIsPLevelPercentUp) {
    const auto s = repeated({{8192 * 4 - 1, 4}, {0, 4}});
    LevelHistogram h;
    const SignalLevels lv = GetSignalLevels(s, 0, 7, 1.0f, 0.0f, 25.0f, LevelMethod::Peaks, h);
    EXPECT_FLOAT_EQ(lv.LowLevel, 0.0f);
    EXPECT_NEAR(lv.HighLevel, 4.0f, 1e-3);
    EXPECT_NEAR(lv.Level, 1.0f, 1e-3);
    EXPECT_TRUE(lv.ok);
    const GateLevels g = GetGateLevels(s, 8, 1.0f, 0.0f, LevelMethod::Peaks, h);
    EXPECT_NEAR(g.centre, 2.0f, 1e-3);
}

TEST(FindGateRange, FirstPulseFromBelowTheBand) {
    struct Case {
        const char* name;
        std::vector<float> v;
        int32_t start, end;
    };
    const std::vector<Case> cases = {
        {"pulse after a dip", {1, 1, 0, 0, 1, 1, 1, 0, 0, 1, 1}, 3, 7},
        {"starts low", {0, 1, 1, 0}, 0, 3},
        {"never below the band", {0.4f, 1, 0.4f, 1}, -5, -6},
        {"pulse never ends", {0, 0, 1, 1, 1}, 1, -6},
        {"slow rise keeps its start", {0, 0.5f, 0.6f, 0.4f, 0, 1, 0}, 0, 6},
    };
    for (const auto& c : cases) {
        int32_t start = -5, end = -6;
        FindGateRange(c.v, 0.5f, 0.2f, 0, static_cast<int32_t>(c.v.size()) - 1, start, end);
        EXPECT_EQ(start, c.start) << c.name;
        EXPECT_EQ(end, c.end) << c.name;
    }
}

TEST(ApplyLimitPoints, TrimsOrIgnoresTheMargin) {
    struct Case {
        int32_t start, end, n;
        float margin;
        int32_t wantStart, wantEnd;
    };
    const Case cases[] = {
        {0, 999, 1000, 0, 0, 999},         {0, 999, 1000, 1, 100, 899},   {0, 999, 1000, 5, 0, 999},
        {0, 999, 1000, 4.99f, 499, 500},   {0, 49, 50, 0.5f, 2, 47},      {0, 69, 70, 0.5f, 4, 65},
        {300, 700, 1000, 1, 400, 600},     {300, 700, 1000, 2, 300, 700}, {0, 999, 1000, -1, 0, 999},
        {300, 700, 1000, 1e30f, 300, 700},
    };
    for (const auto& c : cases) {
        const SampleRange r = ApplyLimitPoints(c.start, c.end, c.n, c.margin);
        EXPECT_EQ(r.start, c.wantStart) << c.start << ".." << c.end << " m=" << c.margin;
        EXPECT_EQ(r.end, c.wantEnd) << c.start << ".." << c.end << " m=" << c.margin;
    }
}

TEST(SmoothSamples, CentredMeanRawAtTheRecordEnds) {
    const std::vector<float> rec = {0, 3, 6, 9, 3};
    struct Case {
        int32_t from, count, smoothingNo;
        std::vector<float> want;
    };
    const std::vector<Case> cases = {
        {0, 5, 3, {0, 3, 6, 6, 3}},    {2, 2, 3, {6, 6}},           {0, 5, 1, {0, 3, 6, 9, 3}},
        {0, 5, 0, {0, 3, 6, 9, 3}},    {0, 5, -3, {0, 3, 6, 9, 3}}, {0, 5, 5, {0, 3, 4.2f, 9, 3}},
        {0, 5, 4, {0, 3, 4.2f, 9, 3}}, {0, 5, 7, {0, 3, 6, 9, 3}},
    };
    for (const auto& c : cases) {
        std::vector<float> out(static_cast<size_t>(c.count), -1);
        SmoothSamples(rec, c.from, c.count, c.smoothingNo, out);
        for (size_t k = 0; k < out.size(); ++k)
            EXPECT_FLOAT_EQ(out[k], c.want[k]) << "from " << c.from << " n " << c.smoothingNo << " k " << k;
    }
}

TEST(SmoothSamples, LongRecordMatchesDirectMeanWhateverTheWindow) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-2, 3);
    std::vector<float> rec(40000);
    for (auto& v : rec) v = u(rng);
    const int hs = 3;
    std::vector<float> all(rec.size());
    SmoothSamples(rec, 0, static_cast<int32_t>(rec.size()), 2 * hs + 1, all);
    for (size_t j = hs; j + hs < rec.size(); j += 97) {
        double sum = 0;
        for (int t = -hs; t <= hs; ++t) sum += rec[j + static_cast<size_t>(t)];
        ASSERT_NEAR(all[j], sum / (2 * hs + 1), 1e-5) << j;
    }
    // A window that starts anywhere gives the same smoothed samples.
    std::vector<float> part(20000);
    SmoothSamples(rec, 12345, 20000, 2 * hs + 1, part);
    for (size_t k = 0; k < part.size(); ++k) ASSERT_EQ(part[k], all[12345 + k]) << k;
}

}  // namespace
}  // namespace mervasto
