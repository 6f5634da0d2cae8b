#pragma once

#include <QPointF>
#include <QRect>

#include <cstdint>

#include "display/PlotPainter.h"
#include "store/RunTally.h"

class QPainter;

// The control chart of the "Yield" tab: each pass's mean of a channel and
// kind against pass number, the centre line and the lines 3 sigma either
// side of it, and the value limits.
namespace mervasto {

// Passes judged NG are marked red; selected (an index of the chart's
// points, -1 for none) is ringed.
void PaintControlChart(QPainter& p, const QRect& area, const ControlChartData& chart, const PlotStyle& style,
                       int64_t selected = -1);

// The point of the pass under x (the nearest within a few pixels), -1 for none.
int64_t ControlChartPointAt(const QRect& area, const ControlChartData& chart, bool labels, double x);

}  // namespace mervasto
