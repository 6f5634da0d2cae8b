#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <cmath>
#include <vector>

#include "display/WavePainter.h"

// The font library keeps a few blocks for the life of the process; they are
// not ours to free.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer looks for this name
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig\n"; }

namespace mervasto {
namespace {

constexpr uint32_t kGreen = 0x0000FF00;  // 0x00BBGGRR
constexpr uint32_t kMagenta = 0x00FF00FF;
const QColor kTint(16, 22, 34);  // background inside the analysis window

// 1000 samples: 0 V up to sample 499, 2 V from 500. At 0.5 V/div and an
// offset of -0.8 V on a 400 x 300 picture, 0 V is row 210, 1 V row 135, 2 V row 60.
struct Scene {
    std::vector<float> square;
    std::vector<float> flat;
    CycleTable cycles;
    WaveView view;

    Scene() : square(1000, 0.0f), flat(1000, 0.0f) {
        std::fill(square.begin() + 500, square.end(), 2.0f);
        view.WaveLength = 1000;
        view.SampleSec = 1e-6f;
        view.labels = false;
        view.AnaEnd = view.GateEnd = 999;
        view.Histerisis = 10;
        view.cycles = &cycles;
        for (auto& c : view.channel) c.visible = false;
        view.channel[0] = {square, 0.5f, -0.8f, kGreen, true, "", 2, 0, 1};
    }

