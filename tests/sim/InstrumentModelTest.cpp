#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/InstrumentModel.h"
#include "sim/SimFaults.h"

// The instrument's dialogue without a socket: what each line from the host
// sets, what it answers, and what each fault makes of the replies.
namespace mervasto {
namespace {

using How = SimReply::How;

SimOptions SmallRecord(int32_t length = 8) {
    SimOptions o;
    o.state.recordLength = length;
    return o;
}

// The replies' bytes, one string per reply.
std::vector<std::string> Texts(const std::vector<SimReply>& replies) {
    std::vector<std::string> out;
    for (const auto& r : replies) out.push_back(r.bytes);
    return out;
}

TEST(InstrumentModelTest, SettingsAreAnsweredBackAndStatementsSplitAtSemicolons) {
    InstrumentModel m(SmallRecord());
    struct Step {
        std::string line;
        std::vector<std::string> replies;
    };
    const std::vector<Step> steps = {
        {"*IDN?", {"MERVASTO SIMULATOR,DS-5354,0001,1.00\n"}},
        {"TDIV 2E-3", {}},
        {"TDIV?", {"2.0000E-03\n"}},
        {"C2:VDIV 0.5;C2:OFST -1.5;C2:VDIV?;C2:OFST?", {"5.0000E-01\n", "-1.5000E+00\n"}},
        {" ACQ AVERAGE \r", {}},
        {"ACQ?", {"AVERAGE\n"}},
        {"HCUR -1,3", {}},
        {"HCUR?", {"-1.0000E+00,3.0000E+00\n"}},
        {"C3:TRA OFF;C3:TRA?", {"OFF\n"}},
        {"STOP;ROLL OFF;DISP OFF", {}},
        {"NOSUCH?", {"\n"}},  // an unknown query still gets its line
        {"GTL", {}},
    };
    for (const auto& step : steps) EXPECT_EQ(Texts(m.handle(step.line)), step.replies) << step.line;
    EXPECT_EQ(m.options().state.ch[1].voltsPerDiv, 0.5);
    EXPECT_EQ(m.options().state.acqMode, "AVERAGE");
}

TEST(InstrumentModelTest, AnAcquisitionIsArmedAndReportedOnce) {
    InstrumentModel m(SmallRecord());
    EXPECT_EQ(Texts(m.handle("TESR?")), std::vector<std::string>{"0\n"});
    const auto armed = m.handle("WSGL");
    ASSERT_EQ(armed.size(), 1u);
    EXPECT_EQ(armed[0].how, How::Arm);
    EXPECT_EQ(Texts(m.handle("TESR?")), std::vector<std::string>{"0\n"});
    m.acquisitionDone(std::make_shared<const SimRecord>(GenerateSimRecord(m.nextRecordOrder())));
    EXPECT_EQ(Texts(m.handle("TESR?")), std::vector<std::string>{"1\n"});
    EXPECT_EQ(Texts(m.handle("TESR?")), std::vector<std::string>{"0\n"});
    EXPECT_EQ(m.statusPolls(), 4);
}

TEST(InstrumentModelTest, WaveBlocksCarryTheCountsInTheFormatAsked) {
    InstrumentModel m(SmallRecord(4));
    m.setRecord(std::make_shared<const SimRecord>(SimRecord{{0.0f, 1.0f, -1.0f, 0.5f}, {2.0f, 2.0f, 2.0f, 2.0f}}));
    struct Case {
        std::string setup;
        std::string payload;
    };
    const std::vector<Case> cases = {
        {"DTFORM BYTE;WAVESRC CH1;DTSTART 0;DTPOINTS 4", std::string("\x00\x20\xE0\x10", 4)},
        {"DTFORM BYTE;WAVESRC CH1;DTSTART 2;DTPOINTS 9", std::string("\xE0\x10", 2)},  // clamped to the record
        {"DTFORM WORD;DTBORD H/L;WAVESRC CH1;DTSTART 1;DTPOINTS 1", std::string("\x20\x00", 2)},
        {"DTFORM WORD;DTBORD L/H;WAVESRC CH1;DTSTART 1;DTPOINTS 1", std::string("\x00\x20", 2)},
        {"DTFORM BYTE;WAVESRC MATH;DTSTART 0;DTPOINTS 2", std::string("\xC0\xE0", 2)},  // Ch1 - Ch2
        {"DTFORM BYTE;WAVESRC CH3;DTSTART 0;DTPOINTS 2", std::string("\x00\x00", 2)},   // nothing recorded
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(m.handle(c.setup).empty()) << c.setup;
        const auto block = m.handle("DTWAVE?");
        ASSERT_EQ(block.size(), 1u);
        char header[16];
        std::snprintf(header, sizeof header, "#8%08zu", c.payload.size());
        EXPECT_EQ(block[0].bytes, header + c.payload + "\n") << c.setup;
    }
    EXPECT_EQ(m.blocksSent(), static_cast<int>(cases.size()));
}

TEST(InstrumentModelTest, EachFaultShapesBlocksAndTextsItsOwnWay) {
    const std::string payload = "ABCDEFGH";
    struct Case {
        SimFault fault;
        SimReply block;  // what DTWAVE? gives
        SimReply text;   // what TDIV? gives
    };
    const std::string tdiv = "1.0000E-03\n";
    const std::string garbage = "\x01\x02gArBaGe,,\x7f~\n";
    const std::vector<Case> cases = {
        {SimFault::None, {How::Now, "#800000008ABCDEFGH\n"}, {How::Now, tdiv}},
        {SimFault::Silent, {How::Drop, ""}, {How::Drop, ""}},
        {SimFault::Refuse, {How::SwitchOff, ""}, {How::Drop, ""}},
        {SimFault::Late, {How::Late, "#800000008ABCDEFGH\n"}, {How::Late, tdiv}},
        {SimFault::OneByte, {How::Trickle, "#800000008ABCDEFGH\n"}, {How::Trickle, tdiv}},
        {SimFault::CloseMidBlock, {How::CloseAfter, "#800000008ABCD"}, {How::Now, tdiv}},
        {SimFault::BadHeader, {How::Now, "#8 12X4567ABCDEFGH\n"}, {How::Now, tdiv}},
        {SimFault::HugeBlock, {How::Now, "#899999999ABCDEFGH"}, {How::Now, tdiv}},
        {SimFault::Garbage, {How::Now, garbage}, {How::Now, garbage}},
        {SimFault::ShortBlock, {How::Now, "#800000004ABCD\n"}, {How::Now, tdiv}},
        {SimFault::LongBlock, {How::Now, "#800000008ABCDEFGH" + std::string(16, '\x55') + "\n"}, {How::Now, tdiv}},
        {SimFault::NoTerminator, {How::Now, "#800000008ABCDEFGH"}, {How::Now, tdiv}},
        {SimFault::EndlessReply, {How::Now, "#800000008ABCDEFGH\n"}, {How::Endless, ""}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(SimFaultName(c.fault));
        EXPECT_EQ(Deliver(c.fault, ShapeBlock(c.fault, payload), true), c.block);
        EXPECT_EQ(Deliver(c.fault, {How::Now, tdiv}, false), c.text);
    }
}

TEST(InstrumentModelTest, AFaultAfterBlocksStartsWithTheBlockAfterThem) {
    SimOptions o = SmallRecord();
    o.fault = SimFault::Silent;
    o.faultAfterBlocks = 2;
    InstrumentModel m(o);
    m.handle("DTPOINTS 4");
    EXPECT_EQ(m.handle("DTWAVE?")[0].how, How::Now);
    EXPECT_EQ(m.handle("DTWAVE?")[0].how, How::Now);
    EXPECT_EQ(m.handle("DTWAVE?")[0].how, How::Drop);
    EXPECT_EQ(m.handle("TDIV?")[0].how, How::Drop);

    // A refusing instrument switches off at its block; later statements of
    // the same line are not answered.
    InstrumentModel off(SmallRecord());
    off.setFaultAfter(SimFault::Refuse, 1);
    off.handle("DTWAVE?");
    const auto replies = off.handle("DTWAVE?;TDIV?");
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].how, How::SwitchOff);
    EXPECT_EQ(replies[1].how, How::Drop);
    EXPECT_EQ(off.options().fault, SimFault::Refuse);
}

TEST(InstrumentModelTest, BadSetupSpoilsOnlyTheFieldAsked) {
    struct Case {
        std::string field, query;
        const char* spoilt;  // the reply, or a part of it; nullptr: the healthy reply
    };
    const std::vector<Case> cases = {
        {"TDIV", "TDIV?", "ERR?\n"},
        {"TDIV", "C1:VDIV?", nullptr},
        {"VDIV", "C3:VDIV?", "ERR?\n"},
        {"VDIV", "TDIV?", nullptr},
        {"OFST", "C2:OFST?", "ERR?\n"},
        {"DTINF", "TRDL?", nullptr},
        {"DTINF", "DTINF?", "Model Name = DS-5354,Data Info = 1,Record Time = 2026/01/01 00:00:00\n"},
        {"IDN", "*IDN?", "\n"},
        {"IDN", "TDIV?", nullptr},
        {"LENGTH", "DTINF?", ",Record Length = -70000,"},
        {"TRDL", "TRDL?", "1.0000E+300\n"},
        {"TLVL", "TLVL?", "-1.0000E+300\n"},
        {"TLVL", "TRDL?", nullptr},
        {"INTERVAL", "TDIV?", "1.0000E-44\n"},
        {"VOLTS", "C4:VDIV?", "1.0000E-40\n"},
        {"VOLTS", "C4:OFST?", nullptr},
    };
    InstrumentModel healthy(SmallRecord());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.field + " " + c.query);
        SimOptions o = SmallRecord();
        o.fault = SimFault::BadSetup;
        o.badSetupField = c.field;
        InstrumentModel m(o);
        const auto r = m.handle(c.query);
        ASSERT_EQ(r.size(), 1u);
        if (!c.spoilt)
            EXPECT_EQ(r[0].bytes, healthy.handle(c.query)[0].bytes);
        else if (c.spoilt[0] == ',')
            EXPECT_NE(r[0].bytes.find(c.spoilt), std::string::npos) << r[0].bytes;
        else
            EXPECT_EQ(r[0].bytes, c.spoilt);
    }
}

TEST(InstrumentModelTest, ARecordMustBeRenewedOnlyWhenItsShapeChanges) {
    InstrumentModel m(SmallRecord(100));
    SimState s = m.options().state;
    s.timePerDiv = 5e-3;
    EXPECT_FALSE(m.setState(s));
    s.recordLength = 200;
    EXPECT_TRUE(m.setState(s));
    s.model = "DS-5352";
    EXPECT_TRUE(m.setState(s));
    EXPECT_EQ(m.recordOrder().channels, 2);
    const uint32_t seed = m.recordOrder().seed;
    EXPECT_EQ(m.nextRecordOrder().seed, seed + 1);
    // A wave block of the old, shorter record while the new one is on its way.
    m.handle("DTSTART 0;DTPOINTS 200");
    EXPECT_EQ(m.handle("DTWAVE?")[0].bytes.size(), std::string("#800000100").size() + 100 + 1);
}

}  // namespace
}  // namespace mervasto
