#include <cstring>

#include "DsoTestSupport.h"
#include "common/RuntimeError.h"
#include "dso/DsoSetupReadout.h"
#include "dso/WaveTransfer.h"

namespace mervasto::test {
namespace {

using Log = std::vector<std::string>;

class TransferTest : public SimTest {
protected:
    void begin(SimOptions o) {
        startSim(std::move(o));
        linkUp();
        ASSERT_TRUE(ReadDsoSetup(link, setup, ui, sim->address(), false));
        sim->clearLog();
    }
    WaveTransferResult transfer(int ch, const std::string& ch4Type = "Period") {
        WaveTransferContext ctx{setup, record, vrate, ch4Type, nullptr};
        return TransferDsoChannel(link, ch, ctx, record);
    }
    WaveRecord record;
    std::array<std::string, 4> vrate{"1", "1", "1", "1"};
};

// What the host must make of the instrument's samples.
float ExpectedVolts(float v, const SimChannel& c, bool word, bool negate) {
    int32_t counts = SimCounts(v, c.voltsPerDiv, c.offset, word);
    if (negate) counts = -counts;
    const float scale = static_cast<float>(c.voltsPerDiv) / (word ? 8192.0f : 32.0f);
    return static_cast<float>(static_cast<float>(counts) * static_cast<double>(scale) - static_cast<float>(c.offset));
}

TEST_F(TransferTest, ByteAndWordFormatsWithInversion) {
    struct Case {
        std::string acqMode;
        bool word;
        bool inverted;
    };
    const std::vector<Case> cases = {
        {"NORMAL", false, false}, {"AVERAGE", true, false}, {"HIGH_RES", true, true}, {"PEAK", false, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.acqMode);
        SimOptions o = small("DS-5354", 500);
        o.state.acqMode = c.acqMode;
        o.state.ch[1].voltsPerDiv = 2.0;
        o.state.ch[1].offset = -1.5;
        o.state.ch[1].inverted = c.inverted ? "ON" : "OFF";
        begin(o);
        const WaveTransferResult r = transfer(1);
        EXPECT_EQ(r.points, 500 * (c.word ? 2 : 1));
        const Log expectedLog =
            c.word ? Log{"DTBORD H/L", "DTFORM WORD", "DTPOINTS 500", "DTSTART 0", "WAVESRC CH2", "DTWAVE?"}
                   : Log{"DTFORM BYTE", "DTPOINTS 500", "DTSTART 0", "WAVESRC CH2", "DTWAVE?"};
        EXPECT_EQ(sim->commandLog(), expectedLog);

        const auto truth = sim->record()[1];
        ASSERT_EQ(record.wave[1].size(), 500u);
        ASSERT_EQ(record.raw[1].size(), 500u);
        float lo = 1e9f, hi = -1e9f;
        for (size_t i = 0; i < 500; ++i) {
            int32_t counts = SimCounts(truth[i], 2.0, -1.5, c.word);
            if (c.inverted) counts = -counts;
            ASSERT_EQ(record.raw[1][i], c.word ? counts : counts * 256) << i;
            ASSERT_EQ(record.wave[1][i], ExpectedVolts(truth[i], o.state.ch[1], c.word, c.inverted)) << i;
            lo = std::min(lo, record.wave[1][i]);
            hi = std::max(hi, record.wave[1][i]);
        }
        EXPECT_EQ(r.maxValue, hi);
        EXPECT_EQ(r.minValue, lo);
        link.close();
        sim->stop();
    }
}

TEST_F(TransferTest, MathIsNeverInverted) {
    begin(small());
    std::vector<float> volts;
    std::vector<int16_t> raw;
    WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
    TransferDsoChannel(link, 4, ctx, volts, raw, 0.0f, 1.0f, true);
    EXPECT_EQ(sim->commandLog()[3], "WAVESRC MATH");
    const auto truth = sim->record();
    SimChannel unit;
    for (size_t i = 0; i < 500; ++i) ASSERT_EQ(volts[i], ExpectedVolts(truth[0][i] - truth[1][i], unit, false, false));
}

TEST_F(TransferTest, ShortRangeFillsTheRestWithTheOffset) {
    SimOptions o = small();
    o.state.ch[0].offset = 0.5;
    o.state.ch[0].voltsPerDiv = 1.0;
    begin(o);
    record.wave[0].assign(500, 99.0f);
    record.raw[0].assign(500, 99);
    record.TransferStart = 100;
    record.TransferEnd = 199;
    transfer(0);
    EXPECT_EQ(sim->commandLog(), (Log{"DTFORM BYTE", "DTPOINTS 100", "DTSTART 100", "WAVESRC CH1", "DTWAVE?"}));
    const auto truth = sim->record()[0];
    for (size_t i = 0; i < 100; ++i) ASSERT_EQ(record.wave[0][i], 99.0f) << i;  // before the range: untouched
    for (size_t i = 100; i < 200; ++i)
        ASSERT_EQ(record.wave[0][i], ExpectedVolts(truth[i], o.state.ch[0], false, false)) << i;
    // The fill: offset / (vdiv / 32) = 16 counts, not scaled by 256, and 0 V.
    for (size_t i = 200; i < 500; ++i) {
        ASSERT_EQ(record.raw[0][i], 16) << i;
        ASSERT_EQ(record.wave[0][i], 0.0f) << i;
    }
}

TEST_F(TransferTest, RangeRules) {
    struct Case {
        int32_t start, end;
        int ch;
        std::string ch4Type;
        std::string points, first;
    };
    const std::vector<Case> cases = {
        {-1, -1, 0, "Period", "DTPOINTS 500", "DTSTART 0"},    // never set: the whole record
        {-1, 300, 0, "Period", "DTPOINTS 291", "DTSTART 10"},  // a negative start begins at 10
        {50, 20, 0, "Period", "DTPOINTS 2", "DTSTART 50"},     // end before start: two samples
        {100, 199, 3, "Gate", "DTPOINTS 500", "DTSTART 0"},    // the gate is always whole
        {100, 199, 3, "Period", "DTPOINTS 100", "DTSTART 100"}, {100, 199, 2, "Gate", "DTPOINTS 100", "DTSTART 100"},
    };
    begin(small());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + ".." + std::to_string(c.end) + " ch" + std::to_string(c.ch + 1));
        record.TransferStart = c.start;
        record.TransferEnd = c.end;
        sim->clearLog();
        transfer(c.ch, c.ch4Type);
        const Log log = sim->commandLog();
        ASSERT_EQ(log.size(), 5u);
        EXPECT_EQ(log[1], c.points);
        EXPECT_EQ(log[2], c.first);
    }
}

