#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "common/Numeric.h"
#include "common/TextFile.h"
#include "results/ResultNumbers.h"
#include "store/ResultStore.h"

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

#include <filesystem>
#include <fstream>

using namespace mervasto;

namespace {

class RunStateStore : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = test::FreshTestFolder("mervasto-runstore-");
        pulses_ = test::WriteExample(dir_, "pulses");
        fresh();
    }
    // A run state of its own data folder.
    void fresh() {
        statePtr = std::make_unique<RunState>();
        statePtr->FormLoad((dir_ / ("data" + std::to_string(++folders_))).string());
    }
    Outcome input() {
        ui.files = {pulses_};
        return state().InputFromFile_Click(ui);
    }
    RunState& state() { return *statePtr; }
    std::vector<RunRow> runs() {
        ResultStore store;
        std::vector<RunRow> rows;
        if (store.open(state().storeTarget(), false)) {
            EXPECT_TRUE(store.listRuns(rows).ok());
        }
        return rows;
    }
    size_t resultLines() { return test::CrLfLines(test::ReadBytes(state().resultFileName())).size(); }

    std::filesystem::path dir_;
    std::string pulses_;
    int folders_ = 0;
    std::unique_ptr<RunState> statePtr;
    ScriptedUi ui;
};

// The store and the results file are written side by side: neither one's
// failure stops the other, a store's failure is told in status panel 2,
// and --no-store / --no-save leave out what they say.
TEST_F(RunStateStore, StoreAndResultsFileNeverStopEachOther) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        bool stored;
        bool lineWritten;
    };
    const Case cases[] = {
        {"store in a missing folder",
         [&] { state().settings().analysis.ResultsDb = (dir_ / "missing" / "r.sqlite").string(); }, false, true},
        {"results file refused", [&] { std::filesystem::create_directories(state().resultFileName()); }, true, false},
        {"--no-store", [&] { state().setStoreResults(false); }, false, true},
        {"--no-save", [&] { state().setSaveResultLine(false); }, false, false},
    };
    for (const Case& c : cases) {
        fresh();
        c.arrange();
        ui.status[2].clear();
        ASSERT_TRUE(input().ok()) << c.name;
        EXPECT_EQ(state().passesStored(), c.stored ? 1 : 0) << c.name;
        EXPECT_EQ(resultLines() == 3, c.lineWritten) << c.name;
        EXPECT_EQ(state().lastSave().ok(), c.lineWritten || std::string(c.name) == "--no-save") << c.name;
        const bool storeFailed = std::string(c.name) == "store in a missing folder";
        EXPECT_EQ(state().storeFailures(), storeFailed ? 1 : 0) << c.name;
        EXPECT_EQ(state().lastStore().ok(), !storeFailed) << c.name;
        if (storeFailed) {
            const std::string told = "Failed to store the results in " + state().settings().analysis.ResultsDb + ": ";
            EXPECT_EQ(ui.status[2].rfind(told, 0), 0u) << ui.status[2];
        }
        EXPECT_EQ(FileExists(state().storeTarget().location), c.stored) << c.name;
        EXPECT_EQ(state().runTally().passes().size(), c.name == std::string("--no-save") ? 0u : 1u) << c.name;
    }
}

// Passes join the run while the station, the sample name, the channels and
// the settings stay (a sample index or comment is the pass's own); a change
// of any of them begins a new run in the store and in the tally.
TEST_F(RunStateStore, ARunLastsWhileItsSettingsDo) {
    ASSERT_TRUE(input().ok());
    state().settings().analysis.Comment = "board 2";
    ASSERT_TRUE(input().ok());  // the index moves on to 2
    ASSERT_EQ(runs().size(), 1u);
    EXPECT_EQ(runs()[0].passes, 2);
    EXPECT_EQ(state().runTally().passes().size(), 2u);
    EXPECT_EQ(state().runTally().passes()[1].pass, 2);

    state().settings().analysis.SampleNo = "Lot 8";
    ASSERT_TRUE(input().ok());
    state().settings().analysis.StationName = "line-2";
    ASSERT_TRUE(input().ok());
    state().settings().analysis.Histerisis = "20";
    ASSERT_TRUE(input().ok());
    const auto r = runs();
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[1].sample, "Lot 8");
    EXPECT_EQ(r[2].station, "line-2");
    EXPECT_EQ(r[1].station, HostName());
    EXPECT_EQ(state().runTally().passes().size(), 1u);
    EXPECT_EQ(state().runTally().runId(), r[3].id);
}

// "Copy as Numbers": a column per channel with results, headed by its
// name, type and unit, the numbers exact in SI base units.
TEST_F(RunStateStore, CopyAsNumbers) {
    state().settings().channels[1].DispOffCheck = true;
    state().settings().channels[0].SigName = "CLK";
    ASSERT_TRUE(input().ok());
    ASSERT_TRUE(state().ResultCopyNumbers_Click(ui).ok());
    const ChannelResult& r = state().results().table.at(0, Measure::OfType);
    const std::string text = ui.clipboard;
    EXPECT_EQ(
        text.substr(0, text.find("\r\nMin")),
        "Channel\tCh1\tCh3\tCh4\r\nSig. Name\tCLK\tCh3\tCh4\r\nSig. Type\tPeriod\tPeriod\tPeriod\r\nUnit\ts\ts\ts");
    EXPECT_NE(text.find("\r\nMean\t" + ExactText(r.Mean) + "\t"), std::string::npos) << text;
    EXPECT_NE(text.find("\r\nCounts\t" + std::to_string(r.Counts) + "\t"), std::string::npos) << text;
    ASSERT_FALSE(ui.boxes.empty());
    EXPECT_EQ(ui.boxes.back().title, kResultCopiedTitle);
}

}  // namespace
