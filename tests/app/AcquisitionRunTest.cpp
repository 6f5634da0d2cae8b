#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "common/TextFile.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <filesystem>
#include <fstream>

#include "support/QtTestApp.h"

using namespace mervasto;

MERVASTO_QT_TEST_APP(QCoreApplication);

namespace {

class AcquisitionRun : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-acq-");
        SimOptions o;
        o.state.recordLength = 2000;
        o.acqDelayMs = 5;
        sim = std::make_unique<DsoSimulator>(o);
        ASSERT_TRUE(sim->start());
        state.FormLoad((dir_ / "data").string());
        state.settings().analysis.IPAdressText = sim->address();
        state.setReplyTimeoutMs(2000);
    }
    size_t resultLines() const {
        std::ifstream f(state.resultFileName(), std::ios::binary);
        size_t n = 0;
        for (std::string l; std::getline(f, l);) ++n;
        return n;
    }
    // The simulator logs in its own thread: a handler ends with the return
    // to local on a link it keeps, or by closing the link; the log is
    // complete once the simulator has seen that.
    void settle() const {
        const bool linked = state.linked();
        EXPECT_TRUE(sim->waitUntil([linked](const std::vector<std::string>& log, int open) {
            return linked ? !log.empty() && log.back() == "GTL" : open == 0;
        }));
    }
    // Presses Stop when the simulator receives the n-th of these commands:
    // at an exact point of the run, whatever the machine's speed.
    void stopAt(const std::string& command, int n) {
        auto seen = std::make_shared<int>(0);
        sim->setCommandHook([this, command, n, seen](const std::string& line) {
            if (line == command && ++*seen == n) state.Stop_Click();
        });
    }
    size_t sent(const std::string& command) const {
        settle();
        auto log = sim->commandLog();
        return static_cast<size_t>(std::count(log.begin(), log.end(), command));
    }
    bool statusSeen(const std::string& text) const {
        return std::find(ui.statusLog.begin(), ui.statusLog.end(), text) != ui.statusLog.end();
    }

    std::filesystem::path dir_;
    std::unique_ptr<DsoSimulator> sim;
    RunState state;
    ScriptedUi ui;
};

TEST_F(AcquisitionRun, OnePassWithTheDefaults) {
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    settle();
    const auto log = sim->commandLog();
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log.front(), "*IDN?");
    EXPECT_EQ(log[1], "DTINF?");
    EXPECT_EQ(log.back(), "GTL");
    EXPECT_EQ(sent("WSGL"), 0u);
    EXPECT_EQ(sent("DTWAVE?"), 4u);
    EXPECT_EQ(sent("C1:OFST? "), 1u);  // the trailing blank is sent
    // The status texts in their order.
    const std::vector<std::string> order = {"Connecting to the DSO.", "Transfering waves from the DSO.",
                                            "Completed Analysis.", "Completed data transffering."};
    auto at = ui.statusLog.begin();
    for (const auto& text : order) {
        at = std::find(at, ui.statusLog.end(), text);
        ASSERT_NE(at, ui.statusLog.end()) << text;
    }
    EXPECT_EQ(ui.status[1], "Completed data transffering.");
    EXPECT_FALSE(state.resultGrid().text(2, 7).empty());
    EXPECT_EQ(state.logGrid().text(4, 0).empty(), false);
    EXPECT_EQ(resultLines(), 3u);
    EXPECT_TRUE(state.runDone());
    EXPECT_FALSE(state.running());
    EXPECT_EQ(state.settings().analysis.SampleIndex, "1");

    // The next single pass advances the index and keeps the link.
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    EXPECT_EQ(state.settings().analysis.SampleIndex, "2");
    EXPECT_EQ(sent("*IDN?"), 1u);
    EXPECT_EQ(resultLines(), 4u);
}

TEST_F(AcquisitionRun, RepeatSeries) {
    struct Case {
        const char* totalRepeats;
        bool newAcquisition;
        size_t passes;
        const char* progress;  // status panel 3 at the end
    };
    const Case cases[] = {{"3", true, 3, "Completed 3 passes: 3 Go, 0 NG."},
                          {"3", false, 1, "Completed 1 pass: 1 Go, 0 NG."},
                          {"0", true, 0, "Completed 0 passes: 0 Go, 0 NG."}};
    // Count limits every pass meets: each is judged Go.
    std::ofstream(dir_ / "limits.txt") << "1,1,100000\n";
    ASSERT_TRUE(state.LoadComparator(ui, (dir_ / "limits.txt").string()).ok());
    size_t lines = 0;
    for (const auto& c : cases) {
        settle();
        sim->clearLog();
        ui.statusLog.clear();
        state.settings().analysis.RepeatCheck = true;
        state.settings().analysis.DaqCheck = c.newAcquisition;
        state.settings().analysis.TotalRepeats = c.totalRepeats;
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
        EXPECT_EQ(sent("WSGL"), c.newAcquisition ? c.passes : 0u) << c.totalRepeats;
        EXPECT_EQ(sent("GTL"), 1u);
        EXPECT_FALSE(statusSeen("Completed data transffering."));
        for (size_t p = 1; p <= c.passes; ++p) EXPECT_TRUE(statusSeen("Repeat count=" + std::to_string(p)));
        EXPECT_FALSE(statusSeen("Repeat count=" + std::to_string(c.passes + 1)));
        lines += c.passes;
        EXPECT_EQ(resultLines(), lines == 0 ? 0u : lines + 2);
        EXPECT_EQ(ui.status[3], c.progress);
    }
}

