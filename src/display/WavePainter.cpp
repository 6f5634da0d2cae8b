#include "display/WavePainter.h"

#include <QBrush>
#include <QCoreApplication>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPen>
#include <QPolygonF>

#include <algorithm>
#include <cmath>

#include "results/SiFormat.h"

namespace mervasto {

namespace {

// Room for the scale texts above and below the graticule.
constexpr int kLabelStrip = 18;
constexpr int kSideMargin = 6;

const QColor kBackground(0, 0, 0);
const QColor kWindowTint(16, 22, 34);  // the analysis window
const QColor kGridColour(90, 90, 90);
const QColor kAxisColour(140, 140, 140);
const QColor kTextColour(210, 210, 210);
const QColor kRejectColour(150, 150, 150);
const QColor kWindowEdgeColour(110, 130, 170);
constexpr int kBandAlpha = 56;

double clampZoom(double zoom) {
    if (!(zoom >= 1)) return 1;  // NaN too
    return std::min(zoom, 1e12);
}

bool haveFonts() { return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr; }

const QColor kCursorColour[2] = {QColor(255, 255, 255), QColor(255, 160, 40)};

// Rows far outside the picture (a tiny volts-per-division) are pinned well
// beyond it, where the clip drops them, instead of overflowing an int.
int pixelRow(double y) { return static_cast<int>(std::floor(std::clamp(y, -1e6, 1e6))); }

QPen plainPen(const QColor& c, Qt::PenStyle style = Qt::SolidLine) {
    QPen pen(c, 1, style);
    pen.setCosmetic(true);
    return pen;
}

// The image behind the painter when opaque one-pixel strokes may be written
// straight into its pixels (no scaling, rotation or blending in the way).
// Thousands of short vertical strokes cost several times more through the
// painter's rasteriser than as plain stores.
QImage* directTarget(QPainter& p) {
    QPaintDevice* device = p.device();
    if (!device || device->devType() != QInternal::Image) return nullptr;
    auto* image = static_cast<QImage*>(device);
    const QImage::Format f = image->format();
    if (f != QImage::Format_RGB32 && f != QImage::Format_ARGB32 && f != QImage::Format_ARGB32_Premultiplied)
        return nullptr;
    if (image->devicePixelRatio() != 1 || p.worldTransform().type() > QTransform::TxTranslate) return nullptr;
    const QTransform& t = p.worldTransform();
    if (t.dx() != std::floor(t.dx()) || t.dy() != std::floor(t.dy())) return nullptr;
    if (p.compositionMode() != QPainter::CompositionMode_SourceOver || p.opacity() != 1) return nullptr;
    return image;
}

}  // namespace

bool ChannelDrawn(const WaveView& view, int ch) {
    const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
    return c.visible && (view.onlyChannel < 0 || view.onlyChannel == ch) && view.WaveLength > 0 &&
           c.volts.size() >= static_cast<size_t>(view.WaveLength);
}

int32_t VisibleSamples(int32_t waveLength, double zoom) {
    if (waveLength <= 0) return 0;
    const double n = std::ceil(static_cast<double>(waveLength) / clampZoom(zoom));
    return static_cast<int32_t>(std::clamp(n, 1.0, static_cast<double>(waveLength)));
}

void StackChannels(WaveView& view, const QRectF& plot, const std::array<ColumnRange, kChannels>& range) {
    int lanes = 0;
    for (int ch = 0; ch < kChannels; ++ch) lanes += ChannelDrawn(view, ch);
    if (lanes == 0 || plot.height() <= 0) return;
    const double laneHeight = plot.height() / lanes;
    const double divHeight = plot.height() / 8.0;
    int lane = 0;
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(view, ch)) continue;
        double lo = range[static_cast<size_t>(ch)].min, hi = range[static_cast<size_t>(ch)].max;
        if (!std::isfinite(lo) || !std::isfinite(hi) || !(hi - lo > 1e-12)) {
            const double mid = std::isfinite(lo) ? lo : 0.0;
            lo = mid - 0.5;
            hi = mid + 0.5;
        }
        // A tenth of the lane stays free above and below the trace.
        const double pixelsPerVolt = 0.8 * laneHeight / (hi - lo);
        const double laneCentre = plot.top() + (lane + 0.5) * laneHeight;
        WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
        c.VoltsPerDiv = static_cast<float>(divHeight / pixelsPerVolt);
        c.Offset = static_cast<float>((plot.center().y() - laneCentre) / pixelsPerVolt - (lo + hi) / 2);
        ++lane;
    }
}

