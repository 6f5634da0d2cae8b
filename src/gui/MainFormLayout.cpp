// The main window's controls, a group at a time: the settings, the channel
// frames, the command buttons, the grids and the menus. What they do is
// connected in MainForm.cpp.
#include "gui/MainForm.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTabWidget>
#include <QTableView>
#include <QToolButton>
#include <QVBoxLayout>

#include "common/InstrumentFamilies.h"
#include "display/WavePainter.h"
#include "dso/UsbtmcChannel.h"
#include "gui/EncoderTab.h"
#include "gui/GridModel.h"
#include "gui/GuiUi.h"
#include "gui/HelpWindow.h"
#include "gui/YieldTab.h"
#include "results/ResultGrids.h"

namespace mervasto {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }

constexpr int kButtonsPerRow = 6;

constexpr const char* kUnusedChoiceTip =
    "Saved with the settings; no measurement depends on it yet, so ticking it changes no result";

// As tall as its contents while there is room, so that the grids below get
// the rest; shorter (scrolling) when there is not.
class SettingsScroll : public QScrollArea {
public:
    explicit SettingsScroll(QWidget* parent) : QScrollArea(parent) {
        setWidgetResizable(true);
        setFrameShape(QFrame::NoFrame);
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    }
    QSize sizeHint() const override {
        if (!widget()) return QScrollArea::sizeHint();
        const QSize content = widget()->sizeHint();
        int height = content.height() + 2 * frameWidth();
        if (width() < widget()->minimumSizeHint().width() + 2 * frameWidth())
            height += horizontalScrollBar()->sizeHint().height();
        return {content.width() + 2 * frameWidth(), height};
    }

protected:
    void resizeEvent(QResizeEvent* e) override {
        QScrollArea::resizeEvent(e);
        // The hint grows by a scroll bar when the width falls short.
        if (sizeHint().height() != hintHeight_) {
            hintHeight_ = sizeHint().height();
            updateGeometry();
        }
    }

private:
    int hintHeight_ = -1;
};

// Its height as small as its pages allow, so that the settings above come
// first and the grids take the rest.
class GridTabs : public QTabWidget {
public:
    using QTabWidget::QTabWidget;
    QSize sizeHint() const override { return {QTabWidget::sizeHint().width(), minimumSizeHint().height()}; }
};

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
}  // namespace

void MainForm::buildWindow(Commands& commands) {
    auto* central = new QWidget(this);
    auto* main = new QVBoxLayout(central);
    setCentralWidget(central);
    // The settings scroll when the window is too small for them; the
    // buttons and the grids stay in view.
    auto* scroll = new SettingsScroll(central);
    scroll->setObjectName("SettingsScroll");
    auto* settings = new QWidget(scroll);
    settings->setObjectName("SettingsArea");
    auto* top = new QVBoxLayout(settings);
    top->setContentsMargins(0, 0, 0, 0);
    top->addWidget(buildSettings(settings, commands));
    // A row of its own: shown, it pushes the rest down instead of covering it.
    top->addWidget(addressFrame_);
    auto* chRow = new QHBoxLayout;
    buildChannelFrames(settings, chRow);
    top->addLayout(chRow);
    scroll->setWidget(settings);
    main->addWidget(scroll);
    main->addLayout(buildButtons(central, commands));
    main->addWidget(buildGrids(central), 1);
    buildMenus(commands);
}

QLineEdit* MainForm::addBox(QWidget* parent, const char* name, const char* caption, QGridLayout* grid, int row, int col,
                            const char* after) {
    auto* e = new QLineEdit(parent);
    e->setObjectName(name);
    e->setMaximumWidth(110);
    auto* label = new QLabel(caption, parent);
    label->setBuddy(e);
    grid->addWidget(label, row, col);
    grid->addWidget(e, row, col + 1);
    if (after) grid->addWidget(new QLabel(after, parent), row, col + 2);
    return e;
}

