#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <tuple>
#include <vector>

#include "analysis/Analysis.h"
#include "sim/ClockWave.h"
#include "support/AnalysisRecord.h"
#include "support/JobsFor.h"

namespace mervasto {
namespace {

using test::Record;

// Only the channels listed are switched on; Ch4 may be the gate.
AnalysisParams params(std::initializer_list<int> on, bool gate = false) {
    AnalysisParams p;
    p.Histerisis = 10;
    p.MaxCycles = 100000;
    for (auto& c : p.channel) c.DispOff = true;
    for (int ch : on) p.channel[static_cast<size_t>(ch)].DispOff = false;
    if (gate) p.channel[3].SignalType = kTypeGate;
    return p;
}

TEST(RunAnalysis, GateWindowWithAndWithoutMargin) {
    Record r(1000);
    r.square(0, 20, 10);
    for (int32_t i = 300; i < 700; ++i) r.volts[3][static_cast<size_t>(i)] = 5;
    const std::array<int32_t, 3> cases[] = {{0, 299, 700}, {1, 399, 600}, {3, 299, 700}};  // margin, window
    for (const auto& [margin, anaStart, anaEnd] : cases) {
        AnalysisParams p = params({0, 3}, true);
        p.LimitPoints = static_cast<float>(margin);
        AnalysisResults res;
        res.table.at(3, Measure::OfType).Counts = 7;  // the gate channel keeps its statistics
        res.table.levels(3).Level = 9;
        EXPECT_TRUE(RunAnalysis(r.input(), p, res).messages.empty());
        const ChannelResult& w = res.table.window();
        EXPECT_EQ(std::make_tuple(w.GateStart, w.GateEnd, w.AnaStart, w.AnaEnd),
                  std::make_tuple(299, 700, anaStart, anaEnd))
            << margin;
        EXPECT_EQ(w.Level, 0);
        EXPECT_EQ(res.table.at(3, Measure::OfType).Counts, 7);
        EXPECT_EQ(res.note[3], "");
        // Ch1: only whole cycles inside the window.
        const auto& cyc = res.cycles.channel[0];
        EXPECT_NEAR(static_cast<double>(cyc.size()), (anaEnd - anaStart) / 20.0, 1.0);
        for (const auto& c : cyc) {
            EXPECT_GE(c.MidEdge - c.PulseWidth, anaStart);
            EXPECT_LE(c.MidEdge - c.PulseWidth + c.Period, anaEnd);
        }
        EXPECT_NEAR(res.table.at(0, Measure::OfType).Mean, 20e-6, 1e-12);
    }
}

// A gate that opens at an odd sample: the cycles inside it are the same
// cycles, with the same rms, as those of the whole record.
TEST(RunAnalysis, GateOpeningAtAnOddSampleKeepsTheEdges) {
    Record r(1200);
    // Rises and falls over 20 samples in steps of 0.25 V: every edge is found
    // on the band path, and its walk through the band ends on a tie.
    for (size_t i = 0; i < 1200; ++i) {
        const int32_t t = static_cast<int32_t>(i % 80);
        const float up = std::min(5.0f, 0.25f * static_cast<float>(t));
        r.volts[0][i] = t < 40 ? up : std::max(0.0f, 5.0f - 0.25f * static_cast<float>(t - 40));
    }
    AnalysisResults whole;
    RunAnalysis(r.input(), params({0}), whole);
    ASSERT_GT(whole.cycles.channel[0].size(), 10u);
    for (int32_t opens : {101, 200}) {
        Record g = r;
        std::fill(g.volts[3].begin(), g.volts[3].end(), 0.0f);
        for (int32_t i = opens; i < opens + 700; ++i) g.volts[3][static_cast<size_t>(i)] = 5;
        AnalysisResults gated;
        RunAnalysis(g.input(), params({0, 3}, true), gated);
        ASSERT_EQ(gated.table.window().AnaStart, opens - 1);
        const auto& in = gated.cycles.channel[0];
        ASSERT_GT(in.size(), 5u) << opens;
        for (const auto& c : in) {
            const auto same = std::find_if(whole.cycles.channel[0].begin(), whole.cycles.channel[0].end(),
                                           [&](const CycleRecord& w) { return w.MidEdge == c.MidEdge; });
            ASSERT_NE(same, whole.cycles.channel[0].end()) << opens << " " << c.MidEdge;
            EXPECT_EQ(std::make_tuple(c.PulseWidth, c.Period, c.Rms),
                      std::make_tuple(same->PulseWidth, same->Period, same->Rms))
                << opens << " " << c.MidEdge;
        }
    }
}

// Levels a third of a division apart: with a large offset the float levels
// are exactly a third apart; without, just below or just above.
TEST(RunAnalysis, AmplitudeChecksAtAThirdOfADivision) {
    // Left out, the note names the levels measured and what they span.
    struct Case {
        const char* name;
        float offset;
        int16_t highCode;
        bool channelAnalysed, gateAccepted;
        const char* note;
    };
    const Case cases[] = {
        {"exactly a third", -100000.0f, 2730, true, false, ""},
        {"just below", 0.0f, 2730, false, false, "levels 0 V and 0.9998 V span 0.3333 div (less than 1/3 div)"},
        {"just above", 0.0f, 2731, true, true, ""},
    };
    for (const auto& c : cases) {
        const int32_t n = 400;
        Record r(n, 3.0f, c.offset);
        r.codes(0, [&](int32_t i) { return (i % 40) >= 20 ? c.highCode : int16_t{0}; });
        r.codes(3, [&](int32_t i) { return i >= 100 && i < 300 ? c.highCode : int16_t{0}; });
        AnalysisResults res;
        const AnalysisOutcome out = RunAnalysis(r.in, params({0, 3}, true), res);
        EXPECT_EQ(res.table.at(0, Measure::OfType).Counts > 0, c.channelAnalysed) << c.name;
        EXPECT_EQ(res.note[0], c.note) << c.name;
        EXPECT_EQ(res.leftOut[0], !c.channelAnalysed) << c.name;
        EXPECT_EQ(res.note[3], c.gateAccepted ? "" : kNoteGateLevelsClose) << c.name;
        EXPECT_EQ(res.table.window().GateStart, c.gateAccepted ? 99 : 0) << c.name;
        EXPECT_EQ(res.table.window().GateEnd, c.gateAccepted ? 300 : n - 1) << c.name;
        ASSERT_EQ(out.messages.size(), c.gateAccepted ? 0u : 1u) << c.name;
        if (!c.gateAccepted) {
            EXPECT_EQ(out.messages[0].title, "Gate Signal");
            EXPECT_EQ(out.messages[0].text, "Overflowed or Underflowed or Smaller Ch4 Signal. Check ch4 !");
        }
    }
}

TEST(RunAnalysis, StateAndMessageSwitchesDecideChannelsAndMessages) {
    struct Case {
        bool produceMessages, requireStateOn, stateOn, analysed;
        size_t messages;
    };
    const Case cases[] = {
        {true, false, false, true, 1},  {true, false, true, true, 1},  {false, true, false, false, 0},
        {false, true, true, true, 0},   {true, true, false, false, 0}, {true, true, true, true, 1},
        {false, false, false, true, 0},
    };
    for (const auto& c : cases) {
        Record r(1000);
        r.square(1, 50, 25);  // starts high: 19 rising edges, 18 cycles
        for (int32_t i = 300; i < 700; ++i) r.volts[3][static_cast<size_t>(i)] = 0.1f;  // gate too small
        AnalysisParams p = params({1, 3}, true);
        p.produceMessages = c.produceMessages;
        p.requireStateOn = c.requireStateOn;
        for (auto& ch : p.channel) ch.channelStateOn = c.stateOn;
        AnalysisResults res;
        res.table.at(1, Measure::OfType).Counts = 3;
        res.cycles.channel[1].resize(3);
        const AnalysisOutcome out = RunAnalysis(r.input(), p, res);
        const int mode = 2 * c.produceMessages + c.requireStateOn;
        EXPECT_EQ(res.table.at(1, Measure::OfType).Counts, c.analysed ? 18 : 0) << mode << c.stateOn;
        EXPECT_EQ(static_cast<int32_t>(res.cycles.channel[1].size()), res.table.at(1, Measure::OfType).Counts);
        EXPECT_EQ(out.messages.size(), c.messages) << mode << c.stateOn;
        EXPECT_EQ(res.note[3], c.analysed ? kNoteGateLevelsClose : "") << mode << c.stateOn;
    }
    EXPECT_EQ(SignalCheckText(1), "Overflowed or Underflowed or Smaller Ch2 Signal. Check Signal !");
}

TEST(RunAnalysis, NoteTellsThatTheScanStoppedAtMaxPeriods) {
    Record r(1000);
    r.square(0, 50, 25);  // starts high: 18 cycles
    const std::pair<int32_t, std::string> cases[] = {
        {5, "stopped at Max Periods (5); the record holds more cycles"},
        {17, "stopped at Max Periods (17); the record holds more cycles"},
        {18, ""},
        {2000000, ""},
    };
    for (const auto& [maxCycles, note] : cases) {
        AnalysisParams p = params({0});
        p.MaxCycles = maxCycles;
        AnalysisResults res;
        res.cycleLimitReached[0] = true;
        RunAnalysis(r.input(), p, res);
        EXPECT_EQ(res.note[0], note) << maxCycles;
        EXPECT_EQ(res.cycleLimitReached[0], !note.empty()) << maxCycles;
        EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, std::min(maxCycles, 18)) << maxCycles;
    }
    EXPECT_EQ(MaxPeriodsNote(500000), "stopped at Max Periods (500000); the record holds more cycles");
}

TEST(RunAnalysis, SwitchedOffChannelsAreClearedGateIncluded) {
    Record r(1000);
    for (int ch = 0; ch < 4; ++ch) r.square(ch, 100, 50);
    AnalysisParams p = params({0});
    p.channel[3].SignalType = kTypeGate;  // switched off: cleared, and no gate
    AnalysisResults res;
    for (int ch = 1; ch < 4; ++ch) {
        res.table.at(ch, Measure::OfType) = ChannelResult{1, 2, 3, 4, 5, true, true};
        res.table.at(ch, Measure::OfType).LL = 4;
        res.table.levels(ch).HighLevel = 3;
        res.cycles.channel[static_cast<size_t>(ch)].resize(5);
        res.tie[static_cast<size_t>(ch)].error.resize(5);
    }
    p.OmitRangeEffect = p.rejectFlag = true;  // a reject range that does not fit the window
    p.rejectStart = 0;
    p.rejectEnd = 20;
    EXPECT_TRUE(RunAnalysis(r.input(), p, res).rejectRangeDropped);
    for (int ch = 1; ch < 4; ++ch) {
        const ChannelResult& c = res.table.at(ch, Measure::OfType);
        EXPECT_EQ(std::make_tuple(c.Mean, c.Counts, c.Valid, c.LL), std::make_tuple(0.0, 0, false, 4)) << ch;
        EXPECT_EQ(res.table.levels(ch).HighLevel, 3) << ch;  // levels stay
        EXPECT_TRUE(res.cycles.channel[static_cast<size_t>(ch)].empty()) << ch;
        EXPECT_TRUE(res.tie[static_cast<size_t>(ch)].error.empty()) << ch;
    }
    EXPECT_EQ(res.table.window().AnaStart, 0);
    EXPECT_EQ(res.table.window().AnaEnd, 999);
    EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, 8);
    p.rejectStart = 220;  // fits: only cycles wholly outside 220..520 count
    p.rejectEnd = 520;
    EXPECT_FALSE(RunAnalysis(r.input(), p, res).rejectRangeDropped);
    EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, 4);  // (100..200) and three from 600 on
}

