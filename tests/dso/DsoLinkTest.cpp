#include <QElapsedTimer>

#include "DsoTestSupport.h"
#include "common/RuntimeError.h"
#include "dso/DsoSetupReadout.h"
#include "dso/Vxi11Channel.h"
#include "dso/WaveTransfer.h"

namespace mervasto::test {
namespace {

using Log = std::vector<std::string>;

TEST(DsoAddressTest, HostAndPortFromTheAddressBox) {
    struct Case {
        std::string text, host, port;
        DsoTransport transport = DsoTransport::Socket;
    };
    const std::vector<Case> cases = {
        {"192.168.1.101", "192.168.1.101", "5198"},
        {" 192.168.1.101 ", "192.168.1.101", "5198"},
        {"dso-lab", "dso-lab", "5198"},
        {"127.0.0.1:40001", "127.0.0.1", "40001"},
        {"localhost:5198", "localhost", "5198"},
        {"host:", "host", "5198"},
        {"fe80::1", "fe80::1", "5198"},  // more than one colon is not host:port
        // The other doors name themselves and take no port of the link's.
        {" vxi11://10.0.0.5:111/inst0 ", "vxi11://10.0.0.5:111/inst0", "", DsoTransport::Vxi11},
        {"VXI11://scope", "VXI11://scope", "", DsoTransport::Vxi11},
        {"/dev/usbtmc0", "/dev/usbtmc0", "", DsoTransport::Usbtmc},
    };
    for (const auto& c : cases) {
        const DsoAddress a = ParseDsoAddress(c.text);
        EXPECT_EQ(a.host, c.host) << c.text;
        EXPECT_EQ(a.port, c.port) << c.text;
        EXPECT_EQ(a.transport, c.transport) << c.text;
    }
}

TEST(DsoAddressTest, Vxi11HostPortmapperAndDevice) {
    struct Case {
        std::string text;
        bool ok;
        std::string host = {};
        uint16_t port = 0;
        std::string device = {};
    };
    const std::vector<Case> cases = {
        {"vxi11://10.0.0.5", true, "10.0.0.5", 111, "inst0"},
        {"vxi11://scope.lab:4000/inst1", true, "scope.lab", 4000, "inst1"},
        {"vxi11://scope/", true, "scope", 111, "inst0"},
        {"vxi11://[fe80::1]:112/gpib0,5", true, "fe80::1", 112, "gpib0,5"},
        {"vxi11://", false},
        {"vxi11://host:0", false},
        {"vxi11://host:70000", false},
        {"vxi11://host:", false},
        {"vxi11://[fe80::1", false},
        {"10.0.0.5", false},
    };
    for (const auto& c : cases) {
        Vxi11Address a;
        ASSERT_EQ(ParseVxi11Address(c.text, a), c.ok) << c.text;
        if (!c.ok) continue;
        EXPECT_EQ(a.host, c.host) << c.text;
        EXPECT_EQ(a.portmapPort, c.port) << c.text;
        EXPECT_EQ(a.device, c.device) << c.text;
    }
}

TEST_F(SimTest, IdentifiesBothModels) {
    for (const auto& [model, channels] : std::vector<std::pair<std::string, int>>{{"DS-5352", 2}, {"DS-5354", 4}}) {
        startSim(small(model));
        link.close();
        setup = {};
        ui.statuses.clear();
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        EXPECT_EQ(setup.Model, model);
        EXPECT_EQ(setup.ChannelCount, channels);
        EXPECT_TRUE(link.DsoLinked);
        EXPECT_EQ(ui.statuses, (std::vector<std::pair<int, std::string>>{{1, "Connecting to the DSO."}}));
        EXPECT_EQ(sim->commandLog(), Log{"*IDN?"});
        // Linked: nothing is sent again, and a connected socket is left alone.
        EXPECT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        EXPECT_EQ(link.LinkToSLA("127.0.0.1", std::to_string(sim->port())), kLinkConnected);
        EXPECT_EQ(sim->commandLog(), Log{"*IDN?"});
        EXPECT_EQ(sim->connectionCount(), 1);
        sim->stop();
    }
}

// An identification that names no model the program knows would make every
// later record one of no channels: the link is closed, naming the reply.
TEST_F(SimTest, IdentificationMustNameAModelOfTwoOrFourChannels) {
    startSim();
    for (const std::string reply :
         {"", "MERVASTO SIMULATOR", "X,DS-535,1", "X,DS-5350,1", "X,DS-5353,1", "X,DS-535A"}) {
        SCOPED_TRACE("\"" + reply + "\"");
        sim->setReplyOverride("*IDN?", reply);
        setup = {};
        setup.Model = "kept";
        const Outcome linked = ConnectAndIdentify(link, setup, ui, sim->address());
        EXPECT_EQ(linked.code(), ErrorCode::Link);
        EXPECT_EQ(linked.text(), "The DSO's identification (\"*IDN?\") names no model with 2 or 4 channels: \"" +
                                     reply + "\"; the link was closed.");
        EXPECT_FALSE(LinkBoxOf(linked).has_value());
        EXPECT_FALSE(link.DsoLinked);
        EXPECT_EQ(link.state(), kLinkClosed);
        EXPECT_EQ(setup.Model, "kept");
        EXPECT_EQ(setup.ChannelCount, 0);
    }
}

TEST(DsoModelTest, ChannelCountFromTheSeventhCharacter) {
    EXPECT_EQ(ChannelCountOfModel("DS-5352"), 2);
    EXPECT_EQ(ChannelCountOfModel("DS-5354"), 4);
    EXPECT_EQ(ChannelCountOfModel("DS-535"), 0);
    EXPECT_EQ(ChannelCountOfModel(""), 0);
}

TEST_F(SimTest, RepliesAreJoinedToTheirLineEndAndCut) {
    startSim();
    linkUp();
    struct Case {
        std::string reply;
        bool raw;
        int32_t max;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"1\r\n", true, 256, "1"},   {"no line end", true, 256, "no line end"},  // taken after the quiet time
        {"abcdef", false, 3, "abc"}, {"two\nlines\n", true, 256, "two"},        {"", false, 80, ""},
    };
    for (const auto& c : cases) {
        sim->setReplyOverride("TRMD?", c.reply, c.raw);
        EXPECT_EQ(link.QueryDso("TRMD?", c.max), c.expected) << c.reply;
    }
    // The second line of an earlier reply is not taken as the next answer.
    sim->clearReplyOverrides();
    EXPECT_EQ(link.QueryDso("TRMD?", 80), "SINGLE");

