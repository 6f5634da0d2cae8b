#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>

#include <vector>

#include "display/PlotPainter.h"
#include "display/WavePainter.h"

namespace mervasto {
namespace {

constexpr uint32_t kGreen = 0x0000FF00;  // 0x00BBGGRR

int heightOf(const QImage& im, int x, QRgb colour) {
    int n = 0;
    for (int y = 0; y < im.height(); ++y) n += im.pixel(x, y) == colour;
    return n;
}

TEST(PlotPainter, HistogramBarsStandAtTheirCounts) {
    const Histogram h{.low = 0, .width = 1, .counts = {1, 2, 4}, .total = 7, .mean = 1.5, .sigma = 0.5};
    PlotStyle style;
    style.colour = kGreen;
    style.labels = false;
    QImage im(300, 200, QImage::Format_RGB32);
    QPainter p(&im);
    PaintHistogram(p, im.rect(), h, style, 2);
    p.end();
    const QRgb green = ColorFromBgr(kGreen).rgb();
    // 4 is the top of the count axis: the bars are a quarter, half and all of
    // the height (less the frame).
    EXPECT_NEAR(heightOf(im, 20, green), 50, 1);
    EXPECT_NEAR(heightOf(im, 120, green), 100, 1);
    EXPECT_EQ(heightOf(im, 220, green), 0);  // the selected bar is lighter
    EXPECT_NEAR(heightOf(im, 220, ColorFromBgr(kGreen).lighter(150).rgb()), 199, 1);
    EXPECT_EQ(im.pixel(150, 10), qRgb(255, 255, 255));  // the mean
    EXPECT_EQ(HistogramBarAt(im.rect(), h, false, 20), 0);
    EXPECT_EQ(HistogramBarAt(im.rect(), h, false, 299), 2);
    EXPECT_EQ(HistogramBarAt(im.rect(), h, false, 300), -1);
    EXPECT_EQ(HistogramBarAt(im.rect(), Histogram{}, false, 20), -1);
}

TEST(PlotPainter, TidyCountAxis) {
    const std::pair<int32_t, int32_t> tops[] = {{0, 1},   {3, 3},   {7, 10},    {12, 20},
                                                {21, 25}, {26, 50}, {100, 100}, {101, 200}};
    for (const auto& [largest, top] : tops) EXPECT_EQ(CountAxisTop(largest), top) << largest;
}

TEST(PlotPainter, LongTrendKeepsEverySwing) {
    // 10,000 cycles alternating 0 and 1 over 300 columns: each column spans both.
    std::vector<double> x, y;
    for (int i = 0; i < 10000; ++i) {
        x.push_back(i + 1);
        y.push_back(i % 2);
    }
    PlotStyle style;
    style.colour = kGreen;
    style.labels = false;
    QImage im(300, 200, QImage::Format_RGB32);
    QPainter p(&im);
    PaintTrend(p, im.rect(), x, y, "", style);
    p.end();
    const QRgb green = ColorFromBgr(kGreen).rgb();
    for (int col : {5, 150, 290}) {
        EXPECT_EQ(im.pixel(col, 20), green) << col;
        EXPECT_EQ(im.pixel(col, 180), green) << col;
        EXPECT_NE(im.pixel(col, 195), green) << col;  // the room below the lowest value
    }
}

}  // namespace
}  // namespace mervasto
