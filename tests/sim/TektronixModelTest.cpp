#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "sim/Dialects.h"
#include "sim/TektronixModel.h"

// The Tektronix dialect without a socket: headers as the manual writes
// them, replies with and without their headers, the event queue, curves.
namespace mervasto {
namespace {

using How = SimReply::How;

std::vector<std::string> Texts(const std::vector<SimReply>& replies) {
    std::vector<std::string> out;
    for (const auto& r : replies) out.push_back(r.bytes);
    return out;
}
std::vector<std::string> One(const std::string& reply) { return {reply + "\n"}; }

std::unique_ptr<DialectModel> Tek(const std::string& model = "MSO44") {
    SimOptions o;
    o.dialect = "tektronix";
    o.state.model = model;
    o.state.recordLength = 1000;
    o.state.ch[1].voltsPerDiv = 1.0;
    o.state.ch[1].offset = -1.0;  // OFFSet 1 V: the screen's centre at 1 V
    return MakeDialectModel(o);
}

TEST(TektronixModelTest, HeadersRepliesAndEvents) {
    auto m = Tek();
    struct Step {
        std::string line;
        std::vector<std::string> replies;
    };
    const std::vector<Step> steps = {
        {"*CLS;*IDN?", One("TEKTRONIX,MSO44,C000001,CF:91.1CT FV:1.44.3.433")},
        // Headers until HEADer 0; a header without ":" continues the one before.
        {"HORizontal:SCAle 2E-3;SCA?", One(":HORIZONTAL:SCA 2.0000E-03")},
        {"header 0;:ACQ:MODE?;STOPA?", One("SAMPLE;RUNSTOP")},
        {"VERB OFF;ACQuire:STOPAfter SEQuence;STOPAFTER?;:VERBOSE ON", One("SEQ")},
        {"CH2:SCAle?;OFFSet?;POSition?", One("1.0000E+00;1.0000E+00;0.0000E+00")},
        // Unknown: no reply; its event readable once *ESR? has been read.
        {"ALLEv?", One("0,\"No events to report; queue empty\"")},
        {"DISplay:GLObal:CH2:STATE 0;STATE?;:SELECT:CH2?", One("0")},
        {"DATa:SOUrc CH1", {}},
        {"ALLEV?", One("1,\"No events to report; new events pending *ESR?\"")},
        {"*ESR?", One("32")},
        {"ALLEv?", One("113,\"Undefined header; Command not found: SELECT:CH2?\",113,\"Undefined header; Command "
                       "not found: DATA:SOURC\"")},
        {"DATa:SOUrce CH9;*ESR?;:EVMsg?;:EVMsg?", One("16;224,\"Illegal parameter value\";0,\"No events to report; "
                                                      "queue empty\"")},
    };
    for (const auto& step : steps) EXPECT_EQ(Texts(m->handle(step.line)), step.replies) << step.line;
    // The TBS2000 switches its channels with SELect.
    auto tbs = Tek("TBS2072");
    EXPECT_EQ(tbs->channels(), 2);
    EXPECT_EQ(Texts(tbs->handle("HEAD 0;SELect:CH2?;:DIS:GLO:CH2:STATE?;*ESR?")), One("1;32"));
}

// Curves between DATa:STARt and STOP in each encoding and width, their codes
// agreeing with the preamble and the record's volts; refused while
// acquiring and past the record.
TEST(TektronixModelTest, CurvesAndTheirRefusals) {
    auto m = Tek();
    const auto& volts = m->recordShared()->at(1);
    EXPECT_EQ(Texts(m->handle("HEAD 0;DATa:SOUrce CH2;:CURVe?")), std::vector<std::string>{"#10\n"});
    EXPECT_EQ(Texts(m->handle("*ESR?;ALLEv?")), One("16;221,\"Settings conflict; acquisition running\""));
    EXPECT_EQ(Texts(m->handle("ACQuire:STATE STOP;:DATa:STOP 1001;:CURV?;*ESR?;ALLEV?")),
              (std::vector<std::string>{"#10\n", "16;222,\"Data out of range\"\n"}));
    EXPECT_EQ(Texts(m->handle("WFMOutpre:NR_Pt?;:DATa:STOP 1000;:WFMO:NR_PT?")), One("1000;1000"));

    struct Case {
        std::string encoding;
        int width;
        std::string preamble;  // BYT_Or, BN_Fmt, YMUlt, YOFf, YZEro
    };
    const Case cases[] = {
        {"RIBinary", 1, "MSB;RI;4.0000E-02;0.0000E+00;1.0000E+00"},
        {"SRIbinary", 2, "LSB;RI;1.5625E-04;0.0000E+00;1.0000E+00"},
        {"RPBinary", 2, "MSB;RP;1.5625E-04;3.2768E+04;1.0000E+00"},
        {"SRPbinary", 1, "LSB;RP;4.0000E-02;1.2800E+02;1.0000E+00"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoding);
        m->handle("DATa:ENCdg " + c.encoding + ";:WFMOutpre:BYT_Nr " + std::to_string(c.width) + ";:DATa:STARt 11");
        EXPECT_EQ(Texts(m->handle("WFMOutpre:BYT_Or?;BN_Fmt?;YMUlt?;YOFf?;YZEro?")), One(c.preamble));
        const auto block = Texts(m->handle("CURVe?"));
        ASSERT_EQ(block.size(), 1u);
        const size_t bytes = 990u * static_cast<size_t>(c.width);
        const std::string header = "#" + std::to_string(std::to_string(bytes).size()) + std::to_string(bytes);
        ASSERT_EQ(block[0].size(), header.size() + bytes + 1);
        EXPECT_EQ(block[0].substr(0, header.size()), header);
        const bool msb = c.encoding[0] != 'S', sign = c.encoding.find('I') != std::string::npos;
        const double ymult = c.width == 1 ? 0.04 : 0.04 / 256;
        const double yoff = sign ? 0 : (c.width == 1 ? 128 : 32768);
        for (size_t k = 0; k < 990; ++k) {
            const auto* b = reinterpret_cast<const uint8_t*>(block[0].data() + header.size() + k * c.width);
            int code = c.width == 1 ? b[0] : (msb ? b[0] << 8 | b[1] : b[1] << 8 | b[0]);
            if (sign && code >= (c.width == 1 ? 128 : 32768)) code -= c.width == 1 ? 256 : 65536;
            ASSERT_NEAR((code - yoff) * ymult + 1.0, volts[k + 10], ymult / 2 + 1e-9) << k;
        }
    }
}

TEST(TektronixModelTest, ASingleSequenceEndsWithTheStateZero) {
    auto m = Tek();
    EXPECT_TRUE(Texts(m->handle("ACQuire:STATE RUN")).empty());  // runs on, nothing armed
    const auto armed = m->handle("HEADer 0;ACQuire:STOPAfter SEQuence;STATE RUN");
    ASSERT_EQ(armed.size(), 1u);
    EXPECT_EQ(armed[0].how, How::Arm);
    EXPECT_EQ(Texts(m->handle("ACQ:STATE?")), One("1"));
    m->acquisitionDone(m->recordShared());
    EXPECT_EQ(Texts(m->handle("ACQuire:STATE?")), One("0"));
    EXPECT_EQ(m->statusPolls(), 2);
}

}  // namespace
}  // namespace mervasto
