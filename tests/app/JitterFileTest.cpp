#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/SettingsTable.h"
#include "common/TextFile.h"

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/TestFolder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

using namespace mervasto;

namespace {

class JitterFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-jitter-");
        state.FormLoad((dir_ / "data").string());
        test::WriteExample(dir_, "pulses");
    }
    std::string example() const { return (dir_ / "pulses.csv").string(); }
    static std::vector<std::string> linesOf(const std::string& file) {
        std::ifstream f(file, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string l; std::getline(f, l);) lines.push_back(l);
        return lines;
    }

    std::filesystem::path dir_;
    RunState state;
    ScriptedUi ui;
};

// One line per analysis, as the results file gets, with columns that line
// up: the sample name and four blocks of nine columns.
TEST_F(JitterFile, OneLinePerAnalysisBesideTheResultLine) {
    ui.files = {example(), example()};
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
    EXPECT_EQ(state.results().jitter[0].Counts, state.results().table.at(0, 2).Counts - 1);
    EXPECT_EQ(state.results().jitter[0].TieCounts, state.results().table.at(0, 2).Counts + 1);
}

TEST_F(JitterFile, NoJitterFileWithoutResultLines) {
    state.setSaveResultLine(false);
    ui.files = {example()};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_FALSE(FileExists(state.jitterFileName()));
    EXPECT_FALSE(FileExists(state.resultFileName()));
}

// A jitter file that cannot be written keeps its lines, as the results file
// does, without keeping the result lines back.
TEST_F(JitterFile, LinesWaitUntilTheFileCanBeWritten) {
    std::filesystem::create_directories(state.jitterFileName());
    ui.files = {example(), example(), example()};
    for (int run = 1; run <= 2; ++run) {
        ASSERT_TRUE(state.InputFromFile_Click(ui));
        EXPECT_EQ(ui.status[1], "Failed to save Jitter Data.");
        EXPECT_EQ(ui.status[2], std::to_string(run) + " jitter line(s) are kept until the jitter file can be written.");
        EXPECT_EQ(state.jitterLines().waiting().size(), static_cast<size_t>(run));
        EXPECT_TRUE(state.resultLines().waiting().empty());
    }
    const std::string leftOver = state.unsavedResultsText();
    EXPECT_EQ(leftOver.rfind("Failed to save Jitter Data. These 2 line(s) belong in ", 0), 0u) << leftOver;
    EXPECT_NE(leftOver.find("\r\nSample2,"), std::string::npos);
    EXPECT_FALSE(state.SaveUnsavedResults(ui));

    std::filesystem::remove(state.jitterFileName());
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_TRUE(state.jitterLines().waiting().empty());
    EXPECT_TRUE(state.unsavedResultsText().empty());
    const auto lines = linesOf(state.jitterFileName());
    ASSERT_EQ(lines.size(), 5u);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(lines[2 + i].rfind("Sample" + std::to_string(i + 1) + ",", 0), 0u);
    EXPECT_EQ(linesOf(state.resultFileName()).size(), 5u);
}

}  // namespace
