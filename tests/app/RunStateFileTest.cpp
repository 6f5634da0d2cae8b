#include "app/core/DataFolders.h"
#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/SettingsTable.h"
#include "common/TextFile.h"
#include "results/Comparator.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/TestFolder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <tuple>

using namespace mervasto;

namespace {

class RunStateFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-runstate-");
        state.FormLoad((dir_ / "data").string());
        for (const auto& name : ExampleNames()) test::WriteExample(dir_, name);
    }
    std::string example(const char* name) const { return (dir_ / (std::string(name) + ".csv")).string(); }
    static std::vector<std::string> linesOf(const std::string& file) {
        std::ifstream f(file, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string l; std::getline(f, l);) lines.push_back(l);
        return lines;
    }
    std::vector<std::string> resultLines() const { return linesOf(state.resultFileName()); }

    std::filesystem::path dir_;
    RunState state;
    ScriptedUi ui;
};

TEST_F(RunStateFile, FileInputFillsTheGridsAndAppendsOneLinePerFile) {
    ui.files = {example("pulses"), example("duty-sweep")};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(state.settings().analysis.SampleIndex, "1");  // the first file keeps the index
    EXPECT_EQ(ui.dialogTitles.front(), "Select Input data file.");
    EXPECT_EQ(state.totalWaveDatas(), "Wave Length=10000");
    EXPECT_EQ(state.resultGrid().text(2, 7), "49");  // Ch1: rising edges every 200 of 10000 samples
    EXPECT_FALSE(state.resultGrid().text(2, 5).empty());
    EXPECT_NE(std::find(ui.statusLog.begin(), ui.statusLog.end(), "Completed Analysis."), ui.statusLog.end());
    auto lines = resultLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].rfind("Sample1,", 0), 0u);

    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(state.settings().analysis.SampleIndex, "2");
    lines = resultLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[3].rfind("Sample2,", 0), 0u);
    // Columns line up: sample name + 4 channels x 6; the data lines end in ",".
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(std::count(lines[i].begin(), lines[i].end(), ','), i < 2 ? 23 : 24) << lines[i];
}

TEST_F(RunStateFile, CancelAndBadFilesAreCanceledWithNothingWritten) {
    std::ofstream(dir_ / "bad.csv", std::ios::binary) << "ModelName,DS-5354\r\nTime/div(second),abc\r\n";
    struct Case {
        std::optional<std::string> file;
        const char* reason;  // in status panel 2: the reader's own words
    };
    const Case cases[] = {{std::nullopt, ""},
                          {(dir_ / "missing.csv").string(), "missing.csv"},
                          {(dir_ / "bad.csv").string(), "bad.csv: not a wave file"}};
    for (const auto& c : cases) {
        ui.status[2].clear();
        ui.files = {c.file};
        EXPECT_FALSE(state.InputFromFile_Click(ui));
        EXPECT_EQ(ui.status[1], "Input from File canceled.");
        EXPECT_NE(ui.status[2].find(c.reason), std::string::npos) << ui.status[2];
        EXPECT_EQ(ui.status[2].find("could not be read"), std::string::npos) << ui.status[2];
    }
    EXPECT_FALSE(FileExists(state.resultFileName()));
    EXPECT_FALSE(state.runDone());
}

// Enter lowers a typed value at or above the box's limit to the limit; any
// other refused text leaves the setting (and the grid sized from it) alone.
TEST_F(RunStateFile, EnterChecksClampAndResize) {
    EXPECT_TRUE(state.MaxCycles_KeyPress("600000"));
    EXPECT_EQ(state.settings().analysis.MaxCycles, "500000");
    EXPECT_EQ(state.detailGrid().rows(), 500005);
    EXPECT_FALSE(state.Histerisis_KeyPress("abc"));
    EXPECT_EQ(state.settings().analysis.Histerisis, "10");
    EXPECT_TRUE(state.Histerisis_KeyPress("70"));
    EXPECT_EQ(state.settings().analysis.Histerisis, "50");
    EXPECT_TRUE(state.TotalRepeats_KeyPress("20000"));
    EXPECT_EQ(state.settings().analysis.TotalRepeats, "16000");
    EXPECT_FALSE(state.TotalRepeats_KeyPress("-5"));
    EXPECT_EQ(state.settings().analysis.TotalRepeats, "16000");
    ui.files = {example("pulses")};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_TRUE(state.runDone());
    state.settings().analysis.SampleIndex = "7";
    state.SampleNo_KeyPress();
    EXPECT_EQ(state.settings().analysis.SampleIndex, "1");
    EXPECT_FALSE(state.runDone());
}

