#include "cli/Cli.h"

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/DataFolders.h"
#include "app/core/SettingsTable.h"
#include "app/core/Startup.h"
#include "app/core/Version.h"
#include "cli/FilePreload.h"
#include "cli/Plots.h"
#include "cli/Report.h"
#include "common/Numeric.h"
#include "common/PackageVersion.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"
#include "results/ResultFiles.h"
#include "results/SeriesTrend.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

#include <QObject>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <ostream>
#include <set>

namespace mervasto {

namespace cli {

// The command line as given: the command, its files and every option.
struct Options {
    std::string command;
    std::vector<std::string> files;
    std::optional<std::string> dataFolder;
    std::optional<std::string> settingsFile;
    std::vector<std::pair<std::string, std::string>> sets;
    std::string format = "table";
    bool cycles = false;
    bool noSave = false;
    std::optional<std::string> comparator;
    std::optional<std::string> ip;
    std::optional<int32_t> repeat;
    bool newAcquisition = false;
    bool omitRange = false;
    std::optional<int> timeoutMs;
    double importInterval = 0;
    bool generic = false;
    std::optional<std::string> plots;
    int jobs = 2;
};

namespace {

constexpr const char* kUsage = R"(mervasto-cli: Periods/Encoder Pulses Analyzing from the command line.

Usage: mervasto-cli [--data-folder DIR] COMMAND [options]

Commands:
  info FILE...                 load wave CSV files and print their setup and record
  analyze [options] FILE...    analyse wave CSV files and print the results
      --import-interval SECONDS
                               sample interval of captures without a time column
                               (info, analyze and convert take other instruments' CSV too)
      --settings FILE          settings from this resume file (default: the data folder's)
      --set NAME=VALUE         override one setting by its control name (repeatable)
      --format table|csv|json  output form (default table)
      --cycles                 with json: every cycle record
      --comparator FILE        load Go/NG limits and print the verdicts (exit 3 on NG)
      --no-save                do not append to ResultData.csv (nor EncoderData.csv)
      --plots DIR              also write each analysed channel's wave, histogram and
                               trend as PNG into DIR, named after the file and channel
      --jobs 1|2               2 (default): load the next file while one is analysed;
                               1: one file at a time
  convert [--generic] IN OUT   write IN in the program's own wave CSV layout, or with
                               --generic as a plain "Time(s),CH1(V),..." file
  make-examples DIR            write the bundled example records into DIR
  readout --ip HOST[:PORT] [--format table|json]
                               read and print the instrument's setup
  fetch --ip HOST[:PORT] OUT.csv
                               transfer the instrument's channels into a wave CSV file
  acquire --ip HOST[:PORT] [--repeat N] [--new-acquisition] [--omit-range]
          [--settings FILE] [--set NAME=VALUE ...] [--format table|csv|json] [--no-save]
          [--plots DIR]
                               run acquisitions without a window; Ctrl+C stops after the pass;
                               --plots draws the last pass, named after the sample

Global options: --help, --version, --data-folder DIR,
  --timeout SECONDS            give up on an instrument exchange (a reply, a block) after this long (default 10)
Exit status: 0 success, 1 a file could not be read or written, 2 bad options, 3 a verdict is NG,
4 the instrument cannot be reached or failed during the run (the passes before it are kept).
)";

// A misspelt or misplaced option: the usage tells the right form.
Outcome optionError(const std::string& text) { return {ErrorCode::BadOption, text + "\n(try --help)"}; }

// A number option's value; a value that is no number is the option's fault.
Outcome numberOption(const std::string& v, double& n) {
    try {
        n = NumberText(v);
        return Outcome::Ok();
    } catch (const RuntimeError& e) {
        return {ErrorCode::BadOption, e.what()};
    }
}

const std::set<std::string>& optionsWithValues() {
    static const std::set<std::string> names = {"--data-folder",     "--settings", "--set",    "--format",
                                                "--comparator",      "--ip",       "--repeat", "--timeout",
                                                "--import-interval", "--plots",    "--jobs"};
    return names;
}

}  // namespace

const char* UsageText() { return kUsage; }

Outcome ParseOptions(const std::vector<std::string>& args, Options& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (optionsWithValues().count(a) && i + 1 >= args.size()) return optionError(a + " needs a value");
        if (a == "--data-folder")
            o.dataFolder = args[++i];
        else if (a == "--settings")
            o.settingsFile = args[++i];
        else if (a == "--set") {
            const std::string& nv = args[++i];
            auto eq = nv.find('=');
            if (eq == std::string::npos) return optionError("--set takes NAME=VALUE, not " + nv);
            o.sets.emplace_back(nv.substr(0, eq), nv.substr(eq + 1));
        } else if (a == "--format") {
            o.format = args[++i];
            if (o.format != "table" && o.format != "csv" && o.format != "json")
                return optionError("--format is table, csv or json, not " + o.format);
        } else if (a == "--cycles")
            o.cycles = true;
        else if (a == "--no-save")
            o.noSave = true;
        else if (a == "--comparator")
            o.comparator = args[++i];
        else if (a == "--ip")
            o.ip = args[++i];
        else if (a == "--repeat") {
            const std::string& v = args[++i];
            double n = 0;
            if (Outcome number = numberOption(v, n); !number) return number;
            if (n < 0 || n > kMaxTotalRepeats || n != RoundHalfEven(n))
                return optionError("--repeat takes 0 .. " + std::to_string(kMaxTotalRepeats) + ", not " + v);
            o.repeat = static_cast<int32_t>(n);
        } else if (a == "--timeout") {
            const std::string& v = args[++i];
            double s = 0;
            if (Outcome number = numberOption(v, s); !number) return number;
            if (!(s > 0 && s <= 3600)) return optionError("--timeout takes seconds above 0, at most 3600, not " + v);
            o.timeoutMs = std::max(1, static_cast<int>(s * 1000));
        } else if (a == "--import-interval") {
            const std::string& v = args[++i];
            double s = Val(v);
            if (!(s > 0 && std::isfinite(s))) return optionError("--import-interval takes seconds above 0, not " + v);
            o.importInterval = s;
        } else if (a == "--plots") {
            o.plots = args[++i];
        } else if (a == "--jobs") {
            const std::string& v = args[++i];
            if (v != "1" && v != "2") return optionError("--jobs takes 1 or 2, not " + v);
            o.jobs = v == "1" ? 1 : 2;
        } else if (a == "--generic")
            o.generic = true;
        else if (a == "--new-acquisition")
            o.newAcquisition = true;
        else if (a == "--omit-range")
            o.omitRange = true;
        else if (a.size() > 1 && a[0] == '-' && a != "-")
            return optionError("unknown option " + a);
        else if (o.command.empty())
            o.command = a;
        else
            o.files.push_back(a);
    }
    return Outcome::Ok();
}

void KeepFirst(Outcome& first, const Outcome& next) {
    if (first && !next) first = next;
}

Outcome Told(std::ostream& err, const Outcome& failed) {
    err << "mervasto-cli: " << failed.text() << '\n';
    return failed;
}

Outcome UsageError(std::ostream& err, const std::string& command, const std::string& text) {
    err << "mervasto-cli " << command << ": " << text << '\n';
    return {ErrorCode::BadOption, text};
}

WaveImportOptions ImportOptionsOf(const Options& o) {
    WaveImportOptions w;
    w.sampleInterval = o.importInterval;
    return w;
}

void ApplyTimeout(RunState& state, const Options& o) {
    if (!o.timeoutMs) return;
    state.setReplyTimeoutMs(*o.timeoutMs);
    state.setExchangeDeadlineMs(*o.timeoutMs);
    state.settings().analysis.TimeoutSeconds = ShortestText(*o.timeoutMs / 1000.0);
}

Outcome PrepareState(RunState& state, const Options& o, std::ostream& err) {
    state.FormLoad(o.dataFolder.value_or(""));
    if (o.settingsFile && !state.LoadSettingsFrom(*o.settingsFile)) {
        err << "mervasto-cli: cannot read the settings file " << *o.settingsFile << '\n';
        return {ErrorCode::BadOption, "cannot read the settings file " + *o.settingsFile};
    }
    for (const auto& problem : state.settingsProblems())
        err << "mervasto-cli: warning: settings file, " << problem << '\n';
    for (const auto& [name, value] : o.sets) {
        Outcome set = SetSettingByName(state.settings(), name, value);
        // Names that become part of file names stay in their folder.
        if (set && (name == "SampleNo" || name == "SampleIndex" || name == "DetailBaseName" || name == "WaveBaseName"))
            set = CheckFileNamePart(value, name);
        if (!set) {
            err << "mervasto-cli: --set " << name << '=' << value << ": " << set.text() << '\n';
            return {ErrorCode::BadOption, set.text()};
        }
    }
    state.setSaveResultLine(!o.noSave);
    state.setImportOptions(ImportOptionsOf(o));
    ApplyTimeout(state, o);
    return Outcome::Ok();
}

Outcome LoadComparatorOption(RunState& state, ScriptedUi& ui, const Options& o, std::ostream& err) {
    if (!o.comparator) return Outcome::Ok();
    const Outcome loaded = state.LoadComparator(ui, *o.comparator);
    if (!loaded) err << "mervasto-cli: comparator " << *o.comparator << ": " << loaded.text() << '\n';
    return loaded;
}

Outcome WritePlots(const RunState& state, const Options& o, const std::string& base, std::ostream& err,
                   const SeriesTrend* series = nullptr) {
    std::error_code ec;
    std::filesystem::create_directories(*o.plots, ec);
    std::vector<std::string> written;
    const Outcome plotted = WriteChannelPlots(state, *o.plots, base, written, series);
    for (const auto& name : written) err << "mervasto-cli: plot " << name << '\n';
    return plotted ? plotted : Told(err, plotted);
}

Outcome ReportUnsaved(RunState& state, std::ostream& err) {
    ScriptedUi quiet;
    Outcome left = state.SaveUnsavedResults(quiet);
    if (left) return left;
    std::string text = left.text();
    for (size_t cut; (cut = text.find("\r\n")) != std::string::npos;) text.replace(cut, 2, "\n");
    err << "mervasto-cli: " << text << '\n';
    return left;
}

void EchoToStderr(const std::string& line) { std::cerr << line << '\n'; }

namespace {
void printWarnings(std::ostream& err, const WaveCsvLoadResult& r) {
    for (const auto& w : r.warnings) err << "mervasto-cli: warning: " << w << '\n';
}
}  // namespace

Outcome CommandInfo(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) return UsageError(err, "info", "name at least one wave CSV file");
    Outcome result;
    WaveFieldTable table;
    for (const auto& f : o.files) {
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = LoadAnyWaveCsv(f, setup, record, table, ImportOptionsOf(o));
        if (!r.ok()) KeepFirst(result, Told(err, r.outcome));
        printWarnings(err, r);
        if (!r.ok() && r.generic) {
            // A refused capture gave no setup: nothing to show but the rows.
            out << "Source: " << f << "\nLayout: generic CSV, refused\nRows read: " << r.rowsRead << '\n';
            continue;
        }
        PrintSetupText(out, f, setup);
        out << "Layout: " << (r.generic ? r.layout : std::string("wave CSV")) << '\n';
        out << "Rows read: " << r.rowsRead << '\n';
        PrintRecordSummary(out, setup, record);
    }
    return result;
}

Outcome CommandConvert(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() != 2) return UsageError(err, "convert", "name the input file and the output file");
    DsoSetup setup;
    WaveRecord record;
    WaveFieldTable table;
    const WaveCsvLoadResult r = LoadAnyWaveCsv(o.files[0], setup, record, table, ImportOptionsOf(o));
    if (!r.ok()) return Told(err, r.outcome);
    printWarnings(err, r);
    const Outcome saved =
        o.generic ? SaveGenericCsv(o.files[1], setup, record) : SaveWaveCsv(o.files[1], setup, record);
    if (!saved) return Told(err, saved);
    out << "Converted " << setup.RecordLength << " samples of " << setup.ChannelCount << " channels from " << o.files[0]
        << " to " << o.files[1] << '\n';
    return Outcome::Ok();
}

