#pragma once

#include <QWidget>

#include <vector>

#include "results/Comparator.h"
#include "results/Grid.h"

class QLabel;
class QLineEdit;
class QTableView;

namespace mervasto {

class GridModel;
class GuiUi;
class RunState;

// "Cycle's Detail Data / Select Comparator": counts per channel and kind
// against LL/UL and every cycle's value against Value LL/UL, edited in place
// or loaded from a comparator file. Beside the grid: why a typed limit was
// refused, and limits that cannot pass (LL above UL) or are not judged.
class DetailCyclesForm : public QWidget {
    Q_OBJECT
public:
    DetailCyclesForm(RunState& state, GuiUi& ui, QWidget* parent = nullptr);
    ~DetailCyclesForm() override;
    void refresh();
    const Grid& grid() const { return grid_; }
    // A typed limit: the verdict again, then the record analysed again
    // (without messages) and its result line appended, as for a new margin.
    // A refused text stays in its cell, marked, and the reason shows beside
    // the grid.
    bool editLimit(int row, int col, const std::string& text);
    const QLabel* warnings() const { return warnings_; }
    // During an instrument run the limits and the comparator stay as they
    // are: a re-analysis then would interleave with the run's pass.
    void setRunning(bool running);

private:
    RunState& state_;
    GuiUi& ui_;
    Grid grid_;
    std::vector<CycleGridRow> rows_;
    ChannelDisplays displays_;  // as the rows were built
    GridModel* model_;
    QTableView* view_;
    QLineEdit* file_;
    QWidget* select_;
    QLabel* warnings_;
    std::string refusal_;  // the last typed limit refused, until the next edit
    bool running_ = false;
    void showWarnings();
};

}  // namespace mervasto
