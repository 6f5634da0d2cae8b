#include <gtest/gtest.h>

#include <ostream>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sim/Dialects.h"
#include "sim/KeysightModel.h"
#include "sim/RigolModel.h"
#include "sim/SiglentModel.h"

// Each dialect without a socket: headers as its guide writes them, what it
// answers, and what it refuses.
namespace mervasto {
namespace {

std::vector<std::string> Texts(const std::vector<SimReply>& replies) {
    std::vector<std::string> out;
    for (const auto& r : replies) out.push_back(r.bytes);
    return out;
}

std::unique_ptr<DialectModel> Model(const std::string& dialect, int32_t length = 1000) {
    SimOptions o;
    o.dialect = dialect;
    o.state.recordLength = length;
    o.state.ch[1].voltsPerDiv = 0.5;
    o.state.ch[1].offset = -1.0;
    return MakeDialectModel(o);
}

// A script of lines and the replies each gets ("" an acquisition armed);
// "=done" completes the acquisition armed.
struct Script {
    const char* dialect;
    std::vector<std::pair<std::string, std::vector<std::string>>> steps;
    friend void PrintTo(const Script& s, std::ostream* os) { *os << s.dialect; }
};

class DialectScriptTest : public ::testing::TestWithParam<Script> {};

TEST_P(DialectScriptTest, AnswersRefusesAndArms) {
    auto m = Model(GetParam().dialect);
    for (const auto& [line, replies] : GetParam().steps) {
        if (line == "=done") {
            m->acquisitionDone(m->recordShared());
            continue;
        }
        EXPECT_EQ(Texts(m->handle(line)), replies) << line;
    }
    EXPECT_GT(m->statusPolls(), 1);
}

const Script kScripts[] = {
    {"rigol",
     {{"*IDN?", {"RIGOL TECHNOLOGIES,DS1104Z,DS1ZA000000001,00.04.04.SP4\n"}},
      {":TIMebase:MAIN:SCALe 0.002;:tim:scal?", {"2.000000e-03\n"}},
      {":WAVeform:SOURce CHANnel2;:wav:sour?", {"CHAN2\n"}},
      {":CHANNEL2:SCALE?;:CHAN2:OFFS?", {"5.000000e-01\n", "-1.000000e+00\n"}},
      {":SYSTem:ERRor:NEXT?", {"0,\"No error\"\n"}},
      // Unknown: no reply, an entry in the error queue.
      {":WAV:SOURC?", {}},  // neither the short form nor the long
      {":NOSUCH 1", {}},
      {":SYST:ERR?", {"-113,\"Undefined header\"\n"}},
      {":SYST:ERR?", {"-113,\"Undefined header\"\n"}},
      {"*CLS;:SYST:ERR?", {"0,\"No error\"\n"}},
      {":SINGle", {""}},
      {":TRIG:STAT?", {"WAIT\n"}},
      {"=done", {}},
      {":TRIGger:STATus?", {"STOP\n"}}}},
    {"siglent",
     {{"*IDN?", {"Siglent Technologies,SDS1104X-E,SDS1ECDQ2R0001,8.1.6.1.37R2\n"}},
      // Headers and units in the replies until CHDR OFF, in short or long form.
      {"c2:vdiv?", {"C2:VDIV 5.000000E-01V\n"}},
      {"CHDR LONG;C2:OFFSET?", {"C2:OFFSET -1.000000E+00V\n"}},
      {"CHDR OFF;TDIV 2E-3;TIME_DIV?", {"2.000000E-03\n"}},
      {"SANU? C1;C3:TRA?", {"1.000000E+03\n", "ON\n"}},
      {"WFSU NP,0,FP,0,SP,4;WFSU?", {"SP,4,NP,0,FP,0\n"}},
      // Unknown: no reply, the command error register set; reading clears it.
      {"NOSUCH 1", {}},
      {"C5:VDIV?", {}},
      {"CMR?", {"11\n"}},
      {"CMR?", {"0\n"}},
      {"INR?", {"0\n"}},
      {"TRMD SINGLE;ARM", {""}},
      {"INR?;SAST?", {"8192\n", "Arm\n"}},
      {"=done", {}},
      {"INR?;SAST?", {"1\n", "Stop\n"}},
      {"INR?", {"0\n"}}}},
    {"keysight",
     {{"*IDN?", {"KEYSIGHT TECHNOLOGIES,DSOX3024T,MY00000001,07.50.2021102830\n"}},
      {":TIMebase:SCALe 0.002;:tim:scal?", {"2.000000e-03\n"}},
      {":WAVeform:SOURce CHANnel2;:wav:sour?", {"CHAN2\n"}},
      // The offset is the volts at the screen's centre.
      {":CHANNEL2:SCALE?;:CHAN2:OFFS?", {"5.000000e-01\n", "1.000000e+00\n"}},
      {":SYSTem:ERRor?", {"+0,\"No error\"\n"}},
      {":WAV:FORMAT FLOAT", {}},
      {":NOSUCH 1", {}},
      {":SYST:ERR?", {"-224,\"Illegal parameter value\"\n"}},
      {":SYST:ERR?", {"-113,\"Undefined header\"\n"}},
      {":TER?", {"+0\n"}},
      {":SINGle", {""}},
      {":OPER:COND?", {"+8\n"}},
      {"=done", {}},
      {":TER?;:OPERegister:CONDition?", {"+1\n", "+0\n"}},
      {":TER?", {"+0\n"}}}},
};

INSTANTIATE_TEST_SUITE_P(Dialects, DialectScriptTest, ::testing::ValuesIn(kScripts),
                         [](const ::testing::TestParamInfo<Script>& info) { return std::string(info.param.dialect); });

// The memory is read in RAW mode only once stopped, at most 250,000 points a
// batch; codes and preamble agree with the record's volts.
TEST(RigolModelTest, MemoryReadsAndTheirRefusals) {
    auto m = Model("rigol");
    const std::string empty = "#9000000000\n";
    EXPECT_EQ(Texts(m->handle(":WAV:MODE RAW;:WAV:FORM BYTE;:WAV:SOUR CHAN2;:WAV:DATA?")),
              std::vector<std::string>{empty});  // still running
    EXPECT_EQ(Texts(m->handle(":SYST:ERR?")), std::vector<std::string>{"-221,\"Settings conflict\"\n"});
    EXPECT_EQ(Texts(m->handle(":STOP;:WAV:STAR 1;:WAV:STOP 250001;:WAV:DATA?")), std::vector<std::string>{empty});
    EXPECT_EQ(Texts(m->handle(":SYST:ERR?")), std::vector<std::string>{"-222,\"Data out of range\"\n"});

    // 0.5 V/div: 0.02 V a code; -1 V offset: 50 codes below 127.
    EXPECT_EQ(Texts(m->handle(":WAV:PRE?")),
              std::vector<std::string>{"0,2,1000,1,1.200000e-05,-6.000000e-03,0,2.000000e-02,-50,127\n"});
    const auto block = Texts(m->handle(":WAV:STAR 1;:WAV:STOP 1000;:WAV:DATA?"));
    ASSERT_EQ(block.size(), 1u);
    ASSERT_EQ(block[0].size(), 11u + 1000u + 1u);
    EXPECT_EQ(block[0].substr(0, 11), "#9000001000");
    const auto& volts = m->recordShared()->at(1);
    for (size_t k = 0; k < 1000; ++k) {
        const double code = std::clamp(std::nearbyint(volts[k] / 0.02 - 50 + 127), 0.0, 255.0);
        ASSERT_EQ(static_cast<uint8_t>(block[0][11 + k]), code) << k;
    }
}

// Signed codes, 25 a division around the offset, the block named and ended
// by two line feeds; one read of more than a million points is refused.
TEST(SiglentModelTest, WaveformBlocksAndTheirRefusal) {
    auto m = Model("siglent", 1000001);
    EXPECT_EQ(Texts(m->handle("CHDR OFF;C2:WF? DAT2")), std::vector<std::string>{"DAT2,#9000000000\n\n"});
    EXPECT_EQ(Texts(m->handle("EXR?")), std::vector<std::string>{"25\n"});
    const auto block = Texts(m->handle("WFSU SP,1,NP,1000,FP,5;C2:WF? DAT2"));
    ASSERT_EQ(block.size(), 1u);
    ASSERT_EQ(block[0].size(), 5u + 11u + 1000u + 2u);
    EXPECT_EQ(block[0].substr(0, 16), "DAT2,#9000001000");
    EXPECT_EQ(block[0].substr(block[0].size() - 2), "\n\n");
    const auto& volts = m->recordShared()->at(1);
    for (size_t k = 0; k < 1000; ++k) {
        const double code = std::clamp(std::nearbyint((volts[k + 5] - 1.0) / 0.5 * 25), -128.0, 127.0);
        ASSERT_EQ(static_cast<int8_t>(block[0][16 + k]), code) << k;
    }
}

// The raw record only once stopped (the measurement record while running);
// WORD codes in either byte order; volts = (code - 32768) x YINCrement +
// YORigin.
TEST(KeysightModelTest, RecordsWordsAndByteOrders) {
    auto m = Model("keysight", 100000);
    EXPECT_EQ(Texts(m->handle(":WAV:SOUR CHAN2;:WAV:POIN:MODE RAW;:WAV:POIN MAX;:WAV:POIN?")),
              std::vector<std::string>{"62500\n"});
    EXPECT_EQ(Texts(m->handle(":STOP;:WAV:FORM WORD;:WAV:PRE?")),
              std::vector<std::string>{"1,0,100000,1,1.000000e-07,-5.000000e-03,0,7.629395e-05,1.000000e+00,32768\n"});
    const auto& volts = m->recordShared()->at(1);
    for (const char* order : {"MSBF", "LSBF"}) {
        const auto block = Texts(m->handle(std::string(":WAV:BYT ") + order + ";:WAV:DATA?"));
        ASSERT_EQ(block.size(), 1u);
        ASSERT_EQ(block[0].substr(0, 10), "#800200000");
        const bool low = order == std::string("LSBF");
        for (size_t k : {size_t{0}, size_t{777}, size_t{99999}}) {
            const auto b0 = static_cast<uint8_t>(block[0][10 + 2 * k]), b1 = static_cast<uint8_t>(block[0][11 + 2 * k]);
            const int code = low ? b1 << 8 | b0 : b0 << 8 | b1;
            // Ten divisions of 0.5 V about 1 V: -1.5 V to 3.5 V.
            const double clipped = std::clamp(static_cast<double>(volts[k]), -1.5, 3.5);
            EXPECT_NEAR((code - 32768) * 0.5 * 10 / 65536 + 1.0, clipped, 0.5 * 10 / 65536) << order << k;
        }
    }
}

}  // namespace
}  // namespace mervasto
