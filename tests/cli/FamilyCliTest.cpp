#include <cmath>
#include <sstream>

#include "CliRun.h"
#include "app/core/ExitStatus.h"
#include "common/TextUtil.h"
#include "sim/DsoSimulator.h"
#include "sim/Scenario.h"
#include "wavefile/WaveCsv.h"

// Each instrument family end to end on the command line against its
// simulator: a new family is one more value of the parameter. (The
// program's application object is CliTest's.)
namespace mervasto::test {
namespace {

struct Family {
    const char* dialect;  // the simulator's
    const char* model;
    const char* name;       // the Instrument setting's word
    int divisions;          // across the screen: the sample interval is time/div x this / points
    double voltsPerCode;    // at 1 V/div
    float lowest, highest;  // the volts its codes reach at 1 V/div
    bool rejectRange;       // read from the instrument
    // What ctest shows of the parameter.
    friend void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }
};

// Every family the program speaks; each test over the families takes them all.
const std::vector<Family> kFamilies = {
    Family{"legacy", "DS-5354", "Legacy", 10, 1.0 / 32, -4.0f, 127.0f / 32, true},
    Family{"rigol", "DS1104Z", "Rigol", 12, 1.0 / 25, -5.08f, 5.12f, true},
    Family{"siglent", "SDS1104X-E", "Siglent", 14, 1.0 / 25, -5.12f, 5.08f, false},
    Family{"keysight", "DSOX3024T", "Keysight", 10, 10.0 / 256, -5.0f, 127 * 10.0f / 256, true},
    Family{"tektronix", "MSO44", "Tektronix", 10, 1.0 / 25, -5.12f, 5.08f, false},
};

class FamilyRun : public CliRun {
protected:
    FamilyRun() : CliRun("mervasto-family-", false) {}