TEST_F(AcquisitionRun, StopDuringTheAcquisitionWaitAndDuringASeries) {
    sim->setAcqDelayMs(60000);
    state.settings().analysis.DaqCheck = true;
    stopAt("WSGL", 1);
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    EXPECT_TRUE(statusSeen("Data Acquisition Aborted."));
    EXPECT_TRUE(statusSeen("Completed data transffering."));  // the pass goes on with the present record
    EXPECT_EQ(resultLines(), 3u);

    sim->setAcqDelayMs(5);
    state.settings().analysis.RepeatCheck = true;
    state.settings().analysis.TotalRepeats = "1000";
    state.settings().analysis.DDSaveCheck = true;
    state.settings().OutputFolder = (dir_ / "out").string();
    std::filesystem::create_directories(dir_ / "out");
    state.settings().DetailBaseName = "d";
    stopAt("WSGL", 3);  // during the third pass's acquisition wait
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    sim->setCommandHook(nullptr);
    const size_t passes = resultLines() - 3;
    EXPECT_EQ(passes, 3u);
    EXPECT_EQ(ui.status[3], "Stopped after 3 of 1000 passes.");
    // The detail file of the last pass carries its counter.
    EXPECT_TRUE(FileExists((dir_ / "out" / ("d_" + std::to_string(passes) + ".csv")).string()));
    EXPECT_FALSE(FileExists((dir_ / "out" / ("d_" + std::to_string(passes + 1) + ".csv")).string()));
}

TEST_F(AcquisitionRun, UnreachableAndFailedTransfers) {
    sim->setFault(SimFault::Refuse);
    EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
    ASSERT_FALSE(ui.boxes.empty());
    EXPECT_EQ(ui.boxes.back().text, "DSO not connected normally.");
    EXPECT_EQ(ui.boxes.back().title, "Confirmation");
    EXPECT_EQ(ui.boxes.back().buttons, MsgButtons::CancelTryContinue);
    EXPECT_FALSE(state.linked());

    sim->setFault(SimFault::None);
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());  // connects again
    EXPECT_TRUE(state.linked());
    EXPECT_EQ(resultLines(), 3u);

    for (SimFault fault : {SimFault::CloseMidBlock, SimFault::BadHeader, SimFault::Garbage}) {
        sim->setFault(fault);
        const size_t boxes = ui.boxes.size();
        EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
        EXPECT_GT(ui.boxes.size(), boxes) << SimFaultName(fault);
        EXPECT_FALSE(state.running());
        EXPECT_EQ(resultLines(), 3u) << SimFaultName(fault);  // nothing written so far is lost
        sim->setFault(SimFault::None);
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
        EXPECT_EQ(resultLines(), 4u) << SimFaultName(fault);
        std::filesystem::remove(state.resultFileName());
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
        ASSERT_EQ(resultLines(), 3u);
    }
}

TEST_F(AcquisitionRun, RejectRangeFromTheZoomCursors) {
    SimState s = sim->state();
    s.cursorMode = "DH";
    s.cursor1 = -2.5;
    s.cursor2 = 2.5;
    sim->setState(s);
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    const int32_t n = state.record().WaveLength;
    ASSERT_GE(n, 500);
    state.settings().analysis.OmitRangeEffect = true;
    settle();
    sim->clearLog();

    ui.answers = {MsgAnswer::Cancel};
    ASSERT_TRUE(state.ReadRejectRange_Click(ui).ok());
    EXPECT_EQ(ui.boxes.back().title, "Direction");
    EXPECT_FALSE(state.settings().RejectRangeSet);
    EXPECT_EQ(sent("GTL"), 1u);
    EXPECT_EQ(sent("TDIV?"), 0u);

    ASSERT_TRUE(state.ReadRejectRange_Click(ui).ok());
    EXPECT_TRUE(state.settings().RejectRangeSet);
    EXPECT_EQ(state.zoomStart(), 0);
    EXPECT_EQ(state.zoomEnd(), n);
    EXPECT_EQ(state.settings().RejectStart, n / 4);
    EXPECT_EQ(state.settings().RejectEnd, 3 * n / 4);
    settle();
    auto log = sim->commandLog();
    EXPECT_NE(std::find_if(log.begin(), log.end(), [](const std::string& c) { return c.rfind("TDIV ", 0) == 0; }),
              log.end());
    // No cycle spans the rejected stretch.
    for (const auto& c : state.results().cycles.channel[0])
        EXPECT_FALSE(c.MidEdge > n / 4 && c.MidEdge < 3 * n / 4) << c.MidEdge;
}

