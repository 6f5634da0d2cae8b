#include "display/ControlChartPainter.h"

#include <QCoreApplication>
#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPen>
#include <QVector>

#include <algorithm>
#include <cmath>

#include "display/WavePainter.h"
#include "results/SiFormat.h"

namespace mervasto {

namespace {

const QColor kBackground(0, 0, 0);
const QColor kFrameColour(140, 140, 140);
const QColor kTextColour(210, 210, 210);
const QColor kCentreColour(255, 255, 255);
const QColor kSigmaColour(230, 200, 60);
const QColor kLimitColour(235, 70, 70);
const QColor kNgColour(255, 40, 40);

// How close (in pixels) a click must come to a pass.
constexpr double kHitPixels = 6;

QPen pen(const QColor& c, Qt::PenStyle style = Qt::SolidLine) {
    QPen p(c, 1, style);
    p.setCosmetic(true);
    return p;
}

// Pass numbers across, values up; the y range holds the points and every line.
struct ChartScale {
    QRectF r;
    double xLo = 0, xHi = 1, yLo = 0, yHi = 1;
    ChartScale(const QRectF& rect, const ControlChartData& c) : r(rect) {
        if (!c.pass.empty()) {
            xLo = c.pass.front();
            xHi = c.pass.back();
        }
        if (xHi <= xLo) {
            xLo -= 0.5;
            xHi += 0.5;
        }
        std::vector<double> ys(c.mean.begin(), c.mean.end());
        if (!c.mean.empty()) ys.insert(ys.end(), {c.centre - 3 * c.sigma, c.centre + 3 * c.sigma});
        if (c.valueLimits) ys.insert(ys.end(), c.valueLimits->begin(), c.valueLimits->end());
        if (!ys.empty()) {
            const auto [lo, hi] = std::minmax_element(ys.begin(), ys.end());
            yLo = *lo;
            yHi = *hi;
        }
        const double pad = yHi > yLo ? (yHi - yLo) * 0.05 : std::max(std::abs(yHi) * 0.01, 1e-12);
        yLo -= pad;
        yHi += pad;
    }
    double xOf(double pass) const { return r.left() + (pass - xLo) / (xHi - xLo) * r.width(); }
    double yOf(double v) const { return r.bottom() - (v - yLo) / (yHi - yLo) * r.height(); }
};

void horizontal(QPainter& p, const ChartScale& s, double v, const QColor& c, Qt::PenStyle style, const char* label,
                bool texts) {
    const double y = s.yOf(v);
    p.setPen(pen(c, style));
    p.drawLine(QPointF(s.r.left(), y), QPointF(s.r.right(), y));
    if (!texts) return;
    p.drawText(QRectF(s.r.right() - 80, y - 14, 78, 13), Qt::AlignRight | Qt::AlignBottom, QString::fromUtf8(label));
}

}  // namespace

void PaintControlChart(QPainter& p, const QRect& area, const ControlChartData& c, const PlotStyle& style,
                       int64_t selected) {
    p.save();
    p.fillRect(area, kBackground);
    const bool texts = style.labels && qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
    if (texts) {
        QFont font = p.font();
        font.setPixelSize(11);
        p.setFont(font);
    }
    const ChartScale s(PlotRect(area, style.labels), c);
    const size_t n = std::min(c.pass.size(), c.mean.size());
    if (n > 0) {
        horizontal(p, s, c.centre, kCentreColour, Qt::SolidLine, "mean", texts);
        horizontal(p, s, c.centre + 3 * c.sigma, kSigmaColour, Qt::DashLine, "+3σ", texts);
        horizontal(p, s, c.centre - 3 * c.sigma, kSigmaColour, Qt::DashLine, "−3σ", texts);
    }
    if (c.valueLimits) {
        horizontal(p, s, (*c.valueLimits)[1], kLimitColour, Qt::SolidLine, "Value UL", texts);
        horizontal(p, s, (*c.valueLimits)[0], kLimitColour, Qt::SolidLine, "Value LL", texts);
    }
    const QColor colour = ColorFromBgr(style.colour);
    const auto columns = static_cast<size_t>(std::max(s.r.width(), 1.0));
    p.setPen(pen(colour));
    if (n <= columns * 2) {
        QVector<QPointF> pts(static_cast<qsizetype>(n));
        for (size_t i = 0; i < n; ++i) pts[static_cast<qsizetype>(i)] = QPointF(s.xOf(c.pass[i]), s.yOf(c.mean[i]));
        if (n > 1) p.drawPolyline(pts.constData(), static_cast<int>(n));
        const bool dots = s.r.width() / static_cast<double>(std::max<size_t>(n, 1)) >= 4;
        for (size_t i = 0; i < n; ++i) {
            const bool ng = i < c.ng.size() && c.ng[i];
            if (!dots && !ng) continue;
            p.setPen(pen(ng ? kNgColour : colour));
            p.setBrush(ng ? kNgColour : colour);
            p.drawEllipse(pts[static_cast<qsizetype>(i)], 2, 2);
        }
        p.setBrush(Qt::NoBrush);
    } else {
        // Min and max of each pixel column: no swing is lost however long the run.
        std::vector<std::pair<double, double>> col(columns, {INFINITY, -INFINITY});
        std::vector<uint8_t> ng(columns, 0);
        for (size_t i = 0; i < n; ++i) {
            const auto k = std::min(static_cast<size_t>(std::max(s.xOf(c.pass[i]) - s.r.left(), 0.0)), columns - 1);
            col[k].first = std::min(col[k].first, c.mean[i]);
            col[k].second = std::max(col[k].second, c.mean[i]);
            if (i < c.ng.size() && c.ng[i]) ng[k] = 1;
        }
        for (size_t k = 0; k < columns; ++k) {
            if (col[k].first > col[k].second) continue;
            p.setPen(pen(ng[k] ? kNgColour : colour));
            p.drawLine(QPointF(s.r.left() + k, s.yOf(col[k].second)), QPointF(s.r.left() + k, s.yOf(col[k].first)));
        }
    }
    if (selected >= 0 && static_cast<size_t>(selected) < n) {
        const auto i = static_cast<size_t>(selected);
        p.setPen(pen(kCentreColour));
        p.drawEllipse(QPointF(s.xOf(c.pass[i]), s.yOf(c.mean[i])), 5, 5);
    }
    p.setPen(pen(kFrameColour));
    p.drawRect(s.r.adjusted(0, 0, -1, -1));
    if (texts) {
        p.setPen(kTextColour);
        const QRectF left(area.left() + 2, s.r.top() - 6, s.r.left() - area.left() - 6, 14);
        p.drawText(left, Qt::AlignRight | Qt::AlignVCenter, QString::fromStdString(SiText(s.yHi, c.unit)));
        p.drawText(left.translated(0, s.r.height()), Qt::AlignRight | Qt::AlignVCenter,
                   QString::fromStdString(SiText(s.yLo, c.unit)));
        if (n > 0) {
            const QRectF under(s.r.left(), s.r.bottom() + 3, s.r.width(), 14);
            p.drawText(under, Qt::AlignLeft | Qt::AlignTop,
                       QStringLiteral("pass %1").arg(static_cast<qlonglong>(std::llround(c.pass.front()))));
            p.drawText(under, Qt::AlignRight | Qt::AlignTop,
                       QStringLiteral("pass %1").arg(static_cast<qlonglong>(std::llround(c.pass[n - 1]))));
        }
        p.drawText(QRectF(s.r.left(), area.top() + 2, s.r.width(), 16), Qt::AlignLeft | Qt::AlignVCenter,
                   QString::fromStdString(style.title));
    }
    p.restore();
}

int64_t ControlChartPointAt(const QRect& area, const ControlChartData& c, bool labels, double x) {
    const size_t n = std::min(c.pass.size(), c.mean.size());
    if (n == 0) return -1;
    const ChartScale s(PlotRect(area, labels), c);
    // The passes rise along the chart: the nearest is beside where x falls.
    const double pass = s.xLo + (x - s.r.left()) / s.r.width() * (s.xHi - s.xLo);
    const auto next = static_cast<size_t>(
        std::lower_bound(c.pass.begin(), c.pass.begin() + static_cast<std::ptrdiff_t>(n), pass) - c.pass.begin());
    int64_t best = -1;
    double bestDistance = kHitPixels;
    for (size_t at : {next - 1, next}) {
        if (at >= n) continue;  // before the first (wrapped round) or after the last
        const double d = std::abs(s.xOf(c.pass[at]) - x);
        if (d <= bestDistance) {
            bestDistance = d;
            best = static_cast<int64_t>(at);
        }
    }
    return best;
}

}  // namespace mervasto
