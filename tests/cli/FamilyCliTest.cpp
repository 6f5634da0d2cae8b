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

class FamilyCliTest : public CliRun, public ::testing::WithParamInterface<Family> {
protected:
    FamilyCliTest() : CliRun("mervasto-family-", false) {}
};

// readout names the model, fetch writes the whole record with the interval
// and the volts the instrument has, analyze of it finds the simulator's
// periods, and a series of three passes writes three result lines.
TEST_P(FamilyCliTest, ReadoutFetchAnalyzeAndASeries) {
    const Family& f = GetParam();
    constexpr int32_t kLength = 20000;
    SimOptions o;
    o.dialect = f.dialect;
    o.state.recordLength = kLength;
    o.acqDelayMs = 5;
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

INSTANTIATE_TEST_SUITE_P(
    Families, FamilyCliTest,
    ::testing::Values(Family{"legacy", "DS-5354", "Legacy", 10, 1.0 / 32, -4.0f, 127.0f / 32, true},
                      Family{"rigol", "DS1104Z", "Rigol", 12, 1.0 / 25, -5.08f, 5.12f, true},
                      Family{"siglent", "SDS1104X-E", "Siglent", 14, 1.0 / 25, -5.12f, 5.08f, false},
                      Family{"keysight", "DSOX3024T", "Keysight", 10, 10.0 / 256, -5.0f, 127 * 10.0f / 256, true},
                      Family{"tektronix", "MSO44", "Tektronix", 10, 1.0 / 25, -5.12f, 5.08f, false}),
    [](const ::testing::TestParamInfo<Family>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mervasto::test
