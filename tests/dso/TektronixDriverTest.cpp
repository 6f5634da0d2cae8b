#include <algorithm>
#include <memory>

#include "ScpiExchange.h"
#include "analysis/Levels.h"
#include "dso/ScpiSupport.h"
#include "dso/TektronixDriver.h"

// The Tektronix driver against exchanges recorded as the programmer manual
// gives them: what it sends, in order, and what it makes of the replies.
namespace mervasto::test {
namespace {

const std::string kIdn = "TEKTRONIX,MSO22,C000001,CF:91.1CT FV:2.4.1.262\n";

// A block as these instruments send it: "#", the count of length digits, the length.
std::string TekBlock(const std::string& payload) {
    const std::string n = std::to_string(payload.size());
    return "#" + std::to_string(n.size()) + n + payload + "\n";
}

// The setup of an MSO22 with CH1 on (0.5 V/div, 1 V offset, 2 divisions
// down: the screen's centre at 2 V) and CH2 switched off.
std::vector<Step> SetupSteps(const std::string& mode = "SAMPLE", const std::string& length = "1000",
                             const std::string& ch1On = "1") {
    return {{"HORizontal:SCAle?", "1.0000E-04\n"},
            {"HORizontal:DELay:TIMe?", "0.0E+0\n"},
            {"ACQuire:MODe?", mode + "\n"},
            {"TRIGger:A:EDGE:SOUrce?", "CH1\n"},
            {"TRIGger:A:LEVel:CH1?", "1.5000E+00\n"},
            {"TRIGger:A:MODe?", "NORMAL\n"},
            {"HORizontal:RECOrdlength?", length + "\n"},
            {"HORizontal:SAMPLERate?", "1.0000E+06\n"},
            {"DISplay:GLObal:CH1:STATE?", ch1On + "\n"},
            {"CH1:SCAle?", "5.0000E-01\n"},
            {"CH1:OFFSet?", "1.0000E+00\n"},
            {"CH1:POSition?", "-2.0000E+00\n"},
            {"CH1:COUPling?", "DC\n"},
            {"CH1:BANdwidth?", "2.0000E+07\n"},
            {"CH1:INVert?", "0\n"},
            {"DISplay:GLObal:CH2:STATE?", "0\n"},
            {"CH2:SCAle?", "1.0000E+00\n"},
            {"CH2:OFFSet?", "0.0E+0\n"},
            {"CH2:POSition?", "0.0E+0\n"},
            {"CH2:COUPling?", "AC\n"},
            {"CH2:BANdwidth?", "5.0000E+08\n"},
            {"CH2:INVert?", "1\n"}};
}

std::vector<Step> ReadSteps(const std::string& preamble, int width = 1) {
    return {{"ACQuire:STATE STOP", ""},
            {"DATa:ENCdg RIBinary", ""},
            {"WFMOutpre:BYT_Nr " + std::to_string(width), ""},
            {"DATa:STARt 1", ""},
            {"DATa:STOP 1000", ""},
            {"DATa:SOUrce CH1", ""},
            {"*ESR?", "0\n"},
            {kTektronixPreambleQuery, preamble}};
}

int CodeAt(int64_t k, int width) { return static_cast<int>((k % 201) - 100) * (width == 2 ? 300 : 1); }

std::string Codes(int width) {
    std::string bytes;
    for (int64_t k = 0; k < 1000; ++k) {
        const auto c = static_cast<uint16_t>(CodeAt(k, width));
        if (width == 2) bytes += static_cast<char>(c >> 8);
        bytes += static_cast<char>(c & 0xFF);
    }
    return bytes;
}

class TektronixExchange : public ScpiExchange {
protected:
    void play(const std::vector<Step>& script) {
        ScpiExchange::play({{"*IDN?", kIdn}, {"HEADer 0", ""}, {"VERBose 1", ""}, {"*CLS", ""}}, TektronixFamily(),
                           script);
    }
    void playScript(const std::vector<Step>& script) override { play(script); }
};

// 8-bit sample data and 16-bit high-resolution data: the whole record of the
// one channel shown, volts from the preamble, codes for the level rules from
// the screen the setup describes.
TEST_F(TektronixExchange, TheWholeRecordIn8And16BitsScaledToVoltsAndCodes) {
    struct Case {
        std::string mode;
        int width;
        std::string preamble;
        double ymult;
    };
    const Case cases[] = {
        {"SAMPLE", 1, "1;MSB;RI;1000;1.0000E-06;-5.0000E-04;2.0000E-02;-50;1.0000E+00\n", 0.02},
        {"HIRES", 2, "2;MSB;RI;1000;1.0000E-06;-5.0000E-04;7.8125E-05;-1.28E+04;1.0000E+00\n", 7.8125e-5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        play(Joined({SetupSteps(c.mode), ReadSteps(c.preamble, c.width), {{"CURVe?", TekBlock(Codes(c.width))}}}));
        ASSERT_TRUE(fetch());
        EXPECT_TRUE(record->done()) << record->sent.back();
        EXPECT_EQ(setup.Model, "MSO22");
        EXPECT_EQ(setup.ChannelCount, 2);
        EXPECT_EQ(setup.AcqMode, c.width == 1 ? "NORMAL" : "HIGH_RES");
        EXPECT_EQ(setup.offset(0), -2.0f);  // the screen's centre at OFFSet - POSition x SCAle = 2 V
        EXPECT_EQ(setup.traceOn(1), "OFF");
        EXPECT_TRUE(setup.inverted(1));
        EXPECT_EQ(vrate[0], "1.0");
        EXPECT_EQ(wave.WaveLength, 1000);
        EXPECT_EQ(wave.SampleSec, 1e-6f);
        for (int64_t k : {0, 100, 200, 999}) {
            const auto i = static_cast<size_t>(k);
            const double yoff = c.width == 1 ? -50 : -12800;
            const float volts = static_cast<float>((CodeAt(k, c.width) - yoff) * c.ymult + 1.0);
            EXPECT_FLOAT_EQ(wave.wave[0][i], volts) << k;
            EXPECT_EQ(wave.raw[0][i], RawFromVolts(wave.wave[0][i], 0.5f, -2.0f)) << k;
        }
        EXPECT_TRUE(wave.raw[1].empty());
        EXPECT_EQ(ui.progressCalls.back(), (std::pair<int64_t, int64_t>{0, 0}));
    }
}

// Either byte order, one or two bytes, the extremes of the signed codes.
TEST(TektronixVoltsTest, ByteOrdersAndWidths) {
    struct Case {
        int bytes;
        bool msbFirst;
        std::vector<uint8_t> data;
        std::vector<float> volts;  // YMUlt 0.5, YOFf 2, YZEro 10
    };
    const Case cases[] = {
        {1, true, {0x00, 0x7F, 0x80, 0xFF}, {9.0f, 72.5f, -55.0f, 8.5f}},
        {2, true, {0x01, 0x00, 0x7F, 0xFF, 0x80, 0x00}, {137.0f, 16392.5f, -16375.0f}},
        {2, false, {0x00, 0x01, 0xFF, 0x7F, 0x00, 0x80}, {137.0f, 16392.5f, -16375.0f}},
    };
    for (const Case& c : cases) {
        TektronixPreamble p;
        p.bytes = c.bytes;
        p.msbFirst = c.msbFirst;
        p.ymult = 0.5;
        p.yoff = 2;
        p.yzero = 10;
        std::vector<float> out(c.volts.size());
        TektronixVolts(c.data, p, out);
        EXPECT_EQ(out, c.volts) << c.bytes << c.msbFirst;
    }
}

TEST(TektronixPreambleTest, FieldsAndWhatIsRefused) {
    struct Case {
        std::string reply;
        std::string problem;  // empty: taken
    };
    const Case cases[] = {
        {"1;MSB;RI;1000;1.0000E-06;-5.0000E-04;2.0000E-02;-50;1.0000E+00", ""},
        {"2;LSB;RI;10;1.0E-9;0;7.8125E-05;0;0", ""},
        {"1;MSB;RI;1000;1.0000E-06;-5.0000E-04;2.0000E-02;-50", "has 8 fields, not 9"},
        {"4;MSB;RI;1000;1.0E-6;0;0.02;0;0", "bytes per point (field 1 of the preamble) is not 1 or 2"},
        {"1;BIG;RI;1000;1.0E-6;0;0.02;0;0", "byte order (field 2 of the preamble) is not MSB or LSB"},
        {"1;MSB;RP;1000;1.0E-6;0;0.02;128;0", "binary format (field 3 of the preamble) is not RI"},
        {"1;MSB;RI;12000000;1.0E-6;0;0.02;0;0", "points (field 4 of the preamble) is not a whole number from 10"},
        {"1;MSB;RI;1000;0;0;0.02;0;0", "x increment (field 5 of the preamble) is not a sample interval"},
        {"1;MSB;RI;1000;1.0E-6;0;1.0E-40;0;0", "y multiplier (field 7 of the preamble) is not a volts per code"},
        {"1;MSB;RI;1000;1.0E-6;ERR;0.02;0;0", "x zero (field 6 of the preamble) is not a number"},
    };
    for (const Case& c : cases) {
        std::string problem;
        const auto p = ParseTektronixPreamble(c.reply, problem);
        EXPECT_EQ(p.has_value(), c.problem.empty()) << c.reply << ": " << problem;
        if (!c.problem.empty()) {
            EXPECT_NE(problem.find(c.problem), std::string::npos) << problem;
        }
    }
    std::string problem;
    const auto p = ParseTektronixPreamble("2;LSB;RI;10;1.0E-9;-2.5E-9;7.8125E-05;3;-1.5\n", problem);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->bytes, 2);
    EXPECT_FALSE(p->msbFirst);
    EXPECT_EQ(p->xzero, -2.5e-9);
    EXPECT_EQ(p->yoff, 3);
    EXPECT_EQ(p->yzero, -1.5);
}

// What the instrument refuses or reports ends the fetch with its own words,
// the link closed.
TEST_F(TektronixExchange, RefusalsAndTheEventQueueAreToldInTheInstrumentsWords) {
    const std::string preamble = "1;MSB;RI;1000;1.0000E-06;-5.0000E-04;2.0000E-02;-50;1.0000E+00\n";
    const std::vector<Step> toSource = Until(ReadSteps(preamble), "DATa:SOUrce CH1");
    expectRefusals({
        {Joined({SetupSteps(),
                 ReadSteps(preamble),
                 {{"CURVe?", TekBlock("")}, {"*ESR?", "16\n"}, {"ALLEv?", "222,\"Data out of range\"\n"}}}),
         "curve of CH1 holds 0 bytes, not the 1000 of its 1000 points; the DSO says 222,\"Data out of range\""},
        {Joined({SetupSteps(),
                 toSource,
                 {{"*ESR?", "32\n"}, {"ALLEv?", "113,\"Undefined header; Command not found: DATA:SOURCE\"\n"}}}),
         "The DSO reports an error after \"DATa:SOUrce CH1\": 113,\"Undefined header; Command not found: "
         "DATA:SOURCE\"; the link was closed."},
        {Joined({SetupSteps(), toSource, {{"*ESR?", "ERR\n"}}}),
         "event status (\"*ESR?\") replied \"ERR\", which is no number from 0 to 255"},
        {Joined({SetupSteps(), ReadSteps("1;MSB;RP;1000;1E-6;0;0.02;0;0\n")}),
         "binary format (field 3 of the preamble) is not RI"},
        {Until(SetupSteps("SAMPLE", "12000000"), "HORizontal:RECOrdlength?"),
         "record length (\"HORizontal:RECOrdlength?\") makes no record of 10 to 5000011"},
        {{{"HORizontal:SCAle?", "ERR\n"}}, "time base (\"HORizontal:SCAle?\") is not a number: \"ERR\""},
    });
    play(SetupSteps("SAMPLE", "1000", "0"));
    EXPECT_EQ(fetch().text(), kEveryChannelOff);
    EXPECT_TRUE(instrument->linked());
}

// A single sequence: armed, then polled until the acquisition state reads 0;
// anything but 0 and 1 ends the wait instead of polling for ever.
TEST_F(TektronixExchange, SingleSequenceEndsWhenTheStateReadsZero) {
    struct Case {
        std::vector<std::string> states;
        bool fails;
    };
    const Case cases[] = {{{"0"}, false}, {{"1", "1", "0"}, false}, {{"1", "RUN"}, true}};
    for (const Case& c : cases) {
        std::vector<Step> script = {{"ACQuire:STOPAfter SEQuence", ""}, {"ACQuire:STATE RUN", ""}};
        for (const auto& s : c.states) script.push_back({"ACQuire:STATE?", s + "\n"});
        const Outcome waited = waitOver(script);
        EXPECT_EQ(waited.ok(), !c.fails) << waited.text();
        EXPECT_EQ(waited.text().find("neither 0 nor 1") != std::string::npos, c.fails);
    }
}

TEST(TektronixModelsTest, TheModelNamesTheChannels) {
    const std::pair<const char*, int> cases[] = {
        {"MSO44", 4},   {"MSO46", 6},   {"mso24", 4},   {"MSO22", 2},   {"MDO34", 4},    {"MDO32", 2},
        {"MSO58LP", 8}, {"MSO64B", 4},  {"TBS2104", 4}, {"TBS2072", 2}, {"TBS2204B", 4}, {"TBS2103", 0},
        {"MDO44", 0},   {"MSO2024", 0}, {"MSO4104", 0}, {"MSO74", 0},   {"MSO4", 0},     {"TDS2012", 0},
    };
    for (const auto& [model, channels] : cases) EXPECT_EQ(TektronixChannels(model), channels) << model;
}

}  // namespace
}  // namespace mervasto::test