TEST(RunAnalysis, FlatSignalAndMissingChannel) {
    Record r(500, 1.0f, 0.0f);
    std::fill(r.volts[0].begin(), r.volts[0].end(), 1.0f);
    r.square(2, 100, 50);
    r.in.VoltsPerDiv[2] = 0;  // not in a two-channel record: nothing, no error
    AnalysisParams p = params({0, 2});
    AnalysisResults res;
    // Peaks: the second level falls to the bottom of the scale; the channel
    // passes the check and simply has no edges.
    EXPECT_TRUE(RunAnalysis(r.input(), p, res).messages.empty());
    EXPECT_FLOAT_EQ(res.table.levels(0).HighLevel, 1.0f);
    EXPECT_FLOAT_EQ(res.table.levels(0).LowLevel, -4.0f);
    EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, 0);
    EXPECT_EQ(res.table.at(2, Measure::OfType).Counts, 0);
    EXPECT_EQ(res.note, (std::array<std::string, 4>{}));
    p.levelMethod = LevelMethod::Halves;
    RunAnalysis(r.input(), p, res);
    EXPECT_FLOAT_EQ(res.table.levels(0).LowLevel, 1.0f);
    EXPECT_EQ(res.note[0], LevelsCloseNote(1.0f, 1.0f, 1.0f));
    p.MemoryInput = true;  // from memory the check is skipped
    RunAnalysis(r.input(), p, res);
    EXPECT_EQ(res.note[0], "");
}

