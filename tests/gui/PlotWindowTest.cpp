#include <gtest/gtest.h>

#include <QComboBox>
#include <QCoreApplication>
#include <QMouseEvent>
#include <QLabel>
#include <QSpinBox>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "gui/PlotWindow.h"
#include "gui/WaveWindow.h"
#include "results/SiFormat.h"
#include "sim/DsoSimulator.h"
#include "support/SeriesFaults.h"
#include "support/ExampleFiles.h"
#include "support/TestFolder.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

// The application object comes from MainFormTest.cpp: one per test program.

using namespace mervasto;

namespace {

// duty-sweep.csv: Ch1 measures pulse widths ("P.W."), Ch2 periods.
class PlotWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-plots-");
        state.FormLoad((dir_ / "data").string());
        const std::string file = test::WriteExample(dir_, "duty-sweep");
        state.settings().channels[0].ChInputSignal = 4;
        state.settings().channels[1].ChInputSignal = 1;
        ui.files = {file};
        ASSERT_TRUE(state.InputFromFile_Click(ui));
        window = std::make_unique<PlotWindow>(state);
        window->show();
        window->refresh();
    }

    std::filesystem::path dir_;
    RunState state;
    ScriptedUi ui;
    std::unique_ptr<PlotWindow> window;
};

TEST_F(PlotWindowTest, BarsHoldEveryCycleAndTheWidestPulseIsInTheLastBar) {
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

TEST_F(PlotWindowTest, SavesBothPlotsAndTheirDataIntoTheOutputFolder) {
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

TEST_F(PlotWindowTest, ClicksOnTheWidestBarStepThroughItsPulsesInTheWaveWindow) {
    WaveWindow wave(state, WaveWindow::Mode::All);
    wave.show();
    wave.refresh();
    QObject::connect(window.get(), &PlotWindow::cycleChosen, &wave, &WaveWindow::showCycle);

    // Fine bars, so that the widest bar holds a few pulses.
    window->findChild<QSpinBox*>("HistogramBins")->setValue(20);
    const Histogram& h = window->histogram();
    const auto last = static_cast<int32_t>(h.counts.size()) - 1;
    const auto& cycles = state.results().cycles.channel[0];
    std::vector<size_t> inBar;
    for (size_t i = 0; i < cycles.size(); ++i)
        if (CycleHasStretch(cycles[i]) && HistogramBinOf(h, cycles[i].PulseWidth * state.record().SampleSec) == last)
            inBar.push_back(i);
    ASSERT_GE(inBar.size(), 2u);

    // Click the last bar with the mouse, as a user does.
    auto* canvas = window->findChild<QWidget*>("HistogramCanvas");
    const QRectF plot = PlotRect(canvas->rect(), true);
    const QPointF at(plot.left() + plot.width() * (last + 0.5) / (last + 1), plot.center().y());
    auto click = [&] {
        QMouseEvent press(QEvent::MouseButtonPress, at, canvas->mapToGlobal(at), Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(canvas, &press);
    };
    auto* readout = wave.findChild<QLabel*>("CursorReadout");
    for (size_t k = 0; k <= inBar.size(); ++k) {
        click();
        const CycleRecord& c = cycles[inBar[k % inBar.size()]];  // wraps after the last
        EXPECT_EQ(window->selection().bin(), last);
        EXPECT_EQ(wave.cursors()[0], c.FirstEdge) << k;
        EXPECT_EQ(wave.cursors()[1], c.LastEdge) << k;
        const TimeWindow w = wave.timeWindow();
        EXPECT_LE(w.first, c.FirstEdge);
        EXPECT_GT(w.first + VisibleSamples(state.record().WaveLength, w.zoom), c.LastEdge);
        const QString dt = QString::fromStdString(SiText(c.PulseWidth * state.record().SampleSec, "s"));
        EXPECT_TRUE(readout->text().contains(QString::fromUtf8("\xCE\x94t ") + dt)) << readout->text().toStdString();
    }
    EXPECT_TRUE(window->findChild<QLabel*>("BinNote")->text().startsWith(QStringLiteral("bar %1: ").arg(last + 1)));
}

// A repeat series against the simulator: the per-pass view gains a point per
// pass, starts afresh with the next run, and is saved beside the others.
TEST_F(PlotWindowTest, ASeriesDrawsEachPassMinMaxAndMean) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    auto& a = state.settings().analysis;
    a.IPAdressText = sim.address();
    a.RepeatCheck = true;
    a.DaqCheck = true;
    a.TotalRepeats = "4";
    std::vector<size_t> seen;  // points when each pass ends, as a view sees them
    const Subscription watch =
        state.passFinished.subscribe([&] { seen.push_back(window->series().channel(0).size()); });
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    EXPECT_EQ(seen, (std::vector<size_t>{1, 2, 3, 4}));
    EXPECT_EQ(window->series().passes(), 4);
    const auto points = window->series().channel(0);
    ASSERT_EQ(points.size(), 4u);
    for (size_t i = 0; i < points.size(); ++i) {
        EXPECT_EQ(points[i].pass, static_cast<int32_t>(i + 1));
        EXPECT_LE(points[i].min, points[i].mean);
        EXPECT_LE(points[i].mean, points[i].max);
    }
    // The same pass, as the result grid shows it.
    EXPECT_EQ(points.back().max, state.results().table.at(0, Measure::OfType).Max);

    // The channel's colour is in the picture: the bars are drawn.
    const QImage im = window->seriesPicture(QSize(600, 300));
    const QRgb colour = ColorFromBgr(static_cast<uint32_t>(state.settings().channels[0].BackColor)).rgb();
    int coloured = 0;
    for (int y = 0; y < im.height(); ++y)
        for (int x = 0; x < im.width(); ++x) coloured += im.pixel(x, y) == colour;
    EXPECT_GT(coloured, 20);

    std::vector<std::string> names;
    ASSERT_TRUE(window->savePlots(names).ok());
    ASSERT_EQ(names.size(), 6u);
    EXPECT_TRUE(names[4].ends_with("_Ch1_Series.png")) << names[4];
    std::ifstream csv(names[5]);
    std::string header;
    std::getline(csv, header);
    EXPECT_EQ(header.rfind("Pass,Min (", 0), 0u) << header;

    a.TotalRepeats = "1";
    ASSERT_TRUE(state.WFStartCommand_Click(ui).ok());
    EXPECT_EQ(window->series().passes(), 1);
}

}  // namespace
