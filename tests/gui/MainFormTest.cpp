#include "gui/DetailCyclesForm.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/HelpWindow.h"
#include "gui/MainForm.h"
#include "gui/Unattended.h"
#include "gui/WaveWindow.h"
#include "gui/YieldTab.h"
#include "display/PlotPainter.h"
#include "common/PackageVersion.h"
#include "common/TextFile.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

#include <QAbstractButton>
#include <QAbstractItemModel>
#include <QAbstractScrollArea>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QItemSelectionModel>
#include <QGroupBox>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <QTextBrowser>
#include <QUrl>

#include "app/core/ExitStatus.h"
#include "app/core/ResumeFile.h"
#include "app/core/SettingsTable.h"
#include "common/RuntimeError.h"
#include "results/ResultFiles.h"

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

#include "support/QtTestApp.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(GuardedApplication);

// Drags the files onto the window as a file manager would: enter, then drop.
// Returns whether the window took the drag; the load itself runs once the
// drop is over.
bool dropFiles(MainForm& form, const std::vector<std::string>& files) {
    QMimeData data;
    QList<QUrl> urls;
    for (const auto& f : files) urls.push_back(QUrl::fromLocalFile(QString::fromStdString(f)));
    data.setUrls(urls);
    const QPoint at(form.width() / 2, form.height() / 2);
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&form, &enter);
    QDropEvent drop(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&form, &drop);
    QCoreApplication::sendPostedEvents();
    return enter.isAccepted() && drop.isAccepted();
}

// The tab whose page holds the widget.
int tabOf(QTabWidget* tabs, QWidget* w) {
    int page = 0;
    while (page < tabs->count() && !tabs->widget(page)->isAncestorOf(w)) ++page;
    return page;
}

QString cell(QTableView* v, int row, int col) { return v->model()->index(row, col).data().toString(); }

class MainFormTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = mervasto::test::FreshTestFolder("mervasto-gui-"); }
    std::unique_ptr<MainForm> open() {
        auto form = std::make_unique<MainForm>((dir_ / "data").string());
        form->ui().answerHook = [this](const std::string& text, MsgButtons, const std::string& title) {
            boxes.push_back(title + ": " + text);
            return MsgAnswer::Ok;
        };
        form->ui().fileHook = [this](const std::string&, const std::string&,
                                     const std::string& folder) -> std::optional<std::string> {
            dialogFolders.push_back(folder);
            if (files.empty()) return std::nullopt;
            auto f = files.front();
            files.erase(files.begin());
            return f;
        };
        return form;
    }
    template <class T>
    static T* find(QWidget& w, const char* name) {
        T* c = w.findChild<T*>(name);
        EXPECT_NE(c, nullptr) << name;
        return c;
    }
    std::string writeExample(const char* name) { return test::WriteExample(dir_, name); }
    static void typeEnter(QLineEdit* e, const QString& text) {
        e->clear();
        QTest::keyClicks(e, text);
        QTest::keyClick(e, Qt::Key_Return);
    }

    // The lines of ResultData.csv after its two header lines.
    std::vector<std::string> resultLines(MainForm& form) {
        std::vector<std::string> lines;
        std::ifstream in(form.state().resultFileName(), std::ios::binary);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        if (lines.size() >= 2) lines.erase(lines.begin(), lines.begin() + 2);
        return lines;
    }
    // A series of `passes` from the simulator, New Acquisition ticked.
    void prepareSeries(MainForm& form, DsoSimulator& sim, int passes) {
        form.state().setReplyTimeoutMs(3000);  // roomy: sanitizer builds on busy machines are slow
        find<QLineEdit>(form, "IPAdressText")->setText(QString::fromStdString(sim.address()));
        find<QCheckBox>(form, "DaqCheck")->setChecked(true);
        find<QCheckBox>(form, "RepeatCheck")->setChecked(true);
        typeEnter(find<QLineEdit>(form, "TotalRepeats"), QString::number(passes));
    }

    std::filesystem::path dir_;
    std::vector<std::string> boxes;
    std::vector<std::string> files;
    std::vector<std::string> dialogFolders;
};

TEST_F(MainFormTest, StartsWithDefaultsOnAnEmptyDataFolder) {
    auto form = open();
    EXPECT_TRUE(form->windowTitle().endsWith("(Ver3.40)"));
    EXPECT_TRUE(form->windowTitle().startsWith("Periods/Encoder Pulses Analyzing"));
    EXPECT_EQ(find<QLineEdit>(*form, "MaxCycles")->text(), "1000");
    EXPECT_EQ(find<QLineEdit>(*form, "TotalRepeats")->text(), "1000");
    EXPECT_EQ(find<QLineEdit>(*form, "IPAdressText")->text(), "192.168.1.101");
    EXPECT_TRUE(find<QPushButton>(*form, "InputFromFile")->isHidden());
    EXPECT_TRUE(std::filesystem::is_directory(dir_ / "data" / "OutputData"));
}

// Every number box is checked as it is typed: a text its setting refuses
// stays, red, with the reason and range in its tool tip, and no input starts
// meanwhile. Enter still lowers a value above a box's limit to the limit.
TEST_F(MainFormTest, NumberBoxesRefuseTyposAndEnterClamps) {
    auto form = open();
    form->show();
    typeEnter(find<QLineEdit>(*form, "MaxCycles"), "600000");
    EXPECT_EQ(find<QLineEdit>(*form, "MaxCycles")->text(), "500000");
    EXPECT_FALSE(find<QLineEdit>(*form, "MaxCycles")->property("refused").toBool());
    EXPECT_EQ(find<QTableView>(*form, "DetailDataGrid")->model()->rowCount(), 500005);
    typeEnter(find<QLineEdit>(*form, "Histerisis"), "abc");
    EXPECT_EQ(find<QLineEdit>(*form, "Histerisis")->text(), "abc");
    EXPECT_EQ(form->state().settings().analysis.Histerisis, "10");
    find<QLineEdit>(*form, "Histerisis")->setText("10");

    const std::tuple<const char*, const char*, bool> typed[] = {
        {"PLevel", "150", true},      {"PLevel", "abc", true},        {"LimitPoints", "abc", true},
        {"TotalRepeats", "-5", true}, {"TotalRepeats", "2.5", true},  {"TotalRepeats", "", true},
        {"TotalRepeats", "0", false}, {"SmoothingNo", "-3", true},    {"SmoothingNo", "4", false},
        {"SampleIndex", "3e9", true}, {"SampleIndex", "32767", true}, {"VRate1", "abc", true},
        {"ZoomRate", "2000", true},   {"MinStateWidth", "-1", true},
    };
    for (const auto& [name, text, refused] : typed) {
        auto* box = find<QLineEdit>(*form, name);
        box->setText(text);
        EXPECT_EQ(box->property("refused").toBool(), refused) << name << " " << text;
        EXPECT_EQ(box->toolTip().contains(" from "), true) << name << ": " << box->toolTip().toStdString();
        if (refused) box->setText(QString::fromStdString(DefaultText(FindControlField(name))));
    }

    find<QLineEdit>(*form, "PLevel")->setText("150");
    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    find<QPushButton>(*form, "WFStartCommand")->click();
    QTest::keyClick(find<QLineEdit>(*form, "LimitPoints"), Qt::Key_Return);
    EXPECT_TRUE(resultLines(*form).empty());
    EXPECT_TRUE(dialogFolders.empty());
    EXPECT_TRUE(boxes.empty());
    EXPECT_EQ(form->ui().statusText(1),
              "Not started: the \"Level\" box: PLevel cannot be \"150\": it takes a number from 0 to 100.");
    find<QLineEdit>(*form, "PLevel")->setText("50");
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    EXPECT_EQ(dialogFolders.size(), 1u);
}

