#include <algorithm>
#include <memory>

#include "ScpiExchange.h"
#include "analysis/Levels.h"
#include "dso/Instrument.h"
#include "dso/RigolDriver.h"

// The Rigol DS1000Z / MSO1000Z driver against exchanges recorded as the
// programming guide gives them: what it sends, in order, and what it makes
// of the replies.
namespace mervasto::test {
namespace {

const std::string kIdn = "RIGOL TECHNOLOGIES,DS1202Z-E,DS1ZE000000001,00.06.02\n";
const std::string kNoError = "0,\"No error\"\n";
// 300,000 points of 10 ns: two batches.
const std::string kPreamble = "0,2,300000,1,1.000000e-08,-1.500000e-03,0,2.000000e-02,50,127\n";

// The setup of a DS1202Z-E with CH1 on and CH2 switched off.
std::vector<Step> SetupSteps(const std::string& depth = "300000", const std::string& ch1On = "1") {
    return {{":TIM:SCAL?", "2.500000e-04\n"},
            {":TIM:OFFS?", "0.000000e+00\n"},
            {":ACQ:TYPE?", "NORM\n"},
            {":TRIG:EDG:SOUR?", "CHAN1\n"},
            {":TRIG:EDG:LEV?", "1.500000e+00\n"},
            {":TRIG:SWE?", "SING\n"},
            {":ACQ:SRAT?", "1.000000e+08\n"},
            {":ACQ:MDEP?", depth + "\n"},
            {":CHAN1:DISP?", ch1On + "\n"},
            {":CHAN1:SCAL?", "5.000000e-01\n"},
            {":CHAN1:OFFS?", "-1.000000e+00\n"},
            {":CHAN1:COUP?", "DC\n"},
            {":CHAN1:BWL?", "20M\n"},
            {":CHAN1:INV?", "0\n"},
            {":CHAN2:DISP?", "0\n"},
            {":CHAN2:SCAL?", "1.000000e+00\n"},
            {":CHAN2:OFFS?", "0.000000e+00\n"},
            {":CHAN2:COUP?", "AC\n"},
            {":CHAN2:BWL?", "OFF\n"},
            {":CHAN2:INV?", "1\n"}};
}

std::vector<Step> ReadSteps(const std::string& preamble = kPreamble) {
    return {{":STOP", ""},           {":WAV:MODE RAW", ""},    {":WAV:FORM BYTE", ""},
            {":WAV:SOUR CHAN1", ""}, {":SYST:ERR?", kNoError}, {":WAV:PRE?", preamble}};
}

uint8_t CodeAt(int64_t k) { return static_cast<uint8_t>(80 + k % 101); }

std::string Codes(int64_t first, int64_t count) {
    std::string bytes(static_cast<size_t>(count), '\0');
    for (int64_t k = 0; k < count; ++k) bytes[static_cast<size_t>(k)] = static_cast<char>(CodeAt(first + k));
    return bytes;
}

class RigolExchange : public ScpiExchange {
protected:
    void play(const std::vector<Step>& script) {
        ScpiExchange::play({{"*IDN?", kIdn}, {"*CLS", ""}}, RigolFamily(), script);
    }
    void playScript(const std::vector<Step>& script) override { play(script); }
};

TEST_F(RigolExchange, TheWholeRecordInBatchesScaledToVoltsAndCodes) {
    play(Joined({SetupSteps(),
                 ReadSteps(),
                 {{":WAV:STAR 1", ""}, {":WAV:STOP 250000", ""}, {":WAV:DATA?", Block9(Codes(0, 250000))}},
                 {{":WAV:STAR 250001", ""}, {":WAV:STOP 300000", ""}, {":WAV:DATA?", Block9(Codes(250000, 50000))}}}));
    ASSERT_TRUE(fetch());
    EXPECT_TRUE(record->done()) << record->sent.back();
    EXPECT_EQ(setup.Model, "DS1202Z-E");
    EXPECT_EQ(setup.ChannelCount, 2);
    EXPECT_EQ(setup.AcqMode, "NORMAL");
    EXPECT_EQ(setup.TriggerSource, "CH1");
    EXPECT_EQ(setup.TriggerMode, "SINGLE");
    EXPECT_EQ(setup.trace(0).BandwidthLimit, "20M");
    EXPECT_TRUE(setup.inverted(1));
    EXPECT_EQ(setup.traceOn(1), "OFF");
    EXPECT_EQ(vrate[0], "1.0");  // a blank scale box, as the legacy transfer fills it
    EXPECT_EQ(wave.WaveLength, 300000);
    EXPECT_EQ(setup.RecordLength, 300000);
    EXPECT_EQ(wave.SampleSec, 1e-8f);
    ASSERT_EQ(wave.raw[0].size(), 300000u);
    for (int64_t k : {int64_t{0}, int64_t{249999}, int64_t{250000}, int64_t{299999}}) {
        const auto i = static_cast<size_t>(k);
        const float volts = static_cast<float>((CodeAt(k) - 50.0 - 127.0) * 0.02);
        EXPECT_EQ(wave.wave[0][i], volts) << k;
        EXPECT_EQ(wave.raw[0][i], RawFromVolts(volts, 0.5f, -1.0f)) << k;
    }
    // The switched-off channel is left out: no codes for the levels, no volts.
    EXPECT_TRUE(wave.raw[1].empty());
    EXPECT_TRUE(std::all_of(wave.wave[1].begin(), wave.wave[1].begin() + 300000, [](float v) { return v == 0; }));
    // One progress over both batches, hidden at the end.
    ASSERT_GE(ui.progressCalls.size(), 3u);
    EXPECT_EQ(ui.progressCalls.back(), (std::pair<int64_t, int64_t>{0, 0}));
    EXPECT_EQ(ui.progressCalls[ui.progressCalls.size() - 2], (std::pair<int64_t, int64_t>{300001, 300000}));
}

// What the instrument refuses or reports ends the fetch with its own words,
// the link closed.
TEST_F(RigolExchange, RefusalsAndTheErrorQueueAreToldInTheInstrumentsWords) {
    const std::vector<Step> firstBatch = {{":WAV:STAR 1", ""}, {":WAV:STOP 250000", ""}};
    struct Case {
        const char* name;
        std::vector<Step> script;
        std::string message;
    };
    const Case cases[] = {
        {"batch refused",
         Joined({SetupSteps(),
                 ReadSteps(),
                 firstBatch,
                 {{":WAV:DATA?", Block9("")}, {":SYST:ERR?", "-222,\"Data out of range\"\n"}}}),
         "block for CH1 (points 1 to 250000) holds 0 bytes, not the 250000 asked for; the DSO says "
         "-222,\"Data out of range\""},
        {"error after the setup commands",
         Joined({SetupSteps(),
                 {{":STOP", ""},
                  {":WAV:MODE RAW", ""},
                  {":WAV:FORM BYTE", ""},
                  {":WAV:SOUR CHAN1", ""},
                  {":SYST:ERR?", "-113,\"Undefined header\"\n"},
                  {":SYST:ERR?", kNoError}}}),
         "The DSO reports an error after \":WAV:SOUR CHAN1\": -113,\"Undefined header\"; the link was closed."},
        {"word format", Joined({SetupSteps(), ReadSteps("1,2,300000,1,1e-08,0,0,0.02,50,127\n")}),
         "format (field 1 of \":WAV:PRE?\") is not 0 (BYTE)"},
        {"nine fields", Joined({SetupSteps(), ReadSteps("0,2,300000,1,1e-08,0,0,0.02,50\n")}),
         "preamble (\":WAV:PRE?\") has 9 fields, not 10"},
        {"record longer than the program takes",
         Joined({SetupSteps(), ReadSteps("0,2,12000000,1,1e-08,0,0,0.02,50,127\n")}),
         "points (field 3 of \":WAV:PRE?\") is not a whole number from 10 to 5000011"},
        {"volts per code", Joined({SetupSteps(), ReadSteps("0,2,300000,1,1e-08,0,0,1e-40,50,127\n")}),
         "y increment (field 8 of \":WAV:PRE?\") is not a volts per code a float holds"},
        {"memory depth", Until(SetupSteps("12000000"), ":ACQ:MDEP?"),
         "memory depth (\":ACQ:MDEP?\") makes no record of 10 to 5000011"},
        {"time base", {{":TIM:SCAL?", "ERR\n"}}, "time base (\":TIM:SCAL?\") is not a number: \"ERR\""},
    };
    std::vector<std::pair<std::vector<Step>, std::string>> scripts;
    for (const Case& c : cases) scripts.emplace_back(c.script, c.message);
    expectRefusals(scripts);
    // Every channel off: nothing to fetch, the link kept.
    play(SetupSteps("300000", "0"));
    EXPECT_NE(fetch().text().find("every channel switched off"), std::string::npos);
    EXPECT_TRUE(instrument->linked());
}

// A single acquisition: armed, then polled until the trigger status reads
// STOP; anything but the status words ends the wait instead of polling for ever.
TEST_F(RigolExchange, SingleAcquisitionEndsOnStop) {
    struct Case {
        std::vector<std::string> statuses;
        bool fails;
    };
    const Case cases[] = {{{"STOP"}, false}, {{"WAIT", "WAIT", "TD", "STOP"}, false}, {{"WAIT", "1"}, true}};
    for (const Case& c : cases) {
        std::vector<Step> script = {{":SING", ""}};
        for (const auto& s : c.statuses) script.push_back({":TRIG:STAT?", s + "\n"});
        play(script);
        const Outcome waited = Guarded([&] { EXPECT_FALSE(instrument->acquireSingle()); });
        EXPECT_EQ(waited.ok(), !c.fails) << waited.text();
        EXPECT_TRUE(record->done());
        if (c.fails) {
            EXPECT_NE(waited.text().find("none of TD, WAIT, RUN, AUTO, STOP"), std::string::npos);
        }
    }
}

// The guide's examples: the screen's preamble prints its interval as 0 and
// the deep memory's has more points than a record holds, so both are
// refused naming the field; with an interval, the first scales as the guide says.
TEST(RigolPreambleTest, TheGuidesExamples) {
    std::string problem;
    EXPECT_FALSE(ParseRigolPreamble("0,2,600,2,0.000000,-0.000006,0,0.008000,50,127", problem));
    EXPECT_NE(problem.find("x increment (field 5"), std::string::npos) << problem;
    EXPECT_FALSE(ParseRigolPreamble("0,2,6000000,1,1.000000e-09,-3.000000e-03,0,4.132813e-01,0,122", problem));
    EXPECT_NE(problem.find("points (field 3"), std::string::npos) << problem;
    const auto p = ParseRigolPreamble("0,2,600,2,1.000000e-08,-0.000006,0,0.008000,50,127", problem);
    ASSERT_TRUE(p) << problem;
    EXPECT_EQ(p->points, 600);
    EXPECT_EQ(p->count, 2);
    EXPECT_EQ(p->xorigin, -0.000006);
    // (code - YORigin - YREFerence) x YINCrement: 177 is 0 V.
    EXPECT_EQ(RigolVolts(177, *p), 0.0f);
    EXPECT_EQ(RigolVolts(0, *p), static_cast<float>(-177 * 0.008));
    EXPECT_EQ(RigolVolts(255, *p), static_cast<float>(78 * 0.008));
}

}  // namespace
}  // namespace mervasto::test