TEST(RunAnalysis, HalvesMatchesPeaksOnCleanSignals) {
    Record r(20000, 0.5f, -1.0f);
    r.square(0, 200, 60, 0.2f, 1.8f);
    r.square(1, 333, 250, -0.5f, 3.0f);
    r.square(2, 97, 48, 1.0f, 2.5f);
    r.square(3, 1000, 10, 0.0f, 3.3f);
    AnalysisParams p = params({0, 1, 2, 3});
    const int32_t types[] = {kTypePeriod, kTypePw, kTypeRms, kTypeDuty};
    for (int ch = 0; ch < 4; ++ch) p.channel[ch].SignalType = types[ch];
    p.SmoothingNo = 5;
    AnalysisResults peaks, halves;
    RunAnalysis(r.input(), p, peaks);
    p.levelMethod = LevelMethod::Halves;
    RunAnalysis(r.input(), p, halves);
    for (int ch = 0; ch < 4; ++ch) {
        EXPECT_GT(peaks.table.at(ch, Measure::OfType).Counts, 0) << ch;
        for (Measure kind : kMeasures) {
            const ChannelResult &a = peaks.table.at(ch, kind), &b = halves.table.at(ch, kind);
            EXPECT_EQ(std::make_tuple(a.HighLevel, a.LowLevel, a.Counts, a.Mean, a.Sigma),
                      std::make_tuple(b.HighLevel, b.LowLevel, b.Counts, b.Mean, b.Sigma))
                << ch << " " << static_cast<int>(kind);
        }
    }
}