Outcome CommandMakeExamples(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() != 1) return UsageError(err, "make-examples", "name the folder to write into");
    // Only files really written are listed; the first failure ends the run.
    for (const auto& name : ExampleNames()) {
        DsoSetup setup;
        WaveRecord record;
        MakeExampleRecord(name, setup, record);
        std::string file = JoinPath(o.files[0], name + ".csv");
        if (Outcome saved = SaveWaveCsv(file, setup, record); !saved) return Told(err, saved);
        out << file << '\n';
    }
    return Outcome::Ok();
}

namespace {
// The title of a wave file's warnings among a pass's JSON "messages".
constexpr const char* kWaveFileWarningTitle = "Wave File";

// --jobs 2: the next file loads while one is analysed.
std::unique_ptr<FilePreload> preloadFiles(RunState& state, const Options& o) {
    if (o.jobs < 2 || o.files.size() < 2) return nullptr;
    auto preload = std::make_unique<FilePreload>(o.files, state.setup(), state.record(), state.fieldTable(),
                                                 state.importOptions());
    state.setFileLoader([p = preload.get()](const std::string& file, DsoSetup& setup, WaveRecord& record,
                                            WaveFieldTable& table) { return p->load(file, setup, record, table); });
    return preload;
}
}  // namespace

Outcome CommandAnalyze(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) return UsageError(err, "analyze", "name at least one wave CSV file");
    RunState state;
    if (Outcome prepared = PrepareState(state, o, err); !prepared) return prepared;
    ScriptedUi ui;
    if (Outcome limits = LoadComparatorOption(state, ui, o, err); !limits) return limits;
    Outcome result;
    bool anyNg = false;
    ReportWriter report(out, o.format, o.cycles);
    const std::unique_ptr<FilePreload> preload = preloadFiles(state, o);
    for (const auto& f : o.files) {
        ui.files.push_back(f);
        const size_t boxesBefore = ui.boxes.size();
        if (const Outcome input = state.InputFromFile_Click(ui); !input) {
            // The reader's own words name the file and the line; other faults do not.
            err << "mervasto-cli: " << (state.lastFileLoad().ok() ? f + ": " : std::string()) << input.text() << '\n';
            KeepFirst(result, input);
            continue;
        }
        // The analysis's signal-check messages go into the report.
        std::vector<ScriptedUi::Box> messages(ui.boxes.begin() + static_cast<std::ptrdiff_t>(boxesBefore),
                                              ui.boxes.end());
        for (const auto& w : state.lastFileLoad().warnings) {
            if (o.format == "json")
                messages.insert(messages.begin(), ScriptedUi::Box{w, MsgButtons::Ok, kWaveFileWarningTitle});
            else
                err << "mervasto-cli: warning: " << w << '\n';
        }
        anyNg |= report.pass(f, state, messages, o.comparator.has_value(), std::nullopt);
        if (o.plots) KeepFirst(result, WritePlots(state, o, std::filesystem::path(f).stem().string(), err));
        if (o.format == "json" || !state.saveResultLine()) continue;
        const Outcome& saved = state.lastSave();
        err << (saved ? kSavedTestResults + state.resultFileName() + "." : saved.text()) << '\n';
    }
    report.finish();
    KeepFirst(result, ReportUnsaved(state, err));
    if (result && anyNg) return {ErrorCode::VerdictNg, "a verdict is NG"};
    return result;
}

