#include "gui/EncoderTab.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QVBoxLayout>

#include "app/RunState.h"
#include "gui/GridModel.h"
#include "results/EncoderFiles.h"

namespace mervasto {

EncoderTab::EncoderTab(RunState& state, QWidget* parent) : QWidget(parent), state_(state) {
    auto* layout = new QVBoxLayout(this);
    auto* settings = new QGridLayout();
    auto* on = new QCheckBox("Encoder", this);
    on->setObjectName("Encoder");
    on->setToolTip("Decode A and B (and Z) as an incremental encoder");
    settings->addWidget(on, 0, 0);
    // Queued: the settings binding takes the tick first.
    connect(on, &QCheckBox::toggled, this, &EncoderTab::refresh, Qt::QueuedConnection);
    auto labelled = [&](QWidget* field, const char* name, const char* label, int row, int col) {
        field->setObjectName(name);
        auto* l = new QLabel(label, this);
        l->setBuddy(field);
        settings->addWidget(l, row, col);
        settings->addWidget(field, row, col + 1);
    };
    auto channelBox = [&](const char* name, const char* label, const QStringList& items, int col) {
        auto* box = new QComboBox(this);
        box->addItems(items);
        labelled(box, name, label, 0, col);
    };
    channelBox("EncoderA", "A: Ch", {"1", "2", "3", "4"}, 1);
    channelBox("EncoderB", "B: Ch", {"1", "2", "3", "4"}, 3);
    channelBox("EncoderZ", "Z: Ch (0 = none)", {"0", "1", "2", "3", "4"}, 5);
    auto textBox = [&](const char* name, const char* label, const char* tip, int col) {
        auto* edit = new QLineEdit(this);
        edit->setToolTip(tip);
        labelled(edit, name, label, 1, col);
    };
    textBox("EncoderCountsPerRev", "Counts/Rev", "Counts per revolution (x4); 0 = not known", 1);
    textBox("MinStateWidth", "Min. state width", "Seconds; shorter states of A or B are dropped as bounce; 0 = off", 3);
    layout->addLayout(settings);

    model_ = new GridModel(&grid_, this);
    view_ = new QTableView(this);
    view_->setObjectName("EncoderGrid");
    view_->setModel(model_);
    view_->horizontalHeader()->hide();
    view_->verticalHeader()->hide();
    view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    layout->addWidget(view_, 1);

    results_ = state_.resultsChanged.subscribe([this] { refresh(); });
    refresh();
}

void EncoderTab::refresh() {
    FillEncoderGrid(grid_, state_.results().encoder, state_.settings().analysis.Encoder);
    model_->refresh();
    view_->setColumnWidth(0, 130);
}

}  // namespace mervasto