QColor ColorFromBgr(uint32_t bgr) {
    return QColor(static_cast<int>(bgr & 0xFF), static_cast<int>((bgr >> 8) & 0xFF),
                  static_cast<int>((bgr >> 16) & 0xFF));
}

uint32_t BgrFromColor(const QColor& color) {
    return static_cast<uint32_t>(color.red()) | (static_cast<uint32_t>(color.green()) << 8) |
           (static_cast<uint32_t>(color.blue()) << 16);
}

int32_t FirstSampleCentredOn(int32_t waveLength, double zoom, double centre) {
    const int32_t count = VisibleSamples(waveLength, zoom);
    if (count == 0) return 0;
    const double first = std::round(centre - count / 2.0);
    return static_cast<int32_t>(std::clamp(first, 0.0, static_cast<double>(waveLength - count)));
}

double RecordStartTime(const DsoSetup& setup) {
    const double start = -static_cast<double>(setup.TriggerDelay) - 5.0 * static_cast<double>(setup.TimePerDiv);
    const double dt = setup.SampleInterval;
    if (!(dt > 0) || !std::isfinite(start)) return std::isfinite(start) ? start : 0;
    const double samples = std::round(start / dt);
    return std::abs(start / dt - samples) < 1e-3 ? samples * dt : start;
}

void SetViewData(WaveView& view, const WaveRecord& record, const ChannelResultTable& table, const CycleTable& cycles) {
    view.WaveLength = record.WaveLength;
    view.SampleSec = record.SampleSec;
    for (int ch = 0; ch < kChannels; ++ch) {
        WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
        const std::vector<float>& w = record.wave[static_cast<size_t>(ch)];
        c.volts = w.size() >= static_cast<size_t>(std::max(record.WaveLength, 0))
                      ? std::span<const float>(w.data(), static_cast<size_t>(std::max(record.WaveLength, 0)))
                      : std::span<const float>();
        const ChannelResult& r = table.levels(ch);
        c.HighLevel = r.HighLevel;
        c.LowLevel = r.LowLevel;
        c.Level = r.Level;
    }
    const ChannelResult& ch4 = table.window();
    view.AnaStart = ch4.AnaStart;
    view.AnaEnd = ch4.AnaEnd;
    view.GateStart = ch4.GateStart;
    view.GateEnd = ch4.GateEnd;
    view.cycles = &cycles;
}

WaveGeometry WaveGeometry::Of(const QRect& area, const WaveView& view) {
    WaveGeometry g;
    const int strip = view.labels ? kLabelStrip : 0;
    const int side = view.labels ? kSideMargin : 0;
    g.plot = QRectF(area.left() + side, area.top() + strip, std::max(area.width() - 2 * side, 1),
                    std::max(area.height() - 2 * strip, 1));
    g.count = VisibleSamples(view.WaveLength, view.zoom);
    g.first = g.count == 0 ? 0 : std::clamp(view.firstSample, 0, view.WaveLength - g.count);
    return g;
}

void WavePainter::recordChanged() {
    for (WaveDecimator& d : pyramid_) d.clear();
}

WaveView WavePainter::laidOut(const QRect& area, const WaveView& view) {
    if (!view.stacked) return view;
    std::array<ColumnRange, kChannels> range{};
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(view, ch)) continue;
        const std::span<const float> samples =
            view.channel[static_cast<size_t>(ch)].volts.first(static_cast<size_t>(view.WaveLength));
        WaveDecimator& d = pyramid_[static_cast<size_t>(ch)];
        if (!d.builtFor(samples)) d.build(samples);
        range[static_cast<size_t>(ch)] = d.rangeMinMax(0, view.WaveLength - 1);
    }
    WaveView v = view;
    StackChannels(v, WaveGeometry::Of(area, view).plot, range);
    return v;
}

