#include "gui/MainForm.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include "app/core/DataFolders.h"
#include "app/core/Version.h"
#include "display/WavePainter.h"
#include "display/WindowPicture.h"
#include "dso/DsoLink.h"
#include "gui/DetailCyclesForm.h"
#include "gui/EncoderTab.h"
#include "gui/FileDrop.h"
#include "gui/GridModel.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/SettingsBinding.h"
#include "gui/HistogramWindow.h"
#include "gui/WaveWindow.h"

namespace mervasto {

namespace {
constexpr const char* kCaption = "Periods/Encoder Pulses Analyzing";

QString q(const std::string& s) { return QString::fromStdString(s); }

QTableView* makeGridView(QWidget* parent, const char* name, GridModel* model) {
    auto* v = new QTableView(parent);
    v->setObjectName(name);
    v->setModel(model);
    v->horizontalHeader()->hide();
    v->verticalHeader()->hide();
    v->verticalHeader()->setDefaultSectionSize(20);
    v->setSelectionMode(QAbstractItemView::ContiguousSelection);
    return v;
}

// The column widths the results layer gives its grid, in pixels.
void applyColumnWidths(QTableView* v, const Grid& grid) {
    for (int c = 0; c < grid.cols() && c < static_cast<int>(grid.colWidth.size()); ++c)
        if (grid.colWidth[static_cast<size_t>(c)] > 0 && v->columnWidth(c) != grid.colWidth[static_cast<size_t>(c)])
            v->setColumnWidth(c, grid.colWidth[static_cast<size_t>(c)]);
}

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

    auto* central = new QWidget(this);
    auto* main = new QVBoxLayout(central);
    setCentralWidget(central);

    // Settings.
    auto* settingsBox = new QGroupBox("Settings", central);
    auto* g = new QGridLayout(settingsBox);
    MaxCycles_ = addBox(settingsBox, "MaxCycles", "Max Periods", g, 0, 0, "<Enter>");
    TotalRepeats_ = addBox(settingsBox, "TotalRepeats", "Total Repeats", g, 1, 0, "<Enter>");
    Histerisis_ = addBox(settingsBox, "Histerisis", "Hysteresis", g, 2, 0, "<Enter>");
    Histerisis_->setToolTip("Hysteresis in percent of the half amplitude");
    PLevel_ = addBox(settingsBox, "PLevel", "Level", g, 3, 0, "%");
    PLevel_->setToolTip("Decision level in percent between the low and the high level");
    SmoothingNo_ = addBox(settingsBox, "SmoothingNo", "Smoothing", g, 4, 0, "(Odd)");
    LimitPoints_ = addBox(settingsBox, "LimitPoints", "Margin", g, 5, 0, "<Enter>");
    LimitPoints_->setToolTip("Margin cut off at both ends of the analysis window, in screen divisions");
    auto* levelLabel = new QLabel("Level Method", settingsBox);
    LevelMethod_ = new QComboBox(settingsBox);
    LevelMethod_->setObjectName("LevelMethod");
    LevelMethod_->addItems({"Peaks", "Halves", "Auto"});
    LevelMethod_->setToolTip("Auto: the Peaks levels unless the Halves levels fit the samples far better");
    levelLabel->setBuddy(LevelMethod_);
    g->addWidget(levelLabel, 6, 0);
    g->addWidget(LevelMethod_, 6, 1);
    auto* ruleLabel = new QLabel("Edge Rule", settingsBox);
    auto* edgeRule = new QComboBox(settingsBox);
    edgeRule->setObjectName("EdgeRule");
    edgeRule->addItems({"Legacy", "Schmitt", "Auto"});
    edgeRule->setToolTip("Auto: the Legacy edges unless that rule passes over a level crossing, then Schmitt");
    ruleLabel->setBuddy(edgeRule);
    g->addWidget(ruleLabel, 6, 2);
    g->addWidget(edgeRule, 6, 3);
    auto* edgeLabel = new QLabel("Edge Timing", settingsBox);
    EdgeTiming_ = new QComboBox(settingsBox);
    EdgeTiming_->setObjectName("EdgeTiming");
    EdgeTiming_->addItems({"Samples", "Interpolated"});
    EdgeTiming_->setToolTip("Edges on whole samples, or where the signal crosses the level between two samples");
    edgeLabel->setBuddy(EdgeTiming_);
    g->addWidget(edgeLabel, 7, 0);
    g->addWidget(EdgeTiming_, 7, 1);
    TimeoutSeconds_ = addBox(settingsBox, "TimeoutSeconds", "Time-out (s)", g, 6, 4);
    TimeoutSeconds_->setToolTip("How long one exchange with the instrument may take before it is given up");
    SampleNo_ = addBox(settingsBox, "SampleNo", "Sample Name", g, 0, 4, "<Enter>");
    SampleIndex_ = addBox(settingsBox, "SampleIndex", "Index", g, 1, 4);
    ZoomRate_ = addBox(settingsBox, "ZoomRate", "Zoom", g, 2, 4, "<2000");
    RepeatCheck_ = new QCheckBox("Repeat", settingsBox);
    DaqCheck_ = new QCheckBox("New Acquisition", settingsBox);
    OmitRangeEffect_ = new QCheckBox("Effective", settingsBox);
    SaveWavesCheck_ = new QCheckBox("Waves(csv)", settingsBox);
    SaveScreenCheck_ = new QCheckBox("Screen(png)", settingsBox);
    DDSaveCheck_ = new QCheckBox("Detail Data", settingsBox);
    WDSaveCheck_ = new QCheckBox("Wave Data", settingsBox);
    const std::pair<QCheckBox*, const char*> checks[] = {
        {RepeatCheck_, "RepeatCheck"},         {DaqCheck_, "DaqCheck"},
        {OmitRangeEffect_, "OmitRangeEffect"}, {SaveWavesCheck_, "SaveWavesCheck"},
        {SaveScreenCheck_, "SaveScreenCheck"}, {DDSaveCheck_, "DDSaveCheck"},
        {WDSaveCheck_, "WDSaveCheck"}};
    int row = 3;
    for (auto [box, name] : checks) {
        box->setObjectName(name);
        g->addWidget(box, row / 2, 7 + row % 2);
        ++row;
    }
    Comment_ = new QPlainTextEdit(settingsBox);
    Comment_->setObjectName("Comment");
    Comment_->setMaximumHeight(60);
    g->addWidget(new QLabel("Comment", settingsBox), 3, 4);
    g->addWidget(Comment_, 4, 4, 2, 3);

