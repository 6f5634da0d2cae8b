#pragma once

#include <QWidget>

#include <cstdint>

#include "common/Event.h"
#include "results/Grid.h"
#include "store/RunTally.h"

class QComboBox;
class QLabel;
class QTableView;

namespace mervasto {

class GridModel;
class RunState;

// The main window's "Yield" tab: where the passes are stored (bound by
// object name like every setting control), the yield of the run so far,
// the control chart of a chosen channel's and kind's pass means, and the
// results of the pass clicked on the chart.
class YieldTab : public QWidget {
    Q_OBJECT
public:
    YieldTab(RunState& state, QWidget* parent);

    // The yield and the chart from the run state.
    void refresh();
    // Shows the results of the chart's point (an index of its points).
    void choosePoint(int64_t point);

    const ControlChartData& chart() const { return chart_; }
    const Grid& passGrid() const { return passGrid_; }

protected:
    void showEvent(QShowEvent* e) override;

private:
    RunState& state_;
    QLabel* yield_;
    QComboBox* channel_;
    QComboBox* kind_;
    QWidget* chartView_;
    ControlChartData chart_;
    int64_t selected_ = -1;
    Grid passGrid_;
    GridModel* passModel_;
    QTableView* passView_;
    Subscription saved_;
};

}  // namespace mervasto
