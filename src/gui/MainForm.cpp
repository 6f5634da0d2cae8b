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
#include "gui/GridModel.h"
#include "gui/GuiUi.h"
#include "gui/WaveWindow.h"

namespace mervasto {

namespace {
constexpr const char* kCaption = "Periods/Encoder Pulses Analyzing";

QString q(const std::string& s) { return QString::fromStdString(s); }
std::string s(const QString& t) { return t.toStdString(); }

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
    Histerisis_ = addBox(settingsBox, "Histerisis", "Hysteresis (%)", g, 2, 0, "<Enter>");
    PLevel_ = addBox(settingsBox, "PLevel", "Level (%)", g, 3, 0);
    LevelMethod_ = new QComboBox(settingsBox);
    LevelMethod_->setObjectName("LevelMethod");
    LevelMethod_->addItems({"Peaks", "Halves"});
    g->addWidget(LevelMethod_, 3, 3);
    SmoothingNo_ = addBox(settingsBox, "SmoothingNo", "Smoothing", g, 4, 0, "(Odd)");
    LimitPoints_ = addBox(settingsBox, "LimitPoints", "Margin (div)", g, 5, 0, "<Enter>");
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
    g->addWidget(addressFrame_, 0, 8, 2, 2);
    main->addWidget(settingsBox);

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
    InputFromFile_ = button("InputFromFile", "Input from File");
    InputFromFile_->hide();
    main->addLayout(buttons);

    // Grids.
    SSTab1_ = new QTabWidget(central);
    SSTab1_->setObjectName("SSTab1");
    resultModel_ = new GridModel(&state_.ResultGrid1, this);
    logModel_ = new GridModel(&state_.LogGrid, this);
    detailModel_ = new GridModel(&state_.DetailDataGrid, this);
    auto* resultView = makeGridView(SSTab1_, "ResultGrid1", resultModel_);
    LogGrid_ = makeGridView(SSTab1_, "LogGrid", logModel_);
    DetailDataGrid_ = makeGridView(SSTab1_, "DetailDataGrid", detailModel_);
    auto* resultPage = new QWidget(SSTab1_);
    auto* rp = new QVBoxLayout(resultPage);
    rp->addWidget(resultView, 1);
    TotalWaveDatas_ = new QLineEdit(resultPage);
    TotalWaveDatas_->setObjectName("TotalWaveDatas");
    TotalWaveDatas_->setReadOnly(true);
    rp->addWidget(TotalWaveDatas_);
    SSTab1_->addTab(resultPage, "Result");
    SSTab1_->addTab(LogGrid_, "Log");
    SSTab1_->addTab(DetailDataGrid_, "Detail Data");
    main->addWidget(SSTab1_, 1);

    // File menu: the only way to the hidden file input button's command.
    auto* file = menuBar()->addMenu("&File");
    auto* inputFile = file->addAction("Input from File...");
    inputFile->setObjectName("InputFromFileAction");
    inputFile->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    auto* waves = menuBar()->addMenu("&Wave");
    auto* showAll = waves->addAction("DSO Wave(All)");
    auto* showEach = waves->addAction("DSO Wave(Each)");

    waveAll_ = new WaveWindow(state_, WaveWindow::Mode::All, this);
    waveEach_ = new WaveWindow(state_, WaveWindow::Mode::Each, this);
    detail_ = new DetailCyclesForm(state_, *ui_, this);

