#pragma once

#include <QColor>
#include <QLine>
#include <QPointF>
#include <QRect>
#include <QVector>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "display/WaveDecimator.h"
#include "results/CycleSeries.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

class QPainter;

// The oscilloscope picture of a record: a 10 x 8 division graticule, the
// channels at their volts per division and offset, the levels and the
// hysteresis band of the analysis, its window, the gate, the reject range
// and, when zoomed in, the edges of the cycles found.
namespace mervasto {

// Colours are kept in the settings as 0x00BBGGRR.
QColor ColorFromBgr(uint32_t bgr);
uint32_t BgrFromColor(const QColor& color);

// The marks over the cycles with the smallest and largest value, 0x00BBGGRR.
constexpr uint32_t kMinMarkColour = 0x00FF9040;
constexpr uint32_t kMaxMarkColour = 0x004040FF;

constexpr double kMaxZoom = 2000;  // the Zoom box's rates are below this; the mouse goes further

struct WaveChannelView {
    std::span<const float> volts;  // at least WaveLength samples, else not drawn
    float VoltsPerDiv = 1;
    float Offset = 0;              // volts; a sample v sits (v + Offset) / VoltsPerDiv divisions above the centre
    uint32_t colour = 0x0000FFFF;  // 0x00BBGGRR
    bool visible = true;           // false when the channel is switched off
    std::string name;
    // Row 0 of the channel's result record; not drawn while HighLevel == LowLevel.
    float HighLevel = 0;
    float LowLevel = 0;
    float Level = 0;
};

// Everything one picture shows. Spans and the cycle table are views: they
// must outlive the paint call.
struct WaveView {
    std::array<WaveChannelView, kChannels> channel;
    int32_t WaveLength = 0;
    float SampleSec = 0;
    double startTime = 0;  // seconds at sample 0, the trigger at 0 (RecordStartTime)
    float Histerisis = 0;  // percent
    // From the Ch4 row-0 record.
    int32_t AnaStart = 0;
    int32_t AnaEnd = -1;
    int32_t GateStart = 0;
    int32_t GateEnd = -1;
    bool rejectFlag = false;  // the reject range is drawn only when set
    int32_t rejectStart = 0;
    int32_t rejectEnd = 0;
    const CycleTable* cycles = nullptr;  // edges; cycles->channel[ch].size() records
    int onlyChannel = -1;     // -1: every visible channel ("DSO Wave(All)"); 0..3: that one ("DSO Wave(Each)")
    double zoom = 1;          // 1 = the whole record across the screen; at least one sample stays visible
    int32_t firstSample = 0;  // first visible sample; clamped so that the screen stays filled
    bool labels = true;       // scale texts (need a QGuiApplication for fonts; skipped without one)
    bool stacked = false;     // each drawn channel in a lane of its own, scaled to its samples
    // Time cursors as sample numbers (a whole number is the middle of that
    // sample); drawn when >= 0.
    std::array<double, 2> cursor = {-1, -1};
    // Per channel, the cycles marked "min" and "max" (indices into cycles).
    std::array<ExtremeCycles, kChannels> extremes;
};

// The time of sample 0 as the instrument (or the imported file) counts it:
// sample k is at k x SampleInterval - Delay - 5 x TimePerDiv. Snapped to a
// whole number of samples when it is one but for the rounding of the single-
// precision setup, so that the file's time 0 reads "0 s", not some ps.
double RecordStartTime(const DsoSetup& setup);

// Samples on screen at a zoom (0 for an empty record).
int32_t VisibleSamples(int32_t waveLength, double zoom);

// Gives each drawn channel a lane of the plot, Ch1 at the top, by rewriting
// its volts per division and offset so that its range [min, max] fills most
// of the lane. A flat channel gets a range of 1 V around its value.
void StackChannels(WaveView& view, const QRectF& plot, const std::array<ColumnRange, kChannels>& range);
// Whether channel ch is drawn in the view.
bool ChannelDrawn(const WaveView& view, int ch);

// Fills the samples, levels, windows, reject range and cycles of a view from
// the record and the analysis results; colours, scales, names, visibility and
// zoom are the caller's.
void SetViewData(WaveView& view, const WaveRecord& record, const ChannelResultTable& table, const CycleTable& cycles);

// Where things land in a picture: the graticule rectangle and the mapping of
// samples and volts to it. The windows use it for the mouse as well.
struct WaveGeometry {
    QRectF plot;        // 10 x 8 divisions
    int32_t first = 0;  // first visible sample
    int32_t count = 0;  // visible samples (0: nothing to draw)