void WavePainter::paint(QPainter& painter, const QRect& area, const WaveView& original) {
    if (original.stacked) stacked_ = laidOut(area, original);
    const WaveView& view = original.stacked ? stacked_ : original;
    const WaveGeometry g = WaveGeometry::Of(area, view);
    // A caller's own clip is honoured, at the price of the direct pixel path.
    direct_ = !painter.hasClipping();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.fillRect(area, kBackground);
    painter.setClipRect(g.plot, Qt::IntersectClip);
    drawWindows(painter, g, view);
    drawGraticule(painter, g);
    if (g.count > 0) {
        if (view.rejectFlag && view.rejectEnd >= view.rejectStart) {
            const double x0 = g.xOf(view.rejectStart), x1 = g.xOf(view.rejectEnd + 1.0);
            painter.fillRect(QRectF(x0, g.plot.top(), x1 - x0, g.plot.height()),
                             QBrush(kRejectColour, Qt::BDiagPattern));
        }
        for (int ch = 0; ch < kChannels; ++ch)
            if (ChannelDrawn(view, ch)) drawLevels(painter, g, view.channel[static_cast<size_t>(ch)], view.Histerisis);
        for (int ch = kChannels - 1; ch >= 0; --ch)  // Ch1 on top
            if (ChannelDrawn(view, ch)) drawTrace(painter, g, ch, view);
        for (int ch = 0; ch < kChannels; ++ch)
            if (ChannelDrawn(view, ch)) drawEdges(painter, g, ch, view);
        drawExtremes(painter, g, view);
        // The gate is drawn only when it narrows the record.
        if (view.GateEnd >= view.GateStart && (view.GateStart > 0 || view.GateEnd < view.WaveLength - 1)) {
            painter.setPen(plainPen(ColorFromBgr(view.channel[3].colour), Qt::DashLine));
            for (int32_t s : {view.GateStart, view.GateEnd}) {
                const int x = static_cast<int>(std::floor(g.xOf(s)));
                painter.drawLine(x, static_cast<int>(g.plot.top()), x, static_cast<int>(g.plot.bottom()));
            }
        }
        drawCursors(painter, g, view);
    }
    painter.setClipping(false);
    if (view.labels && haveFonts()) drawLabels(painter, area, g, view);
    painter.restore();
}

void WavePainter::drawCursors(QPainter& p, const WaveGeometry& g, const WaveView& view) {
    for (size_t i = 0; i < view.cursor.size(); ++i) {
        const double c = view.cursor[i];
        if (!(c >= g.first && c < g.first + g.count)) continue;
        const int x = static_cast<int>(std::floor(g.xOf(c + 0.5)));
        p.setPen(plainPen(kCursorColour[i], Qt::DashLine));
        p.drawLine(x, static_cast<int>(g.plot.top()), x, static_cast<int>(g.plot.bottom()));
        if (haveFonts()) {
            p.setPen(kCursorColour[i]);
            p.drawText(QPointF(x + 3, g.plot.top() + 12), QString::number(i + 1));
        }
    }
}

void WavePainter::drawWindows(QPainter& p, const WaveGeometry& g, const WaveView& view) {
    if (g.count == 0 || view.AnaEnd < view.AnaStart) return;
    const double x0 = g.xOf(view.AnaStart), x1 = g.xOf(view.AnaEnd + 1.0);
    p.fillRect(QRectF(x0, g.plot.top(), x1 - x0, g.plot.height()), kWindowTint);
    if (view.AnaStart > 0 || view.AnaEnd < view.WaveLength - 1) {
        p.setPen(plainPen(kWindowEdgeColour));
        for (double x : {x0, x1}) {
            const int xi = static_cast<int>(std::floor(x));
            p.drawLine(xi, static_cast<int>(g.plot.top()), xi, static_cast<int>(g.plot.bottom()));
        }
    }
}

