#pragma once

#include <QWidget>

#include <string>
#include <vector>

#include "common/Event.h"
#include "common/Outcome.h"
#include "display/ChannelPlots.h"
#include "display/PlotPainter.h"
#include "results/CycleSeries.h"
#include "results/SeriesTrend.h"

class QComboBox;
class QPainter;
class QLabel;
class QSpinBox;

namespace mervasto {

class RunState;

// The plots of one channel, titled "Histogram / Trend": the spread of its
// per-cycle values (the quantity its type names); those values, the time
// interval error of its edges or the encoder's position against cycle number
// or time; and over a repeat series each pass's Min, Max and Mean against its
// number.
class PlotWindow : public QWidget {
    Q_OBJECT
public:
    PlotWindow(RunState& state, QWidget* parent = nullptr);

    // The record, the results or the channel settings changed.
    void refresh();

    const Histogram& histogram() const { return plots_.histogram; }
    const BinSelection& selection() const { return selection_; }
    // A click on bar `bin` of the histogram (as the mouse does it).
    void clickBar(int32_t bin);
    // Pictures as the canvases draw them, for saving.
    QImage histogramPicture(const QSize& size) const;
    QImage trendPicture(const QSize& size) const;
    QImage seriesPicture(const QSize& size) const;
    const SeriesTrend& series() const { return series_; }
    // The pictures as PNG and their data as CSV into the output folder (the
    // series trend only after a series),
    // named after the sample and the capture counter; the files written go
    // to names.
    Outcome savePlots(std::vector<std::string>& names);

signals:
    // A bar click chose this cycle (0-based) of channel ch (0-based).
    void cycleChosen(int ch, int cycle);

private:
    class Canvas;
    int channel() const;
    PlotStyle style(const char* what) const;
    std::string trendXUnit() const;
    // What the trend shows: the channel's values, the time interval error of
    // its edges, or the encoder's position.
    struct TrendData {
        const PlotSeries* series;
        std::string unit;
        const char* what;
    };
    TrendData trend() const;
    void paintTrend(QPainter& p, const QRect& r) const;

    RunState& state_;
    QComboBox* channel_;
    QSpinBox* bins_;
    QLabel* binNote_;
    QComboBox* trendAxis_;
    QComboBox* trendOf_;
    QLabel* saveNote_;
    Canvas* histogramCanvas_;
    Canvas* trendCanvas_;
    Canvas* seriesCanvas_;

    ChannelPlots plots_;
    BinSelection selection_;
    // Filled on every pass whether shown or not; drawn only when shown.
    SeriesTrend series_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace mervasto