TEST_F(AcquisitionRun, SavingWavesAndTheScreen) {
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    state.settings().analysis.SaveWavesCheck = true;
    const std::string waveFile = (dir_ / "data" / "Data" / "Sample1.csv").string();
    ASSERT_TRUE(state.WaveSave_Click(ui).ok());
    ASSERT_TRUE(FileExists(waveFile));
    EXPECT_EQ(ui.status[1], "Stored the Data to the File.");
    const auto size = std::filesystem::file_size(waveFile);
    { std::ofstream(waveFile, std::ios::binary) << "kept"; }
    ui.answers = {MsgAnswer::No};
    ASSERT_TRUE(state.WaveSave_Click(ui).ok());
    EXPECT_EQ(ui.boxes.back().text, "May I Overwrite?");
    EXPECT_EQ(ui.status[1], "Aborted Storing the Data to the File.");
    EXPECT_EQ(std::filesystem::file_size(waveFile), 4u);
    EXPECT_GT(size, 4u);

    state.settings().analysis.SaveWavesCheck = false;
    state.settings().analysis.SaveScreenCheck = true;
    const std::string png = (dir_ / "data" / "VScreen" / "Sample1.png").string();
    sim->setScreenBytes(1000);
    ASSERT_TRUE(state.WaveSave_Click(ui).ok());
    ASSERT_TRUE(FileExists(png));
    EXPECT_EQ(ui.status[1], "Copmpleted Storing the DSO's Screen.");
    std::ifstream f(png, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(f)), {});
    ASSERT_EQ(bytes.size(), 1002u);
    EXPECT_EQ(bytes[1000], '\n');
    EXPECT_EQ(bytes[1001], '\0');

    std::filesystem::remove(png);
    sim->setScreenBytes(40000);
    const Outcome tooLarge = state.WaveSave_Click(ui);  // for the run-time error box
    EXPECT_FALSE(FileExists(png));
    EXPECT_FALSE(tooLarge.wasReported());
    EXPECT_NE(tooLarge.text().find("32767"), std::string::npos) << tooLarge.text();
    // The link is still usable.
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    EXPECT_EQ(ui.status[1], "Completed data transffering.");
}

}  // namespace

// The shared series faults at the run state: the third pass fails with one
// box that says why, the two passes before it keep their rows and lines, no
// return-to-local goes to a link in an unknown state, and the next run
// connects again.
TEST_F(AcquisitionRun, SeriesFaultsKeepThePassesBefore) {
    state.setReplyTimeoutMs(3000);  // roomy: sanitizer builds on busy machines are slow
    state.settings().analysis.RepeatCheck = true;
    state.settings().analysis.DaqCheck = true;
    state.settings().analysis.TotalRepeats = "5";
    state.settings().analysis.TimeoutSeconds = "3";
    for (const auto& c : test::kSeriesFaults) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(state.resultFileName());
        settle();
        sim->clearLog();
        test::ShowInThirdPass(*sim, c);
        const size_t boxes = ui.boxes.size();
        EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
        ASSERT_EQ(ui.boxes.size(), boxes + 1);
        EXPECT_NE(ui.boxes.back().text.find(c.message), std::string::npos) << ui.boxes.back().text;
        EXPECT_EQ(ui.boxes.back().title, "DSO");
        EXPECT_EQ(state.runFailure().text(), ui.boxes.back().text);
        EXPECT_FALSE(state.running());
        EXPECT_FALSE(state.linked());
        EXPECT_EQ(resultLines(), 2u + 2u);
        EXPECT_EQ(state.logGrid().nextRow, kLogHeaderRows + 2);
        EXPECT_FALSE(state.logGrid().text(kLogHeaderRows + 1, 1).empty());
        EXPECT_EQ(sent("GTL"), 0u);

        sim->setCommandHook(nullptr);
        sim->setFault(SimFault::None);  // switched on again
        state.settings().analysis.RepeatCheck = false;
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
        EXPECT_TRUE(state.runFailure().ok()) << state.runFailure().text();
        EXPECT_TRUE(state.linked());
        EXPECT_EQ(resultLines(), 2u + 3u);
        state.settings().analysis.RepeatCheck = true;
    }
}

