#include <gtest/gtest.h>

#include <QCheckBox>
#include <QCoreApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "display/RunWaveView.h"
#include "gui/PlotWindow.h"
#include "gui/WaveWindow.h"
#include "results/SiFormat.h"
#include "support/ExampleFiles.h"
#include "support/TestFolder.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

// The application object comes from MainFormTest.cpp: one per test program.

using namespace mervasto;

namespace {

constexpr uint32_t kYellow = 0x0000FFFF;  // 0x00BBGGRR
constexpr uint32_t kCyan = 0x00FFFF00;

// duty-sweep.csv with Ch1 measuring pulse widths ("P.W.").
class WaveWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto-wavewindow-");
        state.FormLoad((dir_ / "data").string());
        const std::string file = test::WriteExample(dir_, "duty-sweep");
        state.settings().channels[0].ChInputSignal = 4;
        state.settings().channels[0].BackColor = kYellow;
        state.settings().channels[1].BackColor = kCyan;
        ui.files = {file};
        ASSERT_TRUE(state.InputFromFile_Click(ui));
        window = std::make_unique<WaveWindow>(state, WaveWindow::Mode::All);
        window->show();
        window->refresh();
        canvas = window->findChild<QWidget*>("WaveCanvas");
        ASSERT_NE(canvas, nullptr);
    }

    // The geometry the window draws with now.
    WaveGeometry geometry() const {
        WaveView v;
        v.WaveLength = state.record().WaveLength;
        v.zoom = window->timeWindow().zoom;
        v.firstSample = window->timeWindow().first;
        return WaveGeometry::Of(canvas->rect(), v);
    }
    double xOfSample(double s) const { return geometry().xOf(s + 0.5); }

    void mouse(QEvent::Type type, double x, Qt::MouseButtons buttons) {
        const QPointF at(x, canvas->height() / 2.0);
        QMouseEvent e(type, at, canvas->mapToGlobal(at), type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                      buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(canvas, &e);
    }
    void drag(double from, double to) {
        mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
        mouse(QEvent::MouseMove, to, Qt::LeftButton);
        mouse(QEvent::MouseButtonRelease, to, Qt::NoButton);
    }
    void wheel(double x, int notches) {
        const QPointF at(x, canvas->height() / 2.0);
        QWheelEvent e(at, canvas->mapToGlobal(at), QPoint(), QPoint(0, 120 * notches), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(canvas, &e);
    }
    QString tipAt(double x) {
        const QPoint at(static_cast<int>(x), canvas->height() / 2);
        QHelpEvent e(QEvent::ToolTip, at, canvas->mapToGlobal(at));
        QCoreApplication::sendEvent(canvas, &e);
        return QToolTip::text();
    }

    std::filesystem::path dir_;
    RunState state;
    ScriptedUi ui;
    std::unique_ptr<WaveWindow> window;
    QWidget* canvas = nullptr;
};

TEST_F(WaveWindowTest, WheelZoomsAroundThePointerAndDoubleClickFitsTheRecord) {
    const double x = canvas->width() * 0.3;
    const double before = geometry().sampleAt(x);
    wheel(x, 4);
    EXPECT_NEAR(window->timeWindow().zoom, std::pow(1.25, 4), 1e-9);
    EXPECT_NEAR(geometry().sampleAt(x), before, 1.0);
    auto* scroll = window->findChild<QScrollBar*>("SearchScroll");
    EXPECT_EQ(scroll->value(), window->timeWindow().first);
    EXPECT_EQ(scroll->pageStep(), geometry().count);

    // Far beyond the Zoom box: one sample per 10 pixels.
    wheel(x, 60);
    EXPECT_NEAR(geometry().count, geometry().plot.width() / 10, 1);

    // Dragging the picture to the left shows later samples.
    const int32_t first = window->timeWindow().first;
    drag(x, x - 100);
    EXPECT_EQ(window->timeWindow().first, first + 10);

    mouse(QEvent::MouseButtonDblClick, x, Qt::LeftButton);
    EXPECT_EQ(window->timeWindow().zoom, 1);
    EXPECT_EQ(window->timeWindow().first, 0);

    // A new rate typed into the Zoom box takes over again.
    wheel(x, 2);
    state.settings().analysis.ZoomRate = "4";
    window->refresh();
    EXPECT_EQ(window->timeWindow().zoom, 4);
}

TEST_F(WaveWindowTest, CursorsOnTheWidestPulseReadItsWidth) {
    const auto& cycles = state.results().cycles.channel[0];
    ASSERT_GT(cycles.size(), 10u);
    const auto widest = std::max_element(cycles.begin(), cycles.end(),
                                         [](const auto& a, const auto& b) { return a.PulseWidth < b.PulseWidth; });
    // Zoom in on the pulse until it fills about half the screen, then bring
    // its rising edge to the first quarter.
    while (geometry().count > 2 * widest->PulseWidth + 10) wheel(xOfSample(widest->FirstEdge), 1);
    drag(xOfSample(widest->FirstEdge), canvas->width() / 4.0);
    const int32_t centre = (widest->FirstEdge + widest->LastEdge) / 2;
    window->findChild<QPushButton*>("CursorsToView")->click();
    const auto placed = window->cursors();
    ASSERT_GE(placed[0], geometry().first);
    drag(xOfSample(placed[0]), xOfSample(widest->FirstEdge));
    drag(xOfSample(window->cursors()[1]), xOfSample(widest->LastEdge));
    EXPECT_EQ(window->cursors()[0], widest->FirstEdge);
    EXPECT_EQ(window->cursors()[1], widest->LastEdge);

    const double dt = widest->PulseWidth * state.record().SampleSec;
    const QString text = window->findChild<QLabel*>("CursorReadout")->text();
    EXPECT_TRUE(text.contains(QString::fromUtf8("\xCE\x94t ") + QString::fromStdString(SiText(dt, "s"))))
        << text.toStdString();
    EXPECT_TRUE(text.contains("Ch1 ")) << text.toStdString();

    // A right click takes the nearer cursor to the pointer.
    const QPointF at(xOfSample(widest->LastEdge + 3), canvas->height() / 2.0);
    QMouseEvent right(QEvent::MouseButtonPress, at, canvas->mapToGlobal(at), Qt::RightButton, Qt::RightButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(canvas, &right);
    EXPECT_EQ(window->cursors()[0], widest->FirstEdge);
    EXPECT_EQ(window->cursors()[1], widest->LastEdge + 3);

    // Hovering inside the pulse names it and its width.
    const QString tip = tipAt(xOfSample(centre));
    const int number = static_cast<int>(widest - cycles.begin()) + 1;
    EXPECT_TRUE(tip.startsWith(QStringLiteral("Ch1 cycle %1\n").arg(number))) << tip.toStdString();
    EXPECT_TRUE(tip.contains("Width " + QString::fromStdString(SiText(dt, "s")))) << tip.toStdString();

    // A new record read while the window is hidden: shown again, the
    // readout reads the new samples at the cursors, of all four channels.
    auto* readout = window->findChild<QLabel*>("CursorReadout");
    EXPECT_FALSE(readout->text().contains("Ch4"));
    window->hide();
    ui.files = {test::WriteExample(dir_, "pulses")};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    window->refresh();
    window->show();
    const auto c = window->cursors();
    for (int ch = 0; ch < kChannels; ++ch) {
        const auto& wave = state.record().wave[static_cast<size_t>(ch)];
        const std::string line = "Ch" + std::to_string(ch + 1) + "  " + SiText(wave[static_cast<size_t>(c[0])], "V") +
                                 "   " + SiText(wave[static_cast<size_t>(c[1])], "V");
        EXPECT_TRUE(readout->text().contains(QString::fromStdString(line))) << readout->text().toStdString();
    }
}

TEST_F(WaveWindowTest, StackedGivesEachChannelItsOwnLane) {
    auto rowsOf = [](const QImage& im, QRgb colour) {
        int top = im.height(), bottom = -1;
        for (int y = 20; y < im.height() - 20; ++y)  // the plot, not the scale texts
            for (int x = 0; x < im.width(); x += 3)
                if (im.pixel(x, y) == colour) {
                    top = std::min(top, y);
                    bottom = std::max(bottom, y);
                }
        return std::pair(top, bottom);
    };
    const QSize size(600, 400);
    state.settings().channels[2].DispOffCheck = state.settings().channels[3].DispOffCheck = true;  // not in the record
    auto* stacked = window->findChild<QCheckBox*>("Stacked");
    ASSERT_NE(stacked, nullptr);
    stacked->setChecked(true);
    EXPECT_TRUE(state.settings().analysis.Stacked);
    const QImage im = window->picture(size);
    const auto [top1, bottom1] = rowsOf(im, ColorFromBgr(kYellow).rgb());
    const auto [top2, bottom2] = rowsOf(im, ColorFromBgr(kCyan).rgb());
    ASSERT_GE(bottom1, 0);
    ASSERT_GE(bottom2, 0);
    EXPECT_LT(bottom1, top2);                      // Ch1 above Ch2
    EXPECT_GT(bottom1 - top1, size.height() / 4);  // each fills most of its half
    EXPECT_GT(bottom2 - top2, size.height() / 4);
}

TEST_F(WaveWindowTest, TheNarrowestAndWidestPulsesAreMarkedOverTheirCycles) {
    state.settings().channels[1].DispOffCheck = true;  // its periods would be marked too
    window->refresh();
    const auto& cycles = state.results().cycles.channel[0];
    auto byWidth = [](const CycleRecord& a, const CycleRecord& b) {
        // Ties go to the first, as the marks do; the edgeless records are never marked.
        if (!CycleHasStretch(a)) return false;
        return !CycleHasStretch(b) || a.PulseWidth < b.PulseWidth;
    };
    const auto narrowest = std::min_element(cycles.begin(), cycles.end(), byWidth);
    auto widest = cycles.begin();
    for (auto it = cycles.begin(); it != cycles.end(); ++it)
        if (CycleHasStretch(*it) && (!CycleHasStretch(*widest) || it->PulseWidth > widest->PulseWidth)) widest = it;
    ASSERT_LT(narrowest->PulseWidth, widest->PulseWidth);

    const QSize size(800, 400);
    const QImage im = window->picture(size);
    WaveView v;
    v.WaveLength = state.record().WaveLength;
    const WaveGeometry g = WaveGeometry::Of(QRect(QPoint(0, 0), size), v);
    for (const auto& [cycle, colour] : {std::pair(narrowest, kMinMarkColour), std::pair(widest, kMaxMarkColour)}) {
        const QRgb rgb = ColorFromBgr(colour).rgb();
        std::vector<int> perColumn(static_cast<size_t>(size.width()), 0);
        for (int y = 0; y < size.height(); ++y)
            for (int x = 0; x < size.width(); ++x)
                if (im.pixel(x, y) == rgb) ++perColumn[static_cast<size_t>(x)];
        const int x0 = static_cast<int>(std::floor(g.xOf(cycle->FirstEdge + 0.5)));
        const int x1 = std::max(static_cast<int>(std::floor(g.xOf(cycle->LastEdge + 0.5))), x0 + 2);
        // The bracket's two legs stand on the cycle's edges ...
        EXPECT_GE(perColumn[static_cast<size_t>(x0)], 5) << colour;
        EXPECT_GE(perColumn[static_cast<size_t>(x1)], 5) << colour;
        // ... and nothing of its colour is anywhere else but its label.
        for (int x = 0; x < size.width(); ++x)
            if (perColumn[static_cast<size_t>(x)] > 0) {
                EXPECT_GE(x, x0 - 25) << colour;
                EXPECT_LE(x, x1 + 25) << colour;
            }
    }
}

// An imported capture whose time column starts at -0.25 ms: the window's
// times are the file's own, and stay so after a save in the program's own
// layout and a load of that. Read after a four-channel file, the capture of
// one column shows nothing of that file's Ch3 and Ch4.
TEST(WaveWindowTimes, AnImportedCaptureKeepsItsOwnTimes) {
    const auto dir = mervasto::test::FreshTestFolder("mervasto-wavetimes-");
    const auto capture = dir / "capture.csv";
    {
        std::ofstream f(capture, std::ios::binary);
        f << "Time(s),CH1(V)\r\n";
        char line[64];
        for (int k = 0; k < 2000; ++k) {
            std::snprintf(line, sizeof line, "%.9g,%g\r\n", -0.25e-3 + k * 1e-6, (k / 50) % 2 ? 5.0 : 0.0);
            f << line;
        }
    }
    RunState state;
    state.FormLoad((dir / "data").string());
    ScriptedUi ui;
    auto readoutAt = [&](double c1, double c2) {
        WaveWindow window(state, WaveWindow::Mode::All);
        window.show();
        window.refresh();
        window.setCursors(c1, c2);
        return window.findChild<QLabel*>("CursorReadout")->text().toStdString();
    };
    ui.files = {test::WriteExample(dir, "pulses"), capture.string()};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    ASSERT_TRUE(state.InputFromFile_Click(ui)) << state.lastFileLoad().outcome.text();
    const std::string readout = readoutAt(0, 1);
    EXPECT_NE(readout.find("\nCh2"), std::string::npos) << readout;
    EXPECT_EQ(readout.find("\nCh3"), std::string::npos) << readout;
    EXPECT_EQ(readout.find("\nCh4"), std::string::npos) << readout;
    const WaveView view = RunWaveView(state);
    EXPECT_FALSE(ChannelDrawn(view, 2) || ChannelDrawn(view, 3));  // nor in the legend
    const struct {
        double c1, c2;
        const char* text;
    } cases[] = {
        {0, 250, "t1 -250 us   t2 0 s   \xCE\x94t 250 us"},  // the first row and the file's time 0
        {300, 1999, "t1 50 us   t2 1.75 ms"},
    };
    for (const auto& c : cases) EXPECT_EQ(readoutAt(c.c1, c.c2).rfind(c.text, 0), 0u) << readoutAt(c.c1, c.c2);

    // The trend against time uses the same times: Ch1's first cycle starts
    // at its first rising edge, 50 rows in.
    PlotWindow plots(state);
    plots.refresh();
    std::vector<std::string> names;
    ASSERT_TRUE(plots.savePlots(names).ok());
    std::ifstream trend(names[3]);
    std::string header, first;
    std::getline(trend, header);
    std::getline(trend, first);
    const double t = std::stod(first.substr(first.find(',') + 1));
    EXPECT_NEAR(t, -200e-6, 2e-6) << first;

    const auto own = dir / "own.csv";
    ASSERT_TRUE(SaveWaveCsv(own.string(), state.setup(), state.record()).ok());
    ui.files = {own.string()};
    ASSERT_TRUE(state.InputFromFile_Click(ui));
    EXPECT_EQ(readoutAt(0, 250).rfind(cases[0].text, 0), 0u) << readoutAt(0, 250);
}

}  // namespace
