#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/MainForm.h"

#include <QAbstractItemModel>
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QLineEdit>
#include <QTabWidget>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/TestFolder.h"

using namespace mervasto;

// The application object comes from the other test file of this program.
namespace {

QString cell(QTableView* v, int row, int col) { return v->model()->index(row, col).data().toString(); }

// The user ticks the encoder on its tab, picks the channels, reads a file
// and sees the encoder's results; a pick the analysis cannot use shows why.
TEST(EncoderTab, SettingsBindAndResultsShow) {
    const auto dir = test::FreshTestFolder("mervasto-gui-enc-");
    auto form = std::make_unique<MainForm>((dir / "data").string());
    std::vector<std::string> files = {test::WriteExample(dir, "pulses"), test::WriteExample(dir, "pulses")};
    form->ui().answerHook = [](const std::string&, MsgButtons, const std::string&) { return MsgAnswer::Ok; };
    form->ui().fileHook = [&files](const std::string&, const std::string&,
                                   const std::string&) -> std::optional<std::string> {
        if (files.empty()) return std::nullopt;
        auto f = files.front();
        files.erase(files.begin());
        return f;
    };
    auto* tabs = form->findChild<QTabWidget*>("SSTab1");
    ASSERT_NE(tabs, nullptr);
    EXPECT_EQ(tabs->tabText(tabs->count() - 1), "Encoder");
    auto* grid = form->findChild<QTableView*>("EncoderGrid");
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(cell(grid, 1, 1), "Encoder off");

    form->findChild<QCheckBox*>("Encoder")->setChecked(true);
    QCoreApplication::processEvents();
    EXPECT_EQ(cell(grid, 1, 1), "");  // on, not analysed yet
    form->findChild<QComboBox*>("EncoderB")->setCurrentText("3");
    auto* width = form->findChild<QLineEdit*>("MinStateWidth");
    width->clear();
    QTest::keyClicks(width, "2e-6");
    EXPECT_TRUE(form->state().settings().analysis.Encoder);
    EXPECT_EQ(form->state().settings().analysis.EncoderB, "3");
    EXPECT_EQ(form->state().settings().analysis.MinStateWidth, "2e-6");

    form->findChild<QAction*>("InputFromFileAction")->trigger();
    ASSERT_TRUE(form->state().results().encoder.analysed) << form->state().results().encoder.note;
    EXPECT_EQ(cell(grid, 0, 1), "Min");
    EXPECT_EQ(cell(grid, 8, 0), "Position");
    EXPECT_EQ(cell(grid, 8, 1).toStdString(), std::to_string(form->state().results().encoder.position));
    EXPECT_FALSE(cell(grid, 2, 1).isEmpty());  // state widths

    form->findChild<QComboBox*>("EncoderZ")->setCurrentText("3");
    form->findChild<QAction*>("InputFromFileAction")->trigger();
    EXPECT_EQ(cell(grid, 1, 1).toStdString(), kEncoderSameChannel);
}

}  // namespace
