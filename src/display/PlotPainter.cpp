#include "display/PlotPainter.h"

#include <QCoreApplication>
#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPen>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/core/Settings.h"
#include "display/WavePainter.h"
#include "results/SiFormat.h"

namespace mervasto {

namespace {

constexpr int kLeftStrip = 56;
constexpr int kBottomStrip = 22;
constexpr int kTopStrip = 20;
constexpr int kRightStrip = 12;

const QColor kBackground(0, 0, 0);
const QColor kFrameColour(140, 140, 140);
const QColor kGridColour(70, 70, 70);
const QColor kTextColour(210, 210, 210);
const QColor kMeanColour(255, 255, 255);

bool haveFonts() { return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr; }

QPen pen(const QColor& c, Qt::PenStyle style = Qt::SolidLine) {
    QPen p(c, 1, style);
    p.setCosmetic(true);
    return p;
}

void setFont(QPainter& p) {
    QFont font = p.font();
    font.setPixelSize(11);
    p.setFont(font);
}

void drawFrame(QPainter& p, const QRectF& r) {
    p.setPen(pen(kFrameColour));
    p.setBrush(Qt::NoBrush);
    p.drawRect(r.adjusted(0, 0, -1, -1));
}

void drawText(QPainter& p, const QRectF& box, int align, const std::string& text) {
    p.drawText(box, align, QString::fromStdString(text));
}

// The value between lo and hi at fraction f. On an axis around zero the
// middle is 0, not what rounding of the two ends leaves of it.
double axisValue(double lo, double hi, double f) {
    const double v = lo + (hi - lo) * f;
    return std::abs(v) <= 1e-9 * std::max(std::abs(lo), std::abs(hi)) ? 0.0 : v;
}

// Texts under the plot at its left, middle and right.
void drawValueAxis(QPainter& p, const QRectF& r, double lo, double hi, const std::string& unit) {
    p.setPen(kTextColour);
    const double y = r.bottom() + 3;
    drawText(p, QRectF(r.left() - 40, y, 120, kBottomStrip - 4), Qt::AlignLeft | Qt::AlignTop, SiText(lo, unit));
    drawText(p, QRectF(r.center().x() - 60, y, 120, kBottomStrip - 4), Qt::AlignHCenter | Qt::AlignTop,
             SiText(axisValue(lo, hi, 0.5), unit));
    drawText(p, QRectF(r.right() - 120, y, 120, kBottomStrip - 4), Qt::AlignRight | Qt::AlignTop, SiText(hi, unit));
}

// Dotted lines at the quarters of the plot's height.
void drawGrid(QPainter& p, const QRectF& r) {
    p.setPen(pen(kGridColour, Qt::DotLine));
    for (int k = 1; k < 4; ++k) {
        const double y = r.top() + r.height() * k / 4;
        p.drawLine(QPointF(r.left(), y), QPointF(r.right(), y));
    }
}

// Value to pixel of a trend. A flat series sits in the middle; otherwise a
// twentieth of room above and below.
struct TrendScale {
    TrendScale(const QRectF& rect, double x0, double x1, double y0, double y1) : r(rect), xLo(x0), xHi(x1) {
        if (!(xHi > xLo)) xHi = xLo + 1;
        const double pad = y1 > y0 ? (y1 - y0) / 20 : (y0 != 0 ? std::abs(y0) * 0.01 : 1);
        yLo = y0 - pad;
        yHi = y1 + pad;
    }
    double xOf(double v) const { return r.left() + (v - xLo) / (xHi - xLo) * (r.width() - 1); }
    double yOf(double v) const { return r.bottom() - 1 - (v - yLo) / (yHi - yLo) * (r.height() - 1); }
    QRectF r;
    double xLo, xHi, yLo = 0, yHi = 0;
};

// A trend's bottom, middle and top values beside its left edge.
void drawTrendValues(QPainter& p, const QRect& area, const TrendScale& t, const std::string& unit) {
    for (int k = 0; k <= 2; ++k) {
        const double v = axisValue(t.yLo, t.yHi, k / 2.0);
        drawText(p, QRectF(area.left(), t.yOf(v) - 8, kLeftStrip - 6, 16), Qt::AlignRight | Qt::AlignVCenter,
                 SiText(v, unit));
    }
}

// The first and the last item of a trend under the two ends of its plot.
void drawEndTexts(QPainter& p, const QRectF& r, const std::string& first, const std::string& last) {
    const double y = r.bottom() + 3;
    drawText(p, QRectF(r.left(), y, 160, kBottomStrip - 4), Qt::AlignLeft | Qt::AlignTop, first);
    drawText(p, QRectF(r.right() - 160, y, 160, kBottomStrip - 4), Qt::AlignRight | Qt::AlignTop, last);
}

}  // namespace

std::string ChannelPlotTitle(int ch, const ChannelSettings& s, const char* what) {
    const std::string label = "Ch" + std::to_string(ch + 1);
    return label + (s.SigName.empty() || s.SigName == label ? "" : " " + s.SigName) + "  " +
           std::string(s.signalText()) + " " + what;
}

QRectF PlotRect(const QRect& area, bool labels) {
    if (!labels) return QRectF(area);
    return QRectF(area.left() + kLeftStrip, area.top() + kTopStrip,
                  std::max(area.width() - kLeftStrip - kRightStrip, 1),
                  std::max(area.height() - kTopStrip - kBottomStrip, 1));
}

int32_t CountAxisTop(int32_t largest) {
    if (largest <= 5) return std::max(largest, 1);
    // 1, 2, 2.5 or 5 times a power of ten.
    const double power = std::pow(10.0, std::floor(std::log10(static_cast<double>(largest))));
    for (double step : {1.0, 2.0, 2.5, 5.0, 10.0})
        if (step * power >= largest) return static_cast<int32_t>(std::ceil(step * power));
    return largest;
}

void PaintHistogram(QPainter& p, const QRect& area, const Histogram& h, const PlotStyle& style, int32_t selected) {
    p.save();
    p.fillRect(area, kBackground);
    const QRectF r = PlotRect(area, style.labels);
    const bool texts = style.labels && haveFonts();
    if (texts) setFont(p);
    const auto bins = static_cast<int32_t>(h.counts.size());
    const int32_t largest = bins > 0 ? *std::max_element(h.counts.begin(), h.counts.end()) : 0;
    const int32_t top = CountAxisTop(largest);
    drawGrid(p, r);
    const QColor colour = ColorFromBgr(style.colour);
    for (int32_t k = 0; k < bins; ++k) {
        const int32_t n = h.counts[static_cast<size_t>(k)];
        if (n == 0) continue;
        // Whole pixels, so that neighbouring bars neither overlap nor gap.
        const int x0 = static_cast<int>(std::lround(r.left() + r.width() * k / bins));
        const int x1 = static_cast<int>(std::lround(r.left() + r.width() * (k + 1) / bins));
        const int height = static_cast<int>(std::lround(r.height() * n / top));
        const int bottom = static_cast<int>(std::lround(r.bottom()));
        const QColor fill = k == selected ? colour.lighter(150) : colour;
        p.fillRect(QRect(x0, bottom - height, std::max(x1 - x0 - (x1 - x0 > 3 ? 1 : 0), 1), height), fill);
    }
    const double lo = h.low, hi = h.low + h.width * bins;
    if (bins > 0 && hi > lo) {
        auto xOf = [&](double v) { return r.left() + (v - lo) / (hi - lo) * r.width(); };
        p.setClipRect(r);
        p.setPen(pen(kMeanColour));
        p.drawLine(QPointF(xOf(h.mean), r.top()), QPointF(xOf(h.mean), r.bottom()));
        p.setPen(pen(kMeanColour, Qt::DashLine));
        for (double v : {h.mean - h.sigma, h.mean + h.sigma})
            p.drawLine(QPointF(xOf(v), r.top()), QPointF(xOf(v), r.bottom()));
        p.setClipping(false);
    }
    drawFrame(p, r);
    if (texts) {
        p.setPen(kTextColour);
        for (int k = 0; k <= 4; ++k) {
            const double y = r.bottom() - r.height() * k / 4;
            const double count = top * k / 4.0;
            char buf[24];
            std::snprintf(buf, sizeof buf, "%g", std::round(count * 10) / 10);
            drawText(p, QRectF(area.left(), y - 8, kLeftStrip - 6, 16), Qt::AlignRight | Qt::AlignVCenter, buf);
        }
        if (bins > 0) drawValueAxis(p, r, lo, hi, style.unit);
        std::string title = style.title;
        if (h.total > 0)
            title += "   mean " + SiText(h.mean, style.unit) + "   \xCF\x83 " + SiText(h.sigma, style.unit) + "   n " +
                     std::to_string(h.total);
        drawText(p, QRectF(r.left(), area.top() + 2, r.width(), kTopStrip - 4), Qt::AlignLeft | Qt::AlignVCenter,
                 title);
    }
    p.restore();
}

int32_t HistogramBarAt(const QRect& area, const Histogram& h, bool labels, double x) {
    const QRectF r = PlotRect(area, labels);
    const auto bins = static_cast<int32_t>(h.counts.size());
    if (bins == 0 || x < r.left() || x >= r.right()) return -1;
    return std::clamp(static_cast<int32_t>((x - r.left()) / r.width() * bins), 0, bins - 1);
}

void PaintTrend(QPainter& p, const QRect& area, std::span<const double> x, std::span<const double> values,
                const std::string& xUnit, const PlotStyle& style) {
    p.save();
    p.fillRect(area, kBackground);
    const QRectF r = PlotRect(area, style.labels);
    const bool texts = style.labels && haveFonts();
    if (texts) setFont(p);
    const size_t n = std::min(x.size(), values.size());
    double xLo = 0, xHi = 1, yLo = 0, yHi = 1;
    if (n > 0) {
        xLo = *std::min_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n));
        xHi = *std::max_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n));
        const auto [mn, mx] = std::minmax_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(n));
        yLo = *mn;
        yHi = *mx;
    }
    const TrendScale t(r, xLo, xHi, yLo, yHi);
    drawGrid(p, r);
    const QColor colour = ColorFromBgr(style.colour);
    p.setPen(pen(colour));
    const auto columns = static_cast<size_t>(std::max(r.width(), 1.0));
    if (n > 0 && n <= columns * 2) {
        QVector<QPointF> pts(static_cast<qsizetype>(n));
        for (size_t i = 0; i < n; ++i) pts[static_cast<qsizetype>(i)] = QPointF(t.xOf(x[i]), t.yOf(values[i]));
        p.drawPolyline(pts.constData(), static_cast<int>(n));
        if (r.width() / static_cast<double>(n) >= 6) {
            p.setBrush(colour);
            for (const QPointF& pt : pts) p.drawEllipse(pt, 1.5, 1.5);
            p.setBrush(Qt::NoBrush);
        }
    } else if (n > 0) {
        // Min and max of each pixel column: no swing is lost however long the series.
        std::vector<std::pair<double, double>> col(columns, {INFINITY, -INFINITY});
        for (size_t i = 0; i < n; ++i) {
            const auto c = std::min(static_cast<size_t>(std::max(t.xOf(x[i]) - r.left(), 0.0)), columns - 1);
            col[c].first = std::min(col[c].first, values[i]);
            col[c].second = std::max(col[c].second, values[i]);
        }
        QVector<QLineF> lines;
        lines.reserve(static_cast<qsizetype>(columns));
        for (size_t c = 0; c < columns; ++c)
            if (col[c].first <= col[c].second)
                lines.append(QLineF(r.left() + c, t.yOf(col[c].second), r.left() + c, t.yOf(col[c].first)));
        p.drawLines(lines);
    }
    drawFrame(p, r);
    if (texts) {
        p.setPen(kTextColour);
        drawTrendValues(p, area, t, style.unit);
        if (n > 0) {
            if (xUnit.empty()) {
                drawEndTexts(p, r, "cycle " + std::to_string(static_cast<long long>(std::llround(t.xLo))),
                             "cycle " + std::to_string(static_cast<long long>(std::llround(t.xHi))));
            } else {
                drawValueAxis(p, r, t.xLo, t.xHi, xUnit);
            }
        }
        drawText(p, QRectF(r.left(), area.top() + 2, r.width(), kTopStrip - 4), Qt::AlignLeft | Qt::AlignVCenter,
                 style.title);
    }
    p.restore();
}