    // readout names the model, fetch writes the whole record with the interval
    // and the volts the instrument has, analyze of it finds the simulator's
    // periods, and a series of three passes writes three result lines; over
    // the transport the simulator is given ("raw", "vxi11", "usbtmc").
    void readoutFetchAnalyzeAndASeries(const Family& f, const std::string& transport);
};

class FamilyCliTest : public FamilyRun, public ::testing::WithParamInterface<Family> {};

TEST_P(FamilyCliTest, ReadoutFetchAnalyzeAndASeries) { readoutFetchAnalyzeAndASeries(GetParam(), "raw"); }

void FamilyRun::readoutFetchAnalyzeAndASeries(const Family& f, const std::string& transport) {
    constexpr int32_t kLength = 20000;
    SimOptions o;
    o.dialect = f.dialect;
    o.transport = transport;
    o.state.recordLength = kLength;
    o.acqDelayMs = 5;
    // A block takes several device reads.
    o.vxi11ReadBytes = 4096;
    DsoSimulator sim(o);
    ASSERT_TRUE(sim.start());
    const std::string ip = sim.address();

    ASSERT_EQ(run({"readout", "--ip", ip, "--format", "json"}), kExitOk) << err.str();
    EXPECT_NE(out.str().find("\"Model\": \"" + std::string(f.model) + "\""), std::string::npos) << out.str();

    const std::string file = (dir_ / "fetched.csv").string();
    ASSERT_EQ(run({"fetch", "--ip", ip, file}), kExitOk) << err.str();
    DsoSetup setup;
    WaveRecord record;
    ASSERT_TRUE(LoadWaveCsv(file, setup, record).ok());
    EXPECT_EQ(setup.Model, f.model);
    EXPECT_EQ(setup.ChannelCount, 4);
    ASSERT_EQ(setup.RecordLength, kLength);
    const double interval = sim.state().timePerDiv * f.divisions / kLength;
    EXPECT_NEAR(setup.SampleInterval, interval, interval * 1e-6);
    const SimRecord truth = sim.record();
    for (size_t ch = 0; ch < 4; ++ch) {
        float worst = 0;
        for (size_t k = 0; k < static_cast<size_t>(kLength); ++k)
            worst = std::max(worst, std::fabs(record.wave[ch][k] - std::clamp(truth[ch][k], f.lowest, f.highest)));
        EXPECT_LE(worst, f.voltsPerCode / 2 + 1e-5) << "Ch" << ch + 1;
    }

    ASSERT_EQ(run({"analyze", "--no-save", "--format", "csv", file}), kExitOk) << err.str();
    std::istringstream lines(out.str());
    std::string line;
    std::getline(lines, line);  // the header
    for (int ch = 0; ch < 4; ++ch) {
        ASSERT_TRUE(std::getline(lines, line));
        const auto fields = SplitFields(line);
        ASSERT_GT(fields.size(), 7u) << line;
        EXPECT_EQ(fields[3], "Period");
        EXPECT_NEAR(std::stod(fields[7]), ScenarioPeriod(ch, kLength) * interval,
                    0.01 * ScenarioPeriod(ch, kLength) * interval)
            << line;
    }

    ASSERT_EQ(run({"acquire", "--ip", ip, "--repeat", "3", "--new-acquisition", "--format", "csv"}), kExitOk)
        << err.str();
    EXPECT_EQ(outputLines("ResultData.csv").size(), 2u + 3u);
    EXPECT_EQ(sim.statusPolls() > 0, true);
}

// --instrument forces the family: another's identity is refused (exit 4),
// and a name no family has is a bad option (exit 2), as is --omit-range
// with a family that has no reject range.
TEST_P(FamilyCliTest, TheInstrumentOptionForcesTheFamily) {
    const Family& f = GetParam();
    SimOptions o;
    o.dialect = f.dialect;
    o.state.recordLength = 1000;
    DsoSimulator sim(o);
    ASSERT_TRUE(sim.start());
    EXPECT_EQ(run({"readout", "--ip", sim.address(), "--instrument", f.name}), kExitOk) << err.str();
    // Another family that cannot take this identity (the legacy one takes any
    // model whose 7th character counts 2 or 4 channels: SDS1104X-E).
    const char* other = std::string(f.name) == "Rigol" ? "legacy" : "rigol";
    EXPECT_EQ(run({"readout", "--ip", sim.address(), "--instrument", other}), kExitNoInstrument);
    EXPECT_NE(err.str().find("identification"), std::string::npos) << err.str();
    EXPECT_EQ(run({"readout", "--ip", sim.address(), "--instrument", "Acme"}), kExitBadOptions);
    EXPECT_NE(err.str().find("--instrument takes Auto, Legacy, Rigol, Siglent, Keysight, Tektronix, not Acme"),
              std::string::npos)
        << err.str();
    if (!f.rejectRange) {
        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--omit-range", "--no-save"}), kExitBadOptions) << err.str();
    }
}

INSTANTIATE_TEST_SUITE_P(Families, FamilyCliTest, ::testing::ValuesIn(kFamilies),
                         [](const ::testing::TestParamInfo<Family>& info) { return std::string(info.param.name); });

// Each family over the other doors: VXI-11 (the program's own RPC client, as
// the simulator's portmapper is on a free port) and the USBTMC stand-in.
class FamilyTransportCliTest : public FamilyRun,
                               public ::testing::WithParamInterface<std::tuple<Family, const char*>> {};

TEST_P(FamilyTransportCliTest, ReadoutFetchAnalyzeAndASeries) {
    readoutFetchAnalyzeAndASeries(std::get<0>(GetParam()), std::get<1>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Transports, FamilyTransportCliTest,
                         ::testing::Combine(::testing::ValuesIn(kFamilies), ::testing::Values("vxi11", "usbtmc")),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param);
                         });

// The address without a port goes through liblxi, which asks the portmapper
// on its usual port only: the simulator's takes it when it can (root, and
// free), and each family reads out and fetches through the library.
TEST_F(FamilyRun, EveryFamilyThroughLiblxiWhenThePortmapperPortIsFree) {
    for (const Family& f : kFamilies) {
        SimOptions o;
        o.dialect = f.dialect;
        o.transport = "vxi11";
        o.port = 111;
        o.state.recordLength = 300000;
        DsoSimulator sim(o);
        if (!sim.start()) GTEST_SKIP() << "port 111 cannot be had here";
        ASSERT_EQ(run({"readout", "--ip", "vxi11://127.0.0.1"}), kExitOk) << f.name << err.str();
        EXPECT_NE(out.str().find(f.model), std::string::npos) << out.str();
        const std::string file = (dir_ / "lxi.csv").string();
        ASSERT_EQ(run({"fetch", "--ip", "vxi11://localhost/inst0", file}), kExitOk) << f.name << err.str();
        DsoSetup setup;
        WaveRecord record;
        ASSERT_TRUE(LoadWaveCsv(file, setup, record).ok());
        EXPECT_EQ(setup.RecordLength, 300000) << f.name;
    }
}