namespace {
// Connects, identifies and runs one exchange with the instrument, then hands
// the front panel back.
Outcome withInstrument(RunState& state, const std::string& ip, std::ostream& err,
                       const std::function<Outcome(ScriptedUi&)>& exchange) {
    ScriptedUi ui;
    if (const Outcome linked = state.ConnectInstrument(ui, ip); !linked)
        return Told(err, Outcome(linked.code(), linked.text() + " (" + ip + ")"));
    if (const Outcome exchanged = exchange(ui); !exchanged) return Told(err, exchanged);
    if (const Outcome local = state.HandBackInstrument(); !local) return Told(err, local);
    return Outcome::Ok();
}

// The run state for a direct exchange: the data folder and the time-out.
void prepareForExchange(RunState& state, const Options& o) {
    state.FormLoad(o.dataFolder.value_or(""));
    ApplyTimeout(state, o);
}
}  // namespace

Outcome CommandReadout(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip) return UsageError(err, "readout", "--ip HOST[:PORT] is needed");
    RunState state;
    prepareForExchange(state, o);
    const Outcome read = withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) {
        const Outcome setup = state.ReadInstrumentSetup(ui, *o.ip);
        return setup ? setup : Outcome(setup.code(), setup.text() + " (" + *o.ip + ")");
    });
    if (!read) return read;
    if (o.format == "json")
        PrintSetupJson(out, state.setup());
    else
        PrintSetupText(out, *o.ip, state.setup());
    return Outcome::Ok();
}