    addressFrame_ = new QGroupBox("DSO Address", settingsBox);
    addressFrame_->setObjectName("AddressFrame");
    auto* af = new QHBoxLayout(addressFrame_);
    IPAdressText_ = new QLineEdit(addressFrame_);
    IPAdressText_->setObjectName("IPAdressText");
    auto* setIp = new QPushButton("Set", addressFrame_);
    setIp->setObjectName("SetIPAddress");
    af->addWidget(IPAdressText_);
    af->addWidget(setIp);
    addressFrame_->hide();
    auto* tcpip = new QPushButton("TCP/IP Address", settingsBox);
    tcpip->setObjectName("TCPIPAddressSet");
    g->addWidget(tcpip, 0, 7);
    main->addWidget(settingsBox);
    // A row of its own: shown, it pushes the rest down instead of covering it.
    main->addWidget(addressFrame_);

    // Channels.
    auto* chRow = new QHBoxLayout;
    buildChannelFrames(central, chRow);
    main->addLayout(chRow);

    // Buttons.
    auto* buttons = new QHBoxLayout;
    auto button = [&](const char* name, const char* text) {
        auto* b = new QPushButton(text, central);
        b->setObjectName(name);
        buttons->addWidget(b);
        return b;
    };
    WFStartCommand_ = button("WFStartCommand", "Input from DSO");
    auto* stop = button("Stop", "Stop");
    auto* save = button("WaveSave", "Save");
    auto* readRange = button("ReadRejectRange", "Read Range");
    auto* pictures = button("SaveWave", "Save Pictures");
    auto* detailPath = button("SelDataSaveFile", "Detail Path...");
    auto* copyLog = button("ResultCopy", "Copy");
    auto* detailForm = button("DetailCycles", "Limits / Go-NG...");
    auto* colorInit = button("ColorInit", "Init Colors");
    auto* histogram = button("ShowHistogram", "Histogram / Trend");
    InputFromFile_ = button("InputFromFile", "Input from File");
    InputFromFile_->hide();
    main->addLayout(buttons);

