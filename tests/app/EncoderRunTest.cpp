#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/SettingsTable.h"
#include "results/EncoderFiles.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"
#include "sim/HandTurned.h"

#include <QCoreApplication>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

using namespace mervasto;

// The application object comes from the other test file of this program.
namespace {

// The hand-turned encoder through the instrument link: what the analysis
// reads must match what the simulator turned, on byte and on word transfers.
TEST(EncoderRun, HandTurnedEncoderMatchesItsTruth) {
    const int32_t length = 100000;
    std::vector<std::vector<float>> record(4, std::vector<float>(length));
    const HandTurnedTruth truth = GenerateHandTurned(record, 1);
    ASSERT_EQ(truth.reversals, 5);  // one at each turn of the hand
    ASSERT_GT(truth.bounces, 0);
    ASSERT_GT(truth.minStateWidth, 4.0 * truth.bounceSamples);

    // Words carry the noise over many codes, where "Halves" finds the levels.
    for (auto [mode, levels] : {std::pair{"NORMAL", "Peaks"}, {"HIGH_RES", "Halves"}}) {
        SCOPED_TRACE(mode);
        const auto dir = mervasto::test::FreshTestFolder("mervasto-encoder-");
        SimOptions o;
        o.state.scenario = "hand-turned";
        o.state.recordLength = length;
        o.state.acqMode = mode;
        for (auto& c : o.state.ch) c.offset = -2.5;  // 0..5 V fits the byte range
        o.acqDelayMs = 1;
        DsoSimulator sim(o);
        ASSERT_TRUE(sim.start());
        RunState state;
        ScriptedUi ui;
        state.FormLoad((dir / "data").string());
        state.settings().analysis.IPAdressText = sim.address();
        state.setReplyTimeoutMs(5000);
        for (auto [name, value] :
             {std::pair{"Encoder", "1"}, {"EncoderZ", "3"}, {"MaxCycles", "3"}, {"LevelMethod", levels}})
            ASSERT_TRUE(SetSettingByName(state.settings(), name, value).ok());

        // Without bounce removal every burst reads as reversals.
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
        const EncoderResult& raw = state.results().encoder;
        ASSERT_TRUE(raw.analysed) << raw.note;
        EXPECT_GT(raw.reversals, truth.reversals + truth.bounces);
        EXPECT_EQ(raw.droppedBounces, 0);

        const double sampleSec = state.record().SampleSec;
        state.settings().analysis.MinStateWidth = std::to_string(truth.bounceSamples * sampleSec);
        ASSERT_TRUE(state.LimitPoints_KeyPress(ui).ok());
        const EncoderResult& r = state.results().encoder;
        ASSERT_TRUE(r.analysed) << r.note;
        EXPECT_EQ(r.position, truth.position);
        EXPECT_EQ(r.reversals, truth.reversals);
        EXPECT_EQ(r.droppedBounces, truth.bounces);
        EXPECT_NEAR(r.stateWidth.Min, truth.minStateWidth * sampleSec, 1.01 * sampleSec);
        EXPECT_EQ(r.phase.Counts, truth.phaseCounts);
        EXPECT_NEAR(r.phase.Mean, truth.phaseMean, 0.5);
        EXPECT_NEAR(r.phase.Min, truth.phaseMin, 1);
        EXPECT_NEAR(r.phase.Max, truth.phaseMax, 1);
        EXPECT_EQ(r.indexCount, truth.indexCount);
        // Every index comes at the same place of a revolution.
        const auto perRev = static_cast<int64_t>(4 * truth.cyclesPerRev);
        EXPECT_EQ(static_cast<int64_t>(r.indexPosition.Max - r.indexPosition.Min) % perRev, 0);
        (void)state.FormUnload();
    }
}

std::vector<std::string> fileLines(const std::string& name) { return test::CrLfLines(test::ReadBytes(name)); }

// EncoderData.csv goes with ResultData.csv: only with the encoder on, a
// line per analysis, lines the file refuses kept for the next run, nothing
// with the result line switched off.
TEST(EncoderRun, EncoderDataIsWrittenWithTheResultLine) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-encfile-");
    RunState state;
    ScriptedUi ui;
    state.FormLoad((dir / "data").string());
    const std::string pulses = test::WriteExample(dir, "pulses");
    ui.files = {pulses, pulses, pulses, pulses, pulses};

    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_FALSE(std::filesystem::exists(state.encoderFileName()));

    state.settings().analysis.Encoder = true;
    std::filesystem::create_directories(state.encoderFileName());
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_TRUE(state.results().encoder.analysed) << state.results().encoder.note;
    EXPECT_EQ(state.encoderLines().waiting().size(), 1u);
    EXPECT_EQ(ui.status[1], "Saved Test Results to the " + state.resultFileName() + ".");
    EXPECT_EQ(
        state.unsavedResultsText().rfind(
            "Failed to save Encoder Data. These 1 line(s) belong in " + state.encoderFileName() + ":\r\nSample2,", 0),
        0u)
        << state.unsavedResultsText();

    std::filesystem::remove(state.encoderFileName());
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    auto lines = fileLines(state.encoderFileName());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], EncoderHeaderLine1());
    EXPECT_EQ(lines[2].rfind("Sample2,", 0), 0u);
    EXPECT_EQ(lines[3].rfind("Sample3,", 0), 0u);
    EXPECT_EQ(std::count(lines[3].begin(), lines[3].end(), ','), 40);  // every column
    EXPECT_EQ(fileLines(state.resultFileName()).size(), 5u);           // ResultData.csv as ever

    state.setSaveResultLine(false);
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(fileLines(state.encoderFileName()).size(), 4u);

    // Left out: the line still comes, with zeros.
    state.setSaveResultLine(true);
    state.settings().analysis.EncoderB = "1";
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(state.results().encoder.note, kEncoderSameChannel);
    lines = fileLines(state.encoderFileName());
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[4].rfind("Sample5,0,0,0,0,0,", 0), 0u) << lines[4];
}

// A file begun with the first layout keeps its columns, header and lines:
// the new statistics are left out of it, and the run says so once.
TEST(EncoderRun, AnOlderEncoderFileKeepsItsColumnsAndIsToldOnce) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-encold-");
    RunState state;
    ScriptedUi ui;
    state.FormLoad((dir / "data").string());
    state.settings().analysis.Encoder = true;
    const std::string pulses = test::WriteExample(dir, "pulses");
    std::ofstream(state.encoderFileName(), std::ios::binary) << FirstEncoderColumns(EncoderHeaderLine1()) << "\r\n"
                                                             << FirstEncoderColumns(EncoderHeaderLine2()) << "\r\n";
    ui.files = {pulses, pulses};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    const std::string notice = EncoderFirstColumnsNotice(state.encoderFileName());
    EXPECT_EQ(ui.status[2], notice);
    ui.status[2].clear();
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(ui.status[2], "");
    EXPECT_EQ(state.notices(), std::vector<std::string>{notice});
    const auto lines = fileLines(state.encoderFileName());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], FirstEncoderColumns(EncoderHeaderLine1()));
    EXPECT_EQ(lines[3], FirstEncoderColumns(EncoderDataLine("Sample2", state.results().encoder)));
}

}  // namespace