// An 8-bit record of a 3.3 V encoder at 0.5 V/div: 32 codes per division
// (256 counts each), one code of noise on both levels. The high level (60 %
// of the time) sits on two codes about equally often, each of them more
// often than either code of the low level.
TEST(RunAnalysis, EightBitNoiseNeedsHalves) {
    const int32_t n = 100000;
    const float vdiv = 0.5f;
    Record r(n, vdiv, -1.65f);
    std::mt19937 rng(11);
    r.codes(0, [&](int32_t i) {
        const int code = ((i % 400) < 240 ? 105 : -106) + static_cast<int>(rng() & 1u);  // 3.3 V is code 105.6
        return static_cast<int16_t>(code * 256);
    });
    AnalysisParams p = params({0});
    p.SmoothingNo = 3;
    AnalysisResults res;
    RunAnalysis(r.in, p, res);
    EXPECT_EQ(res.note[0], LevelsCloseNote(res.table.levels(0).LowLevel, res.table.levels(0).HighLevel, vdiv));
    EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, 0);
    EXPECT_NEAR(res.table.levels(0).HighLevel - res.table.levels(0).LowLevel, vdiv / 32, 1e-6);

    for (LevelMethod m : {LevelMethod::Halves, LevelMethod::Auto}) {
        p.levelMethod = m;
        RunAnalysis(r.in, p, res);
        EXPECT_EQ(res.note[0], m == LevelMethod::Auto ? kNoteHalvesOneCluster : "");
        EXPECT_NEAR(res.table.levels(0).HighLevel - res.table.levels(0).LowLevel, 3.3, 0.05);
    }
    EXPECT_EQ(res.table.at(0, Measure::OfType).Counts, n / 400 - 2);  // starts high
    EXPECT_NEAR(res.table.at(0, Measure::OfType).Mean, 400e-6, 1e-9);
    EXPECT_NEAR(res.table.at(0, Measure::Duty).Mean, 60, 0.5);
}