    static WaveGeometry Of(const QRect& area, const WaveView& view);
    double divWidth() const { return plot.width() / 10.0; }
    double divHeight() const { return plot.height() / 8.0; }
    // Left edge of sample i's share of the width.
    double xOf(double sample) const { return plot.left() + (sample - first) * plot.width() / count; }
    double sampleAt(double x) const { return first + (x - plot.left()) * count / plot.width(); }
    double yOf(double volts, const WaveChannelView& ch) const {
        const double div = ch.VoltsPerDiv != 0 ? (volts + ch.Offset) / ch.VoltsPerDiv : 0.0;
        return plot.center().y() - div * divHeight();
    }
};

// The firstSample that puts `centre` in the middle of the screen at this
// zoom (clamped so that the screen stays filled).
int32_t FirstSampleCentredOn(int32_t waveLength, double zoom, double centre);

// Edge markers are drawn while fewer cycles than this are on screen, and
// only while each visible cycle has at least kMinPixelsPerMarkedCycle of width.
constexpr int32_t kMaxMarkedCycles = 400;
constexpr double kMinPixelsPerMarkedCycle = 12;

// The "min" and "max" marks over each drawn channel's extreme cycles: a
// bracket at row y from x0 to x1 and the label's box above it. Marks whose
// labels would overlap (channels at one level, extremes close together) are
// moved apart by a label's height; all stay inside the plot.
constexpr int kMarkLabelStep = 14;
struct ExtremeMark {
    int ch = 0;
    bool max = false;
    bool named = false;  // "Ch2 max" when several channels are drawn
    int x0 = 0;
    int x1 = 0;
    int y = 0;
    QRect label;
};
std::vector<ExtremeMark> PlaceExtremeMarks(const WaveGeometry& g, const WaveView& view);

// Paints views. Keeps the min/max pyramids of the channels and its drawing
// buffers between calls, so a redraw allocates nothing once warmed up.
class WavePainter {
public:
    // Paints the whole picture into area.
    void paint(QPainter& painter, const QRect& area, const WaveView& view);

    // The pyramids are rebuilt when a channel's span changes; call this when
    // new samples were written into the same memory.
    void recordChanged();

    // The view as it is drawn into area: with its lanes laid out when stacked.
    WaveView laidOut(const QRect& area, const WaveView& view);

private:
    void drawCursors(QPainter& p, const WaveGeometry& g, const WaveView& view);
    void drawGraticule(QPainter& p, const WaveGeometry& g);
    void drawWindows(QPainter& p, const WaveGeometry& g, const WaveView& view);
    void drawLevels(QPainter& p, const WaveGeometry& g, const WaveChannelView& ch, float histerisis);
    void drawTrace(QPainter& p, const WaveGeometry& g, int ch, const WaveView& view);
    void drawEdges(QPainter& p, const WaveGeometry& g, int ch, const WaveView& view);
    void drawExtremes(QPainter& p, const WaveGeometry& g, const WaveView& view);
    void drawLabels(QPainter& p, const QRect& area, const WaveGeometry& g, const WaveView& view);

    std::array<WaveDecimator, kChannels> pyramid_;
    DecimatedTrace trace_;
    QVector<QLine> lines_;
    QVector<QPointF> points_;
    WaveView stacked_;
    bool direct_ = false;  // strokes may go straight into the image's pixels
};

}  // namespace mervasto
