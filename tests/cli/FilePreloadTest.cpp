#include "cli/Cli.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "support/TestFolder.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace mervasto;

namespace {

std::string readAll(const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

struct CliRun {
    int status;
    std::string out;
    std::string err;
    std::string results;
};

CliRun analyze(const std::filesystem::path& dataFolder, const std::string& jobs,
               const std::vector<std::string>& files) {
    std::vector<std::string> args = {
        "--data-folder", dataFolder.string(), "analyze", "--jobs", jobs, "--format", "csv"};
    args.insert(args.end(), files.begin(), files.end());
    std::ostringstream out;
    std::ostringstream err;
    CliRun r;
    r.status = RunCli(args, out, err);
    r.out = out.str();
    r.err = err.str();
    r.results = readAll(dataFolder / "OutputData" / "ResultData.csv");
    return r;
}

// Files loaded ahead give what one file at a time gives: the same output,
// the same result lines, the sample index advancing in the order of the
// files. Each load depends on the files before it, and a missing file in the
// middle still takes its turn.
TEST(FilePreload, ManyFilesAdvanceInTheirOrder) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-preload-");
    std::ostringstream ignore;
    ASSERT_EQ(RunCli({"--data-folder", (dir / "data0").string(), "make-examples", dir.string()}, ignore, ignore), 0);
    const auto example = [&](const char* name) { return (dir / (std::string(name) + ".csv")).string(); };

    // Four channels by its model, two columns of samples: Ch3 and Ch4 take
    // their scales from the file before and their samples from its last row.
    std::string twoColumns = readAll(example("duty-sweep"));
    const size_t at = twoColumns.find("DS-5352");
    ASSERT_NE(at, std::string::npos);
    twoColumns.replace(at, 7, "DS-5354");
    std::ofstream(dir / "two-columns.csv", std::ios::binary) << twoColumns;
    std::ofstream(dir / "generic.csv", std::ios::binary) << [] {
        std::string s = "Time(s),CH1(V),CH2(V)\r\n";
        for (int k = 0; k < 400; ++k)
            s += std::to_string(k * 1e-6) + (k % 40 < 10 ? ",2.5" : ",0") + (k % 25 < 5 ? ",1" : ",0") + "\r\n";
        return s;
    }();

    const std::vector<std::string> files = {
        example("pulses"), (dir / "two-columns.csv").string(), example("duty-sweep"),
        example("gated"),  (dir / "missing.csv").string(),     (dir / "generic.csv").string(),
        example("pulses")};
    const CliRun one = analyze(dir / "data1", "1", files);
    const CliRun two = analyze(dir / "data2", "2", files);
    EXPECT_EQ(one.status, kExitFileError) << one.err;  // the missing file
    EXPECT_EQ(two.status, one.status);
    EXPECT_EQ(two.out, one.out);
    std::string err = two.err;
    for (size_t at; (at = err.find("data2")) != std::string::npos;) err.replace(at, 5, "data1");
    EXPECT_EQ(err, one.err);
    EXPECT_EQ(two.results, one.results);

    // Every file that loaded gave one result line, the index advancing at
    // every file, the missing one included.
    std::vector<std::string> names;
    std::istringstream lines(two.results);
    for (std::string l; std::getline(lines, l);)
        if (l.rfind("Sample", 0) == 0 && l.size() > 6 && std::isdigit(static_cast<unsigned char>(l[6])))
            names.push_back(l.substr(0, l.find(',')));
    EXPECT_EQ(names, (std::vector<std::string>{"Sample1", "Sample2", "Sample3", "Sample4", "Sample6", "Sample7"}))
        << two.results;
    size_t last = 0;
    for (const auto& f : files) {
        if (f.find("missing") != std::string::npos) continue;
        const size_t pos = two.out.find(f, last);
        ASSERT_NE(pos, std::string::npos) << f << " in\n" << two.out;
        last = pos + 1;
    }
}

}  // namespace
