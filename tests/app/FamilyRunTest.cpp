#include <gtest/gtest.h>

#include <QCoreApplication>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "common/TextFile.h"
#include "sim/DsoSimulator.h"
#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

// A run from each family's simulator through the run state: the shared
// instrument faults in the middle of a series in the family's words, and
// the reject range and the screen where the family has them. (The
// application object is AcquisitionRunTest's.)
namespace mervasto {
namespace {

class FamilyRun : public ::testing::Test {
protected:
    void start(const char* dialect) {
        dir_ = test::FreshTestFolder("mervasto-family-run-");
        SimOptions o;
        o.dialect = dialect;
        o.state.recordLength = 2000;
        o.acqDelayMs = 5;
        sim = std::make_unique<DsoSimulator>(o);
        ASSERT_TRUE(sim->start());
        state.FormLoad((dir_ / "data").string());
        state.settings().analysis.IPAdressText = sim->address();
        state.setReplyTimeoutMs(3000);
    }
    size_t resultLines() const {
        std::ifstream f(state.resultFileName(), std::ios::binary);
        size_t n = 0;
        for (std::string l; std::getline(f, l);) ++n;
        return n;
    }
    size_t sent(const std::string& command) const {
        auto log = sim->commandLog();
        return static_cast<size_t>(std::count(log.begin(), log.end(), command));
    }

    // The faults of the shared table in the dialect's words, switched on in
    // the third pass: at its arming (the command `arm`) or at its first block
    // (the ninth `curve`, four a pass). After each, a whole series ends with
    // the front panel handed back (`local`).
    void seriesFaults(const std::vector<test::SeriesFault>& faults, const std::string& arm, const std::string& curve,
                      const std::string& local) {
        state.settings().analysis.RepeatCheck = true;
        state.settings().analysis.DaqCheck = true;
        state.settings().analysis.TotalRepeats = "5";
        state.settings().analysis.TimeoutSeconds = "3";
        for (const auto& f : faults) {
            SCOPED_TRACE(f.name);
            std::filesystem::remove(state.resultFileName());
            sim->clearLog();
            if (*f.setupField) sim->setBadSetupField(f.setupField);
            const std::string at = f.atFirstBlock ? curve : arm;
            auto seen = std::make_shared<int>(0);
            sim->setCommandHook([this, f, at, seen](const std::string& line) {
                if (line == at && ++*seen == (f.atFirstBlock ? 9 : 3)) sim->setFault(f.fault);
            });
            EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
            ASSERT_FALSE(ui.boxes.empty());
            EXPECT_NE(ui.boxes.back().text.find(f.message), std::string::npos) << ui.boxes.back().text;
            EXPECT_FALSE(state.linked());
            EXPECT_EQ(resultLines(), 2u + 2u);
            EXPECT_EQ(sent(local), 0u);  // no command to an instrument in an unknown state

            sim->setCommandHook(nullptr);
            sim->setFault(SimFault::None);
            state.settings().analysis.RepeatCheck = false;
            ASSERT_TRUE(state.WFStartCommand_Click(ui).ok()) << state.runFailure().text();
            EXPECT_TRUE(state.linked());
            EXPECT_TRUE(sim->waitForLastCommand(local));
            state.settings().analysis.RepeatCheck = true;
        }
    }

