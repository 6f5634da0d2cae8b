#include "cli/Cli.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "support/TestFolder.h"

#include <cctype>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
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
        "--data-folder", dataFolder.string(),  "analyze", "--jobs", jobs, "--format", "csv",
        "--set",         "ChInputSignal1=P.W."};
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

// The output lines of each file (a file named twice has both sets), sorted.
std::map<std::string, std::vector<std::string>> linesByFile(const std::string& out) {
    std::map<std::string, std::vector<std::string>> lines;
    std::istringstream in(out);
    std::string l;
    std::getline(in, l);  // column names
    while (std::getline(in, l)) lines[l.substr(0, l.find(','))].push_back(l);
    for (auto& [file, list] : lines) std::sort(list.begin(), list.end());
    return lines;
}

std::string fieldOf(const std::string& line, int n) {
    size_t at = 0;
    for (int i = 0; i < n; ++i) at = line.find(',', at) + 1;
    return line.substr(at, line.find(',', at) - at);
}

// Rows of a file in the program's own layout, 1 us apart, all channels at
// 1 V/div.
std::string ownFile(const char* model, int rows, const std::function<std::string(int)>& row) {
    const int channels = model[6] == '2' ? 2 : 4;
    std::string s = std::string("ModelName,") + model + "\r\nTime/div(second), .0001 \r\nDelta (second), 1E-06 \r\n";
    for (int i = 1; i <= channels; ++i) s += "CH" + std::to_string(i) + " Volt/div, 1 \r\n";
    s += "Points , " + std::to_string(rows) + " \r\n" +
         (channels == 2 ? "Ch1 V,Ch2 V\r\n" : "Ch1 V,Ch2 V,Ch3 V,Ch4 V\r\n");
    for (int k = 0; k < rows; ++k) s += row(k) + "\r\n";
    return s;
}

std::string genericFile(int rows, const std::function<std::string(int)>& columns) {
    std::string s = "Time(s),CH1(V),CH2(V)\r\n";
    for (int k = 0; k < rows; ++k) s += std::to_string(k * 1e-6) + "," + columns(k) + "\r\n";
    return s;
}

// Every file's results are its own: the same in either order of the files,
// with one job or two, for the program's own files and other instruments'.
// Loaded side by side, the files give what one at a time gives: the same
// output and result lines, the sample index advancing in the order of the
// files, a missing file in the middle still taking its turn.
TEST(FilePreload, ManyFilesAdvanceInTheirOrder) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-preload-");
    std::ostringstream ignore;
    ASSERT_EQ(RunCli({"--data-folder", (dir / "data0").string(), "make-examples", dir.string()}, ignore, ignore), 0);
    const auto example = [&](const char* name) { return (dir / (std::string(name) + ".csv")).string(); };
    const auto write = [&](const char* name, const std::string& bytes) {
        std::ofstream(dir / name, std::ios::binary) << bytes;
        return (dir / name).string();
    };

    // Four channels by its model, two columns of samples: Ch3 and Ch4 are empty.
    std::string twoColumns = readAll(example("duty-sweep"));
    const size_t at = twoColumns.find("DS-5352");
    ASSERT_NE(at, std::string::npos);
    twoColumns.replace(at, 7, "DS-5354");
    // 1006 rows claim 1010 samples: the last four repeat the last row, high,
    // so the pulse begun at row 1000 does not end (nor take the samples a
    // longer file left there).
    const auto pulses = [](int k) { return std::string(k % 200 < 100 ? "2.5" : "0"); };
    const std::vector<std::string> files = {
        example("pulses"), write("two-columns.csv", twoColumns), example("duty-sweep"), example("gated"),
        (dir / "missing.csv").string(),
        write("generic.csv",
              genericFile(400,
                          [](int k) { return std::string(k % 40 < 10 ? "2.5" : "0") + (k % 25 < 5 ? ",1" : ",0"); })),
        write("long.csv", ownFile("DS-5354", 2000, [](int k) { return k % 90 < 30 ? "0,0,0,0" : "2,2,2,2"; })),
        write("late-edge.csv", ownFile("DS-5352", 1006, [&](int k) { return pulses(k) + ",0"; })),
        write("generic-late-edge.csv", genericFile(1006, [&](int k) { return pulses(k) + ",0"; })),
        // A flat line far from 0 V: a claimed sample of 0 would not fit the display codes.
        write(
            "flat.csv", "Time(s),CH1(V)\r\n" +
                            [] {
                                std::string s;
                                for (int k = 0; k < 1006; ++k) s += std::to_string(k * 1e-6) + ",12\r\n";
                                return s;
                            }()),
        example("pulses")};
    const std::vector<std::string> backwards(files.rbegin(), files.rend());

    const CliRun one = analyze(dir / "data1", "1", files);
    const CliRun two = analyze(dir / "data2", "2", files);
    EXPECT_EQ(one.status, kExitFileError) << one.err;  // the missing file
    EXPECT_EQ(one.err.find("Overflow"), std::string::npos) << one.err;
    EXPECT_EQ(two.status, one.status);
    EXPECT_EQ(two.out, one.out);
    std::string err = two.err;
    for (size_t pos; (pos = err.find("data2")) != std::string::npos;) err.replace(pos, 5, "data1");
    EXPECT_EQ(err, one.err);
    EXPECT_EQ(two.results, one.results);

    const auto lines = linesByFile(one.out);
    for (const char* jobs : {"1", "2", "3"})  // 3: groups of three files
        EXPECT_EQ(linesByFile(analyze(dir / (std::string("back") + jobs), jobs, backwards).out), lines) << jobs;
    for (const char* late : {"late-edge.csv", "generic-late-edge.csv"}) {
        const auto& l = lines.at((dir / late).string());
        EXPECT_EQ(fieldOf(l[0], 9), "4") << l[0];  // Ch1's pulses
    }
    for (const auto& l : lines.at((dir / "two-columns.csv").string()))
        EXPECT_EQ(fieldOf(l, 4), fieldOf(l, 2) <= "2" ? "true" : "false") << l;

    // Every file that loaded gave one result line, the index advancing at
    // every file, the missing one included.
    std::vector<std::string> names;
    std::istringstream results(two.results);
    for (std::string l; std::getline(results, l);)
        if (l.rfind("Sample", 0) == 0 && l.size() > 6 && std::isdigit(static_cast<unsigned char>(l[6])))
            names.push_back(l.substr(0, l.find(',')));
    EXPECT_EQ(names, (std::vector<std::string>{"Sample1", "Sample2", "Sample3", "Sample4", "Sample6", "Sample7",
                                               "Sample8", "Sample9", "Sample10", "Sample11"}))
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
