#include <gtest/gtest.h>

#include "common/TextFile.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

#include <filesystem>
#include <functional>
#include <fstream>

#include "common/TextUtil.h"
#include "results/ResultFiles.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

class ResultFilesTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = mervasto::test::FreshTestFolder("mervasto_results_"); }
    void TearDown() override { fs::remove_all(dir_); }
    std::string path(const char* name) const { return (dir_ / name).string(); }

    // The file's lines; every line must end in CR LF.
    static std::vector<std::string> lines(const std::string& file) {
        const std::string all = test::ReadBytes(file);
        EXPECT_TRUE(all.size() >= 2 && all.ends_with("\r\n"));
        return test::CrLfLines(all);
    }

    fs::path dir_;
    const std::array<std::string, 4> types_ = {"Period", "P.W.", "Duty", "Gate"};
};

TEST_F(ResultFilesTest, HeaderOnceThenOneLinePerRunColumnsAligned) {
    const std::string file = path("ResultData.csv");
    ChannelResultTable t;
    t.at(1, Measure::OfType) = {.Min = 0.5, .Max = 1.25, .Mean = 0.0123, .Sigma = 1e-7, .Counts = 42};
    t.at(1, Measure::PulseWidth).Counts = 999;  // only OfType is written

    EXPECT_TRUE(SaveTestResults(file, "S1", types_, t).ok());
    EXPECT_TRUE(SaveTestResults(file, "S2", {"x", "x", "x", "x"}, t).ok());  // no second header

    const auto l = lines(file);
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0], "Sample Name,Ch1,Period,,,,,Ch2,P.W.,,,,,Ch3,Duty,,,,,Ch4,Gate,,,");
    const std::string h = ",Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse";
    EXPECT_EQ(l[1], ToNarrow(h + "," + h + "," + h + "," + h));
    // A channel without results keeps its six columns.
    EXPECT_EQ(l[2], "S1,0,0,0,0,0,,0.5,1.25,0.0123,1E-07,42,,0,0,0,0,0,,0,0,0,0,0,");
    EXPECT_EQ(l[3].substr(0, 3), "S2,");
    const auto h1 = SplitFields(l[0]), h2 = SplitFields(l[1]), d = SplitFields(l[2]);
    for (size_t k = 0; k < 4; ++k) {
        EXPECT_EQ(h1[1 + 6 * k] + h1[2 + 6 * k], "Ch" + std::to_string(k + 1) + types_[k]);
        EXPECT_EQ(h2[5 + 6 * k], "No. of Pulse");
        EXPECT_EQ(d[6 + 6 * k], "");
        if (k < 3) {
            EXPECT_EQ(h1[6 + 6 * k] + h2[6 + 6 * k], "");
        }
    }
}

TEST_F(ResultFilesTest, SampleNameWithCommaShiftsColumns) {
    ChannelResultTable t;
    t.at(0, Measure::OfType).Counts = 5;
    ASSERT_TRUE(SaveTestResults(path("r.csv"), "A,B1", types_, t).ok());
    const auto d = SplitFields(lines(path("r.csv"))[2]);
    EXPECT_EQ(d[0] + "|" + d[1] + "|" + d[6], "A|B1|5");
}

// Places where the line cannot go: each gives the message, and once the place
// is writable again the next save starts a clean file.
TEST_F(ResultFilesTest, UnwritablePlacesFail) {
    ChannelResultTable t;
    t.at(0, Measure::OfType).Counts = 7;
    struct Case {
        const char* name;
        std::function<bool(const std::string& file)> prepare;  // false: cannot be set up here
        std::function<void(const std::string& file)> repair;
    };
    const fs::path folder = dir_ / "out";
    const std::vector<Case> cases = {
        {"missing folder", [](const std::string&) { return true; },
         [&](const std::string&) { fs::create_directories(folder); }},
        {"full disk",
         [&](const std::string& file) {
             if (!fs::exists("/dev/full")) return false;
             fs::create_directories(folder);
             fs::create_symlink("/dev/full", file);
             return true;
         },
         [](const std::string& file) { fs::remove(file); }},
        {"read-only folder",
         [&](const std::string& file) {
             fs::create_directories(folder);
             fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
             if (std::ofstream(file).is_open()) {  // the administrator writes anywhere
                 fs::remove(file);
                 fs::permissions(folder, fs::perms::owner_all);
                 return false;
             }
             return true;
         },
         [&](const std::string&) { fs::permissions(folder, fs::perms::owner_all); }},
        {"a folder in its place",
         [](const std::string& file) {
             fs::create_directories(file);
             return true;
         },
         [](const std::string& file) { fs::remove(file); }},
    };
    for (const auto& c : cases) {
        fs::remove_all(folder);
        const std::string file = (folder / "ResultData.csv").string();
        if (!c.prepare(file)) continue;
        const Outcome s = SaveTestResults(file, "S", types_, t);
        EXPECT_EQ(s.code(), ErrorCode::FileIo) << c.name;
        EXPECT_EQ(s.text(), "Failed to save Test Results.") << c.name;
        c.repair(file);
        ASSERT_TRUE(SaveTestResults(file, "S", types_, t).ok()) << c.name;
        EXPECT_EQ(lines(file).size(), 3u) << c.name;
    }
    fs::remove_all(folder);
}

TEST_F(ResultFilesTest, DetailFileIsAnImageOfTheGrid) {
    Grid g(3, 3, 1, 1);
    g.text(0, 0) = "Channel";
    g.text(0, 1) = "Ch1";
    g.text(1, 0) = "1";
    g.text(1, 1) = "250u s";
    g.text(1, 2) = "a,b";  // no quoting
    const std::string file = path("d.csv");
    std::ofstream(file) << "an older and longer file\r\n\r\n\r\n\r\n\r\n";
    ASSERT_TRUE(SaveDetailData(file, g));
    EXPECT_TRUE(g.redraw);
    EXPECT_EQ(lines(file), (std::vector<std::string>{"Channel,Ch1,", "1,250u s,a,b", ",,"}));
    EXPECT_FALSE(SaveDetailData(path("missing/d.csv"), g));
}

TEST(SplitDetailSavePath, WaveBaseNameFromTheChosenFile) {
    const std::array<const char*, 4> cases[] = {
        // path, folder, file, wave base name
        {"C:\\ProgramData\\Mervasto\\OutputData\\a.csv", "C:\\ProgramData\\Mervasto\\OutputData", "a.csv", "a_Wave"},
        {"/home/u/run 1.csv", "/home/u", "run 1.csv", "run 1_Wave"},
        {"x.data", "", "x.data", "x._Wave"},  // always four characters off
        {"C:\\a", "C:", "a", "_Wave"},
    };
    for (const auto& [path, folder, file, base] : cases) {
        const DetailSavePath p = SplitDetailSavePath(path);
        EXPECT_EQ(p.folder + "|" + p.fileName + "|" + p.waveBaseName, std::string(folder) + "|" + file + "|" + base);
    }
}

}  // namespace
}  // namespace mervasto