    // Handlers.
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
        detail_->refresh();
        detail_->show();
        detail_->raise();
    });
    connect(colorInit, &QPushButton::clicked, this, [this] { run([this] { state_.ColorInit_Click(); }); });
    auto inputFromFile = [this] { run([this] { state_.InputFromFile_Click(*ui_); }); };
    connect(InputFromFile_, &QPushButton::clicked, this, inputFromFile);
    connect(inputFile, &QAction::triggered, this, inputFromFile);
    connect(showAll, &QAction::triggered, this, [this] {
        waveAll_->show();
        waveAll_->raise();
    });
    connect(showEach, &QAction::triggered, this, [this] {
        waveEach_->show();
        waveEach_->raise();
    });
    connect(tcpip, &QPushButton::clicked, this, [this] { addressFrame_->setVisible(!addressFrame_->isVisible()); });
    connect(setIp, &QPushButton::clicked, this, [this] { addressFrame_->hide(); });

    auto enter = [this](QLineEdit* box, std::function<void()> h) {
        connect(box, &QLineEdit::returnPressed, this, [this, h] { run(h); });
    };
    enter(MaxCycles_, [this] { state_.MaxCycles_KeyPress(); });
    enter(TotalRepeats_, [this] { state_.TotalRepeats_KeyPress(); });
    enter(Histerisis_, [this] { state_.Histerisis_KeyPress(); });
    enter(SampleNo_, [this] { state_.SampleNo_KeyPress(); });
    enter(LimitPoints_, [this] { state_.LimitPoints_KeyPress(*ui_); });
    connect(OmitRangeEffect_, &QCheckBox::clicked, this,
            [this] { run([this] { state_.OmitRangeEffect_Click(*ui_); }); });

    state_.onChanged = [this] { refreshViews(); };

    // Start-up: state, controls, window placement.
    state_.FormLoad(dataFolderOverride);
    fromSettings();
    refreshViews();
    resize(1100, 760);
    const auto& w = state_.settings.windows;
    move(w.MainLeft, w.MainTop);
    if (w.WaveFormAllLeft || w.WaveFormAllTop)
        waveAll_->move(w.WaveFormAllLeft, w.WaveFormAllTop);
    else
        waveAll_->move(x() + static_cast<int>(0.7 * width()), y() + static_cast<int>(0.5 * height()));
    waveEach_->move(w.WaveFormLeft, w.WaveFormTop);
}

MainForm::~MainForm() = default;

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
    for (int ch = 0; ch < 4; ++ch) {
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
            toSettings();
            auto chosen =
                ui_->chooseColor(static_cast<uint32_t>(state_.settings.channels[static_cast<size_t>(ch)].BackColor));
            if (chosen) state_.settings.channels[static_cast<size_t>(ch)].BackColor = static_cast<int32_t>(*chosen);
            applyChannelColours();
            refreshViews();
        });
        // The measurement choices are read again at the next analysis.
        auto reevaluate = [this] { toSettings(); };
        connect(DutyCheck_[ch], &QCheckBox::clicked, this, reevaluate);
        connect(PPCheck_[ch], &QCheckBox::clicked, this, reevaluate);
        connect(ChInputSignal_[ch], &QComboBox::activated, this, reevaluate);
    }
}

void MainForm::applyChannelColours() {
    for (int ch = 0; ch < 4; ++ch) {
        const auto& c = state_.settings.channels[static_cast<size_t>(ch)];
        frame_[ch]->setStyleSheet(QStringLiteral("QGroupBox#%1 { background-color: %2; color: %3; }")
                                      .arg(frame_[ch]->objectName(),
                                           ColorFromBgr(static_cast<uint32_t>(c.BackColor)).name(),
                                           ColorFromBgr(static_cast<uint32_t>(c.ForeColor)).name()));
    }
}

void MainForm::toSettings() {
    if (updating_) return;
    auto& a = state_.settings.analysis;
    a.MaxCycles = s(MaxCycles_->text());
    a.TotalRepeats = s(TotalRepeats_->text());
    a.Histerisis = s(Histerisis_->text());
    a.PLevel = s(PLevel_->text());
    a.SmoothingNo = s(SmoothingNo_->text());
    a.LimitPoints = s(LimitPoints_->text());
    a.SampleNo = s(SampleNo_->text());
    a.SampleIndex = s(SampleIndex_->text());
    a.ZoomRate = s(ZoomRate_->text());
    a.IPAdressText = s(IPAdressText_->text());
    a.Comment = s(Comment_->toPlainText());
    a.LevelMethod = s(LevelMethod_->currentText());
    a.RepeatCheck = RepeatCheck_->isChecked();
    a.DaqCheck = DaqCheck_->isChecked();
    a.OmitRangeEffect = OmitRangeEffect_->isChecked();
    a.SaveWavesCheck = SaveWavesCheck_->isChecked();
    a.SaveScreenCheck = SaveScreenCheck_->isChecked();
    a.DDSaveCheck = DDSaveCheck_->isChecked();
    a.WDSaveCheck = WDSaveCheck_->isChecked();
    for (size_t ch = 0; ch < 4; ++ch) {
        auto& c = state_.settings.channels[ch];
        c.ChInputSignal = ChInputSignal_[ch]->currentIndex();
        c.VRate = s(VRate_[ch]->text());
        c.SigName = s(SigName_[ch]->text());
        c.DispOffCheck = DispOffCheck_[ch]->isChecked();
        c.PPCheck = PPCheck_[ch]->isChecked();
        c.DutyCheck = DutyCheck_[ch]->isChecked();
    }
    auto& w = state_.settings.windows;
    w.MainLeft = x();
    w.MainTop = y();
    w.WaveFormLeft = waveEach_->x();
    w.WaveFormTop = waveEach_->y();
    w.WaveFormAllLeft = waveAll_->x();
    w.WaveFormAllTop = waveAll_->y();
}

