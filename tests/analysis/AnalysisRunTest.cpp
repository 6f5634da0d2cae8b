#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "analysis/Analysis.h"

namespace mervasto {
namespace {

// A four-channel record kept alive for the spans of AnalysisInput.
struct Record {
    std::array<std::vector<float>, 4> volts;
    std::array<std::vector<int16_t>, 4> raw;
    AnalysisInput in;

    explicit Record(int32_t n, float vdiv = 1, float offset = -2.5f) {
        in.WaveLength = n;
        in.SampleSec = 1e-6f;
        for (int ch = 0; ch < 4; ++ch) {
            volts[ch].assign(static_cast<size_t>(n), 0.0f);
            in.VoltsPerDiv[ch] = vdiv;
            in.Offset[ch] = offset;
        }
    }
    // Fills the 16-bit samples from the volts (as file input does).
    AnalysisInput& input() {
        for (int ch = 0; ch < 4; ++ch) {
            raw[ch].resize(volts[ch].size());
            RawFromVolts(volts[ch], in.VoltsPerDiv[ch], in.Offset[ch], raw[ch]);
            in.volts[ch] = volts[ch];
            in.raw[ch] = raw[ch];
        }
        return in;
    }
    void square(int ch, int32_t period, int32_t high, float lowV = 0, float highV = 5) {
        for (size_t i = 0; i < volts[ch].size(); ++i)
            volts[ch][i] = static_cast<int32_t>(i % static_cast<size_t>(period)) < high ? highV : lowV;
    }
};

AnalysisParams defaults() {
    AnalysisParams p;
    p.Histerisis = 10;
    p.PLevel = 50;
    p.MaxCycles = 100000;
    p.SmoothingNo = 1;
    for (auto& c : p.channel) c.DispOff = true;
    return p;
}

TEST(RunAnalysis, GateWindowWithAndWithoutMargin) {
    Record r(1000);
    r.square(0, 20, 10);
    for (int32_t i = 300; i < 700; ++i) r.volts[3][static_cast<size_t>(i)] = 5;
    struct Case {
        float margin;
        int32_t anaStart, anaEnd;
    };
    const Case cases[] = {{0, 299, 700}, {1, 399, 600}, {3, 299, 700}};
    for (const auto& c : cases) {
        AnalysisParams p = defaults();
        p.LimitPoints = c.margin;
        p.channel[0].DispOff = false;
        p.channel[3].DispOff = false;
        p.channel[3].SignalType = kTypeGate;
        AnalysisResults res;
        res.table.at(3, 2).Counts = 7;  // the gate channel keeps its statistics
        res.table.at(3, 0).Level = 9;
        const AnalysisOutcome out = RunAnalysis(r.input(), p, res);
        EXPECT_TRUE(out.messages.empty());
        const ChannelResult& w = res.table.at(3, 0);
        EXPECT_EQ(w.GateStart, 299);
        EXPECT_EQ(w.GateEnd, 700);
        EXPECT_EQ(w.AnaStart, c.anaStart) << c.margin;
        EXPECT_EQ(w.AnaEnd, c.anaEnd) << c.margin;
        EXPECT_EQ(w.Level, 0);
        EXPECT_EQ(res.table.at(3, 2).Counts, 7);
        // Ch1: cycles only inside the window, one per 20 samples.
        const auto& cyc = res.cycles.channel[0];
        ASSERT_FALSE(cyc.empty());
        EXPECT_NEAR(static_cast<double>(cyc.size()), (c.anaEnd - c.anaStart) / 20.0, 1.0);
        for (const auto& cy : cyc) {
            EXPECT_GE(cy.MidEdge - cy.PulseWidth, c.anaStart);
            EXPECT_LE(cy.MidEdge - cy.PulseWidth + cy.Period, c.anaEnd);
            EXPECT_EQ(cy.Period, 20);
        }
        EXPECT_NEAR(res.table.at(0, 2).Mean, 20e-6, 1e-12);
        EXPECT_EQ(res.note[3], "");
    }
}

// Levels a third of a division apart, on a scale where the float levels
// really are exactly a third apart (large offset) and on ones where they are
// just below or above.
TEST(RunAnalysis, AmplitudeChecksAtAThirdOfADivision) {
    struct Case {
        const char* name;
        float offset;
        int16_t highCode;
        bool channelAnalysed;
        bool gateAccepted;
    };
    const Case cases[] = {
        {"exactly a third", -100000.0f, 2730, true, false},
        {"just below", 0.0f, 2730, false, false},
        {"just above", 0.0f, 2731, true, true},
    };
    for (const auto& c : cases) {
        const int32_t n = 400;
        Record r(n, 3.0f, c.offset);
        std::array<std::vector<int16_t>, 4> raw;
        for (int ch = 0; ch < 4; ++ch) {
            raw[ch].resize(n);
            for (int32_t i = 0; i < n; ++i) {
                // Ch4: one gate pulse 100..299; Ch1: a square wave.
                const bool high = ch == 3 ? (i >= 100 && i < 300) : (i % 40) >= 20;
                raw[ch][static_cast<size_t>(i)] = high ? c.highCode : 0;
                r.volts[ch][static_cast<size_t>(i)] = VoltsFromRaw(raw[ch][static_cast<size_t>(i)], 3.0f, c.offset);
            }
            r.in.volts[ch] = r.volts[ch];
            r.in.raw[ch] = raw[ch];
        }
        AnalysisParams p = defaults();
        p.channel[0].DispOff = false;
        p.channel[3].DispOff = false;
        p.channel[3].SignalType = kTypeGate;
        AnalysisResults res;
        const AnalysisOutcome out = RunAnalysis(r.in, p, res);
        EXPECT_EQ(res.table.at(0, 2).Counts > 0, c.channelAnalysed) << c.name;
        EXPECT_EQ(res.note[0], c.channelAnalysed ? "" : kNoteLevelsClose) << c.name;
        EXPECT_EQ(res.note[3], c.gateAccepted ? "" : kNoteGateLevelsClose) << c.name;
        EXPECT_EQ(res.table.at(3, 0).GateStart, c.gateAccepted ? 99 : 0) << c.name;
        EXPECT_EQ(res.table.at(3, 0).GateEnd, c.gateAccepted ? 300 : n - 1) << c.name;
        if (c.gateAccepted) {
            EXPECT_TRUE(out.messages.empty()) << c.name;
        } else {
            ASSERT_EQ(out.messages.size(), 1u) << c.name;
            EXPECT_EQ(out.messages[0].title, "Gate Signal");
            EXPECT_EQ(out.messages[0].text, "Overflowed or Underflowed or Smaller Ch4 Signal. Check ch4 !");
        }
    }
}

TEST(RunAnalysis, EntriesDecideChannelsAndMessages) {
    struct Case {
        AnalysisEntry entry;
        bool stateOn;
        bool analysed;
        size_t messages;
    };
    const Case cases[] = {
        {AnalysisEntry::AnalysisCommon, false, true, 1},     {AnalysisEntry::AnalysisCommon, true, true, 1},
        {AnalysisEntry::CommAnaProcess, false, false, 0},    {AnalysisEntry::CommAnaProcess, true, true, 0},
        {AnalysisEntry::LimitPointsKeyPress, false, false, 0}, {AnalysisEntry::LimitPointsKeyPress, true, true, 1},
    };
    for (const auto& c : cases) {
        Record r(1000);
        r.square(1, 50, 25);
        for (int32_t i = 300; i < 700; ++i) r.volts[3][static_cast<size_t>(i)] = 0.1f;  // gate too small
        AnalysisParams p = defaults();
        p.entry = c.entry;
        p.channel[1].DispOff = false;
        p.channel[3].DispOff = false;
        p.channel[3].SignalType = kTypeGate;
        for (auto& ch : p.channel) ch.channelStateOn = c.stateOn;
        AnalysisResults res;
        res.table.at(1, 2).Counts = 3;
        res.cycles.channel[1].resize(3);
        const AnalysisOutcome out = RunAnalysis(r.input(), p, res);
        EXPECT_EQ(res.table.at(1, 2).Counts, c.analysed ? 18 : 0) << static_cast<int>(c.entry) << c.stateOn;
        EXPECT_EQ(static_cast<int32_t>(res.cycles.channel[1].size()), res.table.at(1, 2).Counts);
        EXPECT_EQ(out.messages.size(), c.messages) << static_cast<int>(c.entry) << c.stateOn;
        // A gate that is not in use gives no note.
        EXPECT_EQ(res.note[3], c.messages || c.stateOn ? kNoteGateLevelsClose : "");
    }
    EXPECT_EQ(SignalCheckText(1), "Overflowed or Underflowed or Smaller Ch2 Signal. Check Signal !");
}

TEST(RunAnalysis, SwitchedOffChannelsAreCleared) {
    Record r(1000);
    for (int ch = 0; ch < 4; ++ch) r.square(ch, 100, 50);
    AnalysisParams p = defaults();
    p.channel[0].DispOff = false;
    p.channel[3].SignalType = kTypeGate;  // switched off: cleared, and no gate
    AnalysisResults res;
    for (int ch = 1; ch < 4; ++ch) {
        res.table.at(ch, 2).Counts = 5;
        res.table.at(ch, 2).Mean = 1;
        res.table.at(ch, 2).Valid = -1;
        res.table.at(ch, 0).HighLevel = 3;
        res.table.at(ch, 2).LL = 4;
        res.cycles.channel[static_cast<size_t>(ch)].resize(5);
    }
    RunAnalysis(r.input(), p, res);
    for (int ch = 1; ch < 4; ++ch) {
        EXPECT_EQ(res.table.at(ch, 2).Counts, 0) << ch;
        EXPECT_EQ(res.table.at(ch, 2).Mean, 0) << ch;
        EXPECT_EQ(res.table.at(ch, 2).Valid, 0) << ch;
        EXPECT_EQ(res.table.at(ch, 0).HighLevel, 3) << ch;  // levels stay
        EXPECT_EQ(res.table.at(ch, 2).LL, 4) << ch;         // limits stay
        EXPECT_TRUE(res.cycles.channel[static_cast<size_t>(ch)].empty()) << ch;
    }
    EXPECT_EQ(res.table.at(3, 0).AnaStart, 0);
    EXPECT_EQ(res.table.at(3, 0).AnaEnd, 999);
    EXPECT_EQ(res.table.at(0, 2).Counts, 8);
}

TEST(RunAnalysis, FlatSignalByMethod) {
    Record r(500, 1.0f, 0.0f);
    std::fill(r.volts[0].begin(), r.volts[0].end(), 1.0f);
    AnalysisParams p = defaults();
    p.channel[0].DispOff = false;
    AnalysisResults res;
    // Peaks: the second level falls to the bottom of the scale; the channel
    // passes the check and simply has no edges.
    RunAnalysis(r.input(), p, res);
    EXPECT_FLOAT_EQ(res.table.at(0, 0).HighLevel, 1.0f);
    EXPECT_FLOAT_EQ(res.table.at(0, 0).LowLevel, -4.0f);
    EXPECT_EQ(res.table.at(0, 2).Counts, 0);
    EXPECT_EQ(res.note[0], "");
    p.levelMethod = LevelMethod::Halves;
    RunAnalysis(r.input(), p, res);
    EXPECT_FLOAT_EQ(res.table.at(0, 0).LowLevel, 1.0f);
    EXPECT_EQ(res.note[0], kNoteLevelsClose);
    // From memory the check is skipped.
    p.MemoryInput = true;
    RunAnalysis(r.input(), p, res);
    EXPECT_EQ(res.note[0], "");
}

TEST(RunAnalysis, ChannelWithoutScaleGivesNothing) {
    Record r(1000);
    r.square(2, 100, 50);
    r.in.VoltsPerDiv[2] = 0;
    AnalysisParams p = defaults();
    p.channel[2].DispOff = false;
    p.MemoryInput = true;
    AnalysisResults res;
    const AnalysisOutcome out = RunAnalysis(r.input(), p, res);
    EXPECT_TRUE(out.messages.empty());
    EXPECT_EQ(res.table.at(2, 2).Counts, 0);
    EXPECT_EQ(res.note[2], "");
}

TEST(RunAnalysis, HalvesMatchesPeaksOnCleanSignals) {
    Record r(20000, 0.5f, -1.0f);
    r.square(0, 200, 60, 0.2f, 1.8f);
    r.square(1, 333, 250, -0.5f, 3.0f);
    r.square(2, 97, 48, 1.0f, 2.5f);
    r.square(3, 1000, 10, 0.0f, 3.3f);
    AnalysisParams p = defaults();
    const int32_t types[] = {kTypePeriod, kTypePw, kTypeRms, kTypeDuty};
    for (int ch = 0; ch < 4; ++ch) {
        p.channel[ch].DispOff = false;
        p.channel[ch].SignalType = types[ch];
    }
    p.SmoothingNo = 5;
    AnalysisResults peaks, halves;
    RunAnalysis(r.input(), p, peaks);
    p.levelMethod = LevelMethod::Halves;
    RunAnalysis(r.input(), p, halves);
    for (int ch = 0; ch < 4; ++ch) {
        EXPECT_EQ(peaks.table.at(ch, 0).HighLevel, halves.table.at(ch, 0).HighLevel) << ch;
        EXPECT_EQ(peaks.table.at(ch, 0).LowLevel, halves.table.at(ch, 0).LowLevel) << ch;
        EXPECT_GT(peaks.table.at(ch, 2).Counts, 0) << ch;
        for (int kind = 0; kind < kKinds; ++kind) {
            EXPECT_EQ(peaks.table.at(ch, kind).Counts, halves.table.at(ch, kind).Counts);
            EXPECT_EQ(peaks.table.at(ch, kind).Mean, halves.table.at(ch, kind).Mean);
            EXPECT_EQ(peaks.table.at(ch, kind).Sigma, halves.table.at(ch, kind).Sigma);
        }
    }
}

// An 8-bit record of a 3.3 V encoder at 0.5 V/div: 32 codes per division
// (256 counts each), one code of noise on both levels. The high level (60 %
// of the time) sits on two codes about equally often, each of them more
// often than either code of the low level.
TEST(RunAnalysis, EightBitNoiseNeedsHalves) {
    const int32_t n = 100000;
    const float vdiv = 0.5f, offset = -1.65f;
    Record r(n, vdiv, offset);
    std::array<std::vector<int16_t>, 4> raw;
    std::mt19937 rng(11);
    raw[0].resize(n);
    for (int32_t i = 0; i < n; ++i) {
        const bool high = (i % 400) < 240;
        const int code = (high ? 105 : -106) + static_cast<int>(rng() & 1u);  // 3.3 V is code 105.6
        raw[0][static_cast<size_t>(i)] = static_cast<int16_t>(code * 256);
        r.volts[0][static_cast<size_t>(i)] = VoltsFromRaw(raw[0][static_cast<size_t>(i)], vdiv, offset);
    }
    r.in.volts[0] = r.volts[0];
    r.in.raw[0] = raw[0];
    AnalysisParams p = defaults();
    p.channel[0].DispOff = false;
    p.SmoothingNo = 3;
    AnalysisResults res;
    RunAnalysis(r.in, p, res);
    EXPECT_EQ(res.note[0], kNoteLevelsClose);
    EXPECT_EQ(res.table.at(0, 2).Counts, 0);
    EXPECT_NEAR(res.table.at(0, 0).HighLevel - res.table.at(0, 0).LowLevel, vdiv / 32, 1e-6);

    p.levelMethod = LevelMethod::Halves;
    RunAnalysis(r.in, p, res);
    EXPECT_EQ(res.note[0], "");
    EXPECT_NEAR(res.table.at(0, 0).HighLevel - res.table.at(0, 0).LowLevel, 3.3, 0.05);
    EXPECT_EQ(res.table.at(0, 2).Counts, n / 400 - 2);  // starts high
    EXPECT_NEAR(res.table.at(0, 2).Mean, 400e-6, 1e-9);
    EXPECT_NEAR(res.table.at(0, 1).Mean, 60, 0.5);
}

TEST(RunAnalysis, ResultsDoNotDependOnThreads) {
    Record r(50000);
    r.square(0, 500, 100);
    r.square(1, 123, 60);
    r.square(2, 1000, 900);
    r.square(3, 77, 20);
    AnalysisParams p = defaults();
    for (auto& c : p.channel) c.DispOff = false;
    p.SmoothingNo = 7;
    p.LimitPoints = 0.5f;
    AnalysisResults one, many;
    p.threads = 1;
    RunAnalysis(r.input(), p, one);
    p.threads = 4;
    RunAnalysis(r.input(), p, many);
    for (int ch = 0; ch < 4; ++ch) {
        ASSERT_EQ(one.cycles.channel[ch].size(), many.cycles.channel[ch].size());
        for (size_t k = 0; k < one.cycles.channel[ch].size(); ++k) {
            EXPECT_EQ(one.cycles.channel[ch][k].Rms, many.cycles.channel[ch][k].Rms);
            EXPECT_EQ(one.cycles.channel[ch][k].MidEdge, many.cycles.channel[ch][k].MidEdge);
        }
        for (int kind = 0; kind < kKinds; ++kind) {
            EXPECT_EQ(one.table.at(ch, kind).Mean, many.table.at(ch, kind).Mean);
            EXPECT_EQ(one.table.at(ch, kind).Sigma, many.table.at(ch, kind).Sigma);
        }
    }
}

}  // namespace
}  // namespace mervasto
