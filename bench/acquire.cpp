// A soak of the acquisition run: passes of 100,000-sample records from the
// local simulator with "Repeat" and "New Acquisition" ticked. Reports the
// time per pass, the part of it spent outside the transfer, and the memory
// before and after, and checks that every pass left its log row and result
// line.
#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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
            if (text == "Transfering waves from the DSO.") start = now;
            if (text == "Completed wave translation.") transfer += now - start;
        }
        status[panel] = text;  // the log of every text would grow with the series
    }
    Clock::time_point start;
    Clock::duration transfer{};
};
}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int passes = argc > 1 ? std::atoi(argv[1]) : 1000;
    SimOptions o;
    o.state.recordLength = 100000;
    o.acqDelayMs = 0;
    DsoSimulator sim(o);
    if (!sim.start()) return 1;
    const auto dir = std::filesystem::temp_directory_path() / "mervasto-bench-acquire";
    std::filesystem::remove_all(dir);
    RunState state;
    state.FormLoad(dir.string());
    auto& a = state.settings.analysis;
    a.IPAdressText = sim.address();
    a.RepeatCheck = true;
    a.DaqCheck = true;
    a.TotalRepeats = std::to_string(passes);
    // A second argument chooses the edge timing: "Interpolated" times are
    // seldom repeated, which the detail grid's texts feel.
    a.EdgeTiming = argc > 2 ? argv[2] : "Samples";
    TimingUi ui;

    // One warm-up pass sizes every array once.
    a.TotalRepeats = "1";
    state.WFStartCommand_Click(ui);
    const long rssBefore = rssKiB();
    std::filesystem::remove(state.resultFileName());
    a.TotalRepeats = std::to_string(passes);
    ui.transfer = {};
    const auto t0 = std::chrono::steady_clock::now();
    state.WFStartCommand_Click(ui);
    const double total = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const long rssAfter = rssKiB();

    size_t lines = 0;
    std::ifstream f(state.resultFileName(), std::ios::binary);
    for (std::string l; std::getline(f, l);) ++lines;
    int logRows = 0;
    for (int r = 4; r < state.LogGrid.rows(); ++r) logRows += !state.LogGrid.text(r, 0).empty();
    const double transfer = std::chrono::duration<double>(ui.transfer).count();
    std::printf("passes %d, record 100000 samples x 4 channels, edge timing %s\n", passes, a.EdgeTiming.c_str());
    std::printf("per pass: %.2f ms in all, %.2f ms beyond the transfer\n", 1e3 * total / passes,
                1e3 * (total - transfer) / passes);
    std::printf("memory: %ld KiB after the first pass, %ld KiB after the series\n", rssBefore, rssAfter);
    std::printf("log rows %d, result lines %zu (+2 header lines)\n", logRows, lines >= 2 ? lines - 2 : 0);
    return (logRows == passes && lines == static_cast<size_t>(passes) + 2) ? 0 : 1;
}
