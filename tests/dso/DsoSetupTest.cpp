#include "DsoTestSupport.h"
#include "dso/DsoSetupReadout.h"

#include <optional>

namespace mervasto::test {
namespace {

using Log = std::vector<std::string>;

Log ChannelQueries(int channels) {
    Log log;
    for (int ch = 1; ch <= channels; ++ch)
        for (const char* q : {":VDIV?", ":OFST? ", ":TRA? ", ":CPL? ", ":BWL? ", ":INV? "})
            log.push_back("C" + std::to_string(ch) + q);
    return log;
}

Log ReadoutLog(int channels) {
    Log log = {"DTINF?", "TDIV?", "ACQ?", "TSRC?", "TLVL?", "TRDL?", "TRMD?"};
    for (const auto& q : ChannelQueries(channels)) log.push_back(q);
    log.push_back("HCUR?");
    log.push_back("CURM?");
    return log;
}

TEST_F(SimTest, ReadsEveryFieldInOrder) {
    SimOptions o = small("DS-5354", 12340);
    SimState& s = o.state;
    s.timePerDiv = 2e-4;
    s.triggerDelay = -1e-5;
    s.acqMode = "HIGH_RES";
    s.triggerSource = "CH2";
    s.triggerLevel = 0.75;
    s.triggerMode = "AUTO";
    for (int ch = 0; ch < 4; ++ch) {
        s.ch[ch].voltsPerDiv = 0.5 * (ch + 1);
        s.ch[ch].offset = -0.25 * ch;
        s.ch[ch].coupling = ch == 1 ? "AC1M" : "DC50";
        s.ch[ch].bandwidth = ch == 2 ? "20M" : "OFF";
        s.ch[ch].trace = ch == 3 ? "OFF" : "ON";
        s.ch[ch].inverted = ch == 2 ? "ON" : "OFF";
    }
    s.cursorMode = "DHDV";
    s.cursor1 = -3.0;
    s.cursor2 = 1.5;
    startSim(o);
    linkUp();

    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    EXPECT_EQ(sim->commandLog(), ReadoutLog(4));
    EXPECT_EQ(setup.Model, "DS-5354");
    EXPECT_EQ(setup.InfoDigit, "1");
    EXPECT_EQ(setup.DateTime.size(), 19u);
    EXPECT_FLOAT_EQ(setup.TimePerDiv, 2e-4f);
    EXPECT_FLOAT_EQ(setup.TriggerDelay, -1e-5f);
    EXPECT_EQ(setup.RecordLength, 12340);
    EXPECT_FLOAT_EQ(setup.SampleInterval, static_cast<float>(2e-4f * 10.0 / 12340));
    EXPECT_EQ(setup.AcqMode, "HIGH_RES");
    EXPECT_EQ(setup.TriggerSource, "CH2");
    EXPECT_FLOAT_EQ(setup.TriggerLevel, 0.75f);
    EXPECT_EQ(setup.TriggerMode, "AUTO");
    for (int ch = 1; ch <= 4; ++ch) {
        SCOPED_TRACE(ch);
        EXPECT_FLOAT_EQ(setup.trace(ch - 1).VoltsPerDiv, 0.5f * ch);
        EXPECT_FLOAT_EQ(setup.trace(ch - 1).Offset, -0.25f * (ch - 1));
        EXPECT_EQ(setup.trace(ch - 1).Coupling, ch == 2 ? "AC1M" : "DC50");
        EXPECT_EQ(setup.trace(ch - 1).BandwidthLimit, ch == 3 ? "20M" : "OFF");
        EXPECT_EQ(setup.trace(ch - 1).TraceOn, ch == 4 ? "OFF" : "ON");
        EXPECT_EQ(setup.trace(ch - 1).Inverted, ch == 3);
    }
    EXPECT_TRUE(setup.CursorsFromDso);
    EXPECT_FLOAT_EQ(setup.CursorPos[0], 2.0f);
    EXPECT_FLOAT_EQ(setup.CursorPos[1], 6.5f);
    EXPECT_TRUE(ui.boxes.empty());
}

TEST_F(SimTest, TwoChannelModelSkipsChannelsThreeAndFour) {
    startSim(small("DS-5352", 5000));
    linkUp();
    setup.trace(2).VoltsPerDiv = 7.0f;
    setup.trace(3).Coupling = "kept";
    setup.trace(2).Inverted = setup.trace(3).Inverted = true;
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    EXPECT_EQ(sim->commandLog(), ReadoutLog(2));
    EXPECT_EQ(setup.RecordLength, 5000);  // field 15 for two channels
    EXPECT_FLOAT_EQ(setup.trace(2).VoltsPerDiv, 7.0f);
    EXPECT_EQ(setup.trace(3).Coupling, "kept");
    EXPECT_FALSE(setup.trace(2).Inverted);
    EXPECT_FALSE(setup.trace(3).Inverted);
}

TEST_F(SimTest, MemoryInputKeepsTheChannelFields) {
    startSim();
    linkUp();
    setup.trace(0).VoltsPerDiv = 3.0f;
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), true));
    EXPECT_EQ(sim->commandLog(), ReadoutLog(0));
    EXPECT_FLOAT_EQ(setup.trace(0).VoltsPerDiv, 3.0f);
}