void MainForm::fromSettings() {
    updating_ = true;
    const auto& a = state_.settings.analysis;
    MaxCycles_->setText(q(a.MaxCycles));
    TotalRepeats_->setText(q(a.TotalRepeats));
    Histerisis_->setText(q(a.Histerisis));
    PLevel_->setText(q(a.PLevel));
    SmoothingNo_->setText(q(a.SmoothingNo));
    LimitPoints_->setText(q(a.LimitPoints));
    SampleNo_->setText(q(a.SampleNo));
    SampleIndex_->setText(q(a.SampleIndex));
    ZoomRate_->setText(q(a.ZoomRate));
    IPAdressText_->setText(q(a.IPAdressText));
    if (Comment_->toPlainText() != q(a.Comment)) Comment_->setPlainText(q(a.Comment));
    LevelMethod_->setCurrentText(q(a.LevelMethod));
    RepeatCheck_->setChecked(a.RepeatCheck);
    DaqCheck_->setChecked(a.DaqCheck);
    OmitRangeEffect_->setChecked(a.OmitRangeEffect);
    SaveWavesCheck_->setChecked(a.SaveWavesCheck);
    SaveScreenCheck_->setChecked(a.SaveScreenCheck);
    DDSaveCheck_->setChecked(a.DDSaveCheck);
    WDSaveCheck_->setChecked(a.WDSaveCheck);
    for (size_t ch = 0; ch < 4; ++ch) {
        const auto& c = state_.settings.channels[ch];
        ChInputSignal_[ch]->setCurrentIndex(c.ChInputSignal);
        VRate_[ch]->setText(q(c.VRate));
        SigName_[ch]->setText(q(c.SigName));
        DispOffCheck_[ch]->setChecked(c.DispOffCheck);
        PPCheck_[ch]->setChecked(c.PPCheck);
        DutyCheck_[ch]->setChecked(c.DutyCheck);
    }
    applyChannelColours();
    updating_ = false;
}

void MainForm::refreshViews() {
    resultModel_->refresh();
    logModel_->refresh();
    detailModel_->refresh();
    TotalWaveDatas_->setText(q(state_.TotalWaveDatas));
    WFStartCommand_->setEnabled(!state_.Running);
    waveAll_->refresh();
    waveEach_->refresh();
    if (detail_->isVisible()) detail_->refresh();
    fromSettings();
}

void MainForm::run(const std::function<void()>& handler) {
    toSettings();
    RunHandler(*ui_, handler);
    fromSettings();
    refreshViews();
}

void MainForm::saveWindowPictures() {
    toSettings();
    const std::string name = state_.sampleName();
    WaveWindow* wave = waveAll_->isVisible() ? waveAll_ : (waveEach_->isVisible() ? waveEach_ : nullptr);
    if (wave) {
        wave->raise();
        QApplication::processEvents();
        SaveWindowPicture(wave->grab().toImage(),
                          CaptureFileName(state_.DataFolder, name, state_.CaptureCounter, "_Wave.jpg"));
    }
    raise();
    QApplication::processEvents();
    SaveWindowPicture(grab().toImage(), CaptureFileName(state_.DataFolder, name, state_.CaptureCounter, "_Main.jpg"));
    ++state_.CaptureCounter;
}

void MainForm::closeEvent(QCloseEvent* e) {
    toSettings();
    state_.link->abort();
    if (!state_.SaveUnsavedResults(*ui_)) {
        // The last chance for lines the results file would not take.
        std::string text;
        for (const auto& line : state_.unsavedResultLines) text += line + "\r\n";
        ui_->setClipboardText(text);
        ui_->messageBox(std::to_string(state_.unsavedResultLines.size()) + " result line(s) could not be saved to " +
                            state_.resultFileName() + ". They are on the clipboard.",
                        MsgButtons::Ok, "Failed to save Test Results.");
    }
    Outcome saved = state_.FormUnload();
    if (!saved) ui_->messageBox(saved.text(), MsgButtons::Ok, "Run-time error");
    waveAll_->close();
    waveEach_->close();
    detail_->close();
    e->accept();
}

}  // namespace mervasto
