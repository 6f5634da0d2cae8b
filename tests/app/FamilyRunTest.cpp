#include <gtest/gtest.h>

#include <ostream>

#include <QCoreApplication>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "common/TextFile.h"
#include "dso/InstrumentDriver.h"
#include "sim/DsoSimulator.h"
#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

// A run from each maker's simulator through the run state: the shared
// instrument faults in the middle of a series, in the family's own words,
// the reject range from its cursors and its screen. A new family is one more
// value of the parameter. (The application object is AcquisitionRunTest's.)
namespace mervasto {
namespace {

struct Family {
    const char* dialect;
    const char* arm;        // part of the line that arms a pass
    const char* dataQuery;  // part of the line that asks for a block (four a pass)
    const char* release;    // the line that ends a run ("" for none)
    std::vector<test::SeriesFault> faults;
    // Where cursors 2.5 divisions either side of the trigger fall in a record
    // of 2000 (0, 0 when the family reads none), and whether its screen is read.
    int32_t rejectStart, rejectEnd;
    bool screen;
    friend void PrintTo(const Family& f, std::ostream* os) { *os << f.dialect; }
};

class FamilyRun : public ::testing::TestWithParam<Family> {
protected:
    void SetUp() override {
        dir_ = test::FreshTestFolder("mervasto-family-run-");
        SimOptions o;
        o.dialect = GetParam().dialect;
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

    std::filesystem::path dir_;
    std::unique_ptr<DsoSimulator> sim;
    RunState state;
    ScriptedUi ui;
};

// The faults of the shared table, in each dialect's words, switched on in
// the third pass: at its arming or at its first block (the ninth, four a pass).
TEST_P(FamilyRun, SeriesFaultsKeepThePassesBefore) {
    const Family& family = GetParam();
    state.settings().analysis.RepeatCheck = true;
    state.settings().analysis.DaqCheck = true;
    state.settings().analysis.TotalRepeats = "5";
    state.settings().analysis.TimeoutSeconds = "3";
    for (const auto& f : family.faults) {
        SCOPED_TRACE(f.name);
        std::filesystem::remove(state.resultFileName());
        sim->clearLog();
        if (*f.setupField) sim->setBadSetupField(f.setupField);
        const std::string at = f.atFirstBlock ? family.dataQuery : family.arm;
        auto seen = std::make_shared<int>(0);
        sim->setCommandHook([this, f, at, seen](const std::string& line) {
            if (line.find(at) != std::string::npos && ++*seen == (f.atFirstBlock ? 9 : 3)) sim->setFault(f.fault);
        });
        EXPECT_FALSE(state.WFStartCommand_Click(ui).ok());
        ASSERT_FALSE(ui.boxes.empty());
        EXPECT_NE(ui.boxes.back().text.find(f.message), std::string::npos) << ui.boxes.back().text;
        EXPECT_FALSE(state.linked());
        EXPECT_EQ(resultLines(), 2u + 2u);
        if (*family.release) EXPECT_EQ(sent(family.release), 0u);  // no command to an instrument in an unknown state

        sim->setCommandHook(nullptr);
        sim->setFault(SimFault::None);
        state.settings().analysis.RepeatCheck = false;
        ASSERT_TRUE(state.WFStartCommand_Click(ui).ok()) << state.runFailure().text();
        EXPECT_TRUE(state.linked());
        if (*family.release) EXPECT_TRUE(sim->waitForLastCommand(family.release));
        state.settings().analysis.RepeatCheck = true;
    }
}

// The reject range is where the cursors' times fall in the record; the
// screen is stored whole, whatever its size. A family without them has the
// controls greyed and the command refused.
TEST_P(FamilyRun, RejectRangeFromTheCursorsAndTheScreen) {
    const Family& family = GetParam();
    SimState s = sim->state();
    s.cursorMode = "MAN";
    s.cursor1 = 2.5;  // divisions from the trigger: 2.5 x 12 / 2000 of the record each
    s.cursor2 = -2.5;
    sim->setState(s);
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    state.settings().analysis.OmitRangeEffect = true;
    ASSERT_TRUE(state.ReadRejectRange_Click(ui).ok());
    EXPECT_EQ(state.settings().RejectRangeSet, family.rejectStart > 0);
    EXPECT_EQ(state.instrumentSupports(InstrumentFeature::RejectRange).available, family.rejectStart > 0);
    if (family.rejectStart > 0) {
        EXPECT_EQ(ui.boxes.back().title, "Direction");
        EXPECT_EQ(state.settings().RejectStart, family.rejectStart);
        EXPECT_EQ(state.settings().RejectEnd, family.rejectEnd);
    }

    EXPECT_EQ(state.instrumentSupports(InstrumentFeature::Screen).available, family.screen);
    if (!family.screen) return;
    state.settings().analysis.SaveScreenCheck = true;
    sim->setScreenBytes(40000);  // more than the legacy files could take
    ASSERT_TRUE(state.WaveSave_Click(ui).ok());
    EXPECT_EQ(std::filesystem::file_size(dir_ / "data" / "VScreen" / "Sample1.png"), 40000u);
}

const Family kFamilies[] = {
    {"rigol",
     ":SING",
     ":WAV:DATA?",
     ":SYST:LOCK OFF",
     {
         {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
         {"silent at the status poll", SimFault::Silent, "did not answer \":TRIG:STAT?\""},
         {"garbage status", SimFault::Garbage, "none of TD, WAIT, RUN, AUTO, STOP"},
         {"short block", SimFault::ShortBlock, "block for CH1 (points 1 to 2000) holds 1000 bytes, not the 2000", true},
         {"block without its line feed", SimFault::NoTerminator, "block for CH1 has no line feed", true},
         {"volts/div", SimFault::BadSetup, "volts/div of CHAN1 (\":CHAN1:SCAL?\") is not a number", false, "VDIV"},
         {"memory depth", SimFault::BadSetup, "memory depth (\":ACQ:MDEP?\") makes no record", false, "LENGTH"},
         {"sample interval", SimFault::BadSetup, "sample interval (1 / \":ACQ:SRAT?\") is too small", false,
          "INTERVAL"},
         {"volts per code", SimFault::BadSetup, "y increment (field 8 of \":WAV:PRE?\")", false, "VOLTS"},
     },
     583,  // 1000 - 2.5 / 12 x 2000
     1417,
     true},
    {"siglent",
     "ARM",
     "WF? DAT2",
     "",
     {
         {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
         {"silent at the status poll", SimFault::Silent, "did not answer \"INR?\""},
         {"garbage status", SimFault::Garbage, "reply to \"INR?\" is not a number"},
         {"short block", SimFault::ShortBlock, "block for CH1 (points 1 to 2000) holds 1000 bytes, not the 2000", true},
         {"block without its line feeds", SimFault::NoTerminator, "block for CH1 has no line feed", true},
         {"volts/div", SimFault::BadSetup, "volts/div of C1 (\"C1:VDIV?\") is not a number", false, "VDIV"},
         {"memory depth", SimFault::BadSetup, "memory depth (\"SANU? C1\") makes no record", false, "LENGTH"},
         {"sample interval", SimFault::BadSetup, "sample interval (1 / \"SARA?\") is too small", false, "INTERVAL"},
     },
     0,
     0,
     false},
    {"keysight",
     ":SING",
     ":WAV:DATA?",
     ":SYST:LOCK OFF",
     {
         {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
         {"silent at the status poll", SimFault::Silent, "did not answer \":TER?\""},
         {"garbage status", SimFault::Garbage, "reply to \":TER?\" is not a number"},
         {"short block", SimFault::ShortBlock, "block for CH1 holds 1000 bytes, not the 2000 of its 2000 points", true},
         {"block without its line feed", SimFault::NoTerminator, "block for CH1 has no line feed", true},
         {"volts/div", SimFault::BadSetup, "volts/div of CHAN1 (\":CHAN1:SCAL?\") is not a number", false, "VDIV"},
         {"acquisition points", SimFault::BadSetup, "acquisition points (\":ACQ:POIN?\") make no record", false,
          "LENGTH"},
         {"sample interval", SimFault::BadSetup, "sample interval (1 / \":ACQ:SRAT?\") is too small", false,
          "INTERVAL"},
         {"volts per code", SimFault::BadSetup, "y increment (field 8 of \":WAV:PRE?\")", false, "VOLTS"},
     },
     500,  // 1000 - 2.5 / 10 x 2000
     1500,
     true},
};

INSTANTIATE_TEST_SUITE_P(Families, FamilyRun, ::testing::ValuesIn(kFamilies),
                         [](const ::testing::TestParamInfo<Family>& info) { return std::string(info.param.dialect); });

}  // namespace
}  // namespace mervasto