void WavePainter::drawGraticule(QPainter& p, const WaveGeometry& g) {
    const QRectF& r = g.plot;
    const int left = static_cast<int>(r.left()), right = static_cast<int>(r.right()) - 1;
    const int top = static_cast<int>(r.top()), bottom = static_cast<int>(r.bottom()) - 1;
    lines_.clear();
    for (int i = 0; i <= 10; ++i) {
        const int x = std::min(left + static_cast<int>(std::lround(i * g.divWidth())), right);
        lines_.append(QLine(x, top, x, bottom));
    }
    for (int j = 0; j <= 8; ++j) {
        const int y = std::min(top + static_cast<int>(std::lround(j * g.divHeight())), bottom);
        lines_.append(QLine(left, y, right, y));
    }
    p.setPen(plainPen(kGridColour, Qt::DotLine));
    p.drawLines(lines_);
    // Centre axes with ticks every fifth of a division.
    lines_.clear();
    const int cx = left + static_cast<int>(std::lround(5 * g.divWidth()));
    const int cy = top + static_cast<int>(std::lround(4 * g.divHeight()));
    for (int i = 1; i < 50; ++i) {
        const int x = left + static_cast<int>(std::lround(i * g.divWidth() / 5));
        lines_.append(QLine(x, cy - 2, x, cy + 2));
    }
    for (int j = 1; j < 40; ++j) {
        const int y = top + static_cast<int>(std::lround(j * g.divHeight() / 5));
        lines_.append(QLine(cx - 2, y, cx + 2, y));
    }
    p.setPen(plainPen(kAxisColour));
    p.drawLines(lines_);
}

void WavePainter::drawLevels(QPainter& p, const WaveGeometry& g, const WaveChannelView& ch, float histerisis) {
    if (ch.HighLevel == ch.LowLevel) return;  // never analysed, or a gate channel
    const QColor colour = ColorFromBgr(ch.colour);
    const double h = (static_cast<double>(ch.HighLevel) - ch.Level) * histerisis / 100.0;
    const double yU = g.yOf(ch.Level + h, ch), yL = g.yOf(ch.Level - h, ch);
    if (h != 0) {
        QColor band = colour;
        band.setAlpha(kBandAlpha);
        p.fillRect(QRectF(g.plot.left(), std::min(yU, yL), g.plot.width(), std::abs(yL - yU)), band);
    }
    const int left = static_cast<int>(g.plot.left()), right = static_cast<int>(g.plot.right()) - 1;
    p.setPen(plainPen(colour, Qt::DotLine));
    for (float v : {ch.HighLevel, ch.LowLevel}) {
        const int y = pixelRow(g.yOf(v, ch));
        p.drawLine(left, y, right, y);
    }
    p.setPen(plainPen(colour, Qt::DashLine));
    const int y = pixelRow(g.yOf(ch.Level, ch));
    p.drawLine(left, y, right, y);
}