    // Grids.
    SSTab1_ = new QTabWidget(central);
    SSTab1_->setObjectName("SSTab1");
    resultModel_ = new GridModel(&state_.resultGrid(), this);
    logModel_ = new GridModel(&state_.logGrid(), this);
    detailModel_ = new GridModel(&state_.detailGrid(), this);
    ResultGrid1_ = makeGridView(SSTab1_, "ResultGrid1", resultModel_);
    LogGrid_ = makeGridView(SSTab1_, "LogGrid", logModel_);
    DetailDataGrid_ = makeGridView(SSTab1_, "DetailDataGrid", detailModel_);
    auto* resultPage = new QWidget(SSTab1_);
    auto* rp = new QVBoxLayout(resultPage);
    rp->addWidget(ResultGrid1_, 1);
    TotalWaveDatas_ = new QLineEdit(resultPage);
    TotalWaveDatas_->setObjectName("TotalWaveDatas");
    TotalWaveDatas_->setReadOnly(true);
    rp->addWidget(TotalWaveDatas_);
    SSTab1_->addTab(resultPage, "Result");
    SSTab1_->addTab(LogGrid_, "Log");
    SSTab1_->addTab(DetailDataGrid_, "Detail Data");
    jitterModel_ = new GridModel(&jitterGrid_, this);
    JitterGrid_ = makeGridView(SSTab1_, "JitterGrid", jitterModel_);
    JitterGrid_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    SSTab1_->addTab(JitterGrid_, "Jitter");
    SSTab1_->addTab(new EncoderTab(state_, SSTab1_), "Encoder");
    main->addWidget(SSTab1_, 1);

    // File menu: the only way to the hidden file input button's command.
    auto* file = menuBar()->addMenu("&File");
    auto* inputFile = file->addAction("Input from File...");
    inputFile->setObjectName("InputFromFileAction");
    inputFile->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    auto* waves = menuBar()->addMenu("&Wave");
    auto* showAll = waves->addAction("DSO Wave(All)");
    auto* showEach = waves->addAction("DSO Wave(Each)");
    auto* showHistogram = waves->addAction("Histogram / Trend");

    waveAll_ = new WaveWindow(state_, WaveWindow::Mode::All, this);
    waveEach_ = new WaveWindow(state_, WaveWindow::Mode::Each, this);
    detail_ = new DetailCyclesForm(state_, *ui_, this);
    histogram_ = new HistogramWindow(state_, this);

    lockedDuringRun_ = {WFStartCommand_, save, readRange, InputFromFile_, LimitPoints_, OmitRangeEffect_};
    actionsLockedDuringRun_ = {inputFile};

    // Handlers.
    GuardedApplication::setFailureSink(
        [this](const Outcome& o) { ui_->messageBox(o.text(), MsgButtons::Ok, kRunTimeErrorTitle); });
    connect(WFStartCommand_, &QPushButton::clicked, this,
            [this] { run([this] { state_.WFStartCommand_Click(*ui_); }); });
    connect(stop, &QPushButton::clicked, this, [this] { state_.Stop_Click(); });
    connect(save, &QPushButton::clicked, this, [this] { run([this] { state_.WaveSave_Click(*ui_); }); });
    connect(readRange, &QPushButton::clicked, this, [this] { run([this] { state_.ReadRejectRange_Click(*ui_); }); });
    connect(pictures, &QPushButton::clicked, this, [this] { saveWindowPictures(); });
    connect(detailPath, &QPushButton::clicked, this, [this] { run([this] { state_.SelDataSaveFile_Click(*ui_); }); });
    connect(copyLog, &QPushButton::clicked, this, [this] {
        QTableView* v = SSTab1_->currentWidget() == DetailDataGrid_ ? DetailDataGrid_ : LogGrid_;
        int r1, c1, r2, c2;
        selectedRange(v, r1, c1, r2, c2);
        state_.ResultCopy_Click(*ui_, v == LogGrid_ ? 0 : 1, r1, c1, r2, c2);
    });
    connect(detailForm, &QPushButton::clicked, this, [this] {
        detail_->setRunning(state_.running());
        detail_->refresh();
        detail_->show();
        detail_->raise();
    });
    connect(colorInit, &QPushButton::clicked, this, [this] {
        run([this] { state_.ColorInit_Click(); });
        applyChannelColours();
    });
    auto inputFromFile = [this] { run([this] { state_.InputFromFile_Click(*ui_); }); };
    connect(InputFromFile_, &QPushButton::clicked, this, inputFromFile);
    // A file dropped on the window loads as "Input from File" does; not while
    // a run holds the input controls.
    new FileDropFilter(
        this, [this] { return !state_.running(); },
        [this](const std::string& file) {
            DroppedFileUi dropped(*ui_, file);
            run([this, &dropped] { state_.InputFromFile_Click(dropped); });
        });
    connect(inputFile, &QAction::triggered, this, inputFromFile);
    connect(showAll, &QAction::triggered, this, [this] {
        waveAll_->show();
        waveAll_->raise();
    });
    connect(showEach, &QAction::triggered, this, [this] {
        waveEach_->show();
        waveEach_->raise();
    });
    auto openHistogram = [this] {
        histogram_->refresh();
        histogram_->show();
        histogram_->raise();
    };
    connect(histogram, &QPushButton::clicked, this, openHistogram);
    connect(showHistogram, &QAction::triggered, this, openHistogram);
    connect(tcpip, &QPushButton::clicked, this, [this] { addressFrame_->setVisible(!addressFrame_->isVisible()); });
    connect(setIp, &QPushButton::clicked, this, [this] { addressFrame_->hide(); });

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

