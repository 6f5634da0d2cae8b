#include "gui/MainForm.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include "app/core/DataFolders.h"
#include "app/core/SettingsTable.h"
#include "app/core/Version.h"
#include "display/WavePainter.h"
#include "display/WindowPicture.h"
#include "dso/DsoLink.h"
#include "gui/DetailCyclesForm.h"
#include "gui/FileDrop.h"
#include "gui/GridModel.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/SettingsBinding.h"
#include "gui/PlotWindow.h"
#include "gui/WaveWindow.h"

namespace mervasto {

namespace {
constexpr const char* kCaption = "Periods/Encoder Pulses Analyzing";
// A run or a file input asked for while a box holds a refused text.
constexpr const char* kNotStartedHead = "Not started: ";

QString q(const std::string& s) { return QString::fromStdString(s); }

// The selected range of a view, or its current cell when nothing is selected.
void selectedRange(QTableView* v, int& r1, int& c1, int& r2, int& c2) {
    QModelIndexList sel = v->selectionModel()->selectedIndexes();
    QModelIndex cur = v->currentIndex();
    r1 = r2 = cur.isValid() ? cur.row() : 0;
    c1 = c2 = cur.isValid() ? cur.column() : 0;
    for (const auto& i : sel) {
        r1 = std::min(r1, i.row());
        r2 = std::max(r2, i.row());
        c1 = std::min(c1, i.column());
        c2 = std::max(c2, i.column());
    }
}
}  // namespace

MainForm::MainForm(const std::string& dataFolderOverride, QWidget* parent) : QMainWindow(parent) {
    setObjectName("MainForm");
    setWindowTitle(QString::fromUtf8(kCaption) + q(CaptionSuffix()));
    auto* sb = new QStatusBar(this);
    sb->setObjectName("StatusBar1");
    setStatusBar(sb);
    ui_ = std::make_unique<GuiUi>(this, sb);

    Commands commands{};
    buildWindow(commands);

    waveAll_ = new WaveWindow(state_, WaveWindow::Mode::All, this);
    waveEach_ = new WaveWindow(state_, WaveWindow::Mode::Each, this);
    detail_ = new DetailCyclesForm(state_, *ui_, this);
    plots_ = new PlotWindow(state_, this);
    ReadRejectRange_ = commands.readRange;
    lockedDuringRun_ = {WFStartCommand_, commands.save, commands.readRange,
                        InputFromFile_,  LimitPoints_,  OmitRangeEffect_};
    actionsLockedDuringRun_ = {commands.inputFile};

    connectCommands(commands);
    connectViews(commands);
    connectEnterChecks();
    followState();
    startUp(dataFolderOverride);
}

MainForm::~MainForm() { GuardedApplication::setFailureSink(nullptr); }  // its box goes with the window

void MainForm::connectCommands(const Commands& c) {
    GuardedApplication::setFailureSink([this](const Outcome& o) {
        ui_->setStatus(2, o.text());
        ui_->messageBox(o.text(), MsgButtons::Ok, kRunTimeErrorTitle);
    });
    connect(WFStartCommand_, &QPushButton::clicked, this, [this] {
        if (boxesTaken()) run([this] { return state_.WFStartCommand_Click(*ui_); });
    });
    connect(c.stop, &QPushButton::clicked, this, [this] { state_.Stop_Click(); });
    connect(c.save, &QPushButton::clicked, this, [this] { run([this] { return state_.WaveSave_Click(*ui_); }); });
    connect(c.readRange, &QPushButton::clicked, this,
            [this] { run([this] { return state_.ReadRejectRange_Click(*ui_); }); });
    connect(c.pictures, &QPushButton::clicked, this, [this] { saveWindowPictures(); });
    connect(c.detailPath, &QPushButton::clicked, this,
            [this] { run([this] { return state_.SelDataSaveFile_Click(*ui_); }); });
    connect(c.copyLog, &QPushButton::clicked, this, [this] {
        QTableView* v = SSTab1_->currentWidget() == DetailDataGrid_ ? DetailDataGrid_ : LogGrid_;
        int r1, c1, r2, c2;
        selectedRange(v, r1, c1, r2, c2);
        GuardedApplication::report(state_.ResultCopy_Click(*ui_, v == LogGrid_ ? 0 : 1, r1, c1, r2, c2));
    });
    connect(c.copyNumbers, &QPushButton::clicked, this,
            [this] { GuardedApplication::report(state_.ResultCopyNumbers_Click(*ui_)); });
    connect(c.detailForm, &QPushButton::clicked, this, [this] {
        detail_->setRunning(state_.running());
        detail_->refresh();
        detail_->show();
        detail_->raise();
    });
    connect(c.colorInit, &QPushButton::clicked, this, [this] {
        state_.ColorInit_Click();
        applyChannelColours();
        refreshViews();
    });
    auto inputFromFile = [this] {
        if (boxesTaken()) run([this] { return state_.InputFromFile_Click(*ui_); });
    };
    connect(InputFromFile_, &QPushButton::clicked, this, inputFromFile);
    connect(c.inputFile, &QAction::triggered, this, inputFromFile);
    // Files dropped on the window load as "Input from File" does; not while
    // a run holds the input controls.
    new FileDropFilter(
        this, [this] { return !state_.running(); },
        [this](const std::vector<std::string>& files) {
            if (!boxesTaken()) return;
            run([this, &files] { return InputDroppedFiles(state_, *ui_, files); });
        });
    connect(c.tcpip, &QPushButton::clicked, this, [this] { addressFrame_->setVisible(!addressFrame_->isVisible()); });
    connect(c.setIp, &QPushButton::clicked, this, [this] { addressFrame_->hide(); });
}

void MainForm::connectViews(const Commands& c) {
    connect(c.showAll, &QAction::triggered, this, [this] {
        waveAll_->show();
        waveAll_->raise();
    });
    connect(c.showEach, &QAction::triggered, this, [this] {
        waveEach_->show();
        waveEach_->raise();
    });
    auto openHistogram = [this] {
        plots_->refresh();
        plots_->show();
        plots_->raise();
    };
    connect(c.histogram, &QPushButton::clicked, this, openHistogram);
    connect(c.showHistogram, &QAction::triggered, this, openHistogram);

    auto showCycle = [this](int ch, int cycle) {
        waveAll_->showCycle(ch, cycle);
        waveEach_->showCycle(ch, cycle);
    };
    // A cell of the Detail Data tab: its column is the channel, its row the
    // cycle; the wave windows go to that cycle.
    connect(DetailDataGrid_, &QTableView::clicked, this, [showCycle](const QModelIndex& cell) {
        const int ch = cell.column() - 1;
        const int cycle = cell.row() - kDetailHeaderRows;
        if (ch < 0 || ch >= kChannels || cycle < 0) return;
        showCycle(ch, cycle);
    });
    connect(plots_, &PlotWindow::cycleChosen, this, showCycle);
    connect(ZoomRate_, &QLineEdit::returnPressed, this, [this] {
        waveAll_->refresh();
        waveEach_->refresh();
    });
}

void MainForm::connectEnterChecks() {
    // The checks that only clamp and resize have no failure of their own. A
    // clamp rewrites the box even when its setting already held the limit
    // (the box held a refused text above it).
    auto enter = [this](QLineEdit* box, bool (RunState::*check)(std::string_view)) {
        connect(box, &QLineEdit::returnPressed, this, [this, box, check] {
            if ((state_.*check)(box->text().toStdString())) binding_->show(box);
            refreshViews();
        });
    };
    enter(MaxCycles_, &RunState::MaxCycles_KeyPress);
    enter(TotalRepeats_, &RunState::TotalRepeats_KeyPress);
    enter(Histerisis_, &RunState::Histerisis_KeyPress);
    connect(SampleNo_, &QLineEdit::returnPressed, this, [this] {
        state_.SampleNo_KeyPress();
        refreshViews();
    });
    // These analyse again and append a result line: not from settings a
    // red box does not show.
    connect(LimitPoints_, &QLineEdit::returnPressed, this, [this] {
        if (boxesTaken()) run([this] { return state_.LimitPoints_KeyPress(*ui_); });
    });
    connect(OmitRangeEffect_, &QCheckBox::clicked, this, [this] {
        if (boxesTaken()) run([this] { return state_.OmitRangeEffect_Click(*ui_); });
    });
}

void MainForm::followState() {
    // Each change repaints only what shows it: a pass raises several.
    subscriptions_.push_back(state_.recordChanged.subscribe([this] { showWaves(); }));
    subscriptions_.push_back(state_.resultsChanged.subscribe([this] { showResults(); }));
    subscriptions_.push_back(state_.gridsChanged.subscribe([this] { showGrids(); }));
    subscriptions_.push_back(state_.settingsChanged.subscribe([this] { binding_->showChanged(); }));
    subscriptions_.push_back(state_.runStarted.subscribe([this] {
        ui_->setStatus(2, "");
        applyRunning();
    }));
    // A pass may have linked another instrument (a new address).
    subscriptions_.push_back(state_.passFinished.subscribe([this] { showLink(); }));
    subscriptions_.push_back(state_.runEnded.subscribe([this](const Outcome& end) {
        if (!end.ok()) ui_->setStatus(2, end.text());
        refreshViews();
        if (closeAfterRun_) QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
    }));
}

void MainForm::startUp(const std::string& dataFolderOverride) {
    state_.FormLoad(dataFolderOverride);
    binding_ = new SettingsBinding(state_.settings(), this);
    binding_->edited = [this](const FieldRef& field) {
        if (FieldName(field) != "IPAdressText" && FieldName(field) != "Instrument") return;
        state_.IPAdressText_Change();
        applyRunning();
    };
    showSettings();
    refreshViews();
    // Lines of the resume file that could not be taken: the first, and how many.
    if (const auto& problems = state_.settingsProblems(); !problems.empty())
        ui_->setStatus(2, problems.front() +
                              (problems.size() > 1 ? " (" + std::to_string(problems.size()) + " lines in all)" : ""));
    resize(1100, 760);
    const auto& w = state_.settings().windows;
    move(w.MainLeft, w.MainTop);
    if (w.WaveFormAllLeft || w.WaveFormAllTop)
        waveAll_->move(w.WaveFormAllLeft, w.WaveFormAllTop);
    else
        waveAll_->move(x() + static_cast<int>(0.7 * width()), y() + static_cast<int>(0.5 * height()));
    waveEach_->move(w.WaveFormLeft, w.WaveFormTop);
}

void MainForm::applyChannelColours() {
    for (int ch = 0; ch < kChannels; ++ch) {
        const auto& c = state_.settings().channels[static_cast<size_t>(ch)];
        frame_[ch]->setStyleSheet(QStringLiteral("QGroupBox#%1 { background-color: %2; color: %3; }")
                                      .arg(frame_[ch]->objectName(),
                                           ColorFromBgr(static_cast<uint32_t>(c.BackColor)).name(),
                                           ColorFromBgr(static_cast<uint32_t>(c.ForeColor)).name()));
    }
}

void MainForm::storeWindowPositions() {
    auto& w = state_.settings().windows;
    w.MainLeft = x();
    w.MainTop = y();
    w.WaveFormLeft = waveEach_->x();
    w.WaveFormTop = waveEach_->y();
    w.WaveFormAllLeft = waveAll_->x();
    w.WaveFormAllTop = waveAll_->y();
}

void MainForm::showSettings() {
    binding_->showAll();
    applyChannelColours();
}

void MainForm::refreshViews() {
    showResults();
    showGrids();
    applyRunning();
    binding_->showChanged();
}

void MainForm::showWaves() {
    waveAll_->refresh();
    waveEach_->refresh();
}

void MainForm::showResults() {
    resultModel_->refresh();
    TotalWaveDatas_->setText(q(state_.totalWaveDatas()));
    ApplyColumnWidths(ResultGrid1_, state_.resultGrid());
    DispJitter(jitterGrid_, state_.channelDisplays(), state_.results().jitter);
    jitterModel_->refresh();
    ApplyColumnWidths(JitterGrid_, jitterGrid_);
    showWaves();  // the edges and levels drawn over the waves
    if (detail_->isVisible()) detail_->refresh();
    if (plots_->isVisible()) plots_->refresh();
}

void MainForm::showGrids() {
    logModel_->refresh();
    detailModel_->refresh();
    ApplyColumnWidths(LogGrid_, state_.logGrid());
    ApplyColumnWidths(DetailDataGrid_, state_.detailGrid());
}

void MainForm::showLink() { ui_->setStatus(4, state_.linkedInstrument()); }

void MainForm::applyRunning() {
    showLink();
    const bool idle = !state_.running();
    for (QWidget* w : lockedDuringRun_) w->setEnabled(idle);
    for (QAction* a : actionsLockedDuringRun_) a->setEnabled(idle);
    applyCapabilities(idle);
    detail_->setRunning(!idle);
}

bool MainForm::boxesTaken() {
    const std::optional<std::string> refused = binding_->firstRefusal();
    if (refused) ui_->setStatus(1, kNotStartedHead + *refused);
    return !refused;
}

void MainForm::applyCapabilities(bool idle) {
    auto apply = [](QWidget* w, const FeatureSupport& f, bool enabled) {
        // The tip a control had before it was greyed comes back with it.
        if (!w->property("ownTip").isValid()) w->setProperty("ownTip", w->toolTip());
        w->setEnabled(enabled && f.available);
        w->setToolTip(f.available ? w->property("ownTip").toString() : q(f.whyNot));
    };
    const FeatureSupport range = state_.instrumentSupports(InstrumentFeature::RejectRange);
    apply(ReadRejectRange_, range, idle);
    apply(OmitRangeEffect_, range, idle);
    apply(SaveScreenCheck_, state_.instrumentSupports(InstrumentFeature::Screen), true);
}

void MainForm::run(const std::function<Outcome()>& handler) {
    GuardedApplication::report(handler());
    refreshViews();
}

void MainForm::saveWindowPictures() {
    if (const Outcome names = state_.checkFileNames(true); !names) return GuardedApplication::report(names);
    const std::string name = state_.sampleName();
    WaveWindow* wave = waveAll_->isVisible() ? waveAll_ : (waveEach_->isVisible() ? waveEach_ : nullptr);
    if (wave) {
        wave->raise();
        QApplication::processEvents();
        Outcome saved = SaveWindowPicture(
            wave->grab().toImage(), CaptureFileName(state_.dataFolder(), name, state_.captureCounter(), "_Wave.jpg"));
        if (!saved) return GuardedApplication::report(saved);
    }
    raise();
    QApplication::processEvents();
    Outcome saved = SaveWindowPicture(grab().toImage(),
                                      CaptureFileName(state_.dataFolder(), name, state_.captureCounter(), "_Main.jpg"));
    if (!saved) return GuardedApplication::report(saved);
    state_.captureTaken();
}

void MainForm::closeEvent(QCloseEvent* e) {
    if (state_.running()) {
        // A Stop: the window closes once the pass in progress has ended.
        closeAfterRun_ = true;
        state_.Stop_Click();
        e->ignore();
        return;
    }
    storeWindowPositions();
    state_.abortLink();
    sessionEnd_ = state_.SaveUnsavedResults(*ui_);
    if (!sessionEnd_) {
        // The last chance for lines the results file would not take.
        ui_->setClipboardText(sessionEnd_.text());
        ui_->messageBox(sessionEnd_.text() + "\r\n\r\nThey are on the clipboard.", MsgButtons::Ok,
                        kFailedToSaveTestResults);
    }
    const Outcome saved = state_.FormUnload();
    GuardedApplication::report(saved);
    if (sessionEnd_) sessionEnd_ = saved;
    waveAll_->close();
    waveEach_->close();
    plots_->close();
    detail_->close();
    e->accept();
}

}  // namespace mervasto