void WavePainter::drawTrace(QPainter& p, const WaveGeometry& g, int ch, const WaveView& view) {
    const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
    const std::span<const float> samples = c.volts.first(static_cast<size_t>(view.WaveLength));
    const int32_t columns = std::max(static_cast<int32_t>(g.plot.width()), 1);
    const int32_t last = g.first + g.count - 1;
    // The pyramid pays off only for wide columns; zoomed-in views scan directly.
    if (g.count >= int64_t{columns} * 2 * WaveDecimator::kFineBlock) {
        WaveDecimator& d = pyramid_[static_cast<size_t>(ch)];
        if (!d.builtFor(samples)) d.build(samples);
        d.decimate(g.first, last, columns, trace_);
    } else {
        DecimateScan(samples, g.first, last, columns, trace_);
    }
    if (trace_.count == 0) return;
    const QColor colour = ColorFromBgr(c.colour);
    p.setPen(plainPen(colour));
    const ColumnRange* col = trace_.column.data();
    if (trace_.perSample) {
        points_.resize(trace_.count);
        for (int32_t k = 0; k < trace_.count; ++k)
            points_[k] = QPointF(g.xOf(trace_.first + k + 0.5), std::clamp(g.yOf(col[k].min, c), -1e6, 1e6));
        p.drawPolyline(points_.constData(), static_cast<int>(points_.size()));
        // Single samples become visible as dots once they are well apart.
        if (g.plot.width() / trace_.count >= 8) {
            p.setBrush(colour);
            for (const QPointF& pt : points_) p.drawEllipse(pt, 1.5, 1.5);
            p.setBrush(Qt::NoBrush);
        }
        return;
    }
    // One vertical stroke per column, stretched to meet its neighbour so the
    // trace stays joined across steep edges.
    const int left = static_cast<int>(g.plot.left());
    const double centre = g.plot.center().y();
    const double scale = c.VoltsPerDiv != 0 ? g.divHeight() / c.VoltsPerDiv : 0.0;
    const double offset = c.Offset;
    QImage* image = direct_ ? directTarget(p) : nullptr;
    const QPoint shift(static_cast<int>(p.worldTransform().dx()), static_cast<int>(p.worldTransform().dy()));
    // Rows that may be written: the plot, within the image.
    const int rowMin = std::max(static_cast<int>(g.plot.top()) + shift.y(), 0);
    const int rowMax = image ? std::min(static_cast<int>(g.plot.bottom()) - 1 + shift.y(), image->height() - 1) : 0;
    const QRgb pixel = colour.rgb();
    uchar* bits = image ? image->bits() : nullptr;
    const qsizetype stride = image ? image->bytesPerLine() : 0;
    if (!image) lines_.resize(trace_.count);
    float prevMin = col[0].min, prevMax = col[0].max;
    for (int32_t k = 0; k < trace_.count; ++k) {
        const float hi = std::max(col[k].max, prevMin);
        const float lo = std::min(col[k].min, prevMax);
        prevMin = col[k].min;
        prevMax = col[k].max;
        const int top = pixelRow(centre - (hi + offset) * scale);
        const int bottom = pixelRow(centre - (lo + offset) * scale);
        if (!image) {
            lines_[k] = QLine(left + k, top, left + k, bottom);
            continue;
        }
        const int x = left + k + shift.x();
        if (x < 0 || x >= image->width()) continue;
        const int y0 = std::max(top + shift.y(), rowMin), y1 = std::min(bottom + shift.y(), rowMax);
        uchar* at = bits + y0 * stride + x * 4;
        for (int y = y0; y <= y1; ++y, at += stride) *reinterpret_cast<QRgb*>(at) = pixel;
    }
    if (!image) p.drawLines(lines_);
}