    connect(histogram_, &HistogramWindow::cycleChosen, this, showCycle);

    auto enter = [this](QLineEdit* box, const std::function<void()>& h) {
        connect(box, &QLineEdit::returnPressed, this, [this, h] { run(h); });
    };
    enter(MaxCycles_, [this] { state_.MaxCycles_KeyPress(); });
    enter(TotalRepeats_, [this] { state_.TotalRepeats_KeyPress(); });
    enter(Histerisis_, [this] { state_.Histerisis_KeyPress(); });
    enter(SampleNo_, [this] { state_.SampleNo_KeyPress(); });
    enter(LimitPoints_, [this] { state_.LimitPoints_KeyPress(*ui_); });
    connect(OmitRangeEffect_, &QCheckBox::clicked, this,
            [this] { run([this] { state_.OmitRangeEffect_Click(*ui_); }); });
    connect(ZoomRate_, &QLineEdit::returnPressed, this, [this] {
        waveAll_->refresh();
        waveEach_->refresh();
    });

    // Each change repaints only what shows it: a pass raises several.
    subscriptions_.push_back(state_.recordChanged.subscribe([this] { showWaves(); }));
    subscriptions_.push_back(state_.resultsChanged.subscribe([this] { showResults(); }));
    subscriptions_.push_back(state_.gridsChanged.subscribe([this] { showGrids(); }));
    subscriptions_.push_back(state_.settingsChanged.subscribe([this] { binding_->showChanged(); }));
    subscriptions_.push_back(state_.runStarted.subscribe([this] { applyRunning(); }));
    subscriptions_.push_back(state_.runEnded.subscribe([this](const Outcome&) {
        refreshViews();
        if (closeAfterRun_) QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
    }));