Outcome CommandFetch(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip || o.files.size() != 1)
        return UsageError(err, "fetch", "--ip HOST[:PORT] and one output file are needed");
    RunState state;
    prepareForExchange(state, o);
    const Outcome fetched =
        withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) { return state.WaveTrans(ui, kInputTypeDso, {}); });
    if (!fetched) return fetched;
    if (Outcome saved = SaveWaveCsv(o.files[0], state.setup(), state.record()); !saved) return Told(err, saved);
    out << "Saved " << state.record().WaveLength << " samples of " << state.setup().ChannelCount << " channels to "
        << o.files[0] << '\n';
    return Outcome::Ok();
}

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

    ReportWriter report(out, o.format, o.cycles);
    bool anyNg = false;
    int64_t passes = 0;
    SeriesTrend series;
    const Subscription reportPasses = state.passFinished.subscribe([&] {
        ++passes;
        anyNg |= report.pass("", state, {}, o.comparator.has_value(), state.repeatCounter());
        if (!o.plots) return;
        series.add(state.repeatCounter(), state.results().table, state.channelDisplays());
    });
    Outcome result = runStoppable(state, ui);
    report.finish();
    const Outcome saved = ReportUnsaved(state, err);
    const Outcome plotted =
        !o.plots || passes == 0 ? Outcome::Ok() : WritePlots(state, o, state.sampleName(), err, &series);
    err << "mervasto-cli acquire: " << passes << " pass(es), " << std::max(state.logGrid().nextRow - kLogHeaderRows, 0)
        << " log row(s), " << state.resultLines().written() << " result line(s) written\n";
    if (!result)
        err << "mervasto-cli acquire: the run ended after " << passes << " pass(es): " << result.text() << '\n';
    KeepFirst(result, saved);
    KeepFirst(result, plotted);
    if (result && anyNg) return {ErrorCode::VerdictNg, "a verdict is NG"};
    return result;
}

}  // namespace cli