    sim->setFault(SimFault::OneByte);
    EXPECT_EQ(link.QueryDso("*IDN?", 256), "MERVASTO SIMULATOR,DS-5354,0001,1.00");
}

TEST_F(SimTest, ReadsADefiniteLengthBlock) {
    startSim();
    linkUp();
    sim->setReplyOverride("DTWAVE?", std::string("#800000010") + "0123456789" + "\n", true);
    link.SendDsoCommand("DTWAVE?");
    std::vector<uint8_t> data;
    EXPECT_EQ(link.ReadDsoBlock(data), 10);
    ASSERT_EQ(data.size(), 11u);
    EXPECT_EQ(data[0], '0');
    EXPECT_EQ(data[9], '9');
    EXPECT_EQ(data[10], '\n');
    EXPECT_TRUE(link.DsoLinked);
}

TEST_F(SimTest, WaitSingleAcquisitionArmsAndPolls) {
    startSim();
    linkUp();
    EXPECT_FALSE(link.WaitSingleAcquisition());
    const Log log = sim->commandLog();
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(Log(log.begin(), log.begin() + 4), (Log{"*ESE 255", "TESR?", "WSGL", "TESR?"}));
    for (size_t i = 3; i < log.size(); ++i) EXPECT_EQ(log[i], "TESR?");
}

TEST_F(SimTest, StopEndsTheAcquisitionWaitAndKeepsTheLink) {
    startSim();
    linkUp();
    sim->setAcqDelayMs(60000);
    link.StopRequested = true;  // an old request does not count
    sim->setCommandHook([this](const std::string& line) {
        if (line == "WSGL") link.requestStop();  // while the link polls for the acquisition
    });
    QElapsedTimer t;
    t.start();
    EXPECT_TRUE(link.WaitSingleAcquisition());
    EXPECT_LT(t.elapsed(), 5000);
    EXPECT_TRUE(link.StopRequested);
    EXPECT_TRUE(link.DsoLinked);
    // The pass goes on with the record the instrument holds.
    EXPECT_EQ(link.QueryDso("TRMD?", 80), "SINGLE");
}

// Every fault ends a readout and transfer with a message and a closed link;
// the next attempt connects again.
TEST_F(SimTest, FaultsEndCleanlyAndTheNextRunConnectsAgain) {
    struct Case {
        const char* name;
        SimFault fault;
        int replyTimeoutMs;
        int deadlineMs;
        bool fails;
        const char* messagePart;
        std::function<void(DsoSimulator&)> tune = nullptr;
    };
    const std::vector<Case> cases = {
        {"silent", SimFault::Silent, 300, 10000, true, "did not answer"},
        {"late", SimFault::Late, 100, 10000, true, "did not answer", [](DsoSimulator& s) { s.setLateMs(300); }},
        {"a little late", SimFault::Late, 2000, 10000, false, "", [](DsoSimulator& s) { s.setLateMs(15); }},
        {"one byte at a time", SimFault::OneByte, 2000, 10000, false, ""},
        // Never silent for long, so only the deadline ends it.
        {"trickle", SimFault::OneByte, 2000, 500, true, "did not end within 0.5 s",
         [](DsoSimulator& s) { s.setTricklePeriodMs(100); }},
        {"endless reply", SimFault::EndlessReply, 2000, 10000, true, "runs on past 65536 bytes"},
        {"bad time base", SimFault::BadSetup, 2000, 10000, true, "time base (\"TDIV?\") is not a number",
         [](DsoSimulator& s) { s.setBadSetupField("TDIV"); }},
        {"bad offset", SimFault::BadSetup, 2000, 10000, true, "offset of C1",
         [](DsoSimulator& s) { s.setBadSetupField("OFST"); }},
        {"few setup fields", SimFault::BadSetup, 2000, 10000, true, "(\"DTINF?\") has 3 fields",
         [](DsoSimulator& s) { s.setBadSetupField("DTINF"); }},
        {"close mid block", SimFault::CloseMidBlock, 2000, 10000, true, "closed the connection"},
        {"bad header", SimFault::BadHeader, 2000, 10000, true, "not a data block"},
        {"huge block", SimFault::HugeBlock, 2000, 10000, true, "99999999"},
        {"garbage", SimFault::Garbage, 2000, 10000, true, "(\"DTINF?\") has 3 fields"},
        {"short block", SimFault::ShortBlock, 2000, 10000, true, "block for CH1 holds 250 bytes, not the 500"},
        {"long block", SimFault::LongBlock, 2000, 10000, true, "block for CH1 has more bytes than its header"},
        {"no terminator", SimFault::NoTerminator, 2000, 10000, true, "block for CH1 has no line feed"},
    };
    startSim();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        link.setReplyTimeoutMs(2000);
        link.setExchangeDeadlineMs(10000);
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        const int connections = sim->connectionCount();
        if (c.tune) c.tune(*sim);
        sim->setFault(c.fault);
        link.setReplyTimeoutMs(c.replyTimeoutMs);
        link.setExchangeDeadlineMs(c.deadlineMs);
        std::array<std::string, 4> vrate{"1", "1", "1", "1"};
        WaveRecord record;
        WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
        std::string message;
        try {
            const Outcome read = ReadDsoSetup(link, setup, ui, sim->address(), false);
            if (!read) throw RuntimeError(read.code(), read.text());
            TransferDsoChannel(link, 0, ctx, record);
        } catch (const RuntimeError& e) {
            EXPECT_EQ(e.code(), ErrorCode::Link);
            message = e.what();
        }
        if (c.fails) {
            EXPECT_NE(message.find(c.messagePart), std::string::npos) << message;
            EXPECT_FALSE(link.DsoLinked);
            EXPECT_EQ(link.state(), kLinkClosed);
            EXPECT_TRUE(record.wave[0].empty());  // nothing made up
        } else {
            EXPECT_EQ(message, "");
            EXPECT_EQ(record.wave[0].size(), 500u);
        }
        sim->setFault(SimFault::None);
        sim->setTricklePeriodMs(0);
        link.setReplyTimeoutMs(2000);
        link.setExchangeDeadlineMs(10000);
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        EXPECT_EQ(sim->connectionCount(), connections + (c.fails ? 1 : 0));
        EXPECT_EQ(link.QueryDso("TRMD?", 80), "SINGLE");
    }
    EXPECT_TRUE(ui.boxes.empty());
}