TEST_F(MainFormTest, FileMenuInputFillsTheResultGridAndComparatorShowsNg) {
    auto form = open();
    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    auto* model = find<QTableView>(*form, "ResultGrid1")->model();
    EXPECT_EQ(model->data(model->index(2, 7)).toString(), "49");
    EXPECT_EQ(find<QLineEdit>(*form, "TotalWaveDatas")->text(), "Wave Length=10000");
    EXPECT_EQ(form->ui().statusText(1).rfind("Saved Test Results to the ", 0), 0u);

    std::ofstream(dir_ / "limits.txt", std::ios::binary) << "1,100,200\r\n";
    files = {(dir_ / "limits.txt").string()};
    find<QPushButton>(*form->detailCycles(), "SelectComparator")->click();
    const Grid& g = form->detailCycles()->grid();
    bool ng = false;
    for (int r = 1; r < g.rows(); ++r) ng |= g.text(r, 0) == "1" && g.text(r, 5) == "NG";
    EXPECT_TRUE(ng);

    // Ch1's seven rows: the same cells, told apart by their row headers and tips.
    auto* view = find<QTableView>(*form->detailCycles(), "DetailCycleGrid");
    auto* m = view->model();
    form->detailCycles()->show();
    QApplication::processEvents();
    EXPECT_TRUE(view->verticalHeader()->isVisible());
    EXPECT_FALSE(view->horizontalScrollBar()->isVisible());  // every column, Value UL too, in view
    const char* names[] = {"Pulse width (s)", "Duty (%)", "Ch Type: Period (s)", "Period (s)", "Frequency (Hz)",
                           "Amplitude (V)",   "RMS (V)"};
    for (int r = 1; r <= 7; ++r) {
        EXPECT_EQ(g.text(r, 0), "1");
        EXPECT_EQ(g.text(r, 1), "Period");
        EXPECT_EQ(m->headerData(r, Qt::Vertical).toString(), names[r - 1]);
        const QString tip = m->index(r, 2).data(Qt::ToolTipRole).toString();
        EXPECT_TRUE(tip.startsWith(QStringLiteral("Ch1, ") + names[r - 1])) << tip.toStdString();
        EXPECT_EQ(m->headerData(r, Qt::Vertical, Qt::ToolTipRole).toString(), tip);
    }
}

// The Edge Timing and Edge Rule lists beside the level method set their
// settings ("Auto" by default where there is one); the Jitter tab shows each
// shown channel's jitter after an analysis.
TEST_F(MainFormTest, EdgeTimingListAndJitterTab) {
    auto form = open();
    auto* level = find<QComboBox>(*form, "LevelMethod");
    auto* rule = find<QComboBox>(*form, "EdgeRule");
    EXPECT_EQ(level->currentText(), "Auto");
    ASSERT_EQ(rule->count(), 3);
    EXPECT_EQ(rule->currentText(), "Auto");
    rule->setCurrentText("Schmitt");
    EXPECT_EQ(form->state().settings().analysis.EdgeRule, "Schmitt");
    auto* timing = find<QComboBox>(*form, "EdgeTiming");
    ASSERT_EQ(timing->count(), 2);
    EXPECT_EQ(timing->currentText(), "Samples");
    timing->setCurrentText("Interpolated");
    EXPECT_EQ(form->state().settings().analysis.EdgeTiming, "Interpolated");
    auto* tabs = find<QTabWidget>(*form, "SSTab1");
    EXPECT_EQ(tabs->tabText(tabs->indexOf(find<QTableView>(*form, "JitterGrid"))), "Jitter");

    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    auto* model = find<QTableView>(*form, "JitterGrid")->model();
    ASSERT_EQ(model->rowCount(), 5);
    EXPECT_EQ(model->data(model->index(0, 3)).toString(), "C2C Min");
    EXPECT_EQ(model->data(model->index(1, 0)).toString(), "Ch1");
    EXPECT_EQ(model->data(model->index(1, 7)).toString(), "48");            // 49 periods
    EXPECT_TRUE(model->data(model->index(1, 6)).toString().endsWith("s"));  // seconds with a prefix
    EXPECT_FALSE(model->flags(model->index(1, 6)) & Qt::ItemIsEditable);
}

// The status bar names the file, the line, its label and the value used
// instead; the settings after a bad line are still read.
TEST_F(MainFormTest, ABadSettingsLineIsToldAndTheOthersKept) {
    Settings s;
    s.analysis.PLevel = "40";
    std::string text = ResumeText(s);
    const std::string colour = ToNarrow("Ch1 のバック色, 65535 ");
    text.replace(text.find(colour), colour.size(), ToNarrow("Ch1 のバック色,yellow"));
    text.replace(text.find("TimeoutSeconds,10"), 17, "TimeoutSeconds,abc");
    const auto file = dir_ / "data" / "Parameter" / "Resume340.txt";
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    auto form = open();
    EXPECT_EQ(form->ui().statusText(2), file.string() +
                                            ", line 11 (Ch1 のバック色): BackColor1 cannot be \"yellow\": " +
                                            "it takes a whole number. \"65535\" is used instead. (2 lines in all)");
    EXPECT_EQ(find<QLineEdit>(*form, "TimeoutSeconds")->text(), "10");
    EXPECT_EQ(find<QLineEdit>(*form, "PLevel")->text(), "40");
}

TEST_F(MainFormTest, SettingsSurviveACloseAndARestart) {
    {
        auto form = open();
        auto* name = find<QLineEdit>(*form, "SampleNo");
        name->setText("Lot42");
        find<QLineEdit>(*form, "SigName1")->setText("encoder B");
        form->close();
    }
    auto form = open();
    EXPECT_EQ(find<QLineEdit>(*form, "SampleNo")->text(), "Lot42");
    EXPECT_EQ(find<QLineEdit>(*form, "SigName1")->text(), "encoder B");
}