void PaintSeriesTrend(QPainter& p, const QRect& area, std::span<const SeriesPoint> points, const PlotStyle& style) {
    p.save();
    p.fillRect(area, kBackground);
    const QRectF r = PlotRect(area, style.labels);
    const bool texts = style.labels && haveFonts();
    if (texts) setFont(p);
    double xLo = 0, xHi = 1, yLo = 0, yHi = 1;
    if (!points.empty()) {
        xLo = points.front().pass;
        xHi = points.back().pass;
        yLo = points.front().min;
        yHi = points.front().max;
        for (const SeriesPoint& pt : points) {
            yLo = std::min(yLo, pt.min);
            yHi = std::max(yHi, pt.max);
        }
    }
    const TrendScale t(r, xLo, xHi, yLo, yHi);
    drawGrid(p, r);
    // One vertical stroke per pixel column from the lowest Min to the highest
    // Max of its passes, and the Mean through the middle: a series of 16000
    // passes costs as much as one of a thousand.
    const auto columns = static_cast<size_t>(std::max(r.width(), 1.0));
    struct Column {
        double lo = INFINITY, hi = -INFINITY, mean = 0;
        int n = 0, means = 0;
    };
    std::vector<Column> col(columns);
    for (const SeriesPoint& pt : points) {
        const auto c = std::min(static_cast<size_t>(std::max(t.xOf(pt.pass) - r.left(), 0.0)), columns - 1);
        col[c].lo = std::min(col[c].lo, pt.min);
        col[c].hi = std::max(col[c].hi, pt.max);
        ++col[c].n;
        if (std::isfinite(pt.mean)) {
            col[c].mean += pt.mean;
            ++col[c].means;
        }
    }
    QVector<QLineF> band;
    QVector<QPointF> means;
    for (size_t c = 0; c < columns; ++c) {
        if (col[c].n == 0) continue;
        const double x = r.left() + static_cast<double>(c);
        band.append(QLineF(x, t.yOf(col[c].hi), x, t.yOf(col[c].lo)));
        if (col[c].means > 0) means.append(QPointF(x, t.yOf(col[c].mean / col[c].means)));
    }
    const QColor colour = ColorFromBgr(style.colour);
    QPen bandPen(colour, points.size() < columns / 4 ? 3 : 1);
    bandPen.setCosmetic(true);
    p.setPen(bandPen);
    p.drawLines(band);
    p.setPen(pen(kMeanColour));
    if (means.size() > 1)
        p.drawPolyline(means.constData(), static_cast<int>(means.size()));
    else if (means.size() == 1)
        p.drawPoint(means.front());
    drawFrame(p, r);
    if (texts) {
        p.setPen(kTextColour);
        drawTrendValues(p, area, t, style.unit);
        if (!points.empty())
            drawEndTexts(p, r, "pass " + std::to_string(points.front().pass),
                         "pass " + std::to_string(points.back().pass));
        std::string title = style.title;
        if (!points.empty())
            title += "   last pass: min " + SiText(points.back().min, style.unit) + "   max " +
                     SiText(points.back().max, style.unit) +
                     (std::isfinite(points.back().mean) ? "   mean " + SiText(points.back().mean, style.unit)
                                                        : std::string());
        drawText(p, QRectF(r.left(), area.top() + 2, r.width(), kTopStrip - 4), Qt::AlignLeft | Qt::AlignVCenter,
                 title);
    }
    p.restore();
}

}  // namespace mervasto
