// acquire: a run of passes from the instrument, as "Input from DSO" makes it.
#include "cli/Commands.h"

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "cli/Report.h"
#include "common/Numeric.h"
#include "results/SeriesTrend.h"

#include <QObject>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <ostream>

namespace mervasto::cli {

namespace {
std::atomic<bool> gInterrupted{false};

extern "C" void onInterrupt(int) { gInterrupted = true; }

// --repeat asks for a series; without it, and without settings that say
// otherwise, one pass. --new-acquisition and --omit-range tick their boxes.
void applyRunOptions(AnalysisSettings& a, const Options& o) {
    a.IPAdressText = *o.ip;
    if (o.repeat) {
        a.RepeatCheck = true;
        a.TotalRepeats = std::to_string(*o.repeat);
    } else if (o.sets.empty() && !o.settingsFile) {
        a.RepeatCheck = false;
    }
    if (o.newAcquisition) a.DaqCheck = true;
    if (o.omitRange) a.OmitRangeEffect = true;
}

// Runs the series; Ctrl+C presses Stop, so the pass in progress is kept.
Outcome runStoppable(RunState& state, ScriptedUi& ui) {
    gInterrupted = false;
    auto previous = std::signal(SIGINT, onInterrupt);
    QTimer stopWatch;
    QObject::connect(&stopWatch, &QTimer::timeout, [&] {
        if (gInterrupted) state.Stop_Click();
    });
    stopWatch.start(50);
    Outcome ran = state.WFStartCommand_Click(ui);
    stopWatch.stop();
    std::signal(SIGINT, previous);
    return ran;
}
}  // namespace

Outcome CommandAcquire(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip) return UsageError(err, "acquire", "--ip HOST[:PORT] is needed");
    RunState state;
    if (Outcome prepared = PrepareState(state, o, err); !prepared) return prepared;
    applyRunOptions(state.settings().analysis, o);
    ScriptedUi ui;
    ui.keepStatusLog = false;
    ui.echo = o.format == "json" ? nullptr : &EchoToStderr;
    if (Outcome limits = LoadComparatorOption(state, ui, o, err); !limits) return limits;
    // A family without a reject range cannot take --omit-range: told before any pass.
    if (o.omitRange) {
        if (const Outcome linked = state.ConnectInstrument(ui, *o.ip); !linked) return Told(err, linked);
        if (Outcome refused = RefuseLacking(state, InstrumentFeature::RejectRange, "--omit-range", err); !refused)
            return refused;
    }
    const Subscription sayProbed = state.runStarted.subscribe([&] { ReportProbedPort(state, err); });

    // A series repeats only with "New Acquisition" ticked, as the window's does.
    const AnalysisSettings& a = state.settings().analysis;
    if (a.RepeatCheck && !a.DaqCheck && Val(a.TotalRepeats) > 1)
        err << "mervasto-cli acquire: warning: repeats need \"New Acquisition\" (--new-acquisition); this run makes "
               "one pass, not "
            << a.TotalRepeats << ".\n";

    ReportWriter report(out, o.format, o.cycles);
    bool anyNg = false;
    int64_t passes = 0;
    SeriesTrend series;
    const Subscription reportPasses = state.passFinished.subscribe([&] {
        ++passes;
        anyNg |= report.pass("", state, {}, o.comparator.has_value(), state.repeatCounter());
        // Echoed from the status bar already, unless the output is JSON.
        if (!ui.echo && !state.lastStore()) err << "mervasto-cli: " << state.lastStore().text() << '\n';
        if (!o.plots) return;
        series.add(state.repeatCounter(), state.results().table, state.channelDisplays());
    });
    Outcome result = runStoppable(state, ui);
    report.finish();
    if (!ui.echo) ReportNotices(state, err);
    const Outcome saved = ReportUnsaved(state, err);
    const Outcome plotted =
        !o.plots || passes == 0 ? Outcome::Ok() : WritePlots(state, o, state.sampleName(), err, &series);
    err << "mervasto-cli acquire: " << passes << " pass(es), " << std::max(state.logGrid().nextRow - kLogHeaderRows, 0)
        << " log row(s), " << state.resultLines().written() << " result line(s) written\n";
    if (!result)
        err << "mervasto-cli acquire: the run ended after " << passes << " pass(es): " << result.text() << '\n';
    KeepFirst(result, saved);
    KeepFirst(result, plotted);
    KeepFirst(result, SettingsRefused(state));
    KeepFirst(result, ReportUnstored(state, err));
    if (result && anyNg) return {ErrorCode::VerdictNg, "a verdict is NG"};
    return result;
}

}  // namespace mervasto::cli