TEST_F(MainFormTest, TwoPicturePressesGetSuccessiveNumbers) {
    auto form = open();
    form->show();
    find<QPushButton>(*form, "SaveWave")->click();
    find<QPushButton>(*form, "SaveWave")->click();
    const auto out = dir_ / "data" / "Outputdata";
    EXPECT_TRUE(FileExists((out / "Sample1_0_Main.jpg").string()));
    EXPECT_TRUE(FileExists((out / "Sample1_1_Main.jpg").string()));
}

TEST_F(MainFormTest, InputFromDsoAgainstTheSimulator) {
    SimOptions options;
    DsoSimulator sim(options);
    ASSERT_TRUE(sim.start());
    auto form = open();
    find<QLineEdit>(*form, "IPAdressText")->setText(QString::fromStdString(sim.address()));
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_EQ(form->ui().statusText(1), "Completed data transffering.");
    auto* model = find<QTableView>(*form, "ResultGrid1")->model();
    EXPECT_FALSE(model->data(model->index(2, 7)).toString().isEmpty());
    EXPECT_TRUE(find<QPushButton>(*form, "WFStartCommand")->isEnabled());
    EXPECT_TRUE(sim.waitForLastCommand("GTL"));
    EXPECT_EQ(sim.commandLog().front(), "*IDN?");
}

// The instrument fails in the third pass of a series, or names no known
// model when it is connected: one box says why (and panel 2 keeps it), the
// passes already logged stay, the window is usable again, and the next
// press connects to the instrument once it is healthy.
TEST_F(MainFormTest, InstrumentFailingDuringASeries) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto form = open();
    const test::SeriesFault identification = {"identification", SimFault::BadSetup,
                                              "names no model with 2 or 4 channels: \"\"", false, "IDN"};
    struct Case {
        const test::SeriesFault& fault;
        int passesKept;
    };
    // Identification first, while the window has never been linked.
    for (const Case& c : {Case{identification, 0}, Case{test::kFrontEndFault, 2}, Case{test::kFrontEndSetupFault, 2}}) {
        SCOPED_TRACE(c.fault.name);
        boxes.clear();
        prepareSeries(*form, sim, 5);
        const int64_t written = form->state().resultLines().written();
        if (c.passesKept > 0) {
            test::ShowInThirdPass(sim, c.fault);
        } else {
            sim.setBadSetupField(c.fault.setupField);
            sim.setFault(c.fault.fault);
        }
        find<QPushButton>(*form, "WFStartCommand")->click();
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_EQ(boxes[0].rfind("DSO: ", 0), 0u) << boxes[0];
        EXPECT_NE(boxes[0].find(c.fault.message), std::string::npos) << boxes[0];
        EXPECT_EQ("DSO: " + form->ui().statusText(2), boxes[0]);
        EXPECT_EQ(form->state().logGrid().nextRow, kLogHeaderRows + c.passesKept);
        EXPECT_EQ(form->state().resultLines().written(), written + c.passesKept);
        EXPECT_TRUE(find<QPushButton>(*form, "WFStartCommand")->isEnabled());
        EXPECT_EQ(form->ui().statusText(4), "");

        sim.setCommandHook(nullptr);
        sim.setFault(SimFault::None);
        find<QCheckBox>(*form, "RepeatCheck")->setChecked(false);
        find<QPushButton>(*form, "WFStartCommand")->click();
        EXPECT_EQ(boxes.size(), 1u);
        EXPECT_EQ(form->ui().statusText(1), "Completed data transffering.");
        EXPECT_EQ(form->ui().statusText(2), "");
        EXPECT_EQ(form->state().resultLines().written(), written + c.passesKept + 1);
    }
}

// The status bar: the legacy texts in panel 1, the instrument in panel 4
// while it is linked. A new "TCP/IP Address" closes the old link at once;
// during a series the next pass comes from the new instrument.
TEST_F(MainFormTest, ANewAddressLeavesTheOldInstrumentAtOnce) {
    DsoSimulator first(test::SeriesSimOptions());
    SimOptions twoChannels = test::SeriesSimOptions();
    twoChannels.state.model = "DS-5352";
    DsoSimulator second(twoChannels);
    ASSERT_TRUE(first.start());
    ASSERT_TRUE(second.start());
    auto form = open();
    auto* address = find<QLineEdit>(*form, "IPAdressText");
    prepareSeries(*form, first, 1);
    find<QCheckBox>(*form, "RepeatCheck")->setChecked(false);
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_EQ(form->ui().statusText(1), "Completed data transffering.");
    EXPECT_EQ(form->ui().statusText(4), "DS-5354 at " + first.address());

    address->setText(QString::fromStdString(second.address()));
    EXPECT_EQ(form->ui().statusText(4), "");
    EXPECT_TRUE(first.waitUntil([](const std::vector<std::string>&, int open) { return open == 0; }));
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_EQ(form->ui().statusText(4), "DS-5352 at " + second.address());
    EXPECT_EQ(second.commandLog().front(), "*IDN?");

    // In a series: the pass in progress ends on the old instrument, which
    // gets its front panel back; the next passes come from the new one.
    prepareSeries(*form, second, 3);
    first.clearLog();
    second.clearLog();
    Subscription moveAfterOne = form->state().passFinished.subscribe([&] {
        if (form->state().repeatCounter() == 1)
            address->setText(QString::fromStdString(first.address()));
        else
            EXPECT_EQ(form->ui().statusText(4), "DS-5354 at " + first.address());
    });
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_TRUE(boxes.empty()) << boxes.front();
    EXPECT_EQ(form->state().passesDone(), 2 + 3);
    EXPECT_TRUE(second.waitForLastCommand("GTL"));
    const auto log = second.commandLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "DTWAVE?"), 2);  // one pass, two channels
    EXPECT_TRUE(second.waitUntil([](const std::vector<std::string>&, int open) { return open == 0; }));
    EXPECT_EQ(first.commandLog().front(), "*IDN?");
    EXPECT_TRUE(first.waitForLastCommand("GTL"));
    EXPECT_EQ(form->ui().statusText(4), "DS-5354 at " + first.address());
}