// What goes wrong at an instrument reached over VXI-11 or USBTMC ends the
// run (exit 4) with the link's own checks and time-outs, and says what
// happened: nothing there, a link to an unknown device, silence, the
// instrument gone halfway through a block, and malformed blocks.
struct DoorFault {
    const char* name;
    const char* transport;
    SimFault fault;
    const char* says;
    friend void PrintTo(const DoorFault& d, std::ostream* os) { *os << d.transport << ' ' << d.name; }
};

class TransportFaultCliTest : public FamilyRun, public ::testing::WithParamInterface<std::tuple<Family, DoorFault>> {};

TEST_P(TransportFaultCliTest, EndsTheRunAndSaysWhy) {
    const auto& [f, d] = GetParam();
    SimOptions o;
    o.dialect = f.dialect;
    o.transport = d.transport;
    o.state.recordLength = 20000;
    o.vxi11ReadBytes = 4096;
    DsoSimulator sim(o);
    ASSERT_TRUE(sim.start());
    std::string ip = sim.address();
    if (d.fault == SimFault::Refuse) sim.switchOff();
    if (std::string(d.name) == "unknown_device") ip.replace(ip.size() - 5, 5, "inst7");
    if (d.fault != SimFault::Refuse) sim.setFault(d.fault);
    EXPECT_EQ(run({"fetch", "--timeout", "1", "--ip", ip, (dir_ / "f.csv").string()}), kExitNoInstrument);
    // A block header sized to its record (Tektronix) cannot announce more
    // than the cap: its spoilt block is found cut short instead, by the end
    // of the message or by the time-out, whichever the link meets first.
    if (d.fault == SimFault::HugeBlock && std::string(f.dialect) == "tektronix") {
        EXPECT_NE(err.str().find("send"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("the data block for CH1"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("16 of"), std::string::npos) << err.str();
        return;
    }
    EXPECT_NE(err.str().find(d.says), std::string::npos) << err.str();
}

const DoorFault kDoorFaults[] = {
    {"refused", "vxi11", SimFault::Refuse, "DSO not connected normally. (vxi11://127.0.0.1:"},
    {"refused", "usbtmc", SimFault::Refuse, "No such file or directory"},
    {"unknown_device", "vxi11", SimFault::None, "refused a link to inst7"},
    {"silent", "vxi11", SimFault::Silent, "did not answer \"*IDN?\" within 1 s"},
    {"silent", "usbtmc", SimFault::Silent, "did not answer \"*IDN?\" within 1 s"},
    {"gone_mid_block", "vxi11", SimFault::CloseMidBlock, "closed the connection while reading a data block"},
    {"gone_mid_block", "usbtmc", SimFault::CloseMidBlock, "closed the connection while reading a data block"},
    {"bad_header", "vxi11", SimFault::BadHeader, "is not a data block"},
    {"long_block", "usbtmc", SimFault::LongBlock, "more bytes than its header declares"},
    {"no_terminator", "vxi11", SimFault::NoTerminator, "no line feed"},
    {"huge_block", "usbtmc", SimFault::HugeBlock, "more than the"},
};

INSTANTIATE_TEST_SUITE_P(Faults, TransportFaultCliTest,
                         ::testing::Combine(::testing::ValuesIn(kFamilies), ::testing::ValuesIn(kDoorFaults)),
                         [](const auto& info) {
                             const DoorFault& d = std::get<1>(info.param);
                             return std::string(std::get<0>(info.param).name) + "_" + d.transport + "_" + d.name;
                         });

}  // namespace
}  // namespace mervasto::test