void WavePainter::drawEdges(QPainter& p, const WaveGeometry& g, int ch, const WaveView& view) {
    if (!view.cycles) return;
    const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
    if (c.HighLevel == c.LowLevel) return;
    const std::vector<CycleRecord>& cycles = view.cycles->channel[static_cast<size_t>(ch)];
    // Records without a period (the first and the last in pulse mode) hold no
    // edge positions; the others are in edge order.
    size_t lo = 0, hi = cycles.size();
    while (lo < hi && cycles[lo].Period <= 0) ++lo;
    while (hi > lo && cycles[hi - 1].Period <= 0) --hi;
    const int32_t first = g.first, last = g.first + g.count - 1;
    auto byMid = [](const CycleRecord& r, int32_t s) { return r.MidEdge < s; };
    // A cycle reaches one period either side of its middle edge.
    const auto begin = std::lower_bound(cycles.begin() + static_cast<std::ptrdiff_t>(lo),
                                        cycles.begin() + static_cast<std::ptrdiff_t>(hi), first, byMid);
    const auto end = std::lower_bound(begin, cycles.begin() + static_cast<std::ptrdiff_t>(hi), last + 1, byMid);
    // Markers closer than a few pixels only smear the trace.
    const double room = g.plot.width() / kMinPixelsPerMarkedCycle;
    if (end - begin >= kMaxMarkedCycles || static_cast<double>(end - begin) > room) return;
    const auto from = begin - (begin - cycles.begin() > static_cast<std::ptrdiff_t>(lo) ? 1 : 0);
    const auto to = end + (end < cycles.begin() + static_cast<std::ptrdiff_t>(hi) ? 1 : 0);

    QColor colour = ColorFromBgr(c.colour).lighter(160);
    p.setPen(plainPen(colour));
    p.setBrush(colour);
    const double y = pixelRow(g.yOf(c.Level, c));
    auto mark = [&](int32_t e, bool rising) {
        if (e < first || e > last) return;
        const double x = std::floor(g.xOf(e + 0.5));
        const double d = rising ? 1 : -1;  // rising: below the line, pointing up
        const QPointF tri[3] = {{x, y + d}, {x - 3, y + 6 * d}, {x + 3, y + 6 * d}};
        p.drawPolygon(tri, 3);
    };
    for (auto it = from; it != to; ++it) {
        const int32_t period = static_cast<int32_t>(std::lround(it->Period));
        const int32_t e0 = it->MidEdge - static_cast<int32_t>(std::lround(it->Duty * it->Period / 100.0));
        mark(e0, true);
        mark(it->MidEdge, false);
        mark(e0 + period, true);
    }
    p.setBrush(Qt::NoBrush);
}

std::vector<ExtremeMark> PlaceExtremeMarks(const WaveGeometry& g, const WaveView& view) {
    std::vector<ExtremeMark> marks;
    if (!view.cycles || g.count == 0) return marks;
    // Several channels' marks share two colours: then the label names the channel.
    int shown = 0;
    for (int ch = 0; ch < kChannels; ++ch) shown += ChannelDrawn(view, ch) ? 1 : 0;
    const int width = shown > 1 ? 64 : 40;
    const int top = static_cast<int>(g.plot.top()), bottom = static_cast<int>(g.plot.bottom());
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(view, ch)) continue;
        const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
        if (c.HighLevel == c.LowLevel) continue;
        const std::vector<CycleRecord>& cycles = view.cycles->channel[static_cast<size_t>(ch)];
        const ExtremeCycles& e = view.extremes[static_cast<size_t>(ch)];
        // A bracket just above the high level over the cycle's stretch, wide
        // enough to be seen in the whole-record view, where finding it matters
        // most. Pushed down from the plot's top so that its label stays readable.
        const int y = std::max(pixelRow(g.yOf(c.HighLevel, c)) - 6, top + kMarkLabelStep + 2);
        for (const auto& [index, max] : {std::pair(e.min, false), std::pair(e.max, true)}) {
            if (index < 0 || static_cast<size_t>(index) >= cycles.size()) continue;
            const CycleRecord& r = cycles[static_cast<size_t>(index)];
            if (!CycleHasStretch(r) || r.LastEdge < g.first || r.FirstEdge >= g.first + g.count) continue;
            ExtremeMark m;
            m.ch = ch;
            m.max = max;
            m.named = shown > 1;
            m.x0 = static_cast<int>(std::floor(g.xOf(r.FirstEdge + 0.5)));
            m.x1 = std::max(static_cast<int>(std::floor(g.xOf(r.LastEdge + 0.5))), m.x0 + 2);
            // Kept inside the plot: an extreme at the record's very start or end is common.
            const int left =
                std::clamp((m.x0 + m.x1) / 2 - width / 2, static_cast<int>(g.plot.left()),
                           std::max(static_cast<int>(g.plot.right()) - width, static_cast<int>(g.plot.left())));
            // Channels at one level mark their extremes at one height: a mark
            // whose label would cover another's moves a label's height up,
            // or down, until it covers none.
            auto labelAt = [&](int yAt) { return QRect(left, yAt - kMarkLabelStep, width, kMarkLabelStep - 2); };
            m.y = y;
            for (int step = 0; step <= 2 * kChannels * 2; ++step) {
                const int yAt = y + (step % 2 == 1 ? -1 : 1) * ((step + 1) / 2) * kMarkLabelStep;
                if (yAt - kMarkLabelStep < top || yAt + 4 > bottom) continue;
                const QRect label = labelAt(yAt);
                if (std::none_of(marks.begin(), marks.end(),
                                 [&](const ExtremeMark& other) { return other.label.intersects(label); })) {
                    m.y = yAt;
                    break;
                }
            }
            m.label = labelAt(m.y);
            marks.push_back(m);
        }
    }
    return marks;
}