// Runs no person watches (--series) never wait on a box: each is written to
// stderr with its title and answered as its default button would be, and the
// program ends with the command line's exit statuses.
TEST_F(MainFormTest, UnattendedSeriesTellEveryBoxAndEndWithTheExitStatus) {
    namespace fs = std::filesystem;
    DsoSimulator sim(test::SeriesSimOptions());
    DsoSimulator off;
    ASSERT_TRUE(sim.start());
    ASSERT_TRUE(off.start());
    off.setFault(SimFault::Refuse);  // nothing listens there
    struct Case {
        const char* name;
        std::function<bool(const fs::path& folder)> prepare;  // false: cannot be set up here
        std::string address;
        int status;
        std::vector<std::string> told;  // parts of stderr, in order
    };
    const Case cases[] = {
        {"healthy", [](const fs::path&) { return true; }, sim.address(), kExitOk, {}},
        {"unreachable instrument",
         [](const fs::path&) { return true; },
         off.address(),
         kExitNoInstrument,
         {"mervasto: Confirmation: DSO not connected normally.\n",
          "mervasto: the series ended early: DSO not connected normally.\n"}},
        {"data folder that is a file",
         [](const fs::path& folder) {
             std::ofstream(folder) << "x";
             return true;
         },
         sim.address(),
         kExitFileError,
         {"mervasto: Failed to save Test Results.: Failed to save Test Results. These 2 line(s) belong in ",
          "They are on the clipboard.\n", "mervasto: Run-time error: ", "Resume340.txt: Not a directory.\n"}},
        {"read-only data folder",
         [](const fs::path& folder) {
             fs::create_directories(folder);
             fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
             return !std::ofstream(folder / "probe").is_open();  // the administrator writes anywhere
         },
         sim.address(),
         kExitFileError,
         {"These 2 line(s) belong in ", "Resume340.txt: Permission denied.\n"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const fs::path folder = dir_ / c.name;
        if (!c.prepare(folder)) continue;
        std::ostringstream err;
        int status = -1;
        {
            MainForm form(folder.string());
            form.state().settings().analysis.IPAdressText = c.address;
            form.show();
            status = RunSeriesUnattended(form, 2, err);
            EXPECT_FALSE(form.isVisible());
        }
        fs::permissions(folder, fs::perms::owner_all);
        EXPECT_EQ(status, c.status) << err.str();
        size_t at = 0;
        for (const auto& part : c.told) {
            at = err.str().find(part, at);
            ASSERT_NE(at, std::string::npos) << part << " in:\n" << err.str();
        }
        if (c.told.empty()) {
            EXPECT_EQ(err.str(), "");
        }
    }
}

// --screenshot: the pictures are written whole or the file is named, and
// the run ends with exit status 1.
TEST_F(MainFormTest, UnattendedScreenshotsNameAPictureThatCannotBeWritten) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const std::filesystem::path pictures = dir_ / "pictures";
    std::filesystem::create_directories(pictures / "main-window.png");  // a folder in the picture's place
    std::ostringstream err;
    MainForm form((dir_ / "data").string());
    form.state().settings().analysis.IPAdressText = sim.address();
    form.show();
    EXPECT_EQ(SaveScreenshotsUnattended(form, pictures.string(), err), kExitFileError);
    EXPECT_EQ(err.str(), "mervasto: " + (pictures / "main-window.png").string() + ": Is a directory.\n");
    for (const char* written : {"histogram-window.png", "wave-window.png"})
        EXPECT_FALSE(QImage(QString::fromStdString((pictures / written).string())).isNull()) << written;
    EXPECT_EQ(form.state().passesDone(), 20);
}

// A fault no handler caught itself ends in the run-time error box; a limit
// the comparator grid refuses is no fault: it stays in its cell, marked, with
// the reason beside the grid.
TEST_F(MainFormTest, FaultsInHandlersEndInTheErrorBox) {
    auto form = open();
    form->show();
    QPushButton faulty("faulty", form.get());
    QObject::connect(&faulty, &QPushButton::clicked,
                     [] { throw RuntimeError(ErrorCode::Overflow, "Overflow: a test fault."); });
    faulty.show();
    QTest::mouseClick(&faulty, Qt::LeftButton);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0], "Run-time error: Overflow: a test fault.");

    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    const size_t linesAfterLoad = resultLines(*form).size();
    find<QPushButton>(*form, "DetailCycles")->click();
    auto* view = find<QTableView>(*form->detailCycles(), "DetailCycleGrid");
    const Grid& g = form->detailCycles()->grid();
    int row = 1;
    while (row < g.rows() && g.text(row, kCycleColLL).empty()) ++row;
    ASSERT_LT(row, g.rows());
    auto typeLimit = [&](const QString& text) {
        const QModelIndex cell = view->model()->index(row, kCycleColLL);
        view->setCurrentIndex(cell);
        view->edit(cell);
        auto* editor = view->findChild<QLineEdit*>();
        ASSERT_NE(editor, nullptr);
        editor->selectAll();
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
        QApplication::processEvents();                                    // the view commits the edit from its queue
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);  // and drops the editor
    };
    typeLimit("3e9");
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_EQ(g.text(row, kCycleColLL), "3e9");
    EXPECT_EQ(form->detailCycles()->warnings()->text().toStdString().rfind("LL cannot be \"3e9\"", 0), 0u);
    EXPECT_EQ(resultLines(*form).size(), linesAfterLoad);

    // A limit the check takes judges again and appends the result line.
    typeLimit("100000");
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_EQ(form->detailCycles()->warnings()->text().toStdString().find("LL cannot be"), std::string::npos);
    EXPECT_EQ(g.text(row, kCycleColLL), "100000");
    EXPECT_EQ(g.text(row, 5), "NG");
    EXPECT_EQ(resultLines(*form).size(), linesAfterLoad + 1);
}

// The comparator dialog opens in the folder of the last comparator file.
TEST_F(MainFormTest, ComparatorDialogOpensWhereTheLastFileWas) {
    auto form = open();
    std::filesystem::create_directories(dir_ / "limits");
    const std::string file = (dir_ / "limits" / "a.txt").string();
    std::ofstream(file, std::ios::binary) << "% none\r\n";
    files = {file, {}};
    find<QPushButton>(*form->detailCycles(), "SelectComparator")->click();
    find<QPushButton>(*form->detailCycles(), "SelectComparator")->click();
    ASSERT_EQ(dialogFolders.size(), 2u);
    EXPECT_EQ(dialogFolders[0], (dir_ / "data" / "Comparator").string());
    EXPECT_EQ(dialogFolders[1], (dir_ / "limits").string());
}