// The acquisition wait pauses between its status polls: a few hundred a
// second at most, where back-to-back polling makes thousands.
TEST_F(SimTest, AcquisitionWaitPausesBetweenPolls) {
    startSim();
    linkUp();
    sim->setAcqDelayMs(300);
    QElapsedTimer t;
    t.start();
    EXPECT_FALSE(link.WaitSingleAcquisition());
    const int64_t elapsedMs = t.elapsed();
    const int polls = sim->statusPolls();
    RecordProperty("polls_per_second", static_cast<int>(polls * 1000 / std::max<int64_t>(elapsedMs, 1)));
    EXPECT_GE(polls, 3);
    EXPECT_LE(polls, elapsedMs / kStatusPollPauseMs + 2) << polls << " polls in " << elapsedMs << " ms";
}

TEST_F(SimTest, RefusedConnectionIsTheConnectOutcomeAndTheNextAttemptConnects) {
    startSim();
    sim->setFault(SimFault::Refuse);
    const Outcome linked = ConnectAndIdentify(link, setup, ui, sim->address());
    EXPECT_EQ(linked.code(), ErrorCode::Link);
    EXPECT_EQ(linked.text(), "DSO not connected normally.");
    ASSERT_TRUE(LinkBoxOf(linked).has_value());
    EXPECT_EQ(LinkBoxOf(linked)->buttons, MsgButtons::CancelTryContinue);
    EXPECT_STREQ(LinkBoxOf(linked)->title, "Confirmation");
    EXPECT_TRUE(ui.boxes.empty());  // the window shows it
    EXPECT_FALSE(link.DsoLinked);
    EXPECT_EQ(link.state(), kLinkError);

    sim->setFault(SimFault::None);
    EXPECT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
    EXPECT_EQ(setup.ChannelCount, 4);
}

