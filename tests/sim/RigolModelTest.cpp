#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "sim/Dialects.h"
#include "sim/RigolModel.h"

// The Rigol dialect without a socket: headers as the guide writes them,
// what it answers, and what it refuses.
namespace mervasto {
namespace {

using How = SimReply::How;

std::vector<std::string> Texts(const std::vector<SimReply>& replies) {
    std::vector<std::string> out;
    for (const auto& r : replies) out.push_back(r.bytes);
    return out;
}

std::unique_ptr<DialectModel> Rigol(int32_t length = 1000) {
    SimOptions o;
    o.dialect = "rigol";
    o.state.recordLength = length;
    o.state.ch[1].voltsPerDiv = 0.5;
    o.state.ch[1].offset = -1.0;
    return MakeDialectModel(o);
}

TEST(RigolModelTest, HeadersInLongOrShortFormAndAnyCase) {
    auto m = Rigol();
    struct Step {
        std::string line;
        std::vector<std::string> replies;
    };
    const std::vector<Step> steps = {
        {"*IDN?", {"RIGOL TECHNOLOGIES,DS1104Z,DS1ZA000000001,00.04.04.SP4\n"}},
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
    };
    for (const auto& step : steps) EXPECT_EQ(Texts(m->handle(step.line)), step.replies) << step.line;
}

// The memory is read in RAW mode only once stopped, at most 250,000 points a
// batch; codes and preamble agree with the record's volts.
TEST(RigolModelTest, MemoryReadsAndTheirRefusals) {
    auto m = Rigol();
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

TEST(RigolModelTest, ASingleAcquisitionEndsInStop) {
    auto m = Rigol();
    const auto armed = m->handle(":SINGle");
    ASSERT_EQ(armed.size(), 1u);
    EXPECT_EQ(armed[0].how, How::Arm);
    EXPECT_EQ(Texts(m->handle(":TRIG:STAT?")), std::vector<std::string>{"WAIT\n"});
    m->acquisitionDone(m->recordShared());
    EXPECT_EQ(Texts(m->handle(":TRIGger:STATus?")), std::vector<std::string>{"STOP\n"});
    EXPECT_EQ(m->statusPolls(), 2);
}

}  // namespace
}  // namespace mervasto
