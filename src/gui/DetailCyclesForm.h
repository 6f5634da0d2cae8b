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
    bool editLimit(int row, int col, const std::string& text);

private:
    RunState& state_;
    GuiUi& ui_;
    Grid grid_;
    std::vector<CycleGridRow> rows_;
    GridModel* model_;
    QTableView* view_;
    QLineEdit* file_;
};

}  // namespace mervasto
