#include "cli/Cli.h"

#include "common/PackageVersion.h"
#include "common/TextFile.h"
#include "sim/DsoSimulator.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

#include "support/QtTestApp.h"

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(QCoreApplication);

class CliTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-cli-");
        ASSERT_EQ(run({"make-examples", dir_.string()}), 0);
    }
    int run(std::vector<std::string> args) {
        out.str("");
        err.str("");
        args.insert(args.begin(), {"--data-folder", (dir_ / "data").string()});
        return RunCli(args, out, err);
    }
    std::string example(const char* name) const { return (dir_ / (std::string(name) + ".csv")).string(); }

    std::filesystem::path dir_;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(CliTest, ExitStatusesOfBadOptionsAndFiles) {
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    const Case cases[] = {
        {{"--help"}, kExitOk},
        {{"--version"}, kExitOk},
        {{}, kExitBadOptions},
        {{"frobnicate"}, kExitBadOptions},
        {{"analyze", "--bogus", "x.csv"}, kExitBadOptions},
        {{"analyze", "--set", "NoSuchBox=1", "x.csv"}, kExitBadOptions},
        {{"analyze", "--set", "ChInputSignal1=Gate", "x.csv"}, kExitBadOptions},
        {{"analyze", "--format", "xml", "x.csv"}, kExitBadOptions},
        {{"analyze"}, kExitBadOptions},
        {{"analyze", "--no-save", "missing.csv"}, kExitFileError},
        {{"acquire"}, kExitBadOptions},
        {{"acquire", "--ip", "127.0.0.1:1", "--repeat", "99999"}, kExitBadOptions},
    };
    for (const auto& c : cases) {
        std::string joined;
        for (const auto& a : c.args) joined += a + " ";
        EXPECT_EQ(run(c.args), c.status) << joined << err.str();
    }
    // The package version moves on; the settings file it reads does not.
    run({"--version"});
    EXPECT_EQ(out.str().rfind("mervasto-cli " + std::string(kPackageVersion) + "\n", 0), 0u) << out.str();
    EXPECT_NE(out.str().find("settings: Resume340.txt (Ver3.40)"), std::string::npos) << out.str();
}

TEST_F(CliTest, AnalyzePrintsJsonAndAppendsResultLines) {
    ASSERT_EQ(run({"analyze", "--format", "json", "--cycles", example("pulses"), example("gated")}), kExitOk)
        << err.str();
    const std::string json = out.str();
    EXPECT_EQ(json.front(), '[');
    for (const char* key : {"\"waveLength\": 10000", "\"anaStart\"", "\"gateEnd\"", "\"rows\"", "\"cycles\"",
                            "\"MidEdge\"", "\"type\": \"Period\"", "\"analysed\": true"})
        EXPECT_NE(json.find(key), std::string::npos) << key;
    std::ifstream f(dir_ / "data" / "OutputData" / "ResultData.csv", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string l; std::getline(f, l);) lines.push_back(l);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2].rfind("Sample1,", 0), 0u);
    EXPECT_EQ(lines[3].rfind("Sample2,", 0), 0u);  // the index advances between files
}

TEST_F(CliTest, ComparatorVerdictsDecideTheExitStatus) {
    std::ofstream(dir_ / "pass.txt", std::ios::binary)
        << "% every channel 1..100 cycles\r\n1,1,100\r\n2,1,100\r\n3,1,100\r\n4,1,100\r\n";
    std::ofstream(dir_ / "fail.txt", std::ios::binary) << "1,100,200\r\n";
    std::ofstream(dir_ / "bad.txt", std::ios::binary) << "9,1,2\r\n";
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "pass.txt").string(), example("pulses")}), kExitOk)
        << err.str();
    EXPECT_NE(out.str().find("Go"), std::string::npos);
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "fail.txt").string(), example("pulses")}), kExitNg);
    EXPECT_NE(out.str().find("NG"), std::string::npos);
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "bad.txt").string(), example("pulses")}),
              kExitFileError);
    EXPECT_NE(err.str().find("Illegal Character."), std::string::npos);
    EXPECT_FALSE(FileExists((dir_ / "data" / "OutputData" / "ResultData.csv").string()));
}

size_t lineCount(const std::filesystem::path& file) {
    std::ifstream f(file, std::ios::binary);
    size_t n = 0;
    for (std::string l; std::getline(f, l);) ++n;
    return n;
}

// A series whose instrument fails in its third pass: exit status 4 with the
// reason, the two result lines before it kept, and the next run connects.
TEST_F(CliTest, InstrumentFailingInASeries) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const auto results = dir_ / "data" / "OutputData" / "ResultData.csv";
    for (const auto& c : test::kSeriesFaults) {
        std::filesystem::remove(results);
        sim.setFaultAfter(c.fault, 8);  // four channels a pass: the third pass fails
        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--repeat", "5", "--new-acquisition", "--timeout", "3",
                       "--format", "csv"}),
                  kExitNoInstrument)
            << SimFaultName(c.fault);
        EXPECT_NE(err.str().find("ended after 2 pass(es)"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("2 pass(es), 2 log row(s), 2 result line(s) written"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find(c.message), std::string::npos) << SimFaultName(c.fault) << ": " << err.str();
        EXPECT_EQ(lineCount(results), 2u + 2u) << SimFaultName(c.fault);

        sim.setFault(SimFault::None);
        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--format", "csv"}), kExitOk) << err.str();
        EXPECT_EQ(lineCount(results), 2u + 3u) << SimFaultName(c.fault);
    }
}

TEST_F(CliTest, ResultLinesTheFileRefusesArePrinted) {
    std::filesystem::create_directories(dir_ / "data" / "OutputData" / "ResultData.csv");
    EXPECT_EQ(run({"analyze", "--format", "csv", example("pulses"), example("gated")}), kExitFileError);
    EXPECT_NE(err.str().find("Failed to save Test Results. These 2 line(s) belong in"), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("\nSample1,"), std::string::npos);
    EXPECT_NE(err.str().find("\nSample2,"), std::string::npos);
}

TEST_F(CliTest, UnreachableInstrumentIsExitStatusFour) {
    EXPECT_EQ(run({"readout", "--ip", "127.0.0.1:1"}), kExitNoInstrument);
    EXPECT_EQ(run({"acquire", "--ip", "127.0.0.1:1"}), kExitNoInstrument);
}

}  // namespace