// Stop during a transfer: the pass in progress is finished and kept, the
// series ends after it and the instrument is returned to local control. A
// second Stop on an instrument that has gone quiet ends the exchange at once
// with a status text and no box; the passes before are kept.
TEST_F(AcquisitionRun, StopDuringATransferKeepsThePass) {
    state.settings().analysis.RepeatCheck = true;
    state.settings().analysis.DaqCheck = true;
    state.settings().analysis.TotalRepeats = "10";
    struct Case {
        const char* name;
        bool twice;
        size_t passesKept;
    };
    const Case cases[] = {{"one Stop", false, 2}, {"two Stops", true, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(state.resultFileName());
        settle();
        sim->clearLog();
        ui.statusLog.clear();
        std::atomic<int> blocks{0};
        // Stop while the second channel of the second pass is asked for.
        sim->setCommandHook([&](const std::string& line) {
            if (line != "DTWAVE?" || ++blocks != 6) return;
            if (c.twice) sim->setFault(SimFault::Silent);
            state.Stop_Click();
            if (c.twice) state.Stop_Click();
        });
        const size_t boxes = ui.boxes.size();
        const Outcome ran = state.WFStartCommand_Click(ui);
        EXPECT_EQ(ran.code(), c.twice ? ErrorCode::Canceled : ErrorCode::None) << ran.text();
        sim->setCommandHook(nullptr);
        sim->setFault(SimFault::None);
        EXPECT_EQ(ui.boxes.size(), boxes);
        EXPECT_EQ(resultLines(), c.passesKept + 2);
        EXPECT_EQ(state.logGrid().nextRow, kLogHeaderRows + static_cast<int>(c.passesKept));
        EXPECT_FALSE(state.running());
        if (c.twice) {
            EXPECT_NE(ui.status[1].find("Stopped while"), std::string::npos) << ui.status[1];
            EXPECT_FALSE(state.linked());
            EXPECT_EQ(sent("GTL"), 0u);
        } else {
            EXPECT_TRUE(state.runFailure().ok()) << state.runFailure().text();
            EXPECT_TRUE(state.linked());
            EXPECT_EQ(sent("DTWAVE?"), 8u);  // the pass in progress was finished
            EXPECT_EQ(sim->commandLog().back(), "GTL");
            EXPECT_FALSE(statusSeen("Repeat count=3"));
        }
    }
}

// The window's "Time-out (s)" bounds every exchange: a reply trickling in one
// byte per 100 ms, never silent for long, still ends the run.
TEST_F(AcquisitionRun, TimeoutSettingEndsATricklingReply) {
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    ASSERT_TRUE(state.linked());
    state.settings().analysis.TimeoutSeconds = "0.5";
    sim->setTricklePeriodMs(100);
    sim->setFault(SimFault::OneByte);
    const size_t boxes = ui.boxes.size();
    EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
    ASSERT_EQ(ui.boxes.size(), boxes + 1);
    EXPECT_NE(ui.boxes.back().text.find("did not end within 0.5 s"), std::string::npos) << ui.boxes.back().text;
    EXPECT_FALSE(state.linked());
    EXPECT_FALSE(state.running());
}

namespace {
// A file a pass writes cannot be written (its folder is a plain file): the
// run-time error box names it, the pass keeps its log row and result line,
// and the series ends after it with the failure.
TEST_F(AcquisitionRun, APassFileThatCannotBeWrittenEndsTheSeries) {
    struct Case {
        const char* name;
        bool AnalysisSettings::*check;
    };
    const Case cases[] = {{"detail file", &AnalysisSettings::DDSaveCheck},
                          {"wave table", &AnalysisSettings::WDSaveCheck}};
    const auto notAFolder = dir_ / "not-a-folder";
    std::ofstream(notAFolder) << "x";
    auto& a = state.settings().analysis;
    a.RepeatCheck = a.DaqCheck = true;
    a.TotalRepeats = "5";
    state.settings().OutputFolder = notAFolder.string();
    for (const auto& c : cases) {
        a.DDSaveCheck = a.WDSaveCheck = false;
        a.*c.check = true;
        const size_t boxes = ui.boxes.size();
        const size_t lines = resultLines();
        EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
        ASSERT_EQ(ui.boxes.size(), boxes + 1) << c.name;
        EXPECT_EQ(ui.boxes.back().title, kRunTimeErrorTitle) << c.name;
        EXPECT_NE(ui.boxes.back().text.find(notAFolder.string()), std::string::npos) << ui.boxes.back().text;
        EXPECT_EQ(state.runFailure().code(), ErrorCode::FileIo) << c.name;
        EXPECT_EQ(state.logGrid().nextRow, kLogHeaderRows + 1) << c.name;
        EXPECT_EQ(resultLines(), std::max<size_t>(lines, 2) + 1) << c.name;
    }
}
}  // namespace