TEST_F(SimTest, OddRepliesGiveTheDefaults) {
    struct Case {
        std::string query, reply;
        std::function<void(const DsoSetup&)> check;
    };
    const std::vector<Case> cases = {
        {"TDIV?", " ", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.TimePerDiv, 1e-6f); }},
        {"TDIV?", "", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.TimePerDiv, 1e-6f); }},
        {"C1:VDIV?", " ", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.trace(0).VoltsPerDiv, 1.0f); }},
        {"C2:VDIV?", "", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.trace(1).VoltsPerDiv, 1.0f); }},
        {"C1:OFST? ", " ", [](const DsoSetup& s) { EXPECT_EQ(s.trace(0).Offset, 0.0f); }},
        {"C1:INV? ", "on", [](const DsoSetup& s) { EXPECT_FALSE(s.trace(0).Inverted); }},
        {"C1:INV? ", "ON ", [](const DsoSetup& s) { EXPECT_FALSE(s.trace(0).Inverted); }},
        {"C1:INV? ", "ON", [](const DsoSetup& s) { EXPECT_TRUE(s.trace(0).Inverted); }},
        {"C1:CPL? ", "", [](const DsoSetup& s) { EXPECT_EQ(s.trace(0).Coupling, ""); }},
        {"ACQ?", "", [](const DsoSetup& s) { EXPECT_EQ(s.AcqMode, ""); }},
        {"TLVL?", "", [](const DsoSetup& s) { EXPECT_EQ(s.TriggerLevel, 0.0f); }},
        {"TRDL?", " ", [](const DsoSetup& s) { EXPECT_EQ(s.TriggerDelay, 0.0f); }},
    };
    startSim();
    linkUp();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query + " -> \"" + c.reply + "\"");
        sim->clearReplyOverrides();
        sim->setReplyOverride(c.query, c.reply);
        EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
        c.check(setup);
    }
}

