#include "cli/Plots.h"

#include <QImage>
#include <QPainter>

#include "app/RunState.h"
#include "app/core/DataFolders.h"
#include "cli/Report.h"
#include "common/TextFile.h"
#include "display/ChannelPlots.h"
#include "display/PlotPainter.h"
#include "display/RunWaveView.h"
#include "display/WavePainter.h"
#include "display/WindowPicture.h"
#include "results/CycleSeries.h"
#include "results/SeriesTrend.h"

namespace mervasto {

namespace {

const QSize kWavePlotSize(1000, 500);
const QSize kValuePlotSize(900, 420);

std::string channelTitle(const RunState& state, int ch, const char* what) {
    return ChannelPlotTitle(ch, state.settings().channels[static_cast<size_t>(ch)], what);
}

QImage wavePicture(const RunState& state, int ch, const ExtremeCycles& extremes) {
    WaveView v = RunWaveView(state);
    v.onlyChannel = ch;
    v.extremes[static_cast<size_t>(ch)] = extremes;
    QImage image(kWavePlotSize, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter p(&image);
    WavePainter().paint(p, image.rect(), v);
    return image;
}

// A value plot of the fixed size, painted by paint(painter, rect).
template <class Paint>
QImage valuePicture(Paint paint) {
    QImage image(kValuePlotSize, QImage::Format_RGB32);
    QPainter p(&image);
    paint(p, image.rect());
    return image;
}

}  // namespace

Outcome WriteChannelPlots(const RunState& state, const std::string& dir, const std::string& base,
                          std::vector<std::string>& written, const SeriesTrend* series) {
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!analysedChannel(state, ch)) continue;
        const auto& s = state.settings().channels[static_cast<size_t>(ch)];
        const auto& cycles = state.results().cycles.channel[static_cast<size_t>(ch)];
        const ChannelPlots plots = RunChannelPlots(state, ch);
        PlotStyle style;
        style.unit = plots.unit;
        style.colour = static_cast<uint32_t>(s.BackColor);

        const std::string stem = JoinPath(dir, base + "_Ch" + std::to_string(ch + 1));
        std::vector<std::pair<QImage, std::string>> files;
        files.emplace_back(wavePicture(state, ch, FindExtremeCycles(plots.cycles.values, cycles)), stem + "_Wave.png");
        style.title = channelTitle(state, ch, "histogram");
        files.emplace_back(
            valuePicture([&](QPainter& p, const QRect& r) { PaintHistogram(p, r, plots.histogram, style); }),
            stem + "_Histogram.png");
        style.title = channelTitle(state, ch, "trend");
        files.emplace_back(valuePicture([&](QPainter& p, const QRect& r) {
                               PaintTrend(p, r, plots.numbers, plots.cycles.values, "", style);
                           }),
                           stem + "_Trend.png");
        // The time interval error of the rising edges against time.
        if (!plots.tie.times.empty()) {
            PlotStyle tieStyle = style;
            tieStyle.unit = "s";
            tieStyle.title = channelTitle(state, ch, "time interval error");
            files.emplace_back(valuePicture([&](QPainter& p, const QRect& r) {
                                   PaintTrend(p, r, plots.tie.times, plots.tie.values, "s", tieStyle);
                               }),
                               stem + "_TIE.png");
        }
        if (series && series->passes() > 0) {
            style.title = channelTitle(state, ch, "per pass");
            files.emplace_back(
                valuePicture([&](QPainter& p, const QRect& r) { PaintSeriesTrend(p, r, series->channel(ch), style); }),
                stem + "_Series.png");
        }
        for (const auto& [image, name] : files) {
            if (Outcome saved = SavePlotPicture(image, name); !saved) return saved;
            written.push_back(name);
        }
    }
    // The encoder's position against time, once for the pair.
    if (state.results().encoder.analysed && !state.results().encoder.stepAt.empty()) {
        const PlotSeries position = RunEncoderPositions(state);
        PlotStyle style;
        style.title = "Encoder position (x4 counts)";
        style.colour = static_cast<uint32_t>(state.settings().channels[0].BackColor);
        const QImage image = valuePicture(
            [&](QPainter& p, const QRect& r) { PaintTrend(p, r, position.times, position.values, "s", style); });
        const std::string name = JoinPath(dir, base + "_Position.png");
        if (Outcome saved = SavePlotPicture(image, name); !saved) return saved;
        written.push_back(name);
    }
    return Outcome::Ok();
}

}  // namespace mervasto
