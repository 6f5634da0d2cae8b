#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>

#include "app/core/Startup.h"
#include "common/PackageVersion.h"
#include "gui/DemoSeries.h"
#include "gui/GuardedApplication.h"
#include "gui/GuiUi.h"
#include "gui/MainForm.h"
#include "gui/Unattended.h"
#include "gui/WaveWindow.h"
#include "sim/Dialects.h"
#include "sim/DsoSimulator.h"
#include "sim/Scenario.h"

using namespace mervasto;

namespace {

// Options that only print something and end the program.
bool wantsTextOnly(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        for (const char* o : {"-h", "-?", "--help", "--help-all", "-v", "--version"})
            if (std::strcmp(argv[i], o) == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication::setApplicationName("mervasto");
    QCoreApplication::setApplicationVersion(QString::fromUtf8(kPackageVersion.data(), kPackageVersion.size()));
    QCommandLineParser parser;
    parser.setApplicationDescription("Periods/Encoder Pulses Analyzing");
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption dataFolder("data-folder", "Data folder (default: the platform's).", "DIR");
    QString scenarios;
    for (const auto& name : ScenarioNames())
        scenarios += (scenarios.isEmpty() ? "" : ", ") + QString::fromStdString(name);
    QCommandLineOption simulate(
        "simulate", "Start a simulated instrument on this machine and connect to it (scenarios: " + scenarios + ").",
        "SCENARIO");
    QString dialects;
    for (const auto& d : SimDialects())
        dialects +=
            (dialects.isEmpty() ? "" : ", ") + QString::fromUtf8(d.name.data(), static_cast<int>(d.name.size()));
    QCommandLineOption dialect("dialect", "The simulated instrument's command set (" + dialects + "; default legacy).",
                               "NAME", "legacy");
    QCommandLineOption screenshot("screenshot",
                                  "Run a short series from the simulated instrument, save pictures of the "
                                  "main window, the histogram window and the wave window into DIR and quit "
                                  "(exit status 1 when a picture could not be written).",
                                  "DIR");
    QCommandLineOption dso("dso", "Talk to the instrument at this address (HOST or HOST:PORT).", "ADDRESS");
    QCommandLineOption series("series",
                              "Start a series of this many passes with New Acquisition at once, and quit when "
                              "it has ended (long runs and memory checks). No box waits for an answer: each is "
                              "written to stderr, and the exit status is mervasto-cli's (4 instrument, 1 files).",
                              "PASSES");
    parser.addOption(dataFolder);
    parser.addOption(simulate);
    parser.addOption(dialect);
    parser.addOption(screenshot);
    QCommandLineOption demo("demo",
                            "With the simulated instrument: run a 20-pass series in which a scripted user "
                            "changes the sample name, switches Ch2 off and presses Stop; print what happened "
                            "and quit.");
    parser.addOption(dso);
    parser.addOption(series);
    parser.addOption(demo);
    if (wantsTextOnly(argc, argv)) {
        // Answered before the window system is opened, so that these work
        // on a machine without a display (process() prints and exits).
        QCoreApplication textOnly(argc, argv);
        parser.process(textOnly);
        return 0;
    }

    GuardedApplication app(argc, argv);
    parser.process(app);
    if (parser.isSet(series)) {
        bool isNumber = false;
        const int passes = parser.value(series).toInt(&isNumber);
        if (!isNumber || passes < 1 || passes > kMaxTotalRepeats) {
            std::cerr << "mervasto: --series takes 1 .. " << kMaxTotalRepeats << " passes, not \""
                      << parser.value(series).toStdString() << "\".\n";
            return 2;
        }
    }

    std::unique_ptr<DsoSimulator> sim;
    if (parser.isSet(simulate) || parser.isSet(screenshot) || (parser.isSet(demo) && !parser.isSet(dso))) {
        SimOptions options;
        options.state.scenario = parser.isSet(simulate) ? parser.value(simulate).toStdString() : "pulses";
        const auto& names = ScenarioNames();
        if (std::find(names.begin(), names.end(), options.state.scenario) == names.end()) {
            std::cerr << "mervasto: unknown scenario \"" << options.state.scenario
                      << "\"; the simulated instrument knows " << scenarios.toStdString() << ".\n";
            return 2;
        }
        options.dialect = parser.value(dialect).toStdString();
        if (!SimDialectNamed(options.dialect)) {
            std::cerr << "mervasto: unknown dialect \"" << options.dialect << "\"; the simulated instrument speaks "
                      << dialects.toStdString() << ".\n";
            return 2;
        }
        sim = std::make_unique<DsoSimulator>(options);
        if (!sim->start()) {
            std::cerr << "mervasto: the simulated instrument could not start\n";
            return 1;
        }
    }

    MainForm form(parser.value(dataFolder).toStdString());
    if (sim || parser.isSet(dso)) {
        form.state().settings().analysis.IPAdressText = sim ? sim->address() : parser.value(dso).toStdString();
        form.showSettings();
    }
    form.show();
    form.waveAll()->show();

    // Runs no person watches end with the command line's exit statuses.
    std::optional<int> unattendedStatus;
    if (parser.isSet(screenshot)) {
        const std::string dir = parser.value(screenshot).toStdString();
        QTimer::singleShot(100, &form, [&, dir] {
            unattendedStatus = SaveScreenshotsUnattended(form, dir, std::cerr);
            app.quit();
        });
    } else if (parser.isSet(series)) {
        const int passes = parser.value(series).toInt();
        QTimer::singleShot(0, &form, [&, passes] {
            unattendedStatus = RunSeriesUnattended(form, passes, std::cerr);
            app.quit();
        });
    }
    if (parser.isSet(demo)) {
        StartDemoSeries(form, [&](const std::string& report) {
            std::string text = report;
            for (char& c : text)
                if (c == '\r') c = '\n';
            std::cout << text << '\n';
            if (sim)
                std::cout << "instrument's last command: "
                          << (sim->waitForLastCommand("GTL", 3000) ? "GTL" : sim->commandLog().back()) << '\n';
            std::cout.flush();
            QTimer::singleShot(3000, &form, [&] {
                form.close();
                app.quit();
            });
        });
    }
    const int rc = app.exec();
    return unattendedStatus.value_or(rc);
}