TEST_F(TransferTest, ShortRecordLengthIsRaisedToTen) {
    begin(small());
    setup.RecordLength = 5;
    transfer(0);
    EXPECT_EQ(setup.RecordLength, 10);
    EXPECT_EQ(sim->commandLog()[1], "DTPOINTS 10");
    EXPECT_EQ(record.wave[0].size(), 10u);
}

TEST_F(TransferTest, EdgeSamples) {
    struct Case {
        std::string acqMode;
        std::string payload;
        float vdiv;
        bool inverted;
        int16_t raw;
        float volts;
    };
    const std::vector<Case> cases = {
        {"NORMAL", "\xFF", 1.0f, false, -256, -0.03125f},
        {"NORMAL", "\x7F", 1.0f, true, -127 * 256, -127 / 32.0f},
        {"NORMAL", "\x80", 1.0f, false, -32768, -4.0f},
        {"AVERAGE", std::string("\x80\x00", 2), 2.0f, false, -32768, -8.0f},
        {"AVERAGE", std::string("\x7F\xFF", 2), 1.0f, true, -32767, -32767 / 8192.0f},
        {"HIGH_RES", std::string("\x00\x01", 2), 1.0f, false, 1, 1 / 8192.0f},
        // A clipped sample inverted is the largest positive count.
        {"NORMAL", "\x80", 1.0f, true, 127 * 256, 127 / 32.0f},
        {"AVERAGE", std::string("\x80\x00", 2), 1.0f, true, 32767, 32767 / 8192.0f},
    };
    begin(small());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.acqMode);
        setup.AcqMode = c.acqMode;
        setup.RecordLength = 10;
        record.TransferStart = 0;
        record.TransferEnd = 0;
        char header[16];
        std::snprintf(header, sizeof header, "#8%08zu", c.payload.size());
        sim->setReplyOverride("DTWAVE?", header + c.payload + "\n", true);
        std::vector<float> volts;
        std::vector<int16_t> raw;
        WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
        TransferDsoChannel(link, 0, ctx, volts, raw, 0.0f, c.vdiv, c.inverted);
        EXPECT_EQ(raw[0], c.raw);
        EXPECT_EQ(volts[0], c.volts);
        EXPECT_EQ(raw[9], 0);  // the fill of a zero offset
    }
}

