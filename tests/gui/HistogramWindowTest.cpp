#include <gtest/gtest.h>

#include <QComboBox>
#include <QLabel>
#include <QSpinBox>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "gui/HistogramWindow.h"
#include "support/ExampleFiles.h"
#include "support/TestFolder.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

// The application object comes from MainFormTest.cpp: one per test program.

using namespace mervasto;

namespace {

// duty-sweep.csv: Ch1 measures pulse widths ("P.W."), Ch2 periods.
class HistogramWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-histogram-");
        state.FormLoad((dir_ / "data").string());
        const std::string file = test::WriteExample(dir_, "duty-sweep");
        state.settings().channels[0].ChInputSignal = 4;
        state.settings().channels[1].ChInputSignal = 1;
        ui.files = {file};
        ASSERT_TRUE(state.InputFromFile_Click(ui));
        window = std::make_unique<HistogramWindow>(state);
        window->show();
        window->refresh();
    }

    std::filesystem::path dir_;
    RunState state;
    ScriptedUi ui;
    std::unique_ptr<HistogramWindow> window;
};

TEST_F(HistogramWindowTest, BarsHoldEveryCycleAndTheWidestPulseIsInTheLastBar) {
    const auto& cycles = state.results().cycles.channel[0];
    const Histogram& h = window->histogram();
    EXPECT_EQ(h.total, static_cast<int32_t>(cycles.size()));
    EXPECT_EQ(std::accumulate(h.counts.begin(), h.counts.end(), 0), h.total);
    EXPECT_TRUE(h.chosen);
    auto* note = window->findChild<QLabel*>("BinNote");
    EXPECT_EQ(note->text(), QStringLiteral("%1 bins, chosen from the data").arg(h.counts.size()));

    const auto widest = std::max_element(cycles.begin(), cycles.end(),
                                         [](const auto& a, const auto& b) { return a.PulseWidth < b.PulseWidth; });
    const int32_t bin = HistogramBinOf(h, widest->PulseWidth * state.record().SampleSec);
    EXPECT_EQ(bin, static_cast<int32_t>(h.counts.size()) - 1);
    EXPECT_GT(h.counts.back(), 0);

    // The user asks for 5 bins.
    window->findChild<QSpinBox*>("HistogramBins")->setValue(5);
    EXPECT_EQ(window->histogram().counts.size(), 5u);
    EXPECT_EQ(note->text(), "5 bins");

    // A steady period: one or two neighbouring bars hold every cycle.
    window->findChild<QComboBox*>("PlotChannel")->setCurrentIndex(1);
    window->findChild<QSpinBox*>("HistogramBins")->setValue(0);
    const Histogram& steady = window->histogram();
    EXPECT_EQ(steady.total, static_cast<int32_t>(state.results().cycles.channel[1].size()));
    EXPECT_LE(steady.counts.size(), 3u);
}

TEST_F(HistogramWindowTest, SavesBothPlotsAndTheirDataIntoTheOutputFolder) {
    std::vector<std::string> names;
    ASSERT_TRUE(window->savePlots(names).ok());
    ASSERT_EQ(names.size(), 4u);
    const std::string sample = state.sampleName();
    const char* suffixes[] = {"_0_Ch1_Histogram.png", "_0_Ch1_Histogram.csv", "_0_Ch1_Trend.png", "_0_Ch1_Trend.csv"};
    for (size_t i = 0; i < names.size(); ++i) {
        const std::filesystem::path p(names[i]);
        EXPECT_EQ(p.filename().string(), sample + suffixes[i]);
        EXPECT_EQ(p.parent_path().filename().string(), "Outputdata");
        EXPECT_GT(std::filesystem::file_size(p), 40u) << names[i];
    }
    std::ifstream trend(names[3]);
    std::string head;
    std::getline(trend, head);
    EXPECT_EQ(head, "Cycle,Time (s),Value (s)\r");
    EXPECT_EQ(QImage(QString::fromStdString(names[0])).width(), 900);

    // The next save gets names of its own.
    std::vector<std::string> next;
    ASSERT_TRUE(window->savePlots(next).ok());
    EXPECT_NE(next[0], names[0]);

    // A folder that cannot be written is reported, naming the file.
    std::filesystem::remove_all(std::filesystem::path(names[0]).parent_path());
    std::filesystem::remove_all(dir_ / "data" / "OutputData");
    const Outcome failed = window->savePlots(next);
    EXPECT_FALSE(failed.ok());
    EXPECT_NE(failed.text().find("Histogram.png"), std::string::npos) << failed.text();
}

}  // namespace
