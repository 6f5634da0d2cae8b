#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/MainForm.h"
#include "sim/DsoSimulator.h"

#include <QAbstractItemModel>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QTableView>
#include <QUrl>

#include <gtest/gtest.h>

#include "support/ExampleFiles.h"
#include "support/SeriesFaults.h"
#include "support/TestFolder.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace mervasto;

namespace {

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

int resultLines(const std::filesystem::path& dataFolder) {
    std::ifstream f(dataFolder / "OutputData" / "ResultData.csv", std::ios::binary);
    int n = 0;
    for (std::string l; std::getline(f, l);) n += l.rfind("Sample", 0) == 0 && l.rfind("Sample Name", 0) != 0;
    return n;
}

// A dropped file, in the program's own layout or another program's, goes the
// way of "Input from File": loaded, analysed, shown, one result line; no file
// dialog is asked. While a run is in progress the window refuses the drag.
TEST(FileDrop, ADroppedFileLoadsAsInputFromFileDoes) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-drop-");
    const auto data = dir / "data";
    MainForm form(data.string());
    std::vector<std::string> boxes;
    int dialogs = 0;
    form.ui().answerHook = [&](const std::string& text, MsgButtons, const std::string& title) {
        boxes.push_back(title + ": " + text);
        return MsgAnswer::Ok;
    };
    form.ui().fileHook = [&](const std::string&, const std::string&, const std::string&) -> std::optional<std::string> {
        ++dialogs;
        return std::nullopt;
    };
    auto* results = form.findChild<QTableView*>("ResultGrid1")->model();
    auto* length = form.findChild<QLineEdit*>("TotalWaveDatas");

    const std::string own = mervasto::test::WriteExample(dir, "pulses");
    ASSERT_TRUE(dropFiles(form, {own}));
    EXPECT_EQ(results->data(results->index(2, 7)).toString(), "49");
    EXPECT_EQ(length->text(), "Wave Length=10000");
    EXPECT_EQ(form.ui().statusText(1).rfind("Saved Test Results to the ", 0), 0u) << form.ui().statusText(1);
    EXPECT_EQ(resultLines(data), 1);

    // Another program's export: two columns of pulses, 400 rows.
    const auto generic = dir / "scope.csv";
    {
        std::ofstream f(generic, std::ios::binary);
        f << "Time(s),CH1(V),CH2(V)\r\n";
        for (int k = 0; k < 400; ++k)
            f << k * 1e-6 << (k % 40 < 10 ? ",2.5" : ",0") << (k % 20 < 5 ? ",1" : ",0") << "\r\n";
    }
    ASSERT_TRUE(dropFiles(form, {generic.string(), own}));  // the first file is taken
    EXPECT_EQ(form.state().setup().Model, "IMPORT-2");
    EXPECT_EQ(length->text(), "Wave Length=400");
    EXPECT_EQ(results->data(results->index(2, 7)).toString(), "8");
    EXPECT_EQ(resultLines(data), 2);
    EXPECT_EQ(form.state().settings().analysis.SampleIndex, "2");

    // Locked while a run holds the input controls: nothing loads.
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    form.state().settings().analysis.IPAdressText = sim.address();
    bool takenDuringRun = true;
    const Subscription duringRun = form.state().runStarted.subscribe([&] {
        takenDuringRun = dropFiles(form, {own});
        form.state().Stop_Click();
    });
    form.state().WFStartCommand_Click(form.ui());
    EXPECT_FALSE(takenDuringRun);
    EXPECT_NE(form.state().setup().Model, "IMPORT-2");  // the instrument's record, not the file
    EXPECT_EQ(resultLines(data), 3);                     // the pass's line, none for the file

    // A drag with no local file in it is not taken either.
    QMimeData text;
    text.setText("not a file");
    QDragEnterEvent enter(QPoint(1, 1), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&form, &enter);
    EXPECT_FALSE(enter.isAccepted());

    EXPECT_EQ(dialogs, 0);
    EXPECT_TRUE(boxes.empty()) << boxes.front();
}

}  // namespace