TEST_F(RunStateFile, GateAndReanalysisAndComparator) {
    state.settings().channels[3].ChInputSignal = kGateIndex;
    ui.files = {example("gated")};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    const auto& w = state.results().table.window();
    EXPECT_NEAR(w.GateStart, 3000, 2);
    EXPECT_NEAR(w.GateEnd, 7000, 2);
    const int32_t counts = state.results().table.at(0, Measure::OfType).Counts;
    EXPECT_NEAR(counts, 19, 1);  // period 200 inside a 4000-sample gate

    // A margin of one division on each side of the gate: fewer cycles, and
    // the re-analysis appends its own result line.
    state.settings().analysis.LimitPoints = "1";
    ASSERT_TRUE(state.LimitPoints_KeyPress(ui).ok());
    EXPECT_LT(state.results().table.at(0, Measure::OfType).Counts, counts);
    EXPECT_EQ(resultLines().size(), 4u);

    std::ofstream(dir_ / "limits.txt", std::ios::binary) << "% Ch1 needs 100 cycles\r\n1,100,200\r\n";
    EXPECT_TRUE(state.LoadComparator(ui, (dir_ / "limits.txt").string()));
    EXPECT_FALSE(JudgeCount(state.results().table.at(0, Measure::PulseWidth).Counts, 100, 200));
    EXPECT_FALSE(state.results().table.at(0, Measure::PulseWidth).Go);
}

TEST_F(RunStateFile, ResumeFileSurvivesCloseAndRestart) {
    state.settings().analysis.SampleNo = "Lot7";
    state.settings().channels[1].SigName = "encoder A";
    state.settings().analysis.LevelMethod = "Halves";
    ASSERT_TRUE(state.FormUnload().ok());
    RunState again;
    again.FormLoad((dir_ / "data").string());
    EXPECT_EQ(again.settings().analysis.SampleNo, "Lot7");
    EXPECT_EQ(again.settings().channels[1].SigName, "encoder A");
    EXPECT_EQ(again.settings().analysis.LevelMethod, "Halves");
}

// Halves finds the levels Peaks finds on the bundled examples. The legacy
// rules pass over nothing there either, so the "Auto" defaults write today's
// lines to the results and jitter files, byte for byte, and say nothing.
TEST_F(RunStateFile, HalvesAndAutoRulesKeepTodaysResultsOnTheBundledExamples) {
    auto afterName = [](const std::string& line) { return line.substr(line.find(',')); };
    const std::array<std::array<const char*, 2>, 3> runs = {
        {{"Peaks", "Legacy"}, {"Halves", "Legacy"}, {"Auto", "Auto"}}};
    const std::array<std::string, kChannels> noNotes{};
    for (const char* name : {"pulses", "duty-sweep", "gated"}) {
        std::array<ChannelResultTable, 3> tables;
        for (size_t m = 0; m < runs.size(); ++m) {
            state.settings().analysis.LevelMethod = runs[m][0];
            state.settings().analysis.EdgeRule = runs[m][1];
            ui.files = {example(name)};
            ASSERT_TRUE(state.InputFromFile_Click(ui)) << name;
            tables[m] = state.results().table;
            EXPECT_TRUE(m == 1 || state.results().note == noNotes) << name;
        }
        for (int ch = 0; ch < kChannels; ++ch)
            for (Measure kind : kMeasures) {
                const auto& a = tables[0].at(ch, kind);
                const auto& b = tables[1].at(ch, kind);
                EXPECT_EQ(std::make_tuple(a.HighLevel, a.LowLevel, a.Counts, a.Mean, a.Sigma),
                          std::make_tuple(b.HighLevel, b.LowLevel, b.Counts, b.Mean, b.Sigma))
                    << name << ch << static_cast<int>(kind);
            }
        for (const std::string& file : {state.resultFileName(), state.jitterFileName()}) {
            const auto lines = linesOf(file);
            ASSERT_GE(lines.size(), 5u);
            EXPECT_EQ(afterName(lines[lines.size() - 1]), afterName(lines[lines.size() - 3])) << name << " " << file;
        }
    }
}