// Stop lets the exchange in progress finish; a second Stop, or the first on
// an instrument silent for kStopSilenceMs, ends it at once with Canceled, so
// that the run can tell it from an instrument fault.
TEST_F(SimTest, StopLetsTheExchangeFinishUnlessRepeated) {
    startSim();
    linkUp();
    sim->setCommandHook([this](const std::string& line) {
        if (line == "TDIV?") link.requestStop();
    });
    EXPECT_EQ(link.QueryDso("TDIV?", 80), "1.0000E-03");
    EXPECT_TRUE(link.StopRequested);
    EXPECT_TRUE(link.DsoLinked);
    EXPECT_EQ(link.QueryDso("TRMD?", 80), "SINGLE");  // the link goes on after the first Stop
    sim->setCommandHook(nullptr);

    // The second Stop arrives while the block is awaited from a silent instrument.
    std::array<std::string, 4> vrate{"1", "1", "1", "1"};
    WaveRecord record;
    ASSERT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
    sim->setCommandHook([this](const std::string& line) {
        if (line == "DTWAVE?") {
            sim->setFault(SimFault::Silent);
            link.requestStop();
        }
    });
    WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
    try {
        TransferDsoChannel(link, 0, ctx, record);
        ADD_FAILURE() << "the second Stop did not end the exchange";
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.code(), ErrorCode::Canceled) << e.what();
        EXPECT_EQ(std::string(e.what()).find("silent"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(link.DsoLinked);
    EXPECT_EQ(link.state(), kLinkClosed);
    sim->setCommandHook(nullptr);
    sim->setFault(SimFault::None);

    // One Stop on a silent instrument: ended after the silence, not the time-out.
    link.clearStop();
    ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
    const auto [code, text] = silentQueryEndedBy([this] { link.requestStop(); });
    EXPECT_EQ(code, ErrorCode::Canceled) << text;
    EXPECT_NE(text.find("silent for 2 s"), std::string::npos) << text;
    EXPECT_FALSE(link.DsoLinked);
}

TEST_F(SimTest, ClosingTheProgramEndsAnyExchange) {
    startSim();
    ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
    EXPECT_EQ(silentQueryEndedBy([this] { link.abort(); }).first, ErrorCode::Link);
    EXPECT_FALSE(link.DsoLinked);
    EXPECT_EQ(link.state(), kLinkClosed);
    // A closing program opens nothing more.
    EXPECT_THROW(link.LinkToSLA("127.0.0.1", std::to_string(sim->port())), RuntimeError);
}

// Over VXI-11 and USBTMC the calls block in a worker: a second Stop and
// closing the program still end a wait on a silent instrument that has no
// time-out at once, and the next run links again.
class DoorTest : public SimTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(DoorTest, StopAndClosingEndAWaitOnASilentInstrument) {
    SimOptions o = small();
    o.transport = GetParam();
    startSim(o);
    linkUp();
    const auto [code, text] = silentQueryEndedBy([this] {
        link.requestStop();
        link.requestStop();
    });
    EXPECT_EQ(code, ErrorCode::Canceled) << text;
    EXPECT_FALSE(link.DsoLinked);
    EXPECT_EQ(link.state(), kLinkClosed);

    sim->setFault(SimFault::None);
    sim->setCommandHook(nullptr);
    link.clearStop();
    link.setReplyTimeoutMs(2000);
    ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
    EXPECT_EQ(link.peer(), sim->address());
    EXPECT_EQ(silentQueryEndedBy([this] { link.abort(); }).first, ErrorCode::Link);
    EXPECT_EQ(link.state(), kLinkClosed);
}

INSTANTIATE_TEST_SUITE_P(Transports, DoorTest, ::testing::Values("vxi11", "usbtmc"));

}  // namespace
}  // namespace mervasto::test