// A setup the program cannot measure with ends the readout naming the field
// and the reply, instead of a made-up time base, an infinite sample or a
// later, unrelated overflow.
TEST_F(SimTest, MalformedSetupEndsTheReadoutNamingTheField) {
    struct Case {
        std::string query, reply, message;
        std::string acqMode = "NORMAL";
    };
    // The setup information with another record length text (500 samples in the simulator).
    auto withLength = [](const std::string& text) {
        std::string info = SimDtinf(small().state);
        const std::string field = "Record Length = 500";
        return info.replace(info.find(field), field.size(), "Record Length = " + text);
    };
    const std::string lengthRefused =
        "record length (field 23 of \"DTINF?\") is not a whole number from 10 to 5000011: \"Record Length = ";
    const std::vector<Case> cases = {
        {"DTINF?", "short,reply", "setup information (\"DTINF?\") has 2 fields; the record length is field 23"},
        {"DTINF?", withLength("abc"), lengthRefused + "abc\""},
        {"DTINF?", withLength("0"), lengthRefused + "0\""},
        {"DTINF?", withLength("-70000"), lengthRefused + "-70000\""},
        {"DTINF?", withLength("9"), lengthRefused + "9\""},
        {"DTINF?", withLength("12.5"), lengthRefused + "12.5\""},
        {"DTINF?", withLength("5000012"), lengthRefused + "5000012\""},
        {"DTINF?", withLength("1234x"), lengthRefused + "1234x\""},
        {"TDIV?", "abc", "time base (\"TDIV?\") is not a number: \"abc\""},
        {"TDIV?", "0", "time base (\"TDIV?\") is not above 0"},
        {"TDIV?", "1e999", "time base (\"TDIV?\") is not a finite number"},
        {"TDIV?", "1E-44", "sample interval (time base \"1E-44\" x 10 / 500 samples) is too small for a float"},
        {"TRDL?", "1E+300", "trigger delay (\"TRDL?\") is not a finite number: \"1E+300\""},
        {"TRDL?", "later", "trigger delay (\"TRDL?\") is not a number: \"later\""},
        {"TLVL?", "-1e39", "trigger level (\"TLVL?\") is not a finite number: \"-1e39\""},
        {"C2:VDIV?", "-1", "volts/div of C2 (\"C2:VDIV?\") is not above 0"},
        {"C3:VDIV?", "1.0V", "volts/div of C3 (\"C3:VDIV?\") is not a number"},
        {"C4:VDIV?", "1e39", "volts/div of C4 (\"C4:VDIV?\") is not a finite number"},  // beyond a float
        {"C1:VDIV?", "1e-36", "volts per count of C1 (volts/div \"1e-36\" / 8192) is too small for a float", "AVERAGE"},
        {"C1:VDIV?", "3e38",
         "volts per count of C1 (volts/div \"3e38\" / 32) makes a full-scale sample beyond a float"},
        {"C1:OFST? ", "1.5.2", "offset of C1 (\"C1:OFST?\") is not a number"},
    };
    startSim();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query + " -> \"" + c.reply + "\"");
        SimState st = sim->state();
        st.acqMode = c.acqMode;
        sim->setState(st);
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        sim->clearReplyOverrides();
        sim->setReplyOverride(c.query, c.reply);
        const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
        EXPECT_EQ(read.code(), ErrorCode::Link);
        EXPECT_NE(read.text().find("The DSO's " + c.message), std::string::npos) << read.text();
        EXPECT_NE(read.text().find("the link closed."), std::string::npos) << read.text();
        EXPECT_FALSE(LinkBoxOf(read).has_value());
        EXPECT_FALSE(link.DsoLinked);
    }
    // Negative offsets and trigger values and the extremes that still fit are fine.
    const std::vector<std::pair<std::string, std::string>> fine = {
        {"C1:OFST? ", " -2.5E-01 "},       {"TRDL?", "-1.5E-03"}, {"TLVL?", "-3e38"}, {"DTINF?", withLength("10")},
        {"DTINF?", withLength("5000011")}, {"C1:VDIV?", "1e-35"},
    };
    for (const auto& [query, reply] : fine) {
        SCOPED_TRACE(testing::Message() << query << " -> \"" << reply << "\"");
        sim->clearReplyOverrides();
        sim->setReplyOverride(query, reply);
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
        EXPECT_TRUE(read) << read.text();
    }
    EXPECT_FLOAT_EQ(setup.trace(0).VoltsPerDiv, 1e-35f);
}