int ExitStatusOf(const Outcome& outcome) {
    switch (outcome.code()) {
    case ErrorCode::None: return kExitOk;
    case ErrorCode::BadOption: return kExitBadOptions;
    case ErrorCode::VerdictNg: return kExitNg;
    // The only cancel a command meets is a Stop (Ctrl+C) that had to cut an
    // exchange, which closes the link.
    case ErrorCode::Link:
    case ErrorCode::Canceled: return kExitNoInstrument;
    default: return kExitFileError;  // files, and the faults of what was read from them
    }
}

int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    for (const auto& a : args) {
        if (a == "--help" || a == "-h") {
            out << cli::UsageText();
            return kExitOk;
        }
        if (a == "--version") {
            // The settings keep the fixed identity of the resume file; saying
            // which one tells a user where their settings live.
            out << "mervasto-cli " << kPackageVersion << '\n'
                << "settings: Resume" << kVersionText << ".txt " << CaptionSuffix() << '\n';
            return kExitOk;
        }
    }
    cli::Options o;
    if (const Outcome parsed = cli::ParseOptions(args, o); !parsed) {
        err << "mervasto-cli: " << parsed.text() << '\n';
        return ExitStatusOf(parsed);
    }
    if (o.command.empty()) {
        err << cli::UsageText();
        return kExitBadOptions;
    }
    using Command = Outcome (*)(const cli::Options&, std::ostream&, std::ostream&);
    static const std::map<std::string, Command> commands = {
        {"info", cli::CommandInfo},       {"analyze", cli::CommandAnalyze},
        {"convert", cli::CommandConvert}, {"make-examples", cli::CommandMakeExamples},
        {"readout", cli::CommandReadout}, {"fetch", cli::CommandFetch},
        {"acquire", cli::CommandAcquire},
    };
    const auto command = commands.find(o.command);
    if (command == commands.end()) {
        err << "mervasto-cli: unknown command " << o.command << "\n(try --help)\n";
        return kExitBadOptions;
    }
    // The command has told its own failures; a fault that escaped it is told here.
    Outcome done;
    if (const Outcome escaped = Guarded([&] { done = command->second(o, out, err); }); !escaped)
        return ExitStatusOf(cli::Told(err, escaped));
    return ExitStatusOf(done);
}

}  // namespace mervasto
