#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "results/EncoderFiles.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

namespace mervasto {
namespace {

size_t commas(const std::string& s) { return static_cast<size_t>(std::count(s.begin(), s.end(), ',')); }

EncoderResult sample() {
    EncoderResult r;
    r.analysed = true;
    r.phase = {88.5, 270, 150.5, 80, 180};
    r.phasePlus = {88.5, 93.25, 90.125, 1.5, 120};
    r.phaseMinus = {266, 270, 268, 1, 60};
    r.stateWidth = {0.00025, 0.004, 0.001, 0.0005, 480};
    r.dutyA = {49, 51, 50, 0.5, 119};
    r.zWidth = {1e-4, 1e-4, 1e-4, 0, 3};
    r.position = -1234;
    r.reversals = 7;
    r.droppedBounces = 42;
    r.indexCount = 3;
    r.revolutions = -3.085;
    r.speed = -0.5;
    r.illegal = 2;
    return r;
}

TEST(EncoderFiles, HeaderAndDataColumnsLineUp) {
    EXPECT_EQ(EncoderHeaderLine1(),
              "Sample Name,Phase(deg),,,,,State Width(s),,,,,A Duty(%),,,,,B Duty(%),,,,,Z Width(s),,,,,"
              "Position,Reversals,Dropped Bounces,Index Count,Phase+(deg),,,,,Phase-(deg),,,,,Illegal");
    EXPECT_EQ(EncoderHeaderLine2(),
              ",Min,Max,Mean,σ,Counts,Min,Max,Mean,σ,Counts,Min,Max,Mean,σ,Counts,Min,Max,Mean,"
              "σ,Counts,Min,Max,Mean,σ,Counts,,,,,Min,Max,Mean,σ,Counts,Min,Max,Mean,σ,Counts,");
    const std::string line = EncoderDataLine("Board7", sample());
    EXPECT_EQ(line.rfind("Board7,88.5,270,150.5,80,180,0.00025,", 0), 0u) << line;
    EXPECT_NE(line.find(",0.0001,0.0001,0.0001,0,3,-1234,7,42,3,88.5,93.25,90.125,1.5,120,266,270,268,1,60,2"),
              std::string::npos)
        << line;
    // A left-out analysis keeps the columns with zeros.
    const std::string empty = EncoderDataLine("S", EncoderResult{});
    for (const auto& l : {EncoderHeaderLine1(), EncoderHeaderLine2(), line, empty}) {
        EXPECT_EQ(commas(l), 40u) << l;
        // The first layout's columns come first, unchanged.
        EXPECT_EQ(commas(FirstEncoderColumns(l)), 29u) << l;
    }
    EXPECT_EQ(FirstEncoderColumns(EncoderHeaderLine1()),
              "Sample Name,Phase(deg),,,,,State Width(s),,,,,A Duty(%),,,,,B Duty(%),,,,,Z Width(s),,,,,"
              "Position,Reversals,Dropped Bounces,Index Count");
}

TEST(EncoderFiles, HeaderOnceAndLinesKeptOnFailure) {
    const auto dir = test::FreshTestFolder("mervasto-encfile-");
    const std::string file = (dir / "EncoderData.csv").string();
    std::filesystem::create_directories(file);  // a folder in its place refuses the write
    std::vector<std::string> lines = {"a,1", "b,2"};
    const Outcome out = SaveEncoderLines(file, lines);
    EXPECT_FALSE(out.ok());
    EXPECT_EQ(out.text(), kFailedToSaveEncoderData);
    EXPECT_EQ(lines.size(), 2u);
    std::filesystem::remove(file);
    EXPECT_TRUE(SaveEncoderLines(file, lines).ok());
    EXPECT_TRUE(lines.empty());
    lines = {"c,3"};
    EXPECT_TRUE(SaveEncoderLines(file, lines).ok());
    const auto got = test::CrLfLines(test::ReadBytes(file));
    ASSERT_EQ(got.size(), 5u);
    EXPECT_EQ(got[0], EncoderHeaderLine1());
    EXPECT_EQ(got[2], "a,1");
    EXPECT_EQ(got[4], "c,3");
}

TEST(EncoderFiles, GridShowsValuesOrTheReason) {
    Grid g;
    FillEncoderGrid(g, sample(), true);
    struct Cell {
        int32_t row, col;
        const char* text;
    };
    // Row 5, B duty, has no cycles: no values and a count of 0.
    const Cell cells[] = {{0, 4, "σ"},           {1, 0, "Phase+(deg)"},   {1, 3, "90.125 deg"}, {1, 5, "120"},
                          {2, 0, "Phase-(deg)"}, {2, 3, "268 deg"},       {3, 1, "250.00u s"},  {5, 1, ""},
                          {5, 5, "0"},           {9, 0, "Position"},      {9, 1, "-1234"},      {11, 1, "42"},
                          {13, 1, "-3.085"},     {14, 0, "Speed(rev/s)"}, {14, 1, "-0.5"},      {15, 0, "Illegal"},
                          {15, 1, "2"}};
    for (const Cell& c : cells) EXPECT_EQ(g.text(c.row, c.col), c.text) << c.row << "," << c.col;
    EncoderResult illegal = sample();
    illegal.note = IllegalNote(2);
    FillEncoderGrid(g, illegal, true);
    EXPECT_EQ(g.text(15, 2), "2 illegal transitions: A and B changed on the same sample");

    EncoderResult out;
    out.note = "B is off";
    FillEncoderGrid(g, out, true);
    EXPECT_EQ(g.text(1, 1), "B is off");
    EXPECT_EQ(g.text(9, 1), "");
    FillEncoderGrid(g, EncoderResult{}, false);
    EXPECT_EQ(g.text(1, 1), "Encoder off");
}

}  // namespace
}  // namespace mervasto