// One line per analysis, as the results file gets, with columns that line
// up: the sample name and four blocks of nine columns.
TEST_F(RunStateFile, JitterOneLinePerAnalysisBesideTheResultLine) {
    ui.files = {example("pulses"), example("pulses")};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    ASSERT_TRUE(SetSettingByName(state.settings(), "EdgeTiming", "Interpolated").ok());
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    const auto lines = linesOf(state.jitterFileName());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].rfind("Sample Name,Ch1,Period,", 0), 0u) << lines[0];
    EXPECT_EQ(
        lines[1].rfind(",C2C Min(s),C2C Max(s),C2C Mean(s),C2C σ(s),C2C Counts,TIE RMS(s),TIE p-p(s),TIE Edges,,", 0),
        0u)
        << lines[1];
    EXPECT_EQ(lines[2].rfind("Sample1,", 0), 0u);
    EXPECT_EQ(lines[3].rfind("Sample2,", 0), 0u);
    for (const auto& l : lines) EXPECT_EQ(std::count(l.begin(), l.end(), ','), 36) << l;
    EXPECT_EQ(linesOf(state.resultFileName()).size(), 4u);
    // One difference fewer than periods, one edge more.
    EXPECT_EQ(state.results().jitter[0].Counts, state.results().table.at(0, Measure::OfType).Counts - 1);
    EXPECT_EQ(state.results().jitter[0].TieCounts, state.results().table.at(0, Measure::OfType).Counts + 1);
    // Each of those edges' error is kept for the plots.
    EXPECT_EQ(state.results().tie[0].error.size(), static_cast<size_t>(state.results().jitter[0].TieCounts));
}

// A results or jitter file that cannot be written for two runs (a folder
// stands in its place, as a full disk or a read-only folder would refuse it):
// its lines are kept, the other file's are not held back, and all go out, in
// order, with the first run that can write again.
TEST_F(RunStateFile, LinesWaitUntilTheirFileCanBeWritten) {
    struct Case {
        bool jitter;  // else the results file
        const char* failed;
        const char* kept;
    };
    const Case cases[] = {
        {false, "Failed to save Test Results.", " result line(s) are kept until the results file can be written."},
        {true, "Failed to save Jitter Data.", " jitter line(s) are kept until the jitter file can be written."}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.failed);
        RunState st;
        st.FormLoad((dir_ / ("data" + std::to_string(&c - cases))).string());
        const std::string file = c.jitter ? st.jitterFileName() : st.resultFileName();
        const std::string otherFile = c.jitter ? st.resultFileName() : st.jitterFileName();
        const ResultLineQueue& queue = c.jitter ? st.jitterLines() : st.resultLines();
        const ResultLineQueue& other = c.jitter ? st.resultLines() : st.jitterLines();
        std::filesystem::create_directories(file);
        ui.files = {example("pulses"), example("pulses"), example("pulses")};
        for (int run = 1; run <= 2; ++run) {
            ASSERT_TRUE(st.InputFromFile_Click(ui));
            EXPECT_EQ(ui.status[1], c.failed);
            EXPECT_EQ(ui.status[2], std::to_string(run) + c.kept);
            EXPECT_EQ(queue.waiting().size(), static_cast<size_t>(run));
            EXPECT_TRUE(other.waiting().empty());
            EXPECT_EQ(st.resultGrid().text(2, 7), "49");  // the results stay on the screen
        }
        const std::string leftOver = st.unsavedResultsText();
        EXPECT_EQ(leftOver.rfind(c.failed + std::string(" These 2 line(s) belong in "), 0), 0u) << leftOver;
        EXPECT_NE(leftOver.find("\r\nSample2,"), std::string::npos);
        EXPECT_FALSE(st.SaveUnsavedResults(ui));

        std::filesystem::remove(file);
        ASSERT_TRUE(st.InputFromFile_Click(ui));
        EXPECT_TRUE(queue.waiting().empty());
        EXPECT_TRUE(st.unsavedResultsText().empty());
        EXPECT_EQ(queue.written(), 3);
        const auto lines = linesOf(file);
        ASSERT_EQ(lines.size(), 5u);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(lines[2 + i].rfind("Sample" + std::to_string(i + 1) + ",", 0), 0u);
        EXPECT_EQ(linesOf(otherFile).size(), 5u);
    }
}

}  // namespace