QGroupBox* MainForm::buildSettings(QWidget* parent, Commands& commands) {
    auto* settingsBox = new QGroupBox("Settings", parent);
    auto* g = new QGridLayout(settingsBox);
    // Five rows in four groups side by side, so that the grids below keep
    // room for every channel's results.
    MaxCycles_ = addBox(settingsBox, "MaxCycles", "Max Periods", g, 0, 0, "<Enter>");
    TotalRepeats_ = addBox(settingsBox, "TotalRepeats", "Total Repeats", g, 1, 0, "<Enter>");
    Histerisis_ = addBox(settingsBox, "Histerisis", "Hysteresis", g, 2, 0, "<Enter>");
    Histerisis_->setToolTip("Hysteresis in percent of the half amplitude");
    PLevel_ = addBox(settingsBox, "PLevel", "Level", g, 3, 0, "%");
    PLevel_->setToolTip("Decision level in percent between the low and the high level");
    SmoothingNo_ = addBox(settingsBox, "SmoothingNo", "Smoothing", g, 4, 0, "(Odd)");
    LimitPoints_ = addBox(settingsBox, "LimitPoints", "Margin", g, 0, 3, "<Enter>");
    LimitPoints_->setToolTip("Margin cut off at both ends of the analysis window, in screen divisions");
    ZoomRate_ = addBox(settingsBox, "ZoomRate", "Zoom", g, 1, 3, "<2000");
    auto* levelLabel = new QLabel("Level Method", settingsBox);
    LevelMethod_ = new QComboBox(settingsBox);
    LevelMethod_->setObjectName("LevelMethod");
    LevelMethod_->addItems({"Peaks", "Halves", "Auto"});
    LevelMethod_->setToolTip("Auto: the Peaks levels unless the Halves levels fit the samples far better");
    levelLabel->setBuddy(LevelMethod_);
    g->addWidget(levelLabel, 2, 3);
    g->addWidget(LevelMethod_, 2, 4, 1, 2);
    auto* ruleLabel = new QLabel("Edge Rule", settingsBox);
    auto* edgeRule = new QComboBox(settingsBox);
    edgeRule->setObjectName("EdgeRule");
    edgeRule->addItems({"Legacy", "Schmitt", "Auto"});
    edgeRule->setToolTip("Auto: the Legacy edges unless that rule passes over a level crossing, then Schmitt");
    ruleLabel->setBuddy(edgeRule);
    g->addWidget(ruleLabel, 3, 3);
    g->addWidget(edgeRule, 3, 4, 1, 2);
    auto* edgeLabel = new QLabel("Edge Timing", settingsBox);
    EdgeTiming_ = new QComboBox(settingsBox);
    EdgeTiming_->setObjectName("EdgeTiming");
    EdgeTiming_->addItems({"Samples", "Interpolated"});
    EdgeTiming_->setToolTip("Edges on whole samples, or where the signal crosses the level between two samples");
    edgeLabel->setBuddy(EdgeTiming_);
    g->addWidget(edgeLabel, 4, 3);
    g->addWidget(EdgeTiming_, 4, 4, 1, 2);
    SampleNo_ = addBox(settingsBox, "SampleNo", "Sample Name", g, 0, 6, "<Enter>");
    SampleIndex_ = addBox(settingsBox, "SampleIndex", "Index", g, 1, 6);
    TimeoutSeconds_ = addBox(settingsBox, "TimeoutSeconds", "Time-out (s)", g, 2, 6);
    TimeoutSeconds_->setToolTip("How long one exchange with the instrument may take before it is given up");
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
        g->addWidget(box, row / 2, 9 + row % 2);
        ++row;
    }
    Comment_ = new QPlainTextEdit(settingsBox);
    Comment_->setObjectName("Comment");
    Comment_->setMaximumHeight(60);
    Comment_->setMinimumWidth(120);
    g->addWidget(new QLabel("Comment", settingsBox), 3, 6);
    g->addWidget(Comment_, 3, 7, 2, 2);
    buildAddressFrame(settingsBox, commands);
    commands.tcpip = new QPushButton("TCP/IP Address", settingsBox);
    commands.tcpip->setObjectName("TCPIPAddressSet");
    g->addWidget(commands.tcpip, 0, 9);
    // The instrument's family beside its address: Auto lets its identification choose.
    Instrument_ = new QComboBox(settingsBox);
    Instrument_->setObjectName("Instrument");
    for (std::string_view family : kInstrumentChoices) Instrument_->addItem(q(std::string(family)));
    Instrument_->setToolTip("The instrument's family; Auto: its identification chooses");
    g->addWidget(Instrument_, 0, 10);
    return settingsBox;
}

