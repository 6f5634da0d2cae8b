#include "ScpiExchange.h"
#include "analysis/Levels.h"
#include "dso/KeysightDriver.h"

// The Keysight InfiniiVision driver against exchanges recorded as the
// programmer's guide gives them.
namespace mervasto::test {
namespace {

const std::string kIdn = "KEYSIGHT TECHNOLOGIES,DSOX1202G,CN00000001,02.12.2021071625\n";
const std::string kNoError = "+0,\"No error\"\n";
// 200,000 points of 1 ns, centre at 1 V; BYTE codes 128 about it.
const std::string kBytePreamble = "+0,+0,+200000,+1,+1.00000000E-09,-1.00000000E-04,+0,+4.00000000E-02,+1.0E+00,+128\n";

// A DSOX1202G with CH1 on and CH2 off, acquiring `type`.
std::vector<Step> SetupSteps(const std::string& type = "NORM", const std::string& points = "200000") {
    return {{":TIM:SCAL?", "+2.0E-05\n"},
            {":TIM:POS?", "+0.0E+00\n"},
            {":ACQ:TYPE?", type + "\n"},
            {":TRIG:EDGE:SOUR?", "CHAN1\n"},
            {":TRIG:EDGE:LEV?", "+1.5E+00\n"},
            {":TRIG:SWE?", "NORM\n"},
            {":ACQ:SRAT?", "+1.0E+09\n"},
            {":ACQ:POIN?", points + "\n"},
            {":CHAN1:DISP?", "1\n"},
            {":CHAN1:SCAL?", "+5.0E-01\n"},
            {":CHAN1:OFFS?", "+1.0E+00\n"},
            {":CHAN1:COUP?", "DC\n"},
            {":CHAN1:BWL?", "1\n"},
            {":CHAN1:INV?", "0\n"},
            {":CHAN2:DISP?", "0\n"},
            {":CHAN2:SCAL?", "+1.0E+00\n"},
            {":CHAN2:OFFS?", "+0.0E+00\n"},
            {":CHAN2:COUP?", "AC\n"},
            {":CHAN2:BWL?", "0\n"},
            {":CHAN2:INV?", "1\n"}};
}

std::vector<Step> ReadSteps(const std::string& format, const std::string& preamble) {
    std::vector<Step> steps = {{":STOP", ""}, {":WAV:POIN:MODE RAW", ""}, {":WAV:FORM " + format, ""}};
    if (format == "WORD") steps.push_back({":WAV:BYT?", "LSBF\n"});
    return Joined(
        {steps, {{":WAV:SOUR CHAN1", ""}, {":WAV:POIN MAX", ""}, {":SYST:ERR?", kNoError}, {":WAV:PRE?", preamble}}});
}

// A definite-length block with the eight length digits the guide shows.
std::string Block8(const std::string& payload) {
    std::string digits = std::to_string(payload.size());
    return "#8" + std::string(8 - digits.size(), '0') + digits + payload + "\n";
}

uint32_t CodeAt(int64_t k, bool words) {
    return words ? static_cast<uint32_t>(k * 7919 % 65536) : static_cast<uint32_t>(k % 256);
}

std::string Codes(int64_t count, bool words, bool lowFirst) {
    std::string bytes;
    for (int64_t k = 0; k < count; ++k) {
        const uint32_t c = CodeAt(k, words);
        if (!words)
            bytes += static_cast<char>(c);
        else if (lowFirst)
            bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
        else
            bytes += {static_cast<char>(c >> 8), static_cast<char>(c & 0xFF)};
    }
    return bytes;
}

class KeysightExchange : public ScpiExchange {
protected:
    void play(const std::vector<Step>& script) {
        ScpiExchange::play({{"*IDN?", kIdn}, {"*CLS", ""}}, KeysightFamily(), script);
    }
    void playScript(const std::vector<Step>& script) override { play(script); }
};

// Bytes for a plain record, words (in the byte order the instrument reports)
// for averaged and high-resolution ones; volts from the preamble, codes for
// the level rules from the volts whatever the width.
TEST_F(KeysightExchange, ByteAndWordRecordsScaledToVoltsAndCodes) {
    struct Case {
        std::string type, format, preamble;
        bool lowFirst;
    };
    const Case cases[] = {
        {"NORM", "BYTE", kBytePreamble, false},
        {"HRES", "WORD", "+1,+3,+200000,+1,+1.0E-09,-1.0E-04,+0,+1.5625E-04,+1.0E+00,+32768\n", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        const bool words = c.format == "WORD";
        play(Joined({SetupSteps(c.type),
                     ReadSteps(c.format, c.preamble),
                     {{":WAV:DATA?", Block8(Codes(200000, words, c.lowFirst))}}}));
        ASSERT_TRUE(fetch());
        EXPECT_TRUE(record->done()) << record->sent.back();
        EXPECT_EQ(setup.Model, "DSOX1202G");
        EXPECT_EQ(setup.ChannelCount, 2);
        EXPECT_EQ(setup.TriggerMode, "NORMAL");
        EXPECT_EQ(setup.offset(0), -1.0f);  // 1 V at the centre: the trace moved down
        EXPECT_EQ(setup.trace(0).BandwidthLimit, "20M");
        EXPECT_EQ(wave.WaveLength, 200000);
        EXPECT_EQ(wave.SampleSec, 1e-9f);
        const double yinc = words ? 1.5625e-4 : 0.04;
        for (int64_t k : {int64_t{0}, int64_t{128}, int64_t{4095}, int64_t{199999}}) {
            const auto i = static_cast<size_t>(k);
            const float volts = static_cast<float>((CodeAt(k, words) - (words ? 32768.0 : 128.0)) * yinc + 1.0);
            EXPECT_FLOAT_EQ(wave.wave[0][i], volts) << k;
            EXPECT_EQ(wave.raw[0][i], RawFromVolts(wave.wave[0][i], 0.5f, -1.0f)) << k;
        }
        EXPECT_TRUE(wave.raw[1].empty());
    }
}

TEST_F(KeysightExchange, RefusalsAndTheErrorQueueAreToldInTheInstrumentsWords) {
    const std::vector<Step> before = SetupSteps();
    expectRefusals({
        {Joined({before,
                 ReadSteps("BYTE", kBytePreamble),
                 {{":WAV:DATA?", Block8("")}, {":SYST:ERR?", "-222,\"Data out of range\"\n"}}}),
         "block for CH1 holds 0 bytes, not the 200000 of its 200000 points; the DSO says -222,\"Data out of range\""},
        {Joined({before,
                 {{":STOP", ""},
                  {":WAV:POIN:MODE RAW", ""},
                  {":WAV:FORM BYTE", ""},
                  {":WAV:SOUR CHAN1", ""},
                  {":WAV:POIN MAX", ""},
                  {":SYST:ERR?", "-113,\"Undefined header\"\n"},
                  {":SYST:ERR?", kNoError}}}),
         "The DSO reports an error after \":WAV:SOUR CHAN1\": -113,\"Undefined header\"; the link was closed."},
        {Joined({before, ReadSteps("BYTE", "+1,+0,+200000,+1,+1.0E-09,0,+0,+0.04,+1.0,+128\n")}),
         "format (field 1 of \":WAV:PRE?\") is not 0 (BYTE)"},
        {Joined({before, ReadSteps("BYTE", "+0,+0,+200000,+1,+1.0E-09,0,+0,+0.04,+1.0\n")}),
         "preamble (\":WAV:PRE?\") has 9 fields, not 10"},
        {Until(SetupSteps("NORM", "8000000"), ":ACQ:POIN?"),
         "acquisition points (\":ACQ:POIN?\") make no record of 10 to 5000011"},
        {{{":TIM:SCAL?", "ERR\n"}}, "time base (\":TIM:SCAL?\") is not a number: \"ERR\""},
    });
}

// Armed with ":SING"; done once the trigger was seen and the run bit dropped,
// a run bit still clear just after arming is not taken as done; anything but
// a number ends the wait.
TEST_F(KeysightExchange, SingleAcquisitionEndsWhenTriggeredAndStopped) {
    const std::vector<std::pair<std::vector<Step>, bool>> cases = {
        {{{":TER?", "+1\n"}, {":OPER:COND?", "+0\n"}}, true},
        {{{":TER?", "+0\n"}, {":TER?", "+1\n"}, {":OPER:COND?", "+8\n"}, {":OPER:COND?", "+0\n"}}, true},
        {{{":TER?", "+0\n"}, {":TER?", "x\n"}}, false},
    };
    for (const auto& [polls, completes] : cases) {
        // The register read clear first: a trigger before the arming is not this one's.
        const std::vector<Step> script = Joined({{{":TER?", "+1\n"}, {":SING", ""}}, polls});
        play(script);
        const Outcome waited = Guarded([&] { EXPECT_FALSE(instrument->acquireSingle()); });
        EXPECT_EQ(waited.ok(), completes) << waited.text();
        EXPECT_TRUE(record->done()) << record->sent.back();
    }
}

TEST(KeysightModelsTest, ChannelsOfTheModelLines) {
    const std::pair<const char*, int> cases[] = {
        {"DSOX1204G", 4}, {"DSOX1102G", 2}, {"EDUX1002A", 2}, {"DSO-X 2004A", 4}, {"MSO-X 3054A", 4},
        {"DSOX3024T", 4}, {"MSOX4104A", 4}, {"DSOX6004A", 0}, {"DSOX1203G", 0},   {"DSO9254A", 0}};
    for (const auto& [model, channels] : cases) EXPECT_EQ(KeysightChannels(model), channels) << model;
}

}  // namespace
}  // namespace mervasto::test
