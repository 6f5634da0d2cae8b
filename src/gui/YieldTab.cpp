#include "gui/YieldTab.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QTableView>
#include <QVBoxLayout>

#include <functional>

#include "analysis/CycleQuantity.h"
#include "app/RunState.h"
#include "display/ControlChartPainter.h"
#include "gui/GridModel.h"
#include "results/Comparator.h"
#include "results/SiFormat.h"
#include "store/ResultStore.h"

namespace mervasto {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

// The chart drawn by the display layer; a click hands on the pass under it.
class ChartView : public QWidget {
public:
    ChartView(const ControlChartData& chart, const int64_t& selected, QWidget* parent)
        : QWidget(parent), chart_(chart), selected_(selected) {
        setMinimumHeight(180);
    }
    std::function<void(int64_t)> clicked;
    PlotStyle style;

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        PaintControlChart(p, rect(), chart_, style, selected_);
    }
    void mousePressEvent(QMouseEvent* e) override {
        const int64_t point = ControlChartPointAt(rect(), chart_, style.labels, e->position().x());
        if (point >= 0 && clicked) clicked(point);
    }

private:
    const ControlChartData& chart_;
    const int64_t& selected_;
};

const std::vector<std::string> kPassGridHead = {"Ch", "Type", "Kind", "Min", "Max", "Mean", "σ", "Counts", "Go/NG"};

}  // namespace

YieldTab::YieldTab(RunState& state, QWidget* parent) : QWidget(parent), state_(state) {
    auto* layout = new QVBoxLayout(this);
    auto* store = new QHBoxLayout();
    auto box = [&](const char* name, const char* label, const QString& placeholder, const char* tip) {
        auto* edit = new QLineEdit(this);
        edit->setObjectName(name);
        edit->setPlaceholderText(placeholder);
        edit->setToolTip(tip);
        auto* l = new QLabel(label, this);
        l->setBuddy(edit);
        store->addWidget(l);
        store->addWidget(edit, 1);
    };
    box("ResultsDb", "Results Store", QStringLiteral("OutputData/") + kResultStoreFileName,
        "Where every pass is stored: empty for the data folder's results.sqlite, a SQLite file, or "
        "postgresql://USER@HOST/DB for the server of a line of stations");
    box("StationName", "Station", q(HostName()), "This station's name in the store; empty for the computer's name");
    layout->addLayout(store);

    yield_ = new QLabel(this);
    yield_->setObjectName("RunYield");
    layout->addWidget(yield_);

    auto* choice = new QHBoxLayout();
    channel_ = new QComboBox(this);
    channel_->setObjectName("YieldChannel");
    for (int ch = 1; ch <= kChannels; ++ch) channel_->addItem(QStringLiteral("Ch%1").arg(ch));
    kind_ = new QComboBox(this);
    kind_->setObjectName("YieldKind");
    for (const char* name : kKindNames) kind_->addItem(name);
    kind_->setCurrentIndex(static_cast<int>(Measure::OfType));
    choice->addWidget(new QLabel("Control chart of the pass means:", this));
    choice->addWidget(channel_);
    choice->addWidget(kind_);
    choice->addStretch(1);
    layout->addLayout(choice);

    auto* chart = new ChartView(chart_, selected_, this);
    chart->setObjectName("ControlChart");
    chart->clicked = [this](int64_t point) { choosePoint(point); };
    chartView_ = chart;
    layout->addWidget(chart, 2);

    passModel_ = new GridModel(&passGrid_, this);
    passView_ = new QTableView(this);
    passView_->setObjectName("YieldPassGrid");
    passView_->setModel(passModel_);
    passView_->horizontalHeader()->hide();
    passView_->verticalHeader()->hide();
    passView_->verticalHeader()->setDefaultSectionSize(20);
    passView_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    layout->addWidget(passView_, 1);

    auto changed = [this] {
        selected_ = -1;
        refresh();
    };
    connect(channel_, &QComboBox::currentIndexChanged, this, changed);
    connect(kind_, &QComboBox::currentIndexChanged, this, changed);
    // Following a long series costs nothing while the tab is not shown.
    saved_ = state_.passSaved.subscribe([this] {
        if (isVisible()) refresh();
    });
    choosePoint(-1);
    refresh();
}

void YieldTab::showEvent(QShowEvent* e) {
    QWidget::showEvent(e);
    refresh();
}

void YieldTab::refresh() {
    const RunTally& t = state_.runTally();
    const auto passes = static_cast<int64_t>(t.passes().size());
    if (passes == 0) {
        yield_->setText("No pass in this run yet.");
    } else {
        const std::string run = t.runId() ? "Run " + std::to_string(t.runId()) : std::string("This run (not stored)");
        yield_->setText(q(run + ": " + std::to_string(passes) + (passes == 1 ? " pass, " : " passes, ") +
                          std::to_string(t.go()) + " Go, " + std::to_string(t.judged() - t.go()) + " NG; yield " +
                          YieldText(t.judged(), t.go())));
    }
    const int ch = channel_->currentIndex();
    const auto kind = static_cast<Measure>(kind_->currentIndex());
    chart_ = t.chart(ch, kind);
    if (selected_ >= static_cast<int64_t>(chart_.pass.size())) choosePoint(-1);
    auto* view = static_cast<ChartView*>(chartView_);
    const StoredChannel& c = t.run().channels[static_cast<size_t>(ch)];
    const std::string label = "Ch" + std::to_string(ch + 1);
    view->style.title = label + (c.name.empty() || c.name == label ? "" : " " + c.name) + "  " +
                        kKindNames[static_cast<size_t>(kind)] + ": mean of each pass";
    view->style.unit = chart_.unit;
    view->style.colour = static_cast<uint32_t>(state_.settings().channels[static_cast<size_t>(ch)].BackColor);
    chartView_->update();
}

void YieldTab::choosePoint(int64_t point) {
    selected_ = point;
    passGrid_ = Grid(1, static_cast<int32_t>(kPassGridHead.size()), 1, 0);
    SetGridRow(passGrid_, 0, 0, static_cast<int32_t>(kPassGridHead.size()) - 1, kPassGridHead);
    const RunTally& t = state_.runTally();
    if (point >= 0 && static_cast<size_t>(point) < chart_.from.size()) {
        const size_t at = chart_.from[static_cast<size_t>(point)];
        const TallyPass& pass = t.passes()[at];
        SetGridCell(passGrid_, 0, 0, "Pass " + std::to_string(pass.pass));
        for (int ch = 0; ch < kChannels; ++ch) {
            const StoredChannel& c = t.run().channels[static_cast<size_t>(ch)];
            for (Measure kind : kMeasures) {
                const TallyValue* v = t.value(at, ch, kind);
                if (!v) continue;
                const std::string unit = QuantityOf(kind, c.typeIndex).unit;
                auto value = [&](double x) { return v->measured ? SiText(x, unit, 4) : std::string(); };
                const int32_t row = passGrid_.rows();
                passGrid_.setRows(row + 1);
                const std::vector<std::string> cells = {"Ch" + std::to_string(ch + 1),
                                                        c.typeText,
                                                        kKindNames[static_cast<size_t>(kind)],
                                                        value(v->min),
                                                        value(v->max),
                                                        value(v->mean),
                                                        value(v->sigma),
                                                        std::to_string(v->counts),
                                                        v->judged ? (v->go ? kVerdictGo : kVerdictNg) : ""};
                SetGridRow(passGrid_, row, 0, static_cast<int32_t>(cells.size()) - 1, cells);
            }
        }
    }
    passModel_->refresh();
    chartView_->update();
}

}  // namespace mervasto