// During a series the controls are live: a sample name confirmed, a channel
// switched off and New Acquisition unticked take effect at the next pass;
// commands that would use the link or replace the record are off meanwhile.
TEST_F(MainFormTest, ControlsAreLiveDuringASeries) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto form = open();
    prepareSeries(*form, sim, 8);
    const char* locked[] = {"WFStartCommand", "WaveSave", "ReadRejectRange", "LimitPoints", "OmitRangeEffect"};
    int pass = 0;
    std::vector<bool> enabledDuringRun;
    Subscription user = form->state().passFinished.subscribe([&] {
        ++pass;
        for (const char* name : locked) enabledDuringRun.push_back(find<QWidget>(*form, name)->isEnabled());
        enabledDuringRun.push_back(form->findChild<QAction*>("InputFromFileAction")->isEnabled());
        enabledDuringRun.push_back(find<QWidget>(*form->detailCycles(), "SelectComparator")->isEnabled());
        if (pass == 2) {
            typeEnter(find<QLineEdit>(*form, "SampleNo"), "Lot7_");
            QTest::mouseClick(find<QCheckBox>(*form, "DispOffCheck1"), Qt::LeftButton);
            typeEnter(find<QLineEdit>(*form, "TotalRepeats"), "20");  // room, not a new log
        }
        if (pass == 4) QTest::mouseClick(find<QCheckBox>(*form, "DaqCheck"), Qt::LeftButton);
    });
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_TRUE(boxes.empty()) << boxes.front();
    EXPECT_EQ(pass, 4);
    for (bool on : enabledDuringRun) EXPECT_FALSE(on);
    for (const char* name : locked) EXPECT_TRUE(find<QWidget>(*form, name)->isEnabled()) << name;
    EXPECT_TRUE(form->findChild<QAction*>("InputFromFileAction")->isEnabled());

    const auto lines = resultLines(*form);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1].find("Lot7_"), std::string::npos);
    EXPECT_NE(lines[2].find("Lot7_1"), std::string::npos) << lines[2];
    EXPECT_NE(lines[3].find("Lot7_1"), std::string::npos) << lines[3];
    const Grid& log = form->state().logGrid();
    EXPECT_EQ(log.nextRow, kLogHeaderRows + 4);
    EXPECT_EQ(log.rows(), 25);
    for (int r = 0; r < 4; ++r) {
        EXPECT_EQ(log.text(kLogHeaderRows + r, 0), std::to_string(r + 1));
        EXPECT_FALSE(log.text(kLogHeaderRows + r, 1).empty());
        EXPECT_EQ(log.text(kLogHeaderRows + r, 5).empty(), r >= 2) << "pass " << r + 1;
    }
    // The controls still show what the user set.
    EXPECT_EQ(find<QLineEdit>(*form, "SampleNo")->text(), "Lot7_");
    EXPECT_TRUE(find<QCheckBox>(*form, "DispOffCheck1")->isChecked());
    EXPECT_FALSE(find<QCheckBox>(*form, "DaqCheck")->isChecked());
}

// Closing the window in the middle of a series stops it after the pass in
// progress, returns the instrument to local, saves the settings and closes.
TEST_F(MainFormTest, ClosingDuringASeriesStopsThenCloses) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto form = open();
    form->show();
    prepareSeries(*form, sim, 10);
    typeEnter(find<QLineEdit>(*form, "SampleNo"), "Closing");
    Subscription closeAtTwo = form->state().passFinished.subscribe([&] {
        if (form->state().passesDone() == 2) form->close();
    });
    find<QPushButton>(*form, "WFStartCommand")->click();
    QApplication::processEvents();
    EXPECT_TRUE(boxes.empty()) << boxes.front();
    EXPECT_FALSE(form->isVisible());
    EXPECT_EQ(form->state().logGrid().nextRow, kLogHeaderRows + 2);
    EXPECT_TRUE(sim.waitForLastCommand("GTL"));
    auto again = open();
    EXPECT_EQ(find<QLineEdit>(*again, "SampleNo")->text(), "Closing");
}

// Failures that used to pass in silence, and grids that keep their rows.
TEST_F(MainFormTest, PictureFailureAndGridResizes) {
    auto form = open();
    form->show();
    find<QLineEdit>(*form, "SampleNo")->setText("no/such/folder");
    find<QPushButton>(*form, "SaveWave")->click();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].rfind("Run-time error: ", 0), 0u) << boxes[0];
    EXPECT_NE(boxes[0].find("no/such/folder"), std::string::npos) << boxes[0];
    find<QLineEdit>(*form, "SampleNo")->setText("Good");
    find<QPushButton>(*form, "SaveWave")->click();
    EXPECT_EQ(boxes.size(), 1u);
    EXPECT_TRUE(FileExists((dir_ / "data" / "Outputdata" / "Good1_0_Main.jpg").string()));

    // "Save" of the waves into a Data "folder" that is a file: the box, and
    // not "Stored the Data to the File.".
    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    std::filesystem::remove_all(dir_ / "data" / "Data");
    std::ofstream(dir_ / "data" / "Data") << "x";
    find<QCheckBox>(*form, "SaveWavesCheck")->setChecked(true);
    find<QPushButton>(*form, "WaveSave")->click();
    ASSERT_EQ(boxes.size(), 2u);
    EXPECT_EQ(boxes[1].rfind("Run-time error: ", 0), 0u) << boxes[1];
    EXPECT_NE(form->ui().statusText(1), "Stored the Data to the File.");

    const Grid& log = form->state().logGrid();
    typeEnter(find<QLineEdit>(*form, "TotalRepeats"), "50");
    EXPECT_EQ(log.rows(), 55);  // the header, 50 passes and the row a pass appends beyond them

    const Grid& detail = form->state().detailGrid();
    ASSERT_FALSE(detail.text(kDetailHeaderRows + 10, 1).empty());
    typeEnter(find<QLineEdit>(*form, "MaxCycles"), "3");
    EXPECT_GT(detail.rows(), kDetailHeaderRows + 10);
    EXPECT_FALSE(detail.text(kDetailHeaderRows + 10, 1).empty());
}

