#include "app/core/ExitStatus.h"
#include "common/TextFile.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "CliRun.h"
#include "support/QtTestApp.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(QCoreApplication);

class ResultsCliTest : public test::CliRun {
protected:
    ResultsCliTest() : CliRun("mervasto-results-") {}
    std::string store() const { return (dir_ / "data" / "OutputData" / "results.sqlite").string(); }
    static size_t lines(const std::string& text) {
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
};

// Two files analysed with count limits every pass meets, under a sample
// name with a comma: listed as one run, exported with that name quoted and
// every number exact, summarised per channel and kind.
TEST_F(ResultsCliTest, ListExportAndSummary) {
    std::ofstream(dir_ / "limits.txt") << "1,1,100000\n2,1,100000\n3,1,100000\n4,1,100000\n";
    ASSERT_EQ(run({"analyze", "--set", "SampleNo=Lot 7, board ", "--comparator", (dir_ / "limits.txt").string(),
                   example("pulses"), example("pulses")}),
              kExitOk)
        << err.str();

    ASSERT_EQ(run({"results", "list"}), kExitOk) << err.str();
    EXPECT_EQ(out.str().substr(0, out.str().find('\n')),
              "Run  Station  Sample         Start                     Passes  Yield");
    EXPECT_NE(out.str().find("Lot 7, board   "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("  2       100.00 %\n"), std::string::npos) << out.str();
    ASSERT_EQ(run({"results", "list", "--format", "csv"}), kExitOk);
    EXPECT_NE(out.str().find(",\"Lot 7, board \","), std::string::npos) << out.str();

    ASSERT_EQ(run({"results", "export"}), kExitOk) << err.str();
    const std::string csv = out.str();
    EXPECT_EQ(csv.substr(0, csv.find("\r\n")),
              "run,station,pass,started,sample,sample_index,comment,source,channel,signal_name,type,kind,unit,min,max,"
              "mean,sigma,counts,verdict,ll,ul,value_ll,value_ul");
    EXPECT_EQ(lines(csv), 1 + 2 * 4 * 7u);  // a header, then 2 passes x 4 channels x 7 kinds
    EXPECT_NE(csv.find(",\"Lot 7, board 2\",2,,"), std::string::npos) << csv;
    EXPECT_NE(csv.find(",1,Ch1,Period,PulseWidth,s,"), std::string::npos);
    EXPECT_NE(csv.find(",Go,1,100000,0,0\r\n"), std::string::npos);  // the first kind of each channel is judged
    ASSERT_EQ(run({"results", "export", "--format", "json", "--run", "1"}), kExitOk);
    EXPECT_EQ(out.str().substr(0, 2), "[\n");
    EXPECT_NE(out.str().find("\"sample\": \"Lot 7, board 1\""), std::string::npos);
    EXPECT_NE(out.str().find("\"verdict\": \"\""), std::string::npos);
    for (const std::vector<std::string>& none : {std::vector<std::string>{"--run", "2"}, {"--since", "2999-01-01"}}) {
        std::vector<std::string> args = {"results", "export"};
        args.insert(args.end(), none.begin(), none.end());
        ASSERT_EQ(run(args), kExitOk);
        EXPECT_EQ(lines(out.str()), 1u) << none[0];
    }

    ASSERT_EQ(run({"results", "summary"}), kExitOk) << err.str();
    EXPECT_EQ(lines(out.str()), 1 + 4 * 7u);
    EXPECT_NE(out.str().find("Ch1  Period  PulseWidth  2 "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("100.00 %"), std::string::npos);
    ASSERT_EQ(run({"results", "summary", "--run", "1", "--format", "json"}), kExitOk);
    EXPECT_NE(out.str().find("\"cpk\": null"), std::string::npos);
    EXPECT_NE(out.str().find("\"passes\": 2"), std::string::npos);
}

// The store is reported but never stops the results file; --no-store and
// --no-save leave it out; the results command refuses what it cannot read.
TEST_F(ResultsCliTest, FailuresAndSwitches) {
    const std::string missing = (dir_ / "missing" / "r.sqlite").string();
    EXPECT_EQ(run({"analyze", "--results-db", missing, example("pulses")}), kExitFileError);
    EXPECT_NE(err.str().find("Failed to store the results in " + missing + ": "), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("1 pass(es) could not be stored in " + missing), std::string::npos) << err.str();
    EXPECT_EQ(outputLines("ResultData.csv").size(), 3u);
    EXPECT_EQ(run({"results", "list"}), kExitFileError);
    EXPECT_NE(err.str().find("there is no results store at "), std::string::npos) << err.str();

    for (const char* off : {"--no-store", "--no-save"}) {
        EXPECT_EQ(run({"analyze", off, example("pulses")}), kExitOk) << off;
        EXPECT_FALSE(FileExists(store())) << off;
    }
    EXPECT_EQ(outputLines("ResultData.csv").size(), 4u);  // --no-store still wrote its line

    const std::vector<std::string> bad[] = {{"results"},
                                            {"results", "drop"},
                                            {"results", "list", "extra"},
                                            {"results", "export", "--run", "x"},
                                            {"results", "export", "--since", "yesterday"}};
    for (const auto& args : bad) EXPECT_EQ(run(args), kExitBadOptions) << args.back();
}

}  // namespace