TEST(RunAnalysis, ResultsDoNotDependOnThreads) {
    Record r(50000);
    r.square(0, 500, 100);
    r.square(1, 123, 60);
    r.square(2, 1000, 900);
    r.square(3, 77, 20);
    AnalysisParams p = params({0, 1, 2, 3});
    p.SmoothingNo = 7;
    p.LimitPoints = 0.5f;
    AnalysisResults one, many;
    {
        test::JobsFor cap(1);
        RunAnalysis(r.input(), p, one);
    }
    {
        test::JobsFor cap(4);
        RunAnalysis(r.input(), p, many);
    }
    for (int ch = 0; ch < 4; ++ch) {
        ASSERT_EQ(one.cycles.channel[ch].size(), many.cycles.channel[ch].size());
        for (size_t k = 0; k < one.cycles.channel[ch].size(); ++k) {
            const CycleRecord &a = one.cycles.channel[ch][k], &b = many.cycles.channel[ch][k];
            EXPECT_EQ(std::make_pair(a.Rms, a.MidEdge), std::make_pair(b.Rms, b.MidEdge));
        }
        for (Measure kind : kMeasures) EXPECT_EQ(one.table.at(ch, kind).Sigma, many.table.at(ch, kind).Sigma);
    }
}

// A 0 to 3.3 V pulse train (20 % high) imported with 5 mV of noise: every
// code of the low level's noise is more frequent than any of the high
// level's, so Peaks finds both levels in the low one and the channel is left
// out, with the levels it measured; Auto takes Halves' levels and says so.
TEST(RunAnalysis, AutoLevelsOnANoisyImport) {
    const int32_t n = 50000;
    Record r(n, 0.5f, -1.65f);
    std::mt19937 rng(7);
    std::normal_distribution<float> noise(0.0f, 0.005f);
    for (int32_t i = 0; i < n; ++i) r.volts[0][static_cast<size_t>(i)] = (i % 500 < 100 ? 3.3f : 0.0f) + noise(rng);
    AnalysisParams p = params({0});
    AnalysisResults res;
    RunAnalysis(r.input(), p, res);
    const ChannelResult& lv = res.table.levels(0);
    EXPECT_TRUE(res.leftOut[0]);
    EXPECT_LT(lv.HighLevel - lv.LowLevel, 0.05);
    EXPECT_EQ(res.note[0], LevelsCloseNote(lv.LowLevel, lv.HighLevel, 0.5f));
    EXPECT_EQ(res.note[0].rfind("levels ", 0), 0u) << res.note[0];

    p.levelMethod = LevelMethod::Auto;
    RunAnalysis(r.input(), p, res);
    EXPECT_FALSE(res.leftOut[0]);
    EXPECT_EQ(res.note[0], kNoteHalvesOneCluster);
    EXPECT_NEAR(lv.HighLevel, 3.3, 0.02);
    EXPECT_NEAR(lv.LowLevel, 0, 0.02);
    EXPECT_EQ(res.table.at(0, Measure::Period).Counts, n / 500 - 2);  // starts high
    EXPECT_NEAR(res.table.at(0, Measure::Duty).Mean, 20, 0.5);
}

