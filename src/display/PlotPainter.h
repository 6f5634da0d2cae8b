#pragma once

#include <QRect>

#include <cstdint>
#include <span>
#include <string>

#include "results/CycleSeries.h"
#include "results/SeriesTrend.h"

class QPainter;

// The histogram and the trend of a channel's per-cycle values: counts up,
// values with SI prefixes and their unit across.
namespace mervasto {

struct ChannelSettings;

struct PlotStyle {
    std::string title;
    std::string unit;              // of the values: "s", "Hz", "V", "%"
    uint32_t colour = 0x0000FFFF;  // 0x00BBGGRR
    bool labels = true;            // texts (need a QGuiApplication for fonts; skipped without one)
};

// A channel plot's title: "Ch2", the channel's own name when it has one, its
// type and what the plot shows.
std::string ChannelPlotTitle(int ch, const ChannelSettings& s, const char* what);

// Where the bars or the points go inside area: the rest holds the texts.
QRectF PlotRect(const QRect& area, bool labels);

// The top of the count axis: the largest count rounded up to a tidy number.
int32_t CountAxisTop(int32_t largest);

// Bars of h, the mean as a solid line and mean +/- sigma as dashed ones; a
// selected bin (>= 0) is drawn lighter.
void PaintHistogram(QPainter& p, const QRect& area, const Histogram& h, const PlotStyle& style, int32_t selected = -1);

// The bar under x, -1 for none.
int32_t HistogramBarAt(const QRect& area, const Histogram& h, bool labels, double x);

// values against x (cycle numbers when xUnit is empty, else times); long
// series are drawn as the min/max of each pixel column.
void PaintTrend(QPainter& p, const QRect& area, std::span<const double> x, std::span<const double> values,
                const std::string& xUnit, const PlotStyle& style);

// Per pass of a series: the band from Min to Max in the channel's colour and
// the Mean as a white line, against pass number.
void PaintSeriesTrend(QPainter& p, const QRect& area, std::span<const SeriesPoint> points, const PlotStyle& style);

}  // namespace mervasto
