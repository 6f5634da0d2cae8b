#pragma once

#include <QWidget>

#include "common/Event.h"
#include "results/Grid.h"

class QTableView;

namespace mervasto {

class GridModel;
class RunState;

// The main window's "Encoder" tab: the encoder settings (bound by object
// name like every other setting control) and the encoder's results, read only.
class EncoderTab : public QWidget {
    Q_OBJECT
public:
    EncoderTab(RunState& state, QWidget* parent);

    // Fills the grid from the last analysis.
    void refresh();
    const Grid& grid() const { return grid_; }

private:
    RunState& state_;
    Grid grid_;
    GridModel* model_;
    QTableView* view_;
    Subscription results_;
};

}  // namespace mervasto