// Captions as the user's manual names them, a frame that covers nothing, and
// the column widths of the results layer.
TEST_F(MainFormTest, LayoutAndCaptions) {
    auto form = open();
    form->show();
    QStringList captions;
    for (auto* l : form->findChildren<QLabel*>()) captions << l->text();
    for (const char* c : {"Hysteresis", "Level", "Margin", "Level Method", "Edge Timing", "Time-out (s)"})
        EXPECT_TRUE(captions.contains(c)) << c;
    // P-P and Duty change no result: their tips say so, and they stay live.
    for (const char* name : {"PPCheck0", "DutyCheck3"}) {
        auto* box = find<QCheckBox>(*form, name);
        EXPECT_TRUE(box->isEnabled()) << name;
        EXPECT_TRUE(box->toolTip().contains("changes no result")) << name;
    }
    find<QPushButton>(*form, "TCPIPAddressSet")->click();
    QApplication::processEvents();
    auto* frame = find<QGroupBox>(*form, "AddressFrame");
    ASSERT_TRUE(frame->isVisible());
    const QRect frameRect(frame->mapTo(form.get(), QPoint()), frame->size());
    for (auto* w : form->findChildren<QCheckBox*>()) {
        if (!w->isVisible()) continue;
        const QRect r(w->mapTo(form.get(), QPoint()), w->size());
        EXPECT_FALSE(frameRect.intersects(r)) << w->objectName().toStdString();
    }
    // A text the Time-out field refuses stays in its box, marked; the field
    // keeps its last good value until the text is corrected.
    auto* timeout = find<QLineEdit>(*form, "TimeoutSeconds");
    EXPECT_EQ(timeout->text(), "10");
    timeout->setText("abc");
    form->refreshViews();
    EXPECT_EQ(timeout->text(), "abc");
    EXPECT_TRUE(timeout->property("refused").toBool());
    EXPECT_EQ(form->state().settings().analysis.TimeoutSeconds, "10");
    timeout->setText("2.5");
    EXPECT_FALSE(timeout->property("refused").toBool());
    EXPECT_EQ(form->state().settings().analysis.TimeoutSeconds, "2.5");

    auto* logView = find<QTableView>(*form, "LogGrid");
    EXPECT_EQ(logView->columnWidth(0), form->state().logGrid().colWidth[0]);
    EXPECT_EQ(logView->columnWidth(1), form->state().logGrid().colWidth[1]);
}

// Copy puts the selected cells, or the current one, on the clipboard; a
// cancelled colour dialog changes nothing, a chosen colour is kept.
TEST_F(MainFormTest, CopyAndColourChoice) {
    auto form = open();
    form->show();
    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    auto* tabs = find<QTabWidget>(*form, "SSTab1");
    auto* detail = find<QTableView>(*form, "DetailDataGrid");
    tabs->setCurrentWidget(detail);
    const Grid& g = form->state().detailGrid();
    detail->setCurrentIndex(detail->model()->index(kDetailHeaderRows, 1));
    find<QPushButton>(*form, "ResultCopy")->click();
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), g.text(kDetailHeaderRows, 1));
    detail->selectionModel()->select(
        QItemSelection(detail->model()->index(kDetailHeaderRows, 1), detail->model()->index(kDetailHeaderRows + 1, 2)),
        QItemSelectionModel::ClearAndSelect);
    find<QPushButton>(*form, "ResultCopy")->click();
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(),
              GridClipboardText(g, kDetailHeaderRows, 1, kDetailHeaderRows + 1, 2));
    ASSERT_EQ(boxes.size(), 2u);

    const int32_t before = form->state().settings().channels[1].BackColor;
    form->ui().colorHook = [](uint32_t) -> std::optional<uint32_t> { return std::nullopt; };
    find<QPushButton>(*form, "ColorSet1")->click();
    EXPECT_EQ(form->state().settings().channels[1].BackColor, before);
    form->ui().colorHook = [](uint32_t) -> std::optional<uint32_t> { return 0x123456; };
    find<QPushButton>(*form, "ColorSet1")->click();
    EXPECT_EQ(form->state().settings().channels[1].BackColor, 0x123456);
    EXPECT_NE(find<QGroupBox>(*form, "EachChTypeFrame1")->styleSheet().indexOf("#563412"), -1);
}

