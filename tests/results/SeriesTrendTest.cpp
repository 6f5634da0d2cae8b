#include <gtest/gtest.h>

#include <cmath>

#include "results/ResultGrids.h"
#include "results/SeriesTrend.h"

namespace mervasto {
namespace {

ChannelResultTable pass(double base, bool ch2Valid) {
    ChannelResultTable t;
    auto set = [&t](int ch, double min, double max, double mean, bool valid) {
        ChannelResult& r = t.at(ch, Measure::OfType);
        r.Min = min;
        r.Max = max;
        r.Mean = mean;
        r.Valid = valid;
        t.at(ch, Measure::PulseWidth).Min = -1;  // another kind: never what the trend shows
    };
    set(0, base, base + 2, base + 1, true);
    set(1, 10 * base, 10 * base + 1, 10 * base + 0.5, ch2Valid);
    return t;
}

TEST(SeriesTrend, KeepsEachChannelsMeasuredPassesInOrder) {
    SeriesTrend trend;
    ChannelDisplays types;
    types[0].typeIndex = kTypePw;
    trend.add(1, pass(1, true), types);
    trend.add(2, pass(2, false), types);  // Ch2 found no cycles this pass
    trend.add(3, pass(3, true), types);
    EXPECT_EQ(trend.passes(), 3);
    ASSERT_EQ(trend.channel(0).size(), 3u);
    EXPECT_EQ(trend.channel(0)[2].pass, 3);
    EXPECT_EQ(trend.channel(0)[2].min, 3);
    EXPECT_EQ(trend.channel(0)[2].max, 5);
    EXPECT_EQ(trend.channel(0)[2].mean, 4);
    ASSERT_EQ(trend.channel(1).size(), 2u);
    EXPECT_EQ(trend.channel(1)[1].pass, 3);
    EXPECT_TRUE(trend.channel(2).empty());
    EXPECT_EQ(SeriesTrendCsv(trend.channel(1), "s"),
              "Pass,Min (s),Max (s),Mean (s)\r\n1,10,11,10.5\r\n3,30,31,30.5\r\n");
    // "P.W.(%)": Min and Max in percent, the Mean in seconds, which the
    // trend leaves out rather than draw on the percent axis.
    types[0].typeIndex = kTypePwPercent;
    trend.add(4, pass(4, true), types);
    EXPECT_TRUE(std::isnan(trend.channel(0).back().mean));
    EXPECT_EQ(SeriesTrendCsv(trend.channel(0).subspan(3), "%"), "Pass,Min (%),Max (%),Mean (%)\r\n4,4,6,\r\n");
    trend.clear();
    EXPECT_EQ(trend.passes(), 0);
    EXPECT_TRUE(trend.channel(0).empty());
}

}  // namespace
}  // namespace mervasto
