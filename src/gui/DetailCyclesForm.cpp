#include "gui/DetailCyclesForm.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "app/RunState.h"
#include "gui/GridModel.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"

namespace mervasto {

DetailCyclesForm::DetailCyclesForm(RunState& state, GuiUi& ui, QWidget* parent)
    : QWidget(parent, Qt::Window), state_(state), ui_(ui) {
    setObjectName("DetailCyclesForm");
    setWindowTitle("Cycle's Detail Data / Select Comparator");
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    auto* select = new QPushButton("Select Comparator", this);
    select->setObjectName("SelectComparator");
    select_ = select;
    top->addWidget(select);
    top->addWidget(new QLabel("Comparator File", this));
    file_ = new QLineEdit(this);
    file_->setObjectName("ComparatorFile");
    file_->setReadOnly(true);
    top->addWidget(file_, 1);
    layout->addLayout(top);
    SetupDetailCycleGrid(grid_);
    model_ = new GridModel(&grid_, this);
    model_->editable = [this](int row, int col) {
        return !running_ &&
               (col == kCycleColLL || col == kCycleColUL || col == kCycleColValueLL || col == kCycleColValueUL) &&
               row >= 1 && row - 1 < static_cast<int>(rows_.size()) && rows_[static_cast<size_t>(row - 1)].limits;
    };
    model_->edited = [this](int row, int col, const std::string& text) { return editLimit(row, col, text); };
    view_ = new QTableView(this);
    view_->setObjectName("DetailCycleGrid");
    view_->setModel(model_);
    view_->horizontalHeader()->hide();
    // Rows of one channel look alike but for their kind: the row header
    // and the tip name it.
    auto bodyRow = [this](int row) -> const CycleGridRow* {
        return row >= 1 && row - 1 < static_cast<int>(rows_.size()) ? &rows_[static_cast<size_t>(row - 1)] : nullptr;
    };
    model_->rowHeader = [this, bodyRow](int row) {
        const CycleGridRow* r = bodyRow(row);
        return r ? CycleRowName(*r, displays_) : std::string();
    };
    model_->rowTip = [this, bodyRow](int row) {
        const CycleGridRow* r = bodyRow(row);
        return r ? CycleRowTip(*r, displays_) : std::string();
    };
    view_->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    layout->addWidget(view_, 1);
    warnings_ = new QLabel(this);
    warnings_->setObjectName("LimitWarnings");
    warnings_->setWordWrap(true);
    warnings_->setStyleSheet(QStringLiteral("color: #b00000;"));
    layout->addWidget(warnings_);
    connect(select, &QPushButton::clicked, this, [this] {
        GuardedApplication::report(state_.SelectComparator_Click(ui_));
        refresh();
    });
    resize(800, 520);
    refresh();
}

DetailCyclesForm::~DetailCyclesForm() {
    // The view asks for its row headers while it is torn down, after the
    // rows they come from are gone.
    model_->rowHeader = nullptr;
    model_->rowTip = nullptr;
}

bool DetailCyclesForm::editLimit(int row, int col, const std::string& text) {
    if (running_) return false;
    const Outcome edited = state_.EditLimit(ui_, grid_, rows_, row, col, text);
    // A refusal is the cell's own, said beside the grid: no box.
    const bool refused = edited.code() == ErrorCode::BadOption;
    refusal_ = refused ? edited.text() : std::string();
    if (!refused) GuardedApplication::report(edited);
    showWarnings();
    return edited.ok() || refused;
}

void DetailCyclesForm::showWarnings() {
    std::string text = refusal_;
    for (const auto& w : LimitWarnings(rows_, state_.results().table)) text += (text.empty() ? "" : "\n") + w;
    warnings_->setText(QString::fromStdString(text));
}

void DetailCyclesForm::setRunning(bool running) {
    running_ = running;
    select_->setEnabled(!running);
}

void DetailCyclesForm::refresh() {
    rows_ = state_.BuildLimitGrid(grid_);
    displays_ = state_.channelDisplays();
    file_->setText(QString::fromStdString(state_.settings().ComparatorFile));
    model_->refresh();
    ApplyColumnWidths(view_, grid_);
    refusal_.clear();
    showWarnings();
}

}  // namespace mervasto
