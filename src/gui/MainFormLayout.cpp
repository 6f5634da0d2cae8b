// The main window's controls, a group at a time: the settings, the channel
// frames, the command buttons, the grids and the menus. What they do is
// connected in MainForm.cpp.
#include "gui/MainForm.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
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
#include "gui/YieldTab.h"

namespace mervasto {

namespace {
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
}  // namespace

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
    buildAddressFrame(settingsBox, commands);
    commands.tcpip = new QPushButton("TCP/IP Address", settingsBox);
    commands.tcpip->setObjectName("TCPIPAddressSet");
    g->addWidget(commands.tcpip, 0, 7);
    // The instrument's family beside its address: Auto lets its identification choose.
    Instrument_ = new QComboBox(settingsBox);
    Instrument_->setObjectName("Instrument");
    for (std::string_view family : kInstrumentChoices) Instrument_->addItem(q(std::string(family)));
    Instrument_->setToolTip("The instrument's family; Auto: its identification chooses");
    g->addWidget(Instrument_, 0, 8);
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
        PPCheck_[ch] = new QCheckBox("P-P", f);
        name(PPCheck_[ch], "PPCheck");
        DutyCheck_[ch] = new QCheckBox("Duty", f);
        name(DutyCheck_[ch], "DutyCheck");
        auto* colour = new QPushButton("Color", f);
        name(colour, "ColorSet");
        g->addWidget(new QLabel("Ch Type", f), 0, 0);
        g->addWidget(ChInputSignal_[ch], 0, 1);
        auto* rateLabel = new QLabel("V Rate", f);
        rateLabel->setBuddy(VRate_[ch]);
        g->addWidget(rateLabel, 1, 0);
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

QHBoxLayout* MainForm::buildButtons(QWidget* parent, Commands& commands) {
    auto* buttons = new QHBoxLayout;
    auto button = [&](const char* name, const char* text) {
        auto* b = new QPushButton(text, parent);
        b->setObjectName(name);
        buttons->addWidget(b);
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
    commands.colorInit = button("ColorInit", "Init Colors");
    commands.histogram = button("ShowHistogram", "Histogram / Trend");
    InputFromFile_ = button("InputFromFile", "Input from File");
    InputFromFile_->hide();
    return buttons;
}

QTabWidget* MainForm::buildGrids(QWidget* parent) {
    SSTab1_ = new QTabWidget(parent);
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
    SSTab1_->addTab(new YieldTab(state_, SSTab1_), "Yield");
    return SSTab1_;
}

void MainForm::buildMenus(Commands& commands) {
    // File menu: the only way to the hidden file input button's command.
    auto* file = menuBar()->addMenu("&File");
    commands.inputFile = file->addAction("Input from File...");
    commands.inputFile->setObjectName("InputFromFileAction");
    commands.inputFile->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    auto* waves = menuBar()->addMenu("&Wave");
    commands.showAll = waves->addAction("DSO Wave(All)");
    commands.showEach = waves->addAction("DSO Wave(Each)");
    commands.showHistogram = waves->addAction("Histogram / Trend");
}

}  // namespace mervasto