void WavePainter::drawExtremes(QPainter& p, const WaveGeometry& g, const WaveView& view) {
    const std::vector<ExtremeMark> marks = PlaceExtremeMarks(g, view);
    if (marks.empty()) return;
    QFont font = p.font();
    font.setPixelSize(10);
    if (haveFonts()) p.setFont(font);
    for (const ExtremeMark& m : marks) {
        p.setPen(plainPen(ColorFromBgr(m.max ? kMaxMarkColour : kMinMarkColour)));
        p.drawLine(m.x0, m.y, m.x1, m.y);
        p.drawLine(m.x0, m.y, m.x0, m.y + 4);
        p.drawLine(m.x1, m.y, m.x1, m.y + 4);
        if (!haveFonts()) continue;
        const QString prefix = m.named ? QStringLiteral("Ch%1 ").arg(m.ch + 1) : QString();
        p.drawText(m.label, Qt::AlignHCenter | Qt::AlignBottom, prefix + (m.max ? "max" : "min"));
    }
}

void WavePainter::drawLabels(QPainter& p, const QRect& area, const WaveGeometry& g, const WaveView& view) {
    QFont font = p.font();
    font.setPixelSize(11);
    p.setFont(font);
    const int textTop = area.top() + 2;
    const int textBottom = static_cast<int>(g.plot.bottom()) + 3;
    // Channels with their scales, left to right.
    int x = static_cast<int>(g.plot.left());
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(view, ch)) continue;
        const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
        QString text = QStringLiteral("Ch%1 ").arg(ch + 1);
        if (!c.name.empty()) text += QString::fromStdString(c.name) + QLatin1Char(' ');
        text += QString::fromStdString(SiText(c.VoltsPerDiv, "V")) + QStringLiteral("/div");
        p.setPen(ColorFromBgr(c.colour));
        const QRect box(x, textTop, 400, kLabelStrip - 4);
        QRect used;
        p.drawText(box, Qt::AlignLeft | Qt::AlignVCenter, text, &used);
        x += used.width() + 14;
    }
    p.setPen(kTextColour);
    const double span = static_cast<double>(g.count) * view.SampleSec;
    QString scale = QString::fromStdString(SiText(span / 10.0, "s")) + QStringLiteral("/div");
    if (clampZoom(view.zoom) > 1) scale += QStringLiteral("  x") + QString::number(clampZoom(view.zoom), 'g', 4);
    p.drawText(QRect(static_cast<int>(g.plot.right()) - 300, textTop, 300, kLabelStrip - 4),
               Qt::AlignRight | Qt::AlignVCenter, scale);
    // Times of every second division, as the instrument or the file counts them.
    for (int k = 0; k <= 10; k += 2) {
        const double t = view.startTime + (g.first + k * static_cast<double>(g.count) / 10.0) * view.SampleSec;
        const QString text = QString::fromStdString(SiText(t, "s"));
        const int xk = static_cast<int>(g.plot.left() + k * g.divWidth());
        const int align = k == 0 ? Qt::AlignLeft : k == 10 ? Qt::AlignRight : Qt::AlignHCenter;
        const QRect box = k == 0    ? QRect(xk, textBottom, 120, kLabelStrip - 4)
                          : k == 10 ? QRect(xk - 120, textBottom, 120, kLabelStrip - 4)
                                    : QRect(xk - 60, textBottom, 120, kLabelStrip - 4);
        p.drawText(box, align | Qt::AlignVCenter, text);
    }
}

}  // namespace mervasto