    QImage paint() {
        QImage image(400, 300, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter p(&image);
        WavePainter painter;
        painter.paint(p, image.rect(), view);
        return image;
    }
};

QRgb rgb(uint32_t bgr) { return ColorFromBgr(bgr).rgb(); }

int countInRow(const QImage& im, int y, int x0, int x1, QRgb colour) {
    int n = 0;
    for (int x = x0; x < x1; ++x) n += im.pixel(x, y) == colour;
    return n;
}

TEST(WavePainter, ColoursConvertFromBlueGreenRed) {
    EXPECT_EQ(ColorFromBgr(0x00332211), QColor(0x11, 0x22, 0x33));
    EXPECT_EQ(BgrFromColor(QColor(0x11, 0x22, 0x33)), 0x00332211u);
    EXPECT_EQ(ColorFromBgr(0x000000FF), QColor(Qt::red));
}

TEST(WavePainter, GeometryClampsZoomAndScroll) {
    WaveView v;
    v.WaveLength = 1000;
    v.labels = false;
    const struct {
        double zoom;
        int32_t firstSample, first, count;
    } cases[] = {
        {1, 300, 0, 1000},   {4, 500, 500, 250}, {4, 900, 750, 250},
        {4, -5, 0, 250},     {0, 0, 0, 1000},  // below 1 means the whole record
        {5000, 999, 999, 1},                   // above the largest zoom rate
        {3, 0, 0, 334},                        // partial samples round up
    };
    for (const auto& c : cases) {
        v.zoom = c.zoom;
        v.firstSample = c.firstSample;
        const WaveGeometry g = WaveGeometry::Of(QRect(0, 0, 400, 300), v);
        EXPECT_EQ(g.first, c.first) << c.zoom << " " << c.firstSample;
        EXPECT_EQ(g.count, c.count) << c.zoom << " " << c.firstSample;
    }
    EXPECT_EQ(FirstSampleCentredOn(1000, 4, 500), 375);
    EXPECT_EQ(FirstSampleCentredOn(1000, 4, 990), 750);
    EXPECT_EQ(FirstSampleCentredOn(1000, 1, 500), 0);
}

TEST(WavePainter, SamePictureOnEveryDrawingPath) {
    // Strokes go straight into RGB32 pixels unless a clip, a transform or
    // another format stands in the way; the pictures must not differ.
    Scene s;
    s.view.zoom = 1.3;  // columns of uneven width
    s.view.firstSample = 40;
    auto render = [&](QImage::Format format, bool callerClip, bool translated) {
        QImage image(440, 320, format);
        image.fill(Qt::white);
        QPainter p(&image);
        if (callerClip) p.setClipRect(image.rect());
        if (translated) p.translate(20, 10);
        WavePainter painter;
        painter.paint(p, translated ? QRect(0, 0, 400, 300) : QRect(20, 10, 400, 300), s.view);
        p.end();
        return image.convertToFormat(QImage::Format_RGB32);
    };
    const QImage direct = render(QImage::Format_RGB32, false, false);
    EXPECT_EQ(direct.pixel(20 + 100, 10 + 210), rgb(kGreen));
    EXPECT_EQ(render(QImage::Format_RGB32, true, false), direct);
    EXPECT_EQ(render(QImage::Format_RGB32, false, true), direct);
    EXPECT_EQ(render(QImage::Format_RGB888, false, false), direct);
}

TEST(WavePainter, TraceLevelLinesAndHysteresisBand) {
    Scene s;
    QImage im = s.paint();
    const QRgb green = rgb(kGreen);
    EXPECT_EQ(im.pixel(100, 210), green);  // 0 V in the first half
    EXPECT_EQ(im.pixel(300, 60), green);   // 2 V in the second half
    EXPECT_NE(im.pixel(100, 70), green);
    EXPECT_NE(im.pixel(300, 200), green);
    for (int y : {80, 135, 190}) EXPECT_EQ(im.pixel(200, y), green) << y;  // the step is one stroke
    // Decision level (dashed) across the picture; high and low (dotted) where the trace is not.
    EXPECT_GT(countInRow(im, 135, 0, 400, green), 200);
    EXPECT_GT(countInRow(im, 60, 0, 200, green), 50);
    EXPECT_GT(countInRow(im, 210, 200, 400, green), 50);
    EXPECT_EQ(countInRow(im, 100, 0, 400, green), 1);  // only the step crosses row 100
    // Band 0.9 .. 1.1 V: rows 127.5 .. 142.5, shaded with the channel colour.
    const QRgb inBand = im.pixel(50, 130), outside = im.pixel(50, 120);
    EXPECT_EQ(outside, kTint.rgb());
    EXPECT_NE(inBand, outside);
    EXPECT_GT(qGreen(inBand), qGreen(outside));
    EXPECT_NE(inBand, green);

    s.view.Histerisis = 0;
    im = s.paint();
    EXPECT_EQ(im.pixel(50, 130), kTint.rgb());
    // Equal levels mean no analysis: no level line either.
    s.view.channel[0].HighLevel = s.view.channel[0].LowLevel = 0;
    im = s.paint();
    EXPECT_EQ(countInRow(im, 135, 0, 400, green), 1);
}

TEST(WavePainter, ChoosesChannelsZoomAndScroll) {
    Scene s;
    WaveChannelView& second = s.view.channel[1];
    second = s.view.channel[0];
    second.volts = s.flat;
    second.colour = kMagenta;
    const QRgb green = rgb(kGreen), magenta = rgb(kMagenta);

    QImage im = s.paint();  // all visible channels
    EXPECT_EQ(im.pixel(300, 60), green);
    EXPECT_EQ(im.pixel(300, 210), magenta);

    s.view.onlyChannel = 1;  // one channel's window
    im = s.paint();
    EXPECT_NE(im.pixel(300, 60), green);
    EXPECT_EQ(im.pixel(300, 210), magenta);

    s.view.onlyChannel = -1;
    second.visible = false;  // switched off
    s.view.zoom = 4;         // samples 500..749: all at 2 V
    s.view.firstSample = 500;
    im = s.paint();
    EXPECT_EQ(im.pixel(10, 60), green);
    EXPECT_NE(im.pixel(10, 210), green);
    EXPECT_NE(im.pixel(300, 210), magenta);

    second.volts = std::span<const float>(s.flat).first(10);  // too short for the record: skipped
    second.visible = true;
    EXPECT_NO_FATAL_FAILURE(s.paint());
}

TEST(WavePainter, EdgeMarkersOnlyWhenFewCyclesShow) {
    Scene s;
    // One cycle: rising at 250, falling at 500, rising at 750.
    const CycleRecord c{0, 50, 500, 0, 500};   // Duty 50 %, MidEdge 500, Period 500
    s.cycles.channel[0] = {CycleRecord{}, c};  // a record without a period holds no edges
    const QRgb marker = ColorFromBgr(kGreen).lighter(160).rgb();
    const WaveGeometry g = WaveGeometry::Of(QRect(0, 0, 400, 300), s.view);
    const int row = static_cast<int>(std::floor(g.yOf(1, s.view.channel[0])));
    const int xRise = static_cast<int>(std::floor(g.xOf(250.5)));
    const int xFall = static_cast<int>(std::floor(g.xOf(500.5)));
    QImage im = s.paint();
    EXPECT_EQ(im.pixel(xRise, row + 4), marker);  // rising: below the level, pointing up
    EXPECT_EQ(im.pixel(xFall, row - 4), marker);  // falling: above, pointing down
    EXPECT_NE(im.pixel(xRise, row - 4), marker);

    // 400 px hold markers for 33 cycles at 12 px each.
    for (int n : {33, 34, kMaxMarkedCycles}) {
        s.cycles.channel[0].assign(static_cast<size_t>(n), c);
        for (int k = 1; k < n; ++k) s.cycles.channel[0][k].MidEdge = 500 + k;
        im = s.paint();
        EXPECT_EQ(im.pixel(xRise, row + 4) == marker, n == 33) << n;
    }
}

TEST(WavePainter, WindowGateAndRejectRange) {
    Scene s;
    s.view.channel[0].visible = false;
    s.view.AnaStart = 100;  // x 40 .. 360
    s.view.AnaEnd = 899;
    s.view.GateStart = 50;  // x 20 .. 380
    s.view.GateEnd = 949;
    s.view.channel[3].colour = kMagenta;
    QImage im = s.paint();
    EXPECT_EQ(im.pixel(21, 101), qRgb(0, 0, 0));  // outside the window
    EXPECT_EQ(im.pixel(51, 101), kTint.rgb());    // inside
    EXPECT_EQ(im.pixel(20, 0), rgb(kMagenta));    // gate, dashed in the Ch4 colour

    s.view.rejectFlag = true;  // x 200 .. 240 hatched
    s.view.rejectStart = 500;
    s.view.rejectEnd = 599;
    im = s.paint();
    int hatched = 0, elsewhere = 0;
    for (int y = 100; y < 110; ++y) {
        hatched += countInRow(im, y, 205, 235, kTint.rgb()) < 30;
        elsewhere += countInRow(im, y, 245, 275, kTint.rgb()) < 30;
    }
    EXPECT_GT(hatched, 5);
    EXPECT_EQ(elsewhere, 0);
}

TEST(WavePainter, SetViewDataTakesRowZeroOfEachChannel) {
    WaveRecord record;
    record.WaveLength = 100;
    record.ensureLength(100);
    record.wave[3].resize(50);  // shorter than the record: not drawn
    ChannelResultTable table;
    table.levels(1).HighLevel = 3;
    table.at(1, Measure::Duty).HighLevel = 9;  // another row: not a level
    table.window().AnaStart = 10;
    table.window().GateEnd = 99;
    CycleTable cycles;
    WaveView v;
    SetViewData(v, record, table, cycles);
    EXPECT_EQ(v.channel[0].volts.size(), 100u);
    EXPECT_TRUE(v.channel[3].volts.empty());
    EXPECT_EQ(v.channel[1].HighLevel, 3);
    EXPECT_EQ(v.AnaStart, 10);
    EXPECT_EQ(v.GateEnd, 99);
}

// Four channels of one signal overlaid: every extreme at the same place and
// height. The labels stand apart, inside the plot, each bracket under its own
// label and over its cycle; one channel alone keeps the plain place.
TEST(WavePainter, ExtremeLabelsOfOverlaidChannelsDoNotOverlap) {
    Scene s;
    s.cycles.channel[0] = {CycleRecord{}, CycleRecord{}};
    s.cycles.channel[0][0].FirstEdge = 500;
    s.cycles.channel[0][0].LastEdge = 600;
    s.cycles.channel[0][1].FirstEdge = 520;
    s.cycles.channel[0][1].LastEdge = 640;
    for (int ch = 1; ch < kChannels; ++ch) {
        s.cycles.channel[static_cast<size_t>(ch)] = s.cycles.channel[0];
        s.view.channel[static_cast<size_t>(ch)] = s.view.channel[0];
    }
    for (auto& e : s.view.extremes) e = {0, 1};
    const WaveGeometry g = WaveGeometry::Of(QRect(0, 0, 400, 300), s.view);
    for (int channels : {1, 4}) {
        for (int ch = 0; ch < kChannels; ++ch) s.view.channel[static_cast<size_t>(ch)].visible = ch < channels;
        const std::vector<ExtremeMark> marks = PlaceExtremeMarks(g, s.view);
        ASSERT_EQ(marks.size(), static_cast<size_t>(2 * channels));
        for (size_t i = 0; i < marks.size(); ++i) {
            const ExtremeMark& m = marks[i];
            EXPECT_TRUE(g.plot.contains(m.label)) << i;
            EXPECT_EQ(m.label.bottom() + 3, m.y) << i;
            EXPECT_EQ(m.x0, static_cast<int>(std::floor(g.xOf((m.max ? 520 : 500) + 0.5))));
            EXPECT_EQ(m.named, channels > 1);
            for (size_t j = 0; j < i; ++j) EXPECT_FALSE(m.label.intersects(marks[j].label)) << i << " " << j;
        }
        EXPECT_EQ(marks[0].y, static_cast<int>(std::floor(g.yOf(2, s.view.channel[0]))) - 6);
    }
}

TEST(WavePainter, LabelsDrawWhenFontsAreAvailable) {
    static int argc = 1;
    static char name[] = "test_display";
    static char* argv[] = {name, nullptr};
    // Left alive to the end: tearing it down at exit races Qt's own clean-up.
    if (!QGuiApplication::instance()) new QGuiApplication(argc, argv);
    Scene s;
    s.view.labels = true;
    s.view.channel[0].name = "CLK";
    const QImage im = s.paint();
    int lit = 0;
    for (int y = 0; y < 16; ++y) lit += 400 - countInRow(im, y, 0, 400, qRgb(0, 0, 0));
    EXPECT_GT(lit, 20);
}

}  // namespace
}  // namespace mervasto