// A click on a cell of the Detail Data tab takes both wave windows to that
// cycle, with the cursors on its edges: the widest pulse reads its width.
TEST_F(MainFormTest, ADetailDataCellTakesTheWaveWindowsToItsCycle) {
    auto form = open();
    form->show();
    auto* type = find<QComboBox>(*form, "ChInputSignal0");
    type->setCurrentIndex(type->findText("P.W."));
    files = {writeExample("duty-sweep")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    const auto& cycles = form->state().results().cycles.channel[0];
    ASSERT_GT(cycles.size(), 2u);
    const auto widest = std::max_element(cycles.begin(), cycles.end(),
                                         [](const auto& a, const auto& b) { return a.PulseWidth < b.PulseWidth; });
    const int index = static_cast<int>(widest - cycles.begin());
    auto* detail = find<QTableView>(*form, "DetailDataGrid");
    find<QTabWidget>(*form, "SSTab1")->setCurrentWidget(detail);
    const QModelIndex cell = detail->model()->index(kDetailHeaderRows + index, 1);
    detail->scrollTo(cell);
    QTest::mouseClick(detail->viewport(), Qt::LeftButton, {}, detail->visualRect(cell).center());
    const int32_t n = form->state().record().WaveLength;
    for (WaveWindow* w : {form->waveAll(), form->waveEach()}) {
        EXPECT_EQ(w->cursors()[0], widest->FirstEdge);
        EXPECT_EQ(w->cursors()[1], widest->LastEdge);
        EXPECT_EQ(w->cursors()[1] - w->cursors()[0], widest->PulseWidth);
        const TimeWindow shown = w->timeWindow();
        EXPECT_GT(shown.zoom, 1);
        EXPECT_LE(shown.first, widest->FirstEdge);
        EXPECT_GE(shown.first + VisibleSamples(n, shown.zoom), widest->LastEdge);
    }
}

// The user ticks the encoder on its tab, picks the channels, reads a file
// and sees the encoder's results; a pick the analysis cannot use shows why.
TEST_F(MainFormTest, EncoderTabSettingsBindAndResultsShow) {
    auto form = open();
    const std::string pulses = writeExample("pulses");
    files = {pulses, pulses};
    auto* tabs = find<QTabWidget>(*form, "SSTab1");
    auto* grid = find<QTableView>(*form, "EncoderGrid");
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(tabs->tabText(tabOf(tabs, grid)), "Encoder");
    EXPECT_EQ(cell(grid, 1, 1), "Encoder off");

    find<QCheckBox>(*form, "Encoder")->setChecked(true);
    QCoreApplication::processEvents();
    EXPECT_EQ(cell(grid, 1, 1), "");  // on, not analysed yet
    find<QComboBox>(*form, "EncoderB")->setCurrentText("3");
    auto* width = find<QLineEdit>(*form, "MinStateWidth");
    width->clear();
    QTest::keyClicks(width, "2e-6");
    EXPECT_TRUE(form->state().settings().analysis.Encoder);
    EXPECT_EQ(form->state().settings().analysis.EncoderB, "3");
    EXPECT_EQ(form->state().settings().analysis.MinStateWidth, "2e-6");

    form->findChild<QAction*>("InputFromFileAction")->trigger();
    ASSERT_TRUE(form->state().results().encoder.analysed) << form->state().results().encoder.note;
    EXPECT_EQ(cell(grid, 0, 1), "Min");
    EXPECT_EQ(cell(grid, 9, 0), "Position");
    EXPECT_EQ(cell(grid, 9, 1).toStdString(), std::to_string(form->state().results().encoder.position));
    EXPECT_FALSE(cell(grid, 3, 1).isEmpty());  // state widths

    find<QComboBox>(*form, "EncoderZ")->setCurrentText("3");
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    EXPECT_EQ(cell(grid, 1, 1).toStdString(), kEncoderSameChannel);
}

// A dropped file, in the program's own layout or another program's, goes the
// way of "Input from File": loaded, analysed, shown, one result line; no file
// dialog is asked. Files dropped together are the channels of one record.
// While a run is in progress the window refuses the drag.
TEST_F(MainFormTest, ADroppedFileLoadsAsInputFromFileDoes) {
    auto form = open();
    auto* results = find<QTableView>(*form, "ResultGrid1")->model();
    auto* length = find<QLineEdit>(*form, "TotalWaveDatas");

    const std::string own = writeExample("pulses");
    ASSERT_TRUE(dropFiles(*form, {own}));
    EXPECT_EQ(results->data(results->index(2, 7)).toString(), "49");
    EXPECT_EQ(length->text(), "Wave Length=10000");
    EXPECT_EQ(form->ui().statusText(1).rfind("Saved Test Results to the ", 0), 0u) << form->ui().statusText(1);
    EXPECT_EQ(resultLines(*form).size(), 1u);

    // Another program's export, one file per channel: pulses, 400 rows.
    std::vector<std::string> channels;
    for (int ch = 1; ch <= 2; ++ch) {
        channels.push_back((dir_ / ("scope-" + std::to_string(ch) + ".csv")).string());
        std::ofstream f(channels.back(), std::ios::binary);
        f << "Time(s),CH" << ch << "(V)\r\n";
        for (int k = 0; k < 400; ++k)
            f << k * 1e-6 << (ch == 1 ? (k % 40 < 10 ? ",2.5" : ",0") : (k % 20 < 5 ? ",1" : ",0")) << "\r\n";
    }
    ASSERT_TRUE(dropFiles(*form, channels));
    EXPECT_EQ(form->state().setup().Model, "IMPORT-2");
    EXPECT_EQ(length->text(), "Wave Length=400");
    EXPECT_EQ(results->data(results->index(2, 7)).toString(), "8");
    EXPECT_EQ(results->data(results->index(4, 7)).toString(), "18");  // Ch2, twice as fast
    EXPECT_EQ(resultLines(*form).size(), 2u);
    EXPECT_EQ(form->state().settings().analysis.SampleIndex, "2");

    // Files of different lengths are no capture: refused, naming them.
    ASSERT_TRUE(dropFiles(*form, {channels[0], own}));
    EXPECT_NE(form->ui().statusText(2).find(channels[0]), std::string::npos) << form->ui().statusText(2);
    EXPECT_NE(form->ui().statusText(2).find(own), std::string::npos) << form->ui().statusText(2);
    EXPECT_EQ(resultLines(*form).size(), 2u);

    // Locked while a run holds the input controls: nothing loads.
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    form->state().settings().analysis.IPAdressText = sim.address();
    bool takenDuringRun = true;
    const Subscription duringRun = form->state().runStarted.subscribe([&] {
        takenDuringRun = dropFiles(*form, {own});
        form->state().Stop_Click();
    });
    ASSERT_TRUE(form->state().WFStartCommand_Click(form->ui()).ok());
    EXPECT_FALSE(takenDuringRun);
    EXPECT_NE(form->state().setup().Model, "IMPORT-2");  // the instrument's record, not the file
    EXPECT_EQ(resultLines(*form).size(), 3u);            // the pass's line, none for the file

    // A drag with no local file in it is not taken either.
    QMimeData text;
    text.setText("not a file");
    QDragEnterEvent enter(QPoint(1, 1), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(form.get(), &enter);
    EXPECT_FALSE(enter.isAccepted());

    EXPECT_TRUE(dialogFolders.empty());
    EXPECT_TRUE(boxes.empty()) << boxes.front();
}

// A series tells in status panel 3 and its bar where it is and how it
// ended; the "Yield" tab shows the run's yield and the chart of its pass
// means, a click on a point that pass's results; "Copy as Numbers" puts the
// result grid on the clipboard as exact numbers.
TEST_F(MainFormTest, SeriesProgressYieldTabAndCopyAsNumbers) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto form = open();
    form->show();
    prepareSeries(*form, sim, 3);
    std::ofstream(dir_ / "ng.txt") << "1,100000,200000\n";  // more cycles than any pass has
    ASSERT_TRUE(form->state().LoadComparator(form->ui(), (dir_ / "ng.txt").string()).ok());
    auto* bar = find<QProgressBar>(*form, "SeriesProgress");
    std::vector<std::string> during;
    Subscription watch = form->state().passFinished.subscribe([&] {
        during.push_back(form->ui().statusText(3) + (bar->isVisible() ? " bar " + std::to_string(bar->value()) : ""));
    });
    find<QPushButton>(*form, "WFStartCommand")->click();
    EXPECT_EQ(during, (std::vector<std::string>{"Pass 1 / 3 bar 333", "Pass 2 / 3 bar 666", "Pass 3 / 3 bar 1000"}));
    EXPECT_EQ(form->ui().statusText(3), "Completed 3 passes: 0 Go, 3 NG.");
    EXPECT_FALSE(bar->isVisible());
    EXPECT_EQ(form->ui().statusText(1), "Saved Test Results to the " + form->state().resultFileName() + ".");

    auto* tabs = find<QTabWidget>(*form, "SSTab1");
    auto* yield = form->findChild<YieldTab*>();
    ASSERT_NE(yield, nullptr);
    tabs->setCurrentIndex(tabOf(tabs, yield));
    EXPECT_EQ(find<QLabel>(*form, "RunYield")->text(), "Run 1: 3 passes, 0 Go, 3 NG; yield 0.00 %");
    ASSERT_EQ(yield->chart().pass.size(), 3u);
    EXPECT_EQ(yield->chart().ng, (std::vector<uint8_t>{0, 0, 0}));  // OfType has no limits; PulseWidth has
    find<QComboBox>(*form, "YieldKind")->setCurrentIndex(static_cast<int>(Measure::PulseWidth));
    EXPECT_EQ(yield->chart().ng, (std::vector<uint8_t>{1, 1, 1}));
    auto* chart = find<QWidget>(*form, "ControlChart");
    const QRectF plot = PlotRect(chart->rect(), true);
    QTest::mouseClick(chart, Qt::LeftButton, {}, QPoint(static_cast<int>(plot.center().x()), 50));
    const Grid& pass = yield->passGrid();
    EXPECT_EQ(pass.text(0, 0), "Pass 2");
    ASSERT_EQ(pass.rows(), 1 + 4 * kKinds);
    EXPECT_EQ(pass.text(1, 2), "PulseWidth");
    EXPECT_EQ(pass.text(1, 8), "NG");

    typeEnter(find<QLineEdit>(*form, "StationName"), "line-3");
    EXPECT_EQ(form->state().settings().analysis.StationName, "line-3");
    find<QPushButton>(*form, "ResultCopyNumbers")->click();
    EXPECT_EQ(QApplication::clipboard()->text().section("\r\n", 0, 0), "Channel\tCh1\tCh2\tCh3\tCh4");
}

}  // namespace