    std::filesystem::path dir_;
    std::unique_ptr<DsoSimulator> sim;
    RunState state;
    ScriptedUi ui;
};

TEST_F(FamilyRun, RigolSeriesFaultsKeepThePassesBefore) {
    start("rigol");
    seriesFaults(
        {
            {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
            {"silent at the status poll", SimFault::Silent, "did not answer \":TRIG:STAT?\""},
            {"garbage status", SimFault::Garbage, "none of TD, WAIT, RUN, AUTO, STOP"},
            {"short block", SimFault::ShortBlock, "block for CH1 (points 1 to 2000) holds 1000 bytes, not the 2000",
             true},
            {"block without its line feed", SimFault::NoTerminator, "block for CH1 has no line feed", true},
            {"volts/div", SimFault::BadSetup, "volts/div of CHAN1 (\":CHAN1:SCAL?\") is not a number", false, "VDIV"},
            {"memory depth", SimFault::BadSetup, "memory depth (\":ACQ:MDEP?\") makes no record", false, "LENGTH"},
            {"sample interval", SimFault::BadSetup, "sample interval (1 / \":ACQ:SRAT?\") is too small", false,
             "INTERVAL"},
            {"volts per code", SimFault::BadSetup, "y increment (field 8 of \":WAV:PRE?\")", false, "VOLTS"},
        },
        ":SING", ":WAV:DATA?", ":SYST:LOCK OFF");
}

TEST_F(FamilyRun, TektronixSeriesFaultsKeepThePassesBefore) {
    start("tektronix");
    seriesFaults(
        {
            {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
            {"silent at the state poll", SimFault::Silent, "did not answer \"ACQuire:STATE?\""},
            {"garbage state", SimFault::Garbage, "neither 0 nor 1"},
            {"short block", SimFault::ShortBlock, "curve of CH1 holds 1000 bytes, not the 2000 of its 2000 points",
             true},
            {"long block", SimFault::LongBlock, "block for CH1 has more bytes than its header declares", true},
            {"volts/div", SimFault::BadSetup, "volts/div of CH1 (\"CH1:SCAle?\") is not a number", false, "VDIV"},
            {"record length", SimFault::BadSetup, "record length (\"HORizontal:RECOrdlength?\") makes no record", false,
             "LENGTH"},
            {"trigger level", SimFault::BadSetup, "trigger level (\"TRIGger:A:LEVel:CH1?\") is not a finite number",
             false, "TLVL"},
            {"volts per code", SimFault::BadSetup, "y multiplier (field 7 of the preamble)", false, "VOLTS"},
        },
        "ACQuire:STATE RUN", "CURVe?", "UNLock ALL");
    // Neither the reject range nor the screen: the button does nothing, the
    // screen is refused with the reason.
    state.settings().analysis.OmitRangeEffect = true;
    ASSERT_TRUE(state.ReadRejectRange_Click(ui).ok());
    EXPECT_FALSE(state.settings().RejectRangeSet);
    state.settings().analysis.SaveScreenCheck = true;
    const Outcome screen = state.WaveSave_Click(ui);
    EXPECT_EQ(screen.code(), ErrorCode::BadOption);
    EXPECT_NE(screen.text().find("saves its screen as a file"), std::string::npos) << screen.text();
}

// The reject range is where the manual cursors' times fall in the record;
// the screen is stored whole, whatever its size.
TEST_F(FamilyRun, RigolRejectRangeFromTheCursorsAndTheScreen) {
    start("rigol");
    SimState s = sim->state();
    s.cursorMode = "MAN";
    s.cursor1 = 2.5;  // divisions from the trigger: 2.5 x 12 / 2000 of the record each
    s.cursor2 = -2.5;
    sim->setState(s);
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    state.settings().analysis.OmitRangeEffect = true;
    ASSERT_TRUE(state.ReadRejectRange_Click(ui).ok());
    EXPECT_EQ(ui.boxes.back().title, "Direction");
    EXPECT_TRUE(state.settings().RejectRangeSet);
    EXPECT_EQ(state.settings().RejectStart, 583);  // 1000 - 2.5 / 12 x 2000
    EXPECT_EQ(state.settings().RejectEnd, 1417);

    state.settings().analysis.SaveScreenCheck = true;
    sim->setScreenBytes(40000);  // more than the legacy files could take
    ASSERT_TRUE(state.WaveSave_Click(ui).ok());
    EXPECT_EQ(std::filesystem::file_size(dir_ / "data" / "VScreen" / "Sample1.png"), 40000u);
}

}  // namespace
}  // namespace mervasto