// A block must be exactly what was asked for: anything else ends the transfer
// naming the channel, closes the link and leaves the record as it was.
TEST_F(TransferTest, BlocksOtherThanAskedForAreRefused) {
    struct Case {
        const char* name;
        std::string reply;  // for 10 points in byte format
        const char* message;
    };
    const std::string ten = "0123456789";
    const std::vector<Case> cases = {
        {"short", "#800000005" + ten.substr(0, 5) + "\n", "holds 5 bytes, not the 10 asked for"},
        {"long", "#800000020" + ten + ten + "\n", "holds 20 bytes, not the 10 asked for"},
        {"more than declared", "#800000010" + ten + "XY\n", "more bytes than its header declares"},
        {"bytes after the LF", "#800000010" + ten + "\nXY", "more bytes than its header declares"},
        {"no line feed", "#800000010" + ten, "no line feed"},
    };
    begin(small());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        setup.AcqMode = "NORMAL";
        setup.RecordLength = 10;
        record.TransferStart = 0;
        record.TransferEnd = 9;
        sim->setReplyOverride("DTWAVE?", c.reply, true);
        std::vector<float> volts(10, 99.0f);
        std::vector<int16_t> raw(10, 99);
        WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
        try {
            TransferDsoChannel(link, 1, ctx, volts, raw, 0.0f, 1.0f, false);
            ADD_FAILURE() << "taken";
        } catch (const RuntimeError& e) {
            EXPECT_EQ(e.code(), ErrorCode::Link);
            EXPECT_NE(std::string(e.what()).find("block for CH2"), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
        EXPECT_FALSE(link.DsoLinked);
        EXPECT_EQ(link.state(), kLinkClosed);
        EXPECT_EQ(volts, std::vector<float>(10, 99.0f));
        EXPECT_EQ(raw, std::vector<int16_t>(10, 99));
    }
}

TEST_F(TransferTest, EmptyScaleTextsBecomeOne) {
    begin(small());
    vrate = {"", " ", "2.5", ""};
    for (int ch = 0; ch < 3; ++ch) transfer(ch);
    EXPECT_EQ(vrate, (std::array<std::string, 4>{"1.0", "1.0", "2.5", ""}));
}

TEST_F(TransferTest, LongBlockReportsProgress) {
    begin(small("DS-5354", 600'000));
    WaveTransferContext ctx{setup, record, vrate, "Period", &ui};
    TransferDsoChannel(link, 0, ctx, record);
    ASSERT_GE(ui.progressCalls.size(), 2u);
    EXPECT_EQ(ui.progressCalls.back(), (std::pair<int64_t, int64_t>{0, 0}));
    EXPECT_EQ(record.wave[0].size(), 600'000u);
}

}  // namespace
}  // namespace mervasto::test
