#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/TextUtil.h"
#include "results/ResultFiles.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

class ResultFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("mervasto_results_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const char* name) const { return (dir_ / name).string(); }

    static std::vector<std::string> lines(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        std::string all = ss.str();
        std::vector<std::string> out;
        size_t pos = 0;
        while (pos < all.size()) {
            size_t end = all.find("\r\n", pos);
            EXPECT_NE(end, std::string::npos) << "line without CR LF";
            if (end == std::string::npos) break;
            out.push_back(all.substr(pos, end - pos));
            pos = end + 2;
        }
        return out;
    }

    fs::path dir_;
};

const std::array<std::string, 4> kTypes = {"Period", "P.W.", "Duty", "Gate"};

TEST_F(ResultFilesTest, HeaderOnceThenOneLinePerRunColumnsAligned) {
    const std::string file = path("ResultData.csv");
    ChannelResultTable t;
    ChannelResult& r = t.at(1, 2);
    r.Min = 0.5;
    r.Max = 1.25;
    r.Mean = 0.0123;
    r.Sigma = 1e-7;
    r.Counts = 42;
    t.at(1, 0).Counts = 999;  // only kind 2 is written

    SaveOutcome s = SaveTestResults(file, "S1", kTypes, t);
    EXPECT_TRUE(s.ok);
    EXPECT_EQ(s.status, "Saved Test Results to the " + file + ".");
    s = SaveTestResults(file, "S2", {"x", "x", "x", "x"}, t);  // types changed: no second header
    EXPECT_TRUE(s.ok);

    const auto l = lines(file);
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0], "Sample Name,Ch1,Period,,,,,Ch2,P.W.,,,,,Ch3,Duty,,,,,Ch4,Gate,,,");
    EXPECT_EQ(l[1],
              ",Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse,,Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse,"
              ",Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse,,Min/Mean(%),Max/Mean(%),Means),σ(s),No. of Pulse");
    // Channels without results keep their six columns.
    EXPECT_EQ(l[2], "S1,0,0,0,0,0,,0.5,1.25,0.0123,1E-07,42,,0,0,0,0,0,,0,0,0,0,0,");
    EXPECT_EQ(l[3].substr(0, 3), "S2,");

    const auto h1 = SplitFields(l[0]), h2 = SplitFields(l[1]), d = SplitFields(l[2]);
    EXPECT_EQ(h1.size(), 24u);
    EXPECT_EQ(h2.size(), 24u);
    EXPECT_EQ(d.size(), 25u);
    for (size_t k = 0; k < 4; ++k) {
        EXPECT_EQ(h1[1 + 6 * k], "Ch" + std::to_string(k + 1));
        EXPECT_EQ(h1[2 + 6 * k], kTypes[k]);
        EXPECT_EQ(h2[1 + 6 * k], "Min/Mean(%)");
        EXPECT_EQ(h2[5 + 6 * k], "No. of Pulse");
        EXPECT_EQ(d[6 + 6 * k], "");
        if (k < 3) {
            EXPECT_EQ(h1[6 + 6 * k], "");
            EXPECT_EQ(h2[6 + 6 * k], "");
        }
    }
    EXPECT_EQ(d[5 + 6], "42");
}

TEST_F(ResultFilesTest, SampleNameWithCommaShiftsColumns) {
    const std::string file = path("r.csv");
    ChannelResultTable t;
    t.at(0, 2).Counts = 5;
    ASSERT_TRUE(SaveTestResults(file, "A,B1", kTypes, t).ok);
    const auto d = SplitFields(lines(file)[2]);
    EXPECT_EQ(d[0], "A");
    EXPECT_EQ(d[1], "B1");
    EXPECT_EQ(d[6], "5");
}

TEST_F(ResultFilesTest, MissingFolderFailsWithoutTouchingAnything) {
    const std::string file = path("no_such_folder/ResultData.csv");
    ChannelResultTable t;
    t.at(0, 2).Counts = 5;
    const SaveOutcome s = SaveTestResults(file, "S", kTypes, t);
    EXPECT_FALSE(s.ok);
    EXPECT_EQ(s.status, "Failed to save Test Results.");
    EXPECT_FALSE(fs::exists(dir_ / "no_such_folder"));
    EXPECT_EQ(t.at(0, 2).Counts, 5);
}

TEST_F(ResultFilesTest, DetailFileIsAnImageOfTheGrid) {
    Grid g(3, 3, 1, 1);
    g.text(0, 0) = "Channel";
    g.text(0, 1) = "Ch1";
    g.text(1, 0) = "1";
    g.text(1, 1) = "250u s";
    g.text(1, 2) = "a,b";  // no quoting
    const std::string file = path("d.csv");
    {
        std::ofstream old(file);
        old << "old content that is longer than the new one\r\n\r\n\r\n\r\n\r\n";
    }
    ASSERT_TRUE(SaveDetailData(file, g));
    EXPECT_TRUE(g.redraw);
    const auto l = lines(file);
    ASSERT_EQ(l.size(), 3u);
    EXPECT_EQ(l[0], "Channel,Ch1,");
    EXPECT_EQ(l[1], "1,250u s,a,b");
    EXPECT_EQ(l[2], ",,");
    EXPECT_FALSE(SaveDetailData(path("missing/d.csv"), g));
}

}  // namespace
}  // namespace mervasto
