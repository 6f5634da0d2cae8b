#include "DsoTestSupport.h"
#include "dso/DsoSetupReadout.h"

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
        EXPECT_FLOAT_EQ(setup.VoltsPerDiv[ch], 0.5f * ch);
        EXPECT_FLOAT_EQ(setup.Offset[ch], -0.25f * (ch - 1));
        EXPECT_EQ(setup.Coupling[ch], ch == 2 ? "AC1M" : "DC50");
        EXPECT_EQ(setup.BandwidthLimit[ch], ch == 3 ? "20M" : "OFF");
        EXPECT_EQ(setup.TraceOn[ch], ch == 4 ? "OFF" : "ON");
        EXPECT_EQ(setup.Inverted[ch], ch == 3);
    }
    EXPECT_TRUE(setup.CursorsFromDso);
    EXPECT_FLOAT_EQ(setup.CursorPos[1], 2.0f);
    EXPECT_FLOAT_EQ(setup.CursorPos[2], 6.5f);
    EXPECT_TRUE(ui.boxes.empty());
}

TEST_F(SimTest, TwoChannelModelSkipsChannelsThreeAndFour) {
    startSim(small("DS-5352", 5000));
    linkUp();
    setup.VoltsPerDiv[3] = 7.0f;
    setup.Coupling[4] = "kept";
    setup.Inverted[3] = setup.Inverted[4] = true;
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    EXPECT_EQ(sim->commandLog(), ReadoutLog(2));
    EXPECT_EQ(setup.RecordLength, 5000);  // field 15 for two channels
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[3], 7.0f);
    EXPECT_EQ(setup.Coupling[4], "kept");
    EXPECT_FALSE(setup.Inverted[3]);
    EXPECT_FALSE(setup.Inverted[4]);
}

TEST_F(SimTest, MemoryInputKeepsTheChannelFields) {
    startSim();
    linkUp();
    setup.VoltsPerDiv[1] = 3.0f;
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), true));
    EXPECT_EQ(sim->commandLog(), ReadoutLog(0));
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[1], 3.0f);
}

TEST_F(SimTest, OddRepliesGiveTheDefaults) {
    struct Case {
        std::string query, reply;
        std::function<void(const DsoSetup&)> check;
    };
    const std::vector<Case> cases = {
        {"TDIV?", " ", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.TimePerDiv, 1e-6f); }},
        {"TDIV?", "", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.TimePerDiv, 1e-6f); }},
        {"C1:VDIV?", " ", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.VoltsPerDiv[1], 1.0f); }},
        {"C2:VDIV?", "", [](const DsoSetup& s) { EXPECT_FLOAT_EQ(s.VoltsPerDiv[2], 1.0f); }},
        {"C1:OFST? ", " ", [](const DsoSetup& s) { EXPECT_EQ(s.Offset[1], 0.0f); }},
        {"C1:INV? ", "on", [](const DsoSetup& s) { EXPECT_FALSE(s.Inverted[1]); }},
        {"C1:INV? ", "ON ", [](const DsoSetup& s) { EXPECT_FALSE(s.Inverted[1]); }},
        {"C1:INV? ", "ON", [](const DsoSetup& s) { EXPECT_TRUE(s.Inverted[1]); }},
        {"C1:CPL? ", "", [](const DsoSetup& s) { EXPECT_EQ(s.Coupling[1], ""); }},
        {"ACQ?", "", [](const DsoSetup& s) { EXPECT_EQ(s.AcqMode, ""); }},
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

// A setup the program cannot measure with ends the readout naming the field,
// instead of a made-up time base or a later, unrelated overflow.
TEST_F(SimTest, MalformedSetupEndsTheReadoutNamingTheField) {
    struct Case {
        std::string query, reply, message;
    };
    const std::vector<Case> cases = {
        {"DTINF?", "short,reply", "(\"DTINF?\") has 2 fields; the record length is field 23"},
        {"TDIV?", "abc", "time base (\"TDIV?\") is not a number: \"abc\""},
        {"TDIV?", "0", "time base (\"TDIV?\") is not above 0"},
        {"TDIV?", "1e999", "is not a finite number"},
        {"C2:VDIV?", "-1", "volts/div of C2 (\"C2:VDIV?\") is not above 0"},
        {"C3:VDIV?", "1.0V", "volts/div of C3 (\"C3:VDIV?\") is not a number"},
        {"C4:VDIV?", "1e39", "is not a finite number"},  // beyond a float
        {"C1:OFST? ", "1.5.2", "offset of C1 (\"C1:OFST?\") is not a number"},
    };
    startSim();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query + " -> \"" + c.reply + "\"");
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        sim->clearReplyOverrides();
        sim->setReplyOverride(c.query, c.reply);
        const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
        EXPECT_EQ(read.code(), ErrorCode::Link);
        EXPECT_NE(read.text().find(c.message), std::string::npos) << read.text();
        EXPECT_FALSE(LinkBoxOf(read).has_value());
        EXPECT_FALSE(link.DsoLinked);
    }
    // Negative offsets and plain numbers are fine.
    sim->clearReplyOverrides();
    sim->setReplyOverride("C1:OFST? ", " -2.5E-01 ");
    ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
    EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    EXPECT_FLOAT_EQ(setup.Offset[1], -0.25f);
}

TEST(RecordLengthTest, RoundedToTensHalvesToEven) {
    const std::string head = "Record Length = ";  // 16 characters
    const std::vector<std::pair<std::string, int32_t>> cases = {
        {"1234", 1230}, {"1235", 1240}, {"1245", 1240}, {"1255", 1260}, {"4", 500},
        {"5", 500},     {"15", 20},     {"0", 500},     {"", 500},      {"5000011", 5000010},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(RecordLengthOfField(head + text), expected) << text;
    EXPECT_EQ(RecordLengthOfField("short"), 500);
}

TEST_F(SimTest, RecordLengthFromTheInstrument) {
    for (int32_t length : {1245, 4}) {
        startSim(small("DS-5354", length));
        link.close();
        linkUp();
        EXPECT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
        EXPECT_EQ(setup.RecordLength, length == 4 ? 500 : 1240);
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
        EXPECT_FLOAT_EQ(setup.CursorPos[1], c.p1);
        EXPECT_FLOAT_EQ(setup.CursorPos[2], c.p2);
        EXPECT_EQ(setup.CursorsFromDso, c.fromDso);
    }
}

TEST_F(SimTest, LinkDownGivesTheDefaultsAndTheNextCallConnects) {
    startSim();
    sim->setFault(SimFault::Refuse);
    setup.VoltsPerDiv[1] = 2.5f;
    setup.Inverted[2] = true;
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
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[1], 2.5f);  // kept
    EXPECT_FALSE(setup.Inverted[2]);              // cleared first
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
