#pragma once

#include <QWidget>

#include <string>
#include <vector>

#include "common/Outcome.h"
#include "display/PlotPainter.h"
#include "results/CycleSeries.h"

class QComboBox;
class QLabel;
class QSpinBox;

namespace mervasto {

class RunState;

// "Histogram / Trend": the spread of one channel's per-cycle values (the
// quantity its type names) and the same values against cycle number or time.
class HistogramWindow : public QWidget {
    Q_OBJECT
public:
    HistogramWindow(RunState& state, QWidget* parent = nullptr);

    // The record, the results or the channel settings changed.
    void refresh();

    const Histogram& histogram() const { return histogram_; }
    const BinSelection& selection() const { return selection_; }
    // A click on bar `bin` of the histogram (as the mouse does it).
    void clickBar(int32_t bin);
    // Pictures as the canvases draw them, for saving.
    QImage histogramPicture(const QSize& size) const;
    QImage trendPicture(const QSize& size) const;
    // Both pictures as PNG and both data sets as CSV into the output folder,
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

    RunState& state_;
    QComboBox* channel_;
    QSpinBox* bins_;
    QLabel* binNote_;
    QComboBox* trendAxis_;
    QLabel* saveNote_;
    Canvas* histogramCanvas_;
    Canvas* trendCanvas_;

    std::string unit_;
    std::vector<double> values_;
    std::vector<double> times_;
    std::vector<double> numbers_;  // 1, 2, ... for the trend against cycle number
    Histogram histogram_;
    BinSelection selection_;
};

}  // namespace mervasto
