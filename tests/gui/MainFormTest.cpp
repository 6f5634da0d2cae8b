#include "gui/DetailCyclesForm.h"
#include "gui/GuiUi.h"
#include "gui/MainForm.h"
#include "gui/WaveWindow.h"
#include "common/TextFile.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

#include <QAbstractItemModel>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

#include "support/QtTestApp.h"

#include <filesystem>
#include <fstream>

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(QApplication);

class MainFormTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = mervasto::test::FreshTestFolder("mervasto-gui-"); }
    std::unique_ptr<MainForm> open() {
        auto form = std::make_unique<MainForm>((dir_ / "data").string());
        form->ui().answerHook = [this](const std::string& text, MsgButtons, const std::string& title) {
            boxes.push_back(title + ": " + text);
            return MsgAnswer::Ok;
        };
        form->ui().fileHook = [this](const std::string&) -> std::optional<std::string> {
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
    std::string writeExample(const char* name) {
        DsoSetup setup;
        WaveRecord record;
        MakeExampleRecord(name, setup, record);
        std::string file = (dir_ / (std::string(name) + ".csv")).string();
        EXPECT_TRUE(SaveWaveCsv(file, setup, record));
        return file;
    }
    static void typeEnter(QLineEdit* e, const QString& text) {
        e->clear();
        QTest::keyClicks(e, text);
        QTest::keyClick(e, Qt::Key_Return);
    }

    std::filesystem::path dir_;
    std::vector<std::string> boxes;
    std::vector<std::string> files;
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

TEST_F(MainFormTest, EnterChecksRewriteTheBoxes) {
    auto form = open();
    form->show();
    typeEnter(find<QLineEdit>(*form, "MaxCycles"), "600000");
    EXPECT_EQ(find<QLineEdit>(*form, "MaxCycles")->text(), "500000");
    EXPECT_EQ(find<QTableView>(*form, "DetailDataGrid")->model()->rowCount(), 500005);
    typeEnter(find<QLineEdit>(*form, "Histerisis"), "abc");
    EXPECT_EQ(find<QLineEdit>(*form, "Histerisis")->text(), "abc");
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
    auto log = sim.commandLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front(), "*IDN?");
    EXPECT_EQ(log.back(), "GTL");
}

// The instrument fails in the third pass of a series: one box says why, the
// two passes already logged stay, the window is usable again, and the next
// press connects to the instrument once it is healthy.
TEST_F(MainFormTest, InstrumentFailingDuringASeries) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto form = open();
    form->state().link->setReplyTimeoutMs(3000);  // roomy: sanitizer builds on busy machines are slow
    find<QLineEdit>(*form, "IPAdressText")->setText(QString::fromStdString(sim.address()));
    find<QCheckBox>(*form, "DaqCheck")->setChecked(true);
    find<QLineEdit>(*form, "TotalRepeats")->setText("5");
    int64_t written = 0;
    for (const auto& c : test::kSeriesFaults) {
        boxes.clear();
        find<QCheckBox>(*form, "RepeatCheck")->setChecked(true);
        sim.setFaultAfter(c.fault, 8);  // four channels a pass: the third pass fails
        find<QPushButton>(*form, "WFStartCommand")->click();
        ASSERT_EQ(boxes.size(), 1u) << SimFaultName(c.fault);
        EXPECT_NE(boxes[0].find(c.message), std::string::npos) << boxes[0];
        EXPECT_EQ(form->state().LogGrid.nextRow, kLogHeaderRows + 2) << SimFaultName(c.fault);
        EXPECT_EQ(form->state().resultLinesWritten, written + 2) << SimFaultName(c.fault);
        EXPECT_TRUE(find<QPushButton>(*form, "WFStartCommand")->isEnabled());

        sim.setFault(SimFault::None);
        find<QCheckBox>(*form, "RepeatCheck")->setChecked(false);
        find<QPushButton>(*form, "WFStartCommand")->click();
        EXPECT_EQ(boxes.size(), 1u) << SimFaultName(c.fault);
        EXPECT_EQ(form->ui().statusText(1), "Completed data transffering.");
        written += 3;
        EXPECT_EQ(form->state().resultLinesWritten, written) << SimFaultName(c.fault);
    }
}

}  // namespace
