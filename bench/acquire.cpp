// A soak of the acquisition run: passes of 100,000-sample records from the
// local simulator (of any dialect, --dialect) with "Repeat" and "New
// Acquisition" ticked. Reports the time per pass, the part of it spent
// outside the transfer, and the memory before and after, and checks that
// every pass left its log row and result line. With --series-trend every pass
// also goes into the per-pass trend and its picture is drawn, as an open
// "Histogram / Trend" window does.
#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"

#include "display/PlotPainter.h"
#include "results/SeriesTrend.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

using namespace mervasto;

namespace {
long rssKiB() {
    std::ifstream f("/proc/self/status");
    for (std::string l; std::getline(f, l);)
        if (l.rfind("VmRSS:", 0) == 0) return std::atol(l.c_str() + 6);
    return 0;
}

// Counts the transfer time through the status texts the run shows.
class TimingUi : public ScriptedUi {
public:
    using Clock = std::chrono::steady_clock;
    void setStatus(int panel, const std::string& text) override {
        if (panel == 1) {
            auto now = Clock::now();
            if (text == "Acquiring New Data.") armed = now;
            if (text == "Transfering waves from the DSO.") {
                start = now;
                acquiring += now - armed;
            }
            if (text == "Completed wave translation.") transfer += now - start;
        }
        status[panel] = text;  // the log of every text would grow with the series
    }
    Clock::time_point start;
    Clock::time_point armed;
    Clock::duration transfer{};
    // The acquisition wait: mostly the simulator making the next record.
    Clock::duration acquiring{};
};
}  // namespace

int main(int argc, char** argv) {
    // bench_acquire [PASSES [EDGE_TIMING]] [--series-trend] [--dialect NAME]
    int passes = 1000;
    std::string edgeTiming = "Samples";
    std::string dialect = "legacy";
    bool seriesTrend = false;
    for (int i = 1, positional = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--series-trend")
            seriesTrend = true;
        else if (arg == "--dialect" && i + 1 < argc)
            dialect = argv[++i];
        else if (positional++ == 0)
            passes = std::atoi(arg.c_str());
        else
            edgeTiming = arg;
    }
    // Fonts for the trend's texts need a GUI application; no display is used.
    std::unique_ptr<QCoreApplication> app;
    if (seriesTrend) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    SimOptions o;
    o.dialect = dialect;
    o.state.recordLength = 100000;
    o.acqDelayMs = 0;
    DsoSimulator sim(o);
    if (!sim.start()) return 1;
    const auto dir = std::filesystem::temp_directory_path() / "mervasto-bench-acquire";
    std::filesystem::remove_all(dir);
    RunState state;
    state.FormLoad(dir.string());
    auto& a = state.settings().analysis;
    a.IPAdressText = sim.address();
    a.RepeatCheck = true;
    a.DaqCheck = true;
    a.TotalRepeats = std::to_string(passes);
    // "Interpolated" times are seldom repeated, which the detail grid's
    // texts feel.
    a.EdgeTiming = edgeTiming;
    TimingUi ui;

    SeriesTrend trend;
    QImage picture(900, 420, QImage::Format_RGB32);
    std::chrono::steady_clock::duration drawing{};
    Subscription follow;
    if (seriesTrend)
        follow = state.passFinished.subscribe([&] {
            const auto t = std::chrono::steady_clock::now();
            trend.add(state.repeatCounter(), state.results().table, state.channelDisplays());
            QPainter p(&picture);
            PlotStyle style;
            style.title = "Ch1 per pass";
            style.unit = "s";
            PaintSeriesTrend(p, picture.rect(), trend.channel(0), style);
            drawing += std::chrono::steady_clock::now() - t;
        });

    // One warm-up pass sizes every array once.
    a.TotalRepeats = "1";
    (void)state.WFStartCommand_Click(ui);
    const long rssBefore = rssKiB();
    std::filesystem::remove(state.resultFileName());
    a.TotalRepeats = std::to_string(passes);
    ui.transfer = {};
    ui.acquiring = {};
    trend.clear();
    drawing = {};
    const auto t0 = std::chrono::steady_clock::now();
    (void)state.WFStartCommand_Click(ui);
    const double total = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const long rssAfter = rssKiB();

    size_t lines = 0;
    std::ifstream f(state.resultFileName(), std::ios::binary);
    for (std::string l; std::getline(f, l);) ++lines;
    int logRows = 0;
    for (int r = 4; r < state.logGrid().rows(); ++r) logRows += !state.logGrid().text(r, 0).empty();
    const double transfer = std::chrono::duration<double>(ui.transfer).count();
    std::printf("passes %d, record 100000 samples x 4 channels, edge timing %s, dialect %s\n", passes,
                a.EdgeTiming.c_str(), dialect.c_str());
    const double acquiring = std::chrono::duration<double>(ui.acquiring).count();
    std::printf("per pass: %.2f ms in all, %.2f ms beyond the transfer, of which %.2f ms waiting for the acquisition\n",
                1e3 * total / passes, 1e3 * (total - transfer) / passes, 1e3 * acquiring / passes);
    if (seriesTrend)
        std::printf("series trend: %.3f ms per pass (update and drawing), %zu points on Ch1\n",
                    1e3 * std::chrono::duration<double>(drawing).count() / passes, trend.channel(0).size());
    std::printf("memory: %ld KiB after the first pass, %ld KiB after the series\n", rssBefore, rssAfter);
    std::printf("log rows %d, result lines %zu (+2 header lines)\n", logRows, lines >= 2 ? lines - 2 : 0);
    return (logRows == passes && lines == static_cast<size_t>(passes) + 2) ? 0 : 1;
}
