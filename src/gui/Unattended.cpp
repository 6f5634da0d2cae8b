#include "gui/Unattended.h"

#include <ostream>

#include "app/core/ExitStatus.h"
#include "display/WindowPicture.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/PlotWindow.h"
#include "gui/MainForm.h"
#include "gui/WaveWindow.h"

namespace mervasto {

namespace {

void keepFirst(Outcome& first, const Outcome& next) {
    if (first && !next) first = next;
}

// A series with New Acquisition, as a user would tick and start it; the
// run's failure has been shown in its box (on err) by then.
Outcome runSeries(MainForm& form, int passes, std::ostream& err) {
    auto& a = form.state().settings().analysis;
    a.RepeatCheck = a.DaqCheck = true;
    a.TotalRepeats = std::to_string(passes);
    form.showSettings();
    Outcome ran = form.state().WFStartCommand_Click(form.ui());
    GuardedApplication::report(ran);
    form.refreshViews();
    if (!ran) err << "mervasto: the series ended early: " << ran.text() << '\n';
    return ran;
}

// Closes the window as a user would and gives the first failure of the run
// or of the close.
int closeWithStatus(MainForm& form, Outcome ended) {
    form.close();
    keepFirst(ended, form.sessionEnd());
    return ExitStatusOf(ended);
}

}  // namespace

void AnswerUnattended(MainForm& form, std::ostream& err) {
    form.ui().unattended = [&err](const std::string& line) { err << "mervasto: " << line << '\n' << std::flush; };
}

int RunSeriesUnattended(MainForm& form, int passes, std::ostream& err) {
    AnswerUnattended(form, err);
    return closeWithStatus(form, runSeries(form, passes, err));
}

int SaveScreenshotsUnattended(MainForm& form, const std::string& dir, std::ostream& err) {
    AnswerUnattended(form, err);
    form.plots()->show();
    // A short series, so that the per-pass view has something to show.
    Outcome ended = runSeries(form, 20, err);
    auto save = [&](QWidget& window, const char* name) {
        const Outcome saved = SavePlotPicture(window.grab().toImage(), dir + "/" + name);
        if (!saved) err << "mervasto: " << saved.text() << '\n';
        keepFirst(ended, saved);
    };
    save(form, "main-window.png");
    // The widest cycle, as a user finds it: its bar, clicked.
    PlotWindow& plots = *form.plots();
    plots.refresh();
    plots.clickBar(static_cast<int32_t>(plots.histogram().counts.size()) - 1);
    save(plots, "histogram-window.png");
    // Lanes, so that each channel's edges and marks stand apart.
    form.state().settings().analysis.Stacked = true;
    form.waveAll()->refresh();
    save(*form.waveAll(), "wave-window.png");
    return closeWithStatus(form, std::move(ended));
}

}  // namespace mervasto
