#include <gtest/gtest.h>

#include "results/JitterData.h"

namespace mervasto {
namespace {

JitterResults someJitter() {
    JitterResults j{};
    j[0] = {-2e-9, 1e-9, 0, 1.5e-9, 3, 4e-10, 1e-9, 5, 1, true};
    j[2] = {0.25, 0.5, 0.375, 0.125, 2, 0.1, 0.3, 4, 2, true};
    return j;
}

TEST(JitterData, LinesKeepTheirColumns) {
    const std::array<std::string, kChannels> types = {"Period", "P.W.", "Duty", "Gate"};
    EXPECT_EQ(JitterHeaderLine1(types),
              "Sample Name,Ch1,Period,,,,,,,,Ch2,P.W.,,,,,,,,Ch3,Duty,,,,,,,,Ch4,Gate,,,,,,,");
    const std::string block = ",C2C Min(s),C2C Max(s),C2C Mean(s),C2C σ(s),C2C Counts,TIE RMS(s),TIE p-p(s),TIE Edges,";
    EXPECT_EQ(JitterHeaderLine2(), block + block + block + block);
    EXPECT_EQ(JitterDataLine("S1", someJitter()),
              "S1,-2E-09,1E-09,0,1.5E-09,3,4E-10,1E-09,5,,0,0,0,0,0,0,0,0,,0.25,0.5,0.375,0.125,2,0.1,0.3,4,,"
              "0,0,0,0,0,0,0,0,");
}

TEST(JitterData, GridShowsShownChannelsWithValues) {
    ChannelDisplays d{};
    d[0].SigName = "Clock";
    d[1].DispOffCheck = true;
    d[3].typeText = kGateTypeText;
    Grid g;
    DispJitter(g, d, someJitter());
    ASSERT_EQ(g.rows(), 5);
    ASSERT_EQ(g.cols(), kJitterGridCols);
    EXPECT_EQ(g.text(0, 3), "C2C Min");
    EXPECT_EQ(g.text(0, 10), "TIE Edges");
    struct Row {
        int32_t row;
        std::vector<std::string> cells;  // columns 0..5, then TIE Edges
    };
    const Row rows[] = {
        {1, {"Ch1", "Clock", "Period", "-2 ns", "1 ns", "0 s", "5"}},
        {2, {"Ch2", "", "", "", "", "", ""}},  // switched off
        {3, {"Ch3", "", "Period", "250 ms", "500 ms", "375 ms", "4"}},
        {4, {"Ch4", "", "Gate", "", "", "", ""}},  // the gate has no jitter
    };
    for (const Row& r : rows) {
        for (int32_t c = 0; c < 6; ++c)
            EXPECT_EQ(g.text(r.row, c), r.cells[static_cast<size_t>(c)]) << r.row << "," << c;
        EXPECT_EQ(g.text(r.row, 10), r.cells[6]) << r.row;
    }
    JitterResults small{};
    small[0] = {999.96e-12, 1.23456e-6, 0.5e-15, 12.5e-9, 1, 0, 0, 0, 1, true};
    DispJitter(g, d, small);
    EXPECT_EQ(g.text(1, 4), "1.235 us");  // four digits, as SiText gives them
    EXPECT_EQ(g.text(0, kJitterGridCols - 1), "Note");
    EXPECT_EQ(g.text(1, kJitterGridCols - 1), "");
    small[0].withinOneSample = true;
    DispJitter(g, d, small);
    EXPECT_EQ(g.text(1, kJitterGridCols - 1), kJitterWholeSampleHint);
    // A second fill with nothing valid empties the values.
    DispJitter(g, d, JitterResults{});
    EXPECT_EQ(g.text(1, 3), "");
    EXPECT_EQ(g.text(1, kJitterGridCols - 1), "");
    EXPECT_EQ(g.text(1, 1), "Clock");
}

}  // namespace
}  // namespace mervasto
