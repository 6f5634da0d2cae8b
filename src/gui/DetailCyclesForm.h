#pragma once

#include <QWidget>

#include <vector>

#include "results/Comparator.h"
#include "results/Grid.h"

class QLineEdit;
class QTableView;

namespace mervasto {

class GridModel;
class GuiUi;
class RunState;

// "Cycle's Detail Data / Select Comparator": counts per channel and kind
// against LL/UL, edited in place or loaded from a comparator file.
class DetailCyclesForm : public QWidget {
    Q_OBJECT
public:
    DetailCyclesForm(RunState& state, GuiUi& ui, QWidget* parent = nullptr);
    void refresh();
    const Grid& grid() const { return grid_; }
    // A typed LL/UL: the verdict again, then the record analysed again
    // (without messages) and its result line appended, as for a new margin.
    bool editLimit(int row, int col, const std::string& text);
    // During an instrument run the limits and the comparator stay as they
    // are: a re-analysis then would interleave with the run's pass.
    void setRunning(bool running);

private:
    RunState& state_;
    GuiUi& ui_;
    Grid grid_;
    std::vector<CycleGridRow> rows_;
    GridModel* model_;
    QTableView* view_;
    QLineEdit* file_;
    QWidget* select_;
    bool running_ = false;
};

}  // namespace mervasto