    // Start-up: state, controls, window placement.
    state_.FormLoad(dataFolderOverride);
    binding_ = new SettingsBinding(state_.settings(), this);
    showSettings();
    refreshViews();
    // Settings the resume file held bad values for took their defaults.
    if (const auto& problems = state_.settingsProblems(); !problems.empty())
        ui_->setStatus(2, "Settings file, " + problems.front() +
                              (problems.size() > 1 ? " (" + std::to_string(problems.size()) + " in all)" : ""));
    resize(1100, 760);
    const auto& w = state_.settings().windows;
    move(w.MainLeft, w.MainTop);
    if (w.WaveFormAllLeft || w.WaveFormAllTop)
        waveAll_->move(w.WaveFormAllLeft, w.WaveFormAllTop);
    else
        waveAll_->move(x() + static_cast<int>(0.7 * width()), y() + static_cast<int>(0.5 * height()));
    waveEach_->move(w.WaveFormLeft, w.WaveFormTop);
}

MainForm::~MainForm() { GuardedApplication::setFailureSink(nullptr); }  // its box goes with the window

QLineEdit* MainForm::addBox(QWidget* parent, const char* name, const char* caption, QGridLayout* grid, int row, int col,
                            const char* after) {
    auto* e = new QLineEdit(parent);
    e->setObjectName(name);
    e->setMaximumWidth(110);
    grid->addWidget(new QLabel(caption, parent), row, col);
    grid->addWidget(e, row, col + 1);
    if (after) grid->addWidget(new QLabel(after, parent), row, col + 2);
    return e;
}

void MainForm::buildChannelFrames(QWidget* parent, QHBoxLayout* into) {
    for (int ch = 0; ch < kChannels; ++ch) {
        auto* f = new QGroupBox(QStringLiteral("Ch%1").arg(ch + 1), parent);
        f->setObjectName(QStringLiteral("EachChTypeFrame%1").arg(ch));
        f->setProperty("index", ch);
        auto* g = new QGridLayout(f);
        auto name = [&](QWidget* w, const char* base) {
            w->setObjectName(QStringLiteral("%1%2").arg(base).arg(ch));
            w->setProperty("index", ch);
        };
        ChInputSignal_[ch] = new QComboBox(f);
        name(ChInputSignal_[ch], "ChInputSignal");
        for (int i = 0; i < ChannelTypeCount(ch); ++i)
            ChInputSignal_[ch]->addItem(q(std::string(kChannelTypes[static_cast<size_t>(i)])));
        VRate_[ch] = new QLineEdit(f);
        name(VRate_[ch], "VRate");
        SigName_[ch] = new QLineEdit(f);
        name(SigName_[ch], "SigName");
        DispOffCheck_[ch] = new QCheckBox("Disp Off", f);
        name(DispOffCheck_[ch], "DispOffCheck");
        PPCheck_[ch] = new QCheckBox("P-P", f);
        name(PPCheck_[ch], "PPCheck");
        DutyCheck_[ch] = new QCheckBox("Duty", f);
        name(DutyCheck_[ch], "DutyCheck");
        auto* colour = new QPushButton("Color", f);
        name(colour, "ColorSet");
        g->addWidget(new QLabel("Ch Type", f), 0, 0);
        g->addWidget(ChInputSignal_[ch], 0, 1);
        g->addWidget(new QLabel("V Rate", f), 1, 0);
        g->addWidget(VRate_[ch], 1, 1);
        g->addWidget(new QLabel("Name", f), 2, 0);
        g->addWidget(SigName_[ch], 2, 1);
        g->addWidget(DispOffCheck_[ch], 3, 0);
        g->addWidget(colour, 3, 1);
        g->addWidget(PPCheck_[ch], 4, 0);
        g->addWidget(DutyCheck_[ch], 4, 1);
        frame_[ch] = f;
        into->addWidget(f);
        connect(colour, &QPushButton::clicked, this, [this, ch] {
            auto chosen =
                ui_->chooseColor(static_cast<uint32_t>(state_.settings().channels[static_cast<size_t>(ch)].BackColor));
            if (chosen) state_.settings().channels[static_cast<size_t>(ch)].BackColor = static_cast<int32_t>(*chosen);
            applyChannelColours();
            refreshViews();
        });
        // The measurement choices are fields of their own, read again at
        // the next analysis.
    }
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
    applyColumnWidths(ResultGrid1_, state_.resultGrid());
    DispJitter(jitterGrid_, state_.channelDisplays(), state_.results().jitter);
    jitterModel_->refresh();
    applyColumnWidths(JitterGrid_, jitterGrid_);
    showWaves();  // the edges and levels drawn over the waves
    if (detail_->isVisible()) detail_->refresh();
    if (histogram_->isVisible()) histogram_->refresh();
}

void MainForm::showGrids() {
    logModel_->refresh();
    detailModel_->refresh();
    applyColumnWidths(LogGrid_, state_.logGrid());
    applyColumnWidths(DetailDataGrid_, state_.detailGrid());
}

void MainForm::applyRunning() {
    const bool idle = !state_.running();
    for (QWidget* w : lockedDuringRun_) w->setEnabled(idle);
    for (QAction* a : actionsLockedDuringRun_) a->setEnabled(idle);
    detail_->setRunning(!idle);
}

void MainForm::run(const std::function<void()>& handler) {
    RunHandler(*ui_, handler);
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
    if (!state_.SaveUnsavedResults(*ui_)) {
        // The last chance for lines the results file would not take.
        const std::string text = state_.unsavedResultsText();
        ui_->setClipboardText(text);
        ui_->messageBox(text + "\r\n\r\nThey are on the clipboard.", MsgButtons::Ok, kFailedToSaveTestResults);
    }
    Outcome saved = state_.FormUnload();
    GuardedApplication::report(saved);
    waveAll_->close();
    waveEach_->close();
    histogram_->close();
    detail_->close();
    e->accept();
}

}  // namespace mervasto
