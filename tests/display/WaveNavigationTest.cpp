#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>

#include <cmath>
#include <vector>

#include "display/WaveNavigation.h"

namespace mervasto {
namespace {

TEST(WaveNavigation, ZoomKeepsTheSampleUnderThePointer) {
    // 1000 samples over 500 pixels: the mouse stops at 50 samples (20 x).
    const struct {
        TimeWindow now;
        double fraction, factor;
        double zoom;
        int32_t first;
    } cases[] = {
        {{1, 0}, 0.5, 2, 2, 250},        // around the middle
        {{1, 0}, 0, 4, 4, 0},            // at the left edge the first sample stays
        {{1, 0}, 1, 4, 4, 750},          // and at the right the last
        {{4, 500}, 0.25, 2, 8, 531},     // 562.5 stays a quarter across
        {{10, 100}, 0.5, 100, 20, 125},  // one sample per 10 pixels at most
        {{2, 400}, 0.5, 0.1, 1, 0},      // out beyond the whole record
        {{4, 740}, 0.9, 0.5, 2, 500},    // zooming out near the end stays on the record
        {{2000, 500}, 0.5, 1, 20, 476},  // a Zoom-box rate beyond the mouse's limit comes back
    };
    for (const auto& c : cases) {
        const TimeWindow w = ZoomAround(1000, 500, c.now, c.fraction, c.factor);
        EXPECT_DOUBLE_EQ(w.zoom, c.zoom) << c.now.zoom << " x" << c.factor;
        EXPECT_EQ(w.first, c.first) << c.now.zoom << " x" << c.factor;
    }
    // The Zoom box's limit does not bind the mouse on a long record.
    EXPECT_GT(ZoomAround(5000000, 1600, {1000, 0}, 0.5, 10).zoom, kMaxZoom);
    EXPECT_EQ(ZoomAround(0, 500, {3, 7}, 0.5, 2).first, 0);
}

TEST(WaveNavigation, DragPansByWhatThePixelsShow) {
    const struct {
        TimeWindow now;
        double dx;
        int32_t first;
    } cases[] = {
        {{4, 500}, 100, 450},                            // 250 samples over 500 px: half a sample a pixel
        {{4, 500}, -100, 550}, {{4, 500}, -10000, 750},  // stops at the end
        {{4, 500}, 10000, 0},  {{1, 0}, 50, 0},          // the whole record does not move
    };
    for (const auto& c : cases) EXPECT_EQ(PannedFirst(1000, 500, c.now, c.dx), c.first) << c.dx;
}

TEST(WaveNavigation, CycleUnderThePointer) {
    auto rec = [](int32_t e0, int32_t e2) { return CycleRecord{.FirstEdge = e0, .LastEdge = e2}; };
    // Period types: cycles joined edge to edge.
    const std::vector<CycleRecord> periods = {rec(10, 30), rec(30, 50), rec(50, 70)};
    // Pulse types: each record spans its own pulse; a record without edges is passed over.
    const std::vector<CycleRecord> pulses = {rec(0, 0), rec(10, 15), rec(30, 35)};
    const struct {
        const std::vector<CycleRecord>* cycles;
        double sample;
        int index;
    } cases[] = {
        {&periods, 5, -1}, {&periods, 10, 0},  {&periods, 29, 0}, {&periods, 30, 1},
        {&periods, 70, 2}, {&periods, 71, -1}, {&pulses, 0, -1},  {&pulses, 12, 1},
        {&pulses, 20, -1}, {&pulses, 35, 2},   {&pulses, 36, -1},
    };
    for (const auto& c : cases) EXPECT_EQ(CycleAt(*c.cycles, c.sample), c.index) << c.sample;
    EXPECT_EQ(CycleAt({}, 3), -1);
}

TEST(WaveNavigation, TipAndReadoutTexts) {
    const CycleRecord r{.Ample = 3.3, .Duty = 25, .PulseWidth = 250, .Period = 1000, .Freq = 1000, .Rms = 1.65};
    EXPECT_EQ(CycleTip(1, 11, r, 1e-6f),
              "Ch2 cycle 12\nPeriod 1 ms\nWidth 250 us\nDuty 25 %\nFrequency 1 kHz\nAmplitude 3.3 V\nRms 1.65 V");

    std::vector<float> wave(1000, 0.0f);
    std::fill(wave.begin() + 500, wave.end(), 2.0f);
    WaveView v;
    v.WaveLength = 1000;
    v.SampleSec = 1e-6f;
    for (auto& c : v.channel) c.visible = false;
    v.channel[0].volts = wave;
    v.channel[0].visible = true;
    v.channel[2].volts = wave;
    v.channel[2].visible = true;
    v.cursor = {100, 600};
    EXPECT_EQ(CursorReadout(v),
              "t1 100 us   t2 600 us   \xCE\x94t 500 us   1/\xCE\x94t 2 kHz\nCh1  0 V   2 V\nCh3  0 V   2 V");
    v.onlyChannel = 2;
    v.cursor = {600, 100};  // a negative span reads as one
    EXPECT_EQ(CursorReadout(v), "t1 600 us   t2 100 us   \xCE\x94t -500 us   1/\xCE\x94t -2 kHz\nCh3  2 V   0 V");
    v.cursor = {-1, 100};
    EXPECT_EQ(CursorReadout(v), "");
}

TEST(WaveNavigation, StackedChannelsFillTheirOwnLanes) {
    std::vector<float> wave(100, 0.0f);
    WaveView v;
    v.WaveLength = 100;
    for (auto& c : v.channel) {
        c.volts = wave;
        c.VoltsPerDiv = 5;
        c.Offset = 0;
    }
    v.channel[1].visible = false;  // lanes only for the drawn channels
    const QRectF plot(0, 0, 400, 300);
    std::array<ColumnRange, kChannels> range{{{0, 2}, {0, 1}, {-5, 5}, {1, 1}}};
    StackChannels(v, plot, range);
    WaveGeometry g;
    g.plot = plot;
    const struct {
        int ch;
        double volts, y;
    } cases[] = {
        {0, 0, 90},   {0, 2, 10},    {0, 1, 50},  // lane 0: rows 0..100, 10 % free each side
        {2, -5, 190}, {2, 5, 110},                // lane 1
        {3, 1, 250},  {3, 1.5, 210},              // a flat channel: 1 V around its value
    };
    for (const auto& c : cases)
        EXPECT_NEAR(g.yOf(c.volts, v.channel[static_cast<size_t>(c.ch)]), c.y, 1e-3) << c.ch << " " << c.volts;
    EXPECT_EQ(v.channel[1].VoltsPerDiv, 5);
}

TEST(WaveNavigation, CursorsAreDrawnOnTheirSamples) {
    std::vector<float> wave(100, 0.0f);
    WaveView v;
    v.WaveLength = 100;
    v.labels = false;
    for (auto& c : v.channel) c.visible = false;
    v.channel[0].volts = wave;
    v.channel[0].visible = true;
    v.cursor = {10, 50};
    QImage image(400, 300, QImage::Format_RGB32);
    QPainter p(&image);
    WavePainter painter;
    painter.paint(p, image.rect(), v);
    // Sample k covers columns 4k..4k+3; a cursor sits in the middle of its sample.
    auto isCursor = [&](int x) { return image.pixel(x, 1) == qRgb(255, 255, 255); };
    EXPECT_TRUE(isCursor(42));
    EXPECT_FALSE(isCursor(41));
    const auto orange = qRgb(255, 160, 40);
    EXPECT_EQ(image.pixel(202, 1), orange);
}

TEST(WaveNavigation, RecordStartTimeIsTheInstrumentsOrTheFilesTime) {
    const struct {
        const char* name;
        float TimePerDiv, TriggerDelay, SampleInterval;
        double start;
    } cases[] = {
        // 2000 rows from -0.25 ms at 1 us: the import's delay, snapped to -250 samples.
        {"import", 200e-6f, -750e-6f, 1e-6f, -250 * static_cast<double>(1e-6f)},
        {"half a sample off stays", 200e-6f, -750.5e-6f, 1e-6f, -(-750.5e-6f) - 5.0 * 200e-6f},
        {"trigger at the centre", 1e-3f, 0, 1e-6f, -5000 * static_cast<double>(1e-6f)},
        {"no interval", 1e-3f, 1e-3f, 0, -1e-3f - 5.0 * 1e-3f},
    };
    for (const auto& c : cases) {
        DsoSetup setup;
        setup.TimePerDiv = c.TimePerDiv;
        setup.TriggerDelay = c.TriggerDelay;
        setup.SampleInterval = c.SampleInterval;
        EXPECT_NEAR(RecordStartTime(setup), c.start, 1e-15) << c.name;
    }
}

}  // namespace
}  // namespace mervasto
