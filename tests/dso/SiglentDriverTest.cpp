#include <algorithm>

#include "ScpiExchange.h"
#include "analysis/Levels.h"
#include "dso/SiglentDriver.h"

// The Siglent SDS1000X-E / SDS2000X driver against exchanges recorded as the
// programming guide gives them.
namespace mervasto::test {
namespace {

const std::string kIdn = "Siglent Technologies,SDS1202X-E,SDS1ECDQ2R0001,8.1.6.1.37R2\n";

// A SDS1202X-E with CH1 on and CH2 off; some replies keep their units, as
// some firmware sends them even with the headers off.
std::vector<Step> SetupSteps(const std::string& points = "1.50E+06pts", const std::string& ch1On = "ON") {
    return {{"TDIV?", "1.00E-03\n"},     {"TRDL?", "0.00E+00S\n"},
            {"ACQW?", "SAMPLING\n"},     {"TRSE?", "EDGE,SR,C1,HT,OFF\n"},
            {"C1:TRLV?", "1.50E+00V\n"}, {"TRMD?", "SINGLE\n"},
            {"SARA?", "1.00E+08Sa/s\n"}, {"SANU? C1", points + "\n"},
            {"BWL?", "C1,ON,C2,OFF\n"},  {"C1:TRA?", ch1On + "\n"},
            {"C1:VDIV?", "5.00E-01V\n"}, {"C1:OFST?", "-1.00E+00V\n"},
            {"C1:CPL?", "D1M\n"},        {"C1:INVS?", "OFF\n"},
            {"C2:TRA?", "OFF\n"},        {"C2:VDIV?", "1.00E+00\n"},
            {"C2:OFST?", "0.00E+00\n"},  {"C2:CPL?", "A1M\n"},
            {"C2:INVS?", "ON\n"}};
}

const std::vector<Step> kReadSteps = {{"STOP", ""}, {"C1:VDIV?", "5.00E-01\n"}, {"C1:OFST?", "-1.00E+00\n"}};
const std::vector<Step> kFirstBatch = {{"WFSU SP,0,NP,1000000,FP,0", ""}, {"CMR?", "0\n"}, {"EXR?", "0\n"}};

int8_t CodeAt(int64_t k) { return static_cast<int8_t>(k % 251 - 125); }

std::string Codes(int64_t first, int64_t count) {
    std::string bytes(static_cast<size_t>(count), '\0');
    for (int64_t k = 0; k < count; ++k) bytes[static_cast<size_t>(k)] = static_cast<char>(CodeAt(first + k));
    return bytes;
}

class SiglentExchange : public ScpiExchange {
protected:
    void play(const std::vector<Step>& script) {
        ScpiExchange::play({{"*IDN?", kIdn}, {"CHDR OFF", ""}, {"*CLS", ""}}, SiglentFamily(), script);
    }
    void playScript(const std::vector<Step>& script) override { play(script); }
};

// Batches of a million points, each block named before its "#9" and ended
// by two line feeds; signed codes, 25 a division below the offset.
TEST_F(SiglentExchange, TheWholeRecordInBatchesScaledToVoltsAndCodes) {
    play(Joined({SetupSteps(),
                 kReadSteps,
                 kFirstBatch,
                 {{"C1:WF? DAT2", "DAT2," + Block9(Codes(0, 1000000)) + "\n"},
                  {"WFSU SP,0,NP,500000,FP,1000000", ""},
                  {"C1:WF? DAT2", "C1:WF DAT2," + Block9(Codes(1000000, 500000)) + "\n"}}}));
    ASSERT_TRUE(fetch());
    EXPECT_TRUE(record->done()) << record->sent.back();
    EXPECT_EQ(setup.Model, "SDS1202X-E");
    EXPECT_EQ(setup.ChannelCount, 2);
    EXPECT_EQ(setup.AcqMode, "NORMAL");
    EXPECT_EQ(setup.TriggerSource, "CH1");
    EXPECT_EQ(setup.TriggerLevel, 1.5f);
    EXPECT_EQ(setup.trace(0).Coupling, "DC1M");
    EXPECT_EQ(setup.trace(0).BandwidthLimit, "20M");
    EXPECT_EQ(setup.trace(1).Coupling, "AC1M");
    EXPECT_TRUE(setup.inverted(1));
    EXPECT_EQ(wave.WaveLength, 1500000);
    EXPECT_EQ(wave.SampleSec, 1e-8f);
    for (int64_t k : {int64_t{0}, int64_t{125}, int64_t{999999}, int64_t{1000000}, int64_t{1499999}}) {
        const auto i = static_cast<size_t>(k);
        const float volts = static_cast<float>(CodeAt(k) * 0.02 + 1.0);
        EXPECT_FLOAT_EQ(wave.wave[0][i], volts) << k;
        EXPECT_EQ(wave.raw[0][i], RawFromVolts(wave.wave[0][i], 0.5f, -1.0f)) << k;
    }
    EXPECT_TRUE(wave.raw[1].empty());
    EXPECT_EQ(ui.progressCalls[ui.progressCalls.size() - 2], (std::pair<int64_t, int64_t>{1500001, 1500000}));
}

TEST_F(SiglentExchange, RefusalsAndTheErrorRegistersAreToldInTheInstrumentsWords) {
    const std::vector<Step> before = Joined({SetupSteps(), kReadSteps});
    expectRefusals({
        {Joined({before, kFirstBatch, {{"C1:WF? DAT2", "DAT2,#9000000000\n\n"}, {"CMR?", "0\n"}, {"EXR?", "25\n"}}}),
         "block for CH1 (points 1 to 1000000) holds 0 bytes, not the 1000000 asked for; the DSO says execution "
         "error 25"},
        {Joined({before, {{"WFSU SP,0,NP,1000000,FP,0", ""}, {"CMR?", "5\n"}, {"EXR?", "0\n"}}}),
         "The DSO reports an error after \"WFSU SP,0,NP,1000000,FP,0\": command error 5 (unrecognized keyword); "
         "the link was closed."},
        {Joined({before, {{"WFSU SP,0,NP,1000000,FP,0", ""}, {"CMR?", "CMR 0\n"}}}),
         "error register (\"CMR?\") replied \"CMR 0\", which is no number"},
        {Joined({before, kFirstBatch, {{"C1:WF? DAT2", "DAT2," + Block9(Codes(0, 1000000))}}}),
         "block for CH1 has no line feed"},
        {Until(SetupSteps("1.40E+07pts"), "SANU? C1"), "memory depth (\"SANU? C1\") makes no record of 10 to 5000011"},
        {{{"TDIV?", "ERR\n"}}, "time base (\"TDIV?\") is not a number: \"ERR\""},
    });
}

// A single acquisition: the state change register read clear, armed, then
// read until bit 0 (a new signal) is set; anything but a number ends the wait.
TEST_F(SiglentExchange, SingleAcquisitionEndsOnANewSignal) {
    const std::vector<std::pair<std::vector<std::string>, bool>> cases = {
        {{"8193", "8192", "8193"}, true}, {{"0", "0", "8192", "8192", "1"}, true}, {{"1", "8192", "x"}, false}};
    for (const auto& [registers, completes] : cases) {
        std::vector<Step> script = {{"INR?", registers[0] + "\n"}, {"TRMD SINGLE", ""}, {"ARM", ""}};
        for (size_t i = 1; i < registers.size(); ++i) script.push_back({"INR?", registers[i] + "\n"});
        play(script);
        const Outcome waited = Guarded([&] { EXPECT_FALSE(instrument->acquireSingle()); });
        EXPECT_EQ(waited.ok(), completes) << waited.text();
        EXPECT_TRUE(record->done());
    }
}

TEST(SiglentModelsTest, ChannelsOfTheModelLines) {
    const std::pair<const char*, int> cases[] = {
        {"SDS1104X-E", 4}, {"SDS1202X-E", 2},    {"SDS2304X", 4},   {"SDS2072X", 2}, {"SDS2202X-E", 2},
        {"SDS1104X", 0},   {"SDS2104X Plus", 0}, {"SDS1103X-E", 0}, {"SDS5034X", 0}, {"SDS1104", 0}};
    for (const auto& [model, channels] : cases) EXPECT_EQ(SiglentChannels(model), channels) << model;
    // Two's complement: 0xFC is -4 codes.
    EXPECT_FLOAT_EQ(SiglentVolts(static_cast<int8_t>(0xFC), 0.5f, -0.5f), -4 * 0.02f + 0.5f);
}

}  // namespace
}  // namespace mervasto::test
