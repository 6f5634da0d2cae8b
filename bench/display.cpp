// Drawing long records: 4 channels x 5,000,000 samples squeezed into a
// 1600 x 900 picture. A redraw is meant to fit in one 60 Hz frame (16 ms).
#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <array>
#include <cstdint>
#include <vector>

#include "display/WaveDecimator.h"
#include "display/WavePainter.h"

namespace {

using namespace mervasto;

constexpr int32_t kSamples = 5000000;
constexpr int kWidth = 1600;
constexpr int kHeight = 900;

// Pulse trains with a little noise, a different period on each channel.
struct Record {
    std::array<std::vector<float>, 4> volts;
    CycleTable cycles;
    WaveView view;

    Record() {
        uint32_t seed = 99;
        const uint32_t colours[4] = {0x0000FFFF, 0x00FFFF00, 0x00FF00FF, 0x0000FF00};
        view.WaveLength = kSamples;
        view.SampleSec = 1e-8f;
        view.Histerisis = 10;
        view.AnaStart = 50000;
        view.AnaEnd = kSamples - 50001;
        view.GateStart = 0;
        view.GateEnd = kSamples - 1;
        view.cycles = &cycles;
        for (int ch = 0; ch < 4; ++ch) {
            auto& v = volts[ch];
            v.resize(kSamples);
            const int32_t period = 1000 + 37 * ch;
            for (int32_t i = 0; i < kSamples; ++i) {
                seed = seed * 1664525u + 1013904223u;
                const float noise = static_cast<float>(seed >> 24) / 255.0f * 0.1f;
                v[i] = (i % period < period / 2 ? 3.3f : 0.0f) + noise;
            }
            WaveChannelView& c = view.channel[ch];
            c.volts = v;
            c.colour = colours[ch];
            c.VoltsPerDiv = 2;
            c.Offset = -1.5f + ch * 0.5f;
            c.HighLevel = 3.35f;
            c.LowLevel = 0.05f;
            c.Level = 1.7f;
            auto& cy = cycles.channel[ch];
            for (int32_t e0 = period / 2; e0 + period < kSamples && cy.size() < 1000; e0 += period) {
                CycleRecord r;
                r.Period = period;
                r.Duty = 50;
                r.MidEdge = e0 + period / 2;
                r.FirstEdge = e0;
                r.LastEdge = e0 + period;
                cy.push_back(r);
            }
            // The "min" and "max" marks, one of them near the start.
            view.extremes[ch] = {1, static_cast<int32_t>(cy.size()) - 1};
        }
    }
};

Record& record() {
    static Record r;
    return r;
}

void BM_PyramidBuild(benchmark::State& state) {
    Record& r = record();
    std::array<WaveDecimator, 4> pyramid;
    for (auto _ : state) {
        for (int ch = 0; ch < 4; ++ch) pyramid[ch].build(r.volts[ch]);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t{4} * kSamples * 4);
}
BENCHMARK(BM_PyramidBuild)->Unit(benchmark::kMillisecond);

void BM_DecimateScanWhole(benchmark::State& state) {
    Record& r = record();
    DecimatedTrace t;
    for (auto _ : state) {
        for (int ch = 0; ch < 4; ++ch) DecimateScan(r.volts[ch], 0, kSamples - 1, kWidth, t);
        benchmark::DoNotOptimize(t.column.data());
    }
}
BENCHMARK(BM_DecimateScanWhole)->Unit(benchmark::kMillisecond);

void BM_DecimatePyramidWhole(benchmark::State& state) {
    Record& r = record();
    std::array<WaveDecimator, 4> pyramid;
    for (int ch = 0; ch < 4; ++ch) pyramid[ch].build(r.volts[ch]);
    DecimatedTrace t;
    for (auto _ : state) {
        for (int ch = 0; ch < 4; ++ch) pyramid[ch].decimate(0, kSamples - 1, kWidth, t);
        benchmark::DoNotOptimize(t.column.data());
    }
}
BENCHMARK(BM_DecimatePyramidWhole)->Unit(benchmark::kMillisecond);

// Redraws of the picture as a window does them; arg 0 = zoom rate.
void BM_Redraw(benchmark::State& state) {
    Record& r = record();
    r.view.zoom = static_cast<double>(state.range(0));
    r.view.firstSample = FirstSampleCentredOn(kSamples, r.view.zoom, kSamples / 2.0);
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    WavePainter painter;
    {
        QPainter p(&image);
        painter.paint(p, image.rect(), r.view);  // builds the pyramids once
    }
    for (auto _ : state) {
        QPainter p(&image);
        painter.paint(p, image.rect(), r.view);
    }
}
// 31250: the mouse's deepest zoom on this record, one sample per 10 pixels.
BENCHMARK(BM_Redraw)->Arg(1)->Arg(10)->Arg(100)->Arg(1999)->Arg(31250)->Unit(benchmark::kMillisecond);

// The stacked lanes with both cursors, as the wave window draws them.
void BM_RedrawStacked(benchmark::State& state) {
    Record& r = record();
    WaveView view = r.view;
    view.stacked = true;
    view.zoom = static_cast<double>(state.range(0));
    view.firstSample = FirstSampleCentredOn(kSamples, view.zoom, kSamples / 2.0);
    const int32_t count = VisibleSamples(kSamples, view.zoom);
    view.cursor = {view.firstSample + count / 3.0, view.firstSample + 2 * count / 3.0};
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    WavePainter painter;
    {
        QPainter p(&image);
        painter.paint(p, image.rect(), view);
    }
    for (auto _ : state) {
        QPainter p(&image);
        painter.paint(p, image.rect(), view);
    }
}
BENCHMARK(BM_RedrawStacked)->Arg(1)->Arg(100)->Arg(31250)->Unit(benchmark::kMillisecond);

// The first picture of a new record: pyramids built, then drawn.
void BM_FirstDrawWhole(benchmark::State& state) {
    Record& r = record();
    r.view.zoom = 1;
    r.view.firstSample = 0;
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    WavePainter painter;
    for (auto _ : state) {
        painter.recordChanged();
        QPainter p(&image);
        painter.paint(p, image.rect(), r.view);
    }
}
BENCHMARK(BM_FirstDrawWhole)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);  // fonts for the scale texts
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