// Whole-sample edges round each period to a whole sample, so successive
// periods of a clean clock differ by up to one sample: the hint points to
// interpolated edges there, not where the jitter is larger or already
// measured between samples.
TEST(RunAnalysis, JitterWithinOneSampleHintsAtInterpolatedEdges) {
    const std::tuple<double, EdgeTiming, bool> cases[] = {
        {0, EdgeTiming::Samples, true}, {0, EdgeTiming::Interpolated, false}, {2, EdgeTiming::Samples, false}};
    for (const auto& [jitter, timing, hint] : cases) {
        ClockWaveParams cp;
        cp.high = 3.3f;
        cp.jitter = jitter;  // samples
        Record r(20000, 1.0f, -1.65f);
        r.volts[0] = MakeClockWave(cp, 20000).samples;
        AnalysisParams p = params({0});
        p.edgeTiming = timing;
        AnalysisResults res;
        RunAnalysis(r.input(), p, res);
        EXPECT_TRUE(res.jitter[0].Valid);
        EXPECT_EQ(res.jitter[0].withinOneSample, hint) << jitter << " " << static_cast<int>(timing);
    }
}

// A 0 / 3.3 V square of 200 samples per period whose every rise has one
// sample at the middle: the legacy rule passes over every fall and finds
// half the periods, twice as long, with any level method and edge timing.
TEST(RunAnalysis, EdgeRuleFindsEveryPeriodWhereLegacyPassesOverTheFalls) {
    Record r(10000, 1.0f, -1.65f);
    for (size_t i = 0; i < r.volts[0].size(); ++i) {
        const size_t t = i % 200;
        r.volts[0][i] = t < 100 ? 0.0f : t == 100 ? 1.65f : 3.3f;
    }
    struct Case {
        EdgeRule rule;
        int32_t cycles;
        double period;
        const char* note;
    };
    const Case cases[] = {
        {EdgeRule::Legacy, 24, 400e-6, ""},
        {EdgeRule::Schmitt, 49, 200e-6, ""},
        {EdgeRule::Auto, 49, 200e-6, "Edge rule Schmitt: the legacy rule passed over 49 level crossings"},
    };
    for (LevelMethod method : {LevelMethod::Peaks, LevelMethod::Halves, LevelMethod::Auto})
        for (EdgeTiming timing : {EdgeTiming::Samples, EdgeTiming::Interpolated})
            for (const auto& c : cases) {
                AnalysisParams p = params({0});
                p.levelMethod = method;
                p.edgeTiming = timing;
                p.edgeRule = c.rule;
                AnalysisResults res;
                RunAnalysis(r.input(), p, res);
                const auto what = ::testing::Message()
                                  << static_cast<int>(method) << static_cast<int>(timing) << static_cast<int>(c.rule);
                EXPECT_EQ(res.table.at(0, Measure::Period).Counts, c.cycles) << what;
                EXPECT_NEAR(res.table.at(0, Measure::Period).Mean, c.period, 1e-9) << what;
                EXPECT_EQ(res.note[0], c.note) << what;
                EXPECT_FALSE(res.leftOut[0]) << what;
            }
    EXPECT_EQ(SchmittNote(1), "Edge rule Schmitt: the legacy rule passed over 1 level crossing");
}

}  // namespace
}  // namespace mervasto