void MainForm::buildAddressFrame(QWidget* parent, Commands& commands) {
    addressFrame_ = new QGroupBox("DSO Address", parent);
    addressFrame_->setObjectName("AddressFrame");
    auto* af = new QHBoxLayout(addressFrame_);
    IPAdressText_ = new QLineEdit(addressFrame_);
    IPAdressText_->setObjectName("IPAdressText");
    IPAdressText_->setToolTip(
        "HOST[:PORT] for the raw socket, vxi11://HOST[/inst0] for VXI-11, "
        "or a USBTMC device node such as /dev/usbtmc0");
    // The USB instruments present, listed afresh each time the menu opens.
    auto* usb = new QToolButton(addressFrame_);
    usb->setObjectName("UsbtmcNodes");
    usb->setText("USB");
    usb->setToolTip("The USBTMC device nodes present (/dev/usbtmc*)");
    usb->setPopupMode(QToolButton::InstantPopup);
    auto* nodes = new QMenu(usb);
    usb->setMenu(nodes);
    QObject::connect(nodes, &QMenu::aboutToShow, nodes, [this, nodes] {
        nodes->clear();
        const std::vector<std::string> found = UsbtmcNodes();
        if (found.empty()) nodes->addAction("No USBTMC device node (/dev/usbtmc*)")->setEnabled(false);
        for (const std::string& node : found)
            QObject::connect(nodes->addAction(q(node)), &QAction::triggered, IPAdressText_,
                             [this, node] { IPAdressText_->setText(q(node)); });
    });
    commands.setIp = new QPushButton("Set", addressFrame_);
    commands.setIp->setObjectName("SetIPAddress");
    af->addWidget(IPAdressText_);
    af->addWidget(usb);
    af->addWidget(commands.setIp);
    addressFrame_->hide();
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
        // Kept with the settings and passed to the analysis, which measures
        // the same whether they are ticked or not.
        PPCheck_[ch] = new QCheckBox("P-P", f);
        name(PPCheck_[ch], "PPCheck");
        PPCheck_[ch]->setToolTip(kUnusedChoiceTip);
        DutyCheck_[ch] = new QCheckBox("Duty", f);
        name(DutyCheck_[ch], "DutyCheck");
        DutyCheck_[ch]->setToolTip(kUnusedChoiceTip);
        auto* colour = new QPushButton("Color", f);
        name(colour, "ColorSet");
        g->addWidget(new QLabel("Ch Type", f), 0, 0);
        g->addWidget(ChInputSignal_[ch], 0, 1, 1, 2);
        auto* rateLabel = new QLabel("V Rate", f);
        rateLabel->setBuddy(VRate_[ch]);
        g->addWidget(rateLabel, 1, 0);
        g->addWidget(VRate_[ch], 1, 1);
        g->addWidget(colour, 1, 2);
        g->addWidget(new QLabel("Name", f), 2, 0);
        g->addWidget(SigName_[ch], 2, 1, 1, 2);
        g->addWidget(DispOffCheck_[ch], 3, 0);
        g->addWidget(PPCheck_[ch], 3, 1);
        g->addWidget(DutyCheck_[ch], 3, 2);
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

QLayout* MainForm::buildButtons(QWidget* parent, Commands& commands) {
    // Two rows: one would cut the captions short at small window widths.
    auto* buttons = new QGridLayout;
    int placed = 0;
    auto button = [&](const char* name, const char* text) {
        auto* b = new QPushButton(text, parent);
        b->setObjectName(name);
        buttons->addWidget(b, placed / kButtonsPerRow, placed % kButtonsPerRow);
        ++placed;
        return b;
    };
    WFStartCommand_ = button("WFStartCommand", "Input from DSO");
    commands.stop = button("Stop", "Stop");
    commands.save = button("WaveSave", "Save");
    commands.readRange = button("ReadRejectRange", "Read Range");
    commands.pictures = button("SaveWave", "Save Pictures");
    commands.detailPath = button("SelDataSaveFile", "Detail Path...");
    commands.copyLog = button("ResultCopy", "Copy");
    commands.copyNumbers = button("ResultCopyNumbers", "Copy as Numbers");
    commands.copyNumbers->setToolTip("The result grid as plain numbers in SI base units, for a spreadsheet");
    commands.detailForm = button("DetailCycles", "Limits / Go-NG...");
    commands.histogram = button("ShowHistogram", "Histogram / Trend");
    commands.colorInit = button("ColorInit", "Init Colors");
    InputFromFile_ = button("InputFromFile", "Input from File");
    InputFromFile_->hide();
    return buttons;
}

QTabWidget* MainForm::buildGrids(QWidget* parent) {
    SSTab1_ = new GridTabs(parent);
    SSTab1_->setObjectName("SSTab1");
    resultModel_ = new GridModel(&state_.resultGrid(), this);
    logModel_ = new GridModel(&state_.logGrid(), this);
    detailModel_ = new GridModel(&state_.detailGrid(), this);
    ResultGrid1_ = makeGridView(SSTab1_, "ResultGrid1", resultModel_);
    LogGrid_ = makeGridView(SSTab1_, "LogGrid", logModel_);
    DetailDataGrid_ = makeGridView(SSTab1_, "DetailDataGrid", detailModel_);
    // Every channel's rows stay in view, however small the window.
    ResultGrid1_->setMinimumHeight(kResultGridRows * ResultGrid1_->verticalHeader()->defaultSectionSize() +
                                   2 * ResultGrid1_->frameWidth() +
                                   ResultGrid1_->horizontalScrollBar()->sizeHint().height());
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
    // Pages taller than the result grid scroll rather than push the
    // settings out of view.
    auto scrolled = [this](QWidget* page) {
        auto* scroll = new QScrollArea(SSTab1_);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setWidget(page);
        return scroll;
    };
    SSTab1_->addTab(scrolled(new EncoderTab(state_, nullptr)), "Encoder");
    SSTab1_->addTab(scrolled(new YieldTab(state_, nullptr)), "Yield");
    return SSTab1_;
}

void MainForm::buildMenus(Commands& commands) {
    // File menu: the only way to the hidden file input button's command.
    auto* file = menuBar()->addMenu("&File");
    commands.inputFile = file->addAction("Input from File...");
    commands.inputFile->setObjectName("InputFromFileAction");
    commands.inputFile->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    file->addSeparator();
    // Closing the window: settings saved, a run stopped first.
    auto* quit = file->addAction("Quit");
    quit->setObjectName("QuitAction");
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, this, &QWidget::close);
    auto* waves = menuBar()->addMenu("&Wave");
    commands.showAll = waves->addAction("DSO Wave(All)");
    commands.showEach = waves->addAction("DSO Wave(Each)");
    commands.showHistogram = waves->addAction("Histogram / Trend");

    auto* help = menuBar()->addMenu("&Help");
    auto* guide = help->addAction("User Guide");
    guide->setObjectName("UserGuideAction");
    guide->setShortcut(QKeySequence(Qt::Key_F1));
    // F1 from the wave and comparator windows too.
    guide->setShortcutContext(Qt::ApplicationShortcut);
    connect(guide, &QAction::triggered, this, [this] {
        auto* window = findChild<HelpWindow*>("HelpWindow");
        if (!window) window = new HelpWindow(HelpFolderCandidates(QCoreApplication::applicationDirPath()), this);
        window->show();
        window->raise();
        window->activateWindow();
    });
    auto* about = help->addAction("About Mervasto");
    about->setObjectName("AboutAction");
    connect(about, &QAction::triggered, this, [this] {
        auto* box = new QMessageBox(QMessageBox::Information, "About Mervasto", AboutText(), QMessageBox::Ok, this);
        box->setObjectName("AboutBox");
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
    });
}

}  // namespace mervasto
