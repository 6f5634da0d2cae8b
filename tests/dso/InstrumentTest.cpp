#include "DsoTestSupport.h"
#include "ReplayTransport.h"
#include "dso/Instrument.h"
#include "dso/LinkFraming.h"

// What every family shares: the blocks of any header length, the choice of
// the driver by the identification, and the ports tried when none is named.
namespace mervasto::test {
namespace {

TEST(DefiniteBlockTest, HeadersOfAnyLength) {
    struct Case {
        std::string pending;
        bool quiet;
        BlockHeaderState state;
        int64_t length;
        size_t headerBytes;
    };
    using S = BlockHeaderState;
    const Case cases[] = {
        {"#15abcde\n", false, S::Block, 5, 3},
        {"#800000010", false, S::Block, 10, 10},
        {"#9000250000", false, S::Block, 250000, 11},
        {"#9000250", false, S::NeedMore, 0, 10},  // the length digits still coming
        {"#", false, S::NeedMore, 0, 10},
        {"#0abc\n", false, S::NotBlock, 0, 10},   // no length: nothing to check it against
        {"#3 12abc", false, S::NotBlock, 0, 10},  // a length digit that is none
        {"#9999999999", false, S::TooLong, 999999999, 11},
        {"1.5E-3\n", false, S::NotBlock, 0, 10},  // text, once its line has ended
        {"1.5E-3", false, S::NeedMore, 0, 10},
        {"1.5E-3", true, S::NotBlock, 0, 10},
    };
    for (const Case& c : cases) {
        const BlockHeader h = ParseDefiniteBlockHeader(c.pending, c.quiet, kMaxBlockBytes - 1);
        EXPECT_EQ(h.state, c.state) << c.pending;
        if (c.state != S::Block && c.state != S::TooLong) continue;
        EXPECT_EQ(h.length, c.length) << c.pending;
        EXPECT_EQ(h.headerBytes, c.headerBytes) << c.pending;
    }
}

// "*IDN?" chooses the driver unless the Instrument setting names one; an
// identity no family claims is refused, naming the families.
TEST(InstrumentIdentityTest, TheIdentificationChoosesTheFamily) {
    TestApp();
    struct Case {
        std::string family;  // the Instrument setting
        std::string reply;
        std::string chosen;  // the family's name, or part of the refusal
        int16_t channels;
    };
    const Case cases[] = {
        {"Auto", "RIGOL TECHNOLOGIES,DS1104Z,DS1ZA1,00.04.04", "Rigol", 4},
        {"Auto", "RIGOL TECHNOLOGIES,DS1202Z-E,DS1ZE1,00.06.02", "Rigol", 2},
        // The 7th character of MSO1104Z reads 4, as a legacy model's would.
        {"Auto", "RIGOL TECHNOLOGIES,MSO1104Z,DS1ZA1,00.04.04", "Rigol", 4},
        {"Auto", "MERVASTO SIMULATOR,DS-5352,0001,1.00", "Legacy", 2},
        {"rigol", "RIGOL TECHNOLOGIES,DS1054Z,DS1ZA1,00.04.04", "Rigol", 4},
        {"Auto", "TEKTRONIX,MSO44,C000001,CF:91.1CT FV:1.44.3.433", "Tektronix", 4},
        {"Auto", "TEKTRONIX,TBS2072,C000001,CF:91.1CT FV:v1.29", "Tektronix", 2},
        {"Auto", "TEKTRONIX,MSO58,C000001,CF:91.1CT FV:1.44.3.433", "Tektronix", 4},  // its first four
        {"Tektronix", "RIGOL TECHNOLOGIES,DS1054Z,DS1ZA1,00.04.04", "names no 2, 3, 4, 5 or 6 Series MSO", 0},
        {"Auto", "ACME,SCOPE9,1,1",
         "names no model with 2 or 4 channels: \"ACME,SCOPE9,1,1\"; the link was closed. The program knows these "
         "families: Legacy (DS-5352, DS-5354), Rigol (DS1000Z, MSO1000Z), Siglent (SDS1000X-E, SDS2000X), Keysight "
         "(InfiniiVision 1000 X, 2000 X, 3000 X, 4000 X), Tektronix (2, 3, 4, 5, 6 Series MSO, TBS2000).",
         0},
        {"Rigol", "MERVASTO SIMULATOR,DS-5354,0001,1.00", "names no DS1000Z or MSO1000Z model", 0},
        {"Auto", "Siglent Technologies,SDS1202X-E,SDS1ECDQ2R0001,8.1.6.1.37R2", "Siglent", 2},
        {"Siglent", "Siglent Technologies,SDS2104X Plus,SDS2PA0001,1.5.2", "names no SDS1000X-E or SDS2000X model", 0},
        {"Auto", "INSTRUMENTS OF OLD,DSO-X 2002A,MY00000001,02.43.2018020635", "Keysight", 2},
        // The 7th character of DSOX3024T reads 2, as a legacy model's would.
        {"Auto", "KEYSIGHT TECHNOLOGIES,DSOX3024T,MY00000001,07.50", "Keysight", 4},
        {"Legacy", "RIGOL TECHNOLOGIES,DS1104Z,DS1ZA1,00.04.04", "names no model with 2 or 4 channels", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.family + " " + c.reply);
        auto record = std::make_shared<ReplayTransport::Record>();
        record->script = {{"*IDN?", c.reply + "\n"}, {"*CLS", ""}};
        Instrument instrument(std::make_unique<ReplayTransport>(record));
        DsoSetup setup;
        ScriptedUi ui;
        const Outcome linked = instrument.connect(setup, ui, "127.0.0.1:5555", c.family);
        EXPECT_EQ(linked.ok(), c.channels > 0) << linked.text();
        EXPECT_EQ(instrument.linked(), c.channels > 0);
        EXPECT_EQ(setup.ChannelCount, c.channels);
        if (linked)
            EXPECT_EQ(instrument.family(c.family).name, c.chosen);
        else
            EXPECT_NE(linked.text().find(c.chosen), std::string::npos) << linked.text();
    }
}

// Without a port the probed ports are tried in order and the one that
// answered is said; the link follows a change of the address or the family.
TEST(InstrumentProbeTest, PortsAreTriedInTurnAndTheOneThatAnsweredIsSaid) {
    TestApp();
    SimOptions o = small("DS1104Z", 500);
    o.dialect = "rigol";
    DsoSimulator rigol(o);
    DsoSimulator off;
    ASSERT_TRUE(rigol.start());
    ASSERT_TRUE(off.start());
    off.setFault(SimFault::Refuse);  // nothing listens there
    Instrument instrument;
    instrument.setProbedPorts({off.port(), rigol.port()});
    DsoSetup setup;
    ScriptedUi ui;
    ASSERT_TRUE(instrument.connect(setup, ui, "127.0.0.1", "Auto"));
    EXPECT_EQ(instrument.probedPort(), rigol.port());
    EXPECT_EQ(ui.statuses.back().second, "The DSO answered on port " + std::to_string(rigol.port()) + ".");
    EXPECT_EQ(setup.Model, "DS1104Z");
    EXPECT_FALSE(instrument.linkedElsewhere("127.0.0.1", "Auto"));
    EXPECT_FALSE(instrument.linkedElsewhere("127.0.0.1", "Rigol"));
    EXPECT_TRUE(instrument.linkedElsewhere("127.0.0.1", "Legacy"));
    EXPECT_TRUE(instrument.linkedElsewhere("127.0.0.1:" + std::to_string(off.port()), "Auto"));
    instrument.close();

    instrument.setProbedPorts({off.port()});
    EXPECT_EQ(instrument.connect(setup, ui, "127.0.0.1", "Auto").text(), kDsoNotConnected);
}

}  // namespace
}  // namespace mervasto::test