TEST(RecordLengthTest, WholeNumbersFromTenRoundedToTensHalvesToEven) {
    const std::string head = "Record Length = ";  // 16 characters
    const std::vector<std::pair<std::string, std::optional<int32_t>>> cases = {
        {"1234", 1230},
        {"1235", 1240},
        {"1245", 1240},
        {"1255", 1260},
        {"15", 20},
        {"10", 10},
        {"14", 10},
        {" 1240 ", 1240},
        {"1.2E4", 12000},
        {"5000011", 5000010},
        {"4", {}},
        {"9", {}},
        {"0", {}},
        {"", {}},
        {"-70000", {}},
        {"abc", {}},
        {"12.5", {}},
        {"5000012", {}},
        {"1234 samples", {}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(RecordLengthOfField(head + text), expected) << text;
    EXPECT_EQ(RecordLengthOfField("short"), std::nullopt);
}

TEST_F(SimTest, RecordLengthFromTheInstrument) {
    for (int32_t length : {1245, 9}) {
        startSim(small("DS-5354", length));
        link.close();
        linkUp();
        const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
        if (length == 9)
            EXPECT_NE(read.text().find("\"Record Length = 9\""), std::string::npos) << read.text();
        else
            EXPECT_EQ(setup.RecordLength, 1240) << read.text();
        sim->stop();
    }
}

TEST_F(SimTest, CursorReadout) {
    struct Case {
        std::string mode;
        double c1, c2;
        float p1, p2;
        bool fromDso;
    };
    const std::vector<Case> cases = {
        {"DH", 2.5, -1.0, 4.0f, 7.5f, true},  // swapped into order
        {"DHDV", -5.0, 5.0, 0.0f, 10.0f, true}, {"DV", -2.0, 2.0, 1.0f, 9.0f, false},
        {"OFF", 0.0, 0.0, 1.0f, 9.0f, false},   {"dh", 1.0, 2.0, 1.0f, 9.0f, false},
    };
    startSim();
    linkUp();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        SimState st = sim->state();
        st.cursorMode = c.mode;
        st.cursor1 = c.c1;
        st.cursor2 = c.c2;
        sim->setState(st);
        sim->clearLog();
        ReadDsoCursors(link, setup);
        EXPECT_EQ(sim->commandLog(), (Log{"HCUR?", "CURM?"}));
        EXPECT_FLOAT_EQ(setup.CursorPos[0], c.p1);
        EXPECT_FLOAT_EQ(setup.CursorPos[1], c.p2);
        EXPECT_EQ(setup.CursorsFromDso, c.fromDso);
    }
}

TEST_F(SimTest, LinkDownGivesTheDefaultsAndTheNextCallConnects) {
    startSim();
    sim->setFault(SimFault::Refuse);
    setup.trace(0).VoltsPerDiv = 2.5f;
    setup.trace(1).Inverted = true;
    const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
    EXPECT_EQ(read.text(), "DSO not interfaced normally.");
    ASSERT_TRUE(LinkBoxOf(read).has_value());
    EXPECT_EQ(LinkBoxOf(read)->buttons, MsgButtons::OkCancel);
    EXPECT_TRUE(ui.boxes.empty());
    EXPECT_EQ(ui.statuses.back(), (std::pair<int, std::string>{1, "Connecting to the DSO."}));
    EXPECT_FLOAT_EQ(setup.TimePerDiv, 1e-5f);
    EXPECT_EQ(setup.RecordLength, 100000);
    EXPECT_FLOAT_EQ(setup.SampleInterval, 1e-9f);
    EXPECT_EQ(setup.Model, "DS-5352");
    EXPECT_EQ(setup.InfoDigit, "1");
    EXPECT_FALSE(setup.DateTime.empty());
    EXPECT_EQ(setup.TriggerSource, "CH1");
    EXPECT_EQ(setup.TriggerLevel, 0.0f);
    EXPECT_EQ(setup.TriggerDelay, 0.0f);
    EXPECT_EQ(setup.TriggerMode, "SINGLE");
    EXPECT_FLOAT_EQ(setup.trace(0).VoltsPerDiv, 2.5f);  // kept
    EXPECT_FALSE(setup.trace(1).Inverted);              // cleared first
    EXPECT_FALSE(link.DsoLinked);

    sim->setFault(SimFault::None);
    setup.ChannelCount = 4;
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    EXPECT_TRUE(link.DsoLinked);
    // Connecting here sends no "*IDN?".
    EXPECT_EQ(sim->commandLog(), ReadoutLog(4));
}

}  // namespace
}  // namespace mervasto::test