namespace {

// At each size every channel's result rows are in view, no two controls
// under one parent overlap, and no button or caption is cut short: what does
// not fit scrolls.
class MainFormSizeTest : public MainFormTest, public ::testing::WithParamInterface<QSize> {};

TEST_P(MainFormSizeTest, NothingOverlapsOrIsCut) {
    auto form = open();
    files = {writeExample("pulses")};
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    form->show();
    form->resize(GetParam());
    QApplication::processEvents();
    ASSERT_EQ(form->size(), GetParam());

    auto* result = find<QTableView>(*form, "ResultGrid1");
    const int lastRow = result->model()->rowCount() - 1;
    EXPECT_TRUE(result->viewport()->rect().contains(result->visualRect(result->model()->index(lastRow, 0))));
    auto isControl = [](const QWidget* w) {
        return qobject_cast<const QAbstractButton*>(w) || qobject_cast<const QLabel*>(w) ||
               qobject_cast<const QLineEdit*>(w) || qobject_cast<const QComboBox*>(w) ||
               qobject_cast<const QGroupBox*>(w) || qobject_cast<const QTabWidget*>(w) ||
               qobject_cast<const QAbstractScrollArea*>(w);
    };
    std::map<QWidget*, std::vector<QWidget*>> siblings;
    for (auto* w : form->findChildren<QWidget*>()) {
        if (!w->isVisible() || !isControl(w) || w->isWindow()) continue;
        siblings[w->parentWidget()].push_back(w);
        const auto name = w->objectName().toStdString() + " " + w->metaObject()->className();
        // A long message in the status bar is cut; its tip keeps it whole.
        if (auto* l = qobject_cast<QLabel*>(w); l && l->parentWidget() == form->statusBar()) {
            EXPECT_EQ(l->toolTip(), l->text());
        } else if (qobject_cast<QAbstractButton*>(w) || qobject_cast<QLabel*>(w)) {
            EXPECT_GE(w->width(), w->sizeHint().width()) << name;
        }
    }
    for (const auto& [parent, ws] : siblings)
        for (size_t i = 0; i < ws.size(); ++i)
            for (size_t j = i + 1; j < ws.size(); ++j) {
                EXPECT_FALSE(ws[i]->geometry().intersects(ws[j]->geometry()))
                    << ws[i]->objectName().toStdString() << " " << ws[i]->metaObject()->className() << " / "
                    << ws[j]->objectName().toStdString() << " " << ws[j]->metaObject()->className();
            }
    // At the default size the settings need no scrolling either.
    if (GetParam() == QSize(1100, 760)) {
        auto* scroll = find<QAbstractScrollArea>(*form, "SettingsScroll");
        EXPECT_FALSE(scroll->verticalScrollBar()->isVisible());
        EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible());
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, MainFormSizeTest,
                         ::testing::Values(QSize(1100, 760), QSize(1400, 900), QSize(960, 700), QSize(800, 600)),
                         [](const auto& size) {
                             return std::to_string(size.param.width()) + "x" + std::to_string(size.param.height());
                         });

}  // namespace

// Help: the user guide wherever an installation puts the documents (beside
// the program on Windows, the package's documentation on Debian, else the
// sources of this build), opened with F1 from any window; About; Quit.
TEST_F(MainFormTest, HelpAboutAndQuit) {
    const std::filesystem::path root = dir_ / "install";
    const std::pair<const char*, std::filesystem::path> places[] = {
        {"bin/docs", root / "bin/docs"},
        {"share/doc/mervasto/docs", root / "share/doc/mervasto/docs"},
        {"", std::filesystem::path(MERVASTO_SOURCE_DIR) / "docs"},
    };
    for (const auto& [where, expected] : places) {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root / "bin");
        if (*where) {
            std::filesystem::create_directories(root / where);
            std::ofstream(root / where / "user-guide.md") << "# User guide\n";
        }
        const QString found = FindHelpFolder(HelpFolderCandidates(QString::fromStdString((root / "bin").string())));
        EXPECT_EQ(std::filesystem::path(found.toStdString()), expected) << where;
    }
    HelpWindow missing({QString::fromStdString((root / "nowhere").string())});
    EXPECT_TRUE(find<QTextBrowser>(missing, "HelpText")->toPlainText().startsWith("The user guide was not found."));

    auto form = open();
    form->show();
    form->waveAll()->show();
    QApplication::setActiveWindow(form->waveAll());
    QTest::keyClick(form->waveAll(), Qt::Key_F1);
    auto* help = form->findChild<HelpWindow*>("HelpWindow");
    ASSERT_NE(help, nullptr);
    EXPECT_TRUE(help->isVisible());
    auto* text = find<QTextBrowser>(*help, "HelpText");
    EXPECT_TRUE(text->toPlainText().contains("Limits and Go/NG"));
    auto* pages = find<QListWidget>(*help, "HelpPages");
    EXPECT_EQ(pages->item(0)->text(), "User guide");
    const auto formats = pages->findItems("File formats", Qt::MatchExactly);
    ASSERT_EQ(formats.size(), 1);
    pages->setCurrentItem(formats.front());
    EXPECT_TRUE(text->source().toLocalFile().endsWith("file-formats.md"));
    EXPECT_TRUE(find<QPushButton>(*help, "HelpBack")->isEnabled());

    form->findChild<QAction*>("AboutAction")->trigger();
    auto* about = form->findChild<QMessageBox*>("AboutBox");
    ASSERT_NE(about, nullptr);
    for (const QString& part : {QStringLiteral("(Ver3.40)"), QString::fromStdString(std::string(kPackageVersion)),
                                QStringLiteral("Licence: MIT"), QStringLiteral("Qt ") + qVersion()})
        EXPECT_TRUE(about->text().contains(part)) << part.toStdString();
    about->close();

    QApplication::setActiveWindow(form.get());
    QTest::keyClick(form.get(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_FALSE(form->isVisible());
    EXPECT_TRUE(form->sessionEnd().ok());
    EXPECT_TRUE(std::filesystem::exists(dir_ / "data" / "Parameter" / "Resume340.txt"));
}
